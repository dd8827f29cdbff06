// The emulator's scripting: faults and the exception each kind gives, counts,
// the seed, and the checks of what a test adds; and its own threads: the
// server's pushes reach signal clients on them, filtered by the observer,
// while clients come and go, and a call held at a gate waits for the test
// while the emulator serves others.

#include <gtest/gtest.h>

#include <atomic>
#include <fstream>
#include <functional>
#include <memory>
#include <mutex>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "KRCB/Clients.h"
#include "KRCB/SignalClient.h"
#include "KRCB/TransportNames.h"
#include "Kerrow/Exceptions.h"
#include "Support/EmulatorFixture.h"

namespace {

using namespace krtest;
using Emulator::FaultKind;
namespace PS = Kerrow::PortalServer::Client;

Emulator::UserSpec User(const std::string& login, const std::string& color = "#808080ff") {
    Emulator::UserSpec user;
    user.login = login;
    user.color = color;
    return user;
}

Emulator::ProjectSpec Project(const std::string& path, const std::string& modelServer = "") {
    Emulator::ProjectSpec project;
    project.path = path;
    project.modelServer = modelServer;
    return project;
}

Emulator::SessionSpec Session(const std::string& user, const std::string& id = "") {
    return {id, user, {}};
}

// The class of what the call threw.
std::string Caught(const std::function<void()>& call) {
    try {
        call();
        return "nothing";
    } catch (const ZR::ZRException& e) {
        return e.GetName().Std();
    } catch (const std::exception& e) {
        return std::string("foreign ") + e.what();
    }
}

TEST(EmulatorFaults, EachKindThrowsItsException) {
    const std::pair<FaultKind, const char*> rows[] = {
        {FaultKind::SessionRequired, "SessionRequiredException"},
        {FaultKind::CreateSessionFailed, "CreateSessionFailedException"},
        {FaultKind::EntityNotFound, "EntityNotFoundException"},
        {FaultKind::PortalServerClient, "PortalServerClientException"},
        {FaultKind::ConnectionFailed, "ConnectionFailedException"},
        {FaultKind::IncompatibleModelServerVersion, "IncompatibleModelServerVersionException"},
        {FaultKind::IncompatibleProjectVersion, "IncompatibleProjectVersionException"},
        {FaultKind::SessionExists, "ProjectManagerClientSessionExistsException"},
        {FaultKind::ZRException, "ZRException"},
        {FaultKind::Foreign, "foreign scripted"},
    };
    EmulatedService service;
    auto client = LogInTo();
    for (const auto& [kind, expected] : rows) {
        service->FailNext(Emulator::Op::kGetProjectState, {kind, "scripted", 2, 7, 1, 0});
        EXPECT_EQ(Caught([&] { client->GetProjectState(kProjectId); }), expected);
        EXPECT_EQ(Caught([&] { client->GetProjectState(kProjectId); }), "nothing");
    }
}

TEST(EmulatorFaults, NthAlwaysAndClearCountFailedCallsToo) {
    EmulatedService service;
    auto client = LogInTo();
    service->ResetCounts();
    service->FailNth(Emulator::Op::kGetProjectState, 3, {FaultKind::EntityNotFound});
    service->FailNext(Emulator::Op::kGetProjectState, {FaultKind::ZRException, "first"});
    auto states = [&] { return Caught([&] { client->GetProjectState(kProjectId); }); };
    auto userId = [&] { return Caught([&] { client->GetCurrentUserId(); }); };
    for (const char* expected : {"ZRException", "nothing", "EntityNotFoundException", "nothing"})
        EXPECT_EQ(states(), expected);
    // Faults are by operation: another one goes through.
    service->FailAlways(Emulator::Op::kGetCurrentUserId, {FaultKind::PortalServerClient});
    EXPECT_EQ(Caught([&] { client->GetProjectIdByPath(kProjectPath); }), "nothing");
    EXPECT_EQ(userId(), "PortalServerClientException");
    EXPECT_EQ(userId(), "PortalServerClientException");
    service->ClearFaults();
    EXPECT_EQ(userId(), "nothing");
    EXPECT_EQ(service->CallCount(Emulator::Op::kGetProjectState), 4);
    EXPECT_EQ(service->ServerCallCount(), 8);
    EXPECT_THROW(service->FailNth(Emulator::Op::kLogin, 0, {}), std::invalid_argument);
}

TEST(EmulatorFaults, AnIncompatibleModelServerRefusesTheProjectClient) {
    EmulatedService service;
    service->AddModelServer(kServer, {"ms-2", "/ms/two", 2, 4});
    std::string id = service->AddProject(kServer, Project("/Projects/Barn", "ms-2"));
    EXPECT_EQ(Caught([&] { LogInTo()->GetProjectClient(ZR::UniString(id)); }),
              "IncompatibleModelServerVersionException");
}

TEST(EmulatorState, IdsAndTimesFollowTheSeed) {
    auto ids = [](std::uint64_t seed) {
        auto service = MakeStandardService(seed);
        std::vector<std::string> out;
        out.push_back(service->AddUser(kServer, User("carl")));
        out.push_back(service->FindUser(kServer, "carl")->refreshToken);
        out.push_back(service->FindUser(kServer, "carl")->guid);
        out.push_back(service->AddProject(kServer, Project("/Projects/Barn")));
        out.push_back(service->AddSession(kServer, "/Projects/Barn", Session("carl")));
        service->Install();
        KRCB::SignalClient signals(kServer, "carl", ZR::UniString(out[1]));
        signals.SendSignal(1, "");
        out.push_back(std::to_string(service->GetSignals().at(0).time));
        out.push_back(signals.GetClientId().Std());
        service->Uninstall();
        return out;
    };
    EXPECT_EQ(ids(7), ids(7));
    std::vector<std::string> a = ids(7), b = ids(8);
    for (std::size_t i = 0; i < a.size(); ++i) EXPECT_NE(a[i], b[i]) << i;
}

TEST(EmulatorState, AdditionsThatDoNotFitAreRefused) {
    auto service = MakeStandardService();
    auto refused = [&](const std::function<void()>& add, const std::string& part) {
        try {
            add();
            ADD_FAILURE() << "accepted, expected a refusal saying " << part;
        } catch (const std::invalid_argument& e) {
            EXPECT_NE(std::string(e.what()).find(part), std::string::npos) << e.what();
        }
    };
    refused([&] { service->AddServer({kServer, "Again"}); }, "exists");
    refused([&] { service->AddUser("https://none.test", User("x")); }, "no server");
    refused([&] { service->AddUser(kServer, User("dora", "red")); }, "colour");
    refused([&] { service->AddProject(kServer, Project("/projects/house")); }, "stands");
    refused([&] { service->AddProject(kServer, Project("Barn")); }, "path");
    Emulator::ProjectSpec barn = Project("/Projects/Barn");
    barn.sessions = {Session("anna"), Session("Anna")};
    refused([&] { service->AddProject(kServer, barn); }, "has a session");
    // A refused project leaves nothing behind.
    EXPECT_EQ(service->GetProjectId(kServer, "/Projects/Barn"), "");
    Emulator::ProjectSpec members = Project("/Projects/Barn");
    members.members = {{"anna", 5}, {"bert", 5}};
    refused([&] { service->AddProject(kServer, members); }, "taken");
    refused([&] { service->SetOnline(kServer, "nobody", false); }, "no user");

    // Members from the scenario keep their ids; sessions add the rest.
    members.members = {{"bert", 5}};
    members.sessions = {Session("anna")};
    service->AddProject(kServer, members);
    EXPECT_EQ(service->GetSessions(kServer, "/Projects/Barn").at(0).user, "anna");
}

// Removals move entries in the tables; renames and replacements change keys.
// Every look-up must follow, by any spelling of a name.
TEST(EmulatorState, LookUpsFollowEveryChangeOfTheTables) {
    EmulatedService service;
    auto client = LogInTo();
    std::vector<std::string> ids, sessions;
    for (const char* path : {"/P/A", "/P/B", "/P/C"}) {
        ids.push_back(service->AddProject(kServer, Project(path)));
        sessions.push_back(service->AddSession(kServer, path, Session("bert")));
    }
    service->DeleteProject(kServer, "/p/b");
    EXPECT_EQ(client->GetProjectIdByPath("/p/c"), ZR::UniString(ids[2]));
    EXPECT_EQ(client->GetProjectState(ZR::UniString(ids[2])), 0);
    EXPECT_EQ(Caught([&] { client->GetProjectState(ZR::UniString(ids[1])); }),
              "EntityNotFoundException");
    EXPECT_THROW(service->DeleteSession(kServer, sessions[1]), std::invalid_argument);

    service->MoveProject(kServer, "/P/A", "/Q/Ä");
    EXPECT_THROW(client->GetProjectIdByPath("/P/A"), PS::EntityNotFoundException);
    EXPECT_EQ(client->GetProjectIdByPath("/Q/ä"), ZR::UniString(ids[0]));
    service->AddProject(kServer, Project("/p/A"));
    std::string replaced = service->ReplaceProject(kServer, "/P/C");
    EXPECT_EQ(Caught([&] { client->GetProjectState(ZR::UniString(ids[2])); }),
              "EntityNotFoundException");
    EXPECT_EQ(client->GetProjectIdByPath("/P/C"), ZR::UniString(replaced));
    EXPECT_THROW(service->GetSessionComputer(kServer, sessions[2]), std::invalid_argument);
    // The replaced project's session id is free again, its user may start one.
    EXPECT_EQ(service->AddSession(kServer, "/p/c", Session("BERT", sessions[2])), sessions[2]);

    // Members: the next short id is one above the highest standing.
    service->AddMember(kServer, kProjectPath, {"anna", 3});
    service->AddMember(kServer, kProjectPath, {"bert", 0});
    service->AddMember(kServer, kProjectPath, {"ANNA", 0});
    service->RemoveMember(kServer, kProjectPath, "Bert");
    service->SetMemberUser(kServer, kProjectPath, 3, "bert");
    service->AddMember(kServer, kProjectPath, {"anna", 0});
    std::vector<std::pair<std::string, int>> members;
    for (const Emulator::MemberSpec& m : service->GetMembers(kServer, kProjectPath))
        members.emplace_back(m.user, m.userId);
    EXPECT_EQ(members, (std::vector<std::pair<std::string, int>>{{"bert", 3}, {"anna", 4}}));
    EXPECT_THROW(service->AddMember(kServer, kProjectPath, {"carl", 0}), std::invalid_argument);

    // Users and servers by other spellings.
    service->AddUser(kServer, User("Ärger"));
    EXPECT_TRUE(service->FindUser("HTTPS://Portal.Test:443/", "äRGER"));
    EXPECT_FALSE(service->FindUser("http://portal.test", "anna"));
}

// docs/EMULATOR.md names exactly the operations and fault kinds of the list.
TEST(EmulatorDocs, NameTheOperationsAndFaultKindsOfTheList) {
    std::ifstream file(KRC_DOCS_DIR "/EMULATOR.md");
    ASSERT_TRUE(file) << KRC_DOCS_DIR;
    // The first cell of each table row of a section, when it is one `name`.
    std::multiset<std::string> documented[2];
    int section = -1;
    for (std::string line; std::getline(file, line);) {
        if (line.rfind("## ", 0) == 0)
            section = line == "## Operations" ? 0 : line == "## Faults" ? 1 : -1;
        if (section < 0 || line.rfind("| `", 0) != 0) continue;
        std::size_t end = line.find('`', 3);
        if (end != std::string::npos && line.find('|', end) == end + 2)
            documented[section].insert(line.substr(3, end - 3));
    }
    std::multiset<std::string> listed[2];
    for (const auto& op : KRCB::Internal::kOperations) listed[0].emplace(op.name);
    for (std::string_view kind : KRCB::Internal::kFaultKindNames) listed[1].emplace(kind);
    EXPECT_EQ(documented[0], listed[0]);
    EXPECT_EQ(documented[1], listed[1]);
}

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
