#include "Support/FaultEnv.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>

namespace krtest {

const char* CallName(Call call) {
    static const char* const kNames[kCallKinds] = {"open",  "read",   "write",  "fsync",
                                                   "close", "rename", "unlink", "mkdir",
                                                   "rmdir", "chmod",  "lock",   "list"};
    return kNames[static_cast<std::size_t>(call)];
}

FaultEnv::FaultEnv() : mPrevious(IO::SetEnv(this)) {}

FaultEnv::~FaultEnv() {
    IO::SetEnv(mPrevious);
}

void FaultEnv::FailNth(Call call, int n, int error) {
    std::lock_guard<std::mutex> lock(mMutex);
    mFaults[static_cast<std::size_t>(call)] = {n, error};
}

void FaultEnv::ShortenNthWrite(int n) {
    std::lock_guard<std::mutex> lock(mMutex);
    mShortWriteCountdown = n;
}

void FaultEnv::Reset() {
    std::lock_guard<std::mutex> lock(mMutex);
    mCounts = {};
    mFaults = {};
    mShortWriteCountdown = 0;
    mStruck = 0;
}

int FaultEnv::Count(Call call) const {
    std::lock_guard<std::mutex> lock(mMutex);
    return mCounts[static_cast<std::size_t>(call)];
}

int FaultEnv::Struck() const {
    std::lock_guard<std::mutex> lock(mMutex);
    return mStruck;
}

bool FaultEnv::Strikes(Call call) {
    std::lock_guard<std::mutex> lock(mMutex);
    auto i = static_cast<std::size_t>(call);
    ++mCounts[i];
    Fault& fault = mFaults[i];
    if (fault.countdown == 0 || --fault.countdown != 0) return false;
    ++mStruck;
    errno = fault.error;
    return true;
}

bool FaultEnv::ShortensThisWrite() {
    std::lock_guard<std::mutex> lock(mMutex);
    if (mShortWriteCountdown == 0 || --mShortWriteCountdown != 0) return false;
    ++mStruck;
    return true;
}

int FaultEnv::Open(const char* path, int flags, mode_t mode) {
    return Strikes(Call::Open) ? -1 : Env::Open(path, flags, mode);
}

ssize_t FaultEnv::Read(int fd, void* buffer, std::size_t length) {
    return Strikes(Call::Read) ? -1 : Env::Read(fd, buffer, length);
}

ssize_t FaultEnv::Write(int fd, const void* data, std::size_t length) {
    if (Strikes(Call::Write)) return -1;
    if (length > 1 && ShortensThisWrite()) length /= 2;
    return Env::Write(fd, data, length);
}

ssize_t FaultEnv::PWrite(int fd, const void* data, std::size_t length, off_t offset) {
    if (Strikes(Call::Write)) return -1;
    if (length > 1 && ShortensThisWrite()) length /= 2;
    return Env::PWrite(fd, data, length, offset);
}

int FaultEnv::Fsync(int fd) {
    return Strikes(Call::Fsync) ? -1 : Env::Fsync(fd);
}

int FaultEnv::Close(int fd) {
    // A close always releases the descriptor, whatever it answers.
    int result = Env::Close(fd);
    return Strikes(Call::Close) ? -1 : result;
}

int FaultEnv::Rename(const char* from, const char* to) {
    return Strikes(Call::Rename) ? -1 : Env::Rename(from, to);
}

int FaultEnv::Unlink(const char* path) {
    return Strikes(Call::Unlink) ? -1 : Env::Unlink(path);
}

int FaultEnv::Mkdir(const char* path, mode_t mode) {
    return Strikes(Call::Mkdir) ? -1 : Env::Mkdir(path, mode);
}

int FaultEnv::Rmdir(const char* path) {
    return Strikes(Call::Rmdir) ? -1 : Env::Rmdir(path);
}

int FaultEnv::Chmod(const char* path, mode_t mode) {
    return Strikes(Call::Chmod) ? -1 : Env::Chmod(path, mode);
}

int FaultEnv::Fchmod(int fd, mode_t mode) {
    return Strikes(Call::Chmod) ? -1 : Env::Fchmod(fd, mode);
}

int FaultEnv::Lock(int fd, int command, struct flock* lock) {
    return Strikes(Call::Lock) ? -1 : Env::Lock(fd, command, lock);
}

int FaultEnv::ListFolder(const char* path, std::vector<IO::FolderEntry>* entries) {
    return Strikes(Call::List) ? -1 : Env::ListFolder(path, entries);
}

int RunFaultTable(FaultEnv& env, const FaultCase& operation, std::initializer_list<Call> calls) {
    operation.prepare();
    env.Reset();
    EXPECT_FALSE(operation.operate()) << "without faults";
    std::array<int, kCallKinds> counts{};
    for (Call call : calls) counts[static_cast<std::size_t>(call)] = env.Count(call);
    const int writes = env.Count(Call::Write);
    EXPECT_GE(env.Count(Call::Rename), 1);
    operation.verify(false);

    int reported = 0;
    for (Call call : calls) {
        for (int n = 1; n <= counts[static_cast<std::size_t>(call)]; ++n) {
            for (int error : {EACCES, ENOSPC, EIO, EROFS, EINTR}) {
                SCOPED_TRACE(std::string(CallName(call)) + " #" + std::to_string(n) + " fails, " +
                             std::strerror(error));
                operation.prepare();
                env.Reset();
                env.FailNth(call, n, error);
                bool failed = operation.operate();
                EXPECT_EQ(env.Struck(), 1);
                EXPECT_FALSE(failed && error == EINTR);
                operation.verify(failed);
                reported += failed;
            }
        }
    }
    for (int n = 1; n <= writes; ++n) {
        SCOPED_TRACE("write #" + std::to_string(n) + " is short");
        operation.prepare();
        env.Reset();
        env.ShortenNthWrite(n);
        EXPECT_FALSE(operation.operate());
        operation.verify(false);
    }
    return reported;
}

}  // namespace krtest
