#pragma once
/// @file
/// The exception family. Every exception carries message, throw position, an
/// owned clone of its cause and an error code.

#include <memory>

#include "ZR/UniString.h"
#include "ZR/ZRRootExport.h"

namespace ZR {

inline constexpr int kGeneralErrorCode = -7003;
inline constexpr int kIllegalArgumentCode = -50;

class ZRROOT_EXPORT ZRException {
public:
    ZRException() = default;
    ZRException(const UniString& message, const char* file, unsigned int line,
                int error = kGeneralErrorCode);
    ZRException(const UniString& message, const char* file, unsigned int line,
                const ZRException& cause, int error = kGeneralErrorCode);
    ZRException(const ZRException& other);
    ZRException(ZRException&&) noexcept = default;
    ZRException& operator=(const ZRException& other);
    ZRException& operator=(ZRException&&) noexcept = default;
    virtual ~ZRException() = default;

    virtual UniString GetName() const { return "ZRException"; }
    virtual ZRException* Clone() const { return new ZRException(*this); }

    const UniString& GetMessage() const { return mMessage; }
    const char* GetFileName() const { return mFile; }
    unsigned long GetLineNumber() const { return mLine; }
    const ZRException* GetCause() const { return mCause.get(); }
    int GetErrorCode() const { return mError; }

    void SetMessage(const UniString& message) { mMessage = message; }
    void SetPosition(const char* file, unsigned int line) {
        mFile = file;
        mLine = line;
    }
    void SetCause(const ZRException& cause) { mCause.reset(cause.Clone()); }
    void SetErrorCode(int error) { mError = error; }

private:
    UniString mMessage;
    const char* mFile = nullptr;
    unsigned long mLine = 0;
    std::unique_ptr<ZRException> mCause;
    int mError = kGeneralErrorCode;
};

#define ZR_DECLARE_EXCEPTION(Name, Base, DefaultCode)                       \
    class ZRROOT_EXPORT Name : public virtual Base {                        \
    public:                                                                 \
        Name() : ZRException(UniString(), nullptr, 0, DefaultCode) {}       \
        Name(const UniString& message, const char* file, unsigned int line, \
             int error = DefaultCode)                                       \
            : ZRException(message, file, line, error) {}                    \
        Name(const UniString& message, const char* file, unsigned int line, \
             const ZRException& cause, int error = DefaultCode)             \
            : ZRException(message, file, line, cause, error) {}             \
        UniString GetName() const override { return #Name; }                \
        ZRException* Clone() const override { return new Name(*this); }     \
    };

ZR_DECLARE_EXCEPTION(GeneralException, ZRException, kGeneralErrorCode)
ZR_DECLARE_EXCEPTION(IllegalArgumentException, ZRException, kIllegalArgumentCode)
ZR_DECLARE_EXCEPTION(NullReferenceException, ZRException, kGeneralErrorCode)
ZR_DECLARE_EXCEPTION(InterruptedException, ZRException, kGeneralErrorCode)
ZR_DECLARE_EXCEPTION(InterruptedIOException, ZRException, kGeneralErrorCode)
/// A state that should not be reached: the work can't go on.
ZR_DECLARE_EXCEPTION(InternalErrorException, ZRException, kGeneralErrorCode)

}  // namespace ZR

#define ZR_HERE __FILE__, static_cast<unsigned int>(__LINE__)
