#include "KRCB/Clients.h"

#include "KRCB/Internal/ClientSession.h"
#include "KRCB/Internal/EntityData.h"
#include "KRCB/Operation.h"
#include "KRCB/Paths.h"
#include "KRCB/SignalClient.h"
#include "Kerrow/Exceptions.h"

namespace KRCB {
namespace Internal {
namespace {

// A result of the wrong shape is the server's fault, not the caller's.
[[noreturn]] void BadReply(const char* op) {
    throw Kerrow::PortalServer::Client::PortalServerClientException(
        ZR::UniString(std::string("Unexpected answer of the server to ") + op), ZR_HERE);
}

std::shared_ptr<ClientSession> LogIn(const ZR::UniString& serverUrl, const ZR::UniString& userName,
                                     const ZR::UniString& refreshToken, bool detailsWanted) {
    auto session = std::make_shared<ClientSession>();
    session->serverUrl = serverUrl;
    session->userName = userName;
    session->refreshToken = refreshToken;
    Data result = session->Call(Op::kLogin,
                                {{"refreshToken", refreshToken.Std()}, {"details", detailsWanted}});
    FillSession(*session, result, detailsWanted, Op::kLogin);
    return session;
}

}  // namespace

void FillSession(ClientSession& session, const Data& result, bool detailsWanted, const char* op) {
    if (!result.is_object()) BadReply(op);
    session.loginId = Text(result, "loginId");
    session.userId = ZR::UniString(Text(result, "userId"));
    if (auto info = result.find("serverInfo"); info != result.end() && info->is_object()) {
        session.serverInfo.uniqueURL = ZR::UniString(Text(*info, "uniqueUrl"));
        session.serverInfo.friendlyName = ZR::UniString(Text(*info, "friendlyName"));
        session.serverInfo.majorVersion = Number(*info, "major");
        session.serverInfo.minorVersion = Number(*info, "minor");
    }
    if (auto user = result.find("user"); detailsWanted && user != result.end())
        session.details = UserFromData(*user);
}

ZR::Ref<Management::Entities::User> UserFromData(const Data& data) {
    if (!data.is_object()) BadReply("a user query");
    Gfx::Color color;
    Gfx::Color::Parse(ZR::UniString(Text(data, "color")), &color);
    auto hasImage = data.find("hasImage");
    return ZR::Ref<Management::Entities::User>::Make(
        ZR::UniString(Text(data, "id")), ZR::UniString(Text(data, "login")),
        ZR::UniString(Text(data, "fullName")), ZR::UniString(Text(data, "guid")), color,
        hasImage != data.end() && hasImage->is_boolean() && hasImage->get<bool>());
}

}  // namespace Internal

namespace Management {

using Internal::Data;
namespace Op = Internal::Op;

ZR::Ref<ResourceManagerClient> MakeResourceManagerClient(
    std::shared_ptr<Internal::ClientSession> session) {
    return ZR::Ref<ResourceManagerClient>(new ResourceManagerClient(std::move(session)));
}

PortalServerClient::PortalServerClient(std::shared_ptr<Internal::ClientSession> session)
    : mSession(std::move(session)) {}

PortalServerClient::~PortalServerClient() = default;

const ZR::UniString& PortalServerClient::GetServerUrl() const {
    return mSession->serverUrl;
}
const ZR::UniString& PortalServerClient::GetUserName() const {
    return mSession->userName;
}
const ZR::UniString& PortalServerClient::GetRefreshToken() const {
    return mSession->refreshToken;
}
const Kerrow::PortalServer::Client::Management::ServerInfo& PortalServerClient::GetServerInfo()
    const {
    return mSession->serverInfo;
}

ZR::UniString PortalServerClient::GetCurrentUserId() {
    Data result = mSession->Call(Op::kGetCurrentUserId);
    if (!result.is_string()) Internal::BadReply(Op::kGetCurrentUserId);
    return ZR::UniString(result.get<std::string>());
}

void PortalServerClient::GetUserPermissions(const ZR::UniString& projectId,
                                            const ZR::UniString& userId,
                                            ZR::HashSet<PermissionID>& ids) {
    Data result = mSession->Call(Op::kGetUserPermissions,
                                 {{"projectId", projectId.Std()}, {"userId", userId.Std()}});
    if (!result.is_array()) Internal::BadReply(Op::kGetUserPermissions);
    for (const Data& id : result)
        if (id.is_number_integer()) ids.Add(id.get<PermissionID>());
}

void PortalServerClient::GetCachedUser(const ZR::UniString& userId, ZR::Ref<Entities::User>& user) {
    std::lock_guard<std::mutex> lock(mSession->cacheMutex);
    auto it = mSession->userCache.find(userId.Std());
    if (it != mSession->userCache.end())
        user = it->second;
    else
        user.Reset();
}

void PortalServerClient::GetUser(const ZR::UniString& userId, ZR::Ref<Entities::User>& user) {
    Data result = mSession->Call(Op::kGetUser, {{"userId", userId.Std()}});
    ZR::Ref<Entities::User> fetched = Internal::UserFromData(result);
    {
        std::lock_guard<std::mutex> lock(mSession->cacheMutex);
        mSession->userCache[fetched->GetId().Std()] = fetched;
    }
    Operation::OperationCache::GetInstance().AddUsers(mSession->serverUrl, mSession->userName,
                                                      ZR::Array<ZR::UniString>{fetched->GetId()});
    user = fetched;
}

void PortalServerClient::GetUserImage(const ZR::UniString& userId,
                                      ZR::Ref<Entities::UserImage>& image) {
    Data result = mSession->Call(Op::kGetUserImage, {{"userId", userId.Std()}});
    if (result.is_null()) {
        image.Reset();
        return;
    }
    auto data = result.find("data");
    if (!result.is_object() || data == result.end() || !data->is_binary())
        Internal::BadReply(Op::kGetUserImage);
    const auto& bytes = data->get_binary();
    image =
        ZR::Ref<Entities::UserImage>::Make(ZR::UniString(Internal::Text(result, "type")),
                                           std::vector<unsigned char>(bytes.begin(), bytes.end()));
}

void PortalServerClient::GetUsersByIds(
    const ZR::Array<ZR::UniString>& ids,
    ZR::HashTable<ZR::UniString, ZR::Ref<Entities::User>>& users) {
    Data list = Data::array();
    for (const ZR::UniString& id : ids) list.push_back(id.Std());
    Data result = mSession->Call(Op::kGetUsersByIds, {{"ids", std::move(list)}});
    if (!result.is_array()) Internal::BadReply(Op::kGetUsersByIds);
    ZR::Array<ZR::UniString> fetched;
    for (const Data& entry : result) {
        ZR::Ref<Entities::User> user = Internal::UserFromData(entry);
        users.Add(user->GetId(), user);
        fetched.Add(user->GetId());
        std::lock_guard<std::mutex> lock(mSession->cacheMutex);
        mSession->userCache[user->GetId().Std()] = user;
    }
    // Batches of contacts then fetch only the users no batch has fetched yet.
    Operation::OperationCache::GetInstance().AddUsers(mSession->serverUrl, mSession->userName,
                                                      fetched);
}

bool PortalServerClient::IsInTransaction() const {
    return mSession->guardDepth > 0;
}

void PortalServerClient::GetOperationCacheKeys(ZR::UniString& server, ZR::UniString& user) const {
    server = mSession->serverUrl;
    user = mSession->userName;
}

ZR::UniString PortalServerClient::GetProjectIdByPath(const ZR::UniString& projectPath) {
    Data result = mSession->Call(Op::kGetProjectIdByPath, {{"path", projectPath.Std()}});
    if (!result.is_string()) Internal::BadReply(Op::kGetProjectIdByPath);
    return ZR::UniString(result.get<std::string>());
}

ZR::Ref<Entities::Resource> PortalServerClient::GetResourceById(const ZR::UniString& id) {
    Data result = mSession->Call(Op::kGetResourceById, {{"id", id.Std()}});
    if (result.is_null()) return {};
    if (!result.is_object()) Internal::BadReply(Op::kGetResourceById);
    Entities::Resource::Fields fields;
    fields.id = ZR::UniString(Internal::Text(result, "id"));
    fields.path = ZR::UniString(Internal::Text(result, "path"));
    fields.modelServerPath = ZR::UniString(Internal::Text(result, "modelServerPath"));
    // The class tells what it is: a caller tests for a Project at run time.
    switch (Internal::Number(result, "type")) {
        case 1:
            return ZR::Ref<Entities::Resource>(ZR::Ref<Entities::Project>::Make(
                std::move(fields), ZR::UniString(), ZR::HashSet<ZR::UniString>()));
        case 2:
            return ZR::Ref<Entities::Resource>(ZR::Ref<Entities::Library>::Make(std::move(fields)));
        default:
            return ZR::Ref<Entities::Resource>::Make(std::move(fields));
    }
}

std::int32_t PortalServerClient::GetProjectState(const ZR::UniString& projectId) {
    Data result = mSession->Call(Op::kGetProjectState, {{"projectId", projectId.Std()}});
    if (!result.is_number_integer()) Internal::BadReply(Op::kGetProjectState);
    return result.get<std::int32_t>();
}

ResourceManagerClient::~ResourceManagerClient() = default;

ZR::Ref<Kerrow::Server::Project::Client::ProjectClient> ResourceManagerClient::GetProjectClient(
    const ZR::UniString& projectId) {
    Data result =
        mSession->Call(Op::kOpenProjectClient, {{"projectId", projectId.Std()},
                                                {"clientMajor", Internal::kClientMajorVersion},
                                                {"clientMinor", Internal::kClientMinorVersion}});
    if (!result.is_boolean()) Internal::BadReply(Op::kOpenProjectClient);
    if (!result.get<bool>()) return {};
    // The project client's management side shares this login: its guards and users.
    ZR::Ref<PortalServerClient> portal = MakeResourceManagerClient(mSession);
    return ZR::Ref<Kerrow::Server::Project::Client::ProjectClient>(
        new Kerrow::Server::Project::Client::ProjectClient(portal, projectId));
}

ZR::Ref<ResourceManagerClient> ResourceManagerClientFactory::CreateAuthenticated(
    const IO::Location& location, bool detailsWanted, bool cached) {
    return Create(GetPortalServerUrl(location), location.GetUserName(), location.GetPassword(),
                  detailsWanted, cached);
}

ZR::Ref<ResourceManagerClient> ResourceManagerClientFactory::Create(
    const ZR::UniString& serverUrl, const ZR::UniString& userName,
    const ZR::UniString& refreshToken, bool detailsWanted, bool /*cached*/) {
    return MakeResourceManagerClient(
        Internal::LogIn(serverUrl, userName, refreshToken, detailsWanted));
}

ZR::Ref<PortalServerClient> PortalServerClientFactory::Create(const ZR::UniString& serverUrl,
                                                              const ZR::UniString& userName,
                                                              const ZR::UniString& refreshToken,
                                                              bool detailsWanted, bool cached) {
    return ResourceManagerClientFactory::Create(serverUrl, userName, refreshToken, detailsWanted,
                                                cached);
}

namespace {

// The outermost guard of a login opens one query on the server.
void EnterQuery(Internal::ClientSession& session, bool transactional) {
    if (session.guardDepth.fetch_add(1) != 0) return;
    try {
        session.Call(Op::kQuery, {{"transactional", transactional}});
    } catch (...) {
        --session.guardDepth;
        throw;
    }
}

}  // namespace

PortalServerNonTransactionalQueryGuard::PortalServerNonTransactionalQueryGuard(
    PortalServerClient& client)
    : mClient(client) {
    EnterQuery(*mClient.mSession, false);
}

PortalServerNonTransactionalQueryGuard::PortalServerNonTransactionalQueryGuard(
    const ZR::Ref<PortalServerClient>& client)
    : mClient(*client), mHold(client) {
    EnterQuery(*mClient.mSession, false);
}

PortalServerNonTransactionalQueryGuard::~PortalServerNonTransactionalQueryGuard() {
    EndQuery();
}

void PortalServerNonTransactionalQueryGuard::EndQuery() {
    if (mEnded) return;
    mEnded = true;
    --mClient.mSession->guardDepth;
}

PortalServerTransactionalQueryGuard::PortalServerTransactionalQueryGuard(
    PortalServerClient& client, const std::function<void()>& function) {
    Internal::ClientSession& session = *client.mSession;
    EnterQuery(session, true);
    struct Leave {
        Internal::ClientSession& session;
        ~Leave() { --session.guardDepth; }
    } leave{session};
    if (function) function();
}

}  // namespace Management

ZR::Ref<Management::ResourceManagerClient> CreateResourceManagerClientOnOpenedProjectByPath(
    SignalClient* signalClient, const ZR::UniString& serverUrl, const ZR::UniString& userName,
    const ZR::UniString& refreshToken, bool detailsWanted, bool cached,
    const ZR::UniString& projectPath, bool reconnect) {
    ZR::Ref<Management::ResourceManagerClient> client =
        Management::ResourceManagerClientFactory::Create(serverUrl, userName, refreshToken,
                                                         detailsWanted, cached);
    ZR::UniString projectId = client->GetProjectIdByPath(projectPath);
    if (signalClient) {
        if (reconnect || signalClient->GetClientId().IsEmpty()) signalClient->Reconnect();
        signalClient->JoinProject(projectId);
    }
    return client;
}

ZR::Ref<Management::ResourceManagerClient> CreateResourceManagerClientOnOpenedProject(
    SignalClient* signalClient, const ZR::UniString& serverUrl, const ZR::UniString& userName,
    const ZR::UniString& refreshToken, bool detailsWanted, bool cached,
    const ZR::UniString& projectId, int /*loginKind*/, bool /*reconnect*/) {
    // The signal client is done with before the login blocks: a caller that
    // gave up waiting for this thread may let the signal client go.
    if (signalClient && !signalClient->GetClientId().IsEmpty() &&
        signalClient->GetProjectId() != projectId)
        signalClient->JoinProject(projectId);
    return Management::ResourceManagerClientFactory::Create(serverUrl, userName, refreshToken,
                                                            detailsWanted, cached);
}

}  // namespace KRCB

namespace Kerrow::Server::Project::Client {

using KRCB::Internal::Data;
namespace Op = KRCB::Internal::Op;

ProjectClient::ProjectClient(ZR::Ref<KRCB::Management::PortalServerClient> portal,
                             const ZR::UniString& projectId)
    : mPortal(std::move(portal)), mProjectId(projectId) {}

ProjectClient::~ProjectClient() = default;

void ProjectClient::GetSessions(int kind, bool running,
                                ZR::Array<Messages::SessionInfo>& sessions) {
    Data result = mPortal->GetSession().Call(
        Op::kGetSessions, {{"projectId", mProjectId.Std()}, {"kind", kind}, {"running", running}});
    if (!result.is_array()) KRCB::Internal::BadReply(Op::kGetSessions);
    for (const Data& s : result)
        sessions.Add(Messages::SessionInfo(
            ZR::UniString(KRCB::Internal::Text(s, "id")),
            ZR::UniString(KRCB::Internal::Text(s, "projectId")),
            static_cast<std::int16_t>(KRCB::Internal::Number(s, "userShortId"))));
}

void ProjectClient::CreateSession(int kind, Messages::SessionInfo& sessionInfo) {
    Data result = mPortal->GetSession().Call(Op::kCreateSession,
                                             {{"projectId", mProjectId.Std()}, {"kind", kind}});
    if (!result.is_object()) KRCB::Internal::BadReply(Op::kCreateSession);
    sessionInfo.SetSessionId(ZR::UniString(KRCB::Internal::Text(result, "id")));
    sessionInfo.SetProjectId(ZR::UniString(KRCB::Internal::Text(result, "projectId")));
    sessionInfo.SetUserShortId(
        static_cast<std::int16_t>(KRCB::Internal::Number(result, "userShortId")));
}

void ProjectClient::GetProjectMembers(const ZR::UniString& sessionId, int detail,
                                      ZR::PagedArray<ProjectMember>& members) {
    Data result = mPortal->GetSession().Call(
        Op::kGetProjectMembers,
        {{"projectId", mProjectId.Std()}, {"sessionId", sessionId.Std()}, {"detail", detail}});
    if (!result.is_array()) KRCB::Internal::BadReply(Op::kGetProjectMembers);
    for (const Data& m : result)
        members.Add(ProjectMember(static_cast<std::int16_t>(KRCB::Internal::Number(m, "userId")),
                                  ZR::UniString(KRCB::Internal::Text(m, "serverUserId")),
                                  ZR::UniString(KRCB::Internal::Text(m, "login"))));
}

bool ProjectClient::GetSessionAttribute(const ZR::UniString& sessionId, const ZR::UniString& name,
                                        Kerrow::Commons::DataBuffer<unsigned char>& buffer) {
    Data result = mPortal->GetSession().Call(
        Op::kGetSessionAttribute,
        {{"projectId", mProjectId.Std()}, {"sessionId", sessionId.Std()}, {"name", name.Std()}});
    buffer.Clear();
    if (result.is_null()) return false;
    if (!result.is_binary()) KRCB::Internal::BadReply(Op::kGetSessionAttribute);
    const auto& bytes = result.get_binary();
    buffer.Set(bytes.data(), bytes.size());
    return true;
}

void ProjectClient::SetSessionAttribute(const ZR::UniString& sessionId, const ZR::UniString& name,
                                        const Kerrow::Commons::DataBuffer<unsigned char>& buffer) {
    mPortal->GetSession().Call(
        Op::kSetSessionAttribute,
        {{"projectId", mProjectId.Std()},
         {"sessionId", sessionId.Std()},
         {"name", name.Std()},
         {"bytes", Data::binary(std::vector<std::uint8_t>(buffer.GetData(),
                                                          buffer.GetData() + buffer.GetSize()))}});
}

}  // namespace Kerrow::Server::Project::Client
