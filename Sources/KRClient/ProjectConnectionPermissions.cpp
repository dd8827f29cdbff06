// The user's rights on the server against the cached ones.

#include "KRCB/Clients.h"
#include "KRCB/Entities.h"
#include "KRClient/CachedProjectInfo.h"
#include "KRClient/Internal/LogWrite.h"
#include "KRClient/KRClient.h"
#include "KRClient/ProjectConnection.h"
#include "KRClient/ProjectConnectionBase.h"

namespace KRC {

namespace {

const ZR::InfoLogLine kFailed("KRC::ProjectConnectionBase::CheckPermmission failed: %");
const ZR::InfoLogLine kRevoked(
    "KRC::ProjectConnectionBase::CheckPermmission finished, permission revoked.\n "
    "Cache:\n%\nServer:\n%");
const ZR::InfoLogLine kUnchanged(
    "KRC::ProjectConnectionBase::CheckPermmission finished, permissions unchanged");
const ZR::InfoLogLine kGrantApplied(
    "KRC::ProjectConnectionBase::CheckPermmission granted permission added to cache");
const ZR::InfoLogLine kGranted(
    "KRC::ProjectConnectionBase::CheckPermmission finished, permission granted.\n "
    "Cache:\n%\nServer:\n%");

// Ids from here on are marks of the server, not rights of a project.
constexpr KRCB::PermissionID kFirstMarkId = 2001;

using Mapper = KRCB::Management::Entities::PermissionIDMapper;

// Only rights count in a comparison; a text the mapper doesn't know doesn't.
bool Counts(const ZR::UniString& permission) {
    try {
        return Mapper::GetInstance().GetPermissionID(permission) < kFirstMarkId;
    } catch (const ZR::ZRException&) {
        return false;
    }
}

ZR::UniString Join(const ZR::HashSet<ZR::UniString>& permissions) {
    ZR::UniString text;
    for (const ZR::UniString& permission : permissions) {
        if (!text.IsEmpty()) text += ", ";
        text += permission;
    }
    return text;
}

// The rights of the logged-in user in the project, as the server has them.
void GetServerPermissions(KRCB::Management::ResourceManagerClient& client,
                          const ZR::UniString& projectId, ZR::HashSet<KRCB::PermissionID>& ids,
                          ZR::HashSet<ZR::UniString>& texts) {
    {
        KRCB::Management::PortalServerNonTransactionalQueryGuard guard(client);
        client.GetUserPermissions(projectId, client.GetCurrentUserId(), ids);
    }
    Mapper::GetInstance().GetPermissionIDsAsStrings(ids, texts);
}

// The server's rights into the manager's record, in one write. False if the
// manager holds no record of the library's.
bool ApplyToManagerRecord(KRCB::ProjectConnectionManagerInterface* manager,
                          const ZR::HashSet<KRCB::PermissionID>& ids,
                          const ZR::HashSet<ZR::UniString>& texts) {
    auto* closed = dynamic_cast<KRCB::ProjectConnectionManager*>(manager);
    auto* record =
        closed ? dynamic_cast<CachedProjectInfo*>(closed->GetCachedProjectInfo()) : nullptr;
    if (!record) return false;
    record->BeginUpdate();
    record->SetPermissions(texts);
    closed->SetUserAttributes(
        new KRCB::UserAttributes(static_cast<std::int16_t>(record->GetLogonId()), ids));
    record->EndUpdate();
    return true;
}

}  // namespace

ProjectConnectionBase::PermissionCheckResult ProjectConnectionBase::CheckPermmission(
    bool applyGranted) {
    ZR::HashSet<KRCB::PermissionID> serverIds;
    ZR::HashSet<ZR::UniString> serverPermissions;
    try {
        ZR::Ref<KRCB::Management::ResourceManagerClient> client = GetResourceManagerClient();
        if (!client) {
            Internal::WriteLog(kFailed, "Failed to create resource manager client");
            return PermissionCheckFailed;
        }
        {
            KRCB::Management::PortalServerNonTransactionalQueryGuard guard(*client);
            if (projectId.IsEmpty()) {
                Internal::WriteLog(kFailed, "Project id on server is empty");
                return PermissionCheckFailed;
            }
            GetServerPermissions(*client, projectId, serverIds, serverPermissions);
        }
        if (!cachedProjectInfo) {
            Internal::WriteLog(kFailed, "Cached project info is null");
            return PermissionCheckFailed;
        }
    } catch (const ZR::ZRException& e) {
        Internal::WriteLog(kFailed, ToString(e));
        return PermissionCheckFailed;
    }

    // This connection's copy of the record, as it was at its first check.
    const ZR::HashSet<ZR::UniString> cached = cachedProjectInfo->GetPermissions();
    const ZR::UniString cacheText = Join(cached);
    const ZR::UniString serverText = Join(serverPermissions);

    ZR::HashSet<ZR::UniString> serverOnly = serverPermissions;
    bool revoked = false;
    for (const ZR::UniString& permission : cached) {
        if (serverPermissions.Contains(permission))
            serverOnly.Remove(permission);
        else if (Counts(permission))
            revoked = true;
    }
    // A revoke wins over a grant and is never applied here: the host decides.
    if (revoked) {
        Internal::WriteLog(kRevoked, cacheText, serverText);
        return PermissionRevoked;
    }
    bool granted = false;
    for (const ZR::UniString& permission : serverOnly) granted = granted || Counts(permission);
    if (!granted) {
        Internal::WriteLog(kUnchanged);
        return PermissionsUnchanged;
    }
    if (applyGranted &&
        ApplyToManagerRecord(GetProjectConnectionManager(), serverIds, serverPermissions))
        Internal::WriteLog(kGrantApplied);
    Internal::WriteLog(kGranted, cacheText, serverText);
    return PermissionGranted;
}

ProjectConnectionBase::PermissionCheckResult ProjectConnectionBase::CheckPermmission(
    KRCB::ProjectConnectionManagerInterface* manager, bool applyGranted) {
    if (!manager) {
        Internal::WriteLog(kFailed, "Project connection manager is null");
        return PermissionCheckFailed;
    }
    try {
        ReadProjectConnection readConnection(manager, false);
        ProjectConnectionBase& connection = readConnection;
        if (connection.checkResult == CheckNotChecked)
            connection.Check(false, false, true, false, nullptr, false);
        if (connection.checkResult != CheckOnline) {
            Internal::WriteLog(
                kFailed, ZR::UniString::Format("Project connection check result is not online: %d",
                                               static_cast<int>(connection.checkResult)));
            return PermissionCheckFailed;
        }
        return connection.CheckPermmission(applyGranted);
    } catch (const ZR::ZRException& e) {
        Internal::WriteLog(kFailed, ToString(e));
        return PermissionCheckFailed;
    }
}

bool ProjectConnectionBase::UpdateCachePermissions() {
    try {
        ZR::Ref<KRCB::Management::ResourceManagerClient> client = GetResourceManagerClient();
        if (!client || projectId.IsEmpty()) return false;
        ZR::HashSet<KRCB::PermissionID> ids;
        ZR::HashSet<ZR::UniString> texts;
        GetServerPermissions(*client, projectId, ids, texts);
        return ApplyToManagerRecord(GetProjectConnectionManager(), ids, texts);
    } catch (const ZR::ZRException&) {
        return false;
    }
}

bool ProjectConnectionBase::UpdateCachePermissions(
    KRCB::ProjectConnectionManagerInterface* manager) {
    if (!manager) return false;
    try {
        ReadProjectConnection readConnection(manager, false);
        ProjectConnectionBase& connection = readConnection;
        if (connection.checkResult == CheckNotChecked)
            connection.Check(false, false, true, false, nullptr, false);
        if (connection.checkResult != CheckOnline) return false;
        return connection.UpdateCachePermissions();
    } catch (const ZR::ZRException&) {
        return false;
    }
}

}  // namespace KRC
