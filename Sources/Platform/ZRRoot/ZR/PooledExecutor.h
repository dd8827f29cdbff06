#pragma once
/// @file
/// A pool of threads that runs tasks in the order they came.

#include <cstddef>
#include <memory>

#include "ZR/Runnable.h"
#include "ZR/UniString.h"
#include "ZR/ZRRootExport.h"

namespace ZR {

/// Runs tasks on up to maxThreads threads of its own, first come first run.
/// Threads start as work arrives; up to minThreads of them then stay, and
/// those above that end once they were idle keepAliveMs milliseconds.
///
/// Cancel stops the pool: no new work is taken, queued work is dropped, and
/// running work is interrupted through its thread's ThreadHandle (an
/// interruptible wait or sleep in it throws InterruptedException). A task
/// that throws ends quietly, with a line on the debug output.
///
/// A task may destroy the pool it runs on (the last reference to the owner
/// may go with the task): the destructor then does not wait for that thread.
class ZRROOT_EXPORT PooledExecutor : public Executor {
public:
    /// Throws IllegalArgumentException if maxThreads is 0 or below minThreads.
    /// The name, if any, names the threads (cut to what the system keeps).
    PooledExecutor(std::size_t minThreads, std::size_t maxThreads, int keepAliveMs,
                   const UniString& name);
    /// Cancels, then waits for every thread of the pool but the calling one.
    ~PooledExecutor() override;
    PooledExecutor(const PooledExecutor&) = delete;
    PooledExecutor& operator=(const PooledExecutor&) = delete;

    /// Queues the task; false once canceled (the task is destroyed unrun).
    bool Execute(RunnableTask task) override;
    /// See the class comment. Later calls do nothing.
    void Cancel();
    bool IsCanceled() const;
    /// Canceled, and no thread of the pool runs any more.
    bool IsShutdown() const;
    /// Waits up to timeoutMs (negative: without limit) for every thread of the
    /// pool but the calling one to end; true if they did. Threads end only
    /// after Cancel, or by their keep-alive. stillRunning, if given, gets the
    /// number of threads that had not ended.
    bool WaitTermination(int timeoutMs, bool interruptible = false,
                         std::size_t* stillRunning = nullptr);

    /// Threads that have started and not yet ended.
    std::size_t GetThreadCount() const;
    /// Tasks waiting for a thread.
    std::size_t GetQueuedCount() const;
    /// Waits up to timeoutMs until at most count threads are left; true if so.
    bool WaitThreadCount(std::size_t count, int timeoutMs);

    struct Core;

private:
    std::shared_ptr<Core> mCore;
};

}  // namespace ZR
