// krctl's command line as a user meets it: mistakes, help, JSON errors, times.

#include <gtest/gtest.h>

#include <filesystem>
#include <nlohmann/json.hpp>
#include <regex>

#include "Support/Process.h"
#include "Support/TempFolder.h"

namespace {

using Json = nlohmann::ordered_json;

class KrctlCommandLineTest : public ::testing::Test {
protected:
    krtest::ProcessResult Run(std::vector<std::string> args) const {
        args.insert(args.begin(), KRCTL_PATH);
        return krtest::RunProcess(args);
    }
    std::string MakeRecord() const {
        auto r = Run({"cache", "create", "--main-folder", temp.Sub("P"), "--server", "https://srv",
                      "--path", "/F/Tower", "--user", "anna", "--base-folder", temp.Sub("base")});
        EXPECT_EQ(r.exitCode, 0) << r.err;
        return r.out.substr(0, r.out.find('\n'));
    }
    krtest::TempFolder temp;
};

TEST_F(KrctlCommandLineTest, MistakesGiveOneLineNamingWhatAndTheDocumentedExitCode) {
    const std::string record = MakeRecord();
    const std::string absent = temp.Sub("absent");
    struct Case {
        std::vector<std::string> args;
        int exitCode;
        std::string says;
    };
    const std::vector<Case> cases = {
        {{"--data-folder", absent, "registry", "list"}, 2, "No such file or directory"},
        {{"cache", "create", "--main-folder", "--server", "https://srv", "--path", "/p", "--user",
          "u"},
         2,
         "--main-folder: needs a value, not the option --server"},
        {{"cache", "create", "--main-folder"}, 2, "--main-folder"},
        {{"cache", "set", record, "visitCount", "many"}, 2, "visitCount: 'many' is not a number"},
        {{"cache", "set", record, "noSuchField", "1"}, 2, "unknown field 'noSuchField'"},
        // Global options after the command, and the errno text of a file failure.
        {{"cache", "show", absent, "--base-folder", temp.Sub("base")},
         1,
         "cannot open " + absent + "/CacheInfo.xml: No such file or directory"},
        // -- ends the options: "--json" is the folder's name here.
        {{"cache", "show", "--", "--json"}, 1, "--json/CacheInfo.xml: No such file or directory"},
        {{"nosuch"}, 2, "nosuch"},
        {{"cache"}, 2, "subcommand"},
    };
    for (const Case& c : cases) {
        auto r = Run(c.args);
        EXPECT_EQ(r.exitCode, c.exitCode) << c.args[0] << " " << r.err;
        EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
        EXPECT_EQ(r.err.rfind("krctl: ", 0), 0u) << r.err;
        EXPECT_NE(r.err.find(c.says), std::string::npos) << r.err;
        EXPECT_TRUE(r.out.empty()) << r.out;
    }
    // A mistyped data folder is not made; --create makes it, private.
    EXPECT_FALSE(std::filesystem::exists(absent));
    auto made = Run({"--create", "--data-folder", absent, "registry", "list"});
    EXPECT_EQ(made.exitCode, 0) << made.err;
    EXPECT_EQ(std::filesystem::status(absent).permissions() & std::filesystem::perms::all,
              std::filesystem::perms::owner_all);

    // With --json the error is an object on standard error.
    auto json = Run({"cache", "set", record, "visitCount", "many", "--json"});
    EXPECT_EQ(json.exitCode, 2);
    Json error = Json::parse(json.err);
    EXPECT_EQ(error["code"], 2);
    EXPECT_NE(error["error"].get<std::string>().find("visitCount"), std::string::npos);
    auto missing = Run({"--json", "cache", "show", absent});
    EXPECT_EQ(Json::parse(missing.err)["code"], 1);
}

TEST_F(KrctlCommandLineTest, VersionHelpAtEveryLevelAndTimesInIso8601) {
    auto version = Run({"--version"});
    EXPECT_EQ(version.exitCode, 0);
    EXPECT_EQ(version.out.rfind("krctl 0.", 0), 0u) << version.out;

    for (std::vector<std::string> args : {std::vector<std::string>{"--help"},
                                          {"cache", "-h"},
                                          {"cache", "set", "-h"},
                                          {"registry", "set", "--help"},
                                          {"lock", "hold", "-h"}}) {
        auto help = Run(args);
        EXPECT_EQ(help.exitCode, 0) << args.back();
        EXPECT_NE(help.out.find("Usage: krctl"), std::string::npos) << help.out;
        EXPECT_NE(help.out.find("Exit codes: 0 done; 1"), std::string::npos);
    }
    EXPECT_NE(Run({"cache", "set", "-h"}).out.find("true detaches, false reloads"),
              std::string::npos);

    const std::string record = MakeRecord();
    ASSERT_EQ(Run({"cache", "set", record, "lastOpenProjectTime", "848727707"}).exitCode, 0);
    auto show = Run({"--json", "cache", "show", record});
    Json j = Json::parse(show.out);
    EXPECT_EQ(j["lastOpenProjectTime"], 848727707);
    EXPECT_EQ(j["lastOpenProjectTimeText"], "2026-11-23T05:41:47Z");
    EXPECT_TRUE(std::regex_match(j["modificationTimeText"].get<std::string>(),
                                 std::regex(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ)")));
    auto text = Run({"cache", "show", record});
    EXPECT_NE(text.out.find("848727707 (2026-11-23T05:41:47Z)"), std::string::npos) << text.out;
}

}  // namespace
