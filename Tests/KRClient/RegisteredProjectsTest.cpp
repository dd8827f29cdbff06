#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <pugixml.hpp>

#include "KRClient/Internal/KRDataOptions.h"
#include "KRClient/RegistryFixture.h"
#include "ZR/Time.h"

namespace {

using KRC::RegisteredProjects;
using KRC::registeredProjects;
using krtest::Loc;
using krtest::WriteCache;
using Names = std::vector<std::string>;
namespace fs = std::filesystem;

// "name=text" of each element below node, depth first.
void Flatten(const pugi::xml_node& node, Names* elements) {
    for (const pugi::xml_node& child : node.children()) {
        if (child.type() != pugi::node_element) continue;
        elements->push_back(std::string(child.name()) + "=" + child.child_value());
        Flatten(child, elements);
    }
}

class RegisteredProjectsTest : public krtest::RegistryTest {
protected:
    Names OptionsOnDisc() const {
        pugi::xml_document doc;
        EXPECT_TRUE(doc.load_file(OptionsFile().c_str()));
        Names elements;
        Flatten(doc.child("KRDataOptions"), &elements);
        return elements;
    }
};

template <typename It>
Names Paths(It it) {
    Names paths;
    for (; it != nullptr; ++it) paths.push_back(it->GetProjectPath().Std());
    return paths;
}

TEST_F(RegisteredProjectsTest, FirstInitMakesOptionsWithDefaultsAndBothCacheFolders) {
    const std::int32_t before = TIGetTime();
    Init();
    Names options = OptionsOnDisc();
    ASSERT_EQ(options.size(), 7u);
    // The last run defaults to the load time of the library, which came before the test.
    EXPECT_LE(std::atoi(options[6].substr(12).c_str()), before);
    options.pop_back();
    EXPECT_EQ(options, (Names{"DataVersion=1", "LocalDataFolderPath=" + Data(), "CleanSchedule=",
                              "Enable=true", "PeriodTime=30", "LastUsedDays=30"}));
    EXPECT_TRUE(fs::is_directory(Projects()));
    EXPECT_TRUE(fs::is_directory(Data() + "/Libraries"));
    EXPECT_FALSE(fs::exists(LockFile()));
}

TEST_F(RegisteredProjectsTest, OlderFormOfTheOptionsFileIsReadAndUpgradedByTheLockHolder) {
    std::string elsewhere = temp.Sub("Other Däta %20");
    fs::create_directories(Data());
    const std::string older =
        krtest::OptionsXml(Loc(elsewhere).ToObsoleteText().Std(), 12, "LocalDataFolder");
    krtest::WriteFile(OptionsFile(), older);
    Init();
    EXPECT_EQ(registeredProjects.GetKRDataFolder(), Loc(elsewhere));
    EXPECT_EQ(registeredProjects.GetPeriodTime(), 12);
    EXPECT_TRUE(fs::is_directory(elsewhere + "/Projects"));
    // Reading leaves the file as it is: a reader holds no lock, and its write
    // could undo what the holder of the lock writes meanwhile.
    EXPECT_EQ(krtest::ReadFile(OptionsFile()), older);

    { RegisteredProjects::Synchronizer guard; }
    EXPECT_EQ(OptionsOnDisc(), (Names{"DataVersion=1", "LocalDataFolderPath=" + elsewhere,
                                      "CleanSchedule=", "Enable=false", "PeriodTime=12",
                                      "LastUsedDays=7", "LastRunTime=555"}));
}

TEST_F(RegisteredProjectsTest, RegistersExactlyTheReadableCacheFoldersWhateverTheirNames) {
    Init();
    WriteCache(Projects(), "any name at all", "https://srv.example", "/A", "anna");
    WriteCache(Projects(), "0f", "https://srv.example", "/B", "anna");
    fs::create_directories(Projects() + "/no-info");
    krtest::WriteFile(Projects() + "/no-info/other.dat", "x");
    krtest::WriteFile(Projects() + "/plain-file", "x");
    // Which damage a record reader refuses is tested with the record.
    const std::map<std::string, std::string> damaged = {
        {"broken", "<Cache><DataVersion>10</DataVersion></Cache>"}, {"empty", ""}};
    for (const auto& [name, content] : damaged) {
        fs::create_directories(Projects() + "/" + name);
        krtest::WriteFile(Projects() + "/" + name + "/CacheInfo.xml", content);
    }

    krtest::EventRecorder events;
    EXPECT_EQ(Paths(RegisteredProjects::ProjectConstIterator()), (Names{"/B", "/A"}));
    EXPECT_TRUE(events.errors.empty());  // an unreadable record is skipped silently
    for (const auto& [name, content] : damaged)
        EXPECT_EQ(krtest::ReadFile(Projects() + "/" + name + "/CacheInfo.xml"), content);

    // Once readable, it comes in at the next refresh.
    WriteCache(Projects(), "broken", "https://srv.example", "/C", "anna");
    EXPECT_EQ(registeredProjects.GetCacheDataFolderNum(), 3u);
}

TEST_F(RegisteredProjectsTest, LookUpTakesFirstStrictMatchOrASingleLooseOneIgnoringCase) {
    Init();
    // Folder names fix the order of the records.
    WriteCache(Projects(), "1", "http://SRV.example:8080/x", "/P1", "anna");  // loose
    std::string strict = WriteCache(Projects(), "2", "https://srv.example/", "/P1", "anna");
    WriteCache(Projects(), "3", "https://srv.example", "/P1", "anna");  // a later strict one loses
    WriteCache(Projects(), "4", "http://other.example", "/P2", "anna");
    WriteCache(Projects(), "5", "http://other.example:81", "/P2", "anna");
    std::string single = WriteCache(Projects(), "6", "http://third.example", "/P3", "anna");
    std::string greek = WriteCache(Projects(), "7", "https://srv.example", "/Ärzte/Σίσυφος", "Åsa");
    // Look-ups re-read known records only; new folders come in by a refresh.
    ASSERT_EQ(registeredProjects.GetCacheDataFolderNum(), 7u);

    EXPECT_EQ(FolderOf("/P1", "anna", "https://srv.example"), Loc(strict));
    EXPECT_EQ(FolderOf("/P2", "anna", "https://other.example"), IO::Location());  // two loose ones
    EXPECT_EQ(FolderOf("/P3", "anna", "https://third.example"), Loc(single));
    EXPECT_EQ(FolderOf("/P3", "bob", "https://third.example"), IO::Location());
    // Path and user match without regard to case, beyond ASCII too.
    EXPECT_EQ(FolderOf("/ÄRZTE/ΣΊΣΥΦΟΣ", "åSA", "https://srv.example"), Loc(greek));
    EXPECT_EQ(FolderOf("/Arzte/Σίσυφος", "Åsa", "https://srv.example"), IO::Location());
}

TEST_F(RegisteredProjectsTest, RecordsLeaveMemoryButTheFoldersBringThemBack) {
    Init();
    std::string a = WriteCache(Projects(), "a", "https://srv.example", "/A", "anna");
    WriteCache(Projects(), "b", "https://srv.example", "/B", "anna");
    IO::Location projectA = Project("https://srv.example", "/A", "anna");
    ASSERT_EQ(registeredProjects.GetCacheDataFolderNum(), 2u);
    const KRC::CachedProjectInfo* record = registeredProjects.GetCachedProjectInfo(projectA);

    // A folder that lost its info file isn't found, though its record stays.
    fs::rename(a + "/CacheInfo.xml", a + "/CacheInfo.xml.away");
    EXPECT_EQ(registeredProjects.GetCachedProjectInfo(projectA), nullptr);
    fs::rename(a + "/CacheInfo.xml.away", a + "/CacheInfo.xml");
    EXPECT_EQ(registeredProjects.GetCachedProjectInfo(projectA), record);

    IO::Location excluded = Loc(a);
    registeredProjects.RefreshData(true, &excluded);
    EXPECT_EQ(registeredProjects.GetCachedProjectInfo(projectA), nullptr);
    registeredProjects.RefreshData(true, nullptr);
    EXPECT_NE(registeredProjects.GetCachedProjectInfo(projectA), nullptr);
    {
        // Under the lock nothing refreshes, so the removal stays visible.
        RegisteredProjects::Synchronizer lock;
        registeredProjects.RemoveProject(projectA);
        EXPECT_EQ(registeredProjects.GetCachedProjectInfo(projectA), nullptr);
    }
    EXPECT_TRUE(fs::exists(a + "/CacheInfo.xml"));
    EXPECT_EQ(registeredProjects.GetCacheDataFolderNum(), 2u);
}

TEST_F(RegisteredProjectsTest, IteratorsFilterAndSearchFoldersOutsideTheRegistry) {
    Init();
    WriteCache(Projects(), "1", "https://srv-a.example", "/A1", "Anna");
    WriteCache(Projects(), "2", "https://srv-b.example", "/B1", "anna");
    WriteCache(Projects(), "3", "https://srv-a.example:8443/x", "/A2", "Åsa");
    using It = RegisteredProjects::ProjectConstIterator;
    EXPECT_EQ(Paths(It("ANNA")), (Names{"/A1", "/B1"}));
    EXPECT_EQ(Paths(RegisteredProjects::ProjectIterator("åSA")), Names{"/A2"});
    EXPECT_EQ(Paths(It("", "http://SRV-A.example")), (Names{"/A1", "/A2"}));
    It one("anna", "https://srv-a.example");
    EXPECT_EQ(one->GetKerrowLocation(), Project("https://srv-a.example", "/A1", "Anna"));
    ++one;
    ++one;  // doesn't move past the end
    EXPECT_EQ(one, nullptr);
    EXPECT_EQ(one->GetProjectPath(), "");

    std::string other = temp.Sub("other");
    WriteCache(other, "z", "https://srv-c.example", "/C1", "carl");
    WriteCache(other, "y", "https://srv-c.example", "/C2", "carl");
    ZR::Array<IO::Location> folders{Loc(other), Loc(temp.Sub("missing"))};
    auto search = std::make_unique<RegisteredProjects::ProjectIterator>("", "", &folders);
    RegisteredProjects::ProjectIterator first = (*search)++;
    search.reset();
    // The copy owns copies of the records found, independent of the original.
    EXPECT_EQ(Paths(first), (Names{"/C2", "/C1"}));
    EXPECT_EQ(registeredProjects.GetCacheDataFolderNum(), 3u);
}

TEST_F(RegisteredProjectsTest, SetKRDataFolderReadsTheRegistryFromTheNewPlace) {
    Init();
    WriteCache(Projects(), "a", "https://srv.example", "/Old", "anna");
    ASSERT_EQ(registeredProjects.GetCacheDataFolderNum(), 1u);
    std::string moved = temp.Sub("moved");
    WriteCache(moved + "/Projects", "b", "https://srv.example", "/New", "anna");
    auto stamp = fs::last_write_time(OptionsFile());
    registeredProjects.SetKRDataFolder(Loc(Data()), false);  // the current folder: nothing happens
    EXPECT_EQ(fs::last_write_time(OptionsFile()), stamp);

    registeredProjects.SetKRDataFolder(Loc(moved), false);
    EXPECT_EQ(Paths(RegisteredProjects::ProjectConstIterator()), Names{"/New"});
    // The options stay where Init put them.
    EXPECT_NE(krtest::ReadFile(OptionsFile()).find("<LocalDataFolderPath>" + moved + "<"),
              std::string::npos);
    EXPECT_FALSE(fs::exists(moved + "/KRDataOptions.xml"));

    // With reset, the registry is read afresh as well.
    registeredProjects.SetKRDataFolder(Loc(Data()), true);
    EXPECT_EQ(Paths(RegisteredProjects::ProjectConstIterator()), Names{"/Old"});
}

TEST_F(RegisteredProjectsTest, CreatedRecordsAndPerProjectSettersReachTheRegistryAndTheFile) {
    Init();
    IO::Location project = Project("https://srv.example", "/Folder/Tower", "anna");
    bool created = false;
    std::unique_ptr<KRC::CachedProjectInfo> mine(
        registeredProjects.CreateCachedProjectInfo(project, created));
    ASSERT_TRUE(mine && created);
    // The registry heard of the first write and keeps a copy of its own.
    const KRC::CachedProjectInfo* registered = registeredProjects.GetCachedProjectInfo(project);
    ASSERT_NE(registered, nullptr);
    EXPECT_NE(registered, mine.get());
    std::unique_ptr<KRC::CachedProjectInfo> again(
        registeredProjects.CreateCachedProjectInfo(project, created));
    EXPECT_FALSE(created);
    EXPECT_EQ(again->GetCacheFolderLocation(), mine->GetCacheFolderLocation());

    // A forced write from inside a private copy's update brings its content,
    // but not its update, into the registry's copy: the registry still writes.
    mine->BeginUpdate();
    mine->SetProjectVersion("2.0");
    mine->WriteToDisc();
    EXPECT_EQ(registered->GetProjectVersion(), "2.0");
    registeredProjects.SetVisitCount(project, 7);
    const std::int32_t before = TIGetTime();
    registeredProjects.ProjectOpened(project);
    EXPECT_GE(registeredProjects.GetLastOpenedTime(project), before);
    // The file holds it all, as a fresh reader sees.
    KRC::CachedProjectInfo reread(mine->GetCacheFolderLocation());
    EXPECT_EQ(reread.GetVisitCount(), 7u);
    EXPECT_EQ(reread.GetProjectVersion(), "2.0");

    IO::Location unknown = Project("https://srv.example", "/Nowhere", "anna");
    registeredProjects.SetVisitCount(unknown, 3);  // makes no record
    EXPECT_EQ(registeredProjects.GetCacheDataFolderNum(), 1u);
    krtest::EventRecorder events;
    registeredProjects.RemoveProject(project);  // memory only
    EXPECT_EQ(events.writes, 0);
    mine->EndUpdate();
}

}  // namespace
