#include "KRCB/Entities.h"

#include <algorithm>
#include <cstdio>

#include "KRCB/Clients.h"
#include "KRCB/Internal/Transport.h"
#include "KRCB/Paths.h"
#include "Kerrow/Exceptions.h"

namespace KRCB::Management::Entities {

ZR::UniString Resource::GetName() const {
    return GetProjectName(GetPath());
}

namespace {

// "major.minor.third / build"; what the text doesn't give stays 0.
void ParseVersion(const ZR::UniString& text, unsigned int& major, unsigned int& minor,
                  unsigned int& build) {
    unsigned int third = 0;
    std::sscanf(text.Std().c_str(), "%u.%u.%u / %u", &major, &minor, &third, &build);
}

}  // namespace

Project::Project(Fields fields, const ZR::UniString& version,
                 ZR::HashSet<ZR::UniString> joinedUsers)
    : Resource(std::move(fields)), mVersion(version), mJoinedUsers(std::move(joinedUsers)) {
    ParseVersion(mVersion, mMajor, mMinor, mBuild);
}

void Project::GetJoinedUsers(ZR::HashSet<ZR::UniString>& users) const {
    for (const ZR::UniString& user : mJoinedUsers) users.Add(user);
}

bool Project::IsUserJoined(const ZR::UniString& userName) const {
    return mJoinedUsers.Contains(userName);
}

bool Project::IsCompatible(unsigned int major, unsigned int, unsigned int) {
    return major == kMajorVersion;
}

bool Project::IsReadable(unsigned int major, unsigned int, unsigned int) {
    return major != 0 && major <= kMajorVersion;
}

void ModelServer::CheckVersion() const {
    CheckModelServerVersion(*this);
}

void CheckModelServerVersion(const ModelServer& modelServer) {
    PortalServerClient::CheckModelServerVersion(
        {}, modelServer, ModelServerServiceRequirements::GetInstance().GetProjectRequirement(), "");
}

namespace {
template <typename Items>
bool HoldsName(const Items& items, const ZR::UniString& name) {
    for (const auto& item : items)
        if (item->GetName().IsEqual(name, ZR::kIgnoreCase)) return true;
    return false;
}
}  // namespace

bool ProjectFolder::HasProject(const ZR::UniString& name) const {
    return FindProjectSlot(name) != kNoSlot;
}
bool ProjectFolder::HasLibrary(const ZR::UniString& name) const {
    return HoldsName(mLibraries, name);
}
bool ProjectFolder::HasFile(const ZR::UniString& name) const {
    return HoldsName(mFiles, name);
}
bool ProjectFolder::HasFolder(const ZR::UniString& name) const {
    return HoldsName(mSubFolders, name);
}
bool ProjectFolder::HasResourceOrFolder(const ZR::UniString& name) const {
    return HasProject(name) || HasLibrary(name) || HasFile(name) || HasFolder(name);
}

ProjectFolder::ProjectFolder(Fields fields)
    : mFields(std::move(fields)), mName(GetProjectName(mFields.path)) {}

ProjectFolder::~ProjectFolder() {
    // A deep chain would otherwise be torn down by one destructor per level:
    // sub-folders that only this tree holds give up their own first.
    std::vector<ZR::Ref<ProjectFolder>> pending(mSubFolders.begin(), mSubFolders.end());
    mSubFolders.Clear();
    while (!pending.empty()) {
        ZR::Ref<ProjectFolder> folder = std::move(pending.back());
        pending.pop_back();
        if (folder && folder.Std().use_count() == 1) {
            folder->BeforeTearDown();
            for (ZR::Ref<ProjectFolder>& child : folder->mSubFolders)
                pending.push_back(std::move(child));
            folder->mSubFolders.Clear();
        }
    }
}

namespace {

// Depth first, parent before children, without a stack frame per level.
template <typename Visit>
void Walk(const ProjectFolder& top, bool withTop, Visit visit) {
    std::vector<ZR::Ref<ProjectFolder>> pending;
    auto pushChildren = [&pending](const ProjectFolder& folder) {
        ZR::PagedArray<ZR::Ref<ProjectFolder>, 8> children;
        folder.GetSubFolders(children);
        for (auto it = children.Std().rbegin(); it != children.Std().rend(); ++it)
            pending.push_back(*it);
    };
    if (withTop) visit(top);
    pushChildren(top);
    while (!pending.empty()) {
        ZR::Ref<ProjectFolder> folder = std::move(pending.back());
        pending.pop_back();
        visit(*folder);
        pushChildren(*folder);
    }
}

template <typename T>
unsigned int AppendAll(const ZR::PagedArray<T, 8>& from, ZR::PagedArray<T, 8>& to) {
    for (const T& item : from) to.Add(item);
    return static_cast<unsigned int>(from.GetSize());
}

}  // namespace

unsigned int ProjectFolder::GetResourceCount() const {
    return static_cast<unsigned int>(mProjects.GetSize() + mLibraries.GetSize() + mFiles.GetSize());
}

unsigned int ProjectFolder::GetResources(ZR::PagedArray<ZR::Ref<Resource>, 8>& resources) const {
    for (const auto& p : mProjects) resources.Add(p);
    for (const auto& l : mLibraries) resources.Add(l);
    for (const auto& f : mFiles) resources.Add(f);
    return GetResourceCount();
}

unsigned int ProjectFolder::GetAllChildResourceCount() const {
    unsigned int n = 0;
    Walk(*this, true, [&n](const ProjectFolder& f) { n += f.GetResourceCount(); });
    return n;
}

unsigned int ProjectFolder::GetAllChildResources(
    ZR::PagedArray<ZR::Ref<Resource>, 8>& resources) const {
    unsigned int n = 0;
    Walk(*this, true, [&](const ProjectFolder& f) { n += f.GetResources(resources); });
    return n;
}

unsigned int ProjectFolder::GetProjectCount() const {
    return static_cast<unsigned int>(mProjects.GetSize());
}

unsigned int ProjectFolder::GetProjects(ZR::PagedArray<ZR::Ref<Project>, 8>& projects) const {
    return AppendAll(mProjects, projects);
}

unsigned int ProjectFolder::GetAllChildProjectCount() const {
    unsigned int n = 0;
    Walk(*this, true, [&n](const ProjectFolder& f) { n += f.GetProjectCount(); });
    return n;
}

unsigned int ProjectFolder::GetAllChildProjects(
    ZR::PagedArray<ZR::Ref<Project>, 8>& projects) const {
    unsigned int n = 0;
    Walk(*this, true, [&](const ProjectFolder& f) { n += f.GetProjects(projects); });
    return n;
}

std::size_t ProjectFolder::FindProjectSlot(const ZR::UniString& name) const {
    if (mEmptyProjectSlots != 0) {
        for (std::size_t i = 0; i < mProjects.GetSize(); ++i)
            if (mProjects[i]->GetName().IsEqual(name, ZR::kIgnoreCase)) return i;
        return kNoSlot;
    }
    const auto it = mProjectSlotsByName.find(name.FoldCase().Std());
    return it == mProjectSlotsByName.end() ? kNoSlot : it->second.front();
}

void ProjectFolder::IndexProjectSlot(std::size_t slot) {
    if (!mProjects[slot]) {
        ++mEmptyProjectSlots;
        return;
    }
    std::vector<std::size_t>& slots =
        mProjectSlotsByName[mProjects[slot]->GetName().FoldCase().Std()];
    slots.insert(std::lower_bound(slots.begin(), slots.end(), slot), slot);
}

bool ProjectFolder::GetProjectByName(const ZR::UniString& name, ZR::Ref<Project>& project) const {
    const std::size_t slot = FindProjectSlot(name);
    if (slot == kNoSlot) return false;
    project = mProjects[slot];
    return true;
}

void ProjectFolder::AddProject(ZR::Ref<Project>& project) {
    mProjects.Add(project);
    IndexProjectSlot(mProjects.GetSize() - 1);
}

void ProjectFolder::ReplaceProjectByName(const ZR::UniString& name, ZR::Ref<Project>& project) {
    const std::size_t slot = FindProjectSlot(name);
    if (slot == kNoSlot) return;
    // The slot leaves the entry of its old name: the new project may bear another.
    auto it = mProjectSlotsByName.find(mProjects[slot]->GetName().FoldCase().Std());
    it->second.erase(std::find(it->second.begin(), it->second.end(), slot));
    if (it->second.empty()) mProjectSlotsByName.erase(it);
    mProjects[slot] = project;
    IndexProjectSlot(slot);
}

unsigned int ProjectFolder::GetLibraryCount() const {
    return static_cast<unsigned int>(mLibraries.GetSize());
}

unsigned int ProjectFolder::GetLibraries(ZR::PagedArray<ZR::Ref<Library>, 8>& libraries) const {
    return AppendAll(mLibraries, libraries);
}

unsigned int ProjectFolder::GetAllChildLibraryCount() const {
    unsigned int n = 0;
    Walk(*this, true, [&n](const ProjectFolder& f) { n += f.GetLibraryCount(); });
    return n;
}

unsigned int ProjectFolder::GetAllChildLibraries(
    ZR::PagedArray<ZR::Ref<Library>, 8>& libraries) const {
    unsigned int n = 0;
    Walk(*this, true, [&](const ProjectFolder& f) { n += f.GetLibraries(libraries); });
    return n;
}

unsigned int ProjectFolder::GetFileCount() const {
    return static_cast<unsigned int>(mFiles.GetSize());
}

unsigned int ProjectFolder::GetFiles(ZR::PagedArray<ZR::Ref<File>, 8>& files) const {
    return AppendAll(mFiles, files);
}

unsigned int ProjectFolder::GetAllChildFileCount() const {
    unsigned int n = 0;
    Walk(*this, true, [&n](const ProjectFolder& f) { n += f.GetFileCount(); });
    return n;
}

unsigned int ProjectFolder::GetAllChildFiles(ZR::PagedArray<ZR::Ref<File>, 8>& files) const {
    unsigned int n = 0;
    Walk(*this, true, [&](const ProjectFolder& f) { n += f.GetFiles(files); });
    return n;
}

// The server tags resources, not folders.
unsigned int ProjectFolder::GetTagCount() const {
    return 0;
}
unsigned int ProjectFolder::GetTags(ZR::PagedArray<ZR::Ref<const Tag>, 8>&) const {
    return 0;
}
unsigned int ProjectFolder::GetAllChildTagCount() const {
    return 0;
}
unsigned int ProjectFolder::GetAllChildTags(ZR::PagedArray<ZR::Ref<const Tag>, 8>&) const {
    return 0;
}

unsigned int ProjectFolder::GetSubFolderCount() const {
    return static_cast<unsigned int>(mSubFolders.GetSize());
}

unsigned int ProjectFolder::GetSubFolders(
    ZR::PagedArray<ZR::Ref<ProjectFolder>, 8>& folders) const {
    return AppendAll(mSubFolders, folders);
}

unsigned int ProjectFolder::GetAllSubFolders(
    ZR::PagedArray<ZR::Ref<ProjectFolder>, 8>& folders) const {
    std::size_t before = folders.GetSize();
    std::vector<ZR::Ref<ProjectFolder>> pending;
    auto push = [&pending](const ProjectFolder& folder) {
        ZR::PagedArray<ZR::Ref<ProjectFolder>, 8> children;
        folder.GetSubFolders(children);
        for (auto it = children.Std().rbegin(); it != children.Std().rend(); ++it)
            pending.push_back(*it);
    };
    push(*this);
    while (!pending.empty()) {
        ZR::Ref<ProjectFolder> folder = std::move(pending.back());
        pending.pop_back();
        folders.Add(folder);
        push(*folder);
    }
    return static_cast<unsigned int>(folders.GetSize() - before);
}

bool ProjectFolder::GetProjectFolderByName(const ZR::UniString& name,
                                           ZR::Ref<ProjectFolder>& folder) const {
    for (const auto& f : mSubFolders)
        if (f->GetName().IsEqual(name, ZR::kIgnoreCase)) {
            folder = f;
            return true;
        }
    return false;
}

void ProjectFolder::AddProjectFolder(ZR::Ref<ProjectFolder>& folder) {
    mSubFolders.Add(folder);
    folder->OnParentSet(this);
}

void ProjectFolder::GetDefaultLibraryUploadFolder(DefaultLibraryUploadFolderType& type,
                                                  ZR::UniString& first,
                                                  ZR::UniString& second) const {
    type = mFields.uploadType;
    first = mFields.uploadFirst;
    second = mFields.uploadSecond;
}

ZR::UniString ProjectFolder::GetPath(bool withRoot) const {
    if (!withRoot) return mFields.path;
    return ZR::UniString("Project Root") + mFields.path;
}

void ProjectFolder::OnParentSet(const ProjectFolder* parent) {
    if (!parent) return;
    mFields.parentFolderId = parent->GetId();
    if (mFields.defaultModelServerId.IsEmpty())
        mFields.defaultModelServerId = parent->GetDefaultModelServerId();
    if (mFields.defaultBlobStoreId.IsEmpty())
        mFields.defaultBlobStoreId = parent->GetDefaultBlobStoreId();
}

}  // namespace KRCB::Management::Entities
