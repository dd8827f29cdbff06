// Local projects and folders in the shape of the server's entities, and the
// records laid over a folder tree.

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "KRClient/UserInterface/LocalCache/CacheProject.h"
#include "KRClient/UserInterface/LocalCache/CacheProjectFolder.h"
#include "KRClient/UserInterface/LocalCache/ProjectFolderMerge.h"
#include "ZR/Exceptions.h"

namespace {

using namespace KRC::UI::LocalCache;
using namespace KRCB::Management::Entities;

ProjectInfo Info(const char* path, const char* id, const char* version = "") {
    ProjectInfo info;
    info.path = path;
    info.id = id;
    info.version = version;
    info.size = 11;
    info.modifiedTimeUtc = -5;
    info.hasChanges = true;
    info.isDetached = true;
    return info;
}

ZR::Ref<Project> ServerProject(const char* path, const char* id) {
    Resource::Fields f;
    f.path = path;
    f.id = id;
    f.size = 99;
    f.modelServerId = "ms";
    f.state = Resource::ResourceStatus::Locked;
    f.tags.Add(ZR::Ref<const Tag>(std::make_shared<Tag>("t", "tag")));
    ZR::HashSet<ZR::UniString> users;
    users.Add("anna");
    return ZR::Ref<Project>(std::make_shared<Project>(f, "1.4.0 / 7", users));
}

ZR::Ref<ProjectFolder> Folder(const char* path, const char* parentId = "") {
    return ZR::Ref<ProjectFolder>(
        std::make_shared<CacheProjectFolder>(path, parentId, true, false, false));
}

TEST(CacheProject, VersionTextsNeverFail) {
    const struct {
        const char* text;
        unsigned major, minor, build;
    } rows[] = {
        {"1.2.3 (remark) / 456", 1, 2, 456},
        {"", 0, 0, 0},
        {"7.8", 7, 8, 0},
        {"1.2.3/4", 1, 2, 4},
        {"(x)2.0.0 / 9", 2, 0, 9},
        {"99999999999.1.2 (x", 0, 0, 0},
        {"4294967295.1.1 / 4294967296", 4294967295u, 1, 0},
        {"abc", 0, 0, 0},
        {" 3 . 4", 3, 0, 0},
    };
    for (const auto& row : rows) {
        CacheProject p(Info("/a/p", "id", row.text), ZR::UniString("f"));
        EXPECT_EQ(p.GetProjectMajorVersion(), row.major) << row.text;
        EXPECT_EQ(p.GetProjectMinorVersion(), row.minor) << row.text;
        EXPECT_EQ(p.GetProjectBuildNumber(), row.build) << row.text;
    }
}

TEST(CacheProject, LocalAnswersServerForwardingAndUnwrapping) {
    const ZR::Ref<Project> server = ServerProject("/srv/Name", "S1");
    CacheProject local(Info("/a/Local", "L1", "1.0.0 / 2"), ZR::UniString("folder"));
    CacheProject over(Info("/a/Local", "L1"), server);
    CacheProject nested(Info("/x/y", "L2"), ZR::Ref<Project>(std::make_shared<CacheProject>(over)));
    CacheProject none(Info("/a/None", "L3"), ZR::Ref<Project>());

    EXPECT_FALSE(local.HasServerInfo() || none.HasServerInfo());
    EXPECT_EQ(local.GetId() + "|" + local.GetName() + "|" + local.GetParentFolderId(),
              "L1|Local|folder");
    EXPECT_EQ(local.GetModifiedTimeUtc(), -5);
    EXPECT_FALSE(local.IsUserJoined("anna"));
    EXPECT_TRUE(none.GetParentFolderId().IsEmpty());

    for (const CacheProject* p : {&over, &nested}) {
        EXPECT_TRUE(p->HasServerInfo());
        EXPECT_EQ(p->GetId() + "|" + p->GetPath(), "S1|/srv/Name");
        EXPECT_EQ(p->GetState(), Resource::ResourceStatus::Locked);
        EXPECT_EQ(p->GetProjectBuildNumber(), 7u);
        EXPECT_TRUE(p->IsUserJoined("anna") && p->HasChanges() && p->IsDetached());
        // The server's tags are not shown, and what the caller held is cleared.
        ZR::PagedArray<ZR::Ref<const Tag>, 8> tags;
        tags.Add(ZR::Ref<const Tag>(std::make_shared<Tag>("old", "old")));
        p->GetTags(tags);
        EXPECT_TRUE(tags.IsEmpty());
        EXPECT_FALSE(p->HasTags());
    }
    ZR::HashSet<ZR::UniString> users;
    local.GetJoinedUsers(users);
    EXPECT_EQ(users.GetSize(), 0u);
    nested.GetJoinedUsers(users);
    EXPECT_EQ(users.GetSize(), 1u);
}

TEST(CacheProjectFolder, IdsPathsAndInheritance) {
    CacheProjectFolder root("", "", true, true, false), a("/a/b", "p", true, false, true);
    EXPECT_NE(root.GetId(), CacheProjectFolder("", "", true, true, false).GetId());
    EXPECT_EQ(root.GetPath(true), "Project Root");
    EXPECT_EQ(a.GetPath(true), "Project Root//a/b");
    EXPECT_EQ(a.GetName(), "b");

    ProjectFolder::Fields f;
    f.id = "srv";
    f.defaultModelServerId = "ms";
    f.defaultBlobStoreId = "bs";
    f.uploadType = ProjectFolder::UploadToFolder;
    f.uploadFirst = "one";
    ProjectFolder server(f);
    a.OnParentSet(&server);
    ProjectFolder::DefaultLibraryUploadFolderType type;
    ZR::UniString first, second;
    a.GetDefaultLibraryUploadFolder(type, first, second);
    EXPECT_EQ(
        a.GetParentFolderId() + a.GetDefaultModelServerId() + a.GetDefaultBlobStoreId() + first,
        "srvmsbsone");
    EXPECT_EQ(type, ProjectFolder::UploadToFolder);
    a.OnParentSet(nullptr);
    a.GetDefaultLibraryUploadFolder(type, first, second);
    EXPECT_TRUE(a.GetParentFolderId().IsEmpty() && a.GetDefaultModelServerId().IsEmpty() &&
                a.GetDefaultBlobStoreId().IsEmpty());
    EXPECT_EQ(type, ProjectFolder::UploadToFolder);  // kept
}

TEST(CacheProjectFolder, ProjectsSearchesAndRecursiveLists) {
    ZR::Ref<ProjectFolder> root = Folder("");
    ZR::Ref<ProjectFolder> a = Folder("/a"), b = Folder("/a/b"), c = Folder("/c");
    a->AddProjectFolder(b);
    root->AddProjectFolder(a);
    root->AddProjectFolder(c);
    EXPECT_EQ(b->GetParentFolderId(), a->GetId());
    ZR::Ref<Project> p1(std::make_shared<CacheProject>(Info("/Name", "1"), root->GetId()));
    ZR::Ref<Project> p2(std::make_shared<CacheProject>(Info("/name", "2"), root->GetId()));
    ZR::Ref<Project> p3(std::make_shared<CacheProject>(Info("/a/b/x", "3"), b->GetId()));
    root->AddProject(p1);
    root->AddProject(p2);
    b->AddProject(p3);
    // A server folder under a local one: its libraries are not counted.
    ZR::Ref<ProjectFolder> server(std::make_shared<ProjectFolder>(ProjectFolder::Fields{}));
    server->AddLibrary(ZR::Ref<Library>(std::make_shared<Library>()));
    c->AddProjectFolder(server);

    ZR::PagedArray<ZR::Ref<Project>, 8> projects;
    projects.Add(p3);
    EXPECT_EQ(root->GetProjects(projects), 2u);  // added to what was there
    ASSERT_EQ(projects.GetSize(), 3u);
    EXPECT_EQ(root->GetAllChildProjectCount(), 3u);
    EXPECT_EQ(root->GetAllChildResourceCount(), 4u);  // the server folder answers for itself
    EXPECT_EQ(root->GetAllChildLibraryCount(), 0u);
    ZR::PagedArray<ZR::Ref<ProjectFolder>, 8> all;
    EXPECT_EQ(root->GetAllSubFolders(all), 4u);
    EXPECT_EQ(all[1], b);
    ZR::Ref<ProjectFolder> folder = c;
    EXPECT_FALSE(root->GetProjectFolderByName("zz", folder));
    EXPECT_EQ(folder, c);
    EXPECT_TRUE(root->GetProjectFolderByName("A", folder));
    EXPECT_EQ(folder, a);
    for (const char* name : {"A", "a", "zz"})
        EXPECT_FALSE(root->HasProject(name) || root->HasLibrary(name) || root->HasFile(name) ||
                     root->HasFolder(name) || root->HasResourceOrFolder(name));

    // The names are indexed: a slot whose project takes another name leaves
    // its old entry, and the first hit in order still wins.
    ZR::Ref<ProjectFolder> d = Folder("/d");
    auto put = [&d](const char* replaced, const char* name, const char* id) {
        ZR::Ref<Project> p(std::make_shared<CacheProject>(
            Info((std::string("/d/") + name).c_str(), id), d->GetId()));
        replaced ? d->ReplaceProjectByName(replaced, p) : d->AddProject(p);
    };
    auto idOf = [&d](const char* name) {
        ZR::Ref<Project> p;
        return d->GetProjectByName(name, p) ? p->GetId().Std() : "none";
    };
    put(nullptr, "x", "1");
    put(nullptr, "Y", "2");
    put(nullptr, "X", "3");
    put("X", "z", "4");  // slots: z4 Y2 X3
    EXPECT_EQ(idOf("x") + idOf("Z") + idOf("y"), "342");
    put("Y", "x", "5");  // z4 x5 X3
    EXPECT_EQ(idOf("X") + idOf("y"), "5none");
    put("z", "X", "6");  // X6 x5 X3
    put("nothing", "w", "7");
    EXPECT_EQ(idOf("x") + idOf("z") + idOf("w"), "6nonenone");
    projects.Clear();
    d->GetProjects(projects);
    ASSERT_EQ(projects.GetSize(), 3u);
    EXPECT_EQ(projects[0]->GetId() + projects[1]->GetId() + projects[2]->GetId(), "653");
    ZR::Ref<Project> empty;
    d->AddProject(empty);
    EXPECT_EQ(idOf("x"), "6");  // found before the empty entry is reached
    EXPECT_THROW(idOf("w"), ZR::NullReferenceException);
}

TEST(CacheProjectFolder, OutlivingSubFoldersForgetTheirParentAndDeepTreesGoQuietly) {
    ZR::Ref<ProjectFolder> kept = Folder("/a/b/c");
    {
        ZR::Ref<ProjectFolder> root = Folder(""), a = Folder("/a"), b = Folder("/a/b");
        b->AddProjectFolder(kept);
        a->AddProjectFolder(b);
        root->AddProjectFolder(a);
        b = a = nullptr;  // only the tree holds them: torn down level by level
        EXPECT_FALSE(kept->GetParentFolderId().IsEmpty());
    }
    EXPECT_TRUE(kept->GetParentFolderId().IsEmpty());

    ZR::Ref<ProjectFolder> top = Folder(""), current = top;
    for (int i = 0; i < 10000; ++i) {
        ZR::Ref<ProjectFolder> next = Folder("/d");
        current->AddProjectFolder(next);
        current = next;
    }
    current = nullptr;
    ZR::PagedArray<ZR::Ref<ProjectFolder>, 8> all;
    EXPECT_EQ(top->GetAllSubFolders(all), 10000u);
    all.Clear();
    top = nullptr;
}

ZR::Array<ProjectInfo> Records(std::initializer_list<std::pair<const char*, const char*>> rows) {
    ZR::Array<ProjectInfo> records;
    for (const auto& [path, id] : rows) records.Add(Info(path, id));
    return records;
}

// "path[ids]" for each folder, depth first: the picture a dialog shows.
std::string Picture(const ProjectFolder& root) {
    auto one = [](const ProjectFolder& folder) {
        std::string text = folder.GetPath(false).Std() + "[";
        ZR::PagedArray<ZR::Ref<Project>, 8> projects;
        folder.GetProjects(projects);
        for (std::size_t i = 0; i < projects.GetSize(); ++i)
            text += (i ? "," : "") + projects[i]->GetId().Std();
        return text + "]";
    };
    std::string text = one(root);
    ZR::PagedArray<ZR::Ref<ProjectFolder>, 8> all;
    root.GetAllSubFolders(all);
    for (const auto& folder : all) text += " " + one(*folder);
    return text;
}

TEST(ProjectFolderMerge, BuildsTheFolderTreeOfTheRecords) {
    const struct {
        ZR::Array<ProjectInfo> records;
        const char* picture;
    } rows[] = {
        {Records({}), "[]"},
        {Records({{"/A/p1", "1"}, {"/a/p2", "2"}}), "[] /A[1,2]"},
        {Records({{"/top", "1"}, {"/x/y/z", "2"}, {"/X/Y/w", "3"}}), "[1] /x[] /x/y[2,3]"},
        {Records({{"/a/p", "1"}, {"/A/P", "2"}}), "[] /a[2]"},  // the second replaces the first
        {Records({{"/a/skip", "-"}, {"/b/p", "1"}}), "[] /b[1]"},
        {Records({{"", "e"}, {"//", "s"}, {"a//b/", "t"}}), nullptr},  // odd paths: no crash
    };
    for (const auto& row : rows) {
        ZR::Ref<ProjectFolder> root;
        ProjectFolderMerge::Merge(
            row.records, [](const ProjectInfo& p) { return p.id != "-"; }, root);
        ASSERT_TRUE(root);
        EXPECT_TRUE(root->GetPath(false).IsEmpty());
        EXPECT_TRUE(root->ContainsProjects() && root->ContainsLibraries() &&
                    !root->ContainsFiles());
        if (row.picture) {
            EXPECT_EQ(Picture(*root), row.picture);
        }
    }
}

TEST(ProjectFolderMerge, OverAServerTree) {
    ProjectFolder::Fields rootFields, libFields;
    rootFields.id = "root";
    libFields.id = "f";
    libFields.path = "/Docs";
    libFields.containsLibraries = false;
    ZR::Ref<ProjectFolder> root(std::make_shared<ProjectFolder>(rootFields));
    ZR::Ref<ProjectFolder> docs(std::make_shared<ProjectFolder>(libFields));
    root->AddProjectFolder(docs);
    Resource::Fields server;
    server.id = "S";
    server.path = "/Docs/Plan";
    ZR::Ref<Project> plan(std::make_shared<Project>(server, "", ZR::HashSet<ZR::UniString>()));
    docs->AddProject(plan);
    server.id = "T";
    server.path = "/Docs/Other";
    ZR::Ref<Project> other(std::make_shared<Project>(server, "", ZR::HashSet<ZR::UniString>()));
    docs->AddProject(other);

    const ZR::Array<ProjectInfo> records =
        Records({{"/docs/PLAN", "L1"}, {"/DOCS/new/n", "L2"}, {"/Docs/x", "L3"}});
    for (int pass = 0; pass < 2; ++pass) {
        ProjectFolderMerge::Merge(
            records, [](const ProjectInfo&) { return true; }, root);
        EXPECT_EQ(Picture(*root), "[] /Docs[S,T,L3] /DOCS/new[L2]") << pass;
        ZR::Ref<Project> merged;
        ASSERT_TRUE(docs->GetProjectByName("plan", merged));
        const auto* cached = dynamic_cast<const CacheProject*>(merged.Get());
        ASSERT_NE(cached, nullptr);
        EXPECT_TRUE(cached->HasServerInfo());
        EXPECT_EQ(cached->GetProjectInfo().id, "L1");
    }
    ZR::Ref<ProjectFolder> created;
    ASSERT_TRUE(docs->GetProjectFolderByName("NEW", created));
    EXPECT_EQ(created->GetPath(false), "/DOCS/new");  // all from the record, the found parent too
    EXPECT_EQ(created->GetParentFolderId(), "f");
    EXPECT_FALSE(created->ContainsLibraries() || created->ContainsFiles());
    EXPECT_TRUE(created->ContainsProjects());
}

}  // namespace
