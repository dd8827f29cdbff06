#include "KRClient/UserInterface/DataQueryResultCache.h"

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "KRCB/Paths.h"
#include "KRClient/UserInterface/LocalCache/CacheProject.h"
#include "KRClient/UserInterface/LocalCache/CacheProjectFolder.h"

namespace KRC::UI {

using KRCB::DataQuery::FolderWithChildFoldersResult;
using KRCB::DataQuery::FolderWithChildResourcesResult;
using KRCB::DataQuery::PartialFolderTreeResult;
using KRCB::Management::Entities::Project;
using LocalCache::CacheProject;
using LocalCache::CacheProjectFolder;
using LocalCache::ProjectInfo;
using ProjectFolder = DataQueryResultCache::ProjectFolder;

class DataQueryResultCache::FolderNode {
public:
    FolderNode(const ZR::UniString& n, FolderNode* p) : name(n), parent(p) {}
    ~FolderNode() {
        // Deep trees go level by level, not by one destructor per level.
        std::vector<NodeRef> pending(children.begin(), children.end());
        children.Clear();
        childrenByName.Clear();
        while (!pending.empty()) {
            NodeRef node = std::move(pending.back());
            pending.pop_back();
            if (node.Std().use_count() != 1) continue;
            for (NodeRef& child : node->children) pending.push_back(std::move(child));
            node->children.Clear();
            node->childrenByName.Clear();
        }
    }

    ZR::UniString name;
    ZR::Ref<ProjectFolder> folder;
    ZR::Ref<ProjectFolder> folderWithChildFolders;
    ZR::Ref<ProjectFolder> folderWithChildResources;
    FolderNode* parent;
    ZR::Array<NodeRef> children;
    ZR::HashTable<ZR::UniString, NodeRef> childrenByName;
};

namespace {

// Depth first, parent before children, without a stack frame per level.
// visit may clear descend to skip the folder's subtree.
template <typename Visit>
void ForEachFolderInTree(const ZR::Ref<ProjectFolder>& top, Visit visit) {
    std::vector<ZR::Ref<ProjectFolder>> pending{top};
    while (!pending.empty()) {
        ZR::Ref<ProjectFolder> folder = std::move(pending.back());
        pending.pop_back();
        bool descend = true;
        visit(folder, descend);
        if (!descend) continue;
        ZR::PagedArray<ZR::Ref<ProjectFolder>, 8> subFolders;
        folder->GetSubFolders(subFolders);
        for (auto it = subFolders.Std().rbegin(); it != subFolders.Std().rend(); ++it)
            pending.push_back(*it);
    }
}

ZR::Array<ZR::UniString> Elements(const ZR::UniString& path) {
    ZR::Array<ZR::UniString> elements;
    KRCB::GetProjectPathElements(path, elements);
    return elements;
}

bool IsPrefixOf(const ZR::Array<ZR::UniString>& elements, const ZR::Array<ZR::UniString>& of) {
    if (elements.GetSize() > of.GetSize()) return false;
    return std::equal(elements.Std().begin(), elements.Std().end(), of.Std().begin());
}

template <typename Table>
void AddAll(Table& to, const Table& from) {
    for (const auto& entry : from) to.Add(entry.first, entry.second);
}

}  // namespace

KRCB::Management::PartialFolderTreeQueryType ConvertToPartialFolderTreeQueryType(QueryType type) {
    switch (type) {
        case QueriedFolder:
            return KRCB::Management::QueriedFolderResources;
        case RootAndQueriedFolder:
            return KRCB::Management::RootAndQueriedResources;
        default:
            return KRCB::Management::PathResources;
    }
}

DataQueryResultCache::DataQueryResultCache(bool keepFoldersPermissions,
                                           bool keepLibrariesPermissions)
    : mKeepFoldersPermissions(keepFoldersPermissions),
      mKeepLibrariesPermissions(keepLibrariesPermissions) {}
DataQueryResultCache::DataQueryResultCache(const DataQueryResultCache&) = default;
DataQueryResultCache& DataQueryResultCache::operator=(const DataQueryResultCache&) = default;
DataQueryResultCache::~DataQueryResultCache() = default;

void DataQueryResultCache::Clear() {
    mRootNode = NodeRef();
    mNodesByPath.Clear();
    mChildFolders.Clear();
    mLocalChildFolders.Clear();
    mChildResources.Clear();
    mLocalChildResources.Clear();
    mQueriedFolderIds.Clear();
    mVisibleModelServers.Clear();
    mResourceModelServers.Clear();
    mFoldersPermissions.Clear();
    mLibrariesPermissions.Clear();
    mRootProjectFolderId.Clear();
    mPortalServerUrl.Clear();
    mServerInfo = ZR::Ref<ServerInfo>();
}

bool DataQueryResultCache::IsEmpty() const {
    return mChildFolders.IsEmpty() && mChildResources.IsEmpty();
}

void DataQueryResultCache::MakeRootNode(const ZR::UniString& name, const ZR::UniString& path) {
    mRootNode = NodeRef(std::make_shared<FolderNode>(name, nullptr));
    mNodesByPath.Add(path, mRootNode);
}

void DataQueryResultCache::AddDataQueryResult(
    const ZR::Ref<KRCB::DataQuery::DataQueryResult>& result) {
    if (!result) return;
    if (!mPortalServerUrl.IsEmpty() && !(mPortalServerUrl == result->GetPortalServerUrl())) Clear();
    mPortalServerUrl = result->GetPortalServerUrl();
    mServerInfo = result->GetServerInfo();
    AddAll(mResourceModelServers, result->GetResourceModelServers());
    AddAll(mVisibleModelServers, result->GetVisibleModelServers());
    if (mKeepFoldersPermissions) AddAll(mFoldersPermissions, result->GetFoldersPermission());
    if (mKeepLibrariesPermissions) AddAll(mLibrariesPermissions, result->GetLibrariesPermission());

    const auto* childFoldersResult =
        dynamic_cast<const FolderWithChildFoldersResult*>(result.Get());
    const auto* childResourcesResult =
        dynamic_cast<const FolderWithChildResourcesResult*>(result.Get());
    const auto* treeResult = dynamic_cast<const PartialFolderTreeResult*>(result.Get());
    const ZR::Ref<ProjectFolder> folder = result->GetProjectFolder();
    if (!folder) {
        // The server has no such folder: remember that it was asked.
        if (childFoldersResult) mQueriedFolderIds.Add(childFoldersResult->GetQueriedFolderId());
        if (childResourcesResult) mQueriedFolderIds.Add(childResourcesResult->GetQueriedFolderId());
        if (treeResult) {
            const FolderNode* node = NodeAt(treeResult->GetFullPathQueried());
            if (node && node->folder) mQueriedFolderIds.Add(node->folder->GetId());
        }
        return;
    }
    if (folder->GetParentFolderId().IsEmpty()) {
        mRootProjectFolderId = folder->GetId();
        if (!mRootNode) MakeRootNode(folder->GetName(), folder->GetPath(false));
    }

    std::vector<ZR::Ref<ProjectFolder>> withChildFolders, withChildResources;
    if (childFoldersResult) withChildFolders.push_back(folder);
    if (childResourcesResult) withChildResources.push_back(folder);
    if (treeResult) {
        const ZR::UniString& queried = treeResult->GetFullPathQueried();
        const ZR::Array<ZR::UniString> queriedElements = Elements(queried);
        const int type = treeResult->GetQueryType();
        ForEachFolderInTree(folder, [&](const ZR::Ref<ProjectFolder>& f, bool&) {
            const ZR::UniString path = f->GetPath(false);
            const bool onPath = IsPrefixOf(Elements(path), queriedElements);
            if (onPath) withChildFolders.push_back(f);
            const bool resources = type == KRCB::Management::QueriedFolderResources
                                       ? path == queried
                                   : type == KRCB::Management::PathResources ? onPath
                                   : type == KRCB::Management::RootAndQueriedResources
                                       ? f->GetParentFolderId().IsEmpty() || path == queried
                                       : false;
            if (resources) withChildResources.push_back(f);
        });
    }

    ForEachFolderInTree(folder, [&](const ZR::Ref<ProjectFolder>& f, bool&) {
        const ZR::UniString path = f->GetPath(false);
        EnsureFolderNodes(path);
        if (const NodeRef* node = mNodesByPath.Find(path)) (*node)->folder = f;
    });
    for (const ZR::Ref<ProjectFolder>& f : withChildFolders) {
        if (const NodeRef* node = mNodesByPath.Find(f->GetPath(false))) {
            (*node)->folderWithChildFolders = f;
            mChildFolders.Set(f->GetId(), f);
        }
    }
    for (const ZR::Ref<ProjectFolder>& f : withChildResources) {
        if (const NodeRef* node = mNodesByPath.Find(f->GetPath(false))) {
            ReplaceFolderWithChildResources(**node, f);
            mChildResources.Set(f->GetId(), f);
        }
    }
    SetParentsOnFolderTree(folder);
}

void DataQueryResultCache::ReplaceFolderWithChildResources(
    FolderNode& node, const ZR::Ref<ProjectFolder>& newFolder) {
    ZR::PagedArray<ZR::Ref<Project>, 8> taken;
    if (node.folderWithChildResources && node.folderWithChildResources != newFolder)
        node.folderWithChildResources->GetProjects(taken);
    node.folderWithChildResources = newFolder;
    // Projects that the new answer lacks stay: local ones must survive a
    // refresh, and so does one that the server deleted, until Clear().
    for (ZR::Ref<Project>& project : taken) {
        ZR::Ref<Project> found;
        if (!newFolder->GetProjectByName(project->GetName(), found)) newFolder->AddProject(project);
    }
}

void DataQueryResultCache::SetParentsOnFolderTree(ZR::Ref<ProjectFolder> folder) {
    if (ZR::Ref<ProjectFolder> parent = GetFolderWithChildFolders(folder->GetParentFolderId()))
        folder->OnParentSet(parent.Get());
    // A folder's OnParentSet does not reach its children: walk the tree.
    std::vector<ZR::Ref<ProjectFolder>> pending{folder};
    while (!pending.empty()) {
        ZR::Ref<ProjectFolder> current = std::move(pending.back());
        pending.pop_back();
        ZR::PagedArray<ZR::Ref<ProjectFolder>, 8> subFolders;
        current->GetSubFolders(subFolders);
        for (const ZR::Ref<ProjectFolder>& s : subFolders) {
            s->OnParentSet(current.Get());
            if (s->GetSubFolderCount() != 0) pending.push_back(s);
        }
    }
}

void DataQueryResultCache::EnsureFolderNodes(const ZR::UniString& path) {
    if (!mRootNode || mNodesByPath.Contains(path)) return;
    FolderNode* current = mRootNode.Get();
    ZR::UniString runningPath;
    const ZR::Array<ZR::UniString> elements = Elements(path);
    for (const ZR::UniString& element : elements.Std()) {
        KRCB::Management::AppendToResourcePath(element, runningPath);
        if (const NodeRef* child = current->childrenByName.Find(element)) {
            current = child->Get();
            continue;
        }
        NodeRef child(std::make_shared<FolderNode>(element, current));
        current->children.Add(child);
        current->childrenByName.Add(element, child);
        mNodesByPath.Add(runningPath, child);
        current = child.Get();
    }
}

void DataQueryResultCache::SetLocalFolder(FolderNode& node, const ZR::Ref<ProjectFolder>& folder) {
    node.folder = folder;
    node.folderWithChildFolders = folder;
    ReplaceFolderWithChildResources(node, folder);
    mLocalChildFolders.Add(folder->GetId(), folder);
    mLocalChildResources.Add(folder->GetId(), folder);
}

void DataQueryResultCache::EnsureCacheFolders(const ZR::UniString& path) {
    if (!mRootNode) return;
    if (!mRootNode->folder) {
        ZR::Ref<ProjectFolder> root(std::make_shared<CacheProjectFolder>("", "", true, true, true));
        mRootProjectFolderId = root->GetId();
        SetLocalFolder(*mRootNode, root);
    }
    ZR::UniString runningPath;
    const ZR::Array<ZR::UniString> elements = Elements(path);
    for (const ZR::UniString& element : elements.Std()) {
        const NodeRef* parentNode = mNodesByPath.Find(runningPath);
        if (!parentNode) continue;
        KRCB::Management::AppendToResourcePath(element, runningPath);
        const NodeRef* node = mNodesByPath.Find(runningPath);
        if (!node || (*node)->folder) continue;
        ZR::Ref<ProjectFolder> created(std::make_shared<CacheProjectFolder>(
            runningPath, (*parentNode)->folder->GetId(), true, true, true));
        (*parentNode)->folder->AddProjectFolder(created);
        SetLocalFolder(**node, created);
    }
}

void DataQueryResultCache::Merge(const ZR::Array<ProjectInfo>& projects,
                                 const std::function<bool(const ProjectInfo&)>& filter) {
    if (!mRootNode) MakeRootNode("", "");
    for (const ProjectInfo& p : projects.Std()) {
        if (!filter(p)) continue;
        const ZR::UniString parentPath = KRCB::GetParentFolderPath(p.path);
        EnsureFolderNodes(parentPath);
        EnsureCacheFolders(parentPath);
        const NodeRef* found = mNodesByPath.Find(parentPath);
        if (!found) continue;
        FolderNode& node = **found;
        ZR::Ref<ProjectFolder> target = node.folderWithChildResources;
        if (!target) {
            // A server folder whose projects nobody asked for: the local
            // projects go into a stand-in that the server's tree never sees.
            const ZR::UniString parentId =
                node.parent && node.parent->folder ? node.parent->folder->GetId() : ZR::UniString();
            target = ZR::Ref<ProjectFolder>(
                std::make_shared<CacheProjectFolder>(parentPath, parentId, true, true, true));
            ReplaceFolderWithChildResources(node, target);
            mLocalChildResources.Add(target->GetId(), target);
        }
        const ZR::UniString name = KRCB::Management::GetProjectName(p.path);
        ZR::Ref<Project> existing;
        if (target->GetProjectByName(name, existing)) {
            ZR::Ref<Project> project(std::make_shared<CacheProject>(p, existing));
            target->ReplaceProjectByName(name, project);
        } else {
            ZR::Ref<Project> project(std::make_shared<CacheProject>(p, target->GetId()));
            target->AddProject(project);
        }
    }
}

bool DataQueryResultCache::HasQueriedFolderWithChildFolders(const ZR::UniString& id) const {
    return mChildFolders.Contains(id) || mQueriedFolderIds.Contains(id);
}
bool DataQueryResultCache::HasQueriedFolderWithChildResources(const ZR::UniString& id) const {
    return mChildResources.Contains(id) || mQueriedFolderIds.Contains(id);
}
bool DataQueryResultCache::IsFolderFromLocalCache(const ZR::UniString& id) const {
    return mLocalChildFolders.Contains(id) || mLocalChildResources.Contains(id);
}

ZR::Ref<ProjectFolder> DataQueryResultCache::GetFolderWithChildFolders(
    const ZR::UniString& id) const {
    if (const auto* f = mChildFolders.Find(id)) return *f;
    if (const auto* f = mLocalChildFolders.Find(id)) return *f;
    return ZR::Ref<ProjectFolder>();
}

ZR::Ref<ProjectFolder> DataQueryResultCache::GetFolderWithChildResources(
    const ZR::UniString& id) const {
    if (const auto* f = mChildResources.Find(id)) return *f;
    if (const auto* f = mLocalChildResources.Find(id)) return *f;
    return ZR::Ref<ProjectFolder>();
}

ZR::Ref<ProjectFolder> DataQueryResultCache::GetFolder(const ZR::UniString& id) const {
    if (ZR::Ref<ProjectFolder> f = GetFolderWithChildResources(id)) return f;
    if (ZR::Ref<ProjectFolder> f = GetFolderWithChildFolders(id)) return f;
    for (const auto& entry : mChildFolders) {
        ZR::Ref<ProjectFolder> hit;
        ForEachFolderInTree(entry.second, [&](const ZR::Ref<ProjectFolder>& f, bool& descend) {
            if (!hit && f->GetId() == id) hit = f;
            if (hit) descend = false;
        });
        if (hit) return hit;
    }
    return ZR::Ref<ProjectFolder>();
}

const DataQueryResultCache::FolderNode* DataQueryResultCache::NodeAt(
    const ZR::UniString& path) const {
    const NodeRef* node = mNodesByPath.Find(path);
    return node ? node->Get() : nullptr;
}

ZR::Ref<ProjectFolder> DataQueryResultCache::GetSubFolderWithChildResources(
    const ZR::UniString& path) const {
    const FolderNode* node = NodeAt(path);
    return node ? node->folderWithChildResources : ZR::Ref<ProjectFolder>();
}

bool DataQueryResultCache::GetSubFolderWithChildResources(
    const ZR::UniString& path, ZR::Ref<ProjectFolder>& folder,
    ZR::Array<ZR::UniString>& missingElements) const {
    folder = ZR::Ref<ProjectFolder>();
    missingElements.Clear();
    if (!mRootNode) return false;
    if (const FolderNode* node = NodeAt(path); node && node->folderWithChildResources) {
        folder = node->folderWithChildResources;
        return true;
    }
    folder = mRootNode->folder;
    ZR::UniString runningPath;
    const ZR::Array<ZR::UniString> elements = Elements(path);
    for (const ZR::UniString& element : elements.Std()) {
        KRCB::Management::AppendToResourcePath(element, runningPath);
        if (!mNodesByPath.Contains(runningPath)) missingElements.Add(element);
    }
    return false;
}

void DataQueryResultCache::EnumerateSubfoldersSorted(
    const ZR::UniString& path,
    const std::function<void(const ZR::Ref<ProjectFolder>&, bool)>& callback) const {
    const FolderNode* node = NodeAt(path);
    if (!node) return;
    std::vector<NodeRef> children = node->children.Std();
    std::sort(children.begin(), children.end(),
              [](const NodeRef& a, const NodeRef& b) { return a->name < b->name; });
    for (const NodeRef& child : children) {
        if (!child->folder) continue;
        const ZR::UniString& id = child->folder->GetId();
        callback(child->folder, mChildFolders.Contains(id) || mLocalChildFolders.Contains(id));
    }
}

}  // namespace KRC::UI
