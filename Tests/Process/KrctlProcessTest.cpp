// krctl run by several processes at once on one data folder.

#include <gtest/gtest.h>
#include <signal.h>
#include <time.h>

#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>
#include <set>

#include "KRClient/CacheInfoFileBuilder.h"
#include "Support/Krctl.h"

namespace {

using Json = nlohmann::ordered_json;

std::int64_t NowMillis() {
    timespec ts{};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<std::int64_t>(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
}

class KrctlProcessTest : public krtest::KrctlRun {
protected:
    KrctlProcessTest() { globals = {"--base-folder", Base(), "--create", "--data-folder", Data()}; }
    void SetUp() override {
        krtest::WriteCacheInfo(
            Data() + "/Projects/p", 10,
            {{"PortalServerUrl", "https://srv"}, {"ProjectPath", "/A/P"}, {"LoginName", "anna"}});
        ASSERT_EQ(Run({"options", "set", "periodTime", "7"}).exitCode, 0);
    }
    std::vector<std::string> SetVisits(const char* count) const {
        return Krctl({"registry", "set", "visitCount", count, "--server", "https://srv", "--user",
                      "anna", "--path", "/A/P"});
    }
    int VisitCount() const {
        Json list = Json::parse(Run({"--json", "registry", "list"}).out);
        return list.size() == 1 ? list[0]["visitCount"].get<int>() : -1;
    }
    // `lock hold` for the seconds given, once it holds the lock.
    std::unique_ptr<krtest::ChildProcess> HoldLock(const char* seconds) const {
        auto holder =
            std::make_unique<krtest::ChildProcess>(Krctl({"lock", "hold", "--seconds", seconds}));
        std::string line;
        EXPECT_TRUE(holder->ReadLine(&line) && line.rfind("locked ", 0) == 0) << line;
        return holder;
    }
};

TEST_F(KrctlProcessTest, AWriterWaitsForTheHolderAndGoesOnRightAfterTheRelease) {
    auto holder = HoldLock("1");
    krtest::ChildProcess writer(SetVisits("7"));
    EXPECT_EQ(writer.Wait(), 0);
    const std::int64_t writerDone = NowMillis();
    std::string line;
    ASSERT_TRUE(holder->ReadLine(&line));
    ASSERT_EQ(line.rfind("released ", 0), 0u) << line;  // "released <ms>"
    const std::int64_t released = std::stoll(line.substr(9));
    EXPECT_GE(writerDone, released);
    // One wait step is 50 ms; the bound leaves room for a loaded machine.
    EXPECT_LT(writerDone - released, 1000);
    EXPECT_EQ(holder->Wait(), 0);
    EXPECT_EQ(VisitCount(), 7);
}

TEST_F(KrctlProcessTest, AWaitForTheLockIsToldAndBoundedAndALockLeftByAKilledHolderDelaysNobody) {
    auto holder = HoldLock("600");
    // Given up before a second: no word of waiting, only the failure.
    auto quick = Run({"options", "set", "periodTime", "9", "--wait", "0.2"});
    EXPECT_EQ(quick.exitCode, 1);
    EXPECT_EQ(quick.err.find("krctl: waiting for the lock"), std::string::npos) << quick.err;
    EXPECT_NE(quick.err.find("gave up waiting for the lock of " + Data()), std::string::npos)
        << quick.err;
    // Past a second the wait is told on standard error.
    auto slow = Run({"--wait", "1.3", "options", "set", "periodTime", "9"});
    EXPECT_EQ(slow.exitCode, 1);
    EXPECT_NE(
        slow.err.find("krctl: waiting for the lock of " + Data() + " held by another process\n"),
        std::string::npos)
        << slow.err;
    EXPECT_EQ(Json::parse(Run({"--json", "options", "show"}).out)["periodTime"], 7);

    holder.reset();                                              // killed
    EXPECT_TRUE(krtest::Exists(Data() + "/@DataOptions.Lock"));  // left behind
    const std::int64_t start = NowMillis();
    auto r = krtest::RunProcess(SetVisits("3"));
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_LT(NowMillis() - start, 5000);  // against a hold of ten minutes
    EXPECT_EQ(VisitCount(), 3);
    EXPECT_FALSE(krtest::Exists(Data() + "/@DataOptions.Lock"));
}

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
    EXPECT_EQ(krtest::Listing(Data() + "/Projects").size(), 2u);  // and "p"
    // Once more, in one process: found, not made.
    std::vector<std::string> json = {"--json"};
    json.insert(json.end(), create.begin(), create.end());
    Json again = Json::parse(Run(json).out);
    EXPECT_EQ(again["created"], false);
    EXPECT_EQ(again["cacheDataFolder"], *folders.begin());
}

}  // namespace
