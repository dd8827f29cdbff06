#include <gtest/gtest.h>

#include <filesystem>

#include "KRClient/Internal/KRDataOptions.h"
#include "KRClient/RegistryFixture.h"
#include "Support/FaultEnv.h"

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

    // The file form of every value is tested with the registry's options file.
    dataOptions.SetEnableAutoClean(true);
    dataOptions.SetPeriodTime(30);
    EXPECT_FALSE(dataOptions.IsDirty());
    dataOptions.SetEnableAutoClean(false);
    dataOptions.SetPeriodTime(14);
    EXPECT_TRUE(dataOptions.IsDirty());
    ASSERT_TRUE(dataOptions.Write());
    EXPECT_FALSE(dataOptions.IsDirty());

    // A new start reads them back, and the folder counts as changed from none.
    KRC::RegisteredProjects::ResetForTesting();
    dataOptions.SetOptionsFolder(Loc(Data()));
    EXPECT_EQ(counter.changes, 2);
    EXPECT_FALSE(dataOptions.GetEnableAutoClean());
    EXPECT_EQ(dataOptions.GetPeriodTime(), 14);
    // The same folder again is no change.
    dataOptions.SetOptionsFolder(Loc(Data()));
    dataOptions.SetDataFolder(Loc(Data()));
    EXPECT_EQ(counter.changes, 2);
}

TEST_F(KRDataOptionsTest, RefreshFollowsEveryOtherWriterAndTellsOfAMovedFolder) {
    dataOptions.SetOptionsFolder(Loc(Data()));
    FolderChangeCounter counter;

    krtest::WriteFile(OptionsFile(), krtest::OptionsXml(Data(), 5));
    dataOptions.Refresh();
    EXPECT_EQ(dataOptions.GetPeriodTime(), 5);
    // In place and within the same second; the size differs, as the coarse
    // file clock may not.
    krtest::WriteFile(OptionsFile(), krtest::OptionsXml(Data(), 66));
    dataOptions.Refresh();
    EXPECT_EQ(dataOptions.GetPeriodTime(), 66);
    EXPECT_EQ(counter.changes, 0);

    std::string moved = temp.Sub("möved");
    krtest::WriteFile(OptionsFile(), krtest::OptionsXml(moved, 66));
    dataOptions.Refresh();
    dataOptions.Refresh();  // nothing new
    EXPECT_EQ(DataFolder(), Loc(moved));
    EXPECT_EQ(counter.changes, 1);

    // A deleted file: looking makes no file (an empty one would read as
    // damaged everywhere); a refresh writes it again from memory, quietly,
    // also when its folder went with it.
    for (bool withFolder : {false, true}) {
        fs::remove(OptionsFile());
        if (withFolder) fs::remove(Data());
        int time = 0;
        EXPECT_FALSE(dataOptions.GetOptionsFileTime(&time));
        EXPECT_FALSE(dataOptions.HasContent());
        EXPECT_FALSE(fs::exists(OptionsFile()));
        krtest::EventRecorder events;
        dataOptions.Refresh();
        EXPECT_TRUE(events.errors.empty());
        EXPECT_NE(krtest::ReadFile(OptionsFile()).find("<LocalDataFolderPath>" + moved + "<"),
                  std::string::npos);
    }
}

TEST_F(KRDataOptionsTest, DamagedFileIsReportedOnceKeepsMemoryWholeAndIsNeverWritten) {
    const std::string elsewhere = temp.Sub("elsewhere");
    const std::string good = krtest::OptionsXml(elsewhere, 40);
    auto replace = [&](const std::string& from, const std::string& to) {
        std::string text = good;
        return text.replace(text.find(from), from.size(), to);
    };
    const std::vector<std::string> damages = {
        "",  // emptied after it was read
        good.substr(0, good.size() / 2),
        replace("<PeriodTime>40", "<PeriodTime>x"),
        replace("<LastUsedDays>7", "<LastUsedDays>99999999999"),
        replace("<DataVersion>1", "<DataVersion>70000"),
        replace("<LocalDataFolderPath>" + elsewhere + "</LocalDataFolderPath>",
                "<LocalDataFolder>%%junk</LocalDataFolder>"),
        replace("<Enable>false", "<Enable>maybe"),
        replace("<LastRunTime>555</LastRunTime>", ""),
    };
    for (const std::string& damage : damages) {
        SCOPED_TRACE(damage);
        dataOptions.ResetForTesting();
        fs::remove(OptionsFile());
        dataOptions.SetOptionsFolder(Loc(Data()));
        dataOptions.SetPeriodTime(9);
        ASSERT_TRUE(dataOptions.Write());
        krtest::WriteFile(OptionsFile(), damage);

        krtest::EventRecorder events;
        {
            // Damage is no reason to try again: one read opens the file at most
            // twice (the check, the parse). The same damage again is not read.
            krtest::FaultEnv env;
            dataOptions.Refresh();
            const int opens = env.Count(krtest::Call::Open);
            EXPECT_TRUE(opens == 1 || opens == 2) << opens;
            dataOptions.Refresh();
            EXPECT_EQ(env.Count(krtest::Call::Open), opens);
        }
        ASSERT_EQ(events.errors.size(), 1u);
        EXPECT_EQ(events.errors[0], std::make_pair(KRC::FileReadingFailed, OptionsFile()));
        // Nothing of the damaged file reached memory, not even what came before the fault.
        EXPECT_EQ(DataFolder(), Loc(Data()));
        EXPECT_EQ(dataOptions.GetPeriodTime(), 9);

        // A change can't be stored over it; it waits, and the file stays as it is.
        dataOptions.SetLastUsedDays(3);
        EXPECT_FALSE(dataOptions.Write());
        EXPECT_TRUE(dataOptions.IsDirty());
        EXPECT_EQ(krtest::ReadFile(OptionsFile()), damage);
        EXPECT_EQ(events.errors.back().first, KRC::FileWritingFailed);
    }

    // Once repaired it is read, and written again.
    krtest::WriteFile(OptionsFile(), good);
    dataOptions.Refresh();
    EXPECT_EQ(DataFolder(), Loc(elsewhere));
    EXPECT_TRUE(dataOptions.Write());
}

TEST_F(KRDataOptionsTest, FailedWriteReportsOnceAndStaysDirty) {
    dataOptions.SetOptionsFolder(Loc(Data()));
    std::int32_t writtenTime = dataOptions.GetOptionsFileTimeField();
    dataOptions.SetPeriodTime(9);
    fs::remove_all(Data());

    krtest::EventRecorder events;
    EXPECT_FALSE(dataOptions.Write());
    EXPECT_EQ(dataOptions.GetOptionsFileTimeField(), writtenTime);
    ASSERT_EQ(events.errors.size(), 1u);
    EXPECT_EQ(events.errors[0].first, KRC::FileOpeningFailed);
    EXPECT_TRUE(Logged("InfoXMLsOChannel::Open file creation failed: " + OptionsFile()));
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
}

}  // namespace
