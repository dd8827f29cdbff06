#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <regex>

#include "KRClient/ConnectionFixture.h"
#include "ZR/Internal/TestClock.h"

namespace {

using KRC::ProjectConnectionBase;
using KRC::ReadProjectConnection;
using KRC::WriteProjectConnection;
using krtest::kProjectPath;
using krtest::kServer;
using krtest::Result;
using Kind = Emulator::FaultKind;

class ConnectionCheckTest : public krtest::ConnectionTest {};

// Moves the clock while the check writes the record: a step as slow as asked.
class SlowWrite : public KRC::CachedProjectInfoObserver {
public:
    explicit SlowWrite(std::int64_t ms) : ms(ms) { KRC::cachedProjectInfoObserver.Attach(*this); }
    ~SlowWrite() override { KRC::cachedProjectInfoObserver.Detach(*this); }
    void ContentWrittenToDisc(const KRC::CachedProjectInfo*) override {
        ZR::Internal::AdvanceCurrentTimeMillisForTesting(ms);
    }

private:
    std::int64_t ms;
};

TEST_F(ConnectionCheckTest, FirstOpeningGoesOnlineFillsTheRecordOnceAndSetsPresence) {
    auto manager = Manager();
    krtest::EventRecorder writes;
    ReadProjectConnection connection(manager.get(), true);

    EXPECT_TRUE(connection.IsOpen(nullptr));
    const KRC::CachedProjectInfo& record = Record(*manager);
    EXPECT_EQ(record.GetSessionId(), SessionOf());
    EXPECT_EQ(record.GetProjectId(), krtest::kProjectId);
    EXPECT_EQ(record.GetUserId(), krtest::kAnnaId);
    EXPECT_EQ(record.GetModelServerPath(), "/ms/one");
    EXPECT_EQ(record.GetPermissions().GetSize(), 3u);
    EXPECT_TRUE(record.IsComplete());
    EXPECT_EQ(manager->GetUserAttributes()->GetShortUserId(), record.GetLogonId());
    EXPECT_EQ(Presence(), 3);
    EXPECT_TRUE(InternalSignals().empty());
    EXPECT_TRUE(Logged("KRC::ProjectConnection created"));
    EXPECT_TRUE(Logged("KRC::ProjectConnection::Check started"));
    EXPECT_TRUE(Logged("KRC::ProjectConnection::Check ended: result=0"));
    EXPECT_FALSE(Logged("details"));

    // Nothing changed: a later check, of this or a new connection, writes nothing.
    EXPECT_EQ(ProjectConnectionBase::Check(&connection, true, false),
              ProjectConnectionBase::CheckOnline);
    EXPECT_EQ(WriteProjectConnection(manager.get(), true).GetCheckResult(), Result::CheckOnline);
    EXPECT_EQ(writes.writes, 1);
    EXPECT_EQ(service->GetSessions(kServer, kProjectPath).size(), 1u);
}

// Each exception the steps can raise, thrown from the last step. Which
// exception a fault kind raises is the emulator's test; the copy keeps its
// class (see the last test).
TEST_F(ConnectionCheckTest, ExceptionsAreSortedIntoResultsSignalsPresenceAndCopies) {
    struct Row {
        Emulator::Fault fault;
        Result result;
        int signal;  // 0: none
        bool logged, copied;
        int presence;
        const char* text = "";
    };
    using R = Result;
    const Emulator::Fault server{Kind::IncompatibleModelServerVersion, "versions", 2, 1, 1, 0};
    const Emulator::Fault project{Kind::IncompatibleProjectVersion, "versions", 3, 4};
    const char* serverText = "Incompatible model server version: server 2.1, client 1.0";
    const Row rows[] = {
        {{Kind::SessionRequired}, R::CheckNoSession, 14, true, true, 1},
        {{Kind::CreateSessionFailed}, R::CheckNoSession, 14, true, true, 1},
        {{Kind::EntityNotFound}, R::CheckProjectNotFound, 15, true, true, 2},
        {{Kind::PortalServerClient}, R::CheckOffline, 0, true, true, 2},
        {server, R::CheckIncompatibleServer, 19, false, true, 2, serverText},
        {project, R::CheckIncompatibleProject, 22, false, true, 2, "3.4.0/4"},
        {{Kind::ZRException}, R::CheckOffline, 0, true, true, 2},
        {{Kind::Foreign}, R::CheckOffline, 0, false, false, 2},
    };
    auto manager = Manager();
    for (const Row& row : rows) {
        SCOPED_TRACE(static_cast<int>(row.fault.kind));
        ReadProjectConnection connection(manager.get(), false);
        ClearPresence();
        service->ClearSignals();
        log.Clear();
        service->FailNext(Emulator::Op::kGetProjectState, row.fault);

        ZR::Ref<ZR::ZRException, ZR::Counter> copy;
        EXPECT_EQ(ProjectConnectionBase::Check(&connection, copy, true, false), row.result);
        EXPECT_EQ(static_cast<bool>(copy), row.copied);
        std::vector<std::pair<int, std::string>> expected;
        if (row.signal) expected.emplace_back(row.signal, row.text);
        EXPECT_EQ(InternalSignals(), expected);
        EXPECT_EQ(connection.CheckErrorSignalSent(), row.signal != 0);
        EXPECT_EQ(Logged("KRC::ProjectConnection::Check exception occurred:"), row.logged);
        EXPECT_EQ(Presence(), row.presence);
        EXPECT_TRUE(Logged("Check ended: result=" + std::to_string(static_cast<int>(row.result))));
    }

    // Without signals the missing session is "check failed", not "told".
    ReadProjectConnection quiet(manager.get(), false);
    ClearPresence();
    service->ClearSignals();
    service->FailNext(Emulator::Op::kGetProjectState, {Kind::SessionRequired});
    EXPECT_EQ(ProjectConnectionBase::Check(&quiet, false, false), Result::CheckNoSession);
    EXPECT_TRUE(InternalSignals().empty());
    EXPECT_EQ(Presence(), 2);
}

TEST_F(ConnectionCheckTest, DetailsListStepsUpToTheFirstNotTakenAndASlowCheckInFull) {
    // The details lines of steps 1 to last, those up to taken executed.
    auto details = [](int last, int taken) {
        std::string text = "Check details:";
        for (int i = 1; i <= last; ++i)
            text += "\n\tstep" + std::to_string(i) +
                    (i <= taken ? ": executed: 1, execution time=(\\d+) ms"
                                : ": executed: 0, execution time=0 ms");
        return std::regex(text + "\n");
    };
    auto manager = Manager();
    service->FailNext(Emulator::Op::kGetSessions, {Kind::ZRException});
    ReadProjectConnection failed(manager.get(), true);
    EXPECT_EQ(failed.GetCheckResult(), Result::CheckOffline);
    EXPECT_TRUE(std::regex_search(log.GetText(), details(4, 3))) << log.GetText();
    EXPECT_FALSE(Logged("step5"));

    // A check that succeeds writes details only when it took more than
    // 10,000 ms; the first opening of a project writes its record, slowly.
    for (int ms : {9000, 11000}) {
        const std::string path = "/Projects/P" + std::to_string(ms);
        service->AddProject(kServer, krtest::ProjectAt(path, "ms-1", {{"anna", {"ReadProject"}}}));
        auto other = Manager(true, "anna", "rt-anna", path);
        ClearPresence();
        log.Clear();
        {
            SlowWrite slow(ms);
            ReadProjectConnection connection(other.get(), true);
            EXPECT_EQ(connection.GetCheckResult(), Result::CheckOnline);
        }
        std::smatch match;
        const std::string text = log.GetText();
        EXPECT_EQ(std::regex_search(text, match, details(6, 6)), ms > 10000) << text;
        if (ms > 10000) {
            EXPECT_GE(std::stoi(match[5]), ms);
        }
    }
}

TEST_F(ConnectionCheckTest, PresenceStopsAnImplicitCheckWithoutStoringItsAnswer) {
    auto manager = Manager();
    for (int presence : {1, 2}) {
        manager->GetSignalClient()->SetPresenceState(presence);
        service->ResetCounts();
        log.Clear();
        // The constructor's check meets the gate: the connection stands unchecked.
        ReadProjectConnection connection(manager.get(), true);
        Result result = Result::CheckOnline;
        EXPECT_FALSE(connection.IsOpen(&result));
        EXPECT_EQ(result, Result::CheckNotChecked);
        EXPECT_TRUE(Logged("Check return Offline about presenceState."));
        EXPECT_EQ(service->ServerCallCount(), 0);

        // An explicit check isn't stopped, and then IsOpen reports it.
        EXPECT_EQ(ProjectConnectionBase::Check(&connection, true, false), Result::CheckOnline);
        EXPECT_TRUE(connection.IsOpen(&result));
    }
}

TEST_F(ConnectionCheckTest, ASecondaryConnectionSendsNoSignalsAndLeavesPresence) {
    auto manager = Manager(false);
    service->FailNext(Emulator::Op::kGetProjectState, {Kind::SessionRequired});
    ReadProjectConnection connection(manager.get(), true);
    EXPECT_TRUE(Logged("Secondary KRC::ProjectConnection created"));
    EXPECT_EQ(connection.GetCheckResult(), Result::CheckNoSession);
    EXPECT_FALSE(connection.SendSignal(1));
    EXPECT_TRUE(service->GetSignals().empty());
    EXPECT_EQ(Presence(), 0);
}

// In turn: states 2 and 3, then moved, replaced by a new id, deleted.
TEST_F(ConnectionCheckTest, ProjectStatesMovesAndDeletesGiveTheirResultSignalAndPresence) {
    auto manager = Manager();
    ASSERT_EQ(ReadProjectConnection(manager.get(), true).GetCheckResult(), Result::CheckOnline);
    struct Row {
        std::function<void()> change;
        bool write;
        Result result;
        int signal, presence;  // not writable leaves presence alone
    };
    auto state = [&](int s) {
        return [&, s] { service->SetProjectState(kServer, kProjectPath, s); };
    };
    const Row rows[] = {
        {state(2), false, Result::CheckOnline, 0, 3},
        {[] {}, true, Result::CheckProjectNotWritable, 17, 0},
        {state(3), false, Result::CheckProjectStateRefused, 18, 2},
        // Renamed: not found by its path, but its id lives on under another.
        {[&] {
             service->SetProjectState(kServer, kProjectPath, 0);
             service->MoveProject(kServer, kProjectPath, "/Projects/Home");
         },
         false, Result::CheckOffline, 16, 2},
        // Another project of a new id at the path isn't the cached one.
        {[&] {
             service->MoveProject(kServer, "/Projects/Home", kProjectPath);
             service->ReplaceProject(kServer, kProjectPath);
         },
         false, Result::CheckProjectNotFound, 15, 2},
        {[&] { service->DeleteProject(kServer, kProjectPath); }, false,
         Result::CheckProjectNotFound, 15, 2},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(static_cast<int>(&row - rows));
        row.change();
        ClearPresence();
        service->ClearSignals();
        std::unique_ptr<ProjectConnectionBase> connection;
        if (row.write)
            connection = std::make_unique<WriteProjectConnection>(manager.get(), true);
        else
            connection = std::make_unique<ReadProjectConnection>(manager.get(), true);
        EXPECT_EQ(connection->GetCheckResult(), row.result);
        std::vector<std::pair<int, std::string>> expected;
        if (row.signal) expected.emplace_back(row.signal, "");
        EXPECT_EQ(InternalSignals(), expected);
        EXPECT_EQ(Presence(), row.presence);
    }
    EXPECT_TRUE(
        Logged("KRC::ProjectConnection::Check project path changed: project id: "
               "prj-house, old path: /Projects/House, new path: /Projects/Home"));
    EXPECT_EQ(Record(*manager).GetProjectId(), krtest::kProjectId);
}

TEST_F(ConnectionCheckTest, SendSignalIsPlainAndAConnectionWithoutManagerIsOffline) {
    auto manager = Manager();
    ReadProjectConnection connection(manager.get(), false);
    // ReceiveSession posts nothing; a plain signal still goes.
    EXPECT_TRUE(ProjectConnectionBase::ReceiveSession(&connection, false));
    EXPECT_TRUE(connection.SendSignal(7));
    const auto signals = service->GetSignals();
    ASSERT_EQ(signals.size(), 1u);
    EXPECT_FALSE(signals[0].internal);
    EXPECT_EQ(signals[0].id, 7);

    service->ResetCounts();
    ReadProjectConnection none(nullptr, true);
    EXPECT_FALSE(none.IsOpen(nullptr));
    EXPECT_FALSE(none.SendSignal(7));
    ZR::Ref<ZR::ZRException, ZR::Counter> copy;
    EXPECT_EQ(
        ProjectConnectionBase::Check(static_cast<KRCB::ProjectConnectionManagerInterface*>(nullptr),
                                     copy, true, false),
        Result::CheckOffline);
    EXPECT_FALSE(copy);
    EXPECT_EQ(service->ServerCallCount(), 0);

    // The forms on a manager check a temporary connection.
    EXPECT_EQ(ProjectConnectionBase::Check(manager.get(), copy, true, false), Result::CheckOnline);
    service->SetServerDown(kServer, true);
    EXPECT_EQ(ProjectConnectionBase::Check(manager.get(), copy, true, false), Result::CheckOffline);
    ASSERT_TRUE(copy);
    EXPECT_EQ(copy->GetName(), "ConnectionFailedException");
}

}  // namespace
