#include "KRClient/UserInterface/Login/UILoginDataStore.h"

#include "KRClient/Internal/ServerUrl.h"
#include "KRClient/KRClientExceptions.h"
#include "ZR/Logger.h"

namespace KRC::UI::Login {

namespace LDS = KRCB::LoginDataStore;

namespace {

const ZR::WarningLogLine kCheckSaveFailed(
    "Login data store: saving the cached login data failed: %");

LDS::LoginDataStoreCache& Cache() {
    return LDS::LoginDataStoreCache::GetInstance();
}
LDS::ConnectionStatusStore& Status() {
    return LDS::ConnectionStatusStore::GetInstance();
}

}  // namespace

int UILoginDataStore::ToCacheOpenMethod(OpenMethod method) {
    return method == ForWriting ? LDS::OpenForWriting : LDS::OpenForReading;
}

UILoginDataStore::UILoginDataStore(OpenMethod openMethod)
    : mStore(Cache().GetLoginDataStoreCopy(ToCacheOpenMethod(openMethod))),
      mOpenMethod(openMethod) {
    if (mStore) LDS::ActiveConnection::GetInstance().GetActiveConnection(*mStore);
}

UILoginDataStore::~UILoginDataStore() {
    try {
        Cache().CheckSave();
    } catch (const ZR::ZRException& e) {
        ZR::FastLogger::LogComposer composer;
        ZR::logger.Append(kCheckSaveFailed, composer);
        composer.Append(e.GetMessage());
    }
}

void UILoginDataStore::AddClientConnections(const ZR::UniString& server,
                                            const ZR::PagedArray<ZR::UniString>& connections) {
    Store().AddClientConnections(server, connections);
    mChanged = true;
}

void UILoginDataStore::AddUser(const ZR::UniString& server, const User& user) {
    Store().AddUser(server, user);
    mChanged = true;
}

void UILoginDataStore::SetActiveUser(const ZR::UniString& server, const ZR::UniString& user) {
    Store().SetActiveUser(server, user);
    mChanged = true;
}

void UILoginDataStore::SetServerActive(const ZR::UniString& server) {
    Store().SetServerActive(server);
    mChanged = true;
}

void UILoginDataStore::SetUserFullName(const ZR::UniString& server, const ZR::UniString& user,
                                       const ZR::UniString& fullName) {
    Store().SetFullName(server, user, fullName);
    mChanged = true;
}

void UILoginDataStore::SetUserRefreshToken(const ZR::UniString& server, const ZR::UniString& user,
                                           const ZR::UniString& token) {
    Store().SetRefreshToken(server, user, token);
    mChanged = true;
}

void UILoginDataStore::AddServer(const ZR::Ref<ServerInfo, ZR::AtomicCounter>& serverInfo,
                                 const ZR::UniString& url) {
    if (serverInfo.IsNull())
        throw KRClientException("Failed to add server. Server information is nullptr", ZR_HERE,
                                ZR::kGeneralErrorCode);
    // The test works on a lower-cased copy; the store gets the URLs unchanged.
    ZR::UniString checked =
        (serverInfo->uniqueURL.IsEmpty() ? url : serverInfo->uniqueURL).ToLowerCase();
    if (!checked.BeginsWith("http://") && !checked.BeginsWith("https://"))
        throw KRClientException("Failed to add server. Invalid Unique Server URL", ZR_HERE,
                                ZR::kGeneralErrorCode);
    // A password in the URL would be stored and shown wherever the server is.
    if (ServerUrlHasUserInfo(checked) || ServerUrlHasUserInfo(url))
        throw KRClientException("Failed to add server. The URL holds a user name or password",
                                ZR_HERE, ZR::kGeneralErrorCode);
    Store().StoreServer(*serverInfo, url, ZR::UniString());
    Cache().UpdateFriendlyName(serverInfo->uniqueURL, serverInfo->friendlyName, true);
    mChanged = true;
}

void UILoginDataStore::DeleteServer(const ZR::UniString& server) {
    Status().ClearPortalServerStatus(server);
    Store().DeleteServer(server);
    mChanged = true;
}

void UILoginDataStore::DeleteUser(const ZR::UniString& server, const ZR::UniString& user) {
    Status().ClearUserStatus(server, user);
    Store().DeleteUser(server, user);
    mChanged = true;
}

bool UILoginDataStore::ContainsServer(const ZR::UniString& server) const {
    return Store().ContainsServer(server);
}

bool UILoginDataStore::ContainsUser(const ZR::UniString& server, const ZR::UniString& user) const {
    return Store().ContainsUser(server, user);
}

const UILoginDataStore::Server& UILoginDataStore::GetActiveServer() const {
    return Store().GetActiveServer();
}

const UILoginDataStore::User& UILoginDataStore::GetActiveUser(const ZR::UniString& server) const {
    return Store().GetActiveUser(server);
}

const UILoginDataStore::Server& UILoginDataStore::GetServer(const ZR::UniString& server) const {
    return Store().GetServer(server);
}

void UILoginDataStore::GetServers(ZR::PagedArray<Server>& servers) const {
    Store().GetServers(servers);
}

void UILoginDataStore::GetUsers(const ZR::UniString& server, ZR::PagedArray<User>& users) const {
    Store().GetUsers(server, users);
}

const ZR::UniString& UILoginDataStore::GetUserFullName(const ZR::UniString& server,
                                                       const ZR::UniString& user) const {
    return Store().GetFullName(server, user);
}

const ZR::UniString& UILoginDataStore::GetUserRefreshToken(const ZR::UniString& server,
                                                           const ZR::UniString& user) const {
    return Store().GetRefreshToken(server, user);
}

bool UILoginDataStore::HasActiveServer() const {
    return Store().HasActiveServer();
}

bool UILoginDataStore::HasActiveUser(const ZR::UniString& server) const {
    return Store().HasActiveUser(server);
}

bool UILoginDataStore::IsSameServers(const ZR::UniString& a, const ZR::UniString& b) const {
    return Store().IsSameServers(a, b);
}

bool UILoginDataStore::HasServer() const {
    return Store().GetServerCount() != 0;
}

bool UILoginDataStore::HasAnyUsers() const {
    return HasActiveServer();
}

bool UILoginDataStore::HasActiveConnection() const {
    return Store().HasActiveServer() && Store().GetActiveServer().HasActiveUser();
}

bool UILoginDataStore::IsEmpty() const {
    return mStore.IsNull() || mStore->IsEmpty();
}

int UILoginDataStore::GetServerVersion(const ZR::UniString& server) const {
    const Server& s = Store().GetServer(server);
    return s.GetMajorVersion() * 100 + s.GetMinorVersion();
}

const ZR::UniString& UILoginDataStore::GetServerFriendlyName(const ZR::UniString& server) const {
    const LDS::LoginDataStore& store = Store();
    if (!store.ContainsServer(server)) return server;
    const ZR::UniString& name = store.GetFriendlyName(server);
    return name.IsEmpty() ? server : name;
}

void UILoginDataStore::Reload(bool keepActiveServer) {
    const LDS::LoginDataStore& old = Store();
    ZR::UniString remembered;
    if (keepActiveServer && old.HasActiveServer())
        remembered = old.GetActiveServer().GetUniqueURL();

    mStore = Cache().GetLoginDataStoreCopy(ToCacheOpenMethod(mOpenMethod));
    if (mStore.IsNull()) return;
    LDS::ActiveConnection::GetInstance().GetActiveConnection(*mStore);
    if (!remembered.IsEmpty() && mStore->ContainsServer(remembered))
        mStore->SetServerActive(remembered);
}

bool UILoginDataStore::Write() const {
    if (!mChanged) {
        Cache().CheckSave();
        return true;
    }
    try {
        Cache().SaveToFile(Store());
    } catch (const ZR::ZRException&) {
        return false;
    }
    return true;
}

ZR::UniString UILoginDataStore::GetStatusStoredPortalServerUrl(const ZR::UniString& url) const {
    const LDS::ConnectionStatusStore& status = Status();
    if (status.ContainsPortalServerStatus(url)) return url;
    if (mStore.IsNull() || !mStore->ContainsServer(url)) return url;
    const Server& server = mStore->GetServer(url);
    if (status.ContainsPortalServerStatus(server.GetUniqueURL())) return server.GetUniqueURL();
    for (const ZR::UniString& candidate : server.GetCommonConnections())
        if (status.ContainsPortalServerStatus(candidate)) return candidate;
    for (const ZR::UniString& candidate : server.GetClientConnections())
        if (status.ContainsPortalServerStatus(candidate)) return candidate;
    return url;
}

void UILoginDataStore::SetPortalServerStatus(
    const ZR::UniString& server, KRCB::LoginDataStore::PortalServerStatus::Status status) {
    Status().SetPortalServerStatus(GetStatusStoredPortalServerUrl(server), status);
}

KRCB::LoginDataStore::PortalServerStatus::Status UILoginDataStore::GetPortalServerStatus(
    const ZR::UniString& server) const {
    return Status().GetPortalServerStatus(GetStatusStoredPortalServerUrl(server));
}

void UILoginDataStore::ClearPortalServerStatus(const ZR::UniString& server) {
    Status().ClearPortalServerStatus(GetStatusStoredPortalServerUrl(server));
}

void UILoginDataStore::SetUserAccessed(const ZR::UniString& server, const ZR::UniString& user) {
    Status().SetUserStatus(GetStatusStoredPortalServerUrl(server), user, LDS::UserStatus::Accessed);
}

void UILoginDataStore::SetUserAccessDenied(const ZR::UniString& server, const ZR::UniString& user) {
    Status().SetUserStatus(GetStatusStoredPortalServerUrl(server), user,
                           LDS::UserStatus::AccessDenied);
}

KRCB::LoginDataStore::UserStatus::Status UILoginDataStore::GetUserStatus(
    const ZR::UniString& server, const ZR::UniString& user) const {
    return Status().GetUserStatus(GetStatusStoredPortalServerUrl(server), user);
}

void UILoginDataStore::ClearUserStatus(const ZR::UniString& server, const ZR::UniString& user) {
    Status().ClearUserStatus(GetStatusStoredPortalServerUrl(server), user);
}

void UILoginDataStore::ClearConnectionStatusStore() {
    Status().Clear();
}

}  // namespace KRC::UI::Login
