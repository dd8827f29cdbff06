#include "ZR/Thread.h"

#include <chrono>

#include "ZR/Exceptions.h"

namespace ZR {
namespace {
std::shared_ptr<ThreadHandle::State>& CurrentState() {
    thread_local std::shared_ptr<ThreadHandle::State> state =
        std::make_shared<ThreadHandle::State>();
    return state;
}
}  // namespace

void ThreadHandle::Interrupt() {
    {
        std::lock_guard<std::mutex> lock(mState->mutex);
        mState->interrupted = true;
    }
    mState->wake.notify_all();
}

bool ThreadHandle::IsInterrupted() const {
    std::lock_guard<std::mutex> lock(mState->mutex);
    return mState->interrupted;
}

void ThreadHandle::ClearInterrupt() {
    std::lock_guard<std::mutex> lock(mState->mutex);
    mState->interrupted = false;
}

ThreadHandle Thread::GetCurrent() {
    return ThreadHandle(CurrentState());
}

void Thread::Sleep(int ms, bool interruptible) {
    auto& state = *CurrentState();
    std::unique_lock<std::mutex> lock(state.mutex);
    auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(ms < 0 ? 0 : ms);
    if (!interruptible) {
        // Interrupts are kept for the next interruptible sleep.
        while (std::chrono::steady_clock::now() < until) state.wake.wait_until(lock, until);
        return;
    }
    state.wake.wait_until(lock, until, [&] { return state.interrupted; });
    if (state.interrupted) {
        state.interrupted = false;
        throw InterruptedException("Sleep interrupted.", ZR_HERE);
    }
}

Lock& SingletonLock() {
    static Lock lock;
    return lock;
}

}  // namespace ZR
