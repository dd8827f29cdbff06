// The threads of the library, run as real threads (and under ThreadSanitizer
// in CI): pooled executors and interruption, the message loop fed from
// several threads and pumped by the test, dependent tasks against
// resources that go away, and the thread-safe observer walk while observers
// and sources come and go (its order is checked with the plain one's).
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <numeric>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "KRCB/LowMessageLoopExecutor.h"
#include "ZR/Debug.h"
#include "ZR/DependentResource.h"
#include "ZR/EventSource.h"
#include "ZR/Exceptions.h"
#include "ZR/MessageLoop.h"
#include "ZR/PooledExecutor.h"
#include "ZR/Thread.h"

using ZR::MessageLoop;

namespace {

constexpr int kLong = 10000;  // a bound no passing test comes near

std::mutex gDebugMutex;
std::string gDebug;
void CaptureDebug(const std::string& text) {
    std::lock_guard<std::mutex> lock(gDebugMutex);
    gDebug += text;
}

// Counts its destruction, to see what a pool or a loop dropped.
struct Probe : ZR::Runnable {
    Probe(std::atomic<int>& runs, std::atomic<int>& gone) : runs(runs), gone(gone) {}
    ~Probe() override { ++gone; }
    void Run() override { ++runs; }
    std::atomic<int>& runs;
    std::atomic<int>& gone;
};

}  // namespace

TEST(PooledExecutorThreadTest, RunsEachTaskOnceAndSurvivesThrowingTasks) {
    ZR::SetDebugOutput(CaptureDebug);
    constexpr int kTasks = 60;
    std::vector<std::atomic<int>> runs(kTasks);
    std::mutex mutex;
    std::set<std::thread::id> threads;
    ZR::Latch done(kTasks);
    {
        ZR::PooledExecutor pool(1, 3, kLong, "test pool");
        EXPECT_TRUE(
            pool.Execute(ZR::MakeTask([] { throw ZR::GeneralException("boom", ZR_HERE); })));
        EXPECT_TRUE(pool.Execute(ZR::MakeTask([] { throw 7; })));
        for (int i = 0; i < kTasks; ++i)
            pool.Execute(ZR::MakeTask([&, i] {
                ++runs[i];
                {
                    std::lock_guard<std::mutex> lock(mutex);
                    threads.insert(std::this_thread::get_id());
                }
                done.CountDown();
            }));
        ASSERT_TRUE(done.WaitFor(kLong));
    }
    ZR::SetDebugOutput(nullptr);
    for (auto& r : runs) EXPECT_EQ(r, 1);
    EXPECT_LE(threads.size(), 3u);
    EXPECT_EQ(threads.count(std::this_thread::get_id()), 0u);
    EXPECT_NE(gDebug.find("GeneralException: boom"), std::string::npos) << gDebug;
    EXPECT_NE(gDebug.find("unknown exception"), std::string::npos) << gDebug;
    EXPECT_THROW(ZR::PooledExecutor(2, 1, 0, ""), ZR::IllegalArgumentException);
    EXPECT_THROW(ZR::PooledExecutor(0, 0, 0, ""), ZR::IllegalArgumentException);
}

TEST(PooledExecutorThreadTest, OneThreadRunsInOrder) {
    std::vector<int> order;  // touched by the one pool thread only
    ZR::Latch done(1);
    ZR::PooledExecutor pool(1, 1, kLong, "");
    for (int i = 0; i < 20; ++i) pool.Execute(ZR::MakeTask([&, i] { order.push_back(i); }));
    pool.Execute(ZR::MakeTask([&] { done.CountDown(); }));
    ASSERT_TRUE(done.WaitFor(kLong));
    pool.Cancel();
    ASSERT_TRUE(pool.WaitTermination(kLong));
    std::vector<int> expected(20);
    std::iota(expected.begin(), expected.end(), 0);
    EXPECT_EQ(order, expected);
}

TEST(PooledExecutorThreadTest, CancelInterruptsRunningWorkAndDropsQueuedWork) {
    ZR::PooledExecutor pool(2, 2, kLong, "");
    ZR::Latch started(2), neverOpened(1);
    std::atomic<int> interrupted{0};
    for (bool sleeps : {true, false})
        pool.Execute(ZR::MakeTask([&, sleeps] {
            started.CountDown();
            try {
                if (sleeps)
                    ZR::Thread::Sleep(10 * kLong, true);
                else
                    neverOpened.Wait(true);
            } catch (const ZR::InterruptedException&) {
                ++interrupted;
            }
        }));
    ASSERT_TRUE(started.WaitFor(kLong));
    std::atomic<int> runs{0}, gone{0};
    EXPECT_TRUE(pool.Execute(ZR::RunnableTask(new Probe(runs, gone))));
    EXPECT_EQ(pool.GetQueuedCount(), 1u);

    pool.Cancel();
    EXPECT_EQ(gone, 1);  // dropped at once
    EXPECT_FALSE(pool.Execute(ZR::RunnableTask(new Probe(runs, gone))));
    EXPECT_EQ(gone, 2);
    std::size_t left = 99;
    EXPECT_TRUE(pool.WaitTermination(kLong, true, &left));
    EXPECT_EQ(left, 0u);
    EXPECT_TRUE(pool.IsShutdown());
    EXPECT_EQ(interrupted, 2);
    EXPECT_EQ(runs, 0);
}

TEST(PooledExecutorThreadTest, KeepAliveEndsThreadsAboveTheMinimum) {
    constexpr int kKeepAlive = 100;
    ZR::PooledExecutor pool(1, 3, kKeepAlive, "");
    ZR::Latch allStarted(3);
    std::atomic<int> started{0};
    // Stamped before the last count-down, so before any thread can go idle:
    // the test's own thread may wake much later on a loaded machine.
    std::chrono::steady_clock::time_point released;
    for (int i = 0; i < 3; ++i)
        pool.Execute(ZR::MakeTask([&] {
            if (++started == 3) released = std::chrono::steady_clock::now();
            allStarted.CountDown();
            allStarted.Wait();  // three at once: three threads
        }));
    ASSERT_TRUE(allStarted.WaitFor(kLong));
    ASSERT_TRUE(pool.WaitThreadCount(1, kLong));
    EXPECT_GE(std::chrono::steady_clock::now() - released, std::chrono::milliseconds(kKeepAlive));
    // The minimum stays: the library's own wait runs out.
    EXPECT_FALSE(pool.WaitThreadCount(0, 2 * kKeepAlive));
    EXPECT_EQ(pool.GetThreadCount(), 1u);

    // The thread that stayed takes new work.
    ZR::Latch ran(1);
    pool.Execute(ZR::MakeTask([&] { ran.CountDown(); }));
    EXPECT_TRUE(ran.WaitFor(kLong));
    EXPECT_EQ(pool.GetThreadCount(), 1u);
}

namespace {

// Holds the last reference to its pool, as a task holds its owner.
struct LastReference : ZR::Runnable {
    std::shared_ptr<ZR::PooledExecutor> pool;
    ZR::Latch* gone;
    bool* waited;
    void Run() override {
        // As an owner stopping from the pool's own thread: that thread is not waited for.
        pool->Cancel();
        *waited = pool->WaitTermination(kLong);
    }
    ~LastReference() override {
        pool.reset();
        gone->CountDown();
    }
};

}  // namespace

TEST(PooledExecutorThreadTest, ATaskMayStopAndDestroyItsOwnPool) {
    ZR::Latch gone(1);
    bool waited = false;
    auto task = std::make_unique<LastReference>();
    task->pool = std::make_shared<ZR::PooledExecutor>(1, 1, kLong, "");
    task->gone = &gone;
    task->waited = &waited;
    std::shared_ptr<ZR::PooledExecutor> pool = task->pool;
    const auto start = std::chrono::steady_clock::now();
    pool->Execute(ZR::RunnableTask(std::move(task)));
    pool.reset();
    ASSERT_TRUE(gone.WaitFor(kLong));
    EXPECT_TRUE(waited);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(kLong));
}

TEST(InterruptThreadTest, WakesSleepsAndWaitsOfAnotherThread) {
    std::promise<ZR::ThreadHandle> handle;
    ZR::Latch firstCaught(1);
    std::atomic<int> step{0};
    std::thread sleeper([&] {
        handle.set_value(ZR::Thread::GetCurrent());
        try {
            ZR::Thread::Sleep(10 * kLong, true);
        } catch (const ZR::InterruptedException&) {
            step = 1;
        }
        firstCaught.CountDown();
        // The mark was cleared by the throw; a second interrupt reaches a wait.
        std::mutex mutex;
        ZR::Condition never;
        std::unique_lock<std::mutex> lock(mutex);
        try {
            never.WaitFor(
                lock, 10 * kLong, [] { return false; }, true);
        } catch (const ZR::InterruptedException&) {
            if (step == 2) step = 3;
        }
    });
    ZR::ThreadHandle sleeperHandle = handle.get_future().get();  // an early mark waits
    sleeperHandle.Interrupt();
    ASSERT_TRUE(firstCaught.WaitFor(kLong));
    step = 2;
    sleeperHandle.Interrupt();
    sleeper.join();
    EXPECT_EQ(step, 3);
}

TEST(InterruptThreadTest, AMarkWaitsForTheNextInterruptibleWait) {
    ZR::ThreadHandle self = ZR::Thread::GetCurrent();
    self.Interrupt();
    ZR::Thread::Sleep(1);  // not interruptible: the mark stays
    EXPECT_TRUE(self.IsInterrupted());
    ZR::Latch open(0);
    EXPECT_TRUE(open.WaitFor(0, true));  // done waits don't throw
    EXPECT_THROW(ZR::Thread::Sleep(kLong, true), ZR::InterruptedException);
    EXPECT_FALSE(self.IsInterrupted());
    ZR::Thread::CheckInterrupted();  // nothing left
    self.Interrupt();
    EXPECT_THROW(ZR::Thread::CheckInterrupted(), ZR::InterruptedException);
    EXPECT_FALSE(self.IsInterrupted());
}

TEST(MessageLoopThreadTest, TasksFromSeveralThreadsRunOnTheLoopByPriorityThenInOrder) {
    MessageLoop::Scope loop;
    struct Ran {
        int poster, seq, priority;
        std::thread::id thread;
    };
    std::vector<Ran> ran;  // touched on the loop's thread only
    constexpr int kPosters = 4, kEach = 50;
    ZR::Latch posted(kPosters);
    std::vector<std::thread> posters;
    for (int p = 0; p < kPosters; ++p)
        posters.emplace_back([&, p] {
            ZR::MessageLoopExecutor normal;
            KRCB::LowMessageLoopExecutor low;
            for (int i = 0; i < kEach; ++i) {
                auto record = [&ran, p, i](int priority) {
                    return ZR::MakeTask([&ran, p, i, priority] {
                        ran.push_back({p, i, priority, std::this_thread::get_id()});
                    });
                };
                if (i % 2)
                    EXPECT_TRUE(low.Execute(record(KRCB::LowMessageLoopExecutor::kPriority)));
                else
                    EXPECT_TRUE(normal.Execute(record(0), 0));
            }
            posted.CountDown();
        });
    ASSERT_TRUE(posted.WaitFor(kLong));
    for (auto& t : posters) t.join();
    EXPECT_EQ(MessageLoop::GetPendingCount(), std::size_t{kPosters * kEach});
    EXPECT_EQ(MessageLoop::RunPending(), std::size_t{kPosters * kEach});

    ASSERT_EQ(ran.size(), std::size_t{kPosters * kEach});
    std::vector<int> last(2 * kPosters, -1);
    bool lowSeen = false;
    for (const Ran& r : ran) {
        EXPECT_EQ(r.thread, std::this_thread::get_id());
        if (r.priority < 0) lowSeen = true;
        EXPECT_FALSE(lowSeen && r.priority == 0) << "a normal task ran after a low one";
        int& previous = last[2 * r.poster + (r.priority < 0)];
        EXPECT_GT(r.seq, previous) << "out of order within a priority";
        previous = r.seq;
    }

    // Posted while the loop waits: RunUntil picks them up as they come.
    std::atomic<int> count{0};
    std::thread late([&] {
        for (int i = 0; i < 10; ++i) MessageLoop::Post(ZR::MakeTask([&] { ++count; }));
    });
    EXPECT_TRUE(MessageLoop::RunUntil([&] { return count == 10; }, kLong));
    late.join();
}

TEST(MessageLoopThreadTest, WithoutAnAttachedLoopTasksAreDropped) {
    std::atomic<int> runs{0}, gone{0};
    ZR::MessageLoopExecutor normal;
    KRCB::LowMessageLoopExecutor low;
    EXPECT_FALSE(normal.CanExecuteTask());
    EXPECT_FALSE(low.CanExecuteTask());
    EXPECT_FALSE(low.Execute(ZR::RunnableTask(new Probe(runs, gone))));
    EXPECT_EQ(gone, 1);
    EXPECT_THROW(MessageLoop::RunPending(), ZR::IllegalArgumentException);

    {
        MessageLoop::Scope loop;
        EXPECT_TRUE(low.CanExecuteTask());
        EXPECT_TRUE(normal.Execute(ZR::RunnableTask(new Probe(runs, gone)), 0));
        // Only the attached thread pumps, and no other thread attaches meanwhile.
        std::thread other([] {
            EXPECT_FALSE(MessageLoop::IsLoopThread());
            EXPECT_THROW(MessageLoop::WaitAndRunOne(0), ZR::IllegalArgumentException);
            EXPECT_THROW(MessageLoop::Attach(), ZR::IllegalArgumentException);
        });
        other.join();
        {
            MessageLoop::Scope nested;  // nests: the queue survives its end
        }
        EXPECT_TRUE(MessageLoop::IsAttached());
        EXPECT_EQ(MessageLoop::GetPendingCount(), 1u);
    }
    // Detach dropped the queued task unrun.
    EXPECT_EQ(gone, 2);
    EXPECT_EQ(runs, 0);
    EXPECT_FALSE(MessageLoop::IsAttached());
}

TEST(MessageLoopThreadTest, PumpsRunWhatIsDueAndWaitAsTold) {
    int wakeUps = 0;  // the posts below are on this thread
    MessageLoop::Scope loop([&] { ++wakeUps; });
    std::vector<int> order;
    MessageLoop::Post(ZR::MakeTask([&] {
        order.push_back(1);
        MessageLoop::Post(ZR::MakeTask([&] { order.push_back(3); }), 5);
    }));
    MessageLoop::Post(ZR::MakeTask([&] { order.push_back(2); }));
    EXPECT_EQ(wakeUps, 2);
    // What a task posts waits for the next pump, whatever its priority.
    EXPECT_EQ(MessageLoop::RunPending(), 2u);
    EXPECT_EQ(order, (std::vector<int>{1, 2}));
    EXPECT_EQ(MessageLoop::RunPending(), 1u);
    EXPECT_EQ(order, (std::vector<int>{1, 2, 3}));

    // The library's own waits run out.
    EXPECT_FALSE(MessageLoop::WaitAndRunOne(20));
    EXPECT_FALSE(MessageLoop::RunUntil([] { return false; }, 20));

    // A condition that changes without a task is seen at a Wake.
    std::atomic<bool> flag{false};
    std::thread setter([&] {
        flag = true;
        MessageLoop::Wake();
    });
    EXPECT_TRUE(MessageLoop::RunUntil([&] { return flag.load(); }, kLong));
    setter.join();

    // An exception leaves the pump; what is still queued stays.
    MessageLoop::Post(ZR::MakeTask([] { throw std::runtime_error("task failed"); }));
    MessageLoop::Post(ZR::MakeTask([&] { order.push_back(4); }));
    EXPECT_THROW(MessageLoop::RunPending(), std::runtime_error);
    EXPECT_EQ(MessageLoop::GetPendingCount(), 1u);
    EXPECT_TRUE(MessageLoop::WaitAndRunOne(kLong));
    EXPECT_EQ(order.back(), 4);
}

namespace {

// An observer as a host writes one: it ends its tasks' access first thing.
class Observer : public ZR::DependentResource {
public:
    ~Observer() override {
        if (starting) starting->CountDown();  // for the test only
        ReleaseDependents();
        // Whatever ran on this object has ended; its parts are all still here.
        for (const std::string& line : lines) EXPECT_EQ(line, "delivered");
        if (destroyed) *destroyed = true;
    }
    std::vector<std::string> lines;
    ZR::Latch* starting = nullptr;
    std::atomic<bool>* destroyed = nullptr;
};

class Notifier : public ZR::DependentTask {
public:
    Notifier(ZR::DependentResource* resource, std::function<void(Observer&)> body)
        : ZR::DependentTask(resource), mBody(std::move(body)) {}
    void Execute(ZR::DependentResource* resource) override {
        if (auto* observer = dynamic_cast<Observer*>(resource)) mBody(*observer);
    }

private:
    std::function<void(Observer&)> mBody;
};

}  // namespace

TEST(DependentTaskThreadTest, AResourceDestroyedBeforeTheLoopRunsIsNeverTouched) {
    MessageLoop::Scope loop;
    int calls = 0;
    auto count = [&](Observer& o) {
        ++calls;
        o.lines.push_back("delivered");
    };

    auto* gone = new Observer;
    ZR::MessageLoopExecutor executor;
    // Posted from a worker, as a task's outcome is.
    std::thread worker([&] { executor.Execute(ZR::RunnableTask(new Notifier(gone, count)), 0); });
    worker.join();
    delete gone;
    // A task built on the pointer of a resource that is already gone, and one on none.
    executor.Execute(ZR::RunnableTask(new Notifier(gone, count)), 0);
    executor.Execute(ZR::RunnableTask(new Notifier(nullptr, count)), 0);

    Observer alive;
    executor.Execute(ZR::RunnableTask(new Notifier(&alive, count)), 0);
    EXPECT_EQ(MessageLoop::RunPending(), 4u);
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(alive.lines.size(), 1u);
}

TEST(DependentTaskThreadTest, DestructionWaitsForAnExecuteRunningElsewhere) {
    ZR::Latch entered(1), destructorStarted(1);
    std::atomic<bool> destroyed{false}, sawDestroyed{false};
    auto* observer = new Observer;
    observer->starting = &destructorStarted;
    observer->destroyed = &destroyed;

    Notifier slow(observer, [&](Observer& o) {
        entered.CountDown();
        // The destructor has begun on the other thread and now waits for this call.
        EXPECT_TRUE(destructorStarted.WaitFor(kLong));
        o.lines.push_back("delivered");
        sawDestroyed = destroyed.load();
    });
    std::thread runner([&] { slow.Run(); });
    ASSERT_TRUE(entered.WaitFor(kLong));
    std::thread destroyer([&] { delete observer; });
    runner.join();
    destroyer.join();
    EXPECT_FALSE(sawDestroyed);
    EXPECT_TRUE(destroyed);

    // Run after the resource is gone: nothing happens.
    Notifier late(observer, [&](Observer&) { ADD_FAILURE() << "reached a destroyed resource"; });
    late.Run();
}

TEST(DependentTaskThreadTest, AnExecuteMayDestroyItsOwnResource) {
    std::atomic<bool> destroyed{false};
    auto* observer = new Observer;
    observer->destroyed = &destroyed;
    Notifier suicide(observer, [&](Observer& o) {
        o.lines.push_back("delivered");
        delete &o;  // the destructor must not wait for this very call
    });
    std::thread runner([&] { suicide.Run(); });
    runner.join();
    EXPECT_TRUE(destroyed);
}

namespace {

class Watcher : public ZR::TS::EventObserver {
public:
    ~Watcher() override { DetachFromSources(); }
    // Touches the observer, so that a call racing its destruction shows.
    void SourceDestroyed(ZR::TS::EventSource*) override { ++sourcesGone; }

    std::atomic<int> calls{0};
    std::atomic<int> sourcesGone{0};
};

class Sender : public ZR::TS::EventSource {
public:
    ~Sender() override { DetachObservers(); }
    void Send() {
        ForEachObserver([](ZR::TS::EventObserver* o) { ++static_cast<Watcher*>(o)->calls; });
    }
};

}  // namespace

TEST(EventSourceThreadTest, ObserversComeAndGoOnOtherThreadsDuringWalks) {
    Sender source;
    Watcher steady;
    source.Attach(steady);
    constexpr int kSends = 300, kChurners = 3;
    std::atomic<bool> stop{false};
    std::vector<std::thread> churners;
    ZR::Latch churning(kChurners);
    for (int t = 0; t < kChurners; ++t)
        churners.emplace_back([&] {
            churning.CountDown();
            while (!stop) {
                auto passing = std::make_unique<Watcher>();
                Watcher kept;
                source.Attach(*passing);
                source.Attach(kept);
                source.Detach(kept);
                passing.reset();  // destroyed while still attached
            }
        });
    ASSERT_TRUE(churning.WaitFor(10000));
    std::thread sender([&] {
        for (int i = 0; i < kSends; ++i) source.Send();
    });
    sender.join();
    stop = true;
    for (auto& t : churners) t.join();
    EXPECT_EQ(steady.calls, kSends);
    EXPECT_EQ(source.GetObserverCount(), 1u);
}

TEST(EventSourceThreadTest, ASourceAndItsObserversDestroyedAtOnce) {
    for (int round = 0; round < 50; ++round) {
        auto source = std::make_unique<Sender>();
        constexpr int kObservers = 4;
        std::vector<std::unique_ptr<Watcher>> observers;
        for (int i = 0; i < kObservers; ++i) {
            observers.push_back(std::make_unique<Watcher>());
            source->Attach(*observers.back());
        }
        ZR::Latch go(1);
        std::vector<std::thread> killers;
        for (int i = 0; i < kObservers; ++i)
            killers.emplace_back([&, i] {
                go.Wait();
                observers[i].reset();
            });
        std::thread sourceKiller([&] {
            go.Wait();
            source->Send();
            source.reset();
        });
        go.CountDown();
        for (auto& t : killers) t.join();
        sourceKiller.join();
    }
}
