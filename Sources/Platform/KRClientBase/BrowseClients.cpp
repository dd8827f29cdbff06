// The browsing calls of the management server's client, and the clients made
// on a logged-in connection.
#include "KRCB/Clients.h"
#include "KRCB/Internal/ClientSession.h"
#include "KRCB/Internal/EntityData.h"
#include "Kerrow/Exceptions.h"

namespace KRCB::Management {

using Internal::Data;
namespace Op = Internal::Op;

ZR::Ref<ResourceManagerClient> MakeResourceManagerClient(
    std::shared_ptr<Internal::ClientSession> session);

ZR::Ref<ResourceManagerClient> ResourceManagerClientFactory::Create(
    const ZR::Ref<AuthenticatedClientConnection>& connection) {
    std::shared_ptr<Internal::ClientSession> session = Internal::SessionOf(*connection);
    session->Call(Op::kOpenClient);
    return MakeResourceManagerClient(std::move(session));
}

ZR::Ref<PortalServerClient> PortalServerClientFactory::Create(
    const ZR::Ref<AuthenticatedClientConnection>& connection) {
    return ResourceManagerClientFactory::Create(connection);
}

namespace {

ZR::Ref<Entities::Project> LookUp(Internal::ClientSession& session, const char* op,
                                  const char* param, const ZR::UniString& key,
                                  std::map<std::string, ZR::Ref<Entities::Project>>& cache,
                                  const std::string& cacheKey) {
    {
        std::lock_guard<std::mutex> lock(session.cacheMutex);
        if (auto it = cache.find(cacheKey); it != cache.end()) return it->second;
    }
    ZR::Ref<Entities::Project> project =
        Internal::ProjectFromData(session.Call(op, {{param, key.Std()}}), op);
    std::lock_guard<std::mutex> lock(session.cacheMutex);
    session.projectsByPath.emplace(project->GetPath().FoldCase().Std(), project);
    session.projectsById.emplace(project->GetId().Std(), project);
    cache.emplace(cacheKey, project);
    return project;
}

}  // namespace

ZR::Ref<Entities::Project> PortalServerClient::GetProjectByPath(const ZR::UniString& projectPath) {
    return LookUp(*mSession, Op::kGetProjectByPath, "path", projectPath, mSession->projectsByPath,
                  projectPath.FoldCase().Std());
}

ZR::Ref<Entities::Project> PortalServerClient::GetProjectByPath(const ZR::UniString& projectPath,
                                                                const ZR::UniString&) {
    return GetProjectByPath(projectPath);
}

const ModelServerServiceRequirements& ModelServerServiceRequirements::GetInstance() {
    static const ModelServerServiceRequirements instance;
    return instance;
}

ModelServerServiceRequirements::ModelServerServiceRequirements()
    : mProject(Internal::kClientMajorVersion, Internal::kClientMinorVersion) {}

void PortalServerClient::CheckModelServerVersion(
    const Kerrow::PortalServer::Client::Management::ServerInfo& serverInfo,
    const Entities::ModelServer& modelServer, const ModelServerRequirement& requirement,
    const ZR::UniString& serverUrl) {
    if (requirement.IsMetBy(modelServer)) return;
    const ZR::UniString& server =
        serverInfo.friendlyName.IsEmpty() ? serverUrl : serverInfo.friendlyName;
    ZR::UniString text =
        ZR::UniString::Format("The model server %s speaks version %d.%d; this client needs %d.%d",
                              modelServer.GetId().ToCString(), modelServer.GetMajorVersion(),
                              modelServer.GetMinorVersion(), requirement.GetMajorVersion(),
                              requirement.GetMinorVersion());
    if (!server.IsEmpty()) text = text + " (server " + server + ")";
    throw KRCB::IncompatibleModelServerVersionException(
        text, ZR_HERE, modelServer.GetMajorVersion(), modelServer.GetMinorVersion(),
        requirement.GetMajorVersion(), requirement.GetMinorVersion());
}

ZR::Ref<Entities::Project> PortalServerClient::GetProjectById(const ZR::UniString& projectId) {
    return LookUp(*mSession, Op::kGetProjectById, "id", projectId, mSession->projectsById,
                  projectId.Std());
}

void PortalServerClient::ResetProjectLookup() {
    std::lock_guard<std::mutex> lock(mSession->cacheMutex);
    mSession->projectsByPath.clear();
    mSession->projectsById.clear();
}

void PortalServerClient::CreateProjectFolder(const ZR::Ref<Entities::ProjectFolder>& parent,
                                             const ZR::UniString& name,
                                             ZR::Ref<Entities::ProjectFolder>& newFolder) {
    Data result = mSession->Call(Op::kCreateProjectFolder,
                                 {{"parentId", parent->GetId().Std()}, {"name", name.Std()}});
    newFolder = Internal::FolderFromData(result, Op::kCreateProjectFolder);
}

void PortalServerClient::RenameProject(const ZR::UniString& projectId,
                                       const ZR::UniString& newName) {
    mSession->Call(Op::kRenameProject, {{"projectId", projectId.Std()}, {"name", newName.Std()}});
    ResetProjectLookup();
}

void PortalServerClient::GetLibraries(ZR::PagedArray<ZR::Ref<Entities::Library>, 8>& libraries) {
    Data result = mSession->Call(Op::kGetLibraries);
    if (!result.is_array()) Internal::BadAnswer(Op::kGetLibraries, "not a list");
    for (const Data& entry : result)
        libraries.Add(Internal::LibraryFromData(entry, Op::kGetLibraries));
}

}  // namespace KRCB::Management
