#pragma once
// Watches one command's writes: the record writes attempted and the file
// failures they met, so that a command never says "done" for a failed write.

#include <string>
#include <vector>

#include "KRClient/CachedProjectInfo.h"
#include "KRClient/KRClientExceptions.h"
#include "Krctl.h"

namespace krctl {

class WriteWatch : public KRC::CachedProjectInfoObserver, public KRC::KRCFileErrorObserver {
public:
    WriteWatch() {
        KRC::cachedProjectInfoObserver.Attach(*this);
        KRC::krcFileErrorEventSource.Attach(*this);
    }
    ~WriteWatch() override {
        KRC::cachedProjectInfoObserver.Detach(*this);
        KRC::krcFileErrorEventSource.Detach(*this);
    }
    void ContentWrittenToDisc(const KRC::CachedProjectInfo*) override { ++writes; }
    void FileOperationFailed(KRC::FileError error, const IO::Location& location) override {
        static const char* const kWhat[] = {"could not open", "could not read", "could not write"};
        failures.push_back(std::string(kWhat[error]) + " " + location.ToDisplayText().Std());
    }
    // A command met a failed write: it fails with all of them in one line.
    void ThrowIfFailed() const {
        if (failures.empty()) return;
        std::string text;
        for (const auto& f : failures) text += (text.empty() ? "" : "; ") + f;
        throw Failure(text);
    }
    int writes = 0;
    std::vector<std::string> failures;
};

}  // namespace krctl
