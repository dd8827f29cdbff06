#include <gtest/gtest.h>

#include "KRClient/ConnectionFixture.h"

namespace {

using KRC::ProjectConnectionBase;
using KRC::ReadProjectConnection;
using krtest::kProjectPath;
using krtest::kServer;
using krtest::Result;
using Kind = Emulator::FaultKind;
using Signals = std::vector<std::pair<int, std::string>>;

class ConnectionSessionTest : public krtest::ConnectionTest {};

TEST_F(ConnectionSessionTest, AnOpeningClaimsAnUnclaimedSessionAnExplicitCheckOnlyLooks) {
    Emulator::SessionSpec standing;
    standing.user = "anna";
    const std::string id = service->AddSession(kServer, kProjectPath, standing);
    auto manager = Manager();

    EXPECT_EQ(ProjectConnectionBase::Check(manager.get(), true, false), Result::CheckOnline);
    EXPECT_EQ(service->GetSessionComputer(kServer, id), std::nullopt);
    EXPECT_EQ(Record(*manager).GetSessionId(), id);

    ReadProjectConnection opening(manager.get(), false);
    EXPECT_TRUE(opening.IsOpen(nullptr));
    EXPECT_EQ(service->GetSessionComputer(kServer, id), "PC-1");
    // The attribute is the name's UTF-8 bytes, no closing zero.
    const auto bytes = service->GetSessionAttribute(kServer, id, "ComputerName");
    ASSERT_TRUE(bytes);
    EXPECT_EQ(std::string(bytes->begin(), bytes->end()), "PC-1");
}

TEST_F(ConnectionSessionTest, AnotherComputersSessionIsRefusedUntilItIsReceived) {
    auto first = Manager();
    ASSERT_EQ(ReadProjectConnection(first.get(), true).GetCheckResult(), Result::CheckOnline);
    ASSERT_EQ(ComputerOf(), "PC-1");

    // The same user on a second computer: names compare exactly.
    for (const char* computer : {"PC-2", "pc-1"}) {
        Network::SetClientComputerName(computer);
        ClearPresence();
        service->ClearSignals();
        auto second = Manager();
        ReadProjectConnection refused(second.get(), true);
        EXPECT_EQ(refused.GetCheckResult(), Result::CheckSessionOnOtherComputer);
        EXPECT_EQ(InternalSignals(), (Signals{{12, "PC-1"}}));
        ZR::UniString holder;
        EXPECT_TRUE(refused.GetSessionComputerAttribute(holder));
        EXPECT_EQ(holder, "PC-1");
        service->ResetCounts();
        EXPECT_TRUE(ProjectConnectionBase::IsEditConflict(&refused, krtest::kProjectId));
        EXPECT_EQ(service->ServerCallCount(), 0);
    }

    // Taking the session over writes this computer's name and tells nobody.
    Network::SetClientComputerName("PC-2");
    auto second = Manager();
    ReadProjectConnection taker(second.get(), false);
    service->ClearSignals();
    EXPECT_TRUE(ProjectConnectionBase::ReceiveSession(&taker, false));
    EXPECT_EQ(taker.GetCheckResult(), Result::CheckOnline);
    EXPECT_EQ(ComputerOf(), "PC-2");
    EXPECT_TRUE(InternalSignals().empty());

    // The first computer's next check sees that.
    Network::SetClientComputerName("PC-1");
    EXPECT_EQ(ReadProjectConnection(first.get(), true).GetCheckResult(),
              Result::CheckSessionOnOtherComputer);
    // An explicit check looks but doesn't take.
    EXPECT_EQ(ProjectConnectionBase::Check(first.get(), true, false),
              Result::CheckSessionOnOtherComputer);
    EXPECT_EQ(ComputerOf(), "PC-2");
    EXPECT_TRUE(ProjectConnectionBase::ReceiveSession(first.get(), false));
    EXPECT_EQ(ComputerOf(), "PC-1");
}

TEST_F(ConnectionSessionTest, ACachedSessionTheServerLostIsAChangeUntilReceived) {
    auto manager = Manager();
    ASSERT_EQ(ReadProjectConnection(manager.get(), true).GetCheckResult(), Result::CheckOnline);
    const std::string lost = SessionOf();
    service->DeleteSession(kServer, lost);
    service->ClearSignals();
    service->ResetCounts();
    krtest::EventRecorder writes;

    ReadProjectConnection changed(manager.get(), true);
    EXPECT_EQ(changed.GetCheckResult(), Result::CheckSessionChanged);
    EXPECT_EQ(InternalSignals(), (Signals{{13, ""}}));
    // A second login made sure the user still can; nothing was made or written.
    EXPECT_EQ(service->CallCount(Emulator::Op::kLogin), 2);
    EXPECT_EQ(service->CallCount(Emulator::Op::kCreateSession), 0);
    EXPECT_EQ(Record(*manager).GetSessionId(), lost);
    EXPECT_EQ(writes.writes, 0);

    // Taking over with the cached session ignored makes a new one and stores it.
    EXPECT_TRUE(ProjectConnectionBase::ReceiveSession(&changed, true));
    EXPECT_NE(SessionOf(), lost);
    EXPECT_EQ(Record(*manager).GetSessionId(), SessionOf());
    EXPECT_EQ(writes.writes, 1);

    // When the user can't log in any more, the exception table decides.
    service->DeleteSession(kServer, SessionOf());
    service->ClearSignals();
    service->FailNth(Emulator::Op::kLogin, 2, {Kind::CreateSessionFailed});
    EXPECT_EQ(ReadProjectConnection(manager.get(), true).GetCheckResult(), Result::CheckNoSession);
}

TEST_F(ConnectionSessionTest, ASessionThatExistsAfterAllIsLookedUpAgain) {
    auto manager = Manager();
    service->FailNext(Emulator::Op::kCreateSession, {Kind::SessionExists});
    ReadProjectConnection connection(manager.get(), true);
    // The list is asked again, and still empty: no session, no connection.
    EXPECT_EQ(connection.GetCheckResult(), Result::CheckOffline);
    EXPECT_EQ(service->CallCount(Emulator::Op::kGetSessions), 2);
    EXPECT_TRUE(SessionOf().empty());
    ZR::UniString holder = "stale";
    EXPECT_FALSE(connection.GetSessionComputerAttribute(holder));
    EXPECT_TRUE(holder.IsEmpty());
}

TEST_F(ConnectionSessionTest, ASecondaryConnectionMakesSessionsButLeavesTheComputerToTheTest) {
    auto secondary = Manager(false);
    ReadProjectConnection connection(secondary.get(), true);
    EXPECT_EQ(connection.GetCheckResult(), Result::CheckOnline);
    EXPECT_FALSE(SessionOf().empty());
    EXPECT_EQ(ComputerOf(), std::nullopt);
    EXPECT_FALSE(ProjectConnectionBase::IsEditConflict(&connection, krtest::kProjectId));

    // Another computer claims it: the secondary connection asks the server.
    service->SetSessionComputer(kServer, SessionOf(), "PC-2");
    service->ResetCounts();
    EXPECT_TRUE(ProjectConnectionBase::IsEditConflict(&connection, krtest::kProjectId));
    EXPECT_GT(service->ServerCallCount(), 0);
    Network::SetClientComputerName("PC-2");
    EXPECT_FALSE(ProjectConnectionBase::IsEditConflict(&connection, krtest::kProjectId));
}

TEST_F(ConnectionSessionTest, ASessionChangeUpdatesTheLoginDataAndTheComputerCanBeAsked) {
    RememberLogin("anna", "old");
    using Store = KRC::UI::Login::UILoginDataStore;
    EXPECT_FALSE(Store(Store::ForReading).HasActiveUser(kServer));
    auto manager = Manager();
    ReadProjectConnection connection(manager.get(), false);
    ZR::UniString holder;
    // Asking checks first (explicitly: no claim), then reads the attribute.
    EXPECT_FALSE(connection.GetSessionComputerAttribute(holder));
    EXPECT_EQ(connection.GetCheckResult(), Result::CheckOnline);
    // The new session made the location's user the active one, with its token.
    EXPECT_EQ(Store(Store::ForReading).GetActiveUser(kServer).GetRefreshToken(), "rt-anna");

    EXPECT_TRUE(ReadProjectConnection(manager.get(), false).IsOpen(nullptr));
    EXPECT_TRUE(connection.GetSessionComputerAttribute(holder));
    EXPECT_EQ(holder, "PC-1");
}

}  // namespace
