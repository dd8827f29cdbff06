#include "KRCB/DataQuery.h"

#include <unordered_map>

#include "KRCB/Internal/ClientSession.h"
#include "KRCB/Internal/EntityData.h"

namespace KRCB {

namespace Internal {

using namespace Management::Entities;

// Reads an answer into a fresh result, then swaps it in: a refused answer
// leaves the object as it was. The folders come as a flat list, each after
// its parent, so a tree of any depth is built without recursion, and a
// folder listed twice (itself or an ancestor as its own child) or under a
// parent the answer doesn't hold is refused, not followed.
class DataQueryReader {
public:
    static void Collect(DataQuery::DataQueryResult& result,
                        const ZR::Ref<Management::AuthenticatedClientConnection>& connection,
                        const char* op, Data params) {
        const DataQuery::DataQueryResult::Options& o = result.mOptions;
        params["projects"] = o.projects;
        params["libraries"] = o.libraries;
        params["foldersPermissions"] = o.foldersPermissions;
        params["librariesPermissions"] = o.librariesPermissions;
        params["visibleModelServers"] = o.visibleModelServers;
        params["resourceModelServers"] = o.resourceModelServers;
        params["serverInfo"] = o.serverInfo;
        std::shared_ptr<ClientSession> session = SessionOf(*connection);
        Data answer = session->Call(op, std::move(params));
        if (!answer.is_object()) BadAnswer(op, "not an object");

        Taken taken;
        Read(answer, op, taken);
        result.mFolder = std::move(taken.root);
        result.mFolderCount = taken.folderCount;
        result.mPortalServerUrl = connection->GetServerUrl();
        result.mServerInfo = std::move(taken.serverInfo);
        result.mVisibleModelServers = std::move(taken.visible);
        result.mResourceModelServers = std::move(taken.resource);
        result.mFoldersPermission = std::move(taken.folders);
        result.mLibrariesPermission = std::move(taken.libraries);
    }

private:
    struct Taken {
        ZR::Ref<ProjectFolder> root;
        std::size_t folderCount = 0;
        ZR::Ref<Kerrow::PortalServer::Client::Management::ServerInfo> serverInfo;
        DataQuery::ModelServers visible, resource;
        DataQuery::Permissions folders, libraries;
    };

    static const Data* List(const Data& answer, const char* key, const char* op) {
        auto it = answer.find(key);
        if (it == answer.end()) return nullptr;
        if (!it->is_array()) BadAnswer(op, std::string(key) + " is not a list");
        return &*it;
    }

    static void Read(const Data& answer, const char* op, Taken& taken) {
        std::unordered_map<std::string, ProjectFolder*> byId;
        auto parentOf = [&](const ZR::UniString& id, const char* what) {
            auto it = byId.find(id.Std());
            if (it == byId.end())
                BadAnswer(op, std::string(what) + " under a folder the answer doesn't hold");
            return it->second;
        };
        if (const Data* folders = List(answer, "folders", op)) {
            for (const Data& entry : *folders) {
                ZR::Ref<ProjectFolder> folder = FolderFromData(entry, op);
                if (byId.count(folder->GetId().Std())) BadAnswer(op, "a folder listed twice");
                if (!taken.root) {
                    taken.root = folder;
                } else {
                    parentOf(folder->GetParentFolderId(), "a folder")->AppendSubFolder(folder);
                }
                byId.emplace(folder->GetId().Std(), folder.Get());
                ++taken.folderCount;
            }
        }
        if (const Data* projects = List(answer, "projects", op))
            for (const Data& entry : *projects) {
                ZR::Ref<Project> project = ProjectFromData(entry, op);
                parentOf(project->GetParentFolderId(), "a project")->AddProject(project);
            }
        if (const Data* libraries = List(answer, "libraries", op))
            for (const Data& entry : *libraries) {
                ZR::Ref<Library> library = LibraryFromData(entry, op);
                parentOf(library->GetParentFolderId(), "a library")->AddLibrary(library);
            }
        ReadModelServers(answer, "visibleModelServers", op, taken.visible);
        ReadModelServers(answer, "resourceModelServers", op, taken.resource);
        ReadPermissions(answer, "foldersPermissions", op, taken.folders);
        ReadPermissions(answer, "librariesPermissions", op, taken.libraries);
        if (auto info = answer.find("serverInfo"); info != answer.end() && info->is_object())
            taken.serverInfo = ZR::Ref<Kerrow::PortalServer::Client::Management::ServerInfo>::Make(
                ServerInfoFromData(*info));
    }

    static void ReadModelServers(const Data& answer, const char* key, const char* op,
                                 DataQuery::ModelServers& out) {
        if (const Data* list = List(answer, key, op))
            for (const Data& entry : *list) {
                ZR::Ref<ModelServer> ms = ModelServerFromData(entry, op);
                out.Add(ms->GetId(), ms);
            }
    }

    static void ReadPermissions(const Data& answer, const char* key, const char* op,
                                DataQuery::Permissions& out) {
        const Data* list = List(answer, key, op);
        if (!list) return;
        for (const Data& entry : *list) {
            auto id = entry.find("id");
            auto ids = entry.find("ids");
            if (!entry.is_object() || id == entry.end() || !id->is_string() || ids == entry.end() ||
                !ids->is_array())
                BadAnswer(op, std::string(key) + " holds an entry without id and ids");
            ZR::HashSet<PermissionID> set;
            for (const Data& p : *ids)
                if (p.is_number_integer()) set.Add(p.get<PermissionID>());
            out.Add(ZR::UniString(id->get<std::string>()), std::move(set));
        }
    }
};

}  // namespace Internal

namespace DataQuery {

DataQueryResult::~DataQueryResult() = default;

namespace {

DataQueryResult::Options TreeOptions(bool projects, bool libraries, bool foldersPermissions,
                                     bool librariesPermissions, bool visibleModelServers,
                                     bool resourceModelServers, bool serverInfo) {
    DataQueryResult::Options o;
    o.projects = projects;
    o.libraries = libraries;
    o.foldersPermissions = foldersPermissions;
    o.librariesPermissions = librariesPermissions;
    o.visibleModelServers = visibleModelServers;
    o.resourceModelServers = resourceModelServers;
    o.serverInfo = serverInfo;
    return o;
}

}  // namespace

PartialFolderTreeResult::PartialFolderTreeResult(
    const ZR::UniString& fullPath, bool projects, bool libraries, bool foldersPermissions,
    Management::PartialFolderTreeQueryType queryType, bool librariesPermissions,
    bool visibleModelServers, bool resourceModelServers, bool subFolders, bool serverInfo)
    : DataQueryResult(TreeOptions(projects, libraries, foldersPermissions, librariesPermissions,
                                  visibleModelServers, resourceModelServers, serverInfo)),
      mFullPath(fullPath),
      mQueryType(queryType),
      mSubFolders(subFolders) {}

void PartialFolderTreeResult::Collect(
    const ZR::Ref<Management::AuthenticatedClientConnection>& connection) {
    Internal::DataQueryReader::Collect(*this, connection, Internal::Op::kGetPartialFolderTree,
                                       {{"path", mFullPath.Std()},
                                        {"queryType", static_cast<int>(mQueryType)},
                                        {"subFolders", mSubFolders}});
}

FolderWithChildFoldersResult::FolderWithChildFoldersResult(const ZR::UniString& folderId,
                                                           bool foldersPermissions,
                                                           bool visibleModelServers)
    : DataQueryResult(
          TreeOptions(false, false, foldersPermissions, false, visibleModelServers, false, true)),
      mFolderId(folderId) {}

void FolderWithChildFoldersResult::Collect(
    const ZR::Ref<Management::AuthenticatedClientConnection>& connection) {
    Internal::DataQueryReader::Collect(*this, connection, Internal::Op::kGetFolderWithChildFolders,
                                       {{"folderId", mFolderId.Std()}});
}

FolderWithChildResourcesResult::FolderWithChildResourcesResult(const ZR::UniString& folderId,
                                                               bool libraries,
                                                               bool librariesPermissions,
                                                               bool resourceModelServers)
    : DataQueryResult(TreeOptions(true, libraries, false, librariesPermissions, false,
                                  resourceModelServers, true)),
      mFolderId(folderId) {}

void FolderWithChildResourcesResult::Collect(
    const ZR::Ref<Management::AuthenticatedClientConnection>& connection) {
    Internal::DataQueryReader::Collect(*this, connection,
                                       Internal::Op::kGetFolderWithChildResources,
                                       {{"folderId", mFolderId.Std()}});
}

}  // namespace DataQuery
}  // namespace KRCB
