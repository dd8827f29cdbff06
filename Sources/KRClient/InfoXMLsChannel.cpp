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

template <typename Create>
auto OpenWithRetries(Create&& create) -> decltype(create()) {
    try {
        for (int i = 0; i < kOpenTries; ++i) {
            if (auto* channel = create()) return channel;
            // The last failure waits too: an unreadable file costs about a second.
            ZR::Thread::Sleep(kRetryWaitMs, true);
        }
    } catch (const ZR::InterruptedException&) {
    }
    return nullptr;
}

}  // namespace

InfoXMLsIChannel::InfoXMLsIChannel(const IO::Location& location, const ZR::String& rootName)
    : location(location), rootName(rootName) {}

ZR::XMLIChannel* InfoXMLsIChannel::Open() {
    if (!FileExist(location)) return nullptr;
    channel = OpenWithRetries(
        [&] { return ZRXML::CreateXMLIChannel(location, rootName.GetBuffer(), 0); });
    return channel;
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
    if (!FileExist(location)) {
        { IO::File create(location, IO::kNotFoundCreate); }
        if (!FileExist(location)) {
            static const ZR::ErrorLogLine creationFailed(
                "InfoXMLsOChannel::Open file creation failed: %");
            ZR::FastLogger::LogComposer composer;
            ZR::logger.Append(creationFailed, composer);
            composer.Append(location.ToDisplayText());
            return nullptr;
        }
    }
    channel = OpenWithRetries(
        [&] { return ZRXML::CreateXMLOChannel(location, rootName.GetBuffer(), 0); });
    return channel;
}

void InfoXMLsOChannel::Close() {
    if (channel) {
        ZRXML::DisposeXMLOChannel(channel);
        channel = nullptr;
    }
}

}  // namespace KRC
