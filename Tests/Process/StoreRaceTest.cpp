// Hosts that change the options and one record at the same moment: every
// change is kept, and no process ever reads back a value older than its own.

#include <gtest/gtest.h>

#include <memory>
#include <pugixml.hpp>

#include "KRClient/CacheInfoFileBuilder.h"
#include "Support/Process.h"
#include "Support/TempFolder.h"

namespace {

constexpr int kWorkers = 8;
constexpr int kOperations = 100;

class StoreRaceTest : public ::testing::Test {
protected:
    // Runs the workers side by side; each must end with 0.
    void Race(const char* mode) {
        std::vector<std::unique_ptr<krtest::ChildProcess>> workers;
        for (int i = 0; i < kWorkers; ++i)
            workers.push_back(std::make_unique<krtest::ChildProcess>(std::vector<std::string>{
                STORE_WORKER_PATH, temp.Sub("base"), mode, Data(), std::to_string(kOperations)}));
        for (auto& w : workers) EXPECT_EQ(w->Wait(), 0) << "see the worker's line above";
    }
    std::string Data() const { return temp.Sub("data"); }

    krtest::TempFolder temp;
};

TEST_F(StoreRaceTest, OptionSettersLoseNoUpdateAndNeverReadBackAnOlderValue) {
    // The file is there before the hosts start, as it is after any first start.
    std::filesystem::create_directories(Data());
    krtest::WriteFile(Data() + "/KRDataOptions.xml",
                      "<KRDataOptions><DataVersion>1</DataVersion><LocalDataFolderPath>" + Data() +
                          "</LocalDataFolderPath><CleanSchedule><Enable>true</Enable>"
                          "<PeriodTime>0</PeriodTime><LastUsedDays>30</LastUsedDays>"
                          "<LastRunTime>0</LastRunTime></CleanSchedule></KRDataOptions>");
    Race("options-race");

    pugi::xml_document doc;
    ASSERT_TRUE(doc.load_file((Data() + "/KRDataOptions.xml").c_str()));
    EXPECT_EQ(
        std::atoi(doc.child("KRDataOptions").child("CleanSchedule").child_value("PeriodTime")),
        kWorkers * kOperations);
}

TEST_F(StoreRaceTest, RegistrySettersOnOneRecordLoseNoUpdateAndNeverReadBackAnOlderValue) {
    krtest::WriteCacheInfo(Data() + "/Projects/race", 10,
                           {{"PortalServerUrl", "https://srv.example.com"},
                            {"ProjectPath", "/Shared/Race"},
                            {"LoginName", "anna"}});
    Race("registry-race");

    pugi::xml_document doc;
    ASSERT_TRUE(doc.load_file((Data() + "/Projects/race/CacheInfo.xml").c_str()));
    EXPECT_EQ(std::atoi(doc.child("Cache").child_value("VisitCount")), kWorkers * kOperations);
}

}  // namespace
