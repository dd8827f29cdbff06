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

std::size_t FaultEnv::Shortened(std::size_t length) {
    std::lock_guard<std::mutex> lock(mMutex);
    if (length < 2 || mShortWriteCountdown == 0 || --mShortWriteCountdown != 0) return length;
    ++mStruck;
    return length / 2;
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
