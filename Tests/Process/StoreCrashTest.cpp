// Writers of the stored files killed at random points: every file left is
// the old or the new one, complete, and a create cut short costs no second
// folder for its key.

#include <gtest/gtest.h>
#include <signal.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <pugixml.hpp>
#include <random>
#include <set>
#include <thread>

#include "KRClient/CachedProjectInfo.h"
#include "KRClient/KRClientExceptions.h"
#include "Support/LibraryTest.h"
#include "Support/Process.h"
#include "ZR/MD5.h"

namespace {

namespace fs = std::filesystem;

constexpr int kKills = 200;

KRC::ProjectConnectionInfo Info(const std::string& path) {
    KRC::ProjectConnectionInfo info;
    info.SetServerUrl("https://srv.example.com");
    info.SetUserName("anna");
    info.SetProjectPath(ZR::UniString(path));
    return info;
}

std::string Md5Name(const std::string& path) {
    return MD5::Of(ZR::UniString("https://srv.example.com_" + path + "_anna"))
        .GetAsZrString()
        .Std();
}

IO::Location Loc(const std::string& path) {
    return IO::Location(ZR::UniString(path));
}

// Temporary files of interrupted writes of `file` in `folder`.
std::set<std::string> Temps(const std::string& folder, const std::string& file) {
    std::set<std::string> temps;
    if (!fs::is_directory(folder)) return temps;
    for (const auto& entry : fs::directory_iterator(folder)) {
        std::string name = entry.path().filename().string();
        if (name.rfind("." + file + ".tmp", 0) == 0) temps.insert(name);
    }
    return temps;
}

class StoreCrashTest : public krtest::LibraryTest {
protected:
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

    // After a kill: at most the one temporary file of the write the kill cut
    // short, and none from before if the worker finished a write since.
    void CheckTemps(const std::set<std::string>& before, const std::set<std::string>& after,
                    bool wrote) {
        EXPECT_LE(after.size(), wrote ? 1u : before.size() + 1);
        if (!wrote) return;
        for (const std::string& name : before) EXPECT_EQ(after.count(name), 0u) << name;
    }

    std::mt19937 random{20240601};
    long slept = 0;   // microseconds between "ready" and the kill, summed
    long writes = 0;  // writes reported done, summed
};

TEST_F(StoreCrashTest, KilledCreatesLeaveNoRecordOrACompleteOneAndTheNextCreateTakesItsFolder) {
    const std::string main = temp.Sub("main");
    std::error_code ignored;
    for (int kill = 0; kill < kKills; ++kill) {
        SCOPED_TRACE(kill);
        const std::string prefix = "/K" + std::to_string(kill);
        std::vector<long> done = RunAndKill({"create", main, prefix});

        // Killed before its first create made the main folder: nothing to look at.
        for (const auto& entry :
             fs::directory_iterator(main, fs::directory_options::none, ignored)) {
            const std::string folder = entry.path().string();
            EXPECT_LE(Temps(folder, "CacheInfo.xml").size(), 1u);
            if (!fs::exists(folder + "/CacheInfo.xml")) continue;  // no record: fine
            try {
                KRC::CachedProjectInfo record{Loc(folder)};
                std::string path = record.GetProjectPath().Std();
                EXPECT_EQ(path.rfind(prefix + "/", 0), 0u) << path;
                EXPECT_EQ(entry.path().filename().string(), Md5Name(path));
            } catch (const KRC::FileException&) {
                ADD_FAILURE() << folder << ": a record that can't be read";
            }
        }
        // The key whose create the kill may have cut short.
        const std::string next = prefix + "/" + std::to_string(done.size());
        KRC::CachedProjectInfo again(Info(next), Loc(main));
        EXPECT_EQ(again.GetLocalFolderName().GetUniString().Std(), Md5Name(next));
        EXPECT_FALSE(fs::exists(main + "/" + Md5Name(next) + "-1"));
        fs::remove_all(main);
        if (HasFailure()) break;
    }
}

TEST_F(StoreCrashTest, KilledRecordUpdatesLeaveTheOldOrTheNewValue) {
    const std::string folder = KRC::CachedProjectInfo(Info("/P"), Loc(temp.Sub("main")))
                                   .GetCacheFolderLocation()
                                   .ToPath()
                                   .Std();
    long value = 0;
    for (int kill = 0; kill < kKills; ++kill) {
        SCOPED_TRACE(kill);
        auto before = Temps(folder, "CacheInfo.xml");
        std::vector<long> done = RunAndKill({"record", folder, std::to_string(value)});
        long last = done.empty() ? value : done.back();

        long stored = -1;
        try {
            stored = KRC::CachedProjectInfo{Loc(folder)}.GetVisitCount();
        } catch (const KRC::FileException&) {
            ADD_FAILURE() << "a record that can't be read";
        }
        EXPECT_TRUE(stored == last || stored == last + 1) << stored << " after " << last;
        CheckTemps(before, Temps(folder, "CacheInfo.xml"), !done.empty());
        value = stored;
        if (HasFailure()) break;
    }
}

TEST_F(StoreCrashTest, KilledOptionsUpdatesLeaveTheOldOrTheNewValue) {
    const std::string data = temp.Sub("data");
    fs::create_directories(data);
    krtest::WriteFile(data + "/KRDataOptions.xml",
                      "<KRDataOptions><DataVersion>1</DataVersion><LocalDataFolderPath>" + data +
                          "</LocalDataFolderPath><CleanSchedule><Enable>true</Enable>"
                          "<PeriodTime>0</PeriodTime><LastUsedDays>30</LastUsedDays>"
                          "<LastRunTime>0</LastRunTime></CleanSchedule></KRDataOptions>");
    long value = 0;
    for (int kill = 0; kill < kKills; ++kill) {
        SCOPED_TRACE(kill);
        auto before = Temps(data, "KRDataOptions.xml");
        std::vector<long> done = RunAndKill({"options", data, std::to_string(value)});
        long last = done.empty() ? value : done.back();

        pugi::xml_document doc;
        ASSERT_TRUE(doc.load_file((data + "/KRDataOptions.xml").c_str()));
        pugi::xml_node root = doc.child("KRDataOptions");
        EXPECT_EQ(std::string(root.child_value("LocalDataFolderPath")), data);
        long stored = std::atol(root.child("CleanSchedule").child_value("PeriodTime"));
        EXPECT_TRUE(stored == last || stored == last + 1) << stored << " after " << last;
        CheckTemps(before, Temps(data, "KRDataOptions.xml"), !done.empty());
        value = stored;
        if (HasFailure()) break;
    }
}

}  // namespace
