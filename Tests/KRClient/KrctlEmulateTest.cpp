// krctl emulate as a user runs it: successive runs of hosts on two computers
// against one scenario file that carries the server's state between them.

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

// The session rules are the library's; here the state carried from run to
// run, the answer's form and exit code, and no secret in any output.
TEST_F(KrctlEmulateTest, TwoComputersClaimAndTakeOverOneSession) {
    const struct {
        const char* computer;
        const char* command;
        int exitCode;
        const char* result;
        const char* signal;  // the text of the one signal; null: none
    } rows[] = {
        {"PC-1", "check", 0, "CheckOnline", nullptr},
        {"PC-2", "check", 1, "CheckSessionOnOtherComputer", "PC-1"},
        {"PC-2", "receive-session", 0, "CheckOnline", nullptr},
    };
    for (const auto& row : rows) {
        auto run = On(row.computer, row.command);
        EXPECT_EQ(run.exitCode, row.exitCode) << run.err;
        EXPECT_EQ(run.out.find("SECRET-TOKEN"), std::string::npos);
        const Json j = Json::parse(run.out);
        EXPECT_EQ(j["checkResultName"], row.result);
        ASSERT_EQ(j["signals"].size(), row.signal ? 1u : 0u) << run.out;
        if (row.signal) {
            EXPECT_EQ(j["signals"][0]["name"], "SessionOnOtherComputer");
            EXPECT_EQ(j["signals"][0]["text"], row.signal);
        }
    }
    auto show = Run({"--json", "emulate", Scenario(), "show"});
    ASSERT_EQ(show.exitCode, 0) << show.err;
    EXPECT_EQ(show.out.find("SECRET-TOKEN"), std::string::npos);
    EXPECT_EQ(show.out.find("pw-anna"), std::string::npos);
    const Json state = Json::parse(show.out);
    const Json& sessions = state["servers"][0]["projects"][0]["sessions"];
    ASSERT_EQ(sessions.size(), 1u);
    EXPECT_EQ(sessions[0]["computer"], "PC-2");

    // The login is remembered as a host's dialog leaves it: the record's user is known.
    Json doctor = Json::parse(Run({"--json", "doctor"}).out);
    EXPECT_EQ(doctor["unknownUsers"], Json::array()) << doctor.dump();
}

// How a name is escaped and cut is the platform's test; here each prints on its own line.
TEST_F(KrctlEmulateTest, ShowPrintsEveryNameOnItsOwnLine) {
    std::ofstream(temp.Sub("names.json")) << R"({"servers": [{"url": "https://e\u001b]0;t\u0007",
        "friendlyName": "two\nlines\u009b", "users": [{"login": "a\r"}],
        "projects": [{"path": "/p\u001b[2J", "sessions": [{"user": "a\r", "computer": "PC\n"}]}]}]})";
    for (bool json : {false, true}) {
        auto show = json ? Run({"--json", "emulate", temp.Sub("names.json"), "show"})
                         : Run({"emulate", temp.Sub("names.json"), "show"});
        ASSERT_EQ(show.exitCode, 0) << show.err;
        for (unsigned char c : show.out) ASSERT_TRUE(c >= 0x20 || c == '\n') << show.out;
        if (!json) {
            EXPECT_EQ(std::count(show.out.begin(), show.out.end(), '\n'), 4) << show.out;
        }
    }
}

// What a scenario may hold and how a refusal reads is the emulator's test;
// here the file's side: exit 2, one line, and a refused file left as it was.
TEST_F(KrctlEmulateTest, ABadScenarioIsRefusedWithOneLineAndLeftAsItWas) {
    const std::string bad = temp.Sub("bad.json"), broken = "{\n  \"servers\": [\n    {\"url\": }\n";
    std::ofstream(bad) << broken;
    auto run = Run({"emulate", bad, "--update", "check", "--server", "https://e", "--user", "anna",
                    "--path", "/F/Tower"});
    EXPECT_EQ(run.exitCode, 2);
    EXPECT_NE(run.err.find("line 3"), std::string::npos) << run.err;
    EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 1);
    EXPECT_EQ(krtest::ReadFile(bad), broken);
}

}  // namespace
