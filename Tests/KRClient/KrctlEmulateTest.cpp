// krctl emulate as a user runs it: successive runs of hosts on two computers
// against one scenario file that carries the server's state between them.

#include <gtest/gtest.h>

#include <fstream>
#include <nlohmann/json.hpp>

#include "Support/Krctl.h"

namespace {

using Json = nlohmann::ordered_json;

const char* const kScenario = R"({
  "servers": [{
    "url": "https://emu.example",
    "friendlyName": "Emulated",
    "version": [1, 0],
    "users": [{"login": "anna", "password": "pw-anna", "fullName": "Anna Berg",
               "id": "u-anna", "refreshToken": "SECRET-TOKEN-anna"}],
    "modelServers": [{"id": "ms1", "path": "/ms/1", "version": [1, 0]}],
    "folders": ["/F"],
    "projects": [{"path": "/F/Tower", "id": "p-tower", "modelServer": "ms1", "state": 0}]
  }]
})";

class KrctlEmulateTest : public krtest::KrctlRun {
protected:
    void SetUp() override {
        std::ofstream(Scenario()) << kScenario;
        globals.insert(globals.end(), {"--data-folder", temp.Sub("data"), "--create"});
    }
    std::string Scenario() const { return temp.Sub("scenario.json"); }
    krtest::ProcessResult On(const std::string& computer, const std::string& command) const {
        return Run({"--computer-name", computer, "--json", "emulate", Scenario(), "--update",
                    command, "--server", "https://emu.example", "--user", "anna", "--path",
                    "/F/Tower"});
    }
};

TEST_F(KrctlEmulateTest, TwoComputersClaimAndTakeOverOneSession) {
    auto first = On("PC-1", "check");
    ASSERT_EQ(first.exitCode, 0) << first.err;
    Json j = Json::parse(first.out);
    EXPECT_EQ(j["checkResult"], 0);
    EXPECT_EQ(j["checkResultName"], "CheckOnline");
    EXPECT_EQ(j["presenceState"], 3);
    EXPECT_EQ(first.out.find("SECRET-TOKEN"), std::string::npos);

    auto second = On("PC-2", "check");
    EXPECT_EQ(second.exitCode, 1);
    j = Json::parse(second.out);
    EXPECT_EQ(j["checkResultName"], "CheckSessionOnOtherComputer");
    ASSERT_EQ(j["signals"].size(), 1u) << second.out;
    EXPECT_EQ(j["signals"][0]["id"], 12);
    EXPECT_EQ(j["signals"][0]["name"], "SessionOnOtherComputer");
    EXPECT_EQ(j["signals"][0]["text"], "PC-1");
    EXPECT_EQ(j["presenceState"], 2);
    EXPECT_EQ(j["presenceStateName"], "check failed");

    auto taken = On("PC-2", "receive-session");
    ASSERT_EQ(taken.exitCode, 0) << taken.err;
    j = Json::parse(taken.out);
    EXPECT_EQ(j["checkResultName"], "CheckOnline");
    EXPECT_TRUE(j["signals"].empty());

    auto back = On("PC-1", "check");
    j = Json::parse(back.out);
    EXPECT_EQ(j["checkResultName"], "CheckSessionOnOtherComputer");
    ASSERT_EQ(j["signals"].size(), 1u);
    EXPECT_EQ(j["signals"][0]["text"], "PC-2");

    // The state shows the one session on PC-2, and never a secret.
    auto show = Run({"--json", "emulate", Scenario(), "show"});
    ASSERT_EQ(show.exitCode, 0) << show.err;
    EXPECT_EQ(show.out.find("SECRET-TOKEN"), std::string::npos);
    EXPECT_EQ(show.out.find("pw-anna"), std::string::npos);
    Json state = Json::parse(show.out);
    const Json& sessions = state["servers"][0]["projects"][0]["sessions"];
    ASSERT_EQ(sessions.size(), 1u);
    EXPECT_EQ(sessions[0]["computer"], "PC-2");

    // The login is remembered as a host's dialog leaves it: the record's user is known.
    Json doctor = Json::parse(Run({"--json", "doctor"}).out);
    EXPECT_EQ(doctor["loginData"]["state"], "readable");
    EXPECT_EQ(doctor["unknownUsers"], Json::array()) << doctor.dump();
    EXPECT_EQ(Json::parse(Run({"--json", "login", "list"}).out)["servers"][0]["friendlyName"],
              "Emulated");
}

TEST_F(KrctlEmulateTest, BadScenariosAreRefusedWithOneLine) {
    std::ofstream(temp.Sub("unknown.json"))
        << R"({"servers": [{"url": "https://e", "colour": "red"}]})";
    auto unknown = Run({"emulate", temp.Sub("unknown.json"), "show"});
    EXPECT_EQ(unknown.exitCode, 2);
    EXPECT_NE(unknown.err.find("colour"), std::string::npos) << unknown.err;
    EXPECT_EQ(std::count(unknown.err.begin(), unknown.err.end(), '\n'), 1) << unknown.err;

    std::ofstream(temp.Sub("broken.json")) << "{\n  \"servers\": [\n    {\"url\": }\n";
    auto broken = Run({"emulate", temp.Sub("broken.json"), "show"});
    EXPECT_EQ(broken.exitCode, 2);
    EXPECT_NE(broken.err.find("line 3"), std::string::npos) << broken.err;
    EXPECT_EQ(std::count(broken.err.begin(), broken.err.end(), '\n'), 1) << broken.err;

    // The file that was refused is left as it was.
    auto again = Run({"emulate", temp.Sub("broken.json"), "--update", "check", "--server",
                      "https://e", "--user", "anna", "--path", "/F/Tower"});
    EXPECT_EQ(again.exitCode, 2);
    std::ifstream in(temp.Sub("broken.json"));
    std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    EXPECT_EQ(text, "{\n  \"servers\": [\n    {\"url\": }\n");
}

}  // namespace
