#include "KRClient/UserInterface/DataQueryResultCache.h"

#include <algorithm>
#include <memory>
#include <string>
#include <unordered_map>
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
    mNodes.clear();
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

void DataQueryResultCache::MakeRootNode(const ZR::UniString& name) {
    mRootNode = NodeRef(std::make_shared<FolderNode>(name, nullptr));
    mNodes.insert(mRootNode.Get());
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
            const FolderNode* node = Find(treeResult->GetFullPathQueried());
            if (node && node->folder) mQueriedFolderIds.Add(node->folder->GetId());
        }
        return;
    }
    if (folder->GetParentFolderId().IsEmpty()) {
        mRootProjectFolderId = folder->GetId();
        if (!mRootNode) MakeRootNode(folder->GetName());
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

    const std::unordered_map<const ProjectFolder*, FolderNode*> nodeOf = PlaceFolders(folder);
    auto nodeFor = [&](const ZR::Ref<ProjectFolder>& f) {
        const auto it = nodeOf.find(f.Get());
        return it != nodeOf.end() ? it->second : Find(f->GetPath(false));
    };
    for (const ZR::Ref<ProjectFolder>& f : withChildFolders) {
        if (FolderNode* node = nodeFor(f)) {
            node->folderWithChildFolders = f;
            mChildFolders.Set(f->GetId(), f);
        }
    }
    for (const ZR::Ref<ProjectFolder>& f : withChildResources) {
        if (FolderNode* node = nodeFor(f)) {
            ReplaceFolderWithChildResources(*node, f);
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

DataQueryResultCache::FolderNode* DataQueryResultCache::MakeChild(FolderNode& parent,
                                                                  const ZR::UniString& name) {
    NodeRef child(std::make_shared<FolderNode>(name, &parent));
    parent.children.Add(child);
    parent.childrenByName.Add(name, child);
    mNodes.insert(child.Get());
    return child.Get();
}

DataQueryResultCache::FolderNode* DataQueryResultCache::Find(const ZR::UniString& path) const {
    if (!mRootNode) return nullptr;
    // Only the form that joining the elements gives names a node: the empty
    // path, or "/a/b" with no empty element and no "/" at the end.
    const std::string& text = path.Std();
    if (text.empty()) return mRootNode.Get();
    if (text[0] != '/' || text.back() == '/' || text.find("//") != std::string::npos)
        return nullptr;
    FolderNode* node = mRootNode.Get();
    for (std::size_t start = 1; node && start <= text.size();) {
        std::size_t end = text.find('/', start);
        if (end == std::string::npos) end = text.size();
        const NodeRef* child = node->childrenByName.Find(text.substr(start, end - start));
        node = child ? child->Get() : nullptr;
        start = end + 1;
    }
    // A node that a copy of this cache made under a shared one is not ours.
    return node && mNodes.count(node) ? node : nullptr;
}

void DataQueryResultCache::EnsureFolderNodes(const ZR::UniString& path) {
    if (!mRootNode || Find(path)) return;
    FolderNode* current = mRootNode.Get();
    const ZR::Array<ZR::UniString> elements = Elements(path);
    for (const ZR::UniString& element : elements.Std()) {
        const NodeRef* child = current->childrenByName.Find(element);
        current = child ? child->Get() : MakeChild(*current, element);
    }
}

std::unordered_map<const ProjectFolder*, DataQueryResultCache::FolderNode*>
DataQueryResultCache::PlaceFolders(const ZR::Ref<ProjectFolder>& top) {
    // Each folder's node, made if need be. A folder whose path is its
    // parent's and one name more is placed below the parent's node at once,
    // so that a deep answer costs no walk from the root per folder.
    std::unordered_map<const ProjectFolder*, FolderNode*> nodeOf;
    struct Pending {
        ZR::Ref<ProjectFolder> folder;
        FolderNode* parentNode;
        std::string parentPath;
    };
    std::vector<Pending> pending{{top, nullptr, std::string()}};
    while (!pending.empty()) {
        Pending item = std::move(pending.back());
        pending.pop_back();
        const ZR::UniString path = item.folder->GetPath(false);
        const std::string& text = path.Std();
        const std::size_t prefix = item.parentPath.size() + 1;
        FolderNode* node = nullptr;
        if (item.parentNode && text.size() > prefix &&
            text.compare(0, prefix - 1, item.parentPath) == 0 && text[prefix - 1] == '/' &&
            text.find('/', prefix) == std::string::npos) {
            const ZR::UniString name(text.substr(prefix));
            const NodeRef* child = item.parentNode->childrenByName.Find(name);
            node = child ? child->Get() : MakeChild(*item.parentNode, name);
            if (!mNodes.count(node)) node = nullptr;
        } else {
            EnsureFolderNodes(path);
            node = Find(path);
        }
        if (node) node->folder = item.folder;
        nodeOf[item.folder.Get()] = node;
        ZR::PagedArray<ZR::Ref<ProjectFolder>, 8> subFolders;
        item.folder->GetSubFolders(subFolders);
        for (auto it = subFolders.Std().rbegin(); it != subFolders.Std().rend(); ++it)
            pending.push_back({*it, node, node ? text : std::string()});
    }
    return nodeOf;
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
    // Walked along the path: atRunning is our node at the running path (if
    // any), walk the node there even if another copy of the cache made it.
    std::string runningPath;
    FolderNode* atRunning = mRootNode.Get();
    FolderNode* walk = atRunning;
    const ZR::Array<ZR::UniString> elements = Elements(path);
    for (const ZR::UniString& element : elements.Std()) {
        FolderNode* parentNode = atRunning;
        if (!parentNode) continue;
        runningPath += "/" + element.Std();
        const NodeRef* child = walk ? walk->childrenByName.Find(element) : nullptr;
        walk = child ? child->Get() : nullptr;
        atRunning = walk && mNodes.count(walk) ? walk : nullptr;
        if (!atRunning || atRunning->folder) continue;
        ZR::Ref<ProjectFolder> created(std::make_shared<CacheProjectFolder>(
            ZR::UniString(runningPath), parentNode->folder->GetId(), true, true, true));
        parentNode->folder->AddProjectFolder(created);
        SetLocalFolder(*atRunning, created);
    }
}

void DataQueryResultCache::Merge(const ZR::Array<ProjectInfo>& projects,
                                 const std::function<bool(const ProjectInfo&)>& filter) {
    if (!mRootNode) MakeRootNode("");
    for (const ProjectInfo& p : projects.Std()) {
        if (!filter(p)) continue;
        const ZR::UniString parentPath = KRCB::GetParentFolderPath(p.path);
        EnsureFolderNodes(parentPath);
        EnsureCacheFolders(parentPath);
        FolderNode* found = Find(parentPath);
        if (!found) continue;
        FolderNode& node = *found;
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

ZR::Ref<ProjectFolder> DataQueryResultCache::GetSubFolderWithChildResources(
    const ZR::UniString& path) const {
    const FolderNode* node = Find(path);
    return node ? node->folderWithChildResources : ZR::Ref<ProjectFolder>();
}

bool DataQueryResultCache::GetSubFolderWithChildResources(
    const ZR::UniString& path, ZR::Ref<ProjectFolder>& folder,
    ZR::Array<ZR::UniString>& missingElements) const {
    folder = ZR::Ref<ProjectFolder>();
    missingElements.Clear();
    if (!mRootNode) return false;
    if (const FolderNode* node = Find(path); node && node->folderWithChildResources) {
        folder = node->folderWithChildResources;
        return true;
    }
    folder = mRootNode->folder;
    const FolderNode* walk = mRootNode.Get();
    const ZR::Array<ZR::UniString> elements = Elements(path);
    for (const ZR::UniString& element : elements.Std()) {
        const NodeRef* child = walk ? walk->childrenByName.Find(element) : nullptr;
        walk = child ? child->Get() : nullptr;
        if (!walk || !mNodes.count(walk)) missingElements.Add(element);
    }
    return false;
}

void DataQueryResultCache::EnumerateSubfoldersSorted(
    const ZR::UniString& path,
    const std::function<void(const ZR::Ref<ProjectFolder>&, bool)>& callback) const {
    const FolderNode* node = Find(path);
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
