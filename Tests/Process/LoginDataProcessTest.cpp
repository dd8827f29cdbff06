// The login data shared by real processes: concurrent writers and writers
// killed at random points. Where tokens and passwords may go is tested with
// each writer of logs, files and tool output.

#include <gtest/gtest.h>
#include <signal.h>

#include <chrono>
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

}  // namespace
