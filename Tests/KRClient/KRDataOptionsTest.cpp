#include <gtest/gtest.h>

#include <filesystem>

#include "KRClient/Internal/KRDataOptions.h"
#include "KRClient/RegistryFixture.h"

namespace {

using KRC::dataOptions;
using krtest::Loc;
namespace fs = std::filesystem;

class FolderChangeCounter : public KRC::KRDataOptionsObserver {
public:
    FolderChangeCounter() { dataOptions.Attach(*this); }
    ~FolderChangeCounter() override { dataOptions.Detach(*this); }
    void KRDataFolderChanged() override { ++changes; }
    int changes = 0;
};

class KRDataOptionsTest : public krtest::RegistryTest {
protected:
    IO::Location DataFolder() {
        IO::Location folder;
        dataOptions.GetDataFolder(&folder, false);
        return folder;
    }
};

TEST_F(KRDataOptionsTest, ValuesChangeOnlyWhenDifferentAndSurviveAWriteAndANewStart) {
    FolderChangeCounter counter;
    dataOptions.SetOptionsFolder(Loc(Data()));
    EXPECT_EQ(counter.changes, 1);
    EXPECT_EQ(DataFolder(), Loc(Data()));
    EXPECT_FALSE(dataOptions.IsDirty());

    dataOptions.SetLastRunTime(dataOptions.GetLastRunTime());
    dataOptions.SetEnableAutoClean(true);
    dataOptions.SetPeriodTime(30);
    dataOptions.SetLastUsedDays(30);
    EXPECT_FALSE(dataOptions.IsDirty());
    dataOptions.SetLastRunTime(4242);
    dataOptions.SetEnableAutoClean(false);
    dataOptions.SetPeriodTime(14);
    dataOptions.SetLastUsedDays(60);
    EXPECT_TRUE(dataOptions.IsDirty());
    ASSERT_TRUE(dataOptions.Write());
    EXPECT_FALSE(dataOptions.IsDirty());

    // A new start reads them back, and the folder counts as changed from none.
    KRC::RegisteredProjects::ResetForTesting();
    dataOptions.SetOptionsFolder(Loc(Data()));
    EXPECT_EQ(counter.changes, 2);
    EXPECT_EQ(dataOptions.GetLastRunTime(), 4242);
    EXPECT_FALSE(dataOptions.GetEnableAutoClean());
    EXPECT_EQ(dataOptions.GetPeriodTime(), 14);
    EXPECT_EQ(dataOptions.GetLastUsedDays(), 60);
    // The same folder again is no change.
    dataOptions.SetOptionsFolder(Loc(Data()));
    dataOptions.SetDataFolder(Loc(Data()));
    EXPECT_EQ(counter.changes, 2);
}

TEST_F(KRDataOptionsTest, RefreshFollowsEveryOtherWriterAndTellsOfAMovedFolder) {
    dataOptions.SetOptionsFolder(Loc(Data()));
    FolderChangeCounter counter;

    krtest::WriteFile(OptionsFile(), OptionsXml(Data(), 5));
    dataOptions.Refresh();
    EXPECT_EQ(dataOptions.GetPeriodTime(), 5);
    // In place and within the same second; the size differs, as the coarse
    // file clock may not.
    krtest::WriteFile(OptionsFile(), OptionsXml(Data(), 66));
    dataOptions.Refresh();
    EXPECT_EQ(dataOptions.GetPeriodTime(), 66);
    EXPECT_EQ(counter.changes, 0);

    std::string moved = temp.Sub("möved");
    krtest::WriteFile(OptionsFile(), OptionsXml(moved, 66));
    dataOptions.Refresh();
    EXPECT_EQ(DataFolder(), Loc(moved));
    EXPECT_EQ(counter.changes, 1);
    dataOptions.Refresh();  // nothing new
    EXPECT_EQ(counter.changes, 1);

    // A file gone with its folder is made again from memory.
    fs::remove(OptionsFile());
    fs::remove(Data());
    dataOptions.Refresh();
    EXPECT_EQ(dataOptions.GetPeriodTime(), 66);
    EXPECT_NE(krtest::ReadFile(OptionsFile()).find("<LocalDataFolderPath>" + moved + "<"),
              std::string::npos);
}

TEST_F(KRDataOptionsTest, DeletedFileComesBackEmptyAndMemoryKeepsItsValues) {
    dataOptions.SetOptionsFolder(Loc(Data()));
    dataOptions.SetPeriodTime(9);
    ASSERT_TRUE(dataOptions.Write());
    fs::remove(OptionsFile());

    int time = 0;
    EXPECT_TRUE(dataOptions.GetOptionsFileTime(&time));
    EXPECT_NE(time, 0);
    EXPECT_TRUE(fs::exists(OptionsFile()));
    EXPECT_FALSE(dataOptions.HasContent());

    // Three reads, each with the channel's own retries for about a second.
    krtest::EventRecorder events;
    dataOptions.Refresh();
    ASSERT_EQ(events.errors.size(), 3u);
    EXPECT_EQ(events.errors[0].first, KRC::FileOpeningFailed);
    EXPECT_EQ(events.errors[0].second, OptionsFile());
    EXPECT_EQ(dataOptions.GetPeriodTime(), 9);
    EXPECT_EQ(DataFolder(), Loc(Data()));
}

TEST_F(KRDataOptionsTest, FailedWriteReportsOnceAndStaysDirty) {
    dataOptions.SetOptionsFolder(Loc(Data()));
    std::int32_t writtenTime = dataOptions.GetOptionsFileTimeField();
    dataOptions.SetPeriodTime(9);
    fs::remove_all(Data());

    krtest::EventRecorder events;
    EXPECT_FALSE(dataOptions.Write());
    EXPECT_TRUE(dataOptions.IsDirty());
    EXPECT_EQ(dataOptions.GetOptionsFileTimeField(), writtenTime);
    ASSERT_EQ(events.errors.size(), 1u);
    EXPECT_EQ(events.errors[0].first, KRC::FileOpeningFailed);
    EXPECT_NE(log.GetText().find("InfoXMLsOChannel::Open file creation failed: " + OptionsFile()),
              std::string::npos);
}

TEST_F(KRDataOptionsTest, CacheFolderNamesAreStoredAndTheirFoldersMadeUnderTheDataFolder) {
    // No data folder yet: the name is kept and nothing is made.
    dataOptions.SetProjectCacheFolderName("Projects");
    IO::Location main;
    dataOptions.GetMainProjectCacheFolder(&main, false);
    EXPECT_TRUE(main.IsEmpty());

    dataOptions.SetOptionsFolder(Loc(Data()));
    dataOptions.SetProjectCacheFolderName("A:B");
    dataOptions.SetLibCacheFolderName("Lib Ä");
    EXPECT_TRUE(fs::is_directory(Data() + "/A%3AB"));  // made under the encoded name
    EXPECT_TRUE(fs::is_directory(Data() + "/Lib Ä"));
    dataOptions.GetMainProjectCacheFolder(&main, false);
    EXPECT_EQ(main, Loc(Data() + "/A:B"));  // appended as given
    dataOptions.GetMainLibCacheFolder(&main, false);
    EXPECT_EQ(main, Loc(Data() + "/Lib Ä"));
}

}  // namespace
