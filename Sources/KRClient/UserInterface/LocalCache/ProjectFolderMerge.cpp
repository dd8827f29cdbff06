#include "KRClient/UserInterface/LocalCache/ProjectFolderMerge.h"

#include <memory>

#include "KRCB/Paths.h"
#include "KRClient/UserInterface/LocalCache/CacheProject.h"
#include "KRClient/UserInterface/LocalCache/CacheProjectFolder.h"

namespace KRC::UI::LocalCache {

using KRCB::Management::Entities::Project;
using KRCB::Management::Entities::ProjectFolder;

namespace {

class Merger {
public:
    explicit Merger(ZR::Ref<ProjectFolder>& root) : mRoot(root) {
        Index(root);
        ZR::PagedArray<ZR::Ref<ProjectFolder>, 8> all;
        root->GetAllSubFolders(all);
        for (const ZR::Ref<ProjectFolder>& folder : all) Index(folder);
    }

    void Add(const ProjectInfo& info) {
        const ZR::UniString name = KRCB::Management::GetProjectName(info.path);
        ZR::Ref<ProjectFolder> folder = FindOrCreateFolder(KRCB::GetParentFolderPath(info.path));
        ZR::Ref<Project> existing;
        if (folder->GetProjectByName(name, existing)) {
            ZR::Ref<Project> project(std::make_shared<CacheProject>(info, existing));
            folder->ReplaceProjectByName(name, project);
        } else {
            ZR::Ref<Project> project(std::make_shared<CacheProject>(info, folder->GetId()));
            folder->AddProject(project);
        }
    }

private:
    void Index(const ZR::Ref<ProjectFolder>& folder) {
        mFolders.Add(folder->GetPath(false).ToLowerCase(), folder);
    }

    ZR::Ref<ProjectFolder> FindOrCreateFolder(const ZR::UniString& path) {
        if (const ZR::Ref<ProjectFolder>* found = mFolders.Find(path.ToLowerCase())) return *found;
        ZR::Array<ZR::UniString> elements;
        KRCB::GetProjectPathElements(path, elements);
        ZR::Ref<ProjectFolder> current = mRoot;
        ZR::UniString runningPath;
        for (const ZR::UniString& element : elements.Std()) {
            KRCB::Management::AppendToResourcePath(element, runningPath);
            if (const ZR::Ref<ProjectFolder>* found = mFolders.Find(runningPath.ToLowerCase())) {
                current = *found;
                continue;
            }
            ZR::Ref<ProjectFolder> created(std::make_shared<CacheProjectFolder>(
                runningPath, current->GetId(), current->ContainsProjects(),
                current->ContainsLibraries(), false));
            current->AddProjectFolder(created);
            Index(created);
            current = created;
        }
        return current;
    }

    ZR::Ref<ProjectFolder>& mRoot;
    ZR::HashTable<ZR::UniString, ZR::Ref<ProjectFolder>> mFolders;  // first of a path wins
};

}  // namespace

void ProjectFolderMerge::Merge(const ZR::Array<ProjectInfo>& projects,
                               const std::function<bool(const ProjectInfo&)>& filter,
                               ZR::Ref<ProjectFolder>& rootFolder) {
    if (!rootFolder)
        rootFolder =
            ZR::Ref<ProjectFolder>(std::make_shared<CacheProjectFolder>("", "", true, true, false));
    Merger merger(rootFolder);
    for (const ProjectInfo& info : projects.Std())
        if (filter(info)) merger.Add(info);
}

}  // namespace KRC::UI::LocalCache
