// krctl doctor over data folders prepared with plain file operations.

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <map>
#include <nlohmann/json.hpp>
#include <regex>
#include <sstream>

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
    std::map<std::string, std::string> Snapshot() const { return KrctlRun::Snapshot(Data()); }
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

TEST_F(DoctorTest, UnknownUsersAndAHeldLock) {
    Record("known", "https://srv", "/A/P", "anna");
    Record("unknown", "https://srv", "/A/Q", "bert");
    ASSERT_EQ(Run({"--base-folder", Base(), "login", "add-server", "https://srv"}).exitCode, 0);
    ASSERT_EQ(Run({"--base-folder", Base(), "login", "add-user", "https://srv", "anna"}).exitCode,
              0);
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

TEST_F(DoctorTest, RepairActsOnlyInsideTheGivenFolderAndSetsAsideWhatCannotBeRead) {
    Record("good", "https://srv", "/A/P", "anna");
    for (const char* name : {"damaged", "evil\nname\x1b[2J"}) {
        fs::create_directories(Data() + "/Projects/" + name);
        krtest::WriteFile(Data() + "/Projects/" + name + "/CacheInfo.xml", "<garbage");
    }
    fs::create_directories(Data() + "/Projects/folder/CacheInfo.xml");  // not a file at all
    Record("new\nline", "https://srv", "/A/N\x1b[2J", "anna");
    auto list = Run({"registry", "list"});
    EXPECT_NE(list.out.find("/Projects/new\\nline  https://srv  anna  /A/N\\x1b[2J\n"),
              std::string::npos)
        << list.out;
    EXPECT_EQ(list.err, "krctl: 3 damaged record(s): run krctl doctor\n");
    const std::string copy = temp.Sub("copy");
    fs::copy(Data(), copy, fs::copy_options::recursive);

    // The copy's options lead to the original: what lies there is reported and left.
    const auto original = Snapshot();
    auto left = krtest::RunProcess({KRCTL_PATH, "--data-folder", copy, "doctor", "--repair"});
    EXPECT_EQ(left.exitCode, 1);
    EXPECT_EQ(Snapshot(), original);
    EXPECT_EQ(krtest::Listing(copy, "Quarantine-").size(), 0u);
    std::size_t leftLines = 0;
    for (std::size_t at = 0;
         (at = left.out.find(" (outside the data folder)\n", at + 1)) != std::string::npos;)
        ++leftLines;
    EXPECT_EQ(leftLines, 3u) << left.out;
    EXPECT_NE(left.out.find("local data folder " + Data() + " (OUTSIDE the data folder)"),
              std::string::npos);

    // In the original all three go into quarantine, and the next look is clean.
    auto repair = Run({"doctor", "--repair"});
    EXPECT_EQ(repair.exitCode, 0) << repair.out;
    EXPECT_NE(repair.out.find("/Projects/evil\\nname\\x1b[2J to "), std::string::npos);
    const std::regex line("(repaired|options|lock|login data|cache folder|clean:) [^\\x00-\\x1f]*");
    std::istringstream lines(repair.out);
    for (std::string text; std::getline(lines, text);)
        EXPECT_TRUE(std::regex_match(text, line)) << text;
    std::vector<std::string> quarantine = krtest::Listing(Data(), "Quarantine-");
    ASSERT_EQ(quarantine.size(), 1u);
    EXPECT_EQ(krtest::Listing(Data() + "/" + quarantine[0]).size(), 3u);
    EXPECT_EQ(Json::parse(Run({"--json", "doctor"}).out)["problems"], 0);
}

// Which files the reader refuses is its own test's; here how krctl names one.
TEST_F(DoctorTest, ALoginDataFileItsReaderRefusesIsNamedWithTheReasonAndLeftAsItIs) {
    const std::string file = Base() + "/LoginData.json";
    fs::create_directories(Base());
    krtest::WriteFile(file, std::string(40, '[') + std::string(40, ']'));
    const std::string reason = "nested deeper than 32";
    const auto listing = krtest::Listing(Base());
    auto list = krtest::RunProcess({KRCTL_PATH, "--base-folder", Base(), "login", "list"});
    EXPECT_EQ(list.exitCode, 1);
    EXPECT_EQ(list.err.rfind("krctl: the login data file " + file + " was refused: ", 0), 0u)
        << list.err;
    EXPECT_NE(list.err.find(reason), std::string::npos) << list.err;
    auto doctor = Run({"--base-folder", Base(), "doctor"});
    EXPECT_EQ(doctor.exitCode, 1);
    EXPECT_NE(doctor.out.find("login data   " + file + ": refused (" + reason), std::string::npos)
        << doctor.out;
    EXPECT_EQ(krtest::Listing(Base()), listing);  // nothing set aside or made
}

}  // namespace
