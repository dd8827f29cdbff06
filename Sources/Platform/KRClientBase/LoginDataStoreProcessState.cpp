// Login state of this process alone: the active connection and the connection
// status of servers and users. Neither is ever written to disc.

#include "KRCB/LoginDataStore.h"

namespace KRCB::LoginDataStore {

ActiveConnection& ActiveConnection::GetInstance() {
    static ActiveConnection instance;
    return instance;
}

void ActiveConnection::Set(const ZR::UniString& serverUrl, const ZR::UniString& userName) {
    std::lock_guard<std::mutex> lock(mMutex);
    mData = ZR::Ref<ActiveConnectionData>::Make(serverUrl, userName, ZR::UniString());
}

void ActiveConnection::SetPassword(const ZR::Ref<ActiveConnectionData>& data) {
    std::lock_guard<std::mutex> lock(mMutex);
    mData = data;
}

void ActiveConnection::Clear() {
    std::lock_guard<std::mutex> lock(mMutex);
    mData.Reset();
}

bool ActiveConnection::IsSet() const {
    std::lock_guard<std::mutex> lock(mMutex);
    return !mData.IsNull();
}

ZR::Ref<ActiveConnectionData> ActiveConnection::Get() const {
    std::lock_guard<std::mutex> lock(mMutex);
    return mData;
}

void ActiveConnection::GetActiveConnection(LoginDataStore& store) const {
    ZR::Ref<ActiveConnectionData> data = Get();
    if (data.IsNull() || !store.ContainsServer(data->GetServerUrl())) return;
    if (!store.ContainsUser(data->GetServerUrl(), data->GetUserName())) {
        store.SetServerActive(data->GetServerUrl());
        return;
    }
    store.SetActiveUser(data->GetServerUrl(), data->GetUserName());
    if (!data->GetRefreshToken().IsEmpty())
        store.SetRefreshToken(data->GetServerUrl(), data->GetUserName(), data->GetRefreshToken());
}

// --- ConnectionStatusStore --------------------------------------------------

ConnectionStatusStore& ConnectionStatusStore::GetInstance() {
    static ConnectionStatusStore instance;
    return instance;
}

ZR::UniString ConnectionStatusStore::UserKey(const ZR::UniString& url, const ZR::UniString& user) {
    // A NUL can't occur in either text, so the pair stays unambiguous.
    std::string key = url.Std();
    key.push_back('\0');
    key += user.Std();
    return ZR::UniString(std::move(key));
}

bool ConnectionStatusStore::ContainsPortalServerStatus(const ZR::UniString& url) const {
    std::lock_guard<std::mutex> lock(mMutex);
    return mServers.Contains(url);
}

void ConnectionStatusStore::SetPortalServerStatus(const ZR::UniString& url,
                                                  PortalServerStatus::Status status) {
    std::lock_guard<std::mutex> lock(mMutex);
    mServers.Set(url, status);
}

PortalServerStatus::Status ConnectionStatusStore::GetPortalServerStatus(
    const ZR::UniString& url) const {
    std::lock_guard<std::mutex> lock(mMutex);
    const PortalServerStatus::Status* status = mServers.Find(url);
    return status ? *status : PortalServerStatus::Unknown;
}

void ConnectionStatusStore::ClearPortalServerStatus(const ZR::UniString& url) {
    std::lock_guard<std::mutex> lock(mMutex);
    mServers.Remove(url);
}

bool ConnectionStatusStore::ContainsUserStatus(const ZR::UniString& url,
                                               const ZR::UniString& user) const {
    std::lock_guard<std::mutex> lock(mMutex);
    return mUsers.Contains(UserKey(url, user));
}

void ConnectionStatusStore::SetUserStatus(const ZR::UniString& url, const ZR::UniString& user,
                                          UserStatus::Status status) {
    std::lock_guard<std::mutex> lock(mMutex);
    mUsers.Set(UserKey(url, user), status);
}

UserStatus::Status ConnectionStatusStore::GetUserStatus(const ZR::UniString& url,
                                                        const ZR::UniString& user) const {
    std::lock_guard<std::mutex> lock(mMutex);
    const UserStatus::Status* status = mUsers.Find(UserKey(url, user));
    return status ? *status : UserStatus::Unknown;
}

void ConnectionStatusStore::ClearUserStatus(const ZR::UniString& url, const ZR::UniString& user) {
    std::lock_guard<std::mutex> lock(mMutex);
    mUsers.Remove(UserKey(url, user));
}

void ConnectionStatusStore::Clear() {
    std::lock_guard<std::mutex> lock(mMutex);
    mServers.Clear();
    mUsers.Clear();
}

}  // namespace KRCB::LoginDataStore
