// Local projects laid over a bare folder tree.

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "KRClient/UserInterface/LocalCache/CacheProject.h"
#include "KRClient/UserInterface/LocalCache/ProjectFolderMerge.h"

namespace {

using namespace KRC::UI::LocalCache;
using namespace KRCB::Management::Entities;

ZR::Array<ProjectInfo> Records(std::initializer_list<std::pair<const char*, const char*>> rows) {
    ZR::Array<ProjectInfo> records;
    for (const auto& [path, id] : rows) {
        ProjectInfo info;
        info.path = path;
        info.id = id;
        records.Add(info);
    }
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

const auto kAll = [](const ProjectInfo&) { return true; };

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
        ProjectFolderMerge::Merge(records, kAll, root);
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
