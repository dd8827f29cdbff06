#include <gtest/gtest.h>

#include "KRClient/ConnectionFixture.h"

namespace {

using KRC::ProjectConnectionBase;
using KRC::ReadProjectConnection;
using krtest::kProjectPath;
using krtest::kServer;
using krtest::Result;
using Kind = Emulator::FaultKind;

class ConnectionPermissionTest : public krtest::ConnectionTest {
protected:
    void SetUp() override {
        ConnectionTest::SetUp();
        manager = Manager();
        ASSERT_EQ(ReadProjectConnection(manager.get(), true).GetCheckResult(), Result::CheckOnline);
        log.Clear();
    }
    void TearDown() override {
        manager.reset();
        ConnectionTest::TearDown();
    }
    void Grant(const char* text) { service->GrantPermission(kServer, kProjectPath, "anna", text); }
    void Revoke(const char* text) {
        service->RevokePermission(kServer, kProjectPath, "anna", text);
    }
    ProjectConnectionBase::PermissionCheckResult CheckOnNewConnection(bool apply) {
        return ProjectConnectionBase::CheckPermmission(manager.get(), apply);
    }
    const ZR::HashSet<ZR::UniString>& Cached() { return Record(*manager).GetPermissions(); }

    std::unique_ptr<KRC::ClientProjectConnectionManager> manager;
};

TEST_F(ConnectionPermissionTest, OnlyRightsCountAndARevokeWinsOverAGrant) {
    // Marks of the server (ids from 2001) come and go unnoticed.
    Grant("LibraryView");
    EXPECT_EQ(CheckOnNewConnection(true), ProjectConnectionBase::PermissionsUnchanged);
    EXPECT_FALSE(Cached().Contains("LibraryView"));

    // One right dropped and another added: revoked, and never applied here.
    Revoke("SendMail");
    Grant("AdministerProject");
    log.Clear();
    krtest::EventRecorder writes;
    EXPECT_EQ(CheckOnNewConnection(true), ProjectConnectionBase::PermissionRevoked);
    EXPECT_TRUE(
        Logged("KRC::ProjectConnectionBase::CheckPermmission finished, permission "
               "revoked.\n Cache:\nReadProject, WriteProject, SendMail\nServer:\n"))
        << log.GetText();
    EXPECT_TRUE(Cached().Contains("SendMail"));
    EXPECT_EQ(writes.writes, 0);
}

TEST_F(ConnectionPermissionTest, AGrantIsReportedAndAppliedOnlyWhenAsked) {
    Grant("AdministerProject");
    krtest::EventRecorder writes;
    EXPECT_EQ(CheckOnNewConnection(false), ProjectConnectionBase::PermissionGranted);
    EXPECT_FALSE(Cached().Contains("AdministerProject"));
    EXPECT_EQ(writes.writes, 0);

    ReadProjectConnection connection(manager.get(), true);
    EXPECT_EQ(connection.CheckPermmission(true), ProjectConnectionBase::PermissionGranted);
    EXPECT_TRUE(Cached().Contains("AdministerProject"));
    EXPECT_EQ(writes.writes, 1);
    EXPECT_TRUE(manager->GetUserAttributes()->HasPermission(3));
    EXPECT_TRUE(
        Logged("KRC::ProjectConnectionBase::CheckPermmission finished, permission "
               "granted.\n Cache:\nReadProject, WriteProject, SendMail\nServer:\n"));
    // The connection's own copy is never refreshed: it still sees a grant.
    EXPECT_EQ(connection.CheckPermmission(false), ProjectConnectionBase::PermissionGranted);
    // A connection made now copies the record: nothing new.
    EXPECT_EQ(CheckOnNewConnection(false), ProjectConnectionBase::PermissionsUnchanged);
    // Each comparison asks the server inside one query guard.
    service->ResetCounts();
    EXPECT_EQ(connection.CheckPermmission(false), ProjectConnectionBase::PermissionGranted);
    EXPECT_EQ(service->CallCount(Emulator::Op::kQuery), 1);
}

TEST_F(ConnectionPermissionTest, FailuresAreWrittenWithTheirReason) {
    const std::string failed = "KRC::ProjectConnectionBase::CheckPermmission failed: ";
    EXPECT_EQ(ProjectConnectionBase::CheckPermmission(nullptr, true),
              ProjectConnectionBase::PermissionCheckFailed);
    EXPECT_TRUE(Logged(failed + "Project connection manager is null"));

    ReadProjectConnection unchecked(manager.get(), false);
    EXPECT_EQ(unchecked.CheckPermmission(true), ProjectConnectionBase::PermissionCheckFailed);
    EXPECT_TRUE(Logged(failed + "Failed to create resource manager client"));

    service->FailNext(Emulator::Op::kGetUserPermissions, {Kind::ZRException, "no rights today"});
    EXPECT_EQ(CheckOnNewConnection(true), ProjectConnectionBase::PermissionCheckFailed);
    EXPECT_TRUE(Logged(failed + "\nException: ZRException: no rights today")) << log.GetText();

    service->SetServerDown(kServer, true);
    EXPECT_EQ(CheckOnNewConnection(true), ProjectConnectionBase::PermissionCheckFailed);
    EXPECT_TRUE(Logged(failed + "Project connection check result is not online: 1"));
    EXPECT_FALSE(ProjectConnectionBase::UpdateCachePermissions(manager.get()));
}

TEST_F(ConnectionPermissionTest, UpdateTakesTheServersRightsEitherWay) {
    Revoke("SendMail");
    Grant("ShareProject");
    krtest::EventRecorder writes;
    EXPECT_TRUE(ProjectConnectionBase::UpdateCachePermissions(manager.get()));
    EXPECT_EQ(writes.writes, 1);
    EXPECT_FALSE(Cached().Contains("SendMail"));
    EXPECT_FALSE(manager->GetUserAttributes()->HasPermission(4));
    EXPECT_TRUE(manager->GetUserAttributes()->HasPermission(5));
    EXPECT_FALSE(ReadProjectConnection(manager.get(), false).UpdateCachePermissions());
}

}  // namespace
