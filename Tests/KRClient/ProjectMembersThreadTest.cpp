// Project members across the three threads that meet in them: the host's
// (the message loop), the emulator's push thread (signals) and the fetch
// thread. Nothing here sleeps: waits are latches, gates and the loop pump.

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "KRClient/ConnectionFixture.h"
#include "KRClient/ProjectConnectionProvider.h"
#include "KRClient/ProjectMembers.h"
#include "ZR/MessageLoop.h"
#include "ZR/Thread.h"

namespace krtest {
namespace {

using Emulator::Fault;
using Emulator::FaultKind;
namespace Op = Emulator::Op;

constexpr int kWaitMs = 10000;

// Counts notifications and checks they come on the loop's thread with
// tables that agree with one another.
class Recorder : public KRC::ProjectMembersObserver {
public:
    explicit Recorder(const KRC::ProjectMembers& members) : members(members) {}
    ~Recorder() override { DetachFromSources(); }
    void ProjectMembersContentChanged() override {
        if (!ZR::MessageLoop::IsLoopThread()) offLoop = true;
        if (members.GetUserDataTable().GetSize() != members.GetLoginNameTable().GetSize())
            torn = true;
        ++calls;
    }
    const KRC::ProjectMembers& members;
    std::atomic<int> calls{0};
    bool offLoop = false;
    bool torn = false;
};

class ProjectMembersThreadTest : public ConnectionTest {
protected:
    void SetUp() override {
        ConnectionTest::SetUp();
        service->AddMember(kServer, kProjectPath, {"anna", 1});
        service->AddMember(kServer, kProjectPath, {"bert", 2});
        Emulator::UserSpec carla;
        carla.login = "carla";
        carla.fullName = "Carla Diaz";
        service->AddUser(kServer, carla);
        service->SetPermissions(kServer, kProjectPath, "carla", {"ReadProject"});
        manager = Manager();
        connection = ZR::Ref<KRC::ReadProjectConnection>(
            new KRC::ReadProjectConnection(manager.get(), true));
        ASSERT_EQ(connection->GetCheckResult(), Result::CheckOnline);
        provider = std::make_unique<KRC::ConnectionManagerBasedConnectionProvider>(manager.get());
        members = std::make_unique<KRC::ProjectMembers>(*manager->GetSignalClient(), manager.get(),
                                                        provider.get());
        recorder = std::make_unique<Recorder>(*members);
        members->Attach(*recorder);
        service->ResetCounts();
    }
    void TearDown() override {
        if (members) members->Stop();
        recorder.reset();
        members.reset();
        connection.Reset();
        manager.reset();
        ConnectionTest::TearDown();
    }
    // Pumps the loop until the observers heard n notifications in all.
    bool PumpUntilCalls(int n) {
        return ZR::MessageLoop::RunUntil([&] { return recorder->calls >= n; }, kWaitMs);
    }
    std::string FullName(short id) const {
        ZR::UniString name;
        members->GetFullNameFromId(id, name);
        return name.Std();
    }
    // The user's id, -1 for none.
    static short IdOf(const KRC::ProjectMembers& of, const char* login) {
        short id = -1;
        if (of.GetUserIdFromLoginName(login, id)) return id;
        EXPECT_EQ(id, 0) << "a miss clears the id";
        return -1;
    }

    std::unique_ptr<KRC::ClientProjectConnectionManager> manager;
    ZR::Ref<KRC::ReadProjectConnection> connection;
    std::unique_ptr<KRC::ConnectionManagerBasedConnectionProvider> provider;
    std::unique_ptr<KRC::ProjectMembers> members;
    std::unique_ptr<Recorder> recorder;
};

TEST_F(ProjectMembersThreadTest, RefreshFillsTablesOnTheLoopAndLaterAsksOnlyForNewUsers) {
    ZR::MessageLoop::Scope loop;
    members->Init();
    ASSERT_TRUE(PumpUntilCalls(1));
    EXPECT_FALSE(recorder->offLoop);
    EXPECT_EQ(members->GetUserDataTable().GetSize(), 2u);
    EXPECT_EQ(FullName(1), "Anna Berg");
    EXPECT_EQ(IdOf(*members, "bert"), 2);
    const KRCB::UserAttributes* attributes = nullptr;
    ASSERT_TRUE(members->GetUserAttributesFromId(1, &attributes));
    EXPECT_EQ(attributes->GetPermissions().GetSize(), 3u);
    EXPECT_EQ(service->CallCount(Op::kGetUsersByIds), 1);
    EXPECT_EQ(service->CallCount(Op::kGetUserPermissions), 2);

    // A new member: the server's signal reaches the worker on the push
    // thread, and only the new user is fetched. A known member's new name
    // is not noticed.
    service->SetUserFullName(kServer, "anna", "Anna Renamed");
    service->AddMember(kServer, kProjectPath, {"carla", 3});
    ASSERT_TRUE(PumpUntilCalls(2));
    EXPECT_TRUE(members->IsMember("carla"));
    EXPECT_EQ(FullName(3), "Carla Diaz");
    EXPECT_EQ(FullName(1), "Anna Berg");
    EXPECT_EQ(service->CallCount(Op::kGetUsersByIds), 2);
    EXPECT_EQ(service->CallCount(Op::kGetUserPermissions), 3);

    // A member leaves; nothing is fetched but the list.
    service->RemoveMember(kServer, kProjectPath, "bert");
    ASSERT_TRUE(PumpUntilCalls(3));
    EXPECT_FALSE(members->UserIdExists(2));
    EXPECT_EQ(service->CallCount(Op::kGetUsersByIds), 2);

    // A project without members: the tables are emptied and the observers told.
    service->SetMemberSignals(false);
    service->RemoveMember(kServer, kProjectPath, "anna");
    service->RemoveMember(kServer, kProjectPath, "carla");
    members->Init();
    ASSERT_TRUE(PumpUntilCalls(4));
    EXPECT_EQ(members->GetLoginNameTable().GetSize(), 0u);
    EXPECT_FALSE(recorder->offLoop);
    EXPECT_FALSE(recorder->torn);
}

TEST_F(ProjectMembersThreadTest, OnlySignalOneStartsARefresh) {
    ZR::MessageLoop::Scope loop;
    for (int id : {0, 2, 10, 18}) service->SendSignal(kServer, kProjectPath, id, "");
    ASSERT_TRUE(service->WaitForPushes(kWaitMs));
    service->SendSignal(kServer, kProjectPath, 1, "");
    // The connection check the signal asks for waits for the host's thread.
    ASSERT_TRUE(service->WaitForPushes(kWaitMs));
    EXPECT_EQ(service->ServerCallCount(), 0);
    ASSERT_TRUE(PumpUntilCalls(1));
    EXPECT_EQ(service->CallCount(Op::kGetUsersByIds), 1);
}

TEST_F(ProjectMembersThreadTest, AFailedPermissionQuerySkipsThatUserUntilTheNextRefresh) {
    ZR::MessageLoop::Scope loop;
    service->FailNth(Op::kGetUserPermissions, 2, Fault{FaultKind::ZRException});
    members->Init();
    ASSERT_TRUE(PumpUntilCalls(1));
    EXPECT_TRUE(members->IsMember("anna"));
    EXPECT_FALSE(members->IsMember("bert"));

    members->Init();
    ASSERT_TRUE(PumpUntilCalls(2));
    EXPECT_TRUE(members->IsMember("bert"));
    EXPECT_EQ(service->CallCount(Op::kGetUserPermissions), 3);
}

// Each failure ends the fetch without a notification and leaves the tables;
// the refresh queued behind it runs on. The fetch's typed catches all end it
// alike: one typed row, the general one, a foreign exception, and the
// per-user failure that ends the fetch. Each row brings a user never seen, so
// that the user queries happen.
TEST_F(ProjectMembersThreadTest, FailuresEndTheFetchQuietly) {
    ZR::MessageLoop::Scope loop;
    service->SetMemberSignals(false);
    const struct {
        const char* op;
        FaultKind kind;
    } rows[] = {{Op::kGetProjectMembers, FaultKind::ConnectionFailed},
                {Op::kGetProjectMembers, FaultKind::ZRException},
                {Op::kGetProjectMembers, FaultKind::Foreign},
                {Op::kGetUsersByIds, FaultKind::ZRException},
                {Op::kGetUserPermissions, FaultKind::InterruptedIO}};
    int expected = 0;
    short userId = 10;
    for (const auto& row : rows) {
        const std::string login = "user" + std::to_string(userId);
        SCOPED_TRACE(row.op + std::string(" for ") + login);
        Emulator::UserSpec user;
        user.login = login;
        user.id = "id-" + login;
        service->AddUser(kServer, user);
        service->AddMember(kServer, kProjectPath, {login, userId++});
        const int before = service->CallCount(row.op);
        service->FailNext(row.op, Fault{row.kind});
        members->Init();  // fails
        members->Init();  // runs after it on the one thread
        ASSERT_TRUE(PumpUntilCalls(++expected));
        EXPECT_EQ(recorder->calls, expected);
        EXPECT_EQ(service->CallCount(row.op), before + 2);
    }
}

TEST_F(ProjectMembersThreadTest, ForcedOfflineOrSecondaryMakesInitDoNothing) {
    ZR::MessageLoop::Scope loop;
    service->SetForcedOffline(kServer, "anna", true);
    members->Init();
    service->SetForcedOffline(kServer, "anna", false);
    members->Init();
    ASSERT_TRUE(PumpUntilCalls(1));
    EXPECT_EQ(service->CallCount(Op::kGetProjectMembers), 1);

    auto secondary = Manager(false);
    KRC::ProjectMembers other(*manager->GetSignalClient(), secondary.get(), provider.get());
    other.Init();
    other.Stop();
    members->Init();
    ASSERT_TRUE(PumpUntilCalls(2));
    EXPECT_EQ(service->CallCount(Op::kGetProjectMembers), 2);

    members->Stop();
    members->Init();  // canceled: nothing queued
    EXPECT_EQ(service->CallCount(Op::kGetProjectMembers), 2);
}

// Stop, or the end of the object, while a fetch is held at the server or its
// notifier waits on the loop: nothing of it reaches the tables or observers,
// and a refresh queued behind it is dropped.
TEST_F(ProjectMembersThreadTest, StopOrDestructionMidwayLetsNothingThrough) {
    const struct {
        const char* held;  // null: the fetch ran, its notifier is on the loop
        int inits;
        bool destroy;
    } rows[] = {{Op::kGetUsersByIds, 1, false},
                {nullptr, 1, false},
                {Op::kGetProjectMembers, 2, true},
                {nullptr, 1, true}};
    for (const auto& row : rows) {
        SCOPED_TRACE(std::string(row.held ? row.held : "posted") +
                     (row.destroy ? " destroyed" : ""));
        recorder.reset();
        members = std::make_unique<KRC::ProjectMembers>(*manager->GetSignalClient(), manager.get(),
                                                        provider.get());
        recorder = std::make_unique<Recorder>(*members);
        members->Attach(*recorder);
        service->ResetCounts();
        ZR::Latch posted(1);
        ZR::MessageLoop::Scope loop([&] { posted.CountDown(); });
        std::shared_ptr<Emulator::Gate> gate;
        if (row.held) gate = service->BlockNext(row.held);
        for (int i = 0; i < row.inits; ++i) members->Init();
        ASSERT_TRUE(gate ? gate->WaitUntilReached(kWaitMs) : posted.WaitFor(kWaitMs));
        if (row.destroy)
            members.reset();  // the queued task is dropped, the running one interrupted
        else
            members->Stop();
        if (gate) gate->Release();
        ZR::MessageLoop::RunPending();
        EXPECT_EQ(recorder->calls, 0);
        EXPECT_EQ(members ? members->GetUserDataTable().GetSize() : 0u, 0u);
        EXPECT_EQ(service->CallCount(Op::kGetProjectMembers), 1);
    }
}

TEST_F(ProjectMembersThreadTest, SignalsRacingStopNeverReachTheTablesAfterIt) {
    ZR::MessageLoop::Scope loop;
    members->Init();
    ASSERT_TRUE(PumpUntilCalls(1));
    std::thread server([this] {
        for (int i = 0; i < 20; ++i) service->SendSignal(kServer, kProjectPath, 1, "");
    });
    ZR::MessageLoop::RunUntil([&] { return recorder->calls >= 2; }, kWaitMs);
    members->Stop();
    const int atStop = recorder->calls;
    server.join();
    ASSERT_TRUE(service->WaitForPushes(kWaitMs));
    ZR::MessageLoop::RunPending();
    EXPECT_EQ(recorder->calls, atStop);
    EXPECT_EQ(members->GetUserDataTable().GetSize(), 2u);  // the tables stay
}

TEST_F(ProjectMembersThreadTest, HostReadsWhileRefreshesArrive) {
    ZR::MessageLoop::Scope loop;
    members->Init();
    ASSERT_TRUE(PumpUntilCalls(1));
    std::thread server([this] {
        for (int i = 0; i < 10; ++i) {
            service->AddMember(kServer, kProjectPath, {"carla", 3});
            service->RemoveMember(kServer, kProjectPath, "carla");
        }
        service->AddMember(kServer, kProjectPath, {"carla", 3});
    });
    // Reads between tasks: every notification leaves whole tables.
    ZR::MessageLoop::RunUntil(
        [&] {
            ZR::UniString name;
            members->GetLoginNameFromId(3, name);
            return name == "carla" && service->GetMembers(kServer, kProjectPath).size() == 3 &&
                   members->GetUserDataTable().GetSize() == 3;
        },
        kWaitMs);
    server.join();
    EXPECT_FALSE(recorder->torn);
    EXPECT_FALSE(recorder->offLoop);
    EXPECT_TRUE(members->IsMember("carla"));
}

using ProjectMembersTablesTest = ProjectMembersThreadTest;

ZR::CountedPtr<ZR::PagedArray<KRC::UserInfo>, ZR::AtomicCounter> TwoMembers() {
    auto list = ZR::CountedPtr<ZR::PagedArray<KRC::UserInfo>, ZR::AtomicCounter>::Make();
    auto user = [](const char* id, const char* name, const char* guid, Gfx::Color color) {
        return ZR::Ref<KRCB::Management::Entities::User, ZR::AtomicCounter>(
            new KRCB::Management::Entities::User(id, "", name, guid, color, false));
    };
    // The guid fields differ from the ids: the ids' guids are the members'.
    list->Add(KRC::UserInfo(user("0a1b2c3d-0000-4000-8000-00000000000a", "Anna",
                                 "0a1b2c3d-0000-4000-8000-000000000001", Gfx::Color(1, 2, 3, 4)),
                            7, "anna", {101, 102}));
    list->Add(KRC::UserInfo(user("0a1b2c3d-0000-4000-8000-00000000000b", "Bert",
                                 "0a1b2c3d-0000-4000-8000-000000000002", Gfx::Color(9, 8, 7)),
                            9, "bert", {}));
    // A second entry under a standing id: its data and attributes are left
    // out. Its id is no GUID text: the null guid.
    list->Add(KRC::UserInfo(
        user("u-c", "Cleo", "0a1b2c3d-0000-4000-8000-000000000003", Gfx::Color()), 7, "cleo", {}));
    return list;
}

TEST_F(ProjectMembersTablesTest, WriteAndReadKeepEveryTable) {
    members->RefreshProjectMembers(TwoMembers());
    members->GetUserDataTable().Find(9)[0]->SetNormalSession(true);
    EXPECT_EQ(members->GetUserDataTable().GetSize(), 2u);
    ZR::MemoryOChannel32 out;
    ASSERT_EQ(members->Write(out), 0);

    KRC::ProjectMembers copy(*manager->GetSignalClient(), manager.get(), provider.get());
    ZR::MemoryIChannel in(out.GetBytes());
    ASSERT_EQ(copy.Read(in), 0);
    EXPECT_EQ(in.GetRemaining(), 0u);
    ZR::MemoryOChannel32 again;
    ASSERT_EQ(copy.Write(again), 0);
    EXPECT_EQ(again.GetBytes(), out.GetBytes());
    EXPECT_TRUE(copy.GetUserDataTable().Find(9)[0]->HasNormalSession());
    const KRCB::UserAttributes* attributes = nullptr;
    ASSERT_TRUE(copy.GetUserAttributesFromId(7, &attributes));
    EXPECT_TRUE(attributes->HasPermission(102));
    // The second entry under 7 kept anna's data; its name and guid still went in.
    EXPECT_EQ(IdOf(copy, "cleo"), 7);
    EXPECT_EQ(copy.GetUserDataTable().Find(7)[0]->GetLoginName(), "anna");
    EXPECT_EQ(IdOf(copy, "nobody"), -1);
    const struct {
        const char* guid;
        bool found;
        short id;
    } byGuid[] = {{"0a1b2c3d-0000-4000-8000-00000000000b", true, 9},
                  {"00000000-0000-0000-0000-000000000000", true, 7},    // cleo's
                  {"0a1b2c3d-0000-4000-8000-000000000001", false, 0}};  // a guid field
    for (const auto& row : byGuid) {
        ZR::Guid guid;
        ASSERT_TRUE(ZR::Guid::Parse(row.guid, &guid));
        short id = -1;
        EXPECT_EQ(copy.GetUserIdFromGuid(guid, id), row.found) << row.guid;
        EXPECT_EQ(id, row.id) << row.guid;
    }

    // Misses clear their outputs.
    ZR::UniString name = "stale";
    EXPECT_FALSE(copy.GetFullNameFromId(3, name));
    EXPECT_TRUE(name.IsEmpty());
    ZR::Guid guid;
    ASSERT_TRUE(copy.GetUserGuidFromId(7, guid));
    EXPECT_FALSE(copy.GetUserGuidFromId(3, guid));
    EXPECT_TRUE(guid.IsNull());
}

TEST_F(ProjectMembersTablesTest, ReadFailuresClearTheTablesAndAllocateNothingLarge) {
    members->RefreshProjectMembers(TwoMembers());
    ZR::MemoryOChannel32 out;
    ASSERT_EQ(members->Write(out), 0);

    KRC::ProjectMembers target(*manager->GetSignalClient(), manager.get(), provider.get());
    target.RefreshProjectMembers(TwoMembers());
    ZR::MemoryIChannel empty(nullptr, 0);
    EXPECT_EQ(target.Read(empty), ZR::kErrEndOfData);
    EXPECT_EQ(target.GetUserDataTable().GetSize(), 0u);  // cleared all the same

    // A count larger than the input can hold is refused before any entry.
    const unsigned char hostile[] = {0xff, 0xff, 0xff, 0xff, 0, 0};
    ZR::MemoryIChannel huge(hostile, sizeof hostile);
    EXPECT_EQ(target.Read(huge), ZR::kErrTooLarge);

    // Cut short in the user data: what was read before stays.
    std::vector<unsigned char> cut(out.GetBytes().begin(), out.GetBytes().end() - 3);
    ZR::MemoryIChannel truncated(cut);
    EXPECT_NE(target.Read(truncated), 0);
    EXPECT_TRUE(target.IsMember("anna"));
    const KRCB::UserAttributes* attributes = nullptr;
    EXPECT_TRUE(target.GetUserAttributesFromId(9, &attributes));
    EXPECT_FALSE(target.UserIdExists(9));
}

}  // namespace
}  // namespace krtest
