#include "KRClient/KRClientExceptions.h"

namespace KRC {

KRCFileErrorEventSource krcFileErrorEventSource;

KRClientException::KRClientException(const ZR::UniString& message, const char* file,
                                     unsigned int line, int error)
    : ZR::ZRException(message, file, line, error) {}

KRClientException::KRClientException(const char* message, const char* file, unsigned int line,
                                     int error)
    : ZR::ZRException(ZR::UniString(message), file, line, error) {}

KRClientException::KRClientException(const ZR::UniString& message, const char* file,
                                     unsigned int line, const ZR::ZRException& cause, int error)
    : ZR::ZRException(message, file, line, cause, error) {}

KRClientException::KRClientException(const char* message, const char* file, unsigned int line,
                                     const ZR::ZRException& cause, int error)
    : ZR::ZRException(ZR::UniString(message), file, line, cause, error) {}

void KRCFileErrorEventSource::SendFileOperationFailed(FileError error,
                                                      const IO::Location& location) {
    ForEachObserver([&](ZR::EventObserver* observer) {
        static_cast<KRCFileErrorObserver*>(observer)->FileOperationFailed(error, location);
    });
}

}  // namespace KRC
