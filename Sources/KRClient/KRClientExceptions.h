#pragma once
/// @file
/// Exceptions of the library and the event by which a file failure reaches the
/// host without an exception.

#include "IO/Location.h"
#include "KRClient/KRClientExport.h"
#include "ZR/EventSource.h"
#include "ZR/Exceptions.h"

namespace KRC {

/// A caller's broken precondition or an internal failure, with a fixed text.
class KRCLIENT_EXPORT KRClientException : public virtual ZR::GeneralException {
public:
    KRClientException(const ZR::UniString& message, const char* file, unsigned int line,
                      int error = ZR::kGeneralErrorCode);
    KRClientException(const char* message, const char* file, unsigned int line,
                      int error = ZR::kGeneralErrorCode);
    KRClientException(const ZR::UniString& message, const char* file, unsigned int line,
                      const ZR::ZRException& cause, int error = ZR::kGeneralErrorCode);
    KRClientException(const char* message, const char* file, unsigned int line,
                      const ZR::ZRException& cause, int error = ZR::kGeneralErrorCode);
    KRClientException(const KRClientException&) = default;
    KRClientException(KRClientException&&) = default;

    ZR::UniString GetName() const override { return "KRClientException"; }
    ZR::ZRException* Clone() const override { return new KRClientException(*this); }
};

/// A failure on one of the library's small files. Prints under the base name.
class KRCLIENT_EXPORT FileException : public ZR::ZRException {
public:
    FileException() = default;
    explicit FileException(const IO::Location& location) : mLocation(location) {}

    const IO::Location& GetFileLocation() const { return mLocation; }
    ZR::UniString GetFileLocationString() const {
        return mLocation.IsEmpty() ? ZR::UniString() : mLocation.ToPath();
    }
    void SetFileLocation(const IO::Location& location) { mLocation = location; }

private:
    IO::Location mLocation;
};

class KRCLIENT_EXPORT FileOpeningError : public FileException {
public:
    using FileException::FileException;
};
class KRCLIENT_EXPORT ErrorReadingFile : public FileException {
public:
    using FileException::FileException;
};
class KRCLIENT_EXPORT ErrorWritingFile : public FileException {
public:
    using FileException::FileException;
};

enum FileError { FileOpeningFailed = 0, FileReadingFailed = 1, FileWritingFailed = 2 };

class KRCLIENT_EXPORT KRCFileErrorObserver : public ZR::EventObserver {
public:
    ~KRCFileErrorObserver() override = default;
    virtual void FileOperationFailed(FileError error, const IO::Location& location) = 0;
};

class KRCLIENT_EXPORT KRCFileErrorEventSource : public ZR::EventSource {
public:
    void Attach(KRCFileErrorObserver& observer) { ZR::EventSource::Attach(observer); }
    void Detach(KRCFileErrorObserver& observer) { ZR::EventSource::Detach(observer); }
    void SendFileOperationFailed(FileError error, const IO::Location& location);
};

extern KRCLIENT_EXPORT KRCFileErrorEventSource krcFileErrorEventSource;

/// Runs body; a file exception out of it becomes a failure event and is dropped.
/// Answers true if body ended normally.
template <typename F>
bool ReportFileFailures(F&& body) {
    try {
        body();
        return true;
    } catch (const FileOpeningError& e) {
        krcFileErrorEventSource.SendFileOperationFailed(FileOpeningFailed, e.GetFileLocation());
    } catch (const ErrorReadingFile& e) {
        krcFileErrorEventSource.SendFileOperationFailed(FileReadingFailed, e.GetFileLocation());
    } catch (const ErrorWritingFile& e) {
        krcFileErrorEventSource.SendFileOperationFailed(FileWritingFailed, e.GetFileLocation());
    }
    return false;
}

}  // namespace KRC
