#include "KRClient/UserInterface/ServerLookup.h"

#include "IO/File.h"
#include "IO/URI.h"
#include "KRCB/LoginDataStore.h"
#include "KRCB/Paths.h"
#include "KRCB/SignalClient.h"
#include "KRClient/KRClient.h"
#include "KRClient/MailClient/UserContact.h"
#include "Network/Network.h"

namespace KRC {

bool GetServerUrl(const ZR::UniString& input, ZR::UniString& url) {
    ZR::UniString text = input;
    if (!text.IsEmpty()) {
        if (text.Std().find("://") == std::string::npos) text = ZR::UniString("http://") + text;
        IO::URI::URI uri(text);
        const ZR::UniString& host = uri.GetHost();
        const bool local =
            host.IsEqual("localhost", ZR::kIgnoreCase) || host == "127.0.0.1" || host == "::1";
        if (local) {
            ZR::UniString name = Network::Socket::InternetAddress::GetLocalHostName();
            if (!name.IsEmpty()) uri.SetHost(name);
        }
        text = uri.ToString(1);
    }
    url = text;
    return true;
}

bool GetServerLocation(const ZR::UniString& serverUrl, IO::Location& location) {
    ZR::Ref<KRCB::LoginDataStore::LoginDataStore> store =
        KRCB::LoginDataStore::LoginDataStoreCache::GetInstance().GetLoginDataStore(
            KRCB::LoginDataStore::OpenForReading);
    if (!store->ContainsServer(serverUrl)) return false;
    KRCB::LoginDataStore::Server server = store->GetServer(serverUrl);
    if (!server.HasActiveUser()) return false;
    const KRCB::LoginDataStore::User& user = server.GetActiveUser();
    KRCB::CreateServerLocation(location, serverUrl, user.GetUserName(), user.GetRefreshToken());
    return true;
}

bool GetServerFriendlyName(const ZR::UniString& serverUrl, ZR::UniString& name) {
    return KRCB::LoginDataStore::LoginDataStoreCache::GetInstance().GetFriendlyName(serverUrl,
                                                                                    name);
}

bool GetServerFriendlyName(const IO::Location& location, ZR::UniString& name) {
    try {
        return GetServerFriendlyName(KRCB::GetPortalServerUrl(location), name);
    } catch (const ZR::ZRException& e) {
        DebugPrintEx(e);
        return false;
    }
}

bool GetUserFullName(const ZR::UniString& serverUrl, const ZR::UniString& userName,
                     ZR::UniString& fullName) {
    return KRCB::LoginDataStore::LoginDataStoreCache::GetInstance().GetFullName(serverUrl, userName,
                                                                                fullName);
}

bool GetUserFullName(const IO::Location& location, ZR::UniString& fullName) {
    try {
        return GetUserFullName(KRCB::GetPortalServerUrl(location), location.GetUserName(),
                               fullName);
    } catch (const ZR::ZRException& e) {
        DebugPrintEx(e);
        return false;
    }
}

UserStatus GetUserStatus(const KRCB::SignalClient* signalClient,
                         const Mailbox::UserContact* contact) {
    if (!signalClient || !contact) return UserOffline;
    if (signalClient->IsOnline(contact->GetUserName())) return UserOnline;
    if (contact->HasActiveMobilMailboxSession())
        return contact->HasLumbraMailboxSession() ? UserOnMobileAlso : UserOnMobile;
    if (contact->HasLumbraMailboxSession()) return UserOffline;
    return contact->HasMobilMailboxSession() ? UserMobileOffline : UserOffline;
}

namespace {

bool HasAll(const ZR::HashSet<KRCB::PermissionID>* permissions,
            std::initializer_list<KRCB::PermissionID> ids) {
    if (!permissions) return false;
    for (KRCB::PermissionID id : ids)
        if (!permissions->Contains(id)) return false;
    return true;
}

}  // namespace

bool HasLibraryDeletePermission(const ZR::HashSet<KRCB::PermissionID>* permissions) {
    return HasAll(permissions, {2001, 2002, 2005, 2006});
}

bool HasLibraryDeleteFromFolderPermission(const ZR::HashSet<KRCB::PermissionID>* permissions) {
    return HasLibraryDeletePermission(permissions);
}

bool HasLibraryModifyPermission(const ZR::HashSet<KRCB::PermissionID>* permissions) {
    return HasAll(permissions, {2001, 2002, 2005});
}

bool HasLibraryModifyInFolderPermission(const ZR::HashSet<KRCB::PermissionID>* permissions) {
    return HasLibraryModifyPermission(permissions);
}

bool HasLibraryUploadToFolderPermission(const ZR::HashSet<KRCB::PermissionID>* permissions) {
    return HasLibraryModifyPermission(permissions);
}

ZR::UniString GetRootFolderId() {
    return "projectRoot";
}

IO::Location GetRoamingProfileFolderLocation() {
    IO::Location location;
    if (IO::fileSystem.GetSpecialLocation(IO::kRoamingProfileFolder, &location) != IO::kOk)
        return location;
    return location + IO::Name(ZR::UniString("ZARVEL"));
}

}  // namespace KRC
