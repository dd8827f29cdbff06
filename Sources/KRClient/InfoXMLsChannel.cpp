#include "KRClient/Internal/InfoXMLsChannel.h"

#include "IO/File.h"
#include "KRClient/KRClient.h"
#include "ZR/Exceptions.h"
#include "ZR/Logger.h"
#include "ZR/Thread.h"

namespace KRC {
namespace {

constexpr int kOpenTries = 10;
constexpr int kRetryWaitMs = 100;

// Whether the file can be opened for reading now: kOk, or the reason not.
int OpenForReading(const IO::Location& location) {
    IO::File file(location, IO::kNotFoundFail);
    if (file.GetStatus() != IO::kOk) return file.GetStatus();
    return file.Open(IO::kOpenRead);
}

void LogCreationFailed(const IO::Location& location) {
    static const ZR::ErrorLogLine creationFailed("InfoXMLsOChannel::Open file creation failed: %");
    ZR::FastLogger::LogComposer composer;
    ZR::logger.Append(creationFailed, composer);
    composer.Append(location.ToDisplayText());
}

}  // namespace

InfoXMLsIChannel::InfoXMLsIChannel(const IO::Location& location, const ZR::String& rootName)
    : location(location), rootName(rootName) {}

ZR::XMLIChannel* InfoXMLsIChannel::Open() {
    damaged = false;
    if (!FileExist(location)) return nullptr;
    try {
        for (int i = 0; i < kOpenTries; ++i) {
            int status = OpenForReading(location);
            if (status == IO::kOk) {
                channel = ZRXML::CreateXMLIChannel(location, rootName.GetBuffer(), 0);
                if (channel) return channel;
                // The file opened, so the parse failed on its content, unless
                // it went away in between: then it is simply missing.
                damaged = FileExist(location);
                return nullptr;
            }
            if (status == IO::kErrNotFound || status == IO::kErrIsAFolder) return nullptr;
            // The last failure waits too: an unopenable file costs about a second.
            ZR::Thread::Sleep(kRetryWaitMs, true);
        }
    } catch (const ZR::InterruptedException&) {
    }
    return nullptr;
}

void InfoXMLsIChannel::Close() {
    if (channel) {
        ZRXML::DisposeXMLIChannel(channel);
        channel = nullptr;
    }
}

InfoXMLsOChannel::InfoXMLsOChannel(const IO::Location& location, const ZR::String& rootName)
    : location(location), rootName(rootName) {}

ZR::XMLOChannel* InfoXMLsOChannel::Open() {
    // No empty file is made in advance: a process killed before the end of
    // the write would leave it, and every reader would then find it damaged.
    IO::Location folder = location.GetParent();
    if (folder.IsEmpty() || IO::Folder(folder, IO::kNotFoundFail).GetStatus() != IO::kOk) {
        LogCreationFailed(location);
        return nullptr;
    }
    try {
        for (int i = 0; i < kOpenTries; ++i) {
            channel = ZRXML::CreateXMLOChannel(location, rootName.GetBuffer(), 0);
            if (channel) return channel;
            ZR::Thread::Sleep(kRetryWaitMs, true);
        }
    } catch (const ZR::InterruptedException&) {
    }
    return nullptr;
}

void InfoXMLsOChannel::Close() {
    if (channel) {
        ZRXML::DisposeXMLOChannel(channel);
        channel = nullptr;
    }
}

}  // namespace KRC
