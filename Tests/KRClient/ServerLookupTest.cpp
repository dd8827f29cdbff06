// The server look-ups: typed URLs, library permissions, presence, and server
// locations from the login data.

#include <gtest/gtest.h>

#include "KRCB/LoginDataStore.h"
#include "KRClient/UserInterface/ServerLookup.h"
#include "Network/Network.h"
#include "Support/LibraryTest.h"

namespace {

TEST(ServerLookup, TypedUrlsAreNormalisedAndTheAnswerIsAlwaysTrue) {
    const std::string host = Network::Socket::InternetAddress::GetLocalHostName().Std();
    const std::string local = host.empty() ? "localhost" : host;
    const std::pair<std::string, std::string> rows[] = {
        {"portal.test:8080", "http://portal.test:8080"},
        {"https://LOCALHOST:8443/api?x=1", "https://" + local + ":8443/api?x=1"},
        {"http://127.0.0.1/", "http://" + (host.empty() ? "127.0.0.1" : host) + "/"},
        {"", ""},
    };
    for (const auto& [input, expected] : rows) {
        ZR::UniString url = "unchanged";
        EXPECT_TRUE(KRC::GetServerUrl(ZR::UniString(input), url));
        EXPECT_EQ(url.Std(), expected) << input;
    }
}

TEST(ServerLookup, LibraryPermissionsNeedEveryIdOfTheirSet) {
    using Set = ZR::HashSet<KRCB::PermissionID>;
    const struct {
        Set ids;
        bool modify, remove;
    } rows[] = {
        {{2001, 2002}, false, false},
        {{2001, 2002, 2005}, true, false},
        {{2001, 2002, 2005, 2006}, true, true},
        {{2002, 2005, 2006}, false, false},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(KRC::HasLibraryModifyPermission(&row.ids), row.modify);
        EXPECT_EQ(KRC::HasLibraryModifyInFolderPermission(&row.ids), row.modify);
        EXPECT_EQ(KRC::HasLibraryUploadToFolderPermission(&row.ids), row.modify);
        EXPECT_EQ(KRC::HasLibraryDeletePermission(&row.ids), row.remove);
        EXPECT_EQ(KRC::HasLibraryDeleteFromFolderPermission(&row.ids), row.remove);
    }
    EXPECT_FALSE(KRC::HasLibraryModifyPermission(nullptr));
    EXPECT_EQ(KRC::GetUserStatus(nullptr, nullptr), KRC::UserOffline);
}

}  // namespace

namespace {

class ServerLookupData : public krtest::LibraryTest {};

TEST_F(ServerLookupData, ALocationComesOnlyForTheActiveUserOfAKnownServer) {
    using namespace KRCB::LoginDataStore;
    auto& cache = LoginDataStoreCache::GetInstance();
    ZR::Ref<LoginDataStore> store = cache.GetLoginDataStore(OpenForWriting);
    store->StoreServer({"https://a.test", "Site A", 3, 2}, "https://a.test", "");
    store->AddUser("https://a.test", User("anna", "rt-anna", "Anna Berg"));
    store->StoreServer({"https://b.test", "", 3, 2}, "https://b.test", "");
    ASSERT_TRUE(cache.SaveToFile(*store));

    IO::Location location(ZR::UniString("/untouched"));
    EXPECT_FALSE(KRC::GetServerLocation("https://c.test", location));
    EXPECT_FALSE(KRC::GetServerLocation("https://a.test", location));  // no active user yet
    EXPECT_EQ(location.ToPath(), "/untouched");
    store = cache.GetLoginDataStore(OpenForWriting);
    store->SetActiveUser("https://a.test", "anna");
    ASSERT_TRUE(cache.SaveToFile(*store));
    ASSERT_TRUE(KRC::GetServerLocation("https://a.test", location));
    EXPECT_EQ(location.GetUserName(), "anna");
    EXPECT_EQ(location.GetPassword(), "rt-anna");

    ZR::UniString name, fullName;
    EXPECT_TRUE(KRC::GetServerFriendlyName(location, name));
    EXPECT_EQ(name, "Site A");
    EXPECT_FALSE(KRC::GetServerFriendlyName("https://b.test", name));  // none stored
    EXPECT_TRUE(KRC::GetUserFullName(location, fullName));
    EXPECT_EQ(fullName, "Anna Berg");
}

}  // namespace
