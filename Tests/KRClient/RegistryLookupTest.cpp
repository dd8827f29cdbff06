// The registry's walks and look-ups at their intended cost, and the keys a
// look-up compares kept in step with every way a record changes.

#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <map>
#include <mutex>
#include <set>
#include <string>

#include "IO/Internal/Env.h"
#include "IO/Internal/StampedFile.h"
#include "KRClient/RegistryFixture.h"

namespace {

using KRC::RegisteredProjects;
using KRC::registeredProjects;
using krtest::Loc;
using krtest::WriteCache;
namespace fs = std::filesystem;

bool IsInfoFile(const char* path) {
    std::string_view p(path);
    return p.size() >= 14 && p.substr(p.size() - 14) == "/CacheInfo.xml";
}

// Counts the calls on info files: opens, fstats of what was opened, stats.
class InfoFileCalls : public IO::Env {
public:
    InfoFileCalls() : previous(IO::SetEnv(this)) {}
    ~InfoFileCalls() override { IO::SetEnv(previous); }

    int Open(const char* path, int flags, mode_t mode) override {
        int fd = Env::Open(path, flags, mode);
        std::lock_guard<std::mutex> guard(lock);
        if (IsInfoFile(path)) {
            ++opens;
            if (fd >= 0)
                infoFds.insert(fd);
            else
                ++failedOpens;
        }
        return fd;
    }
    int Close(int fd) override {
        {
            std::lock_guard<std::mutex> guard(lock);
            if (infoFds.erase(fd)) ++closes;
        }
        return Env::Close(fd);
    }
    int Fstat(int fd, struct stat* st) override {
        {
            std::lock_guard<std::mutex> guard(lock);
            if (infoFds.count(fd)) ++fstats;
        }
        return Env::Fstat(fd, st);
    }
    int Stat(const char* path, struct stat* st) override {
        if (IsInfoFile(path)) ++stats;
        return Env::Stat(path, st);
    }
    int Lstat(const char* path, struct stat* st) override {
        if (IsInfoFile(path)) ++stats;
        return Env::Lstat(path, st);
    }
    int ListFolder(const char* path, std::vector<IO::FolderEntry>* entries) override {
        ++listings;
        return Env::ListFolder(path, entries);
    }

    // Read-ahead opens files on a thread of its own.
    std::mutex lock;
    std::atomic<int> opens{0}, failedOpens{0}, closes{0}, fstats{0}, stats{0}, listings{0};
    std::set<int> infoFds;

private:
    IO::Env* previous;
};

class RegistryLookupTest : public krtest::RegistryTest {
protected:
    void TearDown() override {
        IO::StampedReader::SetReadAheadPolicy(IO::StampedReader::ReadAhead::kAdaptive);
        krtest::RegistryTest::TearDown();
    }

    // count folders "f00".."fNN" with projects "/P<i>" of user "u<i % 3>".
    std::map<int, std::string> WriteProjects(int count) {
        std::map<int, std::string> folders;
        for (int i = 0; i < count; ++i) {
            char name[8];
            std::snprintf(name, sizeof name, "f%02d", i);
            folders[i] = WriteCache(Projects(), name, "https://srv.example",
                                    ("/P" + std::to_string(i)).c_str(),
                                    ("u" + std::to_string(i % 3)).c_str());
        }
        return folders;
    }
};

TEST_F(RegistryLookupTest, WalksOpenEachFileOnceAndReChecksWithOneStat) {
    Init();
    const int n = 12;
    WriteProjects(n);
    RegisteredProjects::ResetForTesting();
    {
        InfoFileCalls calls;
        Init();
        EXPECT_EQ(std::vector<int>({calls.opens, calls.fstats, calls.stats, calls.closes}),
                  std::vector<int>({n, n, 0, n}));
    }
    ASSERT_EQ(registeredProjects.GetCacheDataFolderNum(), static_cast<std::size_t>(n));

    // A known, unchanged folder: one stat per record, nothing opened.
    {
        InfoFileCalls calls;
        registeredProjects.RefreshData(true, nullptr);
        EXPECT_EQ(calls.stats, n);
        EXPECT_EQ(calls.opens, 0);
        EXPECT_EQ(calls.listings, 1);
    }
    // A look-up without the lock looks at the found record's file only.
    {
        InfoFileCalls calls;
        EXPECT_NE(Find("/P5", "u2"), nullptr);
        EXPECT_EQ(calls.stats, 1);
        EXPECT_EQ(calls.opens, 0);
    }
    // With the lock held it looks at none.
    {
        RegisteredProjects::Synchronizer sync;
        InfoFileCalls calls;
        EXPECT_NE(Find("/P7", "u1"), nullptr);
        EXPECT_EQ(calls.stats + calls.opens, 0);
    }
}

TEST_F(RegistryLookupTest, LookUpKeysFollowRecordsChangedOnDiscOrInThisProcess) {
    Init();
    std::string folder = WriteCache(Projects(), "a", "https://srv.example", "/Alt", "Anna");
    WriteCache(Projects(), "b", "https://srv.example", "/Other", "Anna");
    ASSERT_EQ(registeredProjects.GetCacheDataFolderNum(), 2u);

    // Another writer gives the folder another project and user: the walk that
    // re-reads it makes the record findable under the new keys only.
    WriteCache(Projects(), "a", "https://srv.example", "/Neu/Straße", "Ödön");
    EXPECT_EQ(registeredProjects.GetCacheDataFolderNum(), 2u);  // the walk
    EXPECT_EQ(FolderOf("/NEU/STRASSE", "öDÖN"), Loc(folder));
    EXPECT_EQ(Find("/Alt", "Anna"), nullptr);

    // A look-up's own refresh of the found record counts as much: the file
    // changes its user; the look-up by the old one still finds what memory
    // held and re-reads it, and from then on only the new user finds it.
    WriteCache(Projects(), "a", "https://srv.example", "/Neu/Straße", "Zoë");
    EXPECT_NE(Find("/Neu/Straße", "Ödön"), nullptr);
    EXPECT_EQ(Find("/Neu/Straße", "Ödön"), nullptr);
    EXPECT_EQ(FolderOf("/neu/straße", "ZOË"), Loc(folder));

    // A private copy that takes another user writes, and the registry's
    // record follows at once, with the lock held and so without reading.
    bool created = true;
    std::unique_ptr<KRC::CachedProjectInfo> copy(registeredProjects.CreateCachedProjectInfo(
        Project("https://srv.example", "/Other", "anna"), created));
    RegisteredProjects::Synchronizer sync;
    copy->SetProjectConnectionInfo(krtest::Info("https://srv.example", "/Other", "Bea"));
    EXPECT_NE(Find("/other", "BEA"), nullptr);
    EXPECT_EQ(Find("/Other", "Anna"), nullptr);
}

// Read-ahead runs on a thread of its own: CI runs this under ThreadSanitizer too.
class RegistryLookupThreadTest : public RegistryLookupTest {};

TEST_F(RegistryLookupThreadTest, ReadAheadRegistersTheSameRecordsAndLeavesNoFileOpen) {
    Init();
    std::map<int, std::string> folders = WriteProjects(40);
    fs::create_directories(Projects() + "/g-no-info");
    fs::create_directories(Projects() + "/g-folder/CacheInfo.xml");
    fs::create_directories(Projects() + "/g-damaged");
    krtest::WriteFile(Projects() + "/g-damaged/CacheInfo.xml", "<Cache><DataVersion>10<");
    for (auto policy :
         {IO::StampedReader::ReadAhead::kAlways, IO::StampedReader::ReadAhead::kNever}) {
        IO::StampedReader::SetReadAheadPolicy(policy);
        RegisteredProjects::ResetForTesting();
        InfoFileCalls calls;
        Init();
        EXPECT_EQ(calls.infoFds.size(), 0u);
        EXPECT_EQ(calls.opens - calls.failedOpens, calls.closes);
        ASSERT_EQ(registeredProjects.GetCacheDataFolderNum(), folders.size());
        for (const auto& [i, folder] : folders)
            EXPECT_EQ(FolderOf("/P" + std::to_string(i), "u" + std::to_string(i % 3)), Loc(folder));
    }
}

TEST_F(RegistryLookupTest, PermissionsKeepTheirOrderWithoutRepeatsAndTheSetFollowsChanges) {
    Init();
    std::string folder =
        WriteCache(Projects(), "p", "https://srv.example", "/P", "anna",
                   {{"PermissionCount", "4"}, {"Permission", "write\nread\nwrite\nadmin"}});
    auto texts = [](const ZR::HashSet<ZR::UniString>& set) {
        std::vector<std::string> seen;
        for (const ZR::UniString& p : set) seen.push_back(p.Std());
        return seen;
    };
    KRC::CachedProjectInfo info{Loc(folder)};
    const ZR::HashSet<ZR::UniString>& set = info.GetPermissions();
    EXPECT_EQ(texts(set), (std::vector<std::string>{"write", "read", "admin"}));

    // The same set object answers after a change, holding the new texts.
    info.SetPermissions({"comment", "read"});
    EXPECT_EQ(&info.GetPermissions(), &set);
    EXPECT_EQ(texts(set), (std::vector<std::string>{"comment", "read"}));
}

}  // namespace
