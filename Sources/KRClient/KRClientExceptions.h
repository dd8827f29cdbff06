#pragma once
// Exceptions of the library and the event by which a file failure reaches the
// host without an exception.

#include "IO/Location.h"
#include "ZR/EventSource.h"
#include "ZR/Exceptions.h"

namespace KRC {

// A caller's broken precondition or an internal failure, with a fixed text.
class KRClientException : public virtual ZR::GeneralException {
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

// A failure on one of the library's small files. Prints under the base name.
class FileException : public ZR::ZRException {
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

class FileOpeningError : public FileException {
public:
    using FileException::FileException;
};
class ErrorReadingFile : public FileException {
public:
    using FileException::FileException;
};
class ErrorWritingFile : public FileException {
public:
    using FileException::FileException;
};

enum FileError { FileOpeningFailed = 0, FileReadingFailed = 1, FileWritingFailed = 2 };

class KRCFileErrorObserver : public ZR::EventObserver {
public:
    ~KRCFileErrorObserver() override = default;
    virtual void FileOperationFailed(FileError error, const IO::Location& location) = 0;
};

class KRCFileErrorEventSource : public ZR::EventSource {
public:
    void Attach(KRCFileErrorObserver& observer) { ZR::EventSource::Attach(observer); }
    void Detach(KRCFileErrorObserver& observer) { ZR::EventSource::Detach(observer); }
    void SendFileOperationFailed(FileError error, const IO::Location& location);
};

extern KRCFileErrorEventSource krcFileErrorEventSource;

// Runs body; a file exception out of it becomes a failure event and is dropped.
// Answers true if body ended normally.
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
