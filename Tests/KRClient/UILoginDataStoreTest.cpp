#include <gtest/gtest.h>

#include <filesystem>

#include "KRClient/KRClient.h"
#include "KRClient/UserInterface/Login/UILoginDataStore.h"
#include "Support/LibraryTest.h"

namespace {

using KRC::UI::Login::UILoginDataStore;
using ServerInfo = UILoginDataStore::ServerInfo;
using User = UILoginDataStore::User;
namespace LDS = KRCB::LoginDataStore;
namespace Status = LDS::PortalServerStatus;

ZR::Ref<ServerInfo> Info(const char* unique, const char* name = "", int major = 0, int minor = 0) {
    return ZR::Ref<ServerInfo>::Make(unique, name, major, minor);
}

class UILoginDataStoreTest : public krtest::LibraryTest {
protected:
    static UILoginDataStore Reading() { return UILoginDataStore(UILoginDataStore::ForReading); }
    std::string File() const { return BaseFolder() + "/LoginData.json"; }

    // Two servers on disc, B active in the file.
    void StoreTwoServers() {
        UILoginDataStore store(UILoginDataStore::ForWriting);
        store.AddServer(Info("https://a.example", "A", 26, 3), "https://a-alias.example");
        store.AddServer(Info("https://b.example", "B"), "https://b.example");
        store.AddUser("https://a.example", User("anna", "tok-anna", "Anna Berg"));
        store.AddUser("https://b.example", User("bert", "tok-bert", ""));
        store.SetActiveUser("https://b.example", "bert");
        ASSERT_TRUE(store.Write());
    }
};

TEST_F(UILoginDataStoreTest, WriteSavesWhileChangedStaysSetAndCopiesShareTheWorkingCopy) {
    {
        UILoginDataStore untouched(UILoginDataStore::ForWriting);
        EXPECT_TRUE(untouched.Write());
    }
    EXPECT_FALSE(krtest::Exists(File()));

    UILoginDataStore store(UILoginDataStore::ForWriting);
    UILoginDataStore shared = store;
    shared.AddServer(Info("https://a.example", "A"), "https://a.example");
    EXPECT_TRUE(store.ContainsServer("https://a.example"));
    ASSERT_TRUE(shared.Write());

    // A second Write of the changed store saves again; that a save keeps what
    // another writer saved meanwhile is the login data cache's.
    EXPECT_TRUE(shared.Write());
    EXPECT_TRUE(shared.IsChanged());

    // A failed save answers false instead of throwing.
    std::filesystem::remove(File());
    std::filesystem::create_directories(File() + "/in-the-way");
    EXPECT_FALSE(shared.Write());
}

TEST_F(UILoginDataStoreTest, AddServerTakesOnlyHttpAndQuestionsAnswerFromTheWorkingCopy) {
    StoreTwoServers();
    UILoginDataStore store(UILoginDataStore::ForReading);
    EXPECT_THROW(store.AddServer(Info("ftp://c.example"), "https://c.example"),
                 KRC::KRClientException);
    // An empty unique URL is judged by the url argument.
    EXPECT_THROW(store.AddServer(Info(""), "c.example"), KRC::KRClientException);
    EXPECT_FALSE(store.IsChanged());
    // URLs are stored as given.
    store.AddServer(Info("HTTPS://Srv.Example/", "Srv"), "Http://Srv.Example:443");
    store.AddServer(Info(""), "https://nameless.example");
    EXPECT_TRUE(store.IsChanged());
    EXPECT_EQ(store.GetServer("https://srv.example").GetUniqueURL(), "HTTPS://Srv.Example/");
    EXPECT_EQ(store.GetServer("https://srv.example").GetCommonConnections()[0],
              "Http://Srv.Example:443");

    EXPECT_EQ(store.GetServerVersion("https://a-alias.example"), 2603);
    // Without a friendly name, the URL as asked.
    EXPECT_EQ(store.GetServerFriendlyName("https://NAMELESS.example"), "https://NAMELESS.example");
    EXPECT_TRUE(store.HasActiveConnection());
    store.SetServerActive("https://a.example");
    EXPECT_FALSE(store.HasActiveConnection());  // A has no active user

    // A new friendly name reaches the file when a store goes, without a Write.
    {
        UILoginDataStore renamer(UILoginDataStore::ForReading);
        renamer.AddServer(Info("https://a.example", "A renamed"), "https://a.example");
    }
    KRCB::LoginDataStore::LoginDataStoreCache::GetInstance().ResetForTesting();
    EXPECT_EQ(Reading().GetServerFriendlyName("https://a.example"), "A renamed");
}

TEST_F(UILoginDataStoreTest, ReloadKeepsTheActiveServerOnlyWhileItExists) {
    StoreTwoServers();
    UILoginDataStore store(UILoginDataStore::ForReading);
    EXPECT_EQ(store.GetActiveServer().GetUniqueURL(), "https://b.example");
    store.SetServerActive("https://a.example");

    store.Reload(true);
    EXPECT_EQ(store.GetActiveServer().GetUniqueURL(), "https://a.example");
    EXPECT_TRUE(store.IsChanged());  // from SetServerActive; Reload leaves it
    store.Reload(false);
    EXPECT_EQ(store.GetActiveServer().GetUniqueURL(), "https://b.example");

    // The process's active connection wins over the file on every load.
    LDS::ActiveConnection::GetInstance().Set("https://a-alias.example", "anna");
    EXPECT_TRUE(Reading().HasActiveConnection());
    LDS::ActiveConnection::GetInstance().Clear();

    // The remembered server vanishes: the file's choice stands.
    {
        UILoginDataStore writer(UILoginDataStore::ForWriting);
        writer.DeleteServer("https://a.example");
        ASSERT_TRUE(writer.Write());
    }
    store.Reload(true);
    EXPECT_FALSE(store.ContainsServer("https://a.example"));
    EXPECT_EQ(store.GetActiveServer().GetUniqueURL(), "https://b.example");
}

TEST_F(UILoginDataStoreTest, StatusFollowsTheFirstUrlUsedButDeleteServerClearsOnlyTheGivenOne) {
    StoreTwoServers();
    UILoginDataStore store(UILoginDataStore::ForWriting);
    store.SetPortalServerStatus("https://a-alias.example", Status::ConnectedVerifiedTls);
    EXPECT_EQ(store.GetPortalServerStatus("https://a.example"), Status::ConnectedVerifiedTls);
    auto& raw = LDS::ConnectionStatusStore::GetInstance();
    store.SetUserAccessDenied("https://a.example", "anna");
    EXPECT_TRUE(raw.ContainsUserStatus("https://a-alias.example", "anna"));
    store.ClearUserStatus("https://a.example", "anna");
    EXPECT_FALSE(raw.ContainsUserStatus("https://a-alias.example", "anna"));
    store.ClearPortalServerStatus("https://a.example");
    EXPECT_FALSE(raw.ContainsPortalServerStatus("https://a-alias.example"));

    store.SetPortalServerStatus("https://a-alias.example", Status::ConnectedWithoutTls);
    store.DeleteServer("https://a.example");
    EXPECT_TRUE(raw.ContainsPortalServerStatus("https://a-alias.example"));
    EXPECT_TRUE(store.IsChanged());

    store.ClearConnectionStatusStore();
    EXPECT_FALSE(raw.ContainsPortalServerStatus("https://a-alias.example"));
}

TEST_F(UILoginDataStoreTest, AnEmptyWorkingCopyThrowsExceptForIsEmptyWriteAndStatus) {
    StoreTwoServers();
    KRC::CloseKRClient();
    UILoginDataStore store(UILoginDataStore::ForReading);
    EXPECT_TRUE(store.IsEmpty());
    EXPECT_TRUE(store.Write());
    store.SetPortalServerStatus("https://a.example", Status::InsecureConnectionRefused);
    EXPECT_EQ(store.GetPortalServerStatus("https://a.example"), Status::InsecureConnectionRefused);
    EXPECT_THROW(store.ContainsServer("https://a.example"), ZR::NullReferenceException);
    EXPECT_THROW(store.Reload(false), ZR::NullReferenceException);
    EXPECT_FALSE(store.IsChanged());
}

}  // namespace
