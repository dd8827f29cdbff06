// The emulator's own threads: the server's pushes reach signal clients on
// them, filtered by the observer, while clients come and go; and a call held
// at a gate waits for the test while the emulator serves others.

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "KRCB/Clients.h"
#include "KRCB/SignalClient.h"
#include "Support/EmulatorFixture.h"

namespace krtest {
namespace {

constexpr int kWaitMs = 10000;

class Listener : public KRCB::SignalObserver, public KRCB::PresenceObserver {
public:
    ~Listener() override {
        KRCB::SignalObserver::DetachFromSources();
        KRCB::PresenceObserver::DetachFromSources();
    }
    bool CheckSignalType(const KRCB::SignalId& id) const override { return id == 1 || id == 7; }
    void SignalReceived(KRCB::SignalClient*, const KRCB::Signal& signal) override {
        std::lock_guard<std::mutex> lock(mutex);
        if (std::this_thread::get_id() == testThread) onTestThread = true;
        signals.push_back(std::to_string(signal.GetId()) + " " + signal.GetText().Std() + " " +
                          signal.GetSender().Std());
    }
    void PresenceStateChanged(const KRCB::PresenceState& state) override { presence = state; }
    void OnlineUserListChanged() override { ++onlineChanges; }

    std::vector<std::string> Signals() {
        std::lock_guard<std::mutex> lock(mutex);
        return signals;
    }

    std::thread::id testThread = std::this_thread::get_id();
    std::mutex mutex;
    std::vector<std::string> signals;
    bool onTestThread = false;
    std::atomic<int> presence{0};
    std::atomic<int> onlineChanges{0};
};

TEST(EmulatorPushThreadTest, SignalsPresenceAndTheOnlineListReachObserversOnTheirThread) {
    EmulatedService service;
    KRCB::SignalClient anna(kServer, "anna", "rt-anna");
    KRCB::SignalClient bert(kServer, "bert", "rt-bert");
    anna.JoinProject(kProjectId);
    bert.JoinProject(kProjectId);
    Listener annaHears, bertHears;
    anna.Attach(static_cast<KRCB::SignalObserver&>(annaHears));
    bert.Attach(static_cast<KRCB::SignalObserver&>(bertHears));
    bert.Attach(static_cast<KRCB::PresenceObserver&>(bertHears));

    // The sender doesn't hear itself; ids the observer doesn't want never reach it.
    anna.SendInternalSignal(1, "one");
    anna.SendSignal(5, "five");
    anna.SendSignal(7, "seven");
    // A member change is signal 1 from the server, with the member's login.
    service->AddMember(kServer, kProjectPath, {"bert", 0});
    service->SetMemberSignals(false);
    service->RemoveMember(kServer, kProjectPath, "bert");
    ASSERT_TRUE(service->WaitForPushes(kWaitMs));
    EXPECT_EQ(bertHears.Signals(),
              (std::vector<std::string>{"1 one anna", "7 seven anna", "1 bert "}));
    EXPECT_EQ(annaHears.Signals(), (std::vector<std::string>{"1 bert "}));
    EXPECT_FALSE(bertHears.onTestThread);

    service->SetPresenceState(kServer, "bert", 3);
    ASSERT_TRUE(service->WaitForPushes(kWaitMs));
    EXPECT_EQ(bertHears.presence, 3);

    const int before = bertHears.onlineChanges;
    {
        KRCB::SignalClient second(kServer, "anna", "rt-anna");
        ASSERT_TRUE(service->WaitForPushes(kWaitMs));
        EXPECT_EQ(bertHears.onlineChanges, before + 1);
    }
    ASSERT_TRUE(service->WaitForPushes(kWaitMs));
    EXPECT_EQ(bertHears.onlineChanges, before + 2);
}

// Clients and observers come and go while pushes are delivered.
TEST(EmulatorPushThreadTest, ClientsAndObserversMayGoWhilePushesArrive) {
    EmulatedService service;
    KRCB::SignalClient anna(kServer, "anna", "rt-anna");
    anna.JoinProject(kProjectId);
    std::thread sender([&] {
        for (int i = 0; i < 200; ++i) service->SendSignal(kServer, kProjectPath, 1, "x");
    });
    for (int i = 0; i < 20; ++i) {
        auto bert = std::make_unique<KRCB::SignalClient>(kServer, "bert", "rt-bert");
        bert->JoinProject(kProjectId);
        auto listener = std::make_unique<Listener>();
        bert->Attach(static_cast<KRCB::SignalObserver&>(*listener));
        if (i % 2) listener.reset();  // the observer first, or the client first
        bert.reset();
    }
    sender.join();
    EXPECT_TRUE(service->WaitForPushes(kWaitMs));
}

TEST(EmulatorGateThreadTest, ABlockedCallWaitsUntilReleased) {
    EmulatedService service;
    auto client = LogInTo();
    auto gate = service->BlockNext(Emulator::Op::kGetProjectState);
    std::atomic<int> state{-1};
    std::thread caller([&] { state = client->GetProjectState(kProjectId); });

    ASSERT_TRUE(gate->WaitUntilReached(kWaitMs));
    EXPECT_EQ(service->CallCount(Emulator::Op::kGetProjectState), 1);
    // The held call keeps no lock: the test changes state and others call.
    service->SetProjectState(kServer, kProjectPath, 2);
    auto other = LogInTo(kServer, "bert", "rt-bert");
    EXPECT_EQ(other->GetProjectState(kProjectId), 2);
    EXPECT_EQ(state, -1);

    gate->Release();
    caller.join();
    EXPECT_EQ(state, 2);
    // Only the next call was held.
    EXPECT_EQ(client->GetProjectState(kProjectId), 2);
}

TEST(EmulatorGateThreadTest, AGateNobodyReachesTimesOutAndTheServiceReleasesItsGates) {
    std::thread caller;
    {
        EmulatedService service;
        auto gate = service->BlockNext(Emulator::Op::kGetCurrentUserId);
        EXPECT_FALSE(gate->WaitUntilReached(1));
        auto client = LogInTo();
        caller = std::thread([client] {
            try {
                client->GetCurrentUserId();
            } catch (const ZR::ZRException&) {
            }
        });
        ASSERT_TRUE(gate->WaitUntilReached(kWaitMs));
    }
    // The service went with the call still held: it was let go, not left hanging.
    caller.join();
}

}  // namespace
}  // namespace krtest
