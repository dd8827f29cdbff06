#pragma once
// What the registry benchmarks share: data folders made once per size, the
// counting of heap use and of calls through the file layer's seam, dropping
// files from the page cache, and side-by-side timing for ratios.

#include <benchmark/benchmark.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "IO/Internal/Env.h"
#include "IO/Location.h"

namespace bench {

// One data folder: "Projects" holds count cache folders, each with a
// "CacheInfo.xml" of the real form (written once by the library, then copied
// with other keys).
struct Corpus {
    std::string root;                     // the data folder given to Init
    std::string projects;                 // its main project cache folder
    std::vector<std::string> files;       // every "CacheInfo.xml", in folder order
    std::vector<IO::Location> locations;  // project location of every record
    std::vector<std::string> paths;       // project path of every record, as stored
    std::vector<std::string> users;       // login name of every record, as stored
    std::string server;
};

const Corpus& GetCorpus(int count);

// The registry started afresh over the corpus.
void InitRegistry(const Corpus& corpus);

// Heap use of the whole process, counted at malloc and free.
struct HeapCount {
    std::int64_t allocations = 0;
    std::int64_t liveBytes = 0;  // as the allocator hands them out (usable size)
    std::int64_t peakBytes = 0;  // the most live at once since the last ResetHeapPeak
};
HeapCount GetHeapCount();
// Starts a new peak from what is live now.
void ResetHeapPeak();

// Counts every call that goes through the file layer's seam while it lives.
class CountingEnv : public IO::Env {
public:
    CountingEnv();
    ~CountingEnv() override;
    std::int64_t calls = 0;
    int Open(const char* path, int flags, mode_t mode) override;
    ssize_t Read(int fd, void* buffer, std::size_t length) override;
    int Close(int fd) override;
    int Stat(const char* path, struct stat* st) override;
    int Lstat(const char* path, struct stat* st) override;
    int Fstat(int fd, struct stat* st) override;
    int Lock(int fd, int command, struct flock* lock) override;
    int Advise(int fd, off_t offset, off_t length, int advice) override;
    int ListFolder(const char* path, std::vector<IO::FolderEntry>* entries) override;
    ssize_t Write(int fd, const void* data, std::size_t length) override;
    int Rename(const char* from, const char* to) override;
    int Unlink(const char* path) override;
    int Mkdir(const char* path, mode_t mode) override;
    int Chmod(const char* path, mode_t mode) override;
    int Fchmod(int fd, mode_t mode) override;
    int Fsync(int fd) override;

private:
    IO::Env* previous;
};

// Takes the files' pages out of the page cache (directories and inodes stay).
void DropFromPageCache(const std::vector<std::string>& files);

using Clock = std::chrono::steady_clock;

// Seconds per call of work, the best of rounds runs of reps calls each: the
// least disturbed figure of a machine that does other things too.
template <typename F>
double BestSecondsPerCall(F&& work, std::int64_t reps, int rounds = 3) {
    double best = 1e300;
    for (int r = 0; r < rounds; ++r) {
        auto start = Clock::now();
        for (std::int64_t i = 0; i < reps; ++i) work(i);
        double s =
            std::chrono::duration<double>(Clock::now() - start).count() / static_cast<double>(reps);
        if (s < best) best = s;
    }
    return best;
}

// Sets the counters of a side-by-side comparison: the subject and its
// baseline timed alternately outside the timed loop, best of rounds each.
template <typename S, typename B>
void ReportRatio(benchmark::State& state, const char* name, S&& subject, B&& baseline,
                 std::int64_t reps, int rounds = 3) {
    double s = 1e300, b = 1e300;
    for (int r = 0; r < rounds; ++r) {
        s = std::min(s, BestSecondsPerCall(subject, reps, 1));
        b = std::min(b, BestSecondsPerCall(baseline, reps, 1));
    }
    state.counters[std::string(name) + "_us"] = b * 1e6;
    state.counters["subject_us"] = s * 1e6;
    state.counters[std::string("ratio_") + name] = s / b;
}

}  // namespace bench
