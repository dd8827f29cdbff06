#pragma once
// Small stored files read whole, each with the stamp of exactly what was read:
// the stamp comes from the open file, so content and stamp always belong to
// one version of the file, even while writers replace it.

#include <sys/stat.h>

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace IO {

struct FileStamp {
    std::int32_t modificationTime = 0;  ///< on the TIGetTime scale
    std::uint64_t changeStamp = 0;      ///< as File::GetChangeStamp answers
};

FileStamp StampOf(const struct stat& st);

// One stat, following links: kOk for a file, kErrIsAFolder, kErrNotFound, ...
int StatStamp(const char* path, FileStamp* stamp);

// Reads a list of files in order, one open, fstat, read and close each, into
// one buffer that serves every file. Once reads are seen waiting for the disc,
// a helper thread runs a window ahead of the reads and tells the kernel which
// files will be read next, so that their pages come in, with the work of
// asking for them on another core, while earlier ones are parsed. While
// everything is in the page cache nothing of that is done.
class StampedReader {
public:
    StampedReader(std::vector<std::string> paths, std::size_t maxBytes);
    ~StampedReader();
    StampedReader(const StampedReader&) = delete;
    StampedReader& operator=(const StampedReader&) = delete;

    std::size_t GetCount() const { return mPaths.size(); }
    const std::string& GetPath(std::size_t index) const { return mPaths[index]; }

    // Reads file index; files are read in ascending order, each at most once.
    // kErrNotFound if missing, kErrIsAFolder, kErrTooLarge beyond maxBytes.
    // On kOk the bytes stay in GetData() until the next Read, and may be
    // changed in place by the caller.
    int Read(std::size_t index, FileStamp* stamp);
    char* GetData() { return mData.data(); }
    std::size_t GetSize() const { return mSize; }

    // For benchmarks and tests, process-wide: read-ahead as the reads show
    // (the default; never while an Env other than the system's is current,
    // so that a test's count of calls doesn't depend on timing), never, or always.
    enum class ReadAhead { kAdaptive, kNever, kAlways };
    static void SetReadAheadPolicy(ReadAhead policy);

private:
    void StartReadAhead(std::size_t from);
    void ReadAheadFrom(std::size_t from);
    int ReadFd(int fd, FileStamp* stamp);

    std::vector<std::string> mPaths;
    std::size_t mMaxBytes;
    std::vector<char> mData;
    std::size_t mSize = 0;
    bool mReadAhead = false;
    int mSlowReads = 0;
    // The helper, and what it shares with the reads.
    std::thread mHelper;
    std::mutex mLock;
    std::condition_variable mWake;
    bool mStop = false;                     ///< under mLock
    std::atomic<std::size_t> mPosition{0};  ///< the file being read
    std::atomic<bool> mHelperWaits{false};
};

}  // namespace IO
