// The record's token and server name live in the login data store.

#include "KRCB/LoginDataStore.h"
#include "KRClient/CachedProjectInfo.h"
#include "KRClient/UserInterface/Login/UILoginDataStore.h"

namespace KRC {

using UI::Login::UILoginDataStore;

ZR::UniString CachedProjectInfo::GetRefreshToken() const {
    UILoginDataStore store(UILoginDataStore::ForReading);
    if (store.ContainsServer(portalServerUrl) && store.ContainsUser(portalServerUrl, loginName))
        return store.GetUserRefreshToken(portalServerUrl, loginName);
    return ZR::UniString();
}

void CachedProjectInfo::SetRefreshToken(const ZR::UniString& token) {
    UILoginDataStore store(UILoginDataStore::ForWriting);
    // A token is kept only for a server the user has logged in to.
    if (!store.ContainsServer(portalServerUrl)) return;
    bool different = true;
    try {
        if (store.ContainsUser(portalServerUrl, loginName)) {
            different = store.GetUserRefreshToken(portalServerUrl, loginName) != token;
            store.SetUserRefreshToken(portalServerUrl, loginName, token);
        } else {
            store.AddUser(portalServerUrl, KRCB::LoginDataStore::User(loginName, token, ""));
        }
    } catch (const KRCB::LoginDataStore::LoginDataStoreException&) {
    }
    if (different) store.Write();
}

bool CachedProjectInfo::SetProjectConnectionInfoInner(const ProjectConnectionInfo& info) {
    bool changed = false;
    if (!portalServerUrl.IsEqual(info.GetServerUrl(), ZR::kIgnoreCase)) {
        portalServerUrl = info.GetServerUrl();
        changed = true;
    }
    if (projectPath != info.GetProjectPath()) {
        projectPath = info.GetProjectPath();
        changed = true;
    }
    if (!loginName.IsEqual(info.GetUserName(), ZR::kIgnoreCase)) {
        loginName = info.GetUserName();
        changed = true;
    }
    SetRefreshToken(info.GetRefreshToken());

    UILoginDataStore store(UILoginDataStore::ForReading);
    if (store.ContainsServer(portalServerUrl)) {
        ZR::UniString friendly = store.GetServerFriendlyName(portalServerUrl);
        if (friendly != serverName) {
            serverName = friendly;
            changed = true;
        }
    }
    return changed;
}

}  // namespace KRC
