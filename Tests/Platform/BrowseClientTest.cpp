// The server's model in the base client: paths and names, the folder walks,
// data queries against the emulated tree, hostile answers, and the browsing
// calls with their refusals and look-up record.

#include <gtest/gtest.h>

#include "KRCB/Clients.h"
#include "KRCB/DataQuery.h"
#include "KRCB/Internal/Transport.h"
#include "KRCB/Paths.h"
#include "Kerrow/Exceptions.h"
#include "Support/EmulatorFixture.h"

namespace {

using namespace krtest;
using namespace KRCB::Management;
using namespace KRCB::DataQuery;
using Entities::Project;
using Entities::ProjectFolder;
using Folders = ZR::PagedArray<ZR::Ref<ProjectFolder>, 8>;

// The paths, each after a space.
std::string Paths(const Folders& folders) {
    std::string out;
    for (const auto& f : folders) out += " " + f->GetPath(false).Std();
    return out;
}

std::string ProjectNames(const ProjectFolder& folder) {
    ZR::PagedArray<ZR::Ref<Project>, 8> projects;
    folder.GetAllChildProjects(projects);
    std::string out;
    for (const auto& p : projects) out += " " + p->GetPath().Std();
    return out;
}

TEST(BrowsePaths, JoiningElementsGivesThePathAndTheRootIsTheEmptyParent) {
    EXPECT_EQ(KRCB::GetParentFolderPath("/House"), "");
    EXPECT_EQ(KRCB::GetParentFolderPath("/a/b/House"), "/a/b");
    EXPECT_EQ(KRCB::GetParentFolderPath(""), "");
    ZR::Array<ZR::UniString> elements;
    KRCB::GetProjectPathElements("/a/b/c", elements);
    ZR::UniString joined;
    for (const auto& e : elements) AppendToResourcePath(e, joined);
    EXPECT_EQ(joined, "/a/b/c");

    const std::pair<const char*, bool> names[] = {
        {"Plan 2", true}, {"Ä ß", true},   {"", false},      {" a", false},
        {"a ", false},    {".", false},    {"..", false},    {"a/b", false},
        {"a|b", false},   {"a\tb", false}, {"x\x7f", false},
    };
    for (auto [name, valid] : names) EXPECT_EQ(IsResourceNameValid(name), valid) << name;
    EXPECT_TRUE(IsResourceNameValid(ZR::UniString(std::string(255, 'n'))));
    EXPECT_FALSE(IsResourceNameValid(ZR::UniString(std::string(256, 'n'))));
}

ZR::Ref<ProjectFolder> MakeFolder(const char* path, const char* id) {
    ProjectFolder::Fields fields;
    fields.path = path;
    fields.id = id;
    return ZR::Ref<ProjectFolder>::Make(fields);
}

ZR::Ref<Project> MakeProject(const char* path) {
    Entities::Resource::Fields fields;
    fields.id = ZR::UniString("id-") + path;
    fields.path = path;
    return ZR::Ref<Project>::Make(fields, "2.1.0 / 7", ZR::HashSet<ZR::UniString>{"anna"});
}

TEST(BrowseEntities, FoldersWalkDepthFirstAndTellTheirParent) {
    ProjectFolder::Fields rootFields;
    rootFields.id = "projectRoot";
    rootFields.defaultModelServerId = "ms-1";
    auto root = ZR::Ref<ProjectFolder>::Make(rootFields);
    auto a = MakeFolder("/a", "fa"), b = MakeFolder("/a/b", "fb"), c = MakeFolder("/c", "fc");
    root->AddProjectFolder(a);
    a->AddProjectFolder(b);
    root->AddProjectFolder(c);
    for (auto [folder, path] : {std::pair{root, "/R"}, {a, "/a/R"}, {b, "/a/b/R"}, {c, "/c/R"}}) {
        auto p = MakeProject(path);
        folder->AddProject(p);
    }
    EXPECT_EQ(b->GetParentFolderId(), "fa");
    EXPECT_EQ(b->GetDefaultModelServerId(), "ms-1");  // taken from a, which took it from the root
    Folders all;
    all.Add(root);
    EXPECT_EQ(root->GetAllSubFolders(all), 3u);  // appends, counts only what it appended
    EXPECT_EQ(Paths(all), "  /a /a/b /c");
    EXPECT_EQ(ProjectNames(*root), " /R /a/R /a/b/R /c/R");
    EXPECT_EQ(root->GetPath(true), "Project Root");
    EXPECT_EQ(b->GetPath(true), "Project Root/a/b");
    ZR::Ref<ProjectFolder> found;
    EXPECT_TRUE(root->GetProjectFolderByName("A", found));
    EXPECT_EQ(found, a);

    ZR::Ref<Project> project;
    ASSERT_TRUE(a->GetProjectByName("r", project));
    EXPECT_EQ(project->GetProjectMajorVersion(), 2u);
    EXPECT_EQ(project->GetProjectBuildNumber(), 7u);
    EXPECT_FALSE(project->IsCompatible());
    EXPECT_TRUE(project->IsUserJoined("anna"));
    EXPECT_FALSE(project->IsUserJoined("ANNA"));

    const struct {
        int major, minor;
        bool ok;
    } versions[] = {{1, 0, true}, {1, 4, true}, {2, 0, false}, {0, 9, false}};
    for (auto v : versions) {
        Entities::ModelServer ms("m", "M", "/m", v.major, v.minor);
        if (v.ok)
            EXPECT_NO_THROW(ms.CheckVersion()) << v.major << "." << v.minor;
        else
            EXPECT_THROW(ms.CheckVersion(), KRCB::IncompatibleModelServerVersionException);
    }
}

// A tree: /Projects (House), /Projects/Sub (Barn), /Projects/Other, /Parts
// (library Bolts), and a root project.
class BrowseServer : public ::testing::Test {
protected:
    BrowseServer() {
        service->AddFolder(kServer, "/Projects/Sub");
        service->AddFolder(kServer, "/Projects/Other");
        Emulator::FolderSpec parts;
        parts.path = "/Parts";
        parts.permissions["anna"] = {"LibraryView", "LibraryRead"};
        service->AddFolder(kServer, parts);
        service->AddLibrary(kServer, {"/Parts/Bolts", "lib-bolts", {{"anna", {"LibraryModify"}}}});
        service->AddProject(kServer, ProjectAt("/Projects/Sub/Barn", "",
                                               {{"anna", {"ReadProject", "AdministerProject"}}}));
        service->AddProject(kServer, ProjectAt("/Top"));
        connection = PasswordLogin();
    }
    ZR::Ref<PartialFolderTreeResult> Tree(const char* path, PartialFolderTreeQueryType type,
                                          bool subFolders = false) {
        auto tree = ZR::Ref<PartialFolderTreeResult>::Make(path, true, true, true, type, true, true,
                                                           true, subFolders, true);
        tree->Collect(connection);
        return tree;
    }
    EmulatedService service;
    ZR::Ref<AuthenticatedClientConnection> connection;
};

TEST_F(BrowseServer, PartialTreesBringTheWayDownAndTheResourcesTheTypeNames) {
    const char* all = "  /Projects /Projects/Sub /Projects/Other /Parts";
    const struct {
        const char* path;
        PartialFolderTreeQueryType type;
        bool subFolders;
        const char *folders, *projects;
    } rows[] = {
        {"/Projects/Sub", QueriedFolderResources, false, all, " /Projects/Sub/Barn"},
        {"/projects/SUB", PathResources, false, all, " /Top /Projects/House /Projects/Sub/Barn"},
        {"/Projects", RootAndQueriedResources, true, all, " /Top /Projects/House"},
        {"", QueriedFolderResources, true, "  /Projects /Parts", " /Top"},
        {"", QueriedFolderResources, false, " ", " /Top"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.path);
        auto tree = Tree(row.path, row.type, row.subFolders);
        ASSERT_TRUE(tree->GetProjectFolder());
        Folders folders;
        folders.Add(tree->GetProjectFolder());
        tree->GetProjectFolder()->GetAllSubFolders(folders);
        EXPECT_EQ(Paths(folders), row.folders);
        EXPECT_EQ(ProjectNames(*tree->GetProjectFolder()), row.projects);
    }
    auto parts = Tree("/Parts", QueriedFolderResources);
    EXPECT_EQ(parts->GetServerInfo()->friendlyName, "Portal");
    EXPECT_TRUE(parts->GetVisibleModelServers().Contains("ms-1"));
    const auto* folder =
        parts->GetFoldersPermission().Find(service->GetFolderId(kServer, "/Parts"));
    ASSERT_TRUE(folder);
    EXPECT_TRUE(folder->Contains(2001) && folder->Contains(2002));
    // A library's marks are its own and its folder's.
    const auto* library = parts->GetLibrariesPermission().Find("lib-bolts");
    ASSERT_TRUE(library);
    EXPECT_EQ(library->GetSize(), 3u);
    EXPECT_EQ(parts->GetProjectFolder()->GetAllChildLibraryCount(), 1u);
    EXPECT_EQ(Tree("/Projects", QueriedFolderResources)->GetResourceModelServers().GetSize(), 1u);

    EXPECT_FALSE(Tree("/Nowhere", PathResources)->GetProjectFolder());
}

TEST_F(BrowseServer, FolderQueriesFollowIdsThatSurviveAMove) {
    const std::string id = service->GetFolderId(kServer, "/Projects/Sub");
    service->MoveFolder(kServer, "/Projects/Sub", "/Parts/Moved");

    FolderWithChildFoldersResult folders(service->GetFolderId(kServer, "/Parts").c_str());
    folders.Collect(connection);
    Folders children;
    folders.GetProjectFolder()->GetSubFolders(children);
    EXPECT_EQ(Paths(children), " /Parts/Moved");
    EXPECT_EQ(children[0]->GetId(), id);

    FolderWithChildResourcesResult resources{ZR::UniString(id)};
    resources.Collect(connection);
    EXPECT_EQ(ProjectNames(*resources.GetProjectFolder()), " /Parts/Moved/Barn");
    FolderWithChildResourcesResult none("no-such-folder");
    none.Collect(connection);
    EXPECT_FALSE(none.GetProjectFolder());
    EXPECT_EQ(none.GetQueriedFolderId(), "no-such-folder");
}

// Answers a GetPartialFolderTree with what the test made, in place of a server.
class CannedTransport : public KRCB::Internal::Transport {
public:
    explicit CannedTransport(KRCB::Internal::Data answer) : mAnswer(std::move(answer)) {}
    KRCB::Internal::Reply Call(const KRCB::Internal::Request&) override {
        KRCB::Internal::Reply reply;
        reply.result = mAnswer;
        return reply;
    }

private:
    KRCB::Internal::Data mAnswer;
};

TEST_F(BrowseServer, HostileAnswersAreRefusedOrTakenWithoutRecursionOrHang) {
    using Data = KRCB::Internal::Data;
    auto folder = [](const std::string& id, const std::string& parent) {
        return Data{{"id", id}, {"path", "/" + id}, {"parentId", parent}};
    };
    Data deep = Data::array({folder("r", "")});
    for (int i = 1; i <= 10000; ++i)
        deep.push_back(folder("f" + std::to_string(i), i == 1 ? "r" : "f" + std::to_string(i - 1)));
    const struct {
        const char* name;
        Data folders;
        Data projects;
        std::size_t taken;  // folders of a good answer; 0: refused
    } rows[] = {
        {"itself as its child", Data::array({folder("r", ""), folder("r", "r")}), Data::array(), 0},
        {"a missing parent", Data::array({folder("r", ""), folder("a", "x")}), Data::array(), 0},
        {"a folder without an id", Data::array({Data{{"path", "/"}}}), Data::array(), 0},
        {"10,000 levels", deep, Data::array(), 10001},
    };
    auto tree = Tree("/Projects", QueriedFolderResources);
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        auto canned = std::make_shared<CannedTransport>(
            Data{{"found", true}, {"folders", row.folders}, {"projects", row.projects}});
        KRCB::Internal::SetTransport(canned);
        if (row.taken == 0) {
            EXPECT_THROW(tree->Collect(connection),
                         Kerrow::PortalServer::Client::PortalServerClientException);
            EXPECT_EQ(tree->GetProjectFolder()->GetName(), "");  // what it held stays
        } else {
            tree->Collect(connection);
            EXPECT_EQ(tree->GetFolderCount(), row.taken);
            Folders all;
            EXPECT_EQ(tree->GetProjectFolder()->GetAllSubFolders(all), row.taken - 1);
        }
        service->Install();
    }
}

TEST_F(BrowseServer, CreationRenameAndLibrariesRefuseAsTheServerSays) {
    auto client = ResourceManagerClientFactory::Create(connection);
    auto root = Tree("", QueriedFolderResources)->GetProjectFolder();
    ZR::Ref<ProjectFolder> made;
    client->CreateProjectFolder(root, "New", made);
    EXPECT_EQ(made->GetPath(false), "/New");
    Emulator::FolderSpec locked;
    locked.path = "/Locked";
    locked.locked = true;
    service->AddFolder(kServer, locked);

    using namespace Kerrow::PortalServer::Client;
    auto create = [&](const char* name) { client->CreateProjectFolder(root, name, made); };
    EXPECT_THROW(create("new"), EntityExistsException);
    EXPECT_THROW(create("Top"), EntityExistsException);
    EXPECT_THROW(create("a:b"), EntityValidationException);
    auto lockedFolder = MakeFolder("/Locked", service->GetFolderId(kServer, "/Locked").c_str());
    EXPECT_THROW(client->CreateProjectFolder(lockedFolder, "x", made), AccessDeniedException);

    const std::string barn = service->GetProjectId(kServer, "/Projects/Sub/Barn");
    EXPECT_THROW(client->RenameProject(kProjectId, "Home"), AccessDeniedException);
    service->AddFolder(kServer, "/Projects/Sub/Hay");
    EXPECT_THROW(client->RenameProject(barn.c_str(), "hay"), EntityExistsException);
    EXPECT_THROW(client->RenameProject(barn.c_str(), "a/b"), EntityValidationException);
    EXPECT_THROW(client->RenameProject("none", "x"), EntityNotFoundException);
    client->RenameProject(barn.c_str(), "BARN");  // a change of case is a rename
    EXPECT_EQ(service->GetProjectId(kServer, "/Projects/Sub/BARN"), barn);

    ZR::PagedArray<ZR::Ref<Entities::Library>, 8> libraries;
    client->GetLibraries(libraries);
    ASSERT_EQ(libraries.GetSize(), 1u);
    EXPECT_EQ(libraries[0]->GetParentFolderId(), service->GetFolderId(kServer, "/Parts"));

    // A guard's query ends once, early or at its end.
    {
        PortalServerNonTransactionalQueryGuard guard(*client);
        EXPECT_TRUE(client->IsInTransaction());
        guard.EndQuery();
        guard.EndQuery();
        EXPECT_FALSE(client->IsInTransaction());
    }
    EXPECT_FALSE(client->IsInTransaction());
}

TEST_F(BrowseServer, LookUpsAreRememberedUntilResetAndRecordedByTheServer) {
    auto client = ResourceManagerClientFactory::Create(connection);
    service->ClearLookups();
    auto house = client->GetProjectByPath("/projects/house");
    EXPECT_EQ(house->GetParentFolderId(), service->GetFolderId(kServer, "/Projects"));
    EXPECT_EQ(client->GetProjectByPath("/Projects/HOUSE"), house);  // no call
    EXPECT_EQ(client->GetProjectById(kProjectId), house);           // found by path: no call
    EXPECT_THROW(client->GetProjectById("none"),
                 Kerrow::PortalServer::Client::EntityNotFoundException);
    client->ResetProjectLookup();
    EXPECT_NE(client->GetProjectById(kProjectId), house);
    const auto lookups = service->GetLookups();
    ASSERT_EQ(lookups.size(), 3u);
    EXPECT_EQ(lookups[0].op + " " + lookups[0].key + " " + lookups[0].user,
              "GetProjectByPath /projects/house anna");
    EXPECT_EQ(lookups[2].op + " " + lookups[2].key, "GetProjectById " + std::string(kProjectId));

    // A client made on a connection whose login the server forgot.
    auto other = Emulator::Service::FromScenarioText(service->ToScenarioText());
    other->Install();
    EXPECT_THROW(ResourceManagerClientFactory::Create(connection),
                 Kerrow::PortalServer::Client::SessionRequiredException);
    service->Install();
}

}  // namespace
