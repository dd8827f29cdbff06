// krctl run by several processes at once on one data folder.

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>
#include <set>

#include "Support/Process.h"
#include "Support/TempFolder.h"

namespace {

using Json = nlohmann::ordered_json;

class KrctlProcessTest : public ::testing::Test {
protected:
    std::vector<std::string> Krctl(std::vector<std::string> args) const {
        std::vector<std::string> argv = {KRCTL_PATH, "--base-folder", temp.Sub("base"),
                                         "--create", "--data-folder", temp.Sub("data")};
        argv.insert(argv.end(), args.begin(), args.end());
        return argv;
    }
    krtest::TempFolder temp;
};

TEST_F(KrctlProcessTest, RegistryCreateInEightProcessesAtOnceGivesOneFolder) {
    const std::vector<std::string> create = {"registry", "create", "--server", "https://srv",
                                             "--user",   "anna",   "--path",   "/A/Tower"};
    std::vector<std::unique_ptr<krtest::ChildProcess>> runs;
    for (int i = 0; i < 8; ++i)
        runs.push_back(std::make_unique<krtest::ChildProcess>(Krctl(create)));
    std::set<std::string> folders;
    for (auto& run : runs) {
        std::string line;
        ASSERT_TRUE(run->ReadLine(&line));
        folders.insert(line);
        EXPECT_EQ(run->Wait(), 0);
    }
    EXPECT_EQ(folders.size(), 1u);
    std::size_t made = 0;
    for (const auto& entry : std::filesystem::directory_iterator(temp.Sub("data/Projects"))) {
        (void)entry;
        ++made;
    }
    EXPECT_EQ(made, 1u);
    // Once more, in one process: found, not made.
    auto again = krtest::RunProcess(Krctl({"--json", "registry", "create", "--server",
                                           "https://srv", "--user", "anna", "--path", "/A/Tower"}));
    Json j = Json::parse(again.out);
    EXPECT_EQ(j["created"], false);
    EXPECT_EQ(j["cacheDataFolder"], *folders.begin());
}

TEST_F(KrctlProcessTest, AWaitForTheLockIsToldAndBoundedAndChangesNothing) {
    ASSERT_EQ(krtest::RunProcess(Krctl({"options", "set", "periodTime", "7"})).exitCode, 0);
    krtest::ChildProcess holder(Krctl({"lock", "hold", "--seconds", "600"}));
    std::string line;
    ASSERT_TRUE(holder.ReadLine(&line));
    ASSERT_EQ(line.rfind("locked ", 0), 0u) << line;

    // Given up before a second: no word of waiting, only the failure.
    auto quick = krtest::RunProcess(Krctl({"options", "set", "periodTime", "9", "--wait", "0.2"}));
    EXPECT_EQ(quick.exitCode, 1);
    EXPECT_EQ(quick.err.find("krctl: waiting for the lock"), std::string::npos) << quick.err;
    EXPECT_NE(quick.err.find("gave up waiting for the lock of " + temp.Sub("data")),
              std::string::npos)
        << quick.err;

    // Past a second the wait is told on standard error.
    auto slow = krtest::RunProcess(Krctl({"--wait", "1.3", "options", "set", "periodTime", "9"}));
    EXPECT_EQ(slow.exitCode, 1);
    EXPECT_NE(slow.err.find("krctl: waiting for the lock of " + temp.Sub("data") +
                            " held by another process\n"),
              std::string::npos)
        << slow.err;
    holder.Kill(SIGKILL);
    holder.Wait();

    auto show = krtest::RunProcess(Krctl({"--json", "options", "show"}));
    EXPECT_EQ(Json::parse(show.out)["periodTime"], 7);
}

}  // namespace
