// The message loop fed from several threads and pumped by the test, and
// dependent tasks against resources that go away, across threads.
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "KRCB/LowMessageLoopExecutor.h"
#include "ZR/DependentResource.h"
#include "ZR/Exceptions.h"
#include "ZR/MessageLoop.h"
#include "ZR/Thread.h"

using ZR::MessageLoop;

namespace {

constexpr int kLong = 10000;

struct Counted : ZR::Runnable {
    Counted(std::atomic<int>& runs, std::atomic<int>& gone) : runs(runs), gone(gone) {}
    ~Counted() override { ++gone; }
    void Run() override { ++runs; }
    std::atomic<int>& runs;
    std::atomic<int>& gone;
};

}  // namespace

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
    EXPECT_FALSE(low.Execute(ZR::RunnableTask(new Counted(runs, gone))));
    EXPECT_EQ(gone, 1);
    EXPECT_THROW(MessageLoop::RunPending(), ZR::IllegalArgumentException);

    {
        MessageLoop::Scope loop;
        EXPECT_TRUE(low.CanExecuteTask());
        EXPECT_TRUE(normal.Execute(ZR::RunnableTask(new Counted(runs, gone)), 0));
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
