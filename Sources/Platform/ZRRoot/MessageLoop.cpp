#include "ZR/MessageLoop.h"

#include <cstdint>
#include <deque>
#include <limits>
#include <map>
#include <memory>
#include <mutex>
#include <thread>

#include "ZR/Exceptions.h"
#include "ZR/Thread.h"

namespace ZR {

namespace {

struct Item {
    std::uint64_t seq;
    RunnableTask task;
};

using Queue = std::map<int, std::deque<Item>, std::greater<int>>;

struct Loop {
    std::mutex mutex;
    Condition changed;  // a task came, a Wake, a detach, or wake-up calls ended
    Queue queue;        // buckets are never empty
    std::size_t pending = 0;
    std::uint64_t nextSeq = 0;
    std::uint64_t wakes = 0;
    int depth = 0;  // nested attachments of the loop's thread
    std::thread::id thread;
    std::shared_ptr<const std::function<void()>> wakeUp;
    int wakeCalls = 0;

    bool IsLoopThread() const { return depth > 0 && thread == std::this_thread::get_id(); }

    // The first task by priority and order that was posted before limit.
    bool Pop(std::uint64_t limit, RunnableTask& task) {
        for (auto it = queue.begin(); it != queue.end(); ++it) {
            if (it->second.front().seq >= limit) continue;
            task = std::move(it->second.front().task);
            it->second.pop_front();
            if (it->second.empty()) queue.erase(it);
            --pending;
            return true;
        }
        return false;
    }
};

Loop& GetLoop() {
    // Never destroyed: worker threads may still post while statics go away.
    static Loop* loop = new Loop;
    return *loop;
}

constexpr std::uint64_t kNoLimit = std::numeric_limits<std::uint64_t>::max();

void RequireLoopThread(const Loop& loop) {
    if (!loop.IsLoopThread())
        throw IllegalArgumentException(
            "Failed to run the message loop: the calling thread is not attached to it.", ZR_HERE);
}

enum class Waited { Task, Woken, Over };

// Waits until a task can be taken, a Wake comes, the loop is detached or the
// deadline passes.
Waited TakeOne(Condition::Clock::time_point deadline, RunnableTask& task) {
    Loop& loop = GetLoop();
    std::unique_lock<std::mutex> lock(loop.mutex);
    RequireLoopThread(loop);
    const std::uint64_t wakes = loop.wakes;
    loop.changed.WaitUntil(lock, deadline, [&] {
        return loop.pending > 0 || loop.wakes != wakes || !loop.IsLoopThread();
    });
    if (!loop.IsLoopThread()) return Waited::Over;
    if (loop.Pop(kNoLimit, task)) return Waited::Task;
    return loop.wakes != wakes ? Waited::Woken : Waited::Over;
}

}  // namespace

void MessageLoop::Attach(std::function<void()> wakeUp) {
    Loop& loop = GetLoop();
    std::lock_guard<std::mutex> lock(loop.mutex);
    if (loop.depth > 0 && loop.thread != std::this_thread::get_id())
        throw IllegalArgumentException(
            "Failed to attach the message loop: another thread is attached to it.", ZR_HERE);
    ++loop.depth;
    loop.thread = std::this_thread::get_id();
    if (wakeUp) loop.wakeUp = std::make_shared<const std::function<void()>>(std::move(wakeUp));
}

void MessageLoop::Detach() {
    Loop& loop = GetLoop();
    Queue dropped;
    {
        std::unique_lock<std::mutex> lock(loop.mutex);
        if (!loop.IsLoopThread())
            throw IllegalArgumentException(
                "Failed to detach the message loop: the calling thread is not attached to it.",
                ZR_HERE);
        if (--loop.depth > 0) return;
        loop.thread = std::thread::id();
        loop.wakeUp.reset();
        dropped.swap(loop.queue);
        loop.pending = 0;
        loop.changed.NotifyAll();
        loop.changed.Wait(lock, [&] { return loop.wakeCalls == 0; });
    }
    // The dropped tasks go here, outside the lock: their destructors may post.
}

bool MessageLoop::IsAttached() {
    Loop& loop = GetLoop();
    std::lock_guard<std::mutex> lock(loop.mutex);
    return loop.depth > 0;
}

bool MessageLoop::IsLoopThread() {
    Loop& loop = GetLoop();
    std::lock_guard<std::mutex> lock(loop.mutex);
    return loop.IsLoopThread();
}

bool MessageLoop::Post(RunnableTask task, int priority) {
    if (task.IsEmpty()) return false;
    Loop& loop = GetLoop();
    std::shared_ptr<const std::function<void()>> wakeUp;
    {
        std::lock_guard<std::mutex> lock(loop.mutex);
        if (loop.depth == 0) return false;  // the task goes on return, outside the lock
        loop.queue[priority].push_back({loop.nextSeq++, std::move(task)});
        ++loop.pending;
        loop.changed.NotifyAll();
        wakeUp = loop.wakeUp;
        if (wakeUp) ++loop.wakeCalls;
    }
    if (wakeUp) {
        try {
            (*wakeUp)();
        } catch (...) {
            // The task is queued; a host whose wake-up failed still finds it at its next pump.
        }
        std::lock_guard<std::mutex> lock(loop.mutex);
        if (--loop.wakeCalls == 0) loop.changed.NotifyAll();
    }
    return true;
}

void MessageLoop::Wake() {
    Loop& loop = GetLoop();
    std::lock_guard<std::mutex> lock(loop.mutex);
    ++loop.wakes;
    loop.changed.NotifyAll();
}

std::size_t MessageLoop::RunPending() {
    Loop& loop = GetLoop();
    std::uint64_t limit;
    {
        std::lock_guard<std::mutex> lock(loop.mutex);
        RequireLoopThread(loop);
        limit = loop.nextSeq;
    }
    std::size_t ran = 0;
    while (true) {
        RunnableTask task;
        {
            std::lock_guard<std::mutex> lock(loop.mutex);
            if (!loop.IsLoopThread() || !loop.Pop(limit, task)) break;
        }
        task.Run();
        ++ran;
    }
    return ran;
}

bool MessageLoop::RunUntil(const std::function<bool()>& condition, int timeoutMs) {
    const auto deadline = Condition::Deadline(timeoutMs);
    while (!condition()) {
        RunnableTask task;
        switch (TakeOne(deadline, task)) {
            case Waited::Task:
                task.Run();
                break;
            case Waited::Woken:
                break;
            case Waited::Over:
                return condition();
        }
    }
    return true;
}

bool MessageLoop::WaitAndRunOne(int timeoutMs) {
    RunnableTask task;
    if (TakeOne(Condition::Deadline(timeoutMs), task) != Waited::Task) return false;
    task.Run();
    return true;
}

std::size_t MessageLoop::GetPendingCount() {
    Loop& loop = GetLoop();
    std::lock_guard<std::mutex> lock(loop.mutex);
    return loop.pending;
}

bool MessageLoopExecutor::Execute(RunnableTask task) {
    return MessageLoop::Post(std::move(task), MessageLoop::kNormalPriority);
}

bool MessageLoopExecutor::Execute(RunnableTask task, int priority) {
    return MessageLoop::Post(std::move(task), priority);
}

bool MessageLoopExecutor::CanExecuteTask() const {
    return MessageLoop::IsAttached();
}

}  // namespace ZR
