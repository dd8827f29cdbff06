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

// A call of the system that fails with -1 when its kind strikes.
#define KRTEST_FAULTY(kind, type, name, params, args)     \
    type name params override {                           \
        return Strikes(Call::kind) ? -1 : Env::name args; \
    }
    KRTEST_FAULTY(Open, int, Open, (const char* path, int flags, mode_t mode), (path, flags, mode))
    KRTEST_FAULTY(Read, ssize_t, Read, (int fd, void* buffer, std::size_t length),
                  (fd, buffer, length))
    KRTEST_FAULTY(Write, ssize_t, Write, (int fd, const void* data, std::size_t length),
                  (fd, data, Shortened(length)))
    KRTEST_FAULTY(Write, ssize_t, PWrite,
                  (int fd, const void* data, std::size_t length, off_t offset),
                  (fd, data, Shortened(length), offset))
    KRTEST_FAULTY(Fsync, int, Fsync, (int fd), (fd))
    KRTEST_FAULTY(Rename, int, Rename, (const char* from, const char* to), (from, to))
    KRTEST_FAULTY(Unlink, int, Unlink, (const char* path), (path))
    KRTEST_FAULTY(Mkdir, int, Mkdir, (const char* path, mode_t mode), (path, mode))
    KRTEST_FAULTY(Rmdir, int, Rmdir, (const char* path), (path))
    KRTEST_FAULTY(Chmod, int, Chmod, (const char* path, mode_t mode), (path, mode))
    KRTEST_FAULTY(Chmod, int, Fchmod, (int fd, mode_t mode), (fd, mode))
    KRTEST_FAULTY(Lock, int, Lock, (int fd, int command, struct flock* lock), (fd, command, lock))
    KRTEST_FAULTY(List, int, ListFolder, (const char* path, std::vector<IO::FolderEntry>* entries),
                  (path, entries))
#undef KRTEST_FAULTY
    int Close(int fd) override {
        // A close always releases the descriptor, whatever it answers.
        int result = Env::Close(fd);
        return Strikes(Call::Close) ? -1 : result;
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
