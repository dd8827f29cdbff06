// The signal channel: the operations of signal clients, and what a test
// sends and reads of it. Pushes go out through the Deliverer (Pushes.cpp).
#include <algorithm>
#include <stdexcept>
#include <unordered_set>

#include "Emulator/Internal/Handlers.h"

namespace Emulator {

namespace Internal {

Answer HandleSignalConnect(CallContext& call) {
    if (!CredentialsFit(*call.user, call.params))
        return Refuse(FK::CreateSessionFailed,
                      "Login refused for user \"" + call.request.user + "\"");
    call.server.clients.push_back(
        SignalClientEntry{call.state.NewId("client"), call.user->spec.login, ""});
    std::string id = call.server.clients.back().id;
    call.state.PushOnlineUsers(call.server, id);
    return Ok(Data{{"clientId", id}});
}

Answer HandleGetPresenceState(CallContext& call) {
    return Ok(call.user->presence);
}

Answer HandleSetPresenceState(CallContext& call) {
    call.user->presence = call.Number("state");
    call.state.PushPresence(call.server, call.user->spec.login, call.Text("clientId"),
                            call.user->presence);
    return Ok();
}

Answer HandleIsForcedOffline(CallContext& call) {
    return Ok(call.user->forcedOffline);
}

Answer HandleSetForcedOffline(CallContext& call) {
    const bool offline = call.Flag("offline");
    if (offline != call.user->forcedOffline) {
        call.user->forcedOffline = offline;
        call.state.PushOnlineUsers(call.server, call.Text("clientId"));
    }
    return Ok();
}

Answer HandleGetOnlineUsers(CallContext& call) {
    std::unordered_set<std::string> registered;
    for (const SignalClientEntry& client : call.server.clients)
        registered.insert(FoldKey(client.user));
    std::vector<std::string> logins;
    for (const User& user : call.server.users)
        if (user.online && !user.forcedOffline && registered.count(FoldKey(user.spec.login)))
            logins.push_back(user.spec.login);
    return std::function<Reply()>([logins = std::move(logins)] { return Ok(Data(logins)); });
}

namespace {

// The calling user's registered client of params' clientId; null if none.
SignalClientEntry* OwnClient(CallContext& call) {
    const std::string id = call.Text("clientId");
    auto client = std::find_if(call.server.clients.begin(), call.server.clients.end(),
                               [&](const SignalClientEntry& c) { return c.id == id; });
    if (client == call.server.clients.end() || !SameText(client->user, call.user->spec.login))
        return nullptr;
    return &*client;
}

SignalClientEntry& RequireOwnClient(CallContext& call) {
    SignalClientEntry* client = OwnClient(call);
    if (!client) Throw(FK::SessionRequired, "The signal client is not registered");
    return *client;
}

Answer SendSignal(CallContext& call, bool internal) {
    SignalClientEntry& client = RequireOwnClient(call);
    if (!call.user->online) return Refuse(FK::ConnectionFailed, "The signal channel is down");
    SignalRecord record;
    record.serverUrl = call.server.spec.url;
    record.user = call.user->spec.login;
    record.clientId = client.id;
    record.projectId = client.projectId;
    record.internal = internal;
    record.id = call.Number("id");
    record.text = call.Text("text");
    record.time = call.state.Tick();
    call.state.PushSignal(call.server, record.projectId, record.clientId, record.user, record.id,
                          record.text);
    call.state.signals.push_back(std::move(record));
    return Ok();
}

}  // namespace

Answer HandleIsOnline(CallContext& call) {
    return Ok(OwnClient(call) && call.user->online);
}

Answer HandleSignalDisconnect(CallContext& call) {
    SignalClientEntry& client = RequireOwnClient(call);
    const std::string id = client.id;
    call.server.clients.erase(call.server.clients.begin() + (&client - call.server.clients.data()));
    call.state.PushOnlineUsers(call.server, id);
    return Ok();
}

Answer HandleSignalJoinProject(CallContext& call) {
    RequireOwnClient(call).projectId = call.Text("projectId");
    return Ok();
}

Answer HandleSendInternalSignal(CallContext& call) {
    return SendSignal(call, true);
}

Answer HandleSendSignal(CallContext& call) {
    return SendSignal(call, false);
}

}  // namespace Internal

using Internal::Server;

void Service::SendSignal(const std::string& serverUrl, const std::string& path, int id,
                         const std::string& text) {
    std::lock_guard<std::mutex> lock(mState->mutex);
    Server& server = mState->RequireServer(serverUrl);
    mState->PushSignal(server, mState->RequireProject(server, path).id, "", "", id, text);
}

bool Service::WaitForPushes(int timeoutMs) const {
    std::shared_ptr<Internal::Deliverer> deliverer;
    {
        std::lock_guard<std::mutex> lock(mState->mutex);
        deliverer = mState->deliverer;
    }
    return deliverer->WaitIdle(timeoutMs);
}

std::vector<SignalRecord> Service::GetSignals() const {
    std::lock_guard<std::mutex> lock(mState->mutex);
    return mState->signals;
}

void Service::ClearSignals() {
    std::lock_guard<std::mutex> lock(mState->mutex);
    mState->signals.clear();
}

namespace {
Internal::User& RequireUser(Internal::State& state, const std::string& serverUrl,
                            const std::string& login) {
    Internal::User* user = state.FindUser(state.RequireServer(serverUrl), login);
    if (!user) throw std::invalid_argument("no user " + login + " on " + serverUrl);
    return *user;
}
}  // namespace

int Service::GetPresenceState(const std::string& serverUrl, const std::string& user) const {
    std::lock_guard<std::mutex> lock(mState->mutex);
    return RequireUser(*mState, serverUrl, user).presence;
}

void Service::SetPresenceState(const std::string& serverUrl, const std::string& user, int state) {
    std::lock_guard<std::mutex> lock(mState->mutex);
    Internal::User& who = RequireUser(*mState, serverUrl, user);
    who.presence = state;
    mState->PushPresence(mState->RequireServer(serverUrl), who.spec.login, "", state);
}

void Service::SetOnline(const std::string& serverUrl, const std::string& user, bool online) {
    std::lock_guard<std::mutex> lock(mState->mutex);
    RequireUser(*mState, serverUrl, user).online = online;
    mState->PushOnlineUsers(mState->RequireServer(serverUrl), "");
}

void Service::SetForcedOffline(const std::string& serverUrl, const std::string& user,
                               bool offline) {
    std::lock_guard<std::mutex> lock(mState->mutex);
    RequireUser(*mState, serverUrl, user).forcedOffline = offline;
    mState->PushOnlineUsers(mState->RequireServer(serverUrl), "");
}

}  // namespace Emulator
