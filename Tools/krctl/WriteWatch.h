#pragma once
// Watches one command: the record writes attempted and the file failures the
// library reported, so that a command never says "done" for a failed write
// and never shows values that were not read.

#include <cstdio>
#include <string>
#include <vector>

#include "KRClient/CachedProjectInfo.h"
#include "KRClient/KRClientExceptions.h"

namespace krctl {

class WriteWatch : public KRC::CachedProjectInfoObserver, public KRC::KRCFileErrorObserver {
public:
    struct Failure {
        KRC::FileError error;
        std::string file;  // display text: a local path, never a token
    };

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
        for (Failure& f : failures) {
            if (f.file != file) continue;
            // One line per file; that it could not be read says the most.
            if (error == KRC::FileReadingFailed) f.error = error;
            return;
        }
        failures.push_back({error, file});
    }
    int writes = 0;
    std::vector<Failure> failures;
};

// Prints one line per failed file on standard error; true if there was none.
inline bool ReportFailures(const WriteWatch& watch) {
    for (const auto& f : watch.failures) {
        switch (f.error) {
            case KRC::FileOpeningFailed:
                std::fprintf(stderr, "krctl: could not open %s\n", f.file.c_str());
                break;
            case KRC::FileReadingFailed:
                std::fprintf(stderr,
                             "krctl: cannot read %s: the file is damaged; it was left as it is "
                             "(repair or remove it)\n",
                             f.file.c_str());
                break;
            case KRC::FileWritingFailed:
                std::fprintf(stderr, "krctl: could not write %s\n", f.file.c_str());
                break;
        }
    }
    return watch.failures.empty();
}

}  // namespace krctl
