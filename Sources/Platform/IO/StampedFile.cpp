#include "IO/Internal/StampedFile.h"

#include <fcntl.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <system_error>

#include "IO/Errors.h"
#include "IO/Internal/Env.h"
#include "ZR/Time.h"

namespace IO {
namespace {

// Files asked for ahead of the reads: enough to keep a disc's queue busy.
constexpr std::size_t kReadAheadWindow = 128;
// A read of a few kilobytes from the page cache takes microseconds; one that
// takes this long waited for the disc.
constexpr auto kSlowRead = std::chrono::microseconds(200);
constexpr int kSlowReadsBeforeReadAhead = 2;

std::atomic<int> gPolicy{static_cast<int>(StampedReader::ReadAhead::kAdaptive)};

StampedReader::ReadAhead Policy() {
    return static_cast<StampedReader::ReadAhead>(gPolicy.load(std::memory_order_relaxed));
}

}  // namespace

FileStamp StampOf(const struct stat& st) {
    // FNV-1a over the fields that a replacement or a write changes.
    const std::uint64_t parts[] = {static_cast<std::uint64_t>(st.st_mtim.tv_sec),
                                   static_cast<std::uint64_t>(st.st_mtim.tv_nsec),
                                   static_cast<std::uint64_t>(st.st_ctim.tv_sec),
                                   static_cast<std::uint64_t>(st.st_ctim.tv_nsec),
                                   static_cast<std::uint64_t>(st.st_ino),
                                   static_cast<std::uint64_t>(st.st_size)};
    std::uint64_t h = 1469598103934665603ull;
    for (std::uint64_t p : parts)
        for (int i = 0; i < 8; ++i) {
            h ^= (p >> (8 * i)) & 0xFF;
            h *= 1099511628211ull;
        }
    FileStamp stamp;
    stamp.modificationTime = ZR::UnixToTI(st.st_mtim.tv_sec);
    stamp.changeStamp = h == 0 ? 1 : h;
    return stamp;
}

int StatStamp(const char* path, FileStamp* stamp) {
    struct stat st;
    if (Sys::Stat(path, &st) != 0) return errno == ENOENT ? kErrNotFound : StatusFromErrno(errno);
    if (S_ISDIR(st.st_mode)) return kErrIsAFolder;
    *stamp = StampOf(st);
    return kOk;
}

void StampedReader::SetReadAheadPolicy(ReadAhead policy) {
    gPolicy.store(static_cast<int>(policy), std::memory_order_relaxed);
}

StampedReader::StampedReader(std::vector<std::string> paths, std::size_t maxBytes)
    : mPaths(std::move(paths)), mMaxBytes(maxBytes) {
    if (Policy() == ReadAhead::kAlways) StartReadAhead(0);
}

StampedReader::~StampedReader() {
    if (!mHelper.joinable()) return;
    {
        std::lock_guard<std::mutex> guard(mLock);
        mStop = true;
    }
    mWake.notify_one();
    mHelper.join();
}

void StampedReader::StartReadAhead(std::size_t from) {
    mReadAhead = true;
    try {
        mHelper = std::thread([this, from] { ReadAheadFrom(from); });
    } catch (const std::system_error&) {
        // No thread to be had: the reads go on without read-ahead.
    }
}

void StampedReader::ReadAheadFrom(std::size_t from) {
    for (std::size_t i = from; i < mPaths.size(); ++i) {
        {
            std::unique_lock<std::mutex> guard(mLock);
            // Within the window ahead of the reads; the reads wake us as they go on.
            while (!mStop && i >= mPosition.load() + kReadAheadWindow) {
                mHelperWaits.store(true);
                if (i >= mPosition.load() + kReadAheadWindow) mWake.wait(guard);
                mHelperWaits.store(false);
            }
            if (mStop) return;
        }
        if (i <= mPosition.load()) continue;  // the reads got there first
        // Only a hint: a file that can't be opened now is simply read later.
        int fd = Sys::Open(mPaths[i].c_str(), O_RDONLY | O_CLOEXEC);
        if (fd < 0) continue;
        Sys::Advise(fd, 0, 0, POSIX_FADV_WILLNEED);
        Sys::Close(fd);
    }
}

int StampedReader::Read(std::size_t index, FileStamp* stamp) {
    mSize = 0;
    if (mHelper.joinable()) {
        mPosition.store(index);
        if (mHelperWaits.load()) {
            // Taking the lock orders this wake after the helper's test.
            { std::lock_guard<std::mutex> guard(mLock); }
            mWake.notify_one();
        }
    }
    int fd = Sys::Open(mPaths[index].c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return errno == ENOENT ? kErrNotFound : StatusFromErrno(errno);
    int status = ReadFd(fd, stamp);
    Sys::Close(fd);
    if (!mReadAhead && mSlowReads >= kSlowReadsBeforeReadAhead) StartReadAhead(index + 1);
    return status;
}

int StampedReader::ReadFd(int fd, FileStamp* stamp) {
    struct stat st;
    if (Sys::Fstat(fd, &st) != 0) return StatusFromErrno(errno);
    if (S_ISDIR(st.st_mode)) return kErrIsAFolder;
    const std::size_t expected = static_cast<std::size_t>(st.st_size);
    if (expected > mMaxBytes) return kErrTooLarge;
    // One byte more than the file holds: a read that fills it saw the file grow.
    if (mData.size() < expected + 2) mData.resize(expected + 2);
    const auto start = std::chrono::steady_clock::now();
    std::size_t got = 0;
    while (true) {
        // Bounded again while reading: the file may grow meanwhile.
        if (got == mData.size() - 1) {
            if (got > mMaxBytes) return kErrTooLarge;
            mData.resize(std::min(mData.size() * 2, mMaxBytes + 2));
        }
        ssize_t n = Sys::Read(fd, mData.data() + got, mData.size() - 1 - got);
        if (n < 0) return StatusFromErrno(errno);
        if (n == 0) break;
        got += static_cast<std::size_t>(n);
        // A regular file gives less than asked only at its end.
        if (got < mData.size() - 1) break;
    }
    if (got > mMaxBytes) return kErrTooLarge;
    // Under an Env of a test the calls stay as they are, whatever the timing.
    if (!mReadAhead && Policy() == ReadAhead::kAdaptive && &CurrentEnv() == &SystemEnv() &&
        std::chrono::steady_clock::now() - start > kSlowRead)
        ++mSlowReads;
    mData[got] = '\0';
    mSize = got;
    *stamp = StampOf(st);
    return kOk;
}

}  // namespace IO
