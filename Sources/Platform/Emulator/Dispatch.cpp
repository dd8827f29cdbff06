// The server side of the transport: each operation the base client sends.
#include <algorithm>
#include <string_view>

#include "Emulator/Internal/State.h"
#include "KRCB/Entities.h"
#include "KRCB/Paths.h"
#include "ZR/UniString.h"

namespace Emulator::Internal {

namespace KOp = KRCB::Internal::Op;
using KRCB::Internal::Reply;
using KRCB::Internal::Request;

// The two lists of names must stay one list.
static_assert(std::string_view(Op::kLogin) == KOp::kLogin);
static_assert(std::string_view(Op::kQuery) == KOp::kQuery);
static_assert(std::string_view(Op::kGetCurrentUserId) == KOp::kGetCurrentUserId);
static_assert(std::string_view(Op::kGetProjectIdByPath) == KOp::kGetProjectIdByPath);
static_assert(std::string_view(Op::kGetResourceById) == KOp::kGetResourceById);
static_assert(std::string_view(Op::kGetProjectState) == KOp::kGetProjectState);
static_assert(std::string_view(Op::kGetUserPermissions) == KOp::kGetUserPermissions);
static_assert(std::string_view(Op::kGetUser) == KOp::kGetUser);
static_assert(std::string_view(Op::kGetUserImage) == KOp::kGetUserImage);
static_assert(std::string_view(Op::kGetUsersByIds) == KOp::kGetUsersByIds);
static_assert(std::string_view(Op::kOpenProjectClient) == KOp::kOpenProjectClient);
static_assert(std::string_view(Op::kGetSessions) == KOp::kGetSessions);
static_assert(std::string_view(Op::kCreateSession) == KOp::kCreateSession);
static_assert(std::string_view(Op::kGetProjectMembers) == KOp::kGetProjectMembers);
static_assert(std::string_view(Op::kGetSessionAttribute) == KOp::kGetSessionAttribute);
static_assert(std::string_view(Op::kSetSessionAttribute) == KOp::kSetSessionAttribute);
static_assert(std::string_view(Op::kSignalConnect) == KOp::kSignalConnect);
static_assert(std::string_view(Op::kSignalDisconnect) == KOp::kSignalDisconnect);
static_assert(std::string_view(Op::kSignalJoinProject) == KOp::kSignalJoinProject);
static_assert(std::string_view(Op::kSendInternalSignal) == KOp::kSendInternalSignal);
static_assert(std::string_view(Op::kSendSignal) == KOp::kSendSignal);
static_assert(std::string_view(Op::kGetPresenceState) == KOp::kGetPresenceState);
static_assert(std::string_view(Op::kSetPresenceState) == KOp::kSetPresenceState);
static_assert(std::string_view(Op::kIsOnline) == KOp::kIsOnline);
static_assert(std::string_view(Op::kIsForcedOffline) == KOp::kIsForcedOffline);
static_assert(std::string_view(Op::kSetForcedOffline) == KOp::kSetForcedOffline);
static_assert(std::string_view(Op::kGetOnlineUsers) == KOp::kGetOnlineUsers);
static_assert(std::string_view(Op::kCreateSessionWithState) == KOp::kCreateSessionWithState);
static_assert(std::string_view(Op::kIsAuthorizationPending) == KOp::kIsAuthorizationPending);

namespace {

using FK = KRCB::Internal::FaultKind;

Reply Ok(Data result = nullptr) {
    Reply reply;
    reply.result = std::move(result);
    return reply;
}

std::string Text(const Data& params, const char* key) {
    auto it = params.find(key);
    return it != params.end() && it->is_string() ? it->get<std::string>() : std::string();
}

int Number(const Data& params, const char* key, int otherwise = 0) {
    auto it = params.find(key);
    return it != params.end() && it->is_number_integer() ? it->get<int>() : otherwise;
}

bool Flag(const Data& params, const char* key) {
    auto it = params.find(key);
    return it != params.end() && it->is_boolean() && it->get<bool>();
}

}  // namespace

Data UserData(const User& user) {
    return Data{{"id", user.spec.id},
                {"login", user.spec.login},
                {"fullName", user.spec.fullName},
                {"guid", user.spec.guid},
                {"color", user.spec.color},
                {"hasImage", !user.spec.picture.empty()}};
}

namespace {

Reply NotFound(const std::string& what) {
    return Refuse(FK::EntityNotFound, what);
}

}  // namespace

Reply Refuse(FK kind, const std::string& message) {
    Reply reply;
    reply.fault = KRCB::Internal::Fault{kind, message};
    return reply;
}

KRCB::Internal::Fault ToTransportFault(const Fault& fault) {
    KRCB::Internal::Fault out;
    out.kind = fault.kind;
    out.message = fault.message;
    out.major = fault.major;
    out.minor = fault.minor;
    out.clientMajor = fault.clientMajor;
    out.clientMinor = fault.clientMinor;
    out.handshakeDepth = fault.handshakeDepth;
    return out;
}

bool IsSignalOperation(const std::string& op) {
    static const std::set<std::string> kSignalOps = {
        Op::kSignalConnect,      Op::kSignalDisconnect, Op::kSignalJoinProject,
        Op::kSendInternalSignal, Op::kSendSignal,       Op::kGetPresenceState,
        Op::kSetPresenceState,   Op::kIsOnline,         Op::kIsForcedOffline,
        Op::kSetForcedOffline,   Op::kGetOnlineUsers};
    return kSignalOps.count(op) != 0;
}

Reply State::Call(const Request& request) {
    std::shared_ptr<GateImpl> gate;
    {
        std::lock_guard<std::mutex> lock(mutex);
        ++counts[request.op];
        auto it = gates.find(request.op);
        if (it != gates.end() && !it->second.empty()) {
            gate = it->second.front();
            it->second.pop_front();
        }
    }
    // A blocked call holds no lock: the test that releases it may call in.
    if (gate) {
        {
            std::lock_guard<std::mutex> lock(mutex);
            held.push_back(&request);
        }
        const bool released = gate->Hold();
        std::lock_guard<std::mutex> lock(mutex);
        held.erase(std::find(held.begin(), held.end(), &request));
        if (!released) return Refuse(FK::InterruptedIO, "The call was interrupted");
    }

    std::lock_guard<std::mutex> lock(mutex);
    if (auto it = faults.find(request.op); it != faults.end()) {
        std::vector<FaultRule>& rules = it->second;
        std::optional<Fault> fired;
        for (auto rule = rules.begin(); rule != rules.end();) {
            if (--rule->countdown == 0) {
                if (!fired) fired = rule->fault;
                rule = rules.erase(rule);
            } else {
                ++rule;
            }
        }
        if (fired) {
            Reply reply;
            reply.fault = ToTransportFault(*fired);
            return reply;
        }
    }
    if (auto it = permanentFaults.find(request.op); it != permanentFaults.end()) {
        Reply reply;
        reply.fault = ToTransportFault(it->second);
        return reply;
    }
    Server* server = FindServer(request.serverUrl);
    if (!server || server->down)
        return Refuse(
            FK::ConnectionFailed,
            "The server " + KRCB::WithoutUserInfo(request.serverUrl).Std() + " can't be reached");
    if (IsSignalOperation(request.op)) return DispatchSignal(*server, request);
    return Dispatch(*server, request);
}

Reply State::Dispatch(Server& server, const Request& request) {
    const std::string& op = request.op;
    const Data& params = request.params;

    if (IsLoginOperation(op)) return DispatchLogin(server, request);

    // Everything else runs under a login the server gave.
    auto login = server.logins.find(request.loginId);
    User* user = login == server.logins.end() ? nullptr : FindUser(server, login->second);
    if (!user || !SameText(user->spec.login, request.user))
        return Refuse(FK::SessionRequired, "No session for this login");

    if (op == Op::kQuery) return Ok();
    if (op == Op::kGetCurrentUserId) return Ok(user->spec.id);

    if (op == Op::kGetUser || op == Op::kGetUserImage) {
        User* wanted = FindUserById(server, Text(params, "userId"));
        if (!wanted) return NotFound("No user of id " + Text(params, "userId"));
        if (op == Op::kGetUser) return Ok(UserData(*wanted));
        if (wanted->spec.picture.empty()) return Ok();
        return Ok(Data{{"type", wanted->spec.pictureType},
                       {"data", Data::binary(std::vector<std::uint8_t>(
                                    wanted->spec.picture.begin(), wanted->spec.picture.end()))}});
    }
    if (op == Op::kGetUsersByIds) {
        Data result = Data::array();
        if (auto ids = params.find("ids"); ids != params.end() && ids->is_array())
            for (const Data& id : *ids)
                if (id.is_string())
                    if (User* wanted = FindUserById(server, id.get<std::string>()))
                        result.push_back(UserData(*wanted));
        return Ok(std::move(result));
    }

    if (op == Op::kGetProjectIdByPath) {
        Project* project = FindProjectByPath(server, Text(params, "path"));
        if (!project) return NotFound("No project at " + Text(params, "path"));
        return Ok(project->id);
    }
    if (op == Op::kGetResourceById) {
        std::string id = Text(params, "id");
        if (Project* project = FindProjectById(server, id)) {
            const ModelServerSpec* ms = FindModelServer(server, project->modelServer);
            return Ok(Data{{"type", 1},
                           {"id", project->id},
                           {"path", project->path},
                           {"modelServerPath", ms ? ms->path : std::string()}});
        }
        if (auto folder = server.folderById.find(id); folder != server.folderById.end())
            return Ok(Data{{"type", 0},
                           {"id", id},
                           {"path", server.folders[folder->second]},
                           {"modelServerPath", ""}});
        return NotFound("No resource of id " + id);
    }

    // The rest concern one project, by id.
    Project* project = FindProjectById(server, Text(params, "projectId"));
    if (op == Op::kOpenProjectClient) {
        if (!project) return Ok(false);
        const ModelServerSpec* ms = FindModelServer(server, project->modelServer);
        int clientMajor = Number(params, "clientMajor"),
            clientMinor = Number(params, "clientMinor");
        if (ms && ms->major != clientMajor) {
            Reply reply = Refuse(FK::IncompatibleModelServerVersion,
                                 "The model server " + ms->id + " speaks another version");
            reply.fault->major = ms->major;
            reply.fault->minor = ms->minor;
            reply.fault->clientMajor = clientMajor;
            reply.fault->clientMinor = clientMinor;
            return reply;
        }
        return Ok(true);
    }
    if (!project) return NotFound("No project of id " + Text(params, "projectId"));

    if (op == Op::kGetProjectState) return Ok(project->state);
    if (op == Op::kGetUserPermissions) {
        User* wanted = FindUserById(server, Text(params, "userId"));
        if (!wanted) return NotFound("No user of id " + Text(params, "userId"));
        Data ids = Data::array();
        auto& mapper = KRCB::Management::Entities::PermissionIDMapper::GetInstance();
        for (const std::string& text : PermissionsOf(*project, wanted->spec.login))
            ids.push_back(mapper.GetPermissionID(text));
        return Ok(std::move(ids));
    }
    if (op == Op::kGetSessions) {
        Data sessions = Data::array();
        for (const Session& session : project->sessions) {
            if (!SameText(session.user, user->spec.login)) continue;
            sessions.push_back(Data{{"id", session.id},
                                    {"projectId", project->id},
                                    {"userShortId", EnsureMember(*project, user->spec.login)}});
        }
        return Ok(std::move(sessions));
    }
    if (op == Op::kCreateSession) {
        if (project->sessionUsers.count(FoldKey(user->spec.login)))
            return Refuse(FK::SessionExists,
                          "A session of \"" + user->spec.login + "\" stands in " + project->path);
        // Opening the project makes the user a member, which its clients hear.
        const std::size_t members = project->members.size();
        std::string id = AddSession(server, *project, SessionSpec{"", user->spec.login, {}});
        if (project->members.size() != members) MembersChanged(server, *project, user->spec.login);
        return Ok(Data{{"id", id},
                       {"projectId", project->id},
                       {"userShortId", EnsureMember(*project, user->spec.login)}});
    }

    // Calls on a session of the project.
    std::string sessionId = Text(params, "sessionId");
    Session* session = nullptr;
    for (Session& s : project->sessions)
        if (s.id == sessionId) session = &s;
    if (!session) return NotFound("No session " + sessionId + " in " + project->path);

    if (op == Op::kGetProjectMembers) {
        Data members = Data::array();
        for (const MemberSpec& member : project->members) {
            User* who = FindUser(server, member.user);
            members.push_back(Data{{"userId", member.userId},
                                   {"serverUserId", who ? who->spec.id : std::string()},
                                   {"login", member.user}});
        }
        return Ok(std::move(members));
    }
    if (op == Op::kGetSessionAttribute) {
        auto it = session->attributes.find(Text(params, "name"));
        if (it == session->attributes.end()) return Ok();
        return Ok(Data::binary(std::vector<std::uint8_t>(it->second.begin(), it->second.end())));
    }
    if (op == Op::kSetSessionAttribute) {
        auto bytes = params.find("bytes");
        if (bytes == params.end() || !bytes->is_binary())
            return Refuse(FK::PortalServerClient, "An attribute needs bytes");
        const auto& b = bytes->get_binary();
        session->attributes[Text(params, "name")] = std::vector<unsigned char>(b.begin(), b.end());
        return Ok();
    }
    return Refuse(FK::PortalServerClient, "Unknown operation " + op);
}

Reply State::DispatchSignal(Server& server, const Request& request) {
    const std::string& op = request.op;
    const Data& params = request.params;
    User* user = FindUser(server, request.user);
    if (!user) return NotFound("No user \"" + request.user + "\"");

    if (op == Op::kSignalConnect) {
        if (!CredentialsFit(*user, params))
            return Refuse(FK::CreateSessionFailed,
                          "Login refused for user \"" + request.user + "\"");
        server.clients.push_back(SignalClientEntry{NewId("client"), user->spec.login, ""});
        std::string id = server.clients.back().id;
        PushOnlineUsers(server, id);
        return Ok(Data{{"clientId", id}});
    }
    if (op == Op::kGetPresenceState) return Ok(user->presence);
    if (op == Op::kSetPresenceState) {
        user->presence = Number(params, "state");
        PushPresence(server, user->spec.login, Text(params, "clientId"), user->presence);
        return Ok();
    }
    if (op == Op::kIsForcedOffline) return Ok(user->forcedOffline);
    if (op == Op::kSetForcedOffline) {
        bool offline = Flag(params, "offline");
        if (offline != user->forcedOffline) {
            user->forcedOffline = offline;
            PushOnlineUsers(server, Text(params, "clientId"));
        }
        return Ok();
    }
    if (op == Op::kGetOnlineUsers) {
        Data users = Data::array();
        for (const User& u : server.users) {
            if (!u.online || u.forcedOffline) continue;
            bool registered = std::any_of(
                server.clients.begin(), server.clients.end(),
                [&](const SignalClientEntry& c) { return SameText(c.user, u.spec.login); });
            if (registered) users.push_back(u.spec.login);
        }
        return Ok(std::move(users));
    }

    // The rest need a registered client of this user.
    std::string clientId = Text(params, "clientId");
    auto client = std::find_if(server.clients.begin(), server.clients.end(),
                               [&](const SignalClientEntry& c) { return c.id == clientId; });
    if (client == server.clients.end() || !SameText(client->user, user->spec.login)) {
        if (op == Op::kIsOnline) return Ok(false);
        return Refuse(FK::SessionRequired, "The signal client is not registered");
    }
    if (op == Op::kIsOnline) return Ok(user->online);
    if (op == Op::kSignalDisconnect) {
        server.clients.erase(client);
        PushOnlineUsers(server, clientId);
        return Ok();
    }
    if (op == Op::kSignalJoinProject) {
        client->projectId = Text(params, "projectId");
        return Ok();
    }
    if (op == Op::kSendInternalSignal || op == Op::kSendSignal) {
        if (!user->online) return Refuse(FK::ConnectionFailed, "The signal channel is down");
        SignalRecord record;
        record.serverUrl = server.spec.url;
        record.user = user->spec.login;
        record.clientId = client->id;
        record.projectId = client->projectId;
        record.internal = op == Op::kSendInternalSignal;
        record.id = Number(params, "id");
        record.text = Text(params, "text");
        record.time = Tick();
        PushSignal(server, record.projectId, record.clientId, record.user, record.id, record.text);
        signals.push_back(std::move(record));
        return Ok();
    }
    return Refuse(FK::PortalServerClient, "Unknown operation " + op);
}

}  // namespace Emulator::Internal
