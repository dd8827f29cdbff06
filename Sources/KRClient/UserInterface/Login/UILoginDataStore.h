#pragma once
/// @file
/// A working copy of the login data for the library and the host's dialogs,
/// with a changed flag, the checks that guard a new server, and the look-up of
/// the URL under which the per-process connection status of a server is kept.
///
/// Every operation but IsEmpty, Write and the status operations throws
/// ZR::NullReferenceException on an empty working copy (the base client isn't
/// started). No lock: one object belongs to one thread at a time.

#include "KRCB/LoginDataStore.h"
#include "KRClient/KRClientExport.h"
#include "Kerrow/ServerInfo.h"
#include "ZR/Containers.h"
#include "ZR/Ref.h"
#include "ZR/UniString.h"

namespace KRC::UI::Login {

class KRCLIENT_EXPORT UILoginDataStore {
public:
    using Server = KRCB::LoginDataStore::Server;
    using User = KRCB::LoginDataStore::User;
    using ServerInfo = Kerrow::PortalServer::Client::Management::ServerInfo;

    /// Code that goes on to Write opens ForWriting, other code ForReading.
    enum OpenMethod { ForReading = 0, ForWriting = 1 };

    explicit UILoginDataStore(OpenMethod openMethod);
    /// A copy shares the working copy.
    UILoginDataStore(const UILoginDataStore&) = default;
    UILoginDataStore& operator=(const UILoginDataStore&) = default;
    /// Lets the cache write what it holds unsaved; writes no changes of its own.
    virtual ~UILoginDataStore();

    /// Changes of the working copy; each sets changed.
    void AddClientConnections(const ZR::UniString& server,
                              const ZR::PagedArray<ZR::UniString>& connections);
    void AddUser(const ZR::UniString& server, const User& user);
    void SetActiveUser(const ZR::UniString& server, const ZR::UniString& user);
    void SetServerActive(const ZR::UniString& server);
    void SetUserFullName(const ZR::UniString& server, const ZR::UniString& user,
                         const ZR::UniString& fullName);
    void SetUserRefreshToken(const ZR::UniString& server, const ZR::UniString& user,
                             const ZR::UniString& token);
    /// Throws KRClientException for a null serverInfo or a unique URL (else url)
    /// that is no http(s) URL; the store is then unchanged.
    void AddServer(const ZR::Ref<ServerInfo, ZR::AtomicCounter>& serverInfo,
                   const ZR::UniString& url);
    /// Clear the status under the URL as given, unlike the status operations.
    void DeleteServer(const ZR::UniString& server);
    void DeleteUser(const ZR::UniString& server, const ZR::UniString& user);

    /// Questions.
    bool ContainsServer(const ZR::UniString& server) const;
    bool ContainsUser(const ZR::UniString& server, const ZR::UniString& user) const;
    const Server& GetActiveServer() const;
    const User& GetActiveUser(const ZR::UniString& server) const;
    const Server& GetServer(const ZR::UniString& server) const;
    void GetServers(ZR::PagedArray<Server>& servers) const;
    void GetUsers(const ZR::UniString& server, ZR::PagedArray<User>& users) const;
    const ZR::UniString& GetUserFullName(const ZR::UniString& server,
                                         const ZR::UniString& user) const;
    const ZR::UniString& GetUserRefreshToken(const ZR::UniString& server,
                                             const ZR::UniString& user) const;
    bool HasActiveServer() const;
    bool HasActiveUser(const ZR::UniString& server) const;
    bool IsSameServers(const ZR::UniString& a, const ZR::UniString& b) const;
    bool HasServer() const;
    /// Answers as HasActiveServer does; it counts no users.
    bool HasAnyUsers() const;
    bool HasActiveConnection() const;
    /// Accepts an empty working copy, which is empty.
    bool IsEmpty() const;
    /// Major version * 100 + minor version.
    int GetServerVersion(const ZR::UniString& server) const;
    /// The stored friendly name, else server itself (the reference passed in).
    const ZR::UniString& GetServerFriendlyName(const ZR::UniString& server) const;

    /// Takes a new copy from the cache. With keepActiveServer, the server that
    /// was active stays active in memory, if the new copy still has it.
    void Reload(bool keepActiveServer);
    /// Saves the working copy if changed (changed stays set, so every later
    /// Write saves again), else lets the cache save what it holds. False only
    /// if the save failed.
    bool Write() const;
    bool IsChanged() const { return mChanged; }

    /// Per-process connection status; kept outside the working copy, so these
    /// never set changed and accept an empty working copy.
    void SetPortalServerStatus(const ZR::UniString& server,
                               KRCB::LoginDataStore::PortalServerStatus::Status status);
    KRCB::LoginDataStore::PortalServerStatus::Status GetPortalServerStatus(
        const ZR::UniString& server) const;
    void ClearPortalServerStatus(const ZR::UniString& server);
    void SetUserAccessed(const ZR::UniString& server, const ZR::UniString& user);
    void SetUserAccessDenied(const ZR::UniString& server, const ZR::UniString& user);
    KRCB::LoginDataStore::UserStatus::Status GetUserStatus(const ZR::UniString& server,
                                                           const ZR::UniString& user) const;
    void ClearUserStatus(const ZR::UniString& server, const ZR::UniString& user);
    void ClearConnectionStatusStore();

private:
    KRCB::LoginDataStore::LoginDataStore& Store() const { return *mStore; }
    /// The URL under which the status store knows this server: the URL itself,
    /// else the first of the server's URLs that has a status.
    ZR::UniString GetStatusStoredPortalServerUrl(const ZR::UniString& url) const;
    static int ToCacheOpenMethod(OpenMethod method);

    ZR::Ref<KRCB::LoginDataStore::LoginDataStore, ZR::AtomicCounter> mStore;
    OpenMethod mOpenMethod;
    bool mChanged = false;
};

}  // namespace KRC::UI::Login
