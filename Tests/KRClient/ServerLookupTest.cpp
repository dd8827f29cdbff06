// The server look-ups: typed URLs, library permissions, presence, the root
// folder id, and server locations from the login data.

#include <gtest/gtest.h>

#include "KRClient/UserInterface/ServerLookup.h"
#include "Network/Network.h"

namespace {

TEST(ServerLookup, TypedUrlsAreNormalisedAndTheAnswerIsAlwaysTrue) {
    const std::string host = Network::Socket::InternetAddress::GetLocalHostName().Std();
    const std::string local = host.empty() ? "localhost" : host;
    const std::pair<std::string, std::string> rows[] = {
        {"portal.test:8080", "http://portal.test:8080"},
        {"https://LOCALHOST:8443/api?x=1", "https://" + local + ":8443/api?x=1"},
        {"http://127.0.0.1/", "http://" + (host.empty() ? "127.0.0.1" : host) + "/"},
        {"127.0.0.2", "http://127.0.0.2"},
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
    EXPECT_FALSE(KRC::HasLibraryDeletePermission(nullptr));
    EXPECT_EQ(KRC::GetUserStatus(nullptr, nullptr), KRC::UserOffline);
    EXPECT_EQ(KRC::GetRootFolderId(), "projectRoot");
    EXPECT_EQ(KRC::GetRoamingProfileFolderLocation().ToPath().Std().substr(
                  KRC::GetRoamingProfileFolderLocation().ToPath().Std().size() - 7),
              "/ZARVEL");
}

}  // namespace
