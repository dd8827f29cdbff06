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

std::string FolderId(const std::string& path) {
    // FNV-1a over the case-folded path: folders differ in more than case.
    std::uint64_t hash = 0xcbf29ce484222325ULL;
    const ZR::UniString folded = ZR::UniString(path).FoldCase();
    for (unsigned char c : folded.Std()) {
        hash ^= c;
        hash *= 0x100000001b3ULL;
    }
    char buffer[32];
    std::snprintf(buffer, sizeof buffer, "folder-%012llx",
                  static_cast<unsigned long long>(hash & 0xffffffffffffULL));
    return buffer;
}

Server* State::FindServer(const std::string& url) {
    for (Server& server : servers)
        if (KRCB::IsEqualServerUrls(ZR::UniString(server.spec.url), ZR::UniString(url), true))
            return &server;
    return nullptr;
}

Server& State::RequireServer(const std::string& url) {
    Server* server = FindServer(url);
    if (!server) throw std::invalid_argument("no server " + url);
    return *server;
}

User* State::FindUser(Server& server, const std::string& login) {
    for (User& user : server.users)
        if (SameText(user.spec.login, login)) return &user;
    return nullptr;
}

User* State::FindUserById(Server& server, const std::string& id) {
    for (User& user : server.users)
        if (user.spec.id == id) return &user;
    return nullptr;
}

Project* State::FindProjectByPath(Server& server, const std::string& path) {
    for (Project& project : server.projects)
        if (SameText(project.path, path)) return &project;
    return nullptr;
}

Project* State::FindProjectById(Server& server, const std::string& id) {
    for (Project& project : server.projects)
        if (project.id == id) return &project;
    return nullptr;
}

Project& State::RequireProject(Server& server, const std::string& path) {
    Project* project = FindProjectByPath(server, path);
    if (!project) throw std::invalid_argument("no project at " + path + " on " + server.spec.url);
    return *project;
}

Session* State::FindSession(Server& server, const std::string& sessionId, Project** project) {
    for (Project& p : server.projects)
        for (Session& session : p.sessions)
            if (session.id == sessionId) {
                if (project) *project = &p;
                return &session;
            }
    return nullptr;
}

const ModelServerSpec* State::FindModelServer(const Server& server, const std::string& id) const {
    for (const ModelServerSpec& ms : server.modelServers)
        if (ms.id == id) return &ms;
    return nullptr;
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
    if (FindServer(spec.url)) throw std::invalid_argument("server " + spec.url + " exists");
    Server server;
    server.spec = spec;
    servers.push_back(std::move(server));
}

std::string State::AddUser(Server& server, UserSpec spec) {
    if (spec.login.empty()) throw std::invalid_argument("a user needs a login");
    if (FindUser(server, spec.login)) throw std::invalid_argument("user " + spec.login + " exists");
    if (spec.id.empty()) spec.id = NewId("user");
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
    return server.users.back().spec.id;
}

void State::AddModelServer(Server& server, const ModelServerSpec& spec) {
    if (spec.id.empty()) throw std::invalid_argument("a model server needs an id");
    if (FindModelServer(server, spec.id))
        throw std::invalid_argument("model server " + spec.id + " exists");
    server.modelServers.push_back(spec);
}

void State::AddFolder(Server& server, const std::string& path) {
    CheckPath(path, "folder");
    for (const std::string& folder : server.folders)
        if (SameText(folder, path)) throw std::invalid_argument("folder " + path + " exists");
    server.folders.push_back(path);
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
    for (const Project& other : server.projects)
        if (other.id == project.id)
            throw std::invalid_argument("project id " + project.id + " is taken");
    project.path = spec.path;
    project.modelServer = spec.modelServer;
    project.state = spec.state;
    project.permissions = spec.permissions;
    server.projects.push_back(std::move(project));
    Project& added = server.projects.back();
    try {
        for (const MemberSpec& member : spec.members) {
            if (!FindUser(server, member.user))
                throw std::invalid_argument("no user " + member.user);
            for (const MemberSpec& other : added.members)
                if (SameText(other.user, member.user))
                    throw std::invalid_argument(member.user + " is a member already");
            EnsureMember(added, FindUser(server, member.user)->spec.login, member.userId);
        }
        for (const SessionSpec& session : spec.sessions) AddSession(server, added, session);
    } catch (...) {
        server.projects.pop_back();
        throw;
    }
    return added.id;
}

std::int16_t State::EnsureMember(Project& project, const std::string& login, std::int16_t userId) {
    std::int16_t highest = 0;
    for (const MemberSpec& member : project.members) {
        if (SameText(member.user, login)) return member.userId;
        highest = std::max(highest, member.userId);
        if (userId != 0 && member.userId == userId)
            throw std::invalid_argument("short user id " + std::to_string(userId) + " is taken");
    }
    if (userId < 0) throw std::invalid_argument("a short user id is 1 to 32767");
    if (userId == 0) {
        if (highest == INT16_MAX) throw std::invalid_argument("no short user id left");
        userId = static_cast<std::int16_t>(highest + 1);
    }
    project.members.push_back(MemberSpec{login, userId});
    return userId;
}

std::string State::AddSession(Server& server, Project& project, const SessionSpec& spec) {
    User* user = FindUser(server, spec.user);
    if (!user) throw std::invalid_argument("no user " + spec.user);
    for (const Session& session : project.sessions)
        if (SameText(session.user, spec.user))
            throw std::invalid_argument(spec.user + " has a session in " + project.path);
    Session session;
    session.id = spec.id.empty() ? NewId("session") : spec.id;
    if (FindSession(server, session.id, nullptr))
        throw std::invalid_argument("session id " + session.id + " is taken");
    session.user = user->spec.login;
    session.attributes = spec.attributes;
    EnsureMember(project, user->spec.login);
    project.sessions.push_back(std::move(session));
    return project.sessions.back().id;
}

}  // namespace Emulator::Internal
