#include <gtest/gtest.h>

#include "KRCB/LoginDataStore.h"
#include "KRCB/Paths.h"
#include "KRClient/ClientProjectData.h"
#include "KRClient/ConnectionFixture.h"
#include "KRClient/ProjectConnectionProvider.h"

namespace {

using KRC::ConnectionManagerBasedConnectionProvider;
using KRC::ReadProjectConnection;
using krtest::kProjectPath;
using krtest::kServer;
using krtest::Result;

class ConnectionManagerTest : public krtest::ConnectionTest {};

TEST_F(ConnectionManagerTest, ProviderMakesANewConnectionForEachRequest) {
    auto manager = Manager();
    ConnectionManagerBasedConnectionProvider provider(manager.get());
    EXPECT_TRUE(provider.IsClientConnectionProvider());

    // Unchecked until the first IsOpen, and no server call before it.
    service->ResetCounts();
    auto unchecked = provider.GetReadProjectConnection(false);
    EXPECT_EQ(provider.GetWriteProjectConnection(false)->GetCheckResult(), Result::CheckNotChecked);
    EXPECT_EQ(service->ServerCallCount(), 0);
    EXPECT_TRUE(unchecked->IsOpen(nullptr));
    EXPECT_GT(service->ServerCallCount(), 0);
    EXPECT_EQ(provider.GetReadProjectConnection(true)->GetCheckResult(), Result::CheckOnline);

    // Borrowed ones are checked when handed over; a holder keeps its one connection.
    auto first = provider.GetBorrowedReadProjectConnection();
    auto second = provider.GetBorrowedReadProjectConnection();
    EXPECT_NE(first->GetConnection().Get(), second->GetConnection().Get());
    EXPECT_EQ(first->GetConnection().Get(), first->GetConnection().Get());
    EXPECT_EQ(first->GetConnection()->GetCheckResult(), Result::CheckOnline);
    auto borrowedWrite = provider.GetBorrowedWriteProjectConnection();
    EXPECT_EQ(borrowedWrite->GetConnection()->GetCheckResult(), Result::CheckOnline);
    // A connection outlives its holder while someone holds it.
    auto kept = first->GetConnection();
    first.Reset();
    EXPECT_TRUE(kept->IsOpen(nullptr));

    // Temporary connections take no part in checks.
    service->ResetCounts();
    EXPECT_TRUE(provider.GetTemporaryReadProjectConnection());
    auto temporary = provider.GetBorrowedTemporaryReadProjectConnection();
    EXPECT_EQ(temporary->GetConnection().Get(), temporary->GetConnection().Get());
    EXPECT_EQ(service->CallCount(Emulator::Op::kGetSessions), 0);
}

TEST_F(ConnectionManagerTest, ProviderWithoutOrWithAnotherManager) {
    ConnectionManagerBasedConnectionProvider none(nullptr);
    EXPECT_FALSE(none.CanProvideConnection());
    EXPECT_EQ(none.GetReadProjectConnection(true)->GetCheckResult(), Result::CheckOffline);
    none.ChangeRefreshToken(kServer, "anna", "rt-new");

    KRCB::ProjectConnectionManager plain(krtest::ProjectLocation(), false);
    ConnectionManagerBasedConnectionProvider other(&plain);
    EXPECT_TRUE(other.CanProvideConnection());
    EXPECT_FALSE(other.IsClientConnectionProvider());
    other.ChangeRefreshToken(kServer, "anna", "rt-new");
    EXPECT_EQ(plain.GetKerrowLocation().GetPassword(), "rt-anna");
    EXPECT_FALSE(KRCB::LoginDataStore::ActiveConnection::GetInstance().IsSet());
}

TEST_F(ConnectionManagerTest, ManagerTakesTheRecordAndItsRights) {
    krtest::EventRecorder writes;
    auto manager = Manager();
    EXPECT_EQ(writes.writes, 1);  // the new cache folder's first file
    EXPECT_FALSE(manager->CachedProjectInfoExisted());
    ASSERT_EQ(ReadProjectConnection(manager.get(), true).GetCheckResult(), Result::CheckOnline);

    // A later manager finds the record, with the rights as ids.
    auto later = Manager(false);
    EXPECT_TRUE(later->CachedProjectInfoExisted());
    ASSERT_NE(later->GetUserAttributes(), nullptr);
    EXPECT_EQ(later->GetUserAttributes()->GetShortUserId(), Record(*manager).GetLogonId());
    EXPECT_EQ(later->GetUserAttributes()->GetPermissions().GetSize(), 3u);
    EXPECT_TRUE(later->GetUserAttributes()->HasPermission(2));
}

TEST_F(ConnectionManagerTest, AManagerWithoutRecordStandsAndDoesNothingWithIt) {
    KRC::RegisteredProjects::ResetForTesting();  // no data folder: no record can be made
    auto manager = Manager();
    EXPECT_EQ(manager->GetCachedProjectInfo(), nullptr);
    krtest::EventRecorder writes;
    manager->RewriteCacheInfo(IO::Location());
    manager->ChangeRefreshToken(kServer, "anna", "rt-new");
    EXPECT_EQ(writes.writes, 0);
    EXPECT_EQ(manager->GetKerrowLocation().GetPassword(), "rt-anna");
    EXPECT_FALSE(KRCB::LoginDataStore::ActiveConnection::GetInstance().IsSet());
    // Its connections find no record either.
    EXPECT_EQ(ReadProjectConnection(manager.get(), true).GetCheckResult(), Result::CheckOffline);
}

TEST_F(ConnectionManagerTest, TwoManagersOfOneFolderFollowEachOthersWrites) {
    auto first = Manager();
    auto second = Manager();
    ASSERT_NE(&Record(*first), &Record(*second));
    EXPECT_EQ(Record(*first).GetCacheFolderLocation(), Record(*second).GetCacheFolderLocation());
    // Each manager has a mailbox monitor of its own.
    EXPECT_NE(first->GetMailboxMonitor(), second->GetMailboxMonitor());

    krtest::EventRecorder writes;
    ASSERT_EQ(ReadProjectConnection(first.get(), true).GetCheckResult(), Result::CheckOnline);
    EXPECT_EQ(writes.writes, 1);
    EXPECT_EQ(Record(*second).GetSessionId(), SessionOf());

    // A rewrite of one is heard by the other, which writes nothing itself.
    Record(*second).BeginUpdate();
    first->RewriteCacheInfo(IO::Location());
    EXPECT_EQ(writes.writes, 2);
    EXPECT_TRUE(Record(*second).IsUpdating());
    Record(*second).EndUpdate();
    EXPECT_EQ(writes.writes, 2);

    // A manager of another project's folder isn't touched.
    service->AddProject(kServer,
                        krtest::ProjectAt("/Projects/Bridge", "ms-1", {{"anna", {"ReadProject"}}}));
    auto other = Manager(true, "anna", "rt-anna", "/Projects/Bridge");
    first->RewriteCacheInfo(IO::Location());
    EXPECT_EQ(Record(*other).GetProjectPath(), "/Projects/Bridge");
    EXPECT_TRUE(Record(*other).GetSessionId().IsEmpty());
}

TEST_F(ConnectionManagerTest, ChangeRefreshTokenReachesStoreLocationAndActiveConnection) {
    RememberLogin("anna", "rt-anna");
    auto manager = Manager();
    ConnectionManagerBasedConnectionProvider provider(manager.get());
    provider.ChangeRefreshToken("https://a.example", "someone", "rt-new");

    EXPECT_EQ(manager->GetKerrowLocation(), krtest::ProjectLocation("anna", "rt-new"));
    EXPECT_EQ(Record(*manager).GetRefreshToken(), "rt-new");
    auto active = KRCB::LoginDataStore::ActiveConnection::GetInstance().Get();
    ASSERT_TRUE(active);
    EXPECT_EQ(active->GetUserName(), "someone");
    EXPECT_EQ(active->GetRefreshToken(), "rt-new");
    EXPECT_FALSE(Logged("rt-new"));
}

TEST_F(ConnectionManagerTest, ClientProjectDataJoinsFolderAndNameIntoALocation) {
    KRC::ClientProjectData data(kServer, "ms-1", "anna", "rt-anna", "/Projects/", "House", true);
    IO::Location location;
    EXPECT_EQ(data.ToKerrowLocation(location), krtest::ProjectLocation());

    KRC::ClientProjectData empty;
    empty.SetServerUrl("https://anna:pw@srv");
    EXPECT_THROW(empty.ToKerrowLocation(location), ZR::IllegalArgumentException);

    for (auto [name, path, joined] : {std::tuple{"a", "", "/a"},
                                      {"b", "/a", "/a/b"},
                                      {"/b", "/a/", "/a/b"},
                                      {"b", "/", "/b"},
                                      {"", "/a", "/a"}}) {
        ZR::UniString text(path);
        KRCB::Management::AppendToResourcePath(name, text);
        EXPECT_EQ(text, joined) << name << " to " << path;
    }
}

}  // namespace
