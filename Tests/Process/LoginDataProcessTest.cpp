// The login data shared by real processes: concurrent writers, writers killed
// at random points, and where tokens and passwords end up.

#include <gtest/gtest.h>
#include <signal.h>

#include <chrono>
#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>
#include <random>
#include <set>
#include <thread>

#include "Emulator/Service.h"
#include "KRCB/KRClientBase.h"
#include "KRCB/LoginDataStore.h"
#include "KRCB/Paths.h"
#include "KRClient/UserInterface/Login/AsyncLoginTaskEventHandler.h"
#include "KRClient/UserInterface/Login/LoginTask.h"
#include "Support/Krctl.h"
#include "ZR/Logger.h"

namespace {

using Json = nlohmann::ordered_json;
using namespace KRCB::LoginDataStore;
using Emulator::FaultKind;
using KRC::UI::Login::AsyncLoginTaskEventHandler;
using KRC::UI::Login::LoginTask;

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
    Json servers = Json::parse(list.out)["servers"];
    EXPECT_EQ(servers.size(), static_cast<std::size_t>(kProcesses * kServers));
    std::set<std::string> urls;
    for (const Json& server : servers) urls.insert(server["url"].get<std::string>());
    EXPECT_EQ(urls.size(), static_cast<std::size_t>(kProcesses * kServers));
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

TEST_F(LoginDataProcessTest, TokensAndPasswordsReachOnlyTheLoginDataFile) {
    const std::string token = "SENTINEL-TOKEN-5c1f", password = "SENTINEL-PASSWORD-77ab";
    std::vector<krtest::ProcessResult> runs = {
        Run({"cache", "create", "--main-folder", temp.Sub("P"), "--server", "https://srv.example",
             "--path", "/F/Tower", "--user", "anna", "--token", token}),
        Run({"login", "add-server", "https://srv.example", "--name", "Main"}),
        Run({"login", "add-user", "https://srv.example", "anna", "--token", token}),
        Run({"login", "set-active", "https://srv.example", "anna"}),
        Run({"login", "list"}),
        Run({"--json", "login", "list"}),
    };

    // Logins against the emulator, whose scenario alone holds the password.
    const std::string scenario = temp.Sub("scenario.json");
    krtest::WriteFile(scenario, R"({"servers": [{"url": "https://emu.example", "users": [
        {"login": "anna", "password": ")" +
                                    password + R"(", "refreshToken": ")" + token + R"("}]}]})");
    const std::vector<std::string> login = {"emulate", scenario, "login", "https://emu.example",
                                            "anna"};
    runs.push_back(Run(login, password + "-wrong\n"));
    runs.push_back(Run(login, password + "\n"));
    std::vector<std::string> jsonLogin = login;
    jsonLogin.insert(jsonLogin.begin(), "--json");
    runs.push_back(Run(jsonLogin, password + "\n"));
    EXPECT_EQ(runs[6].exitCode, 1) << runs[6].err;
    EXPECT_EQ(runs[7].exitCode, 0) << runs[7].err;
    EXPECT_EQ(runs[8].exitCode, 0) << runs[8].err;

    // The library in this process, with a log that takes every line.
    ZR::CaptureLogSink log;
    ZR::ScopedLogSink scoped(log);
    ASSERT_TRUE(InitKRClientBase({ZR::UniString("BaseFolder=" + Base())}));
    LoginDataStoreCache& cache = LoginDataStoreCache::GetInstance();
    cache.ResetForTesting();
    ZR::Ref<LoginDataStore> store = cache.GetLoginDataStoreCopy(OpenForWriting);
    store->SetRefreshToken("https://srv.example", "anna", token + "-2");
    ASSERT_TRUE(cache.SaveToFile(*store));
    // A damaged file is set aside whole, token included, as a login data file.
    krtest::WriteFile(File(), "{\"refreshToken\":\"" + token + "\"");
    cache.GetLoginDataStoreCopy(OpenForReading);
    // Login tasks in this process, through the failures that write log lines.
    {
        auto service = Emulator::Service::FromScenarioFile(scenario);
        service->Install();
        for (FaultKind kind : {FaultKind::ConnectionFailed, FaultKind::GeneralErrorResponse,
                               FaultKind::PortalServerErrorResponse, FaultKind::ZRException,
                               FaultKind::Foreign, FaultKind::CreateSessionFailed}) {
            service->FailNext(Emulator::Op::kLogin, {kind});
            ZR::Ref<KRCB::Management::AuthenticatedClientConnection> connection;
            ZR::Ref<AsyncLoginTaskEventHandler> handler(new AsyncLoginTaskEventHandler(connection));
            LoginTask("https://emu.example", "anna", ZR::UniString(password), handler, true, true)
                .Run();
            EXPECT_NE(handler->GetConnectionStatus(), AsyncLoginTaskEventHandler::Connected);
        }
        service->Uninstall();
    }
    EXPECT_NE(log.GetText().find("Kerrow login task failed"), std::string::npos);
    CloseKRClientBase();

    std::string everything;
    for (const auto& run : runs) everything += run.out + run.err;
    everything += log.GetText();
    for (const auto& entry : std::filesystem::recursive_directory_iterator(temp.Path())) {
        if (!entry.is_regular_file()) continue;
        std::string name = entry.path().filename();
        if (entry.path() == scenario) continue;  // the emulator's own data
        std::string content = krtest::ReadFile(entry.path());
        EXPECT_EQ(content.find(password), std::string::npos) << name;
        bool loginData = name == "LoginData.json" || name.rfind("LoginData.json.bad-", 0) == 0;
        if (!loginData) {
            EXPECT_EQ(content.find(token), std::string::npos) << name;
        }
    }
    EXPECT_EQ(everything.find(token), std::string::npos) << everything;
    EXPECT_EQ(everything.find(password), std::string::npos) << everything;
}

}  // namespace
