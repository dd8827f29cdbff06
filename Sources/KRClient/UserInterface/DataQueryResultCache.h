#pragma once
/// @file
/// One picture of a server's folder tree, folded together from the partial
/// answers of data queries, with local projects laid in.

#include <functional>
#include <unordered_map>
#include <unordered_set>

#include "KRCB/DataQuery.h"
#include "KRCB/Entities.h"
#include "KRClient/KRClientExport.h"
#include "KRClient/UserInterface/LocalCache/ProjectInfo.h"
#include "ZR/Containers.h"
#include "ZR/Ref.h"

namespace KRC::UI {

/// The library's kinds of partial tree query.
enum QueryType { QueriedFolder = 1, FolderPath = 2, RootAndQueriedFolder = 3 };

/// Any value but 1 and 3 asks for the resources of the whole path.
KRCLIENT_EXPORT KRCB::Management::PartialFolderTreeQueryType ConvertToPartialFolderTreeQueryType(
    QueryType type);

/// Grows between two Clear()s: nothing is ever taken out. Model servers and
/// permissions keep their first value; a node's folders and the two tables
/// of answered folders take the newest answer. Paths and ids compare
/// exactly. One thread at a time; a copy shares the nodes and folders.
class KRCLIENT_EXPORT DataQueryResultCache {
public:
    using ProjectFolder = KRCB::Management::Entities::ProjectFolder;
    using ModelServer = KRCB::Management::Entities::ModelServer;
    using FolderTable = ZR::HashTable<ZR::UniString, ZR::Ref<ProjectFolder>>;
    using ModelServerTable = ZR::HashTable<ZR::UniString, ZR::Ref<ModelServer>>;
    using PermissionTable = ZR::HashTable<ZR::UniString, ZR::HashSet<KRCB::PermissionID>>;
    using ServerInfo = Kerrow::PortalServer::Client::Management::ServerInfo;

    DataQueryResultCache(bool keepFoldersPermissions, bool keepLibrariesPermissions);
    DataQueryResultCache(const DataQueryResultCache&);
    DataQueryResultCache& operator=(const DataQueryResultCache&);
    ~DataQueryResultCache();

    /// A result of another server (compared exactly) clears the cache first.
    void AddDataQueryResult(const ZR::Ref<KRCB::DataQuery::DataQueryResult>& result);
    /// Lays local projects into the tree, making local folders where the
    /// server has given none. filter must be callable.
    void Merge(const ZR::Array<LocalCache::ProjectInfo>& projects,
               const std::function<bool(const LocalCache::ProjectInfo&)>& filter);
    void Clear();
    /// Whether the server has answered anything; local folders do not count.
    bool IsEmpty() const;

    bool HasQueriedFolderWithChildFolders(const ZR::UniString& folderId) const;
    bool HasQueriedFolderWithChildResources(const ZR::UniString& folderId) const;
    bool IsFolderFromLocalCache(const ZR::UniString& folderId) const;
    ZR::Ref<ProjectFolder> GetFolderWithChildFolders(const ZR::UniString& folderId) const;
    ZR::Ref<ProjectFolder> GetFolderWithChildResources(const ZR::UniString& folderId) const;
    ZR::Ref<ProjectFolder> GetFolder(const ZR::UniString& folderId) const;
    ZR::Ref<ProjectFolder> GetSubFolderWithChildResources(const ZR::UniString& path) const;
    /// False unless the folder at path has its resources; then folder is the
    /// root folder and missingElements the elements of path without a node.
    bool GetSubFolderWithChildResources(const ZR::UniString& path, ZR::Ref<ProjectFolder>& folder,
                                        ZR::Array<ZR::UniString>& missingElements) const;
    /// The sub-folders of the node at path by name (byte order); known tells
    /// whether a folder's own sub-folders are in the cache. Nodes that no
    /// answer gave a folder are left out.
    void EnumerateSubfoldersSorted(
        const ZR::UniString& path,
        const std::function<void(const ZR::Ref<ProjectFolder>&, bool)>& callback) const;

    const FolderTable& GetChildFolders() const { return mChildFolders; }
    const ModelServerTable& GetVisibleModelServers() const { return mVisibleModelServers; }
    const ModelServerTable& GetResourceModelServers() const { return mResourceModelServers; }
    const PermissionTable& GetFoldersPermissions() const { return mFoldersPermissions; }
    const PermissionTable& GetLibrariesPermissions() const { return mLibrariesPermissions; }
    const ZR::UniString& GetPortalServerUrl() const { return mPortalServerUrl; }
    const ZR::Ref<ServerInfo>& GetServerInfo() const { return mServerInfo; }
    ZR::UniString GetRootProjectFolderId() const { return mRootProjectFolderId; }

private:
    class FolderNode;
    using NodeRef = ZR::Ref<FolderNode, ZR::Counter>;

    void EnsureFolderNodes(const ZR::UniString& path);
    FolderNode* MakeChild(FolderNode& parent, const ZR::UniString& name);
    /// Our node at a path; the root's is the empty path.
    FolderNode* Find(const ZR::UniString& path) const;
    /// Gives each folder of an answer's tree its node, as the node's folder.
    std::unordered_map<const ProjectFolder*, FolderNode*> PlaceFolders(
        const ZR::Ref<ProjectFolder>& top);
    void EnsureCacheFolders(const ZR::UniString& path);
    void SetParentsOnFolderTree(ZR::Ref<ProjectFolder> folder);
    void SetLocalFolder(FolderNode& node, const ZR::Ref<ProjectFolder>& folder);
    static void ReplaceFolderWithChildResources(FolderNode& node,
                                                const ZR::Ref<ProjectFolder>& newFolder);
    void MakeRootNode(const ZR::UniString& name);

    NodeRef mRootNode;
    /// The nodes this cache made (or took over from the cache it copies):
    /// found by walking the tree by name from the root, which costs memory
    /// in proportion to the nodes, not to the length of every path. A node
    /// that a copy adds under a shared node is not in this set.
    std::unordered_set<const FolderNode*> mNodes;
    FolderTable mChildFolders;
    FolderTable mLocalChildFolders;
    FolderTable mChildResources;
    FolderTable mLocalChildResources;
    ZR::HashSet<ZR::UniString> mQueriedFolderIds;
    ModelServerTable mVisibleModelServers;
    ModelServerTable mResourceModelServers;
    PermissionTable mFoldersPermissions;
    PermissionTable mLibrariesPermissions;
    ZR::UniString mRootProjectFolderId;
    ZR::UniString mPortalServerUrl;
    ZR::Ref<ServerInfo> mServerInfo;
    bool mKeepFoldersPermissions;
    bool mKeepLibrariesPermissions;
};

}  // namespace KRC::UI
