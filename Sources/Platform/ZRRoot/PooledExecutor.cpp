#include "ZR/PooledExecutor.h"

#include <pthread.h>

#include <deque>
#include <exception>
#include <list>
#include <optional>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "ZR/Debug.h"
#include "ZR/Exceptions.h"
#include "ZR/Thread.h"

namespace ZR {

namespace {

struct Worker {
    std::thread thread;
    std::optional<ThreadHandle> handle;  // set by the worker itself when it starts
    std::thread::id id;
    bool ended = false;
};

}  // namespace

// Shared by the pool and its threads, so that a thread may outlive the pool
// object (when a task destroys the pool it runs on).
struct PooledExecutor::Core {
    std::mutex mutex;
    Condition work;     // a task came, or the pool was canceled
    Condition threads;  // a thread ended
    std::deque<RunnableTask> queue;
    std::list<std::shared_ptr<Worker>> workers;
    std::size_t live = 0;
    std::size_t idle = 0;
    bool canceled = false;
    std::size_t minThreads;
    std::size_t maxThreads;
    int keepAliveMs;
    std::string name;

    // Takes the entries of threads that ended, to be joined outside the lock.
    std::vector<std::shared_ptr<Worker>> TakeEnded() {
        std::vector<std::shared_ptr<Worker>> ended;
        for (auto it = workers.begin(); it != workers.end();)
            if ((*it)->ended) {
                ended.push_back(std::move(*it));
                it = workers.erase(it);
            } else {
                ++it;
            }
        return ended;
    }

    std::size_t LiveOthers() const {
        const std::thread::id self = std::this_thread::get_id();
        std::size_t count = 0;
        for (const auto& worker : workers)
            if (!worker->ended && worker->id != self) ++count;
        return count;
    }
};

namespace {

void Join(std::vector<std::shared_ptr<Worker>>& workers) {
    for (auto& worker : workers)
        if (worker->thread.joinable()) worker->thread.join();
}

void RunOne(RunnableTask& task, const std::string& poolName) {
    try {
        task.Run();
    } catch (const ZRException& e) {
        DBPrintf("Task on executor \"%s\" failed: %s: %s\n", poolName.c_str(),
                 e.GetName().ToCString(), e.GetMessage().ToCString());
    } catch (const std::exception& e) {
        DBPrintf("Task on executor \"%s\" failed: %s\n", poolName.c_str(), e.what());
    } catch (...) {
        DBPrintf("Task on executor \"%s\" failed with an unknown exception\n", poolName.c_str());
    }
}

void WorkerMain(std::shared_ptr<PooledExecutor::Core> core, std::shared_ptr<Worker> self) {
    if (!core->name.empty()) {
        // The system keeps 15 bytes of a thread's name.
        pthread_setname_np(pthread_self(), core->name.substr(0, 15).c_str());
    }
    std::unique_lock<std::mutex> lock(core->mutex);
    self->handle.emplace(Thread::GetCurrent());
    self->id = std::this_thread::get_id();
    while (!core->canceled) {
        if (!core->queue.empty()) {
            RunnableTask task = std::move(core->queue.front());
            core->queue.pop_front();
            lock.unlock();
            RunOne(task, core->name);
            // Destroyed here, on this thread and outside the lock: it may hold
            // the last reference to the pool's owner.
            task = RunnableTask();
            // An interrupt meant for that task must not reach the next one.
            self->handle->ClearInterrupt();
            lock.lock();
            continue;
        }
        auto ready = [&] { return core->canceled || !core->queue.empty(); };
        ++core->idle;
        bool woken = true;
        if (core->live > core->minThreads)
            woken = core->work.WaitFor(lock, core->keepAliveMs, ready);
        else
            core->work.Wait(lock, ready);
        --core->idle;
        if (!woken && core->live > core->minThreads) break;
    }
    --core->live;
    self->ended = true;
    core->threads.NotifyAll();
}

}  // namespace

PooledExecutor::PooledExecutor(std::size_t minThreads, std::size_t maxThreads, int keepAliveMs,
                               const UniString& name)
    : mCore(std::make_shared<Core>()) {
    if (maxThreads == 0 || minThreads > maxThreads)
        throw IllegalArgumentException(
            "Failed to create an executor: it needs one thread at least, and its smallest number "
            "of threads may not exceed its largest.",
            ZR_HERE);
    mCore->minThreads = minThreads;
    mCore->maxThreads = maxThreads;
    mCore->keepAliveMs = keepAliveMs < 0 ? 0 : keepAliveMs;
    mCore->name = name.Std();
}

PooledExecutor::~PooledExecutor() {
    Cancel();
    std::list<std::shared_ptr<Worker>> workers;
    {
        std::lock_guard<std::mutex> lock(mCore->mutex);
        workers.swap(mCore->workers);
    }
    const std::thread::id self = std::this_thread::get_id();
    for (auto& worker : workers) {
        if (!worker->thread.joinable()) continue;
        // A task that destroys its own pool: that thread ends by itself once
        // the task is over.
        if (worker->thread.get_id() == self)
            worker->thread.detach();
        else
            worker->thread.join();
    }
}

bool PooledExecutor::Execute(RunnableTask task) {
    if (task.IsEmpty()) return false;
    std::vector<std::shared_ptr<Worker>> ended;
    std::unique_lock<std::mutex> lock(mCore->mutex);
    if (mCore->canceled) {
        lock.unlock();
        return false;  // the task goes here, outside the lock
    }
    ended = mCore->TakeEnded();
    mCore->queue.push_back(std::move(task));
    if (mCore->queue.size() <= mCore->idle) {
        mCore->work.NotifyOne();
    } else if (mCore->live < mCore->maxThreads) {
        auto worker = std::make_shared<Worker>();
        mCore->workers.push_back(worker);
        ++mCore->live;
        try {
            worker->thread = std::thread(WorkerMain, mCore, worker);
        } catch (const std::system_error& e) {
            --mCore->live;
            mCore->workers.pop_back();
            if (mCore->live == 0) {
                RunnableTask unrun = std::move(mCore->queue.back());
                mCore->queue.pop_back();
                lock.unlock();
                Join(ended);
                throw GeneralException(
                    UniString("Failed to start a thread of an executor: ") + e.what(), ZR_HERE);
            }
        }
    }
    lock.unlock();
    Join(ended);
    return true;
}

void PooledExecutor::Cancel() {
    std::deque<RunnableTask> dropped;
    std::vector<ThreadHandle> running;
    {
        std::lock_guard<std::mutex> lock(mCore->mutex);
        if (mCore->canceled) return;
        mCore->canceled = true;
        dropped.swap(mCore->queue);
        for (const auto& worker : mCore->workers)
            if (!worker->ended && worker->handle) running.push_back(*worker->handle);
        mCore->work.NotifyAll();
    }
    // A thread that has not set its handle yet sees the cancel before any task.
    for (ThreadHandle& handle : running) handle.Interrupt();
}

bool PooledExecutor::IsCanceled() const {
    std::lock_guard<std::mutex> lock(mCore->mutex);
    return mCore->canceled;
}

bool PooledExecutor::IsShutdown() const {
    std::lock_guard<std::mutex> lock(mCore->mutex);
    return mCore->canceled && mCore->live == 0;
}

bool PooledExecutor::WaitTermination(int timeoutMs, bool interruptible, std::size_t* stillRunning) {
    std::vector<std::shared_ptr<Worker>> ended;
    bool done;
    {
        std::unique_lock<std::mutex> lock(mCore->mutex);
        done = mCore->threads.WaitFor(
            lock, timeoutMs, [&] { return mCore->LiveOthers() == 0; }, interruptible);
        if (stillRunning) *stillRunning = mCore->LiveOthers();
        ended = mCore->TakeEnded();
    }
    Join(ended);
    return done;
}

std::size_t PooledExecutor::GetThreadCount() const {
    std::lock_guard<std::mutex> lock(mCore->mutex);
    return mCore->live;
}

std::size_t PooledExecutor::GetQueuedCount() const {
    std::lock_guard<std::mutex> lock(mCore->mutex);
    return mCore->queue.size();
}

bool PooledExecutor::WaitThreadCount(std::size_t count, int timeoutMs) {
    std::unique_lock<std::mutex> lock(mCore->mutex);
    return mCore->threads.WaitFor(lock, timeoutMs, [&] { return mCore->live <= count; });
}

}  // namespace ZR
