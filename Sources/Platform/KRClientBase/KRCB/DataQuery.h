#pragma once
/// @file
/// Data queries: what a browse dialog asks a management server about its
/// folder tree. A result object is made and configured by the caller, and
/// Collect fills it with one call over a logged-in connection. The folders of
/// an answer form a tree under GetProjectFolder(); a folder the server doesn't
/// have leaves it empty.

#include "KRCB/AuthenticatedClientConnection.h"
#include "KRCB/Entities.h"
#include "KRCB/KRClientBaseExport.h"
#include "Kerrow/ServerInfo.h"
#include "ZR/Containers.h"
#include "ZR/Ref.h"
#include "ZR/UniString.h"

namespace KRCB {

namespace Internal {
class DataQueryReader;
}

namespace Management {

/// Which folders of a partial tree bring their projects and libraries.
enum PartialFolderTreeQueryType {
    QueriedFolderResources = 0,   ///< the queried folder's
    PathResources = 1,            ///< each folder from the root to the queried one
    RootAndQueriedResources = 2,  ///< the root's and the queried folder's
};

}  // namespace Management

namespace DataQuery {

using Management::Entities::ModelServer;
using Management::Entities::ProjectFolder;
using ModelServers = ZR::HashTable<ZR::UniString, ZR::Ref<ModelServer>>;
using Permissions = ZR::HashTable<ZR::UniString, ZR::HashSet<PermissionID>>;

/// What every data query answers, besides its folders.
class KRCB_EXPORT DataQueryResult {
public:
    /// What an answer carries beyond its folders.
    struct Options {
        bool projects = true;
        bool libraries = true;
        bool foldersPermissions = false;
        bool librariesPermissions = false;
        bool visibleModelServers = false;
        bool resourceModelServers = false;
        bool serverInfo = true;
    };

    virtual ~DataQueryResult();
    DataQueryResult(const DataQueryResult&) = delete;
    DataQueryResult& operator=(const DataQueryResult&) = delete;

    /// Asks the server and takes its answer in, in place of what the object
    /// held. Blocks; a refusal is an exception of Kerrow/Exceptions.h, and an
    /// answer of the wrong shape (a folder listed twice, under a parent the
    /// answer doesn't hold) a PortalServerClientException. Either way the
    /// object keeps what it held.
    virtual void Collect(const ZR::Ref<Management::AuthenticatedClientConnection>& connection) = 0;

    /// The answered folder with its tree; empty if the server has no such folder.
    const ZR::Ref<ProjectFolder>& GetProjectFolder() const { return mFolder; }
    /// The URL of the connection the answer came over.
    const ZR::UniString& GetPortalServerUrl() const { return mPortalServerUrl; }
    const ZR::Ref<Kerrow::PortalServer::Client::Management::ServerInfo>& GetServerInfo() const {
        return mServerInfo;
    }
    /// By model server id.
    const ModelServers& GetVisibleModelServers() const { return mVisibleModelServers; }
    const ModelServers& GetResourceModelServers() const { return mResourceModelServers; }
    /// The user's permission ids by folder id and by library id.
    const Permissions& GetFoldersPermission() const { return mFoldersPermission; }
    const Permissions& GetLibrariesPermission() const { return mLibrariesPermission; }
    /// The number of folders of the last answer.
    std::size_t GetFolderCount() const { return mFolderCount; }
    const Options& GetOptions() const { return mOptions; }

protected:
    explicit DataQueryResult(const Options& options) : mOptions(options) {}

private:
    friend class Internal::DataQueryReader;
    Options mOptions;
    ZR::Ref<ProjectFolder> mFolder;
    ZR::UniString mPortalServerUrl;
    ZR::Ref<Kerrow::PortalServer::Client::Management::ServerInfo> mServerInfo;
    ModelServers mVisibleModelServers;
    ModelServers mResourceModelServers;
    Permissions mFoldersPermission;
    Permissions mLibrariesPermission;
    std::size_t mFolderCount = 0;
};

/// The root folder down to the folder at a path: each folder on the way with
/// its sub-folders, and the projects and libraries the query type names.
class KRCB_EXPORT PartialFolderTreeResult : public DataQueryResult {
public:
    /// fullPath: "/a/b", the empty path for the root. subFolders: the queried
    /// folder brings its sub-folders too.
    PartialFolderTreeResult(const ZR::UniString& fullPath, bool projects, bool libraries,
                            bool foldersPermissions,
                            Management::PartialFolderTreeQueryType queryType,
                            bool librariesPermissions, bool visibleModelServers,
                            bool resourceModelServers, bool subFolders, bool serverInfo);
    void Collect(const ZR::Ref<Management::AuthenticatedClientConnection>& connection) override;
    const ZR::UniString& GetFullPathQueried() const { return mFullPath; }
    Management::PartialFolderTreeQueryType GetQueryType() const { return mQueryType; }

private:
    ZR::UniString mFullPath;
    Management::PartialFolderTreeQueryType mQueryType;
    bool mSubFolders;
};

/// One folder with its sub-folders (their own contents not included).
class KRCB_EXPORT FolderWithChildFoldersResult : public DataQueryResult {
public:
    explicit FolderWithChildFoldersResult(const ZR::UniString& folderId,
                                          bool foldersPermissions = false,
                                          bool visibleModelServers = false);
    void Collect(const ZR::Ref<Management::AuthenticatedClientConnection>& connection) override;
    const ZR::UniString& GetQueriedFolderId() const { return mFolderId; }

private:
    ZR::UniString mFolderId;
};

/// One folder with its projects and libraries.
class KRCB_EXPORT FolderWithChildResourcesResult : public DataQueryResult {
public:
    explicit FolderWithChildResourcesResult(const ZR::UniString& folderId, bool libraries = true,
                                            bool librariesPermissions = false,
                                            bool resourceModelServers = false);
    void Collect(const ZR::Ref<Management::AuthenticatedClientConnection>& connection) override;
    const ZR::UniString& GetQueriedFolderId() const { return mFolderId; }

private:
    ZR::UniString mFolderId;
};

}  // namespace DataQuery
}  // namespace KRCB
