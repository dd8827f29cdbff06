// krctl driven as a real process, the way a support engineer uses it.

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <nlohmann/json.hpp>

#include "KRClient/CacheInfoFileBuilder.h"
#include "Support/Process.h"
#include "Support/TempFolder.h"
#include "ZR/MD5.h"

namespace {

using Json = nlohmann::ordered_json;

class KrctlTest : public ::testing::Test {
protected:
    krtest::ProcessResult Run(std::vector<std::string> args) const {
        std::vector<std::string> argv = {KRCTL_PATH, "--base-folder", temp.Sub("base"), "--log-file", temp.Sub("run.log")};
        argv.insert(argv.end(), args.begin(), args.end());
        return krtest::RunProcess(argv);
    }
    std::string Trim(std::string s) {
        while (!s.empty() && s.back() == '\n') s.pop_back();
        return s;
    }
    krtest::TempFolder temp;
};

TEST_F(KrctlTest, CreateNamesFolderByMd5AndShowReadsItBack) {
    auto r = Run({"cache", "create", "--main-folder", temp.Sub("P"), "--server", "https://srv", "--path", "/F/Tower",
                  "--user", "anna", "--token", "SECRET-123"});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    std::string md5 = MD5::Of("https://srv_/F/Tower_anna").GetAsZrString().Std();
    EXPECT_EQ(Trim(r.out), temp.Sub("P/" + md5));

    auto again = Run({"cache", "create", "--main-folder", temp.Sub("P"), "--server", "https://srv", "--path",
                      "/F/Tower", "--user", "anna"});
    ASSERT_EQ(again.exitCode, 0);
    EXPECT_NE(Trim(again.out), Trim(r.out));

    auto show = Run({"--json", "cache", "show", Trim(r.out)});
    ASSERT_EQ(show.exitCode, 0) << show.err;
    Json j = Json::parse(show.out);
    EXPECT_EQ(j["loginName"], "anna");
    EXPECT_EQ(j["projectPath"], "/F/Tower");
    EXPECT_EQ(j["xmlVersion"], 10);
    EXPECT_EQ(j["visitCount"], 0);
    EXPECT_GT(j["modificationTime"].get<int>(), 0);

    // The token given on the command line is nowhere but in the login data.
    for (const std::string& text : {r.out, r.err, show.out, krtest::ReadFile(temp.Sub("run.log")),
                                    krtest::ReadFile(Trim(r.out) + "/CacheInfo.xml")})
        EXPECT_EQ(text.find("SECRET-123"), std::string::npos);
}

TEST_F(KrctlTest, ShowReadsOlderDataVersions) {
    for (int version : {0, 2, 4, 5, 6, 7, 8, 9, 10, 11}) {
        SCOPED_TRACE(version);
        std::string folder = temp.Sub("v" + std::to_string(version));
        std::filesystem::create_directories(folder);
        krtest::WriteFile(folder + "/CacheInfo.xml",
                        krtest::BuildCacheInfoXml(version, {{"LoginName", "anna"}, {"ProjectName", "Tower"},
                                                          {"ProjectPath", "/F/Tower"}, {"VisitCount", "3"}}));
        auto show = Run({"--json", "cache", "show", folder});
        ASSERT_EQ(show.exitCode, 0) << show.err;
        Json j = Json::parse(show.out);
        EXPECT_EQ(j["xmlVersion"], version);
        EXPECT_EQ(j["loginName"], version >= 1 ? "anna" : "");
        EXPECT_EQ(j["projectPath"], version >= 8 ? "/F/Tower" : "Tower");
        EXPECT_EQ(j["visitCount"], version >= 7 ? 3 : 0);
        EXPECT_EQ(j["projectVersion"], version >= 6 ? "" : version == 5 ? "14.0.0.0 (C-107)" : "13.0.0.0");
    }
}

TEST_F(KrctlTest, SetOfAnEqualUserNameLeavesTheFileUntouched) {
    auto r = Run({"cache", "create", "--main-folder", temp.Sub("P"), "--server", "s", "--path", "/p", "--user", "u"});
    std::string folder = Trim(r.out);
    ASSERT_EQ(Run({"cache", "set", folder, "userName", "ärger"}).exitCode, 0);
    std::string before = krtest::ReadFile(folder + "/CacheInfo.xml");
    struct stat st1 {};
    stat((folder + "/CacheInfo.xml").c_str(), &st1);

    auto same = Run({"cache", "set", folder, "userName", "ÄRGER"});
    EXPECT_EQ(same.exitCode, 0);
    EXPECT_NE(same.out.find("unchanged"), std::string::npos);
    struct stat st2 {};
    stat((folder + "/CacheInfo.xml").c_str(), &st2);
    EXPECT_EQ(st1.st_ino, st2.st_ino);
    EXPECT_EQ(st1.st_mtim.tv_nsec, st2.st_mtim.tv_nsec);
    EXPECT_EQ(krtest::ReadFile(folder + "/CacheInfo.xml"), before);

    EXPECT_EQ(Run({"cache", "set", folder, "visitCount", "7"}).exitCode, 0);
    EXPECT_NE(krtest::ReadFile(folder + "/CacheInfo.xml").find("<VisitCount>7</VisitCount>"), std::string::npos);
}

TEST_F(KrctlTest, BadArgumentsGiveOneLineAndNonZeroExit) {
    for (std::vector<std::string> args :
         {std::vector<std::string>{"cache"}, {"cache", "frobnicate"}, {"cache", "show"},
          {"cache", "set", temp.Path(), "noSuchField", "1"}, {"nosuch"}, {"cache", "create", "--server"}}) {
        auto r = Run(args);
        EXPECT_NE(r.exitCode, 0);
        EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
        EXPECT_EQ(r.err.rfind("krctl: ", 0), 0u) << r.err;
    }
    auto r = Run({"cache", "create", "--main-folder", temp.Sub("P"), "--server", "s", "--path", "/p", "--user", "u"});
    auto bad = Run({"cache", "set", Trim(r.out), "visitCount", "-1"});
    EXPECT_NE(bad.exitCode, 0);
    EXPECT_NE(Run({"cache", "show", temp.Sub("absent")}).exitCode, 0);
}

TEST_F(KrctlTest, LoginDataFileIsPrivateAndHoldsNoTokenInOutput) {
    ASSERT_EQ(Run({"login", "add-server", "https://srv", "--name", "Main"}).exitCode, 0);
    auto add = Run({"login", "add-user", "https://srv", "anna", "--token", "TOKEN-XYZ", "--full-name", "Anna"});
    ASSERT_EQ(add.exitCode, 0) << add.err;
    auto list = Run({"--json", "login", "list"});
    ASSERT_EQ(list.exitCode, 0) << list.err;
    EXPECT_EQ(list.out.find("TOKEN-XYZ"), std::string::npos);
    EXPECT_EQ(krtest::ReadFile(temp.Sub("run.log")).find("TOKEN-XYZ"), std::string::npos);

    bool found = false;
    for (const auto& entry : std::filesystem::directory_iterator(temp.Sub("base"))) {
        if (!entry.is_regular_file()) continue;
        found = true;
        struct stat st {};
        stat(entry.path().c_str(), &st);
        EXPECT_EQ(st.st_mode & 0777, 0600u) << entry.path();
    }
    EXPECT_TRUE(found);
}

}  // namespace
