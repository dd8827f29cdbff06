// Pooled executors and interruption, run as real threads (and under
// ThreadSanitizer in CI).
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <mutex>
#include <numeric>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "ZR/Debug.h"
#include "ZR/Exceptions.h"
#include "ZR/PooledExecutor.h"
#include "ZR/Thread.h"

namespace {

constexpr int kLong = 10000;  // a bound no passing test comes near

std::mutex gDebugMutex;
std::string gDebug;
void CaptureDebug(const std::string& text) {
    std::lock_guard<std::mutex> lock(gDebugMutex);
    gDebug += text;
}

// Counts its destruction, to see what a pool dropped.
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
