#include "ZR/Exceptions.h"

namespace ZR {

ZRException::ZRException(const UniString& message, const char* file, unsigned int line, int error)
    : mMessage(message), mFile(file), mLine(line), mError(error) {}

ZRException::ZRException(const UniString& message, const char* file, unsigned int line,
                         const ZRException& cause, int error)
    : mMessage(message), mFile(file), mLine(line), mCause(cause.Clone()), mError(error) {}

ZRException::ZRException(const ZRException& other)
    : mMessage(other.mMessage),
      mFile(other.mFile),
      mLine(other.mLine),
      mCause(other.mCause ? other.mCause->Clone() : nullptr),
      mError(other.mError) {}

ZRException& ZRException::operator=(const ZRException& other) {
    if (this != &other) {
        mMessage = other.mMessage;
        mFile = other.mFile;
        mLine = other.mLine;
        mCause.reset(other.mCause ? other.mCause->Clone() : nullptr);
        mError = other.mError;
    }
    return *this;
}

}  // namespace ZR
