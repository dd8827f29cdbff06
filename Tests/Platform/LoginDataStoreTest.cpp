#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <thread>

#include "KRCB/KRClientBase.h"
#include "KRCB/LoginDataStore.h"
#include "Support/LibraryTest.h"

namespace {

using namespace KRCB::LoginDataStore;
using Kerrow::PortalServer::Client::Management::ServerInfo;

std::vector<std::string> Entries(const std::string& folder) {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder))
        names.push_back(entry.path().filename());
    std::sort(names.begin(), names.end());
    return names;
}

LoginDataStore TwoServers() {
    LoginDataStore store;
    store.StoreServer(ServerInfo("https://a.example", "A", 26, 3), "https://a-alias.example/", "");
    store.StoreServer(ServerInfo("https://b.example", "B"), "https://b.example", "");
    store.AddUser("https://a.example", User("anna", "tok-anna", "Anna Berg"));
    store.AddUser("https://a.example", User("carl", "tok-carl", ""));
    return store;
}

TEST(LoginDataStoreModel, ServerIsFoundByAnyOfItsUrlsIgnoringCaseAndTrailingSlash) {
    LoginDataStore store = TwoServers();
    ZR::PagedArray<ZR::UniString> client;
    client.Add("http://10.0.0.5:8080");
    store.AddClientConnections("HTTPS://A.EXAMPLE//", client);

    for (const char* url :
         {"https://a.example/", "HTTPS://A-ALIAS.example", "http://10.0.0.5:8080/"})
        EXPECT_EQ(store.GetServer(url).GetUniqueURL(), "https://a.example") << url;
    EXPECT_FALSE(store.ContainsServer("https://a.example.org"));
    EXPECT_TRUE(store.IsSameServers("https://a-alias.example", "http://10.0.0.5:8080"));
    EXPECT_FALSE(store.IsSameServers("https://a.example", "https://b.example"));
    EXPECT_TRUE(store.IsSameServers("https://x.example/",
                                    "HTTPS://X.example"));  // unknown: plain URL compare

    // Storing again by an alias updates the server instead of adding one.
    EXPECT_FALSE(store.StoreServer(ServerInfo("", "A2", 27, 0), "https://A-alias.example", ""));
    EXPECT_EQ(store.GetServerCount(), 2u);
    EXPECT_EQ(store.GetFriendlyName("https://a.example"), "A2");
    EXPECT_EQ(store.GetServer("https://a.example").GetMajorVersion(), 27);
    // An info without a friendly name keeps the one stored.
    store.StoreServer(ServerInfo("https://a.example", ""), "https://a.example", "");
    EXPECT_EQ(store.GetFriendlyName("https://a.example"), "A2");
    // A new server without a unique URL takes the URL it was reached by.
    EXPECT_TRUE(store.StoreServer(ServerInfo(), "https://c.example", ""));
    EXPECT_EQ(store.GetServer("https://c.example").GetUniqueURL(), "https://c.example");
    EXPECT_THROW(store.StoreServer(ServerInfo(), "", ""), LoginDataStoreException);
}

TEST(LoginDataStoreModel, UsersKeepOrderActiveSelectionFollowsDeletesAndMissingOnesThrowNamed) {
    LoginDataStore store = TwoServers();
    auto expectThrow = [](auto&& call, const std::string& part) {
        try {
            call();
            ADD_FAILURE() << "no exception, expected one naming " << part;
        } catch (const LoginDataStoreException& e) {
            EXPECT_NE(e.GetMessage().Std().find(part), std::string::npos) << e.GetMessage().Std();
        }
    };
    expectThrow([&] { store.GetServer("https://zz.example"); }, "https://zz.example");
    expectThrow([&] { store.GetRefreshToken("https://a.example", "nobody"); }, "nobody");
    expectThrow([&] { store.DeleteUser("https://b.example", "anna"); }, "anna");
    expectThrow([&] { store.GetActiveServer(); }, "active server");
    expectThrow([&] { store.GetActiveUser("https://b.example"); }, "active user");
    EXPECT_FALSE(store.ContainsUser("https://zz.example", "anna"));

    // Adding an existing user (any case) replaces its data in place.
    store.AddUser("https://a.example", User("ANNA", "tok-new", "Anna B."));
    ZR::PagedArray<User> users;
    store.GetUsers("https://a.example", users);
    ASSERT_EQ(users.GetSize(), 2u);
    EXPECT_EQ(users[0].GetRefreshToken(), "tok-new");
    EXPECT_EQ(users[1].GetUserName(), "carl");

    // Activating a user activates its server.
    store.SetActiveUser("https://a-alias.example", "Carl");
    EXPECT_EQ(store.GetActiveServer().GetUniqueURL(), "https://a.example");
    EXPECT_EQ(store.GetActiveUser("https://a.example").GetUserName(), "carl");

    store.DeleteUser("https://a.example", "carl");
    EXPECT_FALSE(store.HasActiveUser("https://a.example"));
    EXPECT_TRUE(store.HasActiveServer());

    // Deleting a server before the active one keeps the active one active.
    store.SetServerActive("https://b.example");
    store.DeleteServer("https://a.example");
    EXPECT_EQ(store.GetActiveServer().GetUniqueURL(), "https://b.example");
    store.DeleteServer("https://b.example");
    EXPECT_FALSE(store.HasActiveServer());
    EXPECT_TRUE(store.IsEmpty());
}

TEST(LoginDataStoreJson, RoundTripsEverythingAndRefusesWhatItCantTake) {
    LoginDataStore store = TwoServers();
    ZR::PagedArray<ZR::UniString> client;
    client.Add("http://ünï.example");
    store.AddClientConnections("https://a.example", client);
    store.AddUser("https://b.example", User("zoë", "t\"o\\k\n", "Zoë Ωmega"));
    store.SetActiveUser("https://b.example", "zoë");
    store.SetActiveUser("https://a.example", "anna");

    LoginDataStore back = LoginDataStore::FromJson(store.ToJson());
    EXPECT_EQ(back, store);
    EXPECT_EQ(back.GetActiveServer().GetUniqueURL(), "https://a.example");
    EXPECT_EQ(back.GetActiveUser("https://b.example").GetUserName(), "zoë");

    // Missing members are empty; an active user that isn't listed is dropped.
    LoginDataStore sparse = LoginDataStore::FromJson(
        R"({"formatVersion":1,"servers":[{"uniqueUrl":"https://s","activeUser":"ghost"}]})");
    EXPECT_EQ(sparse.GetServer("https://s").GetFriendlyName(), "");
    EXPECT_FALSE(sparse.HasActiveUser("https://s"));
    EXPECT_FALSE(sparse.HasActiveServer());

    for (const char* bad :
         {"", "[]", "{\"formatVersion\":2}", "{\"servers\":[]}",
          R"({"formatVersion":1,"servers":[{"uniqueUrl":5}]})",
          R"({"formatVersion":1,"servers":[{"uniqueUrl":""}]})",
          R"({"formatVersion":1,"servers":[{"uniqueUrl":"https://s","users":[{"userName":""}]}]})",
          R"({"formatVersion":1,"servers":{}})"})
        EXPECT_THROW(LoginDataStore::FromJson(bad), LoginDataStoreException) << bad;
}

class LoginDataStoreCacheTest : public krtest::LibraryTest {
protected:
    static LoginDataStoreCache& Cache() { return LoginDataStoreCache::GetInstance(); }
    std::string File() const { return BaseFolder() + "/LoginData.json"; }
};

TEST_F(LoginDataStoreCacheTest, SavedDataSurvivesAFreshCacheWithOwnerOnlyModesAndNoTempFiles) {
    // Folder and file made too open by someone else get restricted on save.
    std::filesystem::create_directories(BaseFolder());
    ::chmod(BaseFolder().c_str(), 0755);
    krtest::WriteFile(File(), R"({"formatVersion":1})");
    ::chmod(File().c_str(), 0644);

    ZR::Ref<LoginDataStore> copy = Cache().GetLoginDataStoreCopy(OpenForWriting);
    ASSERT_TRUE(copy);
    EXPECT_TRUE(copy->IsEmpty());
    *copy = TwoServers();
    copy->SetActiveUser("https://a.example", "anna");
    EXPECT_TRUE(Cache().SaveToFile(*copy));

    EXPECT_EQ(krtest::ModeOf(File()), 0600u);
    EXPECT_EQ(krtest::ModeOf(BaseFolder()), 0700u);
    EXPECT_EQ(Entries(BaseFolder()), std::vector<std::string>{"LoginData.json"});

    Cache().ResetForTesting();
    ZR::Ref<LoginDataStore> again = Cache().GetLoginDataStoreCopy(OpenForReading);
    EXPECT_EQ(*again, *copy);
    // Copies are independent of each other and of the cache.
    again->DeleteServer("https://a.example");
    EXPECT_TRUE(Cache().GetLoginDataStoreCopy(OpenForReading)->ContainsServer("https://a.example"));
}

TEST_F(LoginDataStoreCacheTest, AChangeOnDiscIsSeenAndAnUnreadableFileIsSetAside) {
    Cache().SaveToFile(TwoServers());
    ASSERT_TRUE(Cache().GetLoginDataStoreCopy(OpenForReading)->ContainsServer("https://b.example"));

    // Another process replaces the file.
    LoginDataStore other;
    other.StoreServer(ServerInfo("https://c.example", "C"), "https://c.example", "");
    krtest::WriteFile(File(), other.ToJson());
    ZR::Ref<LoginDataStore> seen = Cache().GetLoginDataStoreCopy(OpenForReading);
    EXPECT_FALSE(seen->ContainsServer("https://b.example"));
    EXPECT_TRUE(seen->ContainsServer("https://c.example"));

    // Garbage with a token in it: kept aside, not used, not logged.
    const std::string garbage =
        R"({"formatVersion":1,"servers":[{"uniqueUrl":"https://d","users":[{"userName":"u","refreshToken":"SECRET-TOKEN"}]}]} trailing)";
    krtest::WriteFile(File(), garbage);
    EXPECT_TRUE(Cache().GetLoginDataStoreCopy(OpenForReading)->IsEmpty());
    EXPECT_EQ(krtest::ReadFile(File() + ".bad"), garbage);
    EXPECT_EQ(krtest::ModeOf(File() + ".bad"), 0600u);
    EXPECT_NE(log.GetText().find("set aside"), std::string::npos);
    EXPECT_EQ(log.GetText().find("SECRET-TOKEN"), std::string::npos);

    // The next save replaces the bad file.
    Cache().SaveToFile(other);
    Cache().ResetForTesting();
    EXPECT_TRUE(Cache().GetLoginDataStoreCopy(OpenForReading)->ContainsServer("https://c.example"));
}

TEST_F(LoginDataStoreCacheTest, FriendlyNameUpdatesAreWrittenByCheckSaveOnlyWhenPersisted) {
    Cache().SaveToFile(TwoServers());
    const std::string saved = krtest::ReadFile(File());

    Cache().UpdateFriendlyName("https://a-alias.example", "Memory only", false);
    EXPECT_EQ(Cache().GetLoginDataStoreCopy(OpenForReading)->GetFriendlyName("https://a.example"),
              "Memory only");
    Cache().CheckSave();
    EXPECT_EQ(krtest::ReadFile(File()), saved);

    Cache().UpdateFriendlyName("https://a.example", "Persisted", true);
    Cache().UpdateFriendlyName("https://unknown.example", "Ignored", true);
    // A write by another process before the save doesn't lose the update.
    LoginDataStore other = TwoServers();
    other.StoreServer(ServerInfo("https://c.example", "C"), "https://c.example", "");
    krtest::WriteFile(File(), other.ToJson());
    Cache().CheckSave();

    Cache().ResetForTesting();
    ZR::Ref<LoginDataStore> back = Cache().GetLoginDataStoreCopy(OpenForReading);
    EXPECT_EQ(back->GetFriendlyName("https://a.example"), "Persisted");
    EXPECT_TRUE(back->ContainsServer("https://c.example"));
    EXPECT_FALSE(back->ContainsServer("https://unknown.example"));

    ZR::UniString name, fullName;
    EXPECT_TRUE(Cache().GetFriendlyName("https://A.example/", name));
    EXPECT_EQ(name, "Persisted");
    EXPECT_TRUE(Cache().GetFullName("https://a.example", "anna", fullName));
    EXPECT_EQ(fullName, "Anna Berg");
    EXPECT_FALSE(Cache().GetFullName("https://a.example", "carl", fullName));  // empty full name
}

TEST_F(LoginDataStoreCacheTest, WithoutAStartedBaseClientThereIsNoStore) {
    CloseKRClientBase();
    EXPECT_TRUE(Cache().GetLoginDataStoreCopy(OpenForReading).IsNull());
    EXPECT_FALSE(Cache().SaveToFile(TwoServers()));
    EXPECT_FALSE(krtest::Exists(File()));
}

TEST_F(LoginDataStoreCacheTest, ConcurrentCopiesAndSavesLeaveAReadableFile) {
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([t] {
            for (int i = 0; i < 10; ++i) {
                ZR::Ref<LoginDataStore> copy = Cache().GetLoginDataStoreCopy(OpenForWriting);
                ZR::UniString url = ZR::UniString::Format("https://t%d.example", t);
                copy->StoreServer(ServerInfo(url, "T"), url, "");
                copy->AddUser(url, User(ZR::UniString::Format("u%d", i), "tok", ""));
                Cache().SaveToFile(*copy);
                Cache().UpdateFriendlyName(url, ZR::UniString::Format("T%d", i), true);
                Cache().CheckSave();
            }
        });
    for (auto& thread : threads) thread.join();
    Cache().ResetForTesting();
    EXPECT_FALSE(Cache().GetLoginDataStoreCopy(OpenForReading)->IsEmpty());
    EXPECT_EQ(Entries(BaseFolder()), std::vector<std::string>{"LoginData.json"});
}

TEST(LoginProcessState, ActiveConnectionAppliesOnlyWhatTheStoreKnows) {
    ActiveConnection& active = ActiveConnection::GetInstance();
    LoginDataStore store = TwoServers();
    store.SetActiveUser("https://a.example", "anna");

    active.Set("https://unknown.example", "anna");
    active.GetActiveConnection(store);
    EXPECT_EQ(store.GetActiveServer().GetUniqueURL(), "https://a.example");

    active.Set("https://b.example", "nobody");  // known server, unknown user
    active.GetActiveConnection(store);
    EXPECT_EQ(store.GetActiveServer().GetUniqueURL(), "https://b.example");
    EXPECT_FALSE(store.HasActiveUser("https://b.example"));

    active.SetPassword(
        ZR::Ref<ActiveConnectionData>::Make("https://a-alias.example", "carl", "fresh"));
    active.GetActiveConnection(store);
    EXPECT_EQ(store.GetActiveServer().GetUniqueURL(), "https://a.example");
    EXPECT_EQ(store.GetActiveUser("https://a.example").GetUserName(), "carl");
    EXPECT_EQ(store.GetRefreshToken("https://a.example", "carl"), "fresh");

    active.Clear();
    LoginDataStore untouched = TwoServers();
    active.GetActiveConnection(untouched);
    EXPECT_FALSE(untouched.HasActiveServer());
}

TEST(LoginProcessState, ConnectionStatusIsKeyedByTheExactUrlText) {
    ConnectionStatusStore& status = ConnectionStatusStore::GetInstance();
    status.Clear();
    status.SetPortalServerStatus("https://a.example", PortalServerStatus::ConnectedVerifiedTls);
    EXPECT_TRUE(status.ContainsPortalServerStatus("https://a.example"));
    EXPECT_EQ(status.GetPortalServerStatus("HTTPS://a.example"), PortalServerStatus::Unknown);

    status.SetUserStatus("https://a.example", "anna", UserStatus::AccessDenied);
    status.SetUserStatus("https://a.example", "Anna", UserStatus::Accessed);
    EXPECT_EQ(status.GetUserStatus("https://a.example", "anna"), UserStatus::AccessDenied);
    EXPECT_EQ(status.GetUserStatus("https://a.example", "Anna"), UserStatus::Accessed);
    status.ClearUserStatus("https://a.example", "anna");
    EXPECT_FALSE(status.ContainsUserStatus("https://a.example", "anna"));
    EXPECT_TRUE(status.ContainsUserStatus("https://a.example", "Anna"));

    status.ClearPortalServerStatus("https://a.example");
    EXPECT_FALSE(status.ContainsPortalServerStatus("https://a.example"));
    EXPECT_TRUE(status.ContainsUserStatus("https://a.example", "Anna"));
}

}  // namespace
