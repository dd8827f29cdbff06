#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <future>
#include <memory>
#include <thread>

#include "IO/File.h"
#include "KRClient/Internal/KRDataOptions.h"
#include "KRClient/RegistryFixture.h"
#include "ZR/Exceptions.h"
#include "ZR/Thread.h"

namespace {

using KRC::RegisteredProjects;
using KRC::registeredProjects;
using Synchronizer = KRC::RegisteredProjects::Synchronizer;
using krtest::Loc;
using krtest::WriteCache;
namespace fs = std::filesystem;

class SynchronizerTest : public krtest::RegistryTest {};

TEST_F(SynchronizerTest, GuardsAreCountedByObjectAndOnlyTheFirstTakesTheFile) {
    Init();
    std::string moved = temp.Sub("moved");
    krtest::WriteFile(LockFile(), "");  // left over by nobody: taken at once
    auto first = std::make_unique<Synchronizer>();
    EXPECT_TRUE(Synchronizer::IsLocked());
    EXPECT_TRUE(fs::exists(LockFile()));

    // The data folder moves under the lock: a guard that made a lock file now
    // would make it in the new folder.
    registeredProjects.SetKRDataFolder(Loc(moved), false);
    auto second = std::make_unique<Synchronizer>();
    EXPECT_FALSE(fs::exists(moved + "/@DataOptions.Lock"));

    first.reset();
    EXPECT_TRUE(fs::exists(LockFile()));
    second.reset();
    EXPECT_FALSE(Synchronizer::IsLocked());
    // The file that was held goes, not one in the options' current folder.
    EXPECT_FALSE(fs::exists(LockFile()));

    // Released in the other order, now in the new folder.
    auto a = std::make_unique<Synchronizer>();
    auto b = std::make_unique<Synchronizer>();
    EXPECT_TRUE(fs::exists(moved + "/@DataOptions.Lock"));
    b.reset();
    EXPECT_TRUE(Synchronizer::IsLocked());
    a.reset();
    EXPECT_FALSE(fs::exists(moved + "/@DataOptions.Lock"));
}

TEST_F(SynchronizerTest, OptionsSetUnderTheLockAreWrittenWhenTheLastGuardGoes) {
    Init();
    {
        Synchronizer outer;
        registeredProjects.SetPeriodTime(7);
        EXPECT_NE(krtest::ReadFile(OptionsFile()).find("<PeriodTime>30<"), std::string::npos);
        // While held, memory is the truth: another writer's file isn't read.
        krtest::WriteFile(OptionsFile(), "<KRDataOptions/>");
        EXPECT_EQ(registeredProjects.GetPeriodTime(), 7);
    }
    EXPECT_NE(krtest::ReadFile(OptionsFile()).find("<PeriodTime>7<"), std::string::npos);
    EXPECT_FALSE(KRC::dataOptions.IsDirty());
}

// Tests that start threads; CI runs them under ThreadSanitizer too.
class SynchronizerThreadTest : public SynchronizerTest {};

TEST_F(SynchronizerThreadTest, WaitsWhileAnotherHolderHasTheFileAndCanBeInterrupted) {
    Init();
    krtest::WriteFile(LockFile(), "");
    IO::File holder(Loc(LockFile()));
    ASSERT_EQ(holder.Open(IO::kOpenHold), IO::kOk);

    IO::Location project = Project("https://srv.example", "/A", "anna");
    std::thread waiter([&] {
        Synchronizer lock;
        EXPECT_TRUE(Synchronizer::IsLocked());
        // What the holder made while this guard waited is known under the lock.
        bool created = true;
        std::unique_ptr<KRC::CachedProjectInfo> record(
            registeredProjects.CreateCachedProjectInfo(project, created));
        EXPECT_FALSE(created);
    });
    WriteCache(Projects(), "made-by-the-holder", "https://srv.example", "/A", "anna");
    holder.Close();
    waiter.join();
    EXPECT_FALSE(Synchronizer::IsLocked());

    // An interrupt ends the wait by its exception; no guard came into being.
    krtest::WriteFile(LockFile(), "");
    ASSERT_EQ(holder.Open(IO::kOpenHold), IO::kOk);
    std::promise<ZR::ThreadHandle> second;
    std::atomic<bool> interrupted{false};
    std::thread stuck([&] {
        second.set_value(ZR::Thread::GetCurrent());
        try {
            Synchronizer lock;
        } catch (const ZR::InterruptedException&) {
            interrupted = true;
        }
    });
    second.get_future().get().Interrupt();
    stuck.join();
    EXPECT_TRUE(interrupted);
    holder.Close();
    {
        Synchronizer lock;  // the count wasn't left behind
        EXPECT_TRUE(Synchronizer::IsLocked());
    }
    EXPECT_FALSE(Synchronizer::IsLocked());
}

TEST_F(SynchronizerTest, WhereNoLockFileCanBeHeldAGuardGoesOnWithoutAndLeavesTheOptionsPending) {
    Init();
    // A folder where the lock file belongs is never deleted: ten quick tries,
    // then on without the lock. Likewise in a data folder that is a file.
    fs::create_directories(LockFile() + "/inside");
    krtest::WriteFile(LockFile() + "/inside/keep.txt", "precious");
    krtest::WriteFile(temp.Sub("plain-file"), "x");
    for (bool folderIsAFile : {false, true}) {
        SCOPED_TRACE(folderIsAFile ? "data folder is a file" : "folder in the lock's place");
        if (folderIsAFile) registeredProjects.SetKRDataFolder(Loc(temp.Sub("plain-file")), false);
        const std::string written = krtest::ReadFile(OptionsFile());
        {
            Synchronizer lock;
            EXPECT_FALSE(Synchronizer::IsLocked());
            registeredProjects.SetPeriodTime(folderIsAFile ? 4 : 5);
        }
        EXPECT_TRUE(KRC::dataOptions.IsDirty());
        EXPECT_EQ(krtest::ReadFile(OptionsFile()), written);
    }
    EXPECT_EQ(krtest::ReadFile(LockFile() + "/inside/keep.txt"), "precious");
}

TEST_F(SynchronizerTest, ResetLetsTheLockGoAndLaterGuardsEndHarmlessly) {
    Init();
    {
        Synchronizer outer;
        registeredProjects.Reset();
        EXPECT_FALSE(Synchronizer::IsLocked());
        EXPECT_FALSE(fs::exists(LockFile()));
        {
            Synchronizer inner;  // counts as a first guard again
            EXPECT_TRUE(Synchronizer::IsLocked());
        }
        EXPECT_FALSE(Synchronizer::IsLocked());
    }
    Synchronizer again;  // the outer guard's end left the count at zero
    EXPECT_TRUE(Synchronizer::IsLocked());
}

TEST_F(SynchronizerTest, TemporaryRenameLivesWhileAGuardDoesAndLookUpsFollowIt) {
    Init();
    std::string folder = WriteCache(Projects(), "a", "https://srv.example", "/Old", "anna");
    IO::Location renamed = Project("https://srv.example", "/New", "anna");
    ASSERT_EQ(registeredProjects.GetCacheDataFolderNum(), 1u);
    auto& modification = RegisteredProjects::TemporaryModification::GetInstance();
    ZR::UniString replacement = "untouched";
    auto found = [&](const char* server, const char* user, const char* path) {
        return modification.GetCacheRenameModification(server, user, path, replacement);
    };
    // Without a guard nothing is kept; a Leave at 0 stays at 0.
    modification.AddCacheRenameModification("https://srv.example", "anna", "/A", "/dropped");
    modification.Leave();
    modification.Enter();
    modification.AddCacheRenameModification("https://srv.example", "anna", "/A", "/kept");
    EXPECT_TRUE(found("https://srv.example", "anna", "/A"));
    EXPECT_EQ(replacement, "/kept");
    modification.Leave();
    EXPECT_FALSE(found("https://srv.example", "anna", "/A"));
    {
        RegisteredProjects::TemporaryModifyGuard outer;
        {
            RegisteredProjects::TemporaryModifyGuard inner;
            modification.AddCacheRenameModification("https://srv.example", "Anna", "/Ä",
                                                    "/earlier");
            modification.AddCacheRenameModification("https://srv.example", "anna", "/ä", "/later");
            modification.AddCacheRenameModification("https://srv.example", "ANNA", "/new", "/old");
        }
        // Added in the inner guard, alive while the outer stands; the first entry answers.
        EXPECT_TRUE(found("https://srv.example", "ANNA", "/ä"));
        EXPECT_EQ(replacement, "/earlier");
        EXPECT_FALSE(found("https://other.example", "anna", "/Ä"));
        EXPECT_FALSE(found("https://srv.example", "bob", "/Ä"));
        EXPECT_EQ(registeredProjects.GetCacheDataFolder(renamed), Loc(folder));
    }
    EXPECT_FALSE(found("https://srv.example", "anna", "/Ä"));
    EXPECT_EQ(registeredProjects.GetCachedProjectInfo(renamed), nullptr);
}

}  // namespace
