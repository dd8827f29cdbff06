#include "KRCB/LoginDataStore.h"

#include <algorithm>

#include "KRCB/Paths.h"

namespace KRCB::LoginDataStore {

namespace {

// URLs in messages never show a user name or password.
std::string Shown(const ZR::UniString& url) {
    return WithoutUserInfo(url).Std();
}

[[noreturn]] void ThrowMissingServer(const char* operation, const ZR::UniString& url,
                                     const char* file, unsigned int line) {
    throw LoginDataStoreException(ZR::UniString(std::string("Failed to ") + operation +
                                                ". Unknown server \"" + Shown(url) + "\"."),
                                  file, line);
}

[[noreturn]] void ThrowMissingUser(const char* operation, const ZR::UniString& url,
                                   const ZR::UniString& user, const char* file, unsigned int line) {
    throw LoginDataStoreException(
        ZR::UniString(std::string("Failed to ") + operation + ". Unknown user \"" + user.Std() +
                      "\" on server \"" + Shown(url) + "\"."),
        file, line);
}

// Checked before anything changes, so a refused call leaves the store as it was.
void RequireNoUserInfo(const char* operation, const ZR::UniString& url) {
    if (!HasUserInfo(url)) return;
    throw LoginDataStoreException(
        ZR::UniString(std::string("Failed to ") + operation + ". The URL \"" + Shown(url) +
                      "\" carries a user name or password; give the bare server URL."),
        ZR_HERE);
}

bool AnyMatches(const ZR::PagedArray<ZR::UniString>& urls, const ZR::UniString& url) {
    for (const ZR::UniString& candidate : urls)
        if (IsSameServerUrl(candidate, url)) return true;
    return false;
}

}  // namespace

ZR::UniString NormalizeServerUrl(const ZR::UniString& url) {
    std::string text = url.Std();
    while (!text.empty() && text.back() == '/') text.pop_back();
    return ZR::UniString(std::move(text));
}

bool IsSameServerUrl(const ZR::UniString& a, const ZR::UniString& b) {
    ZR::UniString na = NormalizeServerUrl(a);
    // An empty URL names no server, not even another empty one.
    if (na.IsEmpty()) return false;
    return na.IsEqual(NormalizeServerUrl(b), ZR::kIgnoreCase);
}

bool User::IsUser(const ZR::UniString& userName) const {
    return !userName.IsEmpty() && mUserName.IsEqual(userName, ZR::kIgnoreCase);
}

const User& Server::GetActiveUser() const {
    if (const User* user = FindUser(mActiveUser)) return *user;
    throw LoginDataStoreException(ZR::UniString("Failed to get the active user. Server \"" +
                                                Shown(mUniqueURL) + "\" has none."),
                                  ZR_HERE);
}

bool Server::HasUrl(const ZR::UniString& url) const {
    return IsSameServerUrl(mUniqueURL, url) || AnyMatches(mCommonConnections, url) ||
           AnyMatches(mClientConnections, url);
}

const User* Server::FindUser(const ZR::UniString& userName) const {
    for (const User& user : mUsers)
        if (user.IsUser(userName)) return &user;
    return nullptr;
}

User* Server::FindUser(const ZR::UniString& userName) {
    for (User& user : mUsers)
        if (user.IsUser(userName)) return &user;
    return nullptr;
}

bool Server::AddCommonConnection(const ZR::UniString& url) {
    if (url.IsEmpty() || HasUrl(url)) return false;
    mCommonConnections.Add(url);
    return true;
}

bool Server::AddClientConnection(const ZR::UniString& url) {
    if (url.IsEmpty() || HasUrl(url)) return false;
    mClientConnections.Add(url);
    return true;
}

void Server::PutUser(const User& user) {
    if (User* existing = FindUser(user.GetUserName()))
        *existing = user;
    else
        mUsers.Add(user);
}

bool Server::RemoveUser(const ZR::UniString& userName) {
    auto& users = mUsers.Std();
    for (std::size_t i = 0; i < users.size(); ++i) {
        if (!users[i].IsUser(userName)) continue;
        if (users[i].IsUser(mActiveUser)) mActiveUser.Clear();
        mUsers.Remove(i);
        return true;
    }
    return false;
}

// --- LoginDataStore ---------------------------------------------------------

std::string UrlKey(const ZR::UniString& url) {
    return NormalizeServerUrl(url).FoldCase().Std();
}

bool LoginDataStore::operator==(const LoginDataStore& other) const {
    return mServers == other.mServers && mActiveServer == other.mActiveServer;
}

std::size_t LoginDataStore::IndexOf(const ZR::UniString& url) const {
    // The unique URL wins over another server's secondary address.
    std::string key = UrlKey(url);
    if (key.empty()) return kNone;
    if (auto it = mByUniqueUrl.find(key); it != mByUniqueUrl.end()) return it->second;
    if (auto it = mByAnyUrl.find(key); it != mByAnyUrl.end()) return it->second;
    return kNone;
}

void LoginDataStore::NoteUrl(const ZR::UniString& url, std::size_t i, bool unique) {
    std::string key = UrlKey(url);
    if (key.empty()) return;
    for (auto* map : {unique ? &mByUniqueUrl : nullptr, &mByAnyUrl}) {
        if (!map) continue;
        auto [it, added] = map->emplace(key, i);
        if (!added && i < it->second) it->second = i;
    }
}

void LoginDataStore::IndexServer(std::size_t i) {
    const Server& server = mServers[i];
    NoteUrl(server.mUniqueURL, i, true);
    for (const ZR::UniString& url : server.mCommonConnections) NoteUrl(url, i, false);
    for (const ZR::UniString& url : server.mClientConnections) NoteUrl(url, i, false);
}

void LoginDataStore::RebuildIndex() {
    mByUniqueUrl.clear();
    mByAnyUrl.clear();
    for (std::size_t i = 0; i < mServers.GetSize(); ++i) IndexServer(i);
}

const Server* LoginDataStore::FindServer(const ZR::UniString& url) const {
    std::size_t i = IndexOf(url);
    return i == kNone ? nullptr : &mServers[i];
}

Server& LoginDataStore::ServerFor(const ZR::UniString& url, const char* operation) {
    std::size_t i = IndexOf(url);
    if (i == kNone) ThrowMissingServer(operation, url, ZR_HERE);
    return mServers[i];
}

const Server& LoginDataStore::ServerFor(const ZR::UniString& url, const char* operation) const {
    std::size_t i = IndexOf(url);
    if (i == kNone) ThrowMissingServer(operation, url, ZR_HERE);
    return mServers[i];
}

void LoginDataStore::AddClientConnections(const ZR::UniString& server,
                                          const ZR::PagedArray<ZR::UniString>& connections) {
    std::size_t i = IndexOf(server);
    if (i == kNone) ThrowMissingServer("add client connections", server, ZR_HERE);
    for (const ZR::UniString& url : connections) RequireNoUserInfo("add client connections", url);
    for (const ZR::UniString& url : connections)
        if (mServers[i].AddClientConnection(url)) NoteUrl(url, i, false);
}

void LoginDataStore::AddUser(const ZR::UniString& server, const User& user) {
    if (user.GetUserName().IsEmpty())
        throw LoginDataStoreException("Failed to add user. The user name is empty.", ZR_HERE);
    ServerFor(server, "add user").PutUser(user);
}

void LoginDataStore::SetActiveUser(const ZR::UniString& server, const ZR::UniString& user) {
    std::size_t i = IndexOf(server);
    if (i == kNone) ThrowMissingServer("set the active user", server, ZR_HERE);
    const User* found = mServers[i].FindUser(user);
    if (!found) ThrowMissingUser("set the active user", server, user, ZR_HERE);
    mServers[i].SetActiveUserName(found->GetUserName());
    mActiveServer = i;
}

void LoginDataStore::SetServerActive(const ZR::UniString& server) {
    std::size_t i = IndexOf(server);
    if (i == kNone) ThrowMissingServer("set the active server", server, ZR_HERE);
    mActiveServer = i;
}

void LoginDataStore::SetFullName(const ZR::UniString& server, const ZR::UniString& user,
                                 const ZR::UniString& fullName) {
    User* found = ServerFor(server, "set the full name").FindUser(user);
    if (!found) ThrowMissingUser("set the full name", server, user, ZR_HERE);
    found->SetFullName(fullName);
}

void LoginDataStore::SetRefreshToken(const ZR::UniString& server, const ZR::UniString& user,
                                     const ZR::UniString& token) {
    User* found = ServerFor(server, "set the refresh token").FindUser(user);
    if (!found) ThrowMissingUser("set the refresh token", server, user, ZR_HERE);
    found->SetRefreshToken(token);
}

void LoginDataStore::SetFriendlyName(const ZR::UniString& server, const ZR::UniString& name) {
    ServerFor(server, "set the friendly name").SetFriendlyName(name);
}

bool LoginDataStore::StoreServer(const Kerrow::PortalServer::Client::Management::ServerInfo& info,
                                 const ZR::UniString& url, const ZR::UniString& clientConnection) {
    const ZR::UniString& unique = info.uniqueURL.IsEmpty() ? url : info.uniqueURL;
    if (unique.IsEmpty())
        throw LoginDataStoreException("Failed to store server. It has no URL.", ZR_HERE);
    for (const ZR::UniString* u : {&info.uniqueURL, &url, &clientConnection})
        RequireNoUserInfo("store server", *u);

    std::size_t i = IndexOf(unique);
    if (i == kNone) i = IndexOf(url);
    bool added = i == kNone;
    // Whatever a server reports, the file must read back.
    auto version = [](int v) { return std::clamp(v, 0, kMaxVersionNumber); };
    int major = version(info.majorVersion), minor = version(info.minorVersion);
    if (added) {
        mServers.Add(Server(unique, info.friendlyName, major, minor));
        i = mServers.GetSize() - 1;
        NoteUrl(unique, i, true);
    } else {
        if (!info.friendlyName.IsEmpty()) mServers[i].SetFriendlyName(info.friendlyName);
        mServers[i].SetVersion(major, minor);
    }
    if (mServers[i].AddCommonConnection(url)) NoteUrl(url, i, false);
    if (mServers[i].AddClientConnection(clientConnection)) NoteUrl(clientConnection, i, false);
    return added;
}

void LoginDataStore::DeleteServer(const ZR::UniString& server) {
    std::size_t i = IndexOf(server);
    if (i == kNone) ThrowMissingServer("delete server", server, ZR_HERE);
    mServers.Remove(i);
    RebuildIndex();
    if (mActiveServer == i)
        mActiveServer = kNone;
    else if (mActiveServer != kNone && mActiveServer > i)
        --mActiveServer;
}

void LoginDataStore::DeleteUser(const ZR::UniString& server, const ZR::UniString& user) {
    if (!ServerFor(server, "delete user").RemoveUser(user))
        ThrowMissingUser("delete user", server, user, ZR_HERE);
}

bool LoginDataStore::ContainsUser(const ZR::UniString& server, const ZR::UniString& user) const {
    const Server* s = FindServer(server);
    return s && s->ContainsUser(user);
}

bool LoginDataStore::HasActiveUser(const ZR::UniString& server) const {
    const Server* s = FindServer(server);
    return s && s->HasActiveUser();
}

bool LoginDataStore::IsSameServers(const ZR::UniString& a, const ZR::UniString& b) const {
    std::size_t ia = IndexOf(a);
    if (ia != kNone) return ia == IndexOf(b);
    return IsSameServerUrl(a, b);
}

const Server& LoginDataStore::GetActiveServer() const {
    if (mActiveServer == kNone)
        throw LoginDataStoreException("Failed to get the active server. There is none.", ZR_HERE);
    return mServers[mActiveServer];
}

const User& LoginDataStore::GetActiveUser(const ZR::UniString& server) const {
    return ServerFor(server, "get the active user").GetActiveUser();
}

const Server& LoginDataStore::GetServer(const ZR::UniString& server) const {
    return ServerFor(server, "get server");
}

void LoginDataStore::GetServers(ZR::PagedArray<Server>& out) const {
    out = mServers;
}

void LoginDataStore::GetUsers(const ZR::UniString& server, ZR::PagedArray<User>& out) const {
    out = ServerFor(server, "get users").GetUsers();
}

const ZR::UniString& LoginDataStore::GetFullName(const ZR::UniString& server,
                                                 const ZR::UniString& user) const {
    const User* found = ServerFor(server, "get the full name").FindUser(user);
    if (!found) ThrowMissingUser("get the full name", server, user, ZR_HERE);
    return found->GetFullName();
}

const ZR::UniString& LoginDataStore::GetRefreshToken(const ZR::UniString& server,
                                                     const ZR::UniString& user) const {
    const User* found = ServerFor(server, "get the refresh token").FindUser(user);
    if (!found) ThrowMissingUser("get the refresh token", server, user, ZR_HERE);
    return found->GetRefreshToken();
}

const ZR::UniString& LoginDataStore::GetFriendlyName(const ZR::UniString& server) const {
    return ServerFor(server, "get the friendly name").GetFriendlyName();
}

}  // namespace KRCB::LoginDataStore
