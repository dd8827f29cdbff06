#pragma once
/// @file
/// Threads, locks and interruption. A wait or sleep may be interruptible:
/// another thread interrupts it through the waiter's ThreadHandle, and the wait
/// then clears the mark and throws InterruptedException. An interrupt that
/// comes while the thread is not in an interruptible wait is kept for its next.

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <memory>
#include <mutex>
#include <stop_token>

#include "ZR/ZRRootExport.h"

namespace ZR {

/// A handle on one thread, for interrupting it. Copies refer to the same thread.
class ZRROOT_EXPORT ThreadHandle {
public:
    struct State;
    explicit ThreadHandle(std::shared_ptr<State> state) : mState(std::move(state)) {}

    /// Marks the thread interrupted and wakes an interruptible wait of it, now
    /// or at its next one.
    void Interrupt();
    bool IsInterrupted() const;
    /// Clears the mark. Meant for the thread itself, between two pieces of
    /// work; a wait already under way on another thread keeps what it saw.
    void ClearInterrupt();
    /// A token that is stop-requested once the thread is interrupted (until the
    /// mark is cleared), for waits of the standard library that take one.
    std::stop_token GetInterruptToken() const;
    /// True if both refer to the same thread.
    bool operator==(const ThreadHandle& other) const { return mState == other.mState; }

private:
    std::shared_ptr<State> mState;
};

class ZRROOT_EXPORT Thread {
public:
    /// Sleeps ms milliseconds. If interruptible and the thread is (or gets)
    /// interrupted, clears the mark and throws InterruptedException.
    static void Sleep(int ms, bool interruptible = false);
    /// The calling thread.
    static ThreadHandle GetCurrent();
    /// Throws InterruptedException, clearing the mark, if the calling thread
    /// is interrupted; for long work between waits.
    static void CheckInterrupted();
};

/// A condition variable whose waits can be interruptible. Waits take the
/// predicate, so spurious wake-ups never reach the caller.
class ZRROOT_EXPORT Condition {
public:
    using Clock = std::chrono::steady_clock;

    void NotifyOne() noexcept { mCv.notify_one(); }
    void NotifyAll() noexcept { mCv.notify_all(); }

    /// Waits until pred holds.
    template <typename Lock, typename Pred>
    void Wait(Lock& lock, Pred pred, bool interruptible = false) {
        WaitUntil(lock, Clock::time_point::max(), std::move(pred), interruptible);
    }
    /// Waits until pred holds or timeoutMs passed (a negative time waits
    /// without limit); answers pred.
    template <typename Lock, typename Pred>
    bool WaitFor(Lock& lock, int timeoutMs, Pred pred, bool interruptible = false) {
        return WaitUntil(lock, Deadline(timeoutMs), std::move(pred), interruptible);
    }
    template <typename Lock, typename Pred>
    bool WaitUntil(Lock& lock, Clock::time_point deadline, Pred pred, bool interruptible = false) {
        if (!interruptible) {
            if (deadline == Clock::time_point::max()) {
                mCv.wait(lock, pred);
                return true;
            }
            return mCv.wait_until(lock, deadline, pred);
        }
        std::stop_token token = Thread::GetCurrent().GetInterruptToken();
        if (deadline == Clock::time_point::max() ? mCv.wait(lock, token, pred)
                                                 : mCv.wait_until(lock, token, deadline, pred))
            return true;
        if (token.stop_requested()) Thread::CheckInterrupted();
        return false;
    }

    /// The time point timeoutMs from now; max for a negative time.
    static Clock::time_point Deadline(int timeoutMs) {
        return timeoutMs < 0 ? Clock::time_point::max()
                             : Clock::now() + std::chrono::milliseconds(timeoutMs);
    }

private:
    std::condition_variable_any mCv;
};

/// Counts down to zero once; waiters go on when it gets there.
class ZRROOT_EXPORT Latch {
public:
    explicit Latch(std::size_t count) : mCount(count) {}
    Latch(const Latch&) = delete;
    Latch& operator=(const Latch&) = delete;

    /// Subtracts n, stopping at zero.
    void CountDown(std::size_t n = 1);
    /// Waits until the count is zero.
    void Wait(bool interruptible = false);
    /// Waits up to timeoutMs; true if the count got to zero.
    bool WaitFor(int timeoutMs, bool interruptible = false);
    std::size_t GetCount() const;

private:
    mutable std::mutex mMutex;
    Condition mZero;
    std::size_t mCount;
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
