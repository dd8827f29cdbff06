// The thread-safe observer walk, safe while observers and sources come and
// go on other threads; its order is checked with the plain one's.
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

#include "ZR/EventSource.h"
#include "ZR/Thread.h"

namespace {

class Observer : public ZR::TS::EventObserver {
public:
    ~Observer() override { DetachFromSources(); }
    // Touches the observer, so that a call racing its destruction shows.
    void SourceDestroyed(ZR::TS::EventSource*) override { ++sourcesGone; }

    std::atomic<int> calls{0};
    std::atomic<int> sourcesGone{0};
};

class Source : public ZR::TS::EventSource {
public:
    ~Source() override { DetachObservers(); }
    void Send() {
        ForEachObserver([](ZR::TS::EventObserver* o) { ++static_cast<Observer*>(o)->calls; });
    }
};

}  // namespace

TEST(EventSourceThreadTest, ObserversComeAndGoOnOtherThreadsDuringWalks) {
    Source source;
    Observer steady;
    source.Attach(steady);
    constexpr int kSends = 300, kChurners = 3;
    std::atomic<bool> stop{false};
    std::vector<std::thread> churners;
    ZR::Latch churning(kChurners);
    for (int t = 0; t < kChurners; ++t)
        churners.emplace_back([&] {
            churning.CountDown();
            while (!stop) {
                auto passing = std::make_unique<Observer>();
                Observer kept;
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
        auto source = std::make_unique<Source>();
        constexpr int kObservers = 4;
        std::vector<std::unique_ptr<Observer>> observers;
        for (int i = 0; i < kObservers; ++i) {
            observers.push_back(std::make_unique<Observer>());
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
