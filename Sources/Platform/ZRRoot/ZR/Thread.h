#pragma once
/// @file
/// Threads and locks. A sleep may be interruptible: another thread interrupts
/// it through the sleeper's ThreadHandle, and the sleep then throws
/// InterruptedException.

#include <condition_variable>
#include <memory>
#include <mutex>

#include "ZR/ZRRootExport.h"

namespace ZR {

class ZRROOT_EXPORT ThreadHandle {
public:
    /// Wakes an interruptible sleep of that thread, now or at its next one.
    void Interrupt();
    bool IsInterrupted() const;
    void ClearInterrupt();

    struct State {
        std::mutex mutex;
        std::condition_variable wake;
        bool interrupted = false;
    };
    explicit ThreadHandle(std::shared_ptr<State> state) : mState(std::move(state)) {}

private:
    std::shared_ptr<State> mState;
};

class ZRROOT_EXPORT Thread {
public:
    /// Sleeps ms milliseconds. If interruptible and the thread is (or gets)
    /// interrupted, clears the mark and throws InterruptedException.
    static void Sleep(int ms, bool interruptible = false);
    static ThreadHandle GetCurrent();
};

class ZRROOT_EXPORT Lock {
public:
    void Acquire() { mMutex.lock(); }
    void Release() { mMutex.unlock(); }
    void lock() { mMutex.lock(); }
    void unlock() { mMutex.unlock(); }

private:
    std::mutex mMutex;
};

class ZRROOT_EXPORT ReentrantLock {
public:
    void Acquire() { mMutex.lock(); }
    void Release() { mMutex.unlock(); }
    void lock() { mMutex.lock(); }
    void unlock() { mMutex.unlock(); }

private:
    std::recursive_mutex mMutex;
};

template <typename L>
class LockGuard {
public:
    explicit LockGuard(L& lock) : mLock(lock) { mLock.Acquire(); }
    ~LockGuard() { mLock.Release(); }
    LockGuard(const LockGuard&) = delete;
    LockGuard& operator=(const LockGuard&) = delete;

private:
    L& mLock;
};

/// The process-wide lock under which singletons are made.
ZRROOT_EXPORT Lock& SingletonLock();

}  // namespace ZR
