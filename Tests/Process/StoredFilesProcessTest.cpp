// Host processes writing the stored files: killed at random points, every
// file left is the old or the new one, complete, and a create cut short costs
// no second folder for its key; side by side, they lose no change and never
// read back a value older than their own.

#include <gtest/gtest.h>
#include <signal.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <memory>
#include <pugixml.hpp>
#include <random>
#include <thread>

#include "KRClient/RegistryFixture.h"
#include "Support/Process.h"

namespace {

namespace fs = std::filesystem;
using krtest::Loc;
using Names = std::vector<std::string>;

constexpr int kKills = 200;
constexpr const char* kServer = "https://srv.example.com";  // the workers' server and user

// The number in the element at path in an XML file; 0 if unreadable.
long NumberIn(const std::string& file, const char* path) {
    pugi::xml_document doc;
    return doc.load_file(file.c_str()) ? std::atol(doc.select_node(path).node().child_value()) : 0;
}

class StoredFilesProcessTest : public krtest::LibraryTest {
protected:
    std::string Data() const { return temp.Sub("data"); }

    // Runs the worker to its "ready", lets it write for a random while and
    // kills it. Answers the numbers it reported done.
    std::vector<long> RunAndKill(const std::vector<std::string>& args) {
        std::vector<std::string> argv = {STORE_WORKER_PATH, BaseFolder()};
        argv.insert(argv.end(), args.begin(), args.end());
        krtest::ChildProcess worker(argv);
        std::string line;
        EXPECT_TRUE(worker.ReadLine(&line) && line == "ready") << line;
        // Kill points spread over the worker's first few writes, whatever a
        // write costs in this build: the spread follows the writes seen so far.
        const long perWrite = std::max(200L, slept / std::max(1L, writes));
        const long delay = std::uniform_int_distribution<long>(0, 5 * perWrite / 2)(random);
        std::this_thread::sleep_for(std::chrono::microseconds(delay));
        worker.Kill(SIGKILL);
        EXPECT_EQ(worker.Wait(), -1);
        std::vector<long> done;
        while (worker.ReadLine(&line)) done.push_back(std::stol(line));
        slept += delay;
        writes += static_cast<long>(done.size());
        return done;
    }

    // Runs 8 workers side by side, 100 operations each; each must end with 0.
    void Race(const char* mode) {
        std::vector<std::unique_ptr<krtest::ChildProcess>> workers;
        for (int i = 0; i < 8; ++i)
            workers.push_back(std::make_unique<krtest::ChildProcess>(
                std::vector<std::string>{STORE_WORKER_PATH, BaseFolder(), mode, Data(), "100"}));
        for (auto& w : workers) EXPECT_EQ(w->Wait(), 0) << "see the worker's line above";
    }

    std::mt19937 random{20240601};
    long slept = 0;   // microseconds between "ready" and the kill, summed
    long writes = 0;  // writes reported done, summed
};

TEST_F(StoredFilesProcessTest, KilledCreatesLeaveNoRecordOrACompleteOneThatTheRegistryFinds) {
    KRC::RegisteredProjects::Init(Loc(Data()), "Projects", "Libraries");
    const std::string main = Data() + "/Projects";
    for (int kill = 0; kill < kKills && !HasFailure(); ++kill) {
        SCOPED_TRACE(kill);
        const std::string prefix = "/K" + std::to_string(kill);
        std::vector<long> done = RunAndKill({"create", main, prefix});
        // Killed before its first create made the main folder: nothing to look at.
        for (const std::string& name : krtest::Listing(main)) {
            const std::string folder = main + "/" + name;
            EXPECT_LE(krtest::Listing(folder, ".CacheInfo.xml.tmp").size(), 1u);
            if (!fs::exists(folder + "/CacheInfo.xml")) continue;  // no record: fine
            try {
                std::string path = KRC::CachedProjectInfo{Loc(folder)}.GetProjectPath().Std();
                EXPECT_EQ(path.rfind(prefix + "/", 0), 0u) << path;
                EXPECT_EQ(name, krtest::CacheFolderName(kServer, path, "anna"));
            } catch (const KRC::FileException&) {
                ADD_FAILURE() << folder << ": a record that can't be read";
            }
        }
        // The key whose create the kill may have cut short: the registry finds a
        // whole record it left, or a new one takes the folder it left empty.
        const std::string next = prefix + "/" + std::to_string(done.size());
        const std::string name = krtest::CacheFolderName(kServer, next, "anna");
        IO::Location location;
        krtest::Info(kServer, next.c_str(), "anna").ToKerrowLocation(&location);
        bool created = false;
        std::unique_ptr<KRC::CachedProjectInfo> again(
            KRC::registeredProjects.CreateCachedProjectInfo(location, created));
        ASSERT_TRUE(again);
        EXPECT_EQ(again->GetLocalFolderName().GetUniString().Std(), name);
        EXPECT_FALSE(fs::exists(main + "/" + name + "-1"));
        again.reset();
        fs::remove_all(main);
    }
}

// The options are written by the same temp-file-and-rename writer as the record.
TEST_F(StoredFilesProcessTest, KilledRecordUpdatesLeaveTheOldOrTheNewValue) {
    const std::string folder =
        KRC::CachedProjectInfo(krtest::Info(kServer, "/P", "anna"), Loc(temp.Sub("main")))
            .GetCacheFolderLocation()
            .ToPath()
            .Std();
    long value = 0;
    for (int kill = 0; kill < kKills && !HasFailure(); ++kill) {
        SCOPED_TRACE(kill);
        const Names before = krtest::Listing(folder, ".CacheInfo.xml.tmp");
        std::vector<long> done = RunAndKill({"record", folder, std::to_string(value)});
        const long last = done.empty() ? value : done.back();
        long now = -1;  // a record that can't be read
        try {
            now = static_cast<long>(KRC::CachedProjectInfo{Loc(folder)}.GetVisitCount());
        } catch (const KRC::FileException&) {
        }
        EXPECT_TRUE(now == last || now == last + 1) << now << " after " << last;
        // At most the temporary file of the write the kill cut short; none from
        // before once the worker finished a write.
        const Names after = krtest::Listing(folder, ".CacheInfo.xml.tmp");
        EXPECT_LE(after.size(), done.empty() ? before.size() + 1 : 1u);
        for (const std::string& name : before)
            EXPECT_TRUE(done.empty() || std::count(after.begin(), after.end(), name) == 0) << name;
        value = now;
    }
}

TEST_F(StoredFilesProcessTest, OptionSettersLoseNoUpdateAndNeverReadBackAnOlderValue) {
    // The file is there before the hosts start, as it is after any first start.
    fs::create_directories(Data());
    krtest::WriteFile(Data() + "/KRDataOptions.xml", krtest::OptionsXml(Data(), 0));
    Race("options-race");
    EXPECT_EQ(NumberIn(Data() + "/KRDataOptions.xml", "/KRDataOptions/CleanSchedule/PeriodTime"),
              800);
}

TEST_F(StoredFilesProcessTest, RegistrySettersMakeOneRecordLoseNoUpdateAndNeverReadBackAnOlderOne) {
    Race("registry-race");
    const Names records = krtest::Listing(Data() + "/Projects");
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(NumberIn(Data() + "/Projects/" + records[0] + "/CacheInfo.xml", "/Cache/VisitCount"),
              800);
}

}  // namespace
