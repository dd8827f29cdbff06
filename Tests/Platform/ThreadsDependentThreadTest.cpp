// Dependent tasks against resources that go away, across threads.
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "ZR/DependentResource.h"
#include "ZR/MessageLoop.h"
#include "ZR/Thread.h"

namespace {

constexpr int kLong = 10000;

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
    ZR::MessageLoop::Scope loop;
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
    EXPECT_EQ(ZR::MessageLoop::RunPending(), 4u);
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
