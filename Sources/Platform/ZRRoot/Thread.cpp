#include "ZR/Thread.h"

#include "ZR/Exceptions.h"

namespace ZR {

// The interrupt mark is a stop request on the thread's stop source; clearing
// it starts a fresh source, since a stop request can't be taken back.
struct ThreadHandle::State {
    mutable std::mutex mutex;
    std::stop_source source;
};

namespace {
const std::shared_ptr<ThreadHandle::State>& CurrentState() {
    thread_local const std::shared_ptr<ThreadHandle::State> state =
        std::make_shared<ThreadHandle::State>();
    return state;
}
}  // namespace

void ThreadHandle::Interrupt() {
    std::lock_guard<std::mutex> lock(mState->mutex);
    mState->source.request_stop();
}

bool ThreadHandle::IsInterrupted() const {
    std::lock_guard<std::mutex> lock(mState->mutex);
    return mState->source.stop_requested();
}

void ThreadHandle::ClearInterrupt() {
    std::lock_guard<std::mutex> lock(mState->mutex);
    if (mState->source.stop_requested()) mState->source = std::stop_source();
}

std::stop_token ThreadHandle::GetInterruptToken() const {
    std::lock_guard<std::mutex> lock(mState->mutex);
    return mState->source.get_token();
}

ThreadHandle Thread::GetCurrent() {
    return ThreadHandle(CurrentState());
}

void Thread::CheckInterrupted() {
    ThreadHandle self = GetCurrent();
    if (!self.IsInterrupted()) return;
    self.ClearInterrupt();
    throw InterruptedException("The thread was interrupted.", ZR_HERE);
}

void Thread::Sleep(int ms, bool interruptible) {
    std::mutex mutex;
    Condition never;
    std::unique_lock<std::mutex> lock(mutex);
    never.WaitFor(
        lock, ms < 0 ? 0 : ms, [] { return false; }, interruptible);
}

void Latch::CountDown(std::size_t n) {
    std::lock_guard<std::mutex> lock(mMutex);
    if (mCount == 0) return;
    mCount = n >= mCount ? 0 : mCount - n;
    // Under the lock: a waiter that wakes may destroy the latch at once.
    if (mCount == 0) mZero.NotifyAll();
}

void Latch::Wait(bool interruptible) {
    std::unique_lock<std::mutex> lock(mMutex);
    mZero.Wait(
        lock, [this] { return mCount == 0; }, interruptible);
}

bool Latch::WaitFor(int timeoutMs, bool interruptible) {
    std::unique_lock<std::mutex> lock(mMutex);
    return mZero.WaitFor(
        lock, timeoutMs, [this] { return mCount == 0; }, interruptible);
}

std::size_t Latch::GetCount() const {
    std::lock_guard<std::mutex> lock(mMutex);
    return mCount;
}

Lock& SingletonLock() {
    static Lock lock;
    return lock;
}

}  // namespace ZR
