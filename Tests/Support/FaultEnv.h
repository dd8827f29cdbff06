#pragma once
// A fault-injecting double of the file layer's Env: passes every call to the
// operating system, counts calls by kind, and makes chosen ones fail (or a
// write short) the way the system would.

#include <array>
#include <cstddef>
#include <functional>
#include <initializer_list>
#include <mutex>
#include <string>
#include <vector>

#include "IO/Internal/Env.h"

namespace krtest {

enum class Call {
    Open,
    Read,
    Write,
    Fsync,
    Close,
    Rename,
    Unlink,
    Mkdir,
    Rmdir,
    Chmod,
    Lock,
    List
};
inline constexpr std::size_t kCallKinds = 12;
const char* CallName(Call call);

// Current for as long as it lives; not meant to be nested.
class FaultEnv : public IO::Env {
public:
    FaultEnv();
    ~FaultEnv() override;

    // The nth call of the kind from now on (1 = the next) is not made and
    // fails with error. One pending fault per kind.
    void FailNth(Call call, int n, int error);
    // The nth write from now on writes only half of what it is given (at least one byte).
    void ShortenNthWrite(int n);
    // Counts and pending faults back to zero.
    void Reset();
    int Count(Call call) const;
    // How many of the faults asked for have struck.
    int Struck() const;

    int Open(const char* path, int flags, mode_t mode) override {
        return Strikes(Call::Open) ? -1 : Env::Open(path, flags, mode);
    }
    ssize_t Read(int fd, void* buffer, std::size_t length) override {
        return Strikes(Call::Read) ? -1 : Env::Read(fd, buffer, length);
    }
    ssize_t Write(int fd, const void* data, std::size_t length) override {
        if (Strikes(Call::Write)) return -1;
        return Env::Write(fd, data, Shortened(length));
    }
    ssize_t PWrite(int fd, const void* data, std::size_t length, off_t offset) override {
        if (Strikes(Call::Write)) return -1;
        return Env::PWrite(fd, data, Shortened(length), offset);
    }
    int Fsync(int fd) override { return Strikes(Call::Fsync) ? -1 : Env::Fsync(fd); }
    int Close(int fd) override {
        // A close always releases the descriptor, whatever it answers.
        int result = Env::Close(fd);
        return Strikes(Call::Close) ? -1 : result;
    }
    int Rename(const char* from, const char* to) override {
        return Strikes(Call::Rename) ? -1 : Env::Rename(from, to);
    }
    int Unlink(const char* path) override { return Strikes(Call::Unlink) ? -1 : Env::Unlink(path); }
    int Mkdir(const char* path, mode_t mode) override {
        return Strikes(Call::Mkdir) ? -1 : Env::Mkdir(path, mode);
    }
    int Rmdir(const char* path) override { return Strikes(Call::Rmdir) ? -1 : Env::Rmdir(path); }
    int Chmod(const char* path, mode_t mode) override {
        return Strikes(Call::Chmod) ? -1 : Env::Chmod(path, mode);
    }
    int Fchmod(int fd, mode_t mode) override {
        return Strikes(Call::Chmod) ? -1 : Env::Fchmod(fd, mode);
    }
    int Lock(int fd, int command, struct flock* lock) override {
        return Strikes(Call::Lock) ? -1 : Env::Lock(fd, command, lock);
    }
    int ListFolder(const char* path, std::vector<IO::FolderEntry>* entries) override {
        return Strikes(Call::List) ? -1 : Env::ListFolder(path, entries);
    }

private:
    struct Fault {
        int countdown = 0;  // 0: none pending
        int error = 0;
    };
    // Counts the call; true (and errno set) if it is to fail.
    bool Strikes(Call call);
    // Half the length if this write is to be short.
    std::size_t Shortened(std::size_t length);

    mutable std::mutex mMutex;
    std::array<int, kCallKinds> mCounts{};
    std::array<Fault, kCallKinds> mFaults{};
    int mShortWriteCountdown = 0;
    int mStruck = 0;
    IO::Env* mPrevious = nullptr;
};

// One operation on a stored file: prepare puts the old file and the state
// back, operate runs the operation and answers whether it reported a failure,
// verify checks file and memory after it.
struct FaultCase {
    std::function<void()> prepare;
    std::function<bool()> operate;
    std::function<void(bool reported)> verify;
};

// Fails, one run each, every call of the kinds given that the operation makes,
// with each of EACCES, ENOSPC, EIO, EROFS and EINTR (an interrupted call is
// made again, never a failure); then makes each of its writes short, which is
// no failure either. Answers how many runs reported a failure.
int RunFaultTable(FaultEnv& env, const FaultCase& operation, std::initializer_list<Call> calls);

}  // namespace krtest
