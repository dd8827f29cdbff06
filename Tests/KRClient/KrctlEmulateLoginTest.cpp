// krctl emulate login and members as a user runs them: the password on
// standard input, a good login remembered for the next command, members
// fetched on the library's own thread and printed from the message loop, and
// no secret in any output.

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <nlohmann/json.hpp>

#include "Support/Krctl.h"

namespace {

using Json = nlohmann::ordered_json;

const char* const kScenario = R"({
  "servers": [{
    "url": "https://emu.example",
    "users": [
      {"login": "anna", "password": "SECRET-PW-anna", "fullName": "Anna Berg",
       "id": "6f1c2f0e-8d1a-4e7b-9a51-0c2d3e4f5a6b", "refreshToken": "SECRET-TOKEN-anna",
       "color": "#3366ccff", "guid": "11111111-2222-4333-8444-555555555555"},
      {"login": "ben", "fullName": "Ben Ortiz", "id": "0A1B2C3D-4E5F-4A6B-8C7D-9E0F1A2B3C4D",
       "refreshToken": "SECRET-TOKEN-ben", "color": "#00ff00"}
    ],
    "stateLogins": [{"key": "key-1", "state": "SECRET-STATE", "user": "anna"}],
    "modelServers": [{"id": "ms1", "path": "/ms/1", "version": [1, 0]}],
    "projects": [{
      "path": "/F/Tower", "id": "p-tower", "modelServer": "ms1",
      "permissions": {"anna": ["SendMail", "ReadProject", "WriteProject"],
                      "ben": ["ReadProject"]},
      "members": [{"user": "ben", "userId": 7}, {"user": "anna", "userId": 3}]
    }]
  }]
})";

class KrctlEmulateLoginTest : public krtest::KrctlRun {
protected:
    void SetUp() override { std::ofstream(Scenario()) << kScenario; }
    std::string Scenario() const { return temp.Sub("scenario.json"); }
    krtest::ProcessResult LogIn(const std::string& password, bool json = false) const {
        std::vector<std::string> args{"emulate", Scenario(), "login", "https://emu.example",
                                      "anna"};
        if (json) args.insert(args.begin(), "--json");
        return Run(args, password + "\n");
    }
    krtest::ProcessResult Members(const std::string& user, const std::string& path,
                                  bool json) const {
        std::vector<std::string> args{
            "emulate", Scenario(), "members", "--server", "https://emu.example",
            "--user",  user,       "--path",  path};
        if (json) args.insert(args.begin(), "--json");
        return Run(args);
    }
};
using KrctlEmulateMembersTest = KrctlEmulateLoginTest;

TEST_F(KrctlEmulateLoginTest, AWrongPasswordIsRefusedAndTheRightOneIsRemembered) {
    auto refused = LogIn("not-it");
    EXPECT_EQ(refused.exitCode, 1) << refused.err;
    EXPECT_NE(refused.out.find("InvalidPasswordLogin"), std::string::npos) << refused.out;

    auto good = LogIn("SECRET-PW-anna", true);
    ASSERT_EQ(good.exitCode, 0) << good.err;
    EXPECT_EQ(Json::parse(good.out)["event"], "SuccessfulLogin");

    // Remembered for the next command; what the login data keeps of it is the
    // login handler's and login list's to show.
    auto list = Run({"login", "list"});
    EXPECT_NE(list.out.find("anna"), std::string::npos) << list.out;

    // A state login by key and state; no password is read.
    auto state = Run({"emulate", Scenario(), "login", "https://emu.example", "--state-key", "key-1",
                      "--state", "SECRET-STATE"});
    EXPECT_EQ(state.exitCode, 0) << state.err;
    EXPECT_NE(state.out.find("user: anna \"Anna Berg\""), std::string::npos) << state.out;

    std::string everything = refused.out + refused.err + good.out + good.err + list.out +
                             state.out + krtest::ReadFile(Log());
    for (const char* secret : {"SECRET-PW", "SECRET-TOKEN", "rt-"})
        EXPECT_EQ(everything.find(secret), std::string::npos) << secret << ": " << everything;
}

TEST_F(KrctlEmulateLoginTest, ThePasswordComesOnlyFromStandardInput) {
    auto closed = Run({"emulate", Scenario(), "login", "https://emu.example", "anna"});
    EXPECT_EQ(closed.exitCode, 2);
    EXPECT_NE(closed.err.find("standard input"), std::string::npos) << closed.err;
    auto argument =
        Run({"emulate", Scenario(), "login", "https://emu.example", "anna", "SECRET-PW-anna"},
            "SECRET-PW-anna\n");
    EXPECT_EQ(argument.exitCode, 2) << argument.out;
    EXPECT_EQ(argument.err.find("SECRET-PW"), std::string::npos) << argument.err;
    auto both = Run({"emulate", Scenario(), "login", "https://emu.example", "anna", "--state-key",
                     "key-1", "--state", "x"});
    EXPECT_EQ(both.exitCode, 2);
}

TEST_F(KrctlEmulateMembersTest, ListsTheMembersWithTheirPermissions) {
    auto listed = Members("anna", "/F/Tower", true);
    ASSERT_EQ(listed.exitCode, 0) << listed.err;
    Json members = Json::parse(listed.out);
    ASSERT_EQ(members.size(), 2u) << listed.out;
    std::sort(members.begin(), members.end(),
              [](const Json& a, const Json& b) { return a["userId"] < b["userId"]; });
    // Guids in lower case, colours with their alpha.
    EXPECT_EQ(members[1], Json::parse(R"({
        "userId": 7, "loginName": "ben", "fullName": "Ben Ortiz",
        "guid": "0a1b2c3d-4e5f-4a6b-8c7d-9e0f1a2b3c4d", "color": "#00ff00ff",
        "permissions": ["ReadProject"]})"));

    auto text = Members("anna", "/F/Tower", false);
    ASSERT_EQ(text.exitCode, 0) << text.err;
    EXPECT_NE(text.out.find("member 3 anna \"Anna Berg\" guid 6f1c2f0e-8d1a-4e7b-9a51-0c2d3e4f5a6b "
                            "color #3366ccff permissions ReadProject,WriteProject,SendMail\n"),
              std::string::npos)
        << text.out;
    const std::string everything =
        listed.out + listed.err + text.out + text.err + krtest::ReadFile(Log());
    EXPECT_EQ(everything.find("SECRET-TOKEN"), std::string::npos) << everything;
}

TEST_F(KrctlEmulateMembersTest, AProjectThatDoesNotOpenFailsWithOneLine) {
    // A user the scenario lacks is not there, as an unknown user of the login data.
    auto unknownUser = Members("dora", "/F/Tower", true);
    auto unknownProject = Members("anna", "/F/Nowhere", false);
    for (const auto& run : {unknownUser, unknownProject}) {
        EXPECT_EQ(run.exitCode, 1);
        EXPECT_TRUE(run.out.empty()) << run.out;
        EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 1) << run.err;
    }
    EXPECT_EQ(Json::parse(unknownUser.err)["code"], 1) << unknownUser.err;
    EXPECT_EQ(unknownProject.err, "krctl: the project did not open: CheckProjectNotFound\n");
}

}  // namespace
