#pragma once
/// @file
/// The process-wide message loop: a queue of tasks that the host drains on a
/// thread of its own (its main thread, as a rule). Notifiers of the library
/// are posted here from worker threads and run on that thread.
///
/// The host attaches the loop from the thread that will drain it, and then
/// either blocks in WaitAndRunOne or RunUntil, or, if it has an event loop of
/// its own, gives Attach a wake-up function that asks that event loop to call
/// RunPending soon. While no thread is attached, tasks given to the loop are
/// dropped, and Detach drops what is still queued: nothing runs on a thread
/// that did not ask for it, and nothing waits for a loop that may never come.

#include <cstddef>
#include <functional>

#include "ZR/Runnable.h"
#include "ZR/ZRRootExport.h"

namespace ZR {

/// The message loop. All operations are static; there is one per process.
///
/// Tasks run by priority, higher first (0 is normal, below 0 runs after),
/// and in the order they were posted within a priority. An exception out of
/// a task leaves the pump operation that ran it; what is still queued stays.
/// Pump operations may be nested (a task may pump the loop).
class ZRROOT_EXPORT MessageLoop {
public:
    static constexpr int kNormalPriority = 0;

    /// Makes the calling thread the loop's thread. wakeUp, if given, is called
    /// on the posting thread after each post, outside any lock of the loop; it
    /// must not detach. Throws IllegalArgumentException if another thread is
    /// attached. From the attached thread it nests: each Attach wants its
    /// Detach, and a wakeUp given replaces the one before.
    static void Attach(std::function<void()> wakeUp = {});
    /// Ends an attachment, from the loop's thread (elsewhere it throws
    /// IllegalArgumentException). The last one drops the queued tasks on this
    /// thread, and waits for wake-up calls under way.
    static void Detach();
    /// True while a thread is attached: a task posted now will run.
    static bool IsAttached();
    /// True on the attached thread.
    static bool IsLoopThread();

    /// Queues the task; false, with the task destroyed unrun, if no loop is
    /// attached.
    static bool Post(RunnableTask task, int priority = kNormalPriority);
    /// Makes a waiting pump look at its condition again, without a task.
    static void Wake();

    /// Runs the tasks queued before the call, in order; tasks they post wait
    /// for the next pump. Answers how many ran. The pump operations throw
    /// IllegalArgumentException off the loop's thread.
    static std::size_t RunPending();
    /// Runs tasks as they come until condition holds or timeoutMs passed
    /// (negative: without limit). The condition is looked at before each wait
    /// and after each task or Wake. Answers the condition.
    static bool RunUntil(const std::function<bool()>& condition, int timeoutMs);
    /// Waits up to timeoutMs (negative: without limit) for a task and runs it;
    /// true if one ran.
    static bool WaitAndRunOne(int timeoutMs);
    /// Tasks waiting to run.
    static std::size_t GetPendingCount();

    /// Attaches the calling thread for its lifetime (tests, tools, the demo).
    class ZRROOT_EXPORT Scope {
    public:
        explicit Scope(std::function<void()> wakeUp = {}) { Attach(std::move(wakeUp)); }
        ~Scope() { Detach(); }
        Scope(const Scope&) = delete;
        Scope& operator=(const Scope&) = delete;
    };
};

/// The executor of the message loop: Execute returns at once, and the task
/// runs later on the loop's thread.
class ZRROOT_EXPORT MessageLoopExecutor : public Executor {
public:
    /// At priority 0.
    bool Execute(RunnableTask task) override;
    /// False, with the task destroyed unrun, if no loop is attached.
    bool Execute(RunnableTask task, int priority);
    /// True while a loop is attached.
    bool CanExecuteTask() const;
};

}  // namespace ZR
