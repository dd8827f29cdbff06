// Each writer of the library's stored files under a failure of each system
// call of its write: a failure reaches the host as its operation reports it,
// and file and memory agree with that report. How the file layer keeps the
// old file, its mode and no temporary file is its own test's.

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <memory>

#include "KRCB/LoginDataStore.h"
#include "KRClient/KRClient.h"
#include "KRClient/RegistryFixture.h"
#include "Support/FaultEnv.h"

namespace {

using krtest::Call;
using namespace KRCB::LoginDataStore;
using Kerrow::PortalServer::Client::Management::ServerInfo;

constexpr std::initializer_list<Call> kStoreCalls = {Call::Open,   Call::Write,  Call::Fsync,
                                                     Call::Rename, Call::Unlink, Call::Mkdir};

class FaultStoredFiles : public krtest::RegistryTest {
protected:
    krtest::FaultEnv env;
    std::unique_ptr<krtest::EventRecorder> events;
    std::string after;  // the file as the operation writes it without faults
};

// The records are written by the same writer as the options.
TEST_F(FaultStoredFiles, DataOptionsWrittenAtTheLockRelease) {
    Init();
    KRC::registeredProjects.SetPeriodTime(30);
    const std::string before = krtest::ReadFile(OptionsFile());
    bool locked = false;
    int deferred = 0;
    krtest::FaultCase set;
    set.prepare = [&] {
        events.reset();
        KRC::RegisteredProjects::ResetForTesting();
        std::filesystem::remove(LockFile());  // left by a fault
        krtest::WriteFile(OptionsFile(), before);
        Init();
        events = std::make_unique<krtest::EventRecorder>();
    };
    set.operate = [&] {
        {
            KRC::RegisteredProjects::Synchronizer guard;
            locked = KRC::RegisteredProjects::Synchronizer::IsLocked();
            KRC::registeredProjects.SetPeriodTime(45);
        }
        return events->ReportedWriteOf(OptionsFile());
    };
    set.verify = [&](bool reported) {
        if (after.empty()) after = krtest::ReadFile(OptionsFile());
        // Without the lock (its file could not be held) the options are written
        // at a later release; a failed write is reported and left for one too.
        bool written = locked && !reported;
        EXPECT_EQ(krtest::ReadFile(OptionsFile()), written ? after : before);
        EXPECT_EQ(KRC::dataOptions.GetPeriodTime(), 45);
        EXPECT_EQ(KRC::dataOptions.IsDirty(), !written);
        deferred += !locked;
    };
    EXPECT_GT(RunFaultTable(env, set, kStoreCalls), 0);
    // Only a failure to take the lock file defers: one open of it, each error but EINTR.
    EXPECT_LE(deferred, 4);
    events.reset();
}

TEST_F(FaultStoredFiles, LoginDataSaveOverAFileAndIntoANewFolder) {
    LoginDataStoreCache& cache = LoginDataStoreCache::GetInstance();
    LoginDataStore first;
    first.StoreServer(ServerInfo("https://a.example", "A"), "https://a.example", "");
    first.AddUser("https://a.example", User("anna", "tok-anna", "Anna"));
    ASSERT_TRUE(cache.SaveToFile(first));
    const std::string path = cache.GetFileLocation().ToPath().Std();
    const std::string before = krtest::ReadFile(path);
    LoginDataStore second = first;
    second.StoreServer(ServerInfo("https://b.example", "B"), "https://b.example", "");

    for (bool existed : {true, false}) {
        SCOPED_TRACE(existed ? "update" : "first save, which makes the folder too");
        krtest::FaultCase save;
        save.prepare = [&] {
            if (existed)
                krtest::WriteFile(path, before);
            else
                std::filesystem::remove_all(BaseFolder());
            cache.ResetForTesting();
        };
        save.operate = [&] {
            try {
                cache.SaveToFile(second);
                return false;
            } catch (const LoginDataStoreException&) {
                return true;
            }
        };
        save.verify = [&](bool reported) {
            if (after.empty()) after = krtest::ReadFile(path);
            if (reported && !existed)
                EXPECT_FALSE(krtest::Exists(path));
            else
                EXPECT_EQ(krtest::ReadFile(path), reported ? before : after);
            // A failed save leaves the data as they were on disc.
            ZR::Ref<LoginDataStore> now = cache.GetLoginDataStoreCopy(0);
            EXPECT_EQ(now->ContainsServer("https://b.example"), !reported);
            EXPECT_EQ(now->ContainsUser("https://a.example", "anna"), existed || !reported);
        };
        EXPECT_GT(RunFaultTable(env, save, kStoreCalls), 0);
    }
}

}  // namespace
