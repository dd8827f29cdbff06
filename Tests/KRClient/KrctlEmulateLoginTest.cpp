// krctl emulate login as a user runs it: the password on standard input, the
// outcome printed without secrets, and a good login remembered in the login
// data for the next command.

#include <gtest/gtest.h>

#include <fstream>
#include <nlohmann/json.hpp>

#include "Support/Krctl.h"

namespace {

using Json = nlohmann::ordered_json;

const char* const kScenario = R"({
  "servers": [{
    "url": "https://emu.example", "answeredUrl": "https://emu.example//",
    "friendlyName": "Emulated", "version": [2, 1],
    "users": [{"login": "anna", "password": "SECRET-PW-anna", "fullName": "Anna Berg",
               "refreshToken": "SECRET-TOKEN-anna"}],
    "stateLogins": [{"key": "key-1", "state": "SECRET-STATE", "user": "anna"}]
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
};

TEST_F(KrctlEmulateLoginTest, AWrongPasswordIsRefusedAndTheRightOneIsRemembered) {
    auto refused = LogIn("not-it");
    EXPECT_EQ(refused.exitCode, 1) << refused.err;
    EXPECT_NE(refused.out.find("InvalidPasswordLogin"), std::string::npos) << refused.out;

    auto good = LogIn("SECRET-PW-anna", true);
    ASSERT_EQ(good.exitCode, 0) << good.err;
    Json outcome = Json::parse(good.out);
    EXPECT_EQ(outcome["event"], "SuccessfulLogin");
    EXPECT_EQ(outcome["serverUrl"], "https://emu.example/");  // as the server answered

    // Only the good login is remembered, for the next command.
    auto list = Run({"--json", "login", "list"});
    const Json servers = Json::parse(list.out)["servers"];
    ASSERT_EQ(servers.size(), 1u) << list.out;
    EXPECT_EQ(servers[0]["users"], Json::parse(R"([{"name": "anna", "fullName": "Anna Berg",
                                                    "hasToken": true, "active": true}])"));

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

}  // namespace
