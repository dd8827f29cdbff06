// krctl on a data folder, with real processes: the lock between runs, files
// it can't open, read commands that make nothing, options that lead outside
// the given folder, and the doctor over folders prepared with plain file
// operations.

#include <gtest/gtest.h>
#include <pwd.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <filesystem>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <regex>
#include <set>
#include <sstream>

#include "KRClient/CacheInfoFileBuilder.h"
#include "Support/Krctl.h"

namespace {

namespace fs = std::filesystem;
using Json = nlohmann::ordered_json;

struct Case {
    std::vector<std::string> args;
    int exitCode;
    std::string says;  // found in standard output and error together
};

class KrctlDataFolderTest : public krtest::KrctlRun {
protected:
    KrctlDataFolderTest() { globals = {"--base-folder", Base(), "--data-folder", Data()}; }
    // A data folder with options and the record of anna's /A/P; anna is known.
    void MakeData() const {
        ASSERT_EQ(Run({"--create", "registry", "create", "--server", "https://srv", "--user",
                       "anna", "--path", "/A/P"})
                      .exitCode,
                  0);
        ASSERT_EQ(Run({"login", "add-server", "https://srv"}).exitCode, 0);
        ASSERT_EQ(Run({"login", "add-user", "https://srv", "anna"}).exitCode, 0);
    }
    // Each case run by run, with output and exit code as the case says.
    template <typename Runner>
    void Expect(const std::vector<Case>& cases, Runner run) const {
        for (const Case& c : cases) {
            krtest::ProcessResult r = run(c.args);
            std::string all = r.out + r.err, command;
            for (const std::string& a : c.args) command += a + " ";
            EXPECT_EQ(r.exitCode, c.exitCode) << command << all;
            EXPECT_NE(all.find(c.says), std::string::npos) << command << all;
        }
    }
    std::vector<std::string> Set(const char* count) const {
        return {"registry",    "set",    "visitCount", count,    "--server",
                "https://srv", "--user", "anna",       "--path", "/A/P"};
    }
};

TEST_F(KrctlDataFolderTest, ReadCommandsMakeNothingAndARelativeLocalDataFolderIsNamed) {
    fs::create_directory(Data());
    const std::vector<Case> empty = {
        {{"registry", "list"}, 0, "0 project(s)"},
        {{"registry", "find", "--server", "https://srv", "--user", "anna", "--path", "/A/P"},
         1,
         "not found"},
        {{"options", "show"}, 0, "periodTime               30"},
        {{"login", "list"}, 0, "no servers"},
        {{"doctor"}, 0, "login data   " + Base() + "/LoginData.json: absent"},
    };
    auto before = Snapshot(temp.Path());
    Expect(empty, [&](auto& args) { return Run(args); });
    EXPECT_EQ(Snapshot(temp.Path()), before);
    EXPECT_FALSE(krtest::Exists(Base()));

    // A relative value would be taken from the working folder: there, a
    // folder of the temporary folder.
    MakeData();
    const std::string relative = fs::relative(temp.Sub("rel"), fs::current_path()).string();
    const std::string file = Data() + "/KRDataOptions.xml";
    krtest::WriteFile(
        file, std::regex_replace(krtest::ReadFile(file), std::regex("<LocalDataFolderPath>[^<]*<"),
                                 "<LocalDataFolderPath>" + relative + "<"));
    const std::string says = "LocalDataFolderPath '" + relative + "' is not an absolute path";
    const std::vector<Case> unusable = {
        {{"registry", "list"}, 1, "krctl: " + Data() + "/KRDataOptions.xml: " + says + "\n"},
        {{"registry", "create", "--server", "https://srv", "--user", "bert", "--path", "/B"},
         1,
         says},
        {{"doctor"}, 1, "unusable, current form, local data folder " + relative + " (" + says},
        {{"doctor", "--repair"}, 1, "unusable"},
    };
    before = Snapshot(temp.Path());
    Expect(unusable, [&](auto& args) { return Run(args); });
    EXPECT_EQ(Snapshot(temp.Path()), before);
    EXPECT_FALSE(krtest::Exists(temp.Sub("rel")));
}

TEST_F(KrctlDataFolderTest, AsAPlainUserWhatCannotBeOpenedIsNamedAtOnceAndARecordIsCounted) {
    const passwd* nobody = getpwnam("nobody");
    if (!nobody) GTEST_SKIP() << "no user nobody";
    MakeData();
    krtest::WriteCacheInfo(Data() + "/Projects/locked", 10, {{"LoginName", "bert"}});
    for (const auto& e : fs::recursive_directory_iterator(temp.Path()))
        lchown(e.path().c_str(), nobody->pw_uid, nobody->pw_gid);
    chown(temp.Path().c_str(), nobody->pw_uid, nobody->pw_gid);
    auto asNobody = [&](auto& args) {
        return krtest::RunProcessAs(Krctl(args), nobody->pw_uid, nobody->pw_gid);
    };
    const std::string options = Data() + "/KRDataOptions.xml";
    const std::string denied = "krctl: cannot open " + options + ": Permission denied\n";
    chmod(options.c_str(), 0);
    Expect({{{"registry", "list"}, 1, denied},
            {Set("3"), 1, denied},
            {{"doctor"}, 1, "KRDataOptions.xml: unreadable (Permission denied)"}},
           asNobody);

    chmod(options.c_str(), 0600);
    chmod((Data() + "/Projects").c_str(), 0500);
    Expect({{{"registry", "create", "--server", "https://srv", "--user", "bert", "--path", "/B"},
             1,
             "krctl: cannot change " + Data() + "/Projects: Permission denied\n"}},
           asNobody);

    // A record nobody may open is no project, but it is not hidden; a repair
    // sets it aside so that the next look is clean.
    chmod((Data() + "/Projects").c_str(), 0700);
    chmod((Data() + "/Projects/locked/CacheInfo.xml").c_str(), 0);
    Expect({{{"registry", "list"}, 0, "krctl: 1 damaged record(s): run krctl doctor\n"},
            {{"doctor", "--repair"}, 0, "repaired     moved the unreadable cache folder"},
            {{"doctor"}, 0, "clean: 1 cache folder(s)"}},
           asNobody);
}

TEST_F(KrctlDataFolderTest, ACopyWhoseOptionsPointAtTheOriginalChangesItOnlyWhenToldTo) {
    MakeData();
    const std::string copy = temp.Sub("copy");
    fs::copy(Data(), copy, fs::copy_options::recursive);
    auto inCopy = [&](auto& args) {
        std::vector<std::string> argv{KRCTL_PATH, "--base-folder", Base(), "--data-folder", copy};
        argv.insert(argv.end(), args.begin(), args.end());
        return krtest::RunProcess(argv);
    };
    const std::string refused = "krctl: the options of " + copy + " point outside it, at " +
                                Data() +
                                "; nothing changed (give --follow-options to work there)\n";
    const std::string reads =
        "krctl: reading from " + Data() + ", where the options of " + copy + " point\n";
    const auto original = Snapshot(Data());
    Expect({{Set("77"), 1, refused},
            {{"lock", "hold", "--seconds", "0"}, 1, refused},
            {{"registry", "list"}, 0, reads}},
           inCopy);
    EXPECT_EQ(Snapshot(Data()), original);

    std::vector<std::string> follow = Set("77");
    follow.insert(follow.begin(), "--follow-options");
    Expect({{follow, 0, "visitCount: done"}}, inCopy);
    Expect({{{"--json", "registry", "list"}, 0, "\"visitCount\": 77"}},
           [&](auto& args) { return Run(args); });
}

std::int64_t NowMillis() {
    timespec ts{};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<std::int64_t>(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
}

class KrctlProcessTest : public krtest::KrctlRun {
protected:
    KrctlProcessTest() { globals = {"--base-folder", Base(), "--create", "--data-folder", Data()}; }
    void SetUp() override {
        krtest::WriteCache(Data() + "/Projects", "p", "https://srv", "/A/P", "anna");
        ASSERT_EQ(Run({"options", "set", "periodTime", "7"}).exitCode, 0);
    }
    std::vector<std::string> SetVisits(const char* count) const {
        return Krctl({"registry", "set", "visitCount", count, "--server", "https://srv", "--user",
                      "anna", "--path", "/A/P"});
    }
    int VisitCount() const {
        Json list = Json::parse(Run({"--json", "registry", "list"}).out);
        return list.size() == 1 ? list[0]["visitCount"].get<int>() : -1;
    }
    // `lock hold` for the seconds given, once it holds the lock.
    std::unique_ptr<krtest::ChildProcess> HoldLock(const char* seconds) const {
        auto holder =
            std::make_unique<krtest::ChildProcess>(Krctl({"lock", "hold", "--seconds", seconds}));
        std::string line;
        EXPECT_TRUE(holder->ReadLine(&line) && line.rfind("locked ", 0) == 0) << line;
        return holder;
    }
};

TEST_F(KrctlProcessTest, AWriterWaitsForTheHolderAndGoesOnRightAfterTheRelease) {
    auto holder = HoldLock("1");
    krtest::ChildProcess writer(SetVisits("7"));
    EXPECT_EQ(writer.Wait(), 0);
    const std::int64_t writerDone = NowMillis();
    std::string line;
    ASSERT_TRUE(holder->ReadLine(&line));
    ASSERT_EQ(line.rfind("released ", 0), 0u) << line;  // "released <ms>"
    const std::int64_t released = std::stoll(line.substr(9));
    EXPECT_GE(writerDone, released);
    // One wait step is 50 ms; the bound leaves room for a loaded machine.
    EXPECT_LT(writerDone - released, 1000);
    EXPECT_EQ(holder->Wait(), 0);
    EXPECT_EQ(VisitCount(), 7);
}

TEST_F(KrctlProcessTest, AWaitForTheLockIsToldAndBoundedAndALockLeftByAKilledHolderDelaysNobody) {
    auto holder = HoldLock("600");
    // Given up before a second: no word of waiting, only the failure.
    auto quick = Run({"options", "set", "periodTime", "9", "--wait", "0.2"});
    EXPECT_EQ(quick.exitCode, 1);
    EXPECT_EQ(quick.err.find("krctl: waiting for the lock"), std::string::npos) << quick.err;
    EXPECT_NE(quick.err.find("gave up waiting for the lock of " + Data()), std::string::npos)
        << quick.err;
    // Past a second the wait is told on standard error.
    auto slow = Run({"--wait", "1.3", "options", "set", "periodTime", "9"});
    EXPECT_EQ(slow.exitCode, 1);
    EXPECT_NE(
        slow.err.find("krctl: waiting for the lock of " + Data() + " held by another process\n"),
        std::string::npos)
        << slow.err;
    EXPECT_EQ(Json::parse(Run({"--json", "options", "show"}).out)["periodTime"], 7);

    holder.reset();                                              // killed
    EXPECT_TRUE(krtest::Exists(Data() + "/@DataOptions.Lock"));  // left behind
    const std::int64_t start = NowMillis();
    auto r = krtest::RunProcess(SetVisits("3"));
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_LT(NowMillis() - start, 5000);  // against a hold of ten minutes
    EXPECT_EQ(VisitCount(), 3);
    EXPECT_FALSE(krtest::Exists(Data() + "/@DataOptions.Lock"));
}

// Concurrent creates are the store's process test; krctl tells whether it made the record.
TEST_F(KrctlProcessTest, RegistryCreateTellsWhetherItMadeTheRecord) {
    const std::vector<std::string> create = {"--json",   "registry",    "create",
                                             "--server", "https://srv", "--user",
                                             "anna",     "--path",      "/A/Tower"};
    const Json first = Json::parse(Run(create).out), again = Json::parse(Run(create).out);
    EXPECT_EQ(first["created"], true);
    EXPECT_EQ(again["created"], false);
    EXPECT_EQ(again["cacheDataFolder"], first["cacheDataFolder"]);
}

class DoctorTest : public krtest::KrctlRun {
protected:
    DoctorTest() { globals = {"--data-folder", Data()}; }
    void SetUp() override {
        ASSERT_EQ(Run({"--create", "options", "set", "periodTime", "5"}).exitCode, 0);
    }
    void Record(const std::string& folder, const std::string& server, const std::string& path,
                const std::string& user) const {
        krtest::WriteCache(Data() + "/Projects", folder, server, path, user);
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
    // Each folder as "name state", the one the registry made as "md5 readable".
    std::set<std::string> folders;
    for (const Json& c : report["cacheFolders"])
        folders.insert((c.value("md5Name", false)
                            ? std::string("md5")
                            : fs::path(c["folder"].get<std::string>()).filename().string()) +
                       " " + c["state"].get<std::string>());
    EXPECT_EQ(folders,
              (std::set<std::string>{"md5 readable", "damaged damaged", "dup-1 readable",
                                     "dup-2 readable", "loose-1 readable", "loose-2 readable"}))
        << doctor.out;
    EXPECT_EQ(report["cacheFolders"][1]["line"], 3) << doctor.out;
    std::string groups;
    for (const Json& g : report["duplicates"])
        groups += g["match"].get<std::string>() + std::to_string(g["folders"].size()) + " ";
    EXPECT_EQ(groups, "strict2 loose2 ");
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
