// The thread-safe observer walk: the same order as the plain one, and safe
// while observers come and go on other threads.
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "ZR/EventSource.h"
#include "ZR/Thread.h"

namespace {

class Observer : public ZR::TS::EventObserver {
public:
    explicit Observer(std::string name = "") : name(std::move(name)) {}
    ~Observer() override { DetachFromSources(); }
    void Called() {
        ++calls;
        if (action) action();
    }
    void SourceDestroyed(ZR::TS::EventSource*) override { ++sourcesGone; }

    std::string name;
    std::atomic<int> calls{0};
    std::atomic<int> sourcesGone{0};
    std::function<void()> action;
};

class Source : public ZR::TS::EventSource {
public:
    ~Source() override { DetachObservers(); }
    void Send() {
        ForEachObserver([](ZR::TS::EventObserver* o) { static_cast<Observer*>(o)->Called(); });
    }
};

}  // namespace

TEST(EventSourceThreadTest, WalksAsThePlainSource) {
    std::vector<std::string> log;
    Source source;
    Observer a("a"), b("b"), c("c"), d("d");
    for (Observer* o : {&a, &b, &c, &d}) o->action = [&log, o] { log.push_back(o->name); };
    source.Attach(a);
    source.Attach(b);
    source.Attach(c);
    source.Attach(b);  // once only
    b.action = [&] {
        log.push_back("b");
        source.Attach(d);  // not heard in this walk
    };
    source.Send();
    EXPECT_EQ(log, (std::vector<std::string>{"c", "b", "a"}));

    log.clear();
    b.action = [&] { log.push_back("b"); };
    c.action = [&] {
        log.push_back("c");
        source.Detach(c);
        source.Detach(a);
    };
    source.Send();
    EXPECT_EQ(log, (std::vector<std::string>{"d", "c", "b"}));
    EXPECT_EQ(source.GetObserverCount(), 2u);
    EXPECT_TRUE(source.IsAttached(d));
    EXPECT_FALSE(source.IsAttached(a));
}

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
