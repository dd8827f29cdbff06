#include "Emulator/Internal/State.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <stdexcept>

#include "Gfx/Color.h"
#include "KRCB/Entities.h"
#include "KRCB/Paths.h"
#include "ZR/UniString.h"

namespace Emulator::Internal {

bool GateImpl::WaitUntilReached(int timeoutMs) {
    std::unique_lock<std::mutex> lock(mMutex);
    return mChanged.WaitFor(lock, timeoutMs, [this] { return mReached; });
}

void GateImpl::Release() {
    std::lock_guard<std::mutex> lock(mMutex);
    mReleased = true;
    mChanged.NotifyAll();
}

bool GateImpl::Hold() {
    std::unique_lock<std::mutex> lock(mMutex);
    mReached = true;
    mChanged.NotifyAll();
    try {
        mChanged.Wait(
            lock, [this] { return mReleased; }, true);
    } catch (const ZR::InterruptedException&) {
        return false;
    }
    return true;
}

// The clock starts at a time of the seed's choosing: 2026-01-01 plus up to
// a day, so that runs of one seed agree and runs of two seeds differ.
State::State(std::uint64_t seed)
    : random(seed), clock(1767225600000LL + static_cast<std::int64_t>(seed % 86400) * 1000) {}

// splitmix64: small, fast and well spread; the ids need no more.
std::uint64_t State::Next() {
    std::uint64_t z = (random += 0x9e3779b97f4a7c15ULL);
    z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ULL;
    z = (z ^ (z >> 27)) * 0x94d049bb133111ebULL;
    return z ^ (z >> 31);
}

std::string State::NewId(const char* prefix) {
    char buffer[32];
    std::snprintf(buffer, sizeof buffer, "%s-%012llx", prefix,
                  static_cast<unsigned long long>(Next() & 0xffffffffffffULL));
    return buffer;
}

std::string State::NewGuid() {
    std::uint64_t a = Next(), b = Next();
    char buffer[40];
    std::snprintf(buffer, sizeof buffer, "%08llx-%04llx-4%03llx-%04llx-%012llx",
                  static_cast<unsigned long long>(a >> 32),
                  static_cast<unsigned long long>((a >> 16) & 0xffff),
                  static_cast<unsigned long long>(a & 0xfff),
                  static_cast<unsigned long long>(0x8000 | ((b >> 48) & 0x3fff)),
                  static_cast<unsigned long long>(b & 0xffffffffffffULL));
    return buffer;
}

std::int64_t State::Tick() {
    return clock += 1000;
}

bool SameText(const std::string& a, const std::string& b) {
    return ZR::UniString(a).IsEqual(ZR::UniString(b), ZR::kIgnoreCase);
}

std::string FoldKey(const std::string& text) {
    return ZR::UniString(text).FoldCase().Std();
}

std::string FolderId(const std::string& path) {
    // FNV-1a over the case-folded path: folders differ in more than case.
    std::uint64_t hash = 0xcbf29ce484222325ULL;
    for (unsigned char c : FoldKey(path)) {
        hash ^= c;
        hash *= 0x100000001b3ULL;
    }
    char buffer[32];
    std::snprintf(buffer, sizeof buffer, "folder-%012llx",
                  static_cast<unsigned long long>(hash & 0xffffffffffffULL));
    return buffer;
}

namespace {

template <typename Table>
auto* At(Table& table, const std::unordered_map<std::string, std::size_t>& index,
         const std::string& key) {
    auto it = index.find(key);
    return it == index.end() ? nullptr : &table[it->second];
}

}  // namespace

Server* State::FindServer(const std::string& url) {
    return At(servers, serverByUrl, KRCB::ServerUrlKey(ZR::UniString(url)));
}

Server& State::RequireServer(const std::string& url) {
    Server* server = FindServer(url);
    if (!server) throw std::invalid_argument("no server " + url);
    return *server;
}

User* State::FindUser(Server& server, const std::string& login) {
    return At(server.users, server.userByLogin, FoldKey(login));
}

User* State::FindUserById(Server& server, const std::string& id) {
    return At(server.users, server.userById, id);
}

Project* State::FindProjectByPath(Server& server, const std::string& path) {
    return At(server.projects, server.projectByPath, FoldKey(path));
}

Project* State::FindProjectById(Server& server, const std::string& id) {
    return At(server.projects, server.projectById, id);
}

Project& State::RequireProject(Server& server, const std::string& path) {
    Project* project = FindProjectByPath(server, path);
    if (!project) throw std::invalid_argument("no project at " + path + " on " + server.spec.url);
    return *project;
}

Session* State::FindSession(Server& server, const std::string& sessionId, Project** project) {
    auto it = server.sessionProject.find(sessionId);
    Project* owner =
        it == server.sessionProject.end() ? nullptr : FindProjectById(server, it->second);
    if (!owner) return nullptr;
    for (Session& session : owner->sessions)
        if (session.id == sessionId) {
            if (project) *project = owner;
            return &session;
        }
    return nullptr;
}

const ModelServerSpec* State::FindModelServer(const Server& server, const std::string& id) const {
    auto it = server.modelServerById.find(id);
    return it == server.modelServerById.end() ? nullptr : &server.modelServers[it->second];
}

void State::ReindexMembers(Project& project) {
    project.memberByLogin.clear();
    project.memberIds.clear();
    project.highestMemberId = 0;
    for (std::size_t i = 0; i < project.members.size(); ++i) {
        const MemberSpec& member = project.members[i];
        project.memberByLogin.emplace(FoldKey(member.user), i);
        project.memberIds.insert(member.userId);
        project.highestMemberId = std::max(project.highestMemberId, member.userId);
    }
}

void State::ReindexPermissions(Project& project) {
    project.permissionKeys.clear();
    for (const auto& entry : project.permissions)
        project.permissionKeys[FoldKey(entry.first)].insert(entry.first);
}

void State::ReindexSessions(Server& server, Project& project) {
    project.sessionUsers.clear();
    for (auto it = server.sessionProject.begin(); it != server.sessionProject.end();)
        it = it->second == project.id ? server.sessionProject.erase(it) : std::next(it);
    for (const Session& session : project.sessions) {
        project.sessionUsers.insert(FoldKey(session.user));
        server.sessionProject.emplace(session.id, project.id);
    }
}

void State::ReindexProjects(Server& server) {
    server.projectByPath.clear();
    server.projectById.clear();
    for (std::size_t i = 0; i < server.projects.size(); ++i) {
        server.projectByPath.emplace(FoldKey(server.projects[i].path), i);
        server.projectById.emplace(server.projects[i].id, i);
    }
}

void State::MoveProject(Server& server, Project& project, const std::string& newPath) {
    const std::size_t place = server.projectByPath.at(FoldKey(project.path));
    server.projectByPath.erase(FoldKey(project.path));
    project.path = newPath;
    server.projectByPath[FoldKey(newPath)] = place;
    EnsureFolder(server, KRCB::GetParentFolderPath(ZR::UniString(newPath)).Std());
    ReindexBrowsing(server);
}

void State::ChangeProjectId(Server& server, Project& project, const std::string& newId) {
    const std::size_t place = server.projectById.at(project.id);
    server.projectById.erase(project.id);
    for (const Session& session : project.sessions) server.sessionProject.erase(session.id);
    project.id = newId;
    server.projectById[newId] = place;
    for (const Session& session : project.sessions)
        server.sessionProject.emplace(session.id, project.id);
}

void State::RemoveProject(Server& server, Project& project) {
    for (const Session& session : project.sessions) server.sessionProject.erase(session.id);
    server.projects.erase(server.projects.begin() + (&project - server.projects.data()));
    ReindexProjects(server);
    ReindexBrowsing(server);
}

void State::RemoveSession(Server& server, Project& project, const std::string& sessionId) {
    auto it = std::find_if(project.sessions.begin(), project.sessions.end(),
                           [&](const Session& s) { return s.id == sessionId; });
    if (it == project.sessions.end()) return;
    project.sessions.erase(it);
    ReindexSessions(server, project);
}

std::vector<std::string> State::PermissionsOf(const Project& project,
                                              const std::string& login) const {
    std::vector<std::string> texts;
    auto keys = project.permissionKeys.find(FoldKey(login));
    if (keys == project.permissionKeys.end()) return texts;
    for (const std::string& key : keys->second) {
        const std::vector<std::string>& these = project.permissions.at(key);
        texts.insert(texts.end(), these.begin(), these.end());
    }
    return texts;
}

void State::SetPermissions(Project& project, const std::string& login,
                           const std::vector<std::string>& texts) {
    std::set<std::string>& keys = project.permissionKeys[FoldKey(login)];
    for (const std::string& key : keys) project.permissions.erase(key);
    keys = {login};
    project.permissions[login] = texts;
}

namespace {

void CheckPath(const std::string& path, const char* what) {
    if (path.size() < 2 || path[0] != '/' || path.back() == '/')
        throw std::invalid_argument(std::string(what) + " path \"" + path +
                                    "\" must start with \"/\" and name something");
}

}  // namespace

void State::AddServer(const ServerSpec& spec) {
    if (spec.url.empty()) throw std::invalid_argument("a server needs a url");
    std::string key = KRCB::ServerUrlKey(ZR::UniString(spec.url));
    if (serverByUrl.count(key)) throw std::invalid_argument("server " + spec.url + " exists");
    Server server;
    server.spec = spec;
    MakeRootFolder(server);
    servers.push_back(std::move(server));
    serverByUrl.emplace(std::move(key), servers.size() - 1);
}

std::string State::AddUser(Server& server, UserSpec spec) {
    if (spec.login.empty()) throw std::invalid_argument("a user needs a login");
    std::string key = FoldKey(spec.login);
    if (server.userByLogin.count(key))
        throw std::invalid_argument("user " + spec.login + " exists");
    // Ids are GUID texts, as a real server's are.
    if (spec.id.empty()) spec.id = NewGuid();
    if (FindUserById(server, spec.id))
        throw std::invalid_argument("user id " + spec.id + " is taken");
    if (spec.refreshToken.empty()) spec.refreshToken = NewId("token");
    if (spec.guid.empty()) spec.guid = NewGuid();
    Gfx::Color color;
    if (!Gfx::Color::Parse(ZR::UniString(spec.color), &color))
        throw std::invalid_argument("colour \"" + spec.color + "\" is not #RRGGBB or #RRGGBBAA");
    spec.color = color.ToString().Std();
    if (!spec.picture.empty() && spec.pictureType.empty())
        throw std::invalid_argument("the picture of " + spec.login + " needs a type");
    User user;
    user.spec = std::move(spec);
    server.users.push_back(std::move(user));
    server.userByLogin.emplace(std::move(key), server.users.size() - 1);
    server.userById.emplace(server.users.back().spec.id, server.users.size() - 1);
    return server.users.back().spec.id;
}

void State::AddModelServer(Server& server, const ModelServerSpec& spec) {
    if (spec.id.empty()) throw std::invalid_argument("a model server needs an id");
    if (FindModelServer(server, spec.id))
        throw std::invalid_argument("model server " + spec.id + " exists");
    server.modelServers.push_back(spec);
    server.modelServerById.emplace(spec.id, server.modelServers.size() - 1);
}

void State::AddFolder(Server& server, const std::string& path) {
    CheckPath(path, "folder");
    FolderSpec spec;
    spec.path = path;
    AddFolder(server, spec);
}

void State::CheckPermissionTexts(const std::vector<std::string>& texts) {
    auto& mapper = KRCB::Management::Entities::PermissionIDMapper::GetInstance();
    for (const std::string& text : texts) {
        try {
            mapper.GetPermissionID(ZR::UniString(text));
        } catch (const ZR::ZRException&) {
            throw std::invalid_argument("unknown permission \"" + text + "\"");
        }
    }
}

std::string State::AddProject(Server& server, const ProjectSpec& spec) {
    CheckPath(spec.path, "project");
    if (FindProjectByPath(server, spec.path))
        throw std::invalid_argument("a project stands at " + spec.path);
    if (!spec.modelServer.empty() && !FindModelServer(server, spec.modelServer))
        throw std::invalid_argument("no model server " + spec.modelServer);
    for (const auto& [login, texts] : spec.permissions) {
        if (!FindUser(server, login)) throw std::invalid_argument("no user " + login);
        CheckPermissionTexts(texts);
    }
    Project project;
    project.id = spec.id.empty() ? NewId("project") : spec.id;
    if (server.projectById.count(project.id))
        throw std::invalid_argument("project id " + project.id + " is taken");
    project.path = spec.path;
    project.modelServer = spec.modelServer;
    project.state = spec.state;
    project.permissions = spec.permissions;
    ReindexPermissions(project);
    for (const MemberSpec& member : spec.members) {
        User* user = FindUser(server, member.user);
        if (!user) throw std::invalid_argument("no user " + member.user);
        if (project.memberByLogin.count(FoldKey(member.user)))
            throw std::invalid_argument(member.user + " is a member already");
        EnsureMember(project, user->spec.login, member.userId);
    }
    const std::string folderId =
        EnsureFolder(server, KRCB::GetParentFolderPath(ZR::UniString(spec.path)).Std()).id;
    server.projects.push_back(std::move(project));
    Project& added = server.projects.back();
    server.projectByPath.emplace(FoldKey(added.path), server.projects.size() - 1);
    server.projectById.emplace(added.id, server.projects.size() - 1);
    server.folderProjects[folderId].push_back(server.projects.size() - 1);
    try {
        for (const SessionSpec& session : spec.sessions) AddSession(server, added, session);
    } catch (...) {
        // A refusal leaves no trace, in the tables or their indexes.
        for (const Session& session : added.sessions) server.sessionProject.erase(session.id);
        server.projectByPath.erase(FoldKey(added.path));
        server.projectById.erase(added.id);
        server.folderProjects[folderId].pop_back();
        server.projects.pop_back();
        throw;
    }
    return added.id;
}

std::int16_t State::EnsureMember(Project& project, const std::string& login, std::int16_t userId) {
    std::string key = FoldKey(login);
    if (auto it = project.memberByLogin.find(key); it != project.memberByLogin.end())
        return project.members[it->second].userId;
    if (userId != 0 && project.memberIds.count(userId))
        throw std::invalid_argument("short user id " + std::to_string(userId) + " is taken");
    if (userId < 0) throw std::invalid_argument("a short user id is 1 to 32767");
    if (userId == 0) {
        if (project.highestMemberId == INT16_MAX)
            throw std::invalid_argument("no short user id left");
        userId = static_cast<std::int16_t>(project.highestMemberId + 1);
    }
    project.members.push_back(MemberSpec{login, userId});
    project.memberByLogin.emplace(std::move(key), project.members.size() - 1);
    project.memberIds.insert(userId);
    project.highestMemberId = std::max(project.highestMemberId, userId);
    return userId;
}

std::string State::AddSession(Server& server, Project& project, const SessionSpec& spec) {
    User* user = FindUser(server, spec.user);
    if (!user) throw std::invalid_argument("no user " + spec.user);
    if (project.sessionUsers.count(FoldKey(spec.user)))
        throw std::invalid_argument(spec.user + " has a session in " + project.path);
    Session session;
    session.id = spec.id.empty() ? NewId("session") : spec.id;
    if (server.sessionProject.count(session.id))
        throw std::invalid_argument("session id " + session.id + " is taken");
    session.user = user->spec.login;
    session.attributes = spec.attributes;
    EnsureMember(project, user->spec.login);
    project.sessionUsers.insert(FoldKey(session.user));
    server.sessionProject.emplace(session.id, project.id);
    project.sessions.push_back(std::move(session));
    return project.sessions.back().id;
}

}  // namespace Emulator::Internal
