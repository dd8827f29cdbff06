#include "KRClient/UserInterface/ReshareCheck.h"

#include "KRCB/Clients.h"
#include "KRClient/Internal/LogWrite.h"
#include "KRClient/KRClient.h"
#include "KRClient/UserInterface/ServerLookup.h"
#include "Kerrow/Exceptions.h"

namespace KRC {

namespace {
const ZR::InfoLogLine kFinished(
    "KRC::Reshare check finished. Server unique URL: %, parent folder path: %, project name: %, "
    "result: %",
    "KRClient");
}  // namespace

ReshareStatus::Value ReshareCheck(const ZR::Ref<KRCB::Management::Entities::ProjectFolder>& folder,
                                  const ZR::UniString& projectName,
                                  const ZR::Ref<UI::DataQueryResultCache>& cache,
                                  const ZR::UniString& modelServerId, bool& projectExists,
                                  ZR::UniString& existingModelServerId,
                                  ZR::Ref<ZR::ZRException>& exception) {
    using Resource = KRCB::Management::Entities::Resource;
    if (!folder) return ReshareStatus::Ok;
    // The folder's own name tests; local folders answer no to both.
    if (folder->HasLibrary(projectName)) return ReshareStatus::LibraryNameTaken;
    if (folder->HasFolder(projectName)) return ReshareStatus::FolderNameTaken;
    if (cache->IsEmpty()) return ReshareStatus::Ok;

    ZR::PagedArray<ZR::Ref<KRCB::Management::Entities::Project>, 8> projects;
    folder->GetProjects(projects);
    const ZR::UniString& unique = cache->GetServerInfo()->uniqueURL;
    const ZR::UniString serverUrl = unique.IsEmpty() ? cache->GetPortalServerUrl() : unique;
    const ZR::UniString parentPath = folder->GetPath(false);
    auto finish = [&](ReshareStatus::Value value, const ZR::UniString& word) {
        Internal::WriteLog(kFinished, serverUrl, parentPath, projectName, word);
        return value;
    };
    const ZR::HashSet<KRCB::PermissionID>* permissions =
        cache->GetFoldersPermissions().Find(folder->GetId());

    for (const auto& project : projects) {
        if (!project->GetName().IsEqual(projectName, ZR::kIgnoreCase)) continue;
        if (!HasLibraryModifyPermission(permissions)) return ReshareStatus::NoPermission;
        const Resource::SyncStatus::Status sync = project->GetSyncState();
        const Resource::ResourceStatus::Status state = project->GetState();
        projectExists = true;
        existingModelServerId = project->GetModelServerId();
        if (sync == 2) return finish(ReshareStatus::UnknownProject, "UnknownProject");
        if (sync == 3) return finish(ReshareStatus::MissingProject, "MissingProject");
        if (state == 2) return finish(ReshareStatus::LockedProject, "LockedProject");
        if (state == 3) return finish(ReshareStatus::ClosedProject, "ClosedProject");
        if (!existingModelServerId.IsEqual(modelServerId, ZR::kIgnoreCase))
            return finish(ReshareStatus::ChangeHostProject, "ChangeHostProject");
        const auto* modelServer = cache->GetVisibleModelServers().Find(existingModelServerId);
        if (!modelServer)
            modelServer = cache->GetResourceModelServers().Find(existingModelServerId);
        if (!modelServer) continue;
        try {
            KRCB::Management::PortalServerClient::CheckModelServerVersion(
                *cache->GetServerInfo(), **modelServer,
                KRCB::Management::ModelServerServiceRequirements::GetInstance()
                    .GetProjectRequirement(),
                serverUrl);
        } catch (const KRCB::IncompatibleModelServerVersionException& e) {
            exception = ZR::Ref<ZR::ZRException>(e.Clone());
            return finish(ReshareStatus::IncompatibleModelServer,
                          "IncompatibleModelServer: " + KRC::ToString(e));
        } catch (const ZR::ZRException& e) {
            exception = ZR::Ref<ZR::ZRException>(e.Clone());
            return finish(ReshareStatus::IncompatibleModelServer,
                          "IncompatibleModelServer (2): " + KRC::ToString(e));
        }
    }
    return finish(ReshareStatus::Ok, "Ok");
}

}  // namespace KRC
