// Several real host processes sharing one data folder.

#include <gtest/gtest.h>
#include <signal.h>
#include <time.h>

#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>
#include <sstream>

#include "KRClient/CacheInfoFileBuilder.h"
#include "Support/Process.h"
#include "Support/TempFolder.h"

namespace {

using Json = nlohmann::ordered_json;

std::int64_t NowMillis() {
    timespec ts{};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<std::int64_t>(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
}

// "word 12345" -> 12345
std::int64_t TimeOf(const std::string& line) {
    return std::stoll(line.substr(line.find(' ') + 1));
}

class RegistryProcessTest : public ::testing::Test {
protected:
    std::vector<std::string> Krctl(std::vector<std::string> args) const {
        std::vector<std::string> argv = {KRCTL_PATH, "--base-folder", temp.Sub("base"),
                                         "--data-folder", temp.Sub("data")};
        argv.insert(argv.end(), args.begin(), args.end());
        return argv;
    }
    krtest::ProcessResult Run(std::vector<std::string> args) const {
        return krtest::RunProcess(Krctl(std::move(args)));
    }
    void CreateProject(const std::string& folder = "p") const {
        krtest::WriteCacheInfo(
            temp.Sub("data/Projects/" + folder), 10,
            {{"PortalServerUrl", "https://srv"}, {"ProjectPath", "/A/P"}, {"LoginName", "anna"}});
    }
    std::vector<std::string> SetVisits(const char* count) const {
        return Krctl({"registry", "set", "visitCount", count, "--server", "https://srv", "--user",
                      "anna", "--path", "/A/P"});
    }
    int VisitCount() const {
        auto r = Run({"--json", "registry", "list"});
        Json list = Json::parse(r.out);
        return list.empty() ? -1 : list[0]["visitCount"].get<int>();
    }
    krtest::TempFolder temp;
};

TEST_F(RegistryProcessTest, AWriterWaitsForTheHolderAndGoesOnRightAfterTheRelease) {
    CreateProject();
    krtest::ChildProcess holder(Krctl({"lock", "hold", "--seconds", "1"}));
    std::string line;
    ASSERT_TRUE(holder.ReadLine(&line));
    ASSERT_EQ(line.rfind("locked ", 0), 0u) << line;

    krtest::ChildProcess writer(SetVisits("7"));
    EXPECT_EQ(writer.Wait(), 0);
    std::int64_t writerDone = NowMillis();

    ASSERT_TRUE(holder.ReadLine(&line));
    ASSERT_EQ(line.rfind("released ", 0), 0u) << line;
    std::int64_t released = TimeOf(line);
    EXPECT_GE(writerDone, released);
    // One wait step is 50 ms; the bound leaves room for a loaded machine.
    EXPECT_LT(writerDone - released, 1000);
    EXPECT_EQ(holder.Wait(), 0);
    EXPECT_EQ(VisitCount(), 7);
}

TEST_F(RegistryProcessTest, ALockLeftByAKilledProcessDelaysNobody) {
    CreateProject();
    {
        krtest::ChildProcess holder(Krctl({"lock", "hold", "--seconds", "600"}));
        std::string line;
        ASSERT_TRUE(holder.ReadLine(&line));
        ASSERT_EQ(line.rfind("locked ", 0), 0u);
        holder.Kill(SIGKILL);
        holder.Wait();
    }
    EXPECT_TRUE(krtest::Exists(temp.Sub("data/@DataOptions.Lock")));  // left behind
    std::int64_t start = NowMillis();
    auto r = krtest::RunProcess(SetVisits("3"));
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_LT(NowMillis() - start, 5000);  // against a hold of ten minutes
    EXPECT_EQ(VisitCount(), 3);
    EXPECT_FALSE(krtest::Exists(temp.Sub("data/@DataOptions.Lock")));
}

TEST_F(RegistryProcessTest, ConcurrentHostsLoseNoRecordAndNoVisit) {
    constexpr int kWorkers = 4, kRounds = 5, kProjects = 3;
    std::vector<std::unique_ptr<krtest::ChildProcess>> workers;
    for (int i = 0; i < kWorkers; ++i)
        workers.push_back(std::make_unique<krtest::ChildProcess>(
            std::vector<std::string>{REGISTRY_WORKER_PATH, temp.Sub("base"), temp.Sub("data"),
                                     std::to_string(kRounds), std::to_string(kProjects)}));
    for (auto& w : workers) EXPECT_EQ(w->Wait(), 0);

    auto r = Run({"--json", "registry", "list"});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    Json list = Json::parse(r.out);
    // One record per project, made once, and every visit of every worker counted.
    ASSERT_EQ(list.size(), static_cast<std::size_t>(kProjects)) << r.out;
    for (const auto& p : list) EXPECT_EQ(p["visitCount"], kWorkers * kRounds) << p.dump();
}

TEST_F(RegistryProcessTest, RegistryListsExactlyTheReadableRecords) {
    CreateProject();
    CreateProject("any name at all");
    std::filesystem::create_directories(temp.Sub("data/Projects/empty"));
    std::filesystem::create_directories(temp.Sub("data/Projects/broken"));
    krtest::WriteFile(temp.Sub("data/Projects/broken/CacheInfo.xml"),
                      "<Cache><DataVersion>10</DataVersion></Cache>");
    krtest::WriteFile(temp.Sub("data/Projects/plain-file"), "x");

    auto r = Run({"--json", "registry", "list"});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    Json list = Json::parse(r.out);
    ASSERT_EQ(list.size(), 2u) << r.out;
    for (const auto& p : list) EXPECT_EQ(p["projectPath"], "/A/P");

    auto found =
        Run({"registry", "find", "--server", "https://srv", "--user", "ANNA", "--path", "/a/p"});
    EXPECT_EQ(found.exitCode, 0);
    auto missing =
        Run({"registry", "find", "--server", "https://srv", "--user", "bob", "--path", "/A/P"});
    EXPECT_EQ(missing.exitCode, 1);
    EXPECT_EQ(missing.err.rfind("krctl: not found: ", 0), 0u) << missing.err;
}

}  // namespace
