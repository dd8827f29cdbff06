#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <string_view>
#include <thread>

#include "IO/Internal/Env.h"
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

// The operating system, but with the user's data folder given here, or none:
// no XDG_DATA_HOME, no HOME, no home in the user database.
class UserDataEnv : public IO::Env {
public:
    explicit UserDataEnv(std::string dataHome) : mDataHome(std::move(dataHome)) {}
    const char* GetVariable(const char* name) override {
        if (std::string_view(name) == "XDG_DATA_HOME")
            return mDataHome.empty() ? nullptr : mDataHome.c_str();
        if (std::string_view(name) == "HOME") return nullptr;
        return IO::Env::GetVariable(name);
    }
    std::string GetUserHome() override { return std::string(); }

private:
    std::string mDataHome;
};

class LoginDataStoreCacheTest : public krtest::LibraryTest {
protected:
    static LoginDataStoreCache& Cache() { return LoginDataStoreCache::GetInstance(); }
    std::string File() const { return BaseFolder() + "/LoginData.json"; }
    std::vector<std::string> StoredEntries() const {
        return {"LoginData.json", "LoginData.json.lock"};
    }
};

TEST_F(LoginDataStoreCacheTest, SavedDataSurvivesAFreshCacheWithOwnerOnlyModesAndNoTempFiles) {
    // Folder and file made too open by someone else get restricted on save.
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
    EXPECT_EQ(krtest::ModeOf(File() + ".lock"), 0600u);
    EXPECT_EQ(krtest::ModeOf(BaseFolder()), 0700u);
    EXPECT_EQ(Entries(BaseFolder()), StoredEntries());

    Cache().ResetForTesting();
    ZR::Ref<LoginDataStore> again = Cache().GetLoginDataStoreCopy(OpenForReading);
    EXPECT_EQ(*again, *copy);
    // Copies are independent of each other and of the cache.
    again->DeleteServer("https://a.example");
    EXPECT_TRUE(Cache().GetLoginDataStoreCopy(OpenForReading)->ContainsServer("https://a.example"));
}

TEST_F(LoginDataStoreCacheTest, AChangeOnDiscIsSeenAndEachUnreadableFileIsSetAsideOnce) {
    Cache().SaveToFile(TwoServers());
    ASSERT_TRUE(Cache().GetLoginDataStoreCopy(OpenForReading)->ContainsServer("https://b.example"));

    // Another process replaces the file.
    LoginDataStore other;
    other.StoreServer(ServerInfo("https://c.example", "C"), "https://c.example", "");
    krtest::WriteFile(File(), other.ToJson());
    ZR::Ref<LoginDataStore> seen = Cache().GetLoginDataStoreCopy(OpenForReading);
    EXPECT_FALSE(seen->ContainsServer("https://b.example"));
    EXPECT_TRUE(seen->ContainsServer("https://c.example"));

    // Garbage with a token in it: kept aside, not used, not logged, not rewritten.
    const std::string garbage =
        R"({"formatVersion":1,"servers":[{"uniqueUrl":"https://d","users":[{"userName":"u","refreshToken":"SECRET-TOKEN"}]}]} trailing)";
    const std::string otherGarbage = R"({"formatVersion":1,"servers":[{"majorVersion":1e99}]})";
    ZR::Ref<LoginDataStore> before = Cache().GetLoginDataStoreCopy(OpenForWriting);
    krtest::WriteFile(File(), garbage);
    EXPECT_TRUE(Cache().GetLoginDataStoreCopy(OpenForReading)->IsEmpty());
    Cache().ResetForTesting();  // read again, as another process would
    EXPECT_TRUE(Cache().GetLoginDataStoreCopy(OpenForReading)->IsEmpty());
    EXPECT_EQ(krtest::ReadFile(File()), garbage);
    krtest::WriteFile(File(), otherGarbage);
    EXPECT_TRUE(Cache().GetLoginDataStoreCopy(OpenForReading)->IsEmpty());

    std::vector<std::string> copies;
    for (const std::string& name : Entries(BaseFolder()))
        if (name.rfind("LoginData.json.bad-", 0) == 0) copies.push_back(name);
    ASSERT_EQ(copies.size(), 2u);
    std::vector<std::string> contents = {krtest::ReadFile(BaseFolder() + "/" + copies[0]),
                                         krtest::ReadFile(BaseFolder() + "/" + copies[1])};
    EXPECT_NE(std::find(contents.begin(), contents.end(), garbage), contents.end());
    EXPECT_NE(std::find(contents.begin(), contents.end(), otherGarbage), contents.end());
    for (const std::string& name : copies)
        EXPECT_EQ(krtest::ModeOf(BaseFolder() + "/" + name), 0600u);
    EXPECT_NE(log.GetText().find("set aside"), std::string::npos);
    EXPECT_EQ(log.GetText().find("SECRET-TOKEN"), std::string::npos);

    // The next save replaces the bad file, keeping all its store had: nobody
    // deleted what the damaged file lacks.
    before->SetFriendlyName("https://c.example", "C2");
    Cache().SaveToFile(*before);
    Cache().ResetForTesting();
    ZR::Ref<LoginDataStore> after = Cache().GetLoginDataStoreCopy(OpenForReading);
    EXPECT_EQ(*after, *before);
}

TEST_F(LoginDataStoreCacheTest, AFileTooLargeToReadOrALockInTheWayStopsSavesAndIsKept) {
    Cache().SaveToFile(TwoServers());
    const std::string saved = krtest::ReadFile(File());
    {
        // Sparse: large without using the disc.
        std::filesystem::path path = BaseFolder() + "/big";
        krtest::WriteFile(path, "{");
        std::filesystem::resize_file(path, LoginDataStore::kMaxTextBytes + 1);
        std::filesystem::rename(path, File());
    }
    // Reads keep the data they had; a save would overwrite what it never read.
    EXPECT_TRUE(Cache().GetLoginDataStoreCopy(OpenForReading)->ContainsServer("https://a.example"));
    try {
        Cache().SaveToFile(TwoServers());
        ADD_FAILURE() << "saved";
    } catch (const LoginDataStoreException& e) {
        EXPECT_NE(e.GetMessage().Std().find("larger than 64 MiB"), std::string::npos)
            << e.GetMessage().Std();
    }
    EXPECT_EQ(std::filesystem::file_size(File()), LoginDataStore::kMaxTextBytes + 1);

    // A folder where the lock file belongs is never removed.
    krtest::WriteFile(File(), saved);
    std::filesystem::remove(File() + ".lock");
    std::filesystem::create_directories(File() + ".lock/inside");
    EXPECT_THROW(Cache().SaveToFile(TwoServers()), LoginDataStoreException);
    EXPECT_TRUE(krtest::Exists(File() + ".lock/inside"));
    EXPECT_EQ(krtest::ReadFile(File()), saved);
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

TEST_F(LoginDataStoreCacheTest, TheBaseFolderIsMadeOwnerOnlyAndWithoutOneLoginDataFailsClearly) {
    CloseKRClientBase();
    mode_t oldMask = ::umask(0);
    {
        UserDataEnv env(temp.Sub("xdg"));
        IO::ScopedEnv scoped(env);
        EXPECT_TRUE(InitKRClientBase({}));
        EXPECT_EQ(krtest::ModeOf(temp.Sub("xdg/KRClientBase")), 0700u);
    }
    ::umask(oldMask);

    // Nowhere to keep it: no stand-in in a shared folder either.
    auto expectRefused = [](const char* reason) {
        for (auto call : {+[] { Cache().GetLoginDataStoreCopy(OpenForReading); },
                          +[] { Cache().SaveToFile(TwoServers()); }}) {
            try {
                call();
                ADD_FAILURE() << "no exception";
            } catch (const LoginDataStoreException& e) {
                EXPECT_NE(e.GetMessage().Std().find(reason), std::string::npos)
                    << e.GetMessage().Std();
            }
        }
    };
    {
        UserDataEnv env("");
        IO::ScopedEnv scoped(env);
        EXPECT_FALSE(InitKRClientBase({}));
    }
    EXPECT_TRUE(KRCB::IsStarted());
    EXPECT_TRUE(KRCB::GetBaseDataFolder().IsEmpty());
    expectRefused("There is no base folder");

    // A base folder that can't be made: the client runs without one, and the
    // login data says why instead of handing out nothing.
    krtest::WriteFile(temp.Sub("file"), "x");
    EXPECT_FALSE(InitKRClientBase({ZR::UniString("BaseFolder=" + temp.Sub("file/base"))}));
    EXPECT_TRUE(KRCB::IsStarted());
    EXPECT_TRUE(KRCB::GetBaseDataFolder().IsEmpty());
    expectRefused("file/base\" can't be made or used");
    ZR::UniString name;
    EXPECT_FALSE(Cache().GetFriendlyName("https://a.example", name));
    Cache().CheckSave();  // nothing pending: quiet
}

TEST_F(LoginDataStoreCacheTest, ConcurrentWritersInOneProcessLoseNothing) {
    constexpr int kThreads = 4, kUsers = 10;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
        threads.emplace_back([t] {
            for (int i = 0; i < kUsers; ++i) {
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
    ZR::Ref<LoginDataStore> back = Cache().GetLoginDataStoreCopy(OpenForReading);
    ASSERT_EQ(back->GetServerCount(), static_cast<std::size_t>(kThreads));
    for (int t = 0; t < kThreads; ++t) {
        const Server& server = back->GetServer(ZR::UniString::Format("https://t%d.example", t));
        EXPECT_EQ(server.GetUsers().GetSize(), static_cast<std::size_t>(kUsers));
        EXPECT_EQ(server.GetFriendlyName(), ZR::UniString::Format("T%d", kUsers - 1));
    }
    EXPECT_EQ(Entries(BaseFolder()), StoredEntries());
}

}  // namespace
