#pragma once
/// @file
/// The remembered login data: servers a user has logged in to, their users with
/// refresh tokens, the active server and user. Kept in "LoginData.json" in the
/// base data folder (format in docs/LOGIN_DATA.md), mode 0600 in a 0700 folder,
/// since it holds tokens.
///
/// A server is found by any of its URLs: the unique URL, the common connections
/// (addresses a client used to reach it) and the client connections. URLs match
/// without regard to case and to trailing slashes. User names match without
/// regard to case as well. Operations that need a server or user that isn't
/// there throw LoginDataStoreException.
///
/// A server URL never carries a user name or password ("https://anna:pw@srv"):
/// operations that would store one throw LoginDataStoreException, and so does
/// reading a file that holds one. URLs in exception texts never show them.
///
/// LoginDataStore is a plain value without a lock; the singletons below lock
/// themselves.

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>

#include "IO/Location.h"
#include "KRCB/KRClientBaseExport.h"
#include "Kerrow/ServerInfo.h"
#include "ZR/Containers.h"
#include "ZR/Exceptions.h"
#include "ZR/Ref.h"
#include "ZR/UniString.h"

namespace KRCB::LoginDataStore {

class KRCB_EXPORT LoginDataStoreException : public ZR::ZRException {
public:
    using ZR::ZRException::ZRException;
    ZR::UniString GetName() const override { return "LoginDataStoreException"; }
    ZR::ZRException* Clone() const override { return new LoginDataStoreException(*this); }
};

/// How this process last reached a management server.
namespace PortalServerStatus {
enum Status : int {
    Unknown = 0,
    ConnectedWithoutTls = 1,
    ConnectedVerifiedTls = 2,
    ConnectedUnverifiedTls = 3,
    ConnectionFailed = 4,
    InsecureConnectionRefused = 5,
};
}  // namespace PortalServerStatus

/// How this process last fared with one user of a server.
namespace UserStatus {
enum Status : int { Unknown = 0, Accessed = 1, AccessDenied = 2 };
}  // namespace UserStatus

/// Both methods see the latest data on disc; the method tells readers from
/// writers for callers that care.
enum OpenMethod : int { OpenForReading = 0, OpenForWriting = 1 };

/// Drops trailing slashes; the form in which URLs are compared.
KRCB_EXPORT ZR::UniString NormalizeServerUrl(const ZR::UniString& url);
KRCB_EXPORT bool IsSameServerUrl(const ZR::UniString& a, const ZR::UniString& b);

class KRCB_EXPORT User {
public:
    User() = default;
    User(const ZR::UniString& userName, const ZR::UniString& refreshToken,
         const ZR::UniString& fullName)
        : mUserName(userName), mRefreshToken(refreshToken), mFullName(fullName) {}

    const ZR::UniString& GetUserName() const { return mUserName; }
    const ZR::UniString& GetRefreshToken() const { return mRefreshToken; }
    const ZR::UniString& GetFullName() const { return mFullName; }
    bool HasRefreshToken() const { return !mRefreshToken.IsEmpty(); }
    bool IsUser(const ZR::UniString& userName) const;

    void SetRefreshToken(const ZR::UniString& token) { mRefreshToken = token; }
    void SetFullName(const ZR::UniString& fullName) { mFullName = fullName; }

    bool operator==(const User& other) const = default;

private:
    ZR::UniString mUserName;
    ZR::UniString mRefreshToken;
    ZR::UniString mFullName;
};

class KRCB_EXPORT Server {
public:
    Server() = default;
    Server(const ZR::UniString& uniqueURL, const ZR::UniString& friendlyName, int majorVersion = 0,
           int minorVersion = 0)
        : mUniqueURL(uniqueURL),
          mFriendlyName(friendlyName),
          mMajorVersion(majorVersion),
          mMinorVersion(minorVersion) {}

    const ZR::UniString& GetUniqueURL() const { return mUniqueURL; }
    const ZR::UniString& GetFriendlyName() const { return mFriendlyName; }
    const ZR::PagedArray<ZR::UniString>& GetCommonConnections() const { return mCommonConnections; }
    const ZR::PagedArray<ZR::UniString>& GetClientConnections() const { return mClientConnections; }
    int GetMajorVersion() const { return mMajorVersion; }
    int GetMinorVersion() const { return mMinorVersion; }
    /// Users in the order they were added.
    const ZR::PagedArray<User>& GetUsers() const { return mUsers; }

    bool HasActiveUser() const { return !mActiveUser.IsEmpty(); }
    /// Empty if there is none.
    const ZR::UniString& GetActiveUserName() const { return mActiveUser; }
    const User& GetActiveUser() const;  ///< throws without one

    /// True if url is any of the server's URLs.
    bool HasUrl(const ZR::UniString& url) const;
    bool ContainsUser(const ZR::UniString& userName) const { return FindUser(userName) != nullptr; }
    const User* FindUser(const ZR::UniString& userName) const;
    User* FindUser(const ZR::UniString& userName);

    void SetFriendlyName(const ZR::UniString& name) { mFriendlyName = name; }
    void SetVersion(int major, int minor) {
        mMajorVersion = major;
        mMinorVersion = minor;
    }
    /// Adds a common connection unless the server already answers to it.
    bool AddCommonConnection(const ZR::UniString& url);
    bool AddClientConnection(const ZR::UniString& url);
    /// Replaces a user of the same name in place, else appends.
    void PutUser(const User& user);
    bool RemoveUser(const ZR::UniString& userName);
    /// userName must be a user of this server, or empty for none.
    void SetActiveUserName(const ZR::UniString& userName) { mActiveUser = userName; }

    bool operator==(const Server& other) const = default;

private:
    friend class LoginDataStore;

    ZR::UniString mUniqueURL;
    ZR::UniString mFriendlyName;
    ZR::PagedArray<ZR::UniString> mCommonConnections;
    ZR::PagedArray<ZR::UniString> mClientConnections;
    int mMajorVersion = 0;
    int mMinorVersion = 0;
    ZR::PagedArray<User> mUsers;
    ZR::UniString mActiveUser;
};

class KRCB_EXPORT LoginDataStore {
public:
    /// Changes. A missing server or user throws LoginDataStoreException.
    void AddClientConnections(const ZR::UniString& server,
                              const ZR::PagedArray<ZR::UniString>& connections);
    /// Replaces the data of a user of that name.
    void AddUser(const ZR::UniString& server, const User& user);
    /// Also makes the server the active one: a login selects both.
    void SetActiveUser(const ZR::UniString& server, const ZR::UniString& user);
    void SetServerActive(const ZR::UniString& server);
    void SetFullName(const ZR::UniString& server, const ZR::UniString& user,
                     const ZR::UniString& fullName);
    void SetRefreshToken(const ZR::UniString& server, const ZR::UniString& user,
                         const ZR::UniString& token);
    void SetFriendlyName(const ZR::UniString& server, const ZR::UniString& name);
    /// Adds the server of info, or updates the one that answers to its unique
    /// URL or to url: friendly name (if info has one), version, and url and
    /// clientConnection (if not empty) as further URLs. An info without unique
    /// URL takes url as its unique URL. Versions outside 0 to kMaxVersionNumber
    /// are stored as the nearer bound. True if the server is new.
    bool StoreServer(const Kerrow::PortalServer::Client::Management::ServerInfo& info,
                     const ZR::UniString& url, const ZR::UniString& clientConnection);
    void DeleteServer(const ZR::UniString& server);
    void DeleteUser(const ZR::UniString& server, const ZR::UniString& user);

    /// Questions; these never throw.
    bool ContainsServer(const ZR::UniString& server) const { return FindServer(server) != nullptr; }
    bool ContainsUser(const ZR::UniString& server, const ZR::UniString& user) const;
    bool HasActiveServer() const { return mActiveServer != kNone; }
    bool HasActiveUser(const ZR::UniString& server) const;
    /// Both URLs belong to one stored server, or are the same URL.
    bool IsSameServers(const ZR::UniString& a, const ZR::UniString& b) const;
    std::size_t GetServerCount() const { return mServers.GetSize(); }
    bool IsEmpty() const { return mServers.IsEmpty(); }

    /// Look-ups; a missing server, user or active entry throws.
    const Server& GetActiveServer() const;
    const User& GetActiveUser(const ZR::UniString& server) const;
    const Server& GetServer(const ZR::UniString& server) const;
    /// Both replace the content of out; order is insertion order.
    void GetServers(ZR::PagedArray<Server>& out) const;
    void GetUsers(const ZR::UniString& server, ZR::PagedArray<User>& out) const;
    const ZR::UniString& GetFullName(const ZR::UniString& server, const ZR::UniString& user) const;
    const ZR::UniString& GetRefreshToken(const ZR::UniString& server,
                                         const ZR::UniString& user) const;
    const ZR::UniString& GetFriendlyName(const ZR::UniString& server) const;

    const Server* FindServer(const ZR::UniString& url) const;
    /// All servers in order, for serialisation.
    const ZR::PagedArray<Server>& Servers() const { return mServers; }

    /// Same servers, users and active entries.
    bool operator==(const LoginDataStore& other) const;

    /// The stored form; see docs/LOGIN_DATA.md. FromJson throws
    /// LoginDataStoreException on text it can't take, in time linear in its
    /// length: anything over kMaxTextBytes, nested deeper than kMaxDepth, or
    /// with a number out of range.
    static constexpr std::size_t kMaxTextBytes = 64u << 20;
    static constexpr int kMaxDepth = 32;
    static constexpr int kMaxVersionNumber = 999999;
    std::string ToJson() const;
    static LoginDataStore FromJson(const std::string& text);

    /// The changes that lead from base to mine, made on theirs: what mine added
    /// or changed wins, what mine deleted goes, and everything else stays as
    /// theirs has it. How two writers that started from the same data both keep
    /// their changes.
    static LoginDataStore Merge(const LoginDataStore& base, const LoginDataStore& mine,
                                const LoginDataStore& theirs);

private:
    friend class LoginDataStoreCache;
    static constexpr std::size_t kNone = static_cast<std::size_t>(-1);

    std::size_t IndexOf(const ZR::UniString& url) const;
    Server& ServerFor(const ZR::UniString& url, const char* operation);
    const Server& ServerFor(const ZR::UniString& url, const char* operation) const;
    void IndexServer(std::size_t i);
    void NoteUrl(const ZR::UniString& url, std::size_t i, bool unique);
    void RebuildIndex();
    /// base is null for a server that both sides added.
    static void MergeServer(const Server* base, const Server& mine, Server& theirs);

    ZR::PagedArray<Server> mServers;
    std::size_t mActiveServer = kNone;
    /// Look-up by URL in constant time; keys are UrlKey forms. unique: the
    /// first server whose unique URL it is; any: the first that answers to it.
    std::unordered_map<std::string, std::size_t> mByUniqueUrl;
    std::unordered_map<std::string, std::size_t> mByAnyUrl;
    /// The cached data this copy was taken from, for the merge at its save;
    /// null for a store made otherwise, whose save replaces the file.
    std::shared_ptr<const LoginDataStore> mOrigin;
};

/// The form in which URLs are looked up: without trailing slashes, case
/// folded; empty for a URL that names no server.
KRCB_EXPORT std::string UrlKey(const ZR::UniString& url);

/// The login data of this process, backed by "LoginData.json" in the base data
/// folder. Hands out copies; the file is re-read only when its change stamp
/// (modification times, inode, size) moved since it was last read or written.
///
/// Every save is one read-modify-write of the file under the lock file
/// "LoginData.json.lock" beside it, held with an open-file-description lock
/// (so a writer that dies lets go at once): it reads the file afresh, merges,
/// and writes through a temporary file and a rename. Writers in other
/// processes and threads are serialised, and none loses another's change.
class KRCB_EXPORT LoginDataStoreCache {
public:
    static LoginDataStoreCache& GetInstance();

    /// A fresh copy of the data; empty while the base client isn't started.
    /// LoginDataStoreException if it started without a usable base folder.
    ZR::Ref<LoginDataStore> GetLoginDataStoreCopy(int openMethod);
    ZR::Ref<LoginDataStore> GetLoginDataStore(int openMethod) {
        return GetLoginDataStoreCopy(openMethod);
    }

    /// Saves store (mode 0600, folder 0700) and takes the result as the cached
    /// data, with pending friendly names laid over it. A copy handed out by
    /// this cache (or a copy of one) is merged with what the file holds now
    /// (LoginDataStore::Merge, from the data the copy was taken from); any
    /// other store replaces the file's content. False if the base client isn't
    /// started; LoginDataStoreException if there is no usable base folder, the
    /// lock can't be had, or the file can't be read or written.
    bool SaveToFile(const LoginDataStore& store);
    /// Writes the pending friendly names, if any, in the same way.
    void CheckSave();
    /// Sets the friendly name of a known server in the cached data. With
    /// persist, the change is written at the next CheckSave and survives a
    /// re-read from disc until then; without, it lives until the next re-read.
    void UpdateFriendlyName(const ZR::UniString& url, const ZR::UniString& name, bool persist);

    /// Answer whether the name is known (and not empty).
    bool GetFriendlyName(const ZR::UniString& url, ZR::UniString& name);
    bool GetFullName(const ZR::UniString& url, const ZR::UniString& user, ZR::UniString& fullName);

    IO::Location GetFileLocation() const;
    /// Forgets everything cached, so the next copy reads the current base data
    /// folder afresh. For tests that switch folders.
    void ResetForTesting();

    static constexpr const char* kFileName = "LoginData.json";
    static constexpr const char* kLockFileName = "LoginData.json.lock";
    /// How long a save waits for another writer before it gives up.
    static constexpr int kLockWaitMillis = 30000;

private:
    LoginDataStoreCache() = default;
    struct FileStamp {
        bool exists = false;
        bool known = true;  ///< false: the stamp couldn't be taken, matches nothing
        std::uint64_t change = 0;
        std::uint64_t length = 0;
        bool operator==(const FileStamp& o) const {
            return known && o.known && exists == o.exists && change == o.change;
        }
    };
    /// All under mMutex. RefreshLocked tells whether the base client runs
    /// with a folder, and reads the file if it changed.
    int RefreshLocked();
    void ReadLocked(const IO::Location& file, const FileStamp& stamp);
    void SetAsideLocked(const std::string& text, const ZR::UniString& reason);
    void SetDataLocked(LoginDataStore data);
    void PrepareFolderLocked();
    void WriteLocked(const LoginDataStore& store);
    void ResetLocked();
    static FileStamp StampOf(const IO::Location& file);

    std::mutex mMutex;
    IO::Location mFolder;  ///< the folder the cached data came from
    bool mLoaded = false;
    /// Why the file, which exists, could not be read at the last look; a save
    /// would overwrite what it never saw, so it refuses.
    ZR::UniString mReadProblem;
    /// The file, at the last look, did not parse and was set aside.
    bool mSetAside = false;
    FileStamp mStamp;
    /// Never changed in place: copies keep the one they were taken from.
    std::shared_ptr<const LoginDataStore> mData = std::make_shared<const LoginDataStore>();
    ZR::HashTable<ZR::UniString, ZR::UniString> mPendingNames;  ///< by normalised URL
};

/// What the login data should say is active in this process, whatever the
/// file says: another process may have logged in elsewhere since.
class KRCB_EXPORT ActiveConnectionData {
public:
    ActiveConnectionData(const ZR::UniString& serverUrl, const ZR::UniString& userName,
                         const ZR::UniString& refreshToken)
        : mServerUrl(serverUrl), mUserName(userName), mRefreshToken(refreshToken) {}
    const ZR::UniString& GetServerUrl() const { return mServerUrl; }
    const ZR::UniString& GetUserName() const { return mUserName; }
    const ZR::UniString& GetRefreshToken() const { return mRefreshToken; }

private:
    ZR::UniString mServerUrl;
    ZR::UniString mUserName;
    ZR::UniString mRefreshToken;
};

class KRCB_EXPORT ActiveConnection {
public:
    static ActiveConnection& GetInstance();

    void Set(const ZR::UniString& serverUrl, const ZR::UniString& userName);
    /// As Set, and a newer refresh token for that user (empty: keep the stored one).
    void SetPassword(const ZR::Ref<ActiveConnectionData>& data);
    void Clear();
    bool IsSet() const;
    ZR::Ref<ActiveConnectionData> Get() const;

    /// Makes the active server and user of this process active in store, as far
    /// as store knows them; a newer token replaces the stored one.
    void GetActiveConnection(LoginDataStore& store) const;

private:
    ActiveConnection() = default;
    mutable std::mutex mMutex;
    ZR::Ref<ActiveConnectionData> mData;
};

/// Per process, never stored: how each server URL and each of its users fared
/// at the last attempt. Keys are the URL texts exactly as given.
class KRCB_EXPORT ConnectionStatusStore {
public:
    static ConnectionStatusStore& GetInstance();

    bool ContainsPortalServerStatus(const ZR::UniString& url) const;
    void SetPortalServerStatus(const ZR::UniString& url, PortalServerStatus::Status status);
    /// Unknown if none is set.
    PortalServerStatus::Status GetPortalServerStatus(const ZR::UniString& url) const;
    void ClearPortalServerStatus(const ZR::UniString& url);

    bool ContainsUserStatus(const ZR::UniString& url, const ZR::UniString& user) const;
    void SetUserStatus(const ZR::UniString& url, const ZR::UniString& user,
                       UserStatus::Status status);
    UserStatus::Status GetUserStatus(const ZR::UniString& url, const ZR::UniString& user) const;
    void ClearUserStatus(const ZR::UniString& url, const ZR::UniString& user);

    void Clear();

private:
    ConnectionStatusStore() = default;
    static ZR::UniString UserKey(const ZR::UniString& url, const ZR::UniString& user);
    mutable std::mutex mMutex;
    ZR::HashTable<ZR::UniString, PortalServerStatus::Status> mServers;
    ZR::HashTable<ZR::UniString, UserStatus::Status> mUsers;
};

}  // namespace KRCB::LoginDataStore
