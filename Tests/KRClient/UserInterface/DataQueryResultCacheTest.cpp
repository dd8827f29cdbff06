// The result cache folding real answers of the emulated service, with local
// projects laid in.

#include <gtest/gtest.h>

#include <string>

#include "KRCB/AuthenticatedClientConnection.h"
#include "KRCB/Clients.h"
#include "KRClient/KRClient.h"
#include "KRClient/UserInterface/DataQueryResultCache.h"
#include "KRClient/UserInterface/LocalCache/CacheProject.h"
#include "KRClient/UserInterface/ReshareCheck.h"
#include "Support/EmulatorFixture.h"
#include "Support/LibraryTest.h"

namespace {

using namespace krtest;
using namespace KRC::UI;
using KRC::UI::LocalCache::ProjectInfo;
using KRCB::DataQuery::DataQueryResult;
using KRCB::Management::Entities::Project;
using KRCB::Management::Entities::ProjectFolder;

// Records of local projects at the paths given, each with its path as id.
ZR::Array<ProjectInfo> Records(std::initializer_list<std::string> paths) {
    ZR::Array<ProjectInfo> records;
    for (const std::string& path : paths) {
        ProjectInfo info;
        info.path = path;
        info.id = path;
        info.version = "99999999999.1.2 (x";
        records.Add(info);
    }
    return records;
}

class DataQueryResultCacheTest : public LibraryTest {
protected:
    DataQueryResultCacheTest() {
        service->AddFolder(kServer, "/Projects/Zeta");
        service->AddFolder(kServer, "/Projects/Alpha");
        service->AddFolder(kServer, "/Other");
        connection = PasswordLogin();
    }
    ZR::Ref<DataQueryResult> Tree(const char* path,
                                  KRCB::Management::PartialFolderTreeQueryType t) {
        ZR::Ref<DataQueryResult> r(std::make_shared<KRCB::DataQuery::PartialFolderTreeResult>(
            path, true, false, true, t, false, true, false, true, true));
        r->Collect(connection);
        return r;
    }
    ZR::Ref<DataQueryResult> ChildFolders(const std::string& id) {
        ZR::Ref<DataQueryResult> r(
            std::make_shared<KRCB::DataQuery::FolderWithChildFoldersResult>(id, true, true));
        r->Collect(connection);
        return r;
    }
    // "name+" for a folder whose sub-folders are known, "name-" else.
    static std::string Listing(const DataQueryResultCache& cache, const char* path) {
        std::string text;
        cache.EnumerateSubfoldersSorted(path, [&](const ZR::Ref<ProjectFolder>& f, bool known) {
            text += f->GetName().Std() + (known ? "+ " : "- ");
        });
        return text;
    }
    static std::string Projects(const ZR::Ref<ProjectFolder>& folder) {
        std::string text;
        ZR::PagedArray<ZR::Ref<Project>, 8> projects;
        if (folder) folder->GetProjects(projects);
        for (const auto& p : projects)
            text += p->GetName().Std() +
                    (dynamic_cast<const LocalCache::CacheProject*>(p.Get()) ? "(local) " : " ");
        return text;
    }

    EmulatedService service;
    ZR::Ref<KRCB::Management::AuthenticatedClientConnection> connection;
};

TEST_F(DataQueryResultCacheTest, LocalProjectsThenServerAnswersFoldTogether) {
    DataQueryResultCache cache(true, true);
    cache.Merge(Records({"/Projects/Shed", "/Elsewhere/Hut", "/Projects/skip"}),
                [](const ProjectInfo& p) { return !(p.path == "/Projects/skip"); });
    EXPECT_TRUE(cache.IsEmpty());
    EXPECT_EQ(Listing(cache, ""), "Elsewhere+ Projects+ ");
    const ZR::UniString localRootId = cache.GetRootProjectFolderId();
    EXPECT_TRUE(cache.IsFolderFromLocalCache(localRootId));

    cache.AddDataQueryResult(Tree("/Projects", KRCB::Management::PathResources));
    EXPECT_FALSE(cache.IsEmpty());
    EXPECT_NE(cache.GetRootProjectFolderId(), localRootId);
    EXPECT_TRUE(cache.IsFolderFromLocalCache(localRootId));
    EXPECT_EQ(Listing(cache, ""), "Elsewhere+ Other- Projects+ ");
    EXPECT_EQ(Listing(cache, "/Projects"), "Alpha- Zeta- ");
    EXPECT_EQ(Projects(cache.GetSubFolderWithChildResources("/Projects")), "House Shed(local) ");
    const ZR::Ref<ProjectFolder> alpha =
        cache.GetFolder(service->GetFolderId(kServer, "/Projects/Alpha"));
    ASSERT_TRUE(alpha);
    EXPECT_FALSE(cache.HasQueriedFolderWithChildFolders(alpha->GetId()));

    // Merging again wraps the server's project without nesting.
    for (int i = 0; i < 2; ++i)
        cache.Merge(Records({"/Projects/House"}), [](const ProjectInfo&) { return true; });
    ZR::Ref<Project> merged;
    ASSERT_TRUE(
        cache.GetSubFolderWithChildResources("/Projects")->GetProjectByName("House", merged));
    EXPECT_EQ(merged->GetId(), kProjectId);

    ZR::Ref<ProjectFolder> folder;
    ZR::Array<ZR::UniString> missing;
    EXPECT_FALSE(cache.GetSubFolderWithChildResources("/Projects/x/y", folder, missing));
    EXPECT_EQ(folder->GetId(), cache.GetRootProjectFolderId());  // the newest root folder
    ASSERT_EQ(missing.GetSize(), 2u);
    EXPECT_EQ(missing[1], "y");
    EXPECT_FALSE(cache.GetSubFolderWithChildResources("/Projects/Alpha", folder, missing));
    EXPECT_TRUE(missing.IsEmpty());

    cache.AddDataQueryResult(ChildFolders("no-such-id"));
    EXPECT_TRUE(cache.HasQueriedFolderWithChildFolders("no-such-id"));
    EXPECT_TRUE(cache.HasQueriedFolderWithChildResources("no-such-id"));
    cache.Clear();
    EXPECT_TRUE(cache.IsEmpty());
    EXPECT_EQ(Listing(cache, ""), "");
}

// Per folder of root, /Projects, /Projects/Alpha, /Projects/Zeta, /Other:
// F when its sub-folders are known, R when its resources are.
TEST_F(DataQueryResultCacheTest, QueryTypesDecideWhichFoldersHaveTheirResources) {
    using T = KRCB::Management::PartialFolderTreeQueryType;
    const struct {
        T type;
        const char* known;
    } rows[] = {
        {KRCB::Management::QueriedFolderResources, "F- F- FR -- --"},
        {KRCB::Management::PathResources, "FR FR FR -- --"},
        {KRCB::Management::RootAndQueriedResources, "FR F- FR -- --"},
        {static_cast<T>(3), "F- F- F- -- --"},  // no rule: nobody has resources
    };
    const char* paths[] = {"", "/Projects", "/Projects/Alpha", "/Projects/Zeta", "/Other"};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.type);
        DataQueryResultCache cache(false, false);
        // The second answer brings new objects of the same folders.
        for (int i = 0; i < 2; ++i) cache.AddDataQueryResult(Tree("/Projects/Alpha", row.type));
        std::string known;
        for (const char* path : paths) {
            const std::string id = service->GetFolderId(kServer, path);
            known += std::string(known.empty() ? "" : " ") +
                     (cache.HasQueriedFolderWithChildFolders(id) ? "F" : "-") +
                     (cache.HasQueriedFolderWithChildResources(id) ? "R" : "-");
            // Also the folders that only came along are found, in the
            // newest answer's tree; ids compare exactly.
            const ZR::Ref<ProjectFolder> folder = cache.GetFolder(id);
            ASSERT_TRUE(folder) << path;
            EXPECT_EQ(folder->GetPath(false), path);
            EXPECT_FALSE(cache.GetFolder(ZR::UniString(id).ToUpperCase()));
        }
        EXPECT_EQ(known, row.known);
        EXPECT_EQ(Listing(cache, ""), "Other- Projects+ ");
        EXPECT_EQ(Listing(cache, "/Projects"), "Alpha+ Zeta- ");
    }
    EXPECT_EQ(ConvertToPartialFolderTreeQueryType(static_cast<QueryType>(3)),
              KRCB::Management::RootAndQueriedResources);
    EXPECT_EQ(ConvertToPartialFolderTreeQueryType(static_cast<QueryType>(0)),
              KRCB::Management::PathResources);  // anything unknown
}

// Before the root has come, a sub-folder's answer leaves only its model
// servers and permissions behind.
TEST_F(DataQueryResultCacheTest, ASubFolderAnswerWithoutARootMakesNoNodes) {
    Emulator::FolderSpec shared;
    shared.path = "/Shared";
    shared.permissions["anna"] = {"LibraryView"};
    const std::string id = service->AddFolder(kServer, shared);
    service->AddFolder(kServer, "/Shared/Inner");
    DataQueryResultCache cache(true, true);
    ZR::Ref<DataQueryResult> answer(
        std::make_shared<KRCB::DataQuery::FolderWithChildFoldersResult>(id, true, true));
    answer->Collect(connection);
    cache.AddDataQueryResult(answer);
    EXPECT_TRUE(cache.GetVisibleModelServers().Find("ms-1"));
    EXPECT_TRUE(cache.GetFoldersPermissions().Find(id));
    EXPECT_TRUE(cache.IsEmpty());
    EXPECT_FALSE(cache.HasQueriedFolderWithChildFolders(id));
    EXPECT_FALSE(cache.GetFolder(id));
    EXPECT_EQ(Listing(cache, "/Shared"), "");
    ZR::Ref<ProjectFolder> folder;
    ZR::Array<ZR::UniString> missing;
    EXPECT_FALSE(cache.GetSubFolderWithChildResources("/Shared", folder, missing));
    EXPECT_FALSE(folder);
    cache.AddDataQueryResult(ChildFolders("projectRoot"));
    cache.AddDataQueryResult(answer);
    EXPECT_EQ(Listing(cache, "/Shared"), "Inner- ");
    EXPECT_TRUE(cache.HasQueriedFolderWithChildFolders(id));
}

TEST_F(DataQueryResultCacheTest, FirstValuesStayUntilAnotherServerClearsAll) {
    DataQueryResultCache cache(true, true);
    cache.AddDataQueryResult(Tree("/Projects", KRCB::Management::PathResources));
    const auto* first = cache.GetVisibleModelServers().Find("ms-1");
    ASSERT_NE(first, nullptr);
    const ZR::Ref<KRCB::Management::Entities::ModelServer> kept = *first;
    cache.AddDataQueryResult(Tree("/Projects", KRCB::Management::PathResources));
    EXPECT_EQ(*cache.GetVisibleModelServers().Find("ms-1"), kept);  // not the newer object
    cache.AddDataQueryResult(ZR::Ref<DataQueryResult>());           // nothing happens
    EXPECT_FALSE(cache.IsEmpty());

    service->AddServer({"https://other.test", "Other", 3, 2});
    Emulator::UserSpec anna;
    anna.login = "anna";
    anna.password = "pw-anna";
    service->AddUser("https://other.test", anna);
    connection = PasswordLogin("https://other.test");
    cache.AddDataQueryResult(ChildFolders("no-such-id"));
    EXPECT_TRUE(cache.IsEmpty());
    EXPECT_TRUE(cache.GetVisibleModelServers().IsEmpty());
    EXPECT_EQ(Listing(cache, ""), "");
    EXPECT_EQ(cache.GetPortalServerUrl(), "https://other.test");
    EXPECT_TRUE(cache.HasQueriedFolderWithChildFolders("no-such-id"));
}

// The reshare check reads a cache that holds the server's answer for
// /Projects; the folder under test carries that folder's id and projects of
// the states of each row.
TEST_F(DataQueryResultCacheTest, ReshareCheckResultsAndLogLines) {
    using KRC::ReshareStatus;
    using R = KRCB::Management::Entities::Resource;
    Emulator::FolderSpec shared;
    shared.path = "/Shared";
    shared.permissions["anna"] = {"LibraryView", "LibraryRead", "LibraryModify"};
    service->AddFolder(kServer, shared);
    service->AddModelServer(kServer, {"ms-9", "/ms/nine", 9, 0});
    auto cache = std::make_shared<DataQueryResultCache>(true, false);
    cache->AddDataQueryResult(Tree("/Shared", KRCB::Management::QueriedFolderResources));
    const ZR::UniString folderId = cache->GetSubFolderWithChildResources("/Shared")->GetId();
    // taken: 'l' or 'f' puts a library or a folder named "House" beside it.
    auto folderWith = [&](const char* id, int sync, int state, const char* on, char taken) {
        ProjectFolder::Fields f;
        f.id = id;
        f.path = "/Projects";
        auto folder = std::make_shared<ProjectFolder>(f);
        R::Fields p;
        p.path = "/Projects/House";
        p.modelServerId = on;
        p.syncState = sync;
        p.state = state;
        ZR::Ref<Project> project(std::make_shared<Project>(p, "", ZR::HashSet<ZR::UniString>()));
        folder->AddProject(project);
        if (taken == 'l')
            folder->AddLibrary(std::make_shared<KRCB::Management::Entities::Library>(p));
        ZR::Ref<ProjectFolder> result(folder);
        if (taken == 'f') {
            f.path = "/Projects/House";
            ZR::Ref<ProjectFolder> sub(std::make_shared<ProjectFolder>(f));
            result->AddProjectFolder(sub);
        }
        return result;
    };
    const std::string id = folderId.Std();
    const struct {
        const char* id;
        int sync, state;
        const char* name;
        const char* modelServer;
        int result;
        const char* word;  // nullptr: no log line, outputs untouched
        const char* on = "ms-1";
        char taken = 0;
    } rows[] = {
        {id.c_str(), 1, 1, "other", "ms-1", ReshareStatus::Ok, "Ok"},
        {id.c_str(), 1, 1, "HOUSE", "MS-1", ReshareStatus::Ok, "Ok"},
        {id.c_str(), 1, 1, "house", "ms-2", ReshareStatus::ChangeHostProject, "ChangeHostProject"},
        {id.c_str(), 2, 2, "House", "ms-1", ReshareStatus::UnknownProject, "UnknownProject"},
        {id.c_str(), 3, 1, "House", "ms-1", ReshareStatus::MissingProject, "MissingProject"},
        {id.c_str(), 1, 2, "House", "ms-2", ReshareStatus::LockedProject, "LockedProject"},
        {id.c_str(), 1, 3, "House", "ms-1", ReshareStatus::ClosedProject, "ClosedProject"},
        {"unknown-folder", 1, 1, "House", "ms-1", ReshareStatus::NoPermission, nullptr},
        {id.c_str(), 1, 1, "house", "ms-1", ReshareStatus::LibraryNameTaken, nullptr, "ms-1", 'l'},
        {id.c_str(), 1, 1, "HOUSE", "ms-1", ReshareStatus::FolderNameTaken, nullptr, "ms-1", 'f'},
        {id.c_str(), 1, 1, "House", "MS-9", ReshareStatus::IncompatibleModelServer,
         "IncompatibleModelServer: ", "ms-9"},
    };
    for (const auto& row : rows) {
        log.Clear();
        bool exists = false;
        ZR::UniString existing = "untouched";
        ZR::Ref<ZR::ZRException> exception;
        const auto result = KRC::ReshareCheck(
            folderWith(row.id, row.sync, row.state, row.on, row.taken), row.name,
            ZR::Ref<DataQueryResultCache>(cache), row.modelServer, exists, existing, exception);
        EXPECT_EQ(result, row.result) << row.word;
        const bool found = row.word && ZR::UniString(row.name).IsEqual("house", ZR::kIgnoreCase);
        EXPECT_EQ(exists, found) << row.word;
        EXPECT_EQ(existing.Std(), found ? row.on : "untouched") << row.word;
        EXPECT_EQ(bool(exception), result == ReshareStatus::IncompatibleModelServer) << row.word;
        const std::string detail = exception ? KRC::ToString(*exception).Std() : "";
        EXPECT_EQ(log.GetText(), row.word ? "KRC::Reshare check finished. Server unique URL: " +
                                                cache->GetServerInfo()->uniqueURL.Std() +
                                                ", parent folder path: /Projects, project name: " +
                                                row.name + ", result: " + row.word + detail + "\n"
                                          : "")
            << row.word;
    }
    bool exists = false;
    ZR::UniString existing = "untouched";
    ZR::Ref<ZR::ZRException> exception;
    const auto empty =
        ZR::Ref<DataQueryResultCache>(std::make_shared<DataQueryResultCache>(true, true));
    log.Clear();
    EXPECT_EQ(KRC::ReshareCheck(folderWith("x", 2, 2, "ms-1", 0), "House", empty, "ms-1", exists,
                                existing, exception),
              ReshareStatus::Ok);
    EXPECT_EQ(KRC::ReshareCheck(ZR::Ref<ProjectFolder>(), "House", empty, "ms-1", exists, existing,
                                exception),
              ReshareStatus::Ok);
    EXPECT_FALSE(exists);
    EXPECT_EQ(log.GetText(), "");
}

TEST(DataQueryResultCache, DeepAndOddPathsNeverRecurseOrCrash) {
    KRC::UI::DataQueryResultCache cache(false, false);
    std::string deep;
    for (int i = 0; i < 10000; ++i) deep += "/d";
    cache.Merge(Records({deep + "/p", "", "//", "a//b/", "/x"}), [](const auto&) { return true; });
    ASSERT_TRUE(cache.GetSubFolderWithChildResources(ZR::UniString(deep)));
    std::string listing;
    cache.EnumerateSubfoldersSorted("", [&](const auto& folder, bool known) {
        listing += folder->GetName().Std() + (known ? "+ " : "- ");
    });
    EXPECT_EQ(listing, "a+ d+ ");
    // Paths name a node only in the form that joining elements gives.
    const struct {
        const char* path;
        const char* projects;  // names in the folder; null: no folder
    } rows[] = {{"", ",x,"}, {"/a", "b,"}, {"a", nullptr}, {"/a/", nullptr}, {"//a", nullptr}};
    for (const auto& row : rows) {
        const ZR::Ref<ProjectFolder> folder = cache.GetSubFolderWithChildResources(row.path);
        std::string names;
        ZR::PagedArray<ZR::Ref<Project>, 8> projects;
        if (folder) folder->GetProjects(projects);
        for (const auto& p : projects) names += p->GetName().Std() + ",";
        EXPECT_EQ(folder ? names : "none", row.projects ? row.projects : "none") << row.path;
    }
    ZR::Ref<ProjectFolder> folder;
    ZR::Array<ZR::UniString> missing;
    EXPECT_FALSE(
        cache.GetSubFolderWithChildResources(ZR::UniString(deep + "/q/r"), folder, missing));
    EXPECT_EQ(missing.GetSize(), 2u);
    KRC::UI::DataQueryResultCache copy(cache);
    cache.Clear();
    EXPECT_TRUE(copy.GetSubFolderWithChildResources(ZR::UniString(deep)));
}

}  // namespace
