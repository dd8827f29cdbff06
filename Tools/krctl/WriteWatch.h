#pragma once
// Watches one command: the record writes attempted and the file failures the
// library reported, so that a command never says "done" for a failed write
// and never shows values that were not read.

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
        std::string file = location.ToDisplayText().Std();
        for (FailedFile& f : failures) {
            if (f.file != file) continue;
            // One mention per file; that it could not be read says the most.
            if (error == KRC::FileReadingFailed) f.error = error;
            return;
        }
        failures.push_back({error, file});
    }
    // The command met failed files: it fails with all of them in one line.
    void ThrowIfFailed() const {
        if (failures.empty()) return;
        std::string text;
        for (const FailedFile& f : failures) {
            if (!text.empty()) text += "; ";
            switch (f.error) {
                case KRC::FileOpeningFailed:
                    text += "could not open " + f.file;
                    break;
                case KRC::FileReadingFailed:
                    text += "cannot read " + f.file +
                            ": the file is damaged; it was left as it is (repair or remove it)";
                    break;
                case KRC::FileWritingFailed:
                    text += "could not write " + f.file;
                    break;
            }
        }
        throw Failure(text);
    }

    struct FailedFile {
        KRC::FileError error;
        std::string file;  // display text: a local path, never a token
    };
    int writes = 0;
    std::vector<FailedFile> failures;
};

}  // namespace krctl
