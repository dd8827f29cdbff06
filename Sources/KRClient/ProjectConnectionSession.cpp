// The session steps of the check: start or find the user's session, bind it
// to this computer, and bring the cached record up to date with it; and the
// questions about who holds a session.

#include "KRCB/Clients.h"
#include "KRCB/Entities.h"
#include "KRClient/CachedProjectInfo.h"
#include "KRClient/Internal/SessionComputer.h"
#include "KRClient/ProjectConnection.h"
#include "KRClient/ProjectConnectionBase.h"
#include "KRClient/ProjectConnectionInfo.h"
#include "KRClient/SessionAttributeNames.h"
#include "KRClient/UserInterface/Login/UILoginDataStore.h"
#include "Kerrow/Exceptions.h"
#include "Kerrow/ProjectMessages.h"
#include "Network/Network.h"

namespace KRC {

using Kerrow::Server::Project::Client::ProjectClient;
using Kerrow::Server::Project::Messages::SessionInfo;

namespace {

using KRCB::kSignalSessionChanged;
using KRCB::kSignalSessionOnOtherComputer;

// Values of the project client: the user's own sessions, members with details.
constexpr int kOwnSessions = 1;
constexpr int kMembersWithDetails = 3;

// The user's first running session, or sessionInfo as it was if there is none.
void TakeFirstSession(ProjectClient& client, SessionInfo& sessionInfo) {
    ZR::Array<SessionInfo> sessions;
    client.GetSessions(kOwnSessions, true, sessions);
    if (!sessions.IsEmpty()) sessionInfo = sessions[0];
}

// Ends an update bracket also when a step inside it throws, so the record
// isn't left in an update that nobody ends.
class UpdateBracket {
public:
    explicit UpdateBracket(CachedProjectInfo& record) : record(record) { record.BeginUpdate(); }
    ~UpdateBracket() { record.EndUpdate(); }
    UpdateBracket(const UpdateBracket&) = delete;
    UpdateBracket& operator=(const UpdateBracket&) = delete;

private:
    CachedProjectInfo& record;
};

}  // namespace

namespace Internal {

ZR::UniString ReadSessionComputer(ProjectClient& client, const ZR::UniString& sessionId) {
    Kerrow::Commons::DataBuffer<unsigned char> buffer;
    if (!client.GetSessionAttribute(sessionId, SessionAttributeNames::ComputerName, buffer) ||
        buffer.IsEmpty())
        return ZR::UniString();
    return ZR::UniString(
        std::string(reinterpret_cast<const char*>(buffer.GetData()), buffer.GetSize()));
}

void WriteSessionComputer(ProjectClient& client, const ZR::UniString& sessionId,
                          const ZR::UniString& computer) {
    const std::string& bytes = computer.Std();
    Kerrow::Commons::DataBuffer<unsigned char> buffer(
        reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size());
    client.SetSessionAttribute(sessionId, SessionAttributeNames::ComputerName, buffer);
}

ZR::UniString ThisComputer() {
    ZR::UniString name;
    return Network::GetClientComputerName(name);
}

}  // namespace Internal

ProjectConnectionBase::CheckResult ProjectConnectionBase::StartAndCheckSession(
    bool explicitCheck, bool takeOverSession, bool ignoreCachedSession, SessionInfo& sessionInfo) {
    if (checkResult != CheckOnline) return checkResult;
    ZR::Ref<ProjectClient> projectClient =
        GetResourceManagerClient()->GetProjectClient(GetCurrentProjectId());
    if (!projectClient) return checkResult;

    ZR::UniString cachedSession = cachedProjectInfo->GetSessionId();
    TakeFirstSession(*projectClient, sessionInfo);
    sessionId = sessionInfo.GetSessionId();
    if (ignoreCachedSession) cachedSession.Clear();

    if (!cachedSession.IsEmpty()) {
        if (cachedSession != sessionId) {
            // A login that throws if the user can no longer log in, so that
            // case is sorted by the check's exception table, not reported as
            // a changed session.
            KRCB::Management::PortalServerClientFactory::Create(
                connectionInfo->GetServerUrl(), connectionInfo->GetUserName(),
                connectionInfo->GetRefreshToken(), false, false);
            checkResult = CheckSessionChanged;
            checkErrorSignalSent = PostEvent(kSignalSessionChanged, ZR::UniString());
        }
    } else if (sessionId.IsEmpty()) {
        try {
            projectClient->CreateSession(kOwnSessions, sessionInfo);
        } catch (
            const Kerrow::Server::Project::Client::ProjectManagerClientSessionExistsException&) {
            TakeFirstSession(*projectClient, sessionInfo);
        }
        sessionId = sessionInfo.GetSessionId();
        if (sessionId.IsEmpty()) checkResult = CheckOffline;
    }
    if (secondary || checkResult != CheckOnline) return checkResult;

    // An opening claims a session nobody claimed; an explicit check only
    // looks; only a take-over writes over another computer's name.
    const ZR::UniString here = Internal::ThisComputer();
    const ZR::UniString stored = Internal::ReadSessionComputer(*projectClient, sessionId);
    if (stored.IsEmpty()) {
        if (!explicitCheck) Internal::WriteSessionComputer(*projectClient, sessionId, here);
    } else if (stored != here) {
        if (takeOverSession) {
            Internal::WriteSessionComputer(*projectClient, sessionId, here);
        } else {
            checkResult = CheckSessionOnOtherComputer;
            checkErrorSignalSent = PostEvent(kSignalSessionOnOtherComputer, stored);
        }
    }
    return checkResult;
}

void ProjectConnectionBase::FillCache(SessionInfo& sessionInfo) {
    if (checkResult != CheckOnline) return;
    auto* manager = dynamic_cast<KRCB::ProjectConnectionManager*>(GetProjectConnectionManager());
    ZR::Ref<KRCB::Management::ResourceManagerClient> client = GetResourceManagerClient();
    if (!manager || !client) return;

    ZR::UniString currentId = GetCurrentProjectId();
    if (currentId.IsEmpty()) currentId = sessionInfo.GetProjectId();
    ZR::Ref<ProjectClient> projectClient = client->GetProjectClient(currentId);
    ZR::PagedArray<Kerrow::Server::Project::ProjectMember> members;
    projectClient->GetProjectMembers(sessionId, kMembersWithDetails, members);
    ZR::UniString memberId;
    ZR::UniString memberName;
    for (const auto& member : members) {
        if (member.GetUserId() == sessionInfo.GetUserShortId()) {
            memberId = member.GetServerUserId();
            memberName = member.GetLoginName();
            break;
        }
    }
    ZR::UniString modelServerPath = cachedProjectInfo->GetModelServerPath();
    if (auto resource = client->GetResourceById(currentId))
        modelServerPath = resource->GetModelServerPath();

    // Compared with this connection's copy; written to the manager's record.
    const bool sessionDiffers = cachedProjectInfo->GetSessionId() != sessionId;
    const bool projectDiffers =
        !projectId.IsEmpty() && cachedProjectInfo->GetProjectId() != projectId;
    const bool userIdDiffers = cachedProjectInfo->GetUserId() != memberId;
    const bool userNameDiffers =
        !cachedProjectInfo->GetUserName_().IsEqual(memberName, ZR::kIgnoreCase);
    const bool modelServerDiffers =
        !cachedProjectInfo->GetModelServerPath().IsEqual(modelServerPath, ZR::kIgnoreCase);
    if (!sessionDiffers && !projectDiffers && !userIdDiffers && !userNameDiffers &&
        !modelServerDiffers)
        return;
    auto* record = dynamic_cast<CachedProjectInfo*>(manager->GetCachedProjectInfo());
    if (!record) return;

    // The server is asked before the bracket opens, so a refusal leaves the
    // record as it was instead of half changed.
    ZR::HashSet<KRCB::PermissionID> ids;
    ZR::HashSet<ZR::UniString> texts;
    if (sessionDiffers) {
        {
            KRCB::Management::PortalServerNonTransactionalQueryGuard guard(*client);
            client->GetUserPermissions(projectId, memberId, ids);
        }
        KRCB::Management::Entities::PermissionIDMapper::GetInstance().GetPermissionIDsAsStrings(
            ids, texts);
    }

    UpdateBracket bracket(*record);
    if (sessionDiffers) {
        record->SetSessionId(sessionId);
        record->SetLogonId(sessionInfo.GetUserShortId());
        record->SetPermissions(texts);
        manager->SetUserAttributes(new KRCB::UserAttributes(sessionInfo.GetUserShortId(), ids));
        UI::Login::UILoginDataStore store(UI::Login::UILoginDataStore::ForWriting);
        const ZR::UniString server = connectionInfo->GetServerUrl();
        const ZR::UniString user = connectionInfo->GetUserName();
        if (store.ContainsServer(server) && store.ContainsUser(server, user)) {
            store.SetUserRefreshToken(server, user, connectionInfo->GetRefreshToken());
            store.SetActiveUser(server, user);
            store.Write();
        }
    }
    if (projectDiffers) record->SetProjectId(projectId);
    if (userIdDiffers) record->SetUserId(memberId);
    if (userNameDiffers) record->SetUserName(memberName);
    if (modelServerDiffers) record->SetModelServerPath(modelServerPath);
}

bool ProjectConnectionBase::GetSessionComputerAttribute(ZR::UniString& computerName) {
    computerName.Clear();
    try {
        if (checkResult == CheckNotChecked) Check(false, false, true, false, nullptr, false);
        ZR::Ref<KRCB::Management::ResourceManagerClient> client = GetResourceManagerClient();
        if (!client) return false;
        if (sessionId.IsEmpty()) sessionId = GetProjectConnectionManager()->GetSessionId();
        if (sessionId.IsEmpty()) {
            projectId = client->GetProjectIdByPath(connectionInfo->GetProjectPath());
            ZR::Ref<ProjectClient> projectClient = client->GetProjectClient(projectId);
            if (!projectClient) return false;
            SessionInfo first;
            TakeFirstSession(*projectClient, first);
            if (first.GetSessionId().IsEmpty()) return false;
            sessionId = first.GetSessionId();
        }
        ZR::Ref<ProjectClient> projectClient = client->GetProjectClient(GetCurrentProjectId());
        if (!projectClient) return false;
        computerName = Internal::ReadSessionComputer(*projectClient, sessionId);
        return !computerName.IsEmpty();
    } catch (...) {
        computerName.Clear();
        return false;
    }
}

bool ProjectConnectionBase::IsEditConflict(ReadProjectConnection* readConnection,
                                           const ZR::UniString& projectId) {
    if (!readConnection) return false;
    ProjectConnectionBase& connection = *readConnection;
    // A primary connection's check has made the computer test already.
    if (!connection.secondary) return connection.checkResult == CheckSessionOnOtherComputer;
    try {
        if (connection.checkResult != CheckOnline) return false;
        ZR::Ref<KRCB::Management::ResourceManagerClient> client =
            connection.GetResourceManagerClient();
        ZR::Ref<ProjectClient> projectClient = client->GetProjectClient(projectId);
        if (!projectClient) return false;
        ZR::UniString session = connection.sessionId;
        if (session.IsEmpty()) {
            SessionInfo first;
            TakeFirstSession(*projectClient, first);
            session = first.GetSessionId();
            if (session.IsEmpty()) return false;
        }
        ZR::UniString stored;
        try {
            stored = Internal::ReadSessionComputer(*projectClient, session);
        } catch (...) {
        }
        if (stored.IsEmpty()) return false;
        return stored != Internal::ThisComputer();
    } catch (...) {
        return false;
    }
}

}  // namespace KRC
