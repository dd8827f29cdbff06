// The login data shared by real processes: concurrent writers, writers killed
// at random points, and where tokens and passwords end up.

#include <gtest/gtest.h>
#include <signal.h>

#include <chrono>
#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>
#include <random>
#include <thread>

#include "KRCB/LoginDataStore.h"
#include "Support/Krctl.h"

namespace {

using Json = nlohmann::ordered_json;
using namespace KRCB::LoginDataStore;

class LoginDataProcessTest : public krtest::KrctlRun {
protected:
    std::string File() const { return Base() + "/LoginData.json"; }
    std::vector<std::string> TempFiles() const {
        return krtest::Listing(Base(), ".LoginData.json.tmp-");
    }
};

TEST_F(LoginDataProcessTest, EightProcessesAddingServersAtOnceKeepEveryOne) {
    constexpr int kProcesses = 8, kServers = 25;
    ASSERT_EQ(Run({"login", "list"}).exitCode, 0);  // makes the base folder
    std::vector<std::unique_ptr<krtest::ChildProcess>> writers;
    for (int p = 0; p < kProcesses; ++p) {
        std::vector<std::string> argv = {"/bin/sh", "-c",
                                         "for i in $(seq 1 " + std::to_string(kServers) +
                                             "); do \"$@\" https://p" + std::to_string(p) +
                                             "-$i.example >/dev/null || exit 1; done",
                                         "sh"};
        for (const std::string& arg : Krctl({"login", "add-server"})) argv.push_back(arg);
        writers.push_back(std::make_unique<krtest::ChildProcess>(argv));
    }
    for (auto& writer : writers) EXPECT_EQ(writer->Wait(), 0);

    auto list = Run({"--json", "login", "list"});
    ASSERT_EQ(list.exitCode, 0) << list.err;
    // The store keeps one entry per URL: the count is the number of distinct ones.
    EXPECT_EQ(Json::parse(list.out)["servers"].size(),
              static_cast<std::size_t>(kProcesses * kServers));
}

TEST_F(LoginDataProcessTest, AWriterKilledAtRandomPointsLeavesTheOldOrTheNewDataAndNoStaleTemp) {
    constexpr int kKills = 200;
    std::mt19937 random(20261123);
    std::uniform_int_distribution<int> delayMicros(0, 15000);
    long next = 1;
    int landedMidSave = 0, leftTemp = 0;
    for (int kill = 0; kill < kKills; ++kill) {
        krtest::ChildProcess writer(
            {STORE_WORKER_PATH, Base(), "login", "-", std::to_string(next)});
        std::string line;
        ASSERT_TRUE(writer.ReadLine(&line)) << "the writer did not save";
        std::this_thread::sleep_for(std::chrono::microseconds(delayMicros(random)));
        writer.Kill(SIGKILL);
        EXPECT_EQ(writer.Wait(), -1);
        long saved = std::stol(line);
        while (writer.ReadLine(&line)) saved = std::stol(line);

        // Old or new: the last save reported, or the one under way.
        LoginDataStore store;
        ASSERT_NO_THROW(store = LoginDataStore::FromJson(krtest::ReadFile(File())))
            << "kill " << kill;
        std::string token = store.GetRefreshToken("https://srv.example", "anna").Std();
        ASSERT_TRUE(token == "tok-" + std::to_string(saved) ||
                    token == "tok-" + std::to_string(saved + 1))
            << "kill " << kill << ": " << token << " after saved " << saved;
        if (token != "tok-" + std::to_string(saved)) ++landedMidSave;
        // Each save removes what killed writers left: one at most, of this kill.
        std::size_t temps = TempFiles().size();
        EXPECT_LE(temps, 1u) << "kill " << kill;
        leftTemp += static_cast<int>(temps);
        next = std::stol(token.substr(4)) + 1;
    }
    // Some kills must have landed inside a save for the test to mean anything.
    RecordProperty("KillsBetweenRenameAndReport", landedMidSave);
    RecordProperty("KillsLeavingATemporaryFile", leftTemp);
    EXPECT_GT(landedMidSave + leftTemp, 0);

    auto after = Run({"login", "add-user", "https://srv.example", "anna", "--token", "final"});
    ASSERT_EQ(after.exitCode, 0) << after.err;
    EXPECT_TRUE(TempFiles().empty());
    EXPECT_EQ(LoginDataStore::FromJson(krtest::ReadFile(File()))
                  .GetRefreshToken("https://srv.example", "anna"),
              "final");
}

// What the library's own logs and exceptions hold is tested in process; this
// is the whole tool's trail: every file it leaves and everything it prints.
TEST_F(LoginDataProcessTest, TokensAndPasswordsReachOnlyTheLoginDataFile) {
    const std::string token = "SENTINEL-TOKEN-5c1f", password = "SENTINEL-PASSWORD-77ab";
    const std::string scenario = temp.Sub("scenario.json");
    krtest::WriteFile(scenario, R"({"servers": [{"url": "https://emu.example", "users": [
        {"login": "anna", "password": ")" +
                                    password + R"(", "refreshToken": ")" + token + R"("}]}]})");
    const std::vector<std::string> login = {"emulate", scenario, "login", "https://emu.example",
                                            "anna"};
    std::vector<krtest::ProcessResult> runs = {
        Run({"cache", "create", "--main-folder", temp.Sub("P"), "--server", "https://srv.example",
             "--path", "/F/Tower", "--user", "anna", "--token", token}),
        Run({"login", "add-server", "https://srv.example"}),
        Run({"login", "add-user", "https://srv.example", "anna", "--token", token}),
        Run({"--json", "login", "list"}),
        Run(login, password + "-wrong\n"),
        Run(login, password + "\n"),
    };
    EXPECT_EQ(runs[4].exitCode, 1) << runs[4].err;
    EXPECT_EQ(runs[5].exitCode, 0) << runs[5].err;
    // A damaged file is set aside whole, token included, as a login data file.
    krtest::WriteFile(File(), "{\"refreshToken\":\"" + token + "\"");
    runs.push_back(Run({"login", "list"}));

    std::string everything;
    for (const auto& run : runs) everything += run.out + run.err;
    EXPECT_EQ(everything.find(token), std::string::npos) << everything;
    EXPECT_EQ(everything.find(password), std::string::npos) << everything;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(temp.Path())) {
        const std::string name = entry.path().filename();
        if (!entry.is_regular_file() || entry.path() == scenario) continue;
        const std::string content = krtest::ReadFile(entry.path());
        EXPECT_EQ(content.find(password), std::string::npos) << name;
        if (name != "LoginData.json" && name.rfind("LoginData.json.bad-", 0) != 0) {
            EXPECT_EQ(content.find(token), std::string::npos) << name;
        }
    }
}

}  // namespace
