// krctl doctor over data folders prepared with plain file operations: one of
// each problem, found, repaired once, and left alone the second time.

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <map>
#include <nlohmann/json.hpp>

#include "KRClient/CacheInfoFileBuilder.h"
#include "Support/Krctl.h"

namespace {

namespace fs = std::filesystem;
using Json = nlohmann::ordered_json;

class DoctorTest : public krtest::KrctlRun {
protected:
    DoctorTest() { globals = {"--data-folder", Data()}; }
    void SetUp() override {
        ASSERT_EQ(Run({"--create", "options", "set", "periodTime", "5"}).exitCode, 0);
    }
    void Record(const std::string& folder, const std::string& server, const std::string& path,
                const std::string& user) const {
        krtest::WriteCacheInfo(
            Data() + "/Projects/" + folder, 10,
            {{"PortalServerUrl", server}, {"ProjectPath", path}, {"LoginName", user}});
    }
    // Every path under the data folder with its size and modification time.
    std::map<std::string, std::string> Snapshot() const {
        std::map<std::string, std::string> files;
        for (const auto& e : fs::recursive_directory_iterator(Data())) {
            struct stat st {};
            lstat(e.path().c_str(), &st);
            files[e.path().string()] = std::to_string(st.st_size) + "/" +
                                       std::to_string(st.st_mtim.tv_sec) + "." +
                                       std::to_string(st.st_mtim.tv_nsec);
        }
        return files;
    }
};

TEST_F(DoctorTest, FindsEachPlantedProblemRepairsOnceAndThenFindsOnlyTheDuplicates) {
    ASSERT_EQ(Run({"registry", "create", "--server", "https://srv", "--user", "anna", "--path",
                   "/A/Good"})
                  .exitCode,
              0);
    Record("dup-1", "https://srv", "/A/Twice", "bert");
    Record("dup-2", "https://SRV/", "/a/twice", "BERT");  // the same project, strictly
    Record("loose-1", "http://srv:8080", "/A/Other", "cora");
    Record("loose-2", "https://srv", "/A/Other", "cora");  // the same host only
    const std::string damaged = Data() + "/Projects/damaged/CacheInfo.xml";
    const std::string damagedBytes = "<?xml version=\"1.0\"?>\n<Cache>\n  <DataVersion>10</Data";
    fs::create_directories(Data() + "/Projects/damaged");
    krtest::WriteFile(damaged, damagedBytes);
    krtest::WriteFile(Data() + "/@DataOptions.Lock", "");                     // stale
    krtest::WriteFile(Data() + "/.KRDataOptions.xml.tmp-a1B2c3", "<KRData");  // leftovers
    krtest::WriteFile(Data() + "/Projects/dup-1/.CacheInfo.xml.tmp-Zz9Yy8", "<Ca");

    const auto before = Snapshot();
    auto doctor = Run({"--json", "doctor"});
    EXPECT_EQ(doctor.exitCode, 1) << doctor.err;
    EXPECT_EQ(Snapshot(), before);  // read only
    Json report = Json::parse(doctor.out);
    EXPECT_EQ(report["options"], (Json{{"file", Data() + "/KRDataOptions.xml"},
                                       {"state", "readable"},
                                       {"form", "current"},
                                       {"localDataFolder", Data()},
                                       {"outside", false}}));
    EXPECT_EQ(report["lock"]["state"], "stale");
    std::map<std::string, Json> folders;
    for (const Json& c : report["cacheFolders"])
        folders[fs::path(c["folder"].get<std::string>()).filename()] = c;
    ASSERT_EQ(folders.size(), 6u) << doctor.out;
    EXPECT_EQ(folders["damaged"]["state"], "damaged");
    EXPECT_EQ(folders["damaged"]["line"], 3);
    EXPECT_GT(folders["damaged"]["column"].get<int>(), 10);
    EXPECT_EQ(folders["dup-1"]["md5Name"], false);
    EXPECT_EQ(folders["dup-1"]["dataVersion"], 10);
    int good = 0;
    for (auto& [name, c] : folders) good += c.value("md5Name", false) ? 1 : 0;
    EXPECT_EQ(good, 1);  // the one the registry made
    ASSERT_EQ(report["duplicates"].size(), 2u);
    EXPECT_EQ(report["duplicates"][0]["match"], "strict");
    EXPECT_EQ(report["duplicates"][0]["folders"].size(), 2u);
    EXPECT_EQ(report["duplicates"][1]["match"], "loose");
    EXPECT_EQ(report["leftovers"].size(), 2u);
    EXPECT_EQ(report["problems"], 6);  // stale lock, damaged, two groups, two leftovers

    auto repair = Run({"--json", "doctor", "--repair"});
    EXPECT_EQ(repair.exitCode, 1) << repair.err;  // the duplicates stay
    Json repaired = Json::parse(repair.out);
    EXPECT_EQ(repaired["repairs"].size(), 4u) << repaired["repairs"].dump();
    EXPECT_EQ(repaired["problems"], 2);
    EXPECT_EQ(repaired["lock"]["state"], "absent");
    EXPECT_FALSE(krtest::Exists(damaged));
    std::vector<std::string> quarantine = krtest::Listing(Data(), "Quarantine-");
    ASSERT_EQ(quarantine.size(), 1u);
    EXPECT_EQ(krtest::ReadFile(Data() + "/" + quarantine[0] + "/damaged/CacheInfo.xml"),
              damagedBytes);

    const auto afterRepair = Snapshot();
    auto again = Run({"--json", "doctor", "--repair"});
    EXPECT_EQ(Json::parse(again.out)["repairs"].size(), 0u) << again.out;
    EXPECT_EQ(Snapshot(), afterRepair);
}

TEST_F(DoctorTest, ACopyPointingAtItsOriginalUnknownUsersAndAHeldLock) {
    Record("known", "https://srv", "/A/P", "anna");
    Record("unknown", "https://srv", "/A/Q", "bert");
    ASSERT_EQ(Run({"--base-folder", Base(), "login", "add-server", "https://srv"}).exitCode, 0);
    ASSERT_EQ(Run({"--base-folder", Base(), "login", "add-user", "https://srv", "anna"}).exitCode,
              0);
    {
        krtest::ChildProcess holder(Krctl({"lock", "hold", "--seconds", "600"}));
        std::string line;
        ASSERT_TRUE(holder.ReadLine(&line));
        auto doctor = Run({"--json", "--base-folder", Base(), "doctor"});
        EXPECT_EQ(doctor.exitCode, 1) << doctor.err;
        Json report = Json::parse(doctor.out);
        EXPECT_EQ(report["lock"]["state"], "held");
        ASSERT_EQ(report["unknownUsers"].size(), 1u);
        EXPECT_EQ(report["unknownUsers"][0]["user"], "bert");
        EXPECT_EQ(report["problems"], 1);
    }
    fs::remove(Data() + "/@DataOptions.Lock");  // left by the killed holder

    const std::string copy = temp.Sub("copy");
    fs::copy(Data(), copy, fs::copy_options::recursive);
    auto copied = krtest::RunProcess({KRCTL_PATH, "--data-folder", copy, "doctor"});
    EXPECT_EQ(copied.exitCode, 1);
    EXPECT_NE(copied.out.find("OUTSIDE the data folder"), std::string::npos) << copied.out;
    EXPECT_NE(copied.out.find("1 problem(s)"), std::string::npos) << copied.out;
}

}  // namespace
