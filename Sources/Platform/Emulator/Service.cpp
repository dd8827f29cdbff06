#include "Emulator/Service.h"

#include <algorithm>
#include <stdexcept>

#include "Emulator/Internal/State.h"

namespace Emulator {

using Internal::Project;
using Internal::Server;
using Internal::Session;

namespace {

class ServiceTransport : public KRCB::Internal::Transport {
public:
    explicit ServiceTransport(std::shared_ptr<Internal::State> state) : mState(std::move(state)) {}
    KRCB::Internal::Reply Call(const KRCB::Internal::Request& request) override {
        try {
            return mState->Call(request);
        } catch (const std::exception& e) {
            // A request the emulator can't serve is the server's failure.
            return Internal::Refuse(KRCB::Internal::FaultKind::PortalServerClient, e.what());
        }
    }

private:
    std::shared_ptr<Internal::State> mState;
};

Session& RequireSession(Internal::State& state, Server& server, const std::string& sessionId) {
    Session* session = state.FindSession(server, sessionId, nullptr);
    if (!session) throw std::invalid_argument("no session " + sessionId);
    return *session;
}

}  // namespace

Service::Service(std::uint64_t seed) : mState(std::make_shared<Internal::State>(seed)) {}

Service::~Service() {
    Uninstall();
    std::shared_ptr<Internal::Deliverer> deliverer;
    {
        std::lock_guard<std::mutex> lock(mState->mutex);
        for (const auto& gate : mState->allGates) gate->Release();
        deliverer = mState->deliverer;
    }
    // After the gates: a push under way may wait at one.
    deliverer->Stop();
}

void Service::Install() {
    auto transport = std::make_shared<ServiceTransport>(mState);
    {
        std::lock_guard<std::mutex> lock(mState->mutex);
        mState->installed = transport.get();
    }
    KRCB::Internal::SetTransport(std::move(transport));
}

void Service::Uninstall() {
    std::lock_guard<std::mutex> lock(mState->mutex);
    if (mState->installed && KRCB::Internal::GetTransport().get() == mState->installed)
        KRCB::Internal::SetTransport(nullptr);
    mState->installed = nullptr;
}

void Service::AddServer(const ServerSpec& server) {
    std::lock_guard<std::mutex> lock(mState->mutex);
    mState->AddServer(server);
}

std::string Service::AddUser(const std::string& serverUrl, const UserSpec& user) {
    std::lock_guard<std::mutex> lock(mState->mutex);
    return mState->AddUser(mState->RequireServer(serverUrl), user);
}

void Service::AddModelServer(const std::string& serverUrl, const ModelServerSpec& modelServer) {
    std::lock_guard<std::mutex> lock(mState->mutex);
    mState->AddModelServer(mState->RequireServer(serverUrl), modelServer);
}

void Service::AddFolder(const std::string& serverUrl, const std::string& path) {
    std::lock_guard<std::mutex> lock(mState->mutex);
    mState->AddFolder(mState->RequireServer(serverUrl), path);
}

std::string Service::AddProject(const std::string& serverUrl, const ProjectSpec& project) {
    std::lock_guard<std::mutex> lock(mState->mutex);
    return mState->AddProject(mState->RequireServer(serverUrl), project);
}

std::optional<UserSpec> Service::FindUser(const std::string& serverUrl,
                                          const std::string& login) const {
    std::lock_guard<std::mutex> lock(mState->mutex);
    Server* server = mState->FindServer(serverUrl);
    Internal::User* user = server ? mState->FindUser(*server, login) : nullptr;
    if (!user) return std::nullopt;
    return user->spec;
}

std::string Service::GetProjectId(const std::string& serverUrl, const std::string& path) const {
    std::lock_guard<std::mutex> lock(mState->mutex);
    Server* server = mState->FindServer(serverUrl);
    Project* project = server ? mState->FindProjectByPath(*server, path) : nullptr;
    return project ? project->id : std::string();
}

void Service::MoveProject(const std::string& serverUrl, const std::string& oldPath,
                          const std::string& newPath) {
    std::lock_guard<std::mutex> lock(mState->mutex);
    Server& server = mState->RequireServer(serverUrl);
    Project& project = mState->RequireProject(server, oldPath);
    Project* there = mState->FindProjectByPath(server, newPath);
    if (there && there != &project) throw std::invalid_argument("a project stands at " + newPath);
    mState->MoveProject(server, project, newPath);
}

std::string Service::ReplaceProject(const std::string& serverUrl, const std::string& path) {
    std::lock_guard<std::mutex> lock(mState->mutex);
    Server& server = mState->RequireServer(serverUrl);
    Project& old = mState->RequireProject(server, path);
    // The newcomer keeps the place, the model server, the state and the
    // rights; its sessions and members start afresh.
    mState->ChangeProjectId(server, old, mState->NewId("project"));
    old.sessions.clear();
    old.members.clear();
    mState->ReindexSessions(server, old);
    Internal::State::ReindexMembers(old);
    return old.id;
}

void Service::DeleteProject(const std::string& serverUrl, const std::string& path) {
    std::lock_guard<std::mutex> lock(mState->mutex);
    Server& server = mState->RequireServer(serverUrl);
    mState->RemoveProject(server, mState->RequireProject(server, path));
}

void Service::SetProjectState(const std::string& serverUrl, const std::string& path, int state) {
    std::lock_guard<std::mutex> lock(mState->mutex);
    mState->RequireProject(mState->RequireServer(serverUrl), path).state = state;
}

void Service::SetPermissions(const std::string& serverUrl, const std::string& path,
                             const std::string& login, const std::vector<std::string>& texts) {
    std::lock_guard<std::mutex> lock(mState->mutex);
    Server& server = mState->RequireServer(serverUrl);
    Project& project = mState->RequireProject(server, path);
    Internal::User* user = mState->FindUser(server, login);
    if (!user) throw std::invalid_argument("no user " + login);
    mState->CheckPermissionTexts(texts);
    mState->SetPermissions(project, user->spec.login, texts);
}

void Service::GrantPermission(const std::string& serverUrl, const std::string& path,
                              const std::string& login, const std::string& text) {
    std::vector<std::string> texts = GetPermissions(serverUrl, path, login);
    if (std::find(texts.begin(), texts.end(), text) == texts.end()) texts.push_back(text);
    SetPermissions(serverUrl, path, login, texts);
}

void Service::RevokePermission(const std::string& serverUrl, const std::string& path,
                               const std::string& login, const std::string& text) {
    std::vector<std::string> texts = GetPermissions(serverUrl, path, login);
    texts.erase(std::remove(texts.begin(), texts.end(), text), texts.end());
    SetPermissions(serverUrl, path, login, texts);
}

std::vector<std::string> Service::GetPermissions(const std::string& serverUrl,
                                                 const std::string& path,
                                                 const std::string& login) const {
    std::lock_guard<std::mutex> lock(mState->mutex);
    Project& project = mState->RequireProject(mState->RequireServer(serverUrl), path);
    // The first spelling of the login, as the table orders them.
    auto keys = project.permissionKeys.find(Internal::FoldKey(login));
    if (keys == project.permissionKeys.end() || keys->second.empty()) return {};
    return project.permissions.at(*keys->second.begin());
}

std::string Service::AddSession(const std::string& serverUrl, const std::string& path,
                                const SessionSpec& session) {
    std::lock_guard<std::mutex> lock(mState->mutex);
    Server& server = mState->RequireServer(serverUrl);
    return mState->AddSession(server, mState->RequireProject(server, path), session);
}

std::vector<SessionSpec> Service::GetSessions(const std::string& serverUrl,
                                              const std::string& path) const {
    std::lock_guard<std::mutex> lock(mState->mutex);
    Project& project = mState->RequireProject(mState->RequireServer(serverUrl), path);
    std::vector<SessionSpec> sessions;
    for (const Session& session : project.sessions)
        sessions.push_back(SessionSpec{session.id, session.user, session.attributes});
    return sessions;
}

void Service::DeleteSession(const std::string& serverUrl, const std::string& sessionId) {
    std::lock_guard<std::mutex> lock(mState->mutex);
    Server& server = mState->RequireServer(serverUrl);
    Project* project = nullptr;
    RequireSession(*mState, server, sessionId);
    mState->FindSession(server, sessionId, &project);
    mState->RemoveSession(server, *project, sessionId);
}

void Service::SetSessionComputer(const std::string& serverUrl, const std::string& sessionId,
                                 const std::string& computer) {
    SetSessionAttribute(serverUrl, sessionId, Internal::kComputerNameAttribute,
                        std::vector<unsigned char>(computer.begin(), computer.end()));
}

std::optional<std::string> Service::GetSessionComputer(const std::string& serverUrl,
                                                       const std::string& sessionId) const {
    auto bytes = GetSessionAttribute(serverUrl, sessionId, Internal::kComputerNameAttribute);
    if (!bytes) return std::nullopt;
    return std::string(bytes->begin(), bytes->end());
}

void Service::SetSessionAttribute(const std::string& serverUrl, const std::string& sessionId,
                                  const std::string& name,
                                  const std::vector<unsigned char>& bytes) {
    std::lock_guard<std::mutex> lock(mState->mutex);
    RequireSession(*mState, mState->RequireServer(serverUrl), sessionId).attributes[name] = bytes;
}

std::optional<std::vector<unsigned char>> Service::GetSessionAttribute(
    const std::string& serverUrl, const std::string& sessionId, const std::string& name) const {
    std::lock_guard<std::mutex> lock(mState->mutex);
    Session& session = RequireSession(*mState, mState->RequireServer(serverUrl), sessionId);
    auto it = session.attributes.find(name);
    if (it == session.attributes.end()) return std::nullopt;
    return it->second;
}

void Service::SetUserFullName(const std::string& serverUrl, const std::string& login,
                              const std::string& fullName) {
    std::lock_guard<std::mutex> lock(mState->mutex);
    Internal::User* user = mState->FindUser(mState->RequireServer(serverUrl), login);
    if (!user) throw std::invalid_argument("no user " + login);
    user->spec.fullName = fullName;
}

void Service::SetServerDown(const std::string& serverUrl, bool down) {
    std::lock_guard<std::mutex> lock(mState->mutex);
    Internal::Server& server = mState->RequireServer(serverUrl);
    if (server.down != down) mState->PushMailServerState(server, down);
    server.down = down;
}

void Service::FailNext(const std::string& op, const Fault& fault) {
    FailNth(op, 1, fault);
}

void Service::FailNth(const std::string& op, int nth, const Fault& fault) {
    if (nth < 1) throw std::invalid_argument("FailNth counts from 1");
    std::lock_guard<std::mutex> lock(mState->mutex);
    mState->faults[op].push_back(Internal::FaultRule{nth, fault});
}

void Service::FailAlways(const std::string& op, const Fault& fault) {
    std::lock_guard<std::mutex> lock(mState->mutex);
    mState->permanentFaults[op] = fault;
}

void Service::ClearFaults() {
    std::lock_guard<std::mutex> lock(mState->mutex);
    mState->faults.clear();
    mState->permanentFaults.clear();
}

std::shared_ptr<Gate> Service::BlockNext(const std::string& op) {
    auto gate = std::make_shared<Internal::GateImpl>();
    std::lock_guard<std::mutex> lock(mState->mutex);
    mState->gates[op].push_back(gate);
    mState->allGates.push_back(gate);
    return gate;
}

int Service::CallCount(const std::string& op) const {
    std::lock_guard<std::mutex> lock(mState->mutex);
    auto it = mState->counts.find(op);
    return it == mState->counts.end() ? 0 : it->second;
}

int Service::ServerCallCount() const {
    std::lock_guard<std::mutex> lock(mState->mutex);
    int total = 0;
    for (const auto& [op, count] : mState->counts)
        if (!Internal::IsSignalOperation(op)) total += count;
    return total;
}

void Service::ResetCounts() {
    std::lock_guard<std::mutex> lock(mState->mutex);
    mState->counts.clear();
}

}  // namespace Emulator
