// A call held at a gate: the test sees it arrive, the emulator serves others
// meanwhile, and the call goes on when the test releases it.

#include <gtest/gtest.h>

#include <thread>

#include "KRCB/Clients.h"
#include "Support/EmulatorFixture.h"

namespace {

using namespace krtest;

TEST(EmulatorGateThreadTest, ABlockedCallWaitsUntilReleased) {
    EmulatedService service;
    auto client = KRCB::Management::ResourceManagerClientFactory::Create(kServer, "anna", "rt-anna",
                                                                         false, false);
    auto gate = service->BlockNext(Emulator::Op::kGetProjectState);
    std::atomic<int> state{-1};
    std::thread caller([&] { state = client->GetProjectState(kProjectId); });

    ASSERT_TRUE(gate->WaitUntilReached(10000));
    EXPECT_EQ(service->CallCount(Emulator::Op::kGetProjectState), 1);
    // The held call keeps no lock: the test changes state and others call.
    service->SetProjectState(kServer, kProjectPath, 2);
    auto other = KRCB::Management::ResourceManagerClientFactory::Create(kServer, "bert", "rt-bert",
                                                                        false, false);
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
        auto client = KRCB::Management::ResourceManagerClientFactory::Create(
            kServer, "anna", "rt-anna", false, false);
        caller = std::thread([client] {
            try {
                client->GetCurrentUserId();
            } catch (const ZR::ZRException&) {
            }
        });
        ASSERT_TRUE(gate->WaitUntilReached(10000));
    }
    // The service went with the call still held: it was let go, not left hanging.
    caller.join();
}

}  // namespace
