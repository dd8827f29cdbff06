// krctl emulate as a user runs it: successive runs of hosts on two computers
// against one scenario file that carries the server's state between them.

#include <gtest/gtest.h>
#include <sys/stat.h>

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

// Names print as one line each, escaped and cut, in the listing as in JSON.
TEST_F(KrctlEmulateTest, ShowPrintsEveryNameOnItsOwnLine) {
    std::ofstream(temp.Sub("names.json")) << R"({"servers": [{"url": "https://e\u001b]0;t\u0007",
        "friendlyName": "two\nlines\u009b", "users": [{"login": "a\r", "fullName": ")"
                                          << std::string(100000, 'n') << R"("}],
        "projects": [{"path": "/p\u001b[2J", "sessions": [{"user": "a\r", "computer": "PC\n"}]}]}]})";
    for (bool json : {false, true}) {
        auto show = json ? Run({"--json", "emulate", temp.Sub("names.json"), "show"})
                         : Run({"emulate", temp.Sub("names.json"), "show"});
        ASSERT_EQ(show.exitCode, 0) << show.err;
        for (unsigned char c : show.out) ASSERT_TRUE(c >= 0x20 || c == '\n') << show.out;
        if (json) continue;
        EXPECT_EQ(std::count(show.out.begin(), show.out.end(), '\n'), 4) << show.out;
        EXPECT_NE(show.out.find(R"(server https://e\x1b]0;t\x07 "two\nlines\u009b")"),
                  std::string::npos)
            << show.out;
        EXPECT_NE(show.out.find("...(100000 bytes)"), std::string::npos);
        EXPECT_NE(show.out.find(R"(session )"), std::string::npos);
    }
}

// Hostile files: each refused with exit 2 and one line that holds no control
// character and not the value refused, however large or odd the file.
TEST_F(KrctlEmulateTest, BadScenariosAreRefusedWithOneCleanLine) {
    const std::string fifo = temp.Sub("fifo.json");
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    const std::pair<std::string, std::string> rows[] = {
        {R"({"servers": [{"url": "https://e", "colour": "red"}]})", "colour: unknown key"},
        {"{\n  \"servers\": [\n    {\"url\": }\n", "line 3"},
        {"{\"servers\": " + std::string(5000000, '['), "nested deeper than 64 levels"},
        {R"({"servers": [{"url": "u", "version": [1e400, 0]}]})",
         "servers[0].version[0]: a number beyond any type"},
        {R"({"servers": [{"url": "u", "users": [{"login": "a"}], "projects": [{"path": "/p",
            "state": 18446744073709551615}]}]})",
         "servers[0].projects[0].state: expected an integer from"},
        {R"({"servers": [{"url": "u", "a\nb\u001b[2J": "SECRET"}]})",
         R"(servers[0].a\nb\x1b[2J: unknown key)"},
        {R"({"servers": [{"url": "u", ")" + std::string(4 << 20, 'k') + R"(": 1}]})",
         "...(4096 bytes): a key longer than 4096 bytes"},
    };
    const auto expectRefused = [](const krtest::ProcessResult& run, const std::string& message) {
        EXPECT_EQ(run.exitCode, 2);
        EXPECT_NE(run.err.find(message), std::string::npos) << run.err.substr(0, 500);
        EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 1);
        EXPECT_LT(run.err.size(), 1000u);
        EXPECT_EQ(run.err.find("SECRET"), std::string::npos);
        for (unsigned char c : run.err) ASSERT_TRUE(c >= 0x20 || c == '\n') << run.err;
    };
    expectRefused(Run({"emulate", fifo, "show"}), "not a regular file");
    for (const auto& [text, message] : rows) {
        std::ofstream(temp.Sub("bad.json"), std::ios::trunc) << text;
        expectRefused(Run({"emulate", temp.Sub("bad.json"), "show"}), message);
    }
    std::ofstream(temp.Sub("broken.json")) << "{\n  \"servers\": [\n    {\"url\": }\n";

    // The file that was refused is left as it was.
    auto again = Run({"emulate", temp.Sub("broken.json"), "--update", "check", "--server",
                      "https://e", "--user", "anna", "--path", "/F/Tower"});
    EXPECT_EQ(again.exitCode, 2);
    std::ifstream in(temp.Sub("broken.json"));
    std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    EXPECT_EQ(text, "{\n  \"servers\": [\n    {\"url\": }\n");
}

}  // namespace
