#pragma once
/// @file
/// The base client's project connection manager and the closed halves of the
/// connections made on it.

#include <cstdint>
#include <memory>

#include "IO/Location.h"
#include "KRCB/CachedProjectInfo.h"
#include "KRCB/Clients.h"
#include "KRCB/Entities.h"
#include "KRCB/KRClientBaseExport.h"
#include "KRCB/Mailbox.h"
#include "KRCB/SignalClient.h"
#include "ZR/Channel.h"
#include "ZR/Containers.h"
#include "ZR/EventSource.h"
#include "ZR/Ref.h"
#include "ZR/UniString.h"

namespace KRCB {

/// The user's short id in the project and rights, as ids.
class KRCB_EXPORT UserAttributes {
public:
    UserAttributes() = default;
    UserAttributes(std::int16_t shortUserId, const ZR::HashSet<PermissionID>& permissions)
        : mShortUserId(shortUserId), mPermissions(permissions) {}
    std::int16_t GetShortUserId() const { return mShortUserId; }
    const ZR::HashSet<PermissionID>& GetPermissions() const { return mPermissions; }
    bool HasPermission(PermissionID id) const { return mPermissions.Contains(id); }

    /// Stored form: the short id (16 bits), the number of permissions (32
    /// bits) and each id (32 bits), in the channel's byte order. 0 or the
    /// channel's error; Read checks the count against what is left and
    /// changes nothing on failure.
    int Write(ZR::OChannel& channel) const;
    int Read(ZR::IChannel& channel);

private:
    std::int16_t mShortUserId = 0;
    ZR::HashSet<PermissionID> mPermissions;
};

class KRCB_EXPORT ProjectConnectionManagerInterface {
public:
    virtual ~ProjectConnectionManagerInterface() = default;
    /// The project location: server URL, user, refresh token, project path.
    virtual const IO::Location& GetKerrowLocation() const = 0;
    virtual ZR::UniString GetProjectPath() const = 0;
    /// A secondary manager takes no part in presence and session claims.
    virtual bool IsSecondary() const = 0;
    /// Null for a secondary manager.
    virtual SignalClient* GetSignalClient() const = 0;
    /// The session the manager runs on; empty while none runs.
    virtual ZR::UniString GetSessionId() const = 0;
    /// The project's id as far as the manager knows it; empty if it doesn't.
    virtual ZR::UniString GetProjectId() const { return ZR::UniString(); }
    /// The cache folder of the project and user, where the mail client keeps
    /// its files; empty without a cached record.
    virtual IO::Location GetCacheFolderLocation() const { return IO::Location(); }

    /// The parts of the location: management server URL, login name, and
    /// the refresh token (never logged).
    ZR::UniString GetPortalServerUrl() const;
    ZR::UniString GetLoginName() const { return GetKerrowLocation().GetUserName(); }
    ZR::UniString GetRefreshToken() const { return GetKerrowLocation().GetPassword(); }
};

/// A project's cache folder standing alone, with no open connection: lets the
/// mail client and other per-project stores work on the folder's files
/// offline (tools, tests, a host that shows stored mails before it connects).
/// A primary manager with no signal client and no session.
class KRCB_EXPORT CacheFolderConnection : public ProjectConnectionManagerInterface {
public:
    /// location is the project location (server, user, token) the folder
    /// belongs to; it defaults to the folder itself when there is none.
    explicit CacheFolderConnection(IO::Location cacheFolder, IO::Location location = IO::Location(),
                                   ZR::UniString projectPath = ZR::UniString())
        : mFolder(std::move(cacheFolder)),
          mLocation(location.IsEmpty() ? mFolder : std::move(location)),
          mProjectPath(std::move(projectPath)) {}
    const IO::Location& GetKerrowLocation() const override { return mLocation; }
    ZR::UniString GetProjectPath() const override { return mProjectPath; }
    bool IsSecondary() const override { return false; }
    SignalClient* GetSignalClient() const override { return nullptr; }
    ZR::UniString GetSessionId() const override { return ZR::UniString(); }
    IO::Location GetCacheFolderLocation() const override { return mFolder; }

private:
    IO::Location mFolder, mLocation;
    ZR::UniString mProjectPath;
};

/// Holds the location, the cached record, the signal client, the mailbox
/// monitor and the user attributes of one open project.
class KRCB_EXPORT ProjectConnectionManager : public ProjectConnectionManagerInterface,
                                             public ZR::EventSource {
public:
    /// A primary manager (secondary false) makes a signal client for the
    /// location's server and user.
    ProjectConnectionManager(const IO::Location& location, bool secondary);
    ~ProjectConnectionManager() override;
    ProjectConnectionManager(const ProjectConnectionManager&) = delete;
    ProjectConnectionManager& operator=(const ProjectConnectionManager&) = delete;

    const IO::Location& GetKerrowLocation() const override { return mLocation; }
    ZR::UniString GetProjectPath() const override;
    bool IsSecondary() const override { return mSecondary; }
    SignalClient* GetSignalClient() const override { return mSignalClient.get(); }
    /// The session set by SetSessionId, else the one in the cached record.
    ZR::UniString GetSessionId() const override;
    /// The id in the cached record; empty without one.
    ZR::UniString GetProjectId() const override;
    IO::Location GetCacheFolderLocation() const override;
    /// Sets the session the manager runs on (the project is open in it).
    void SetSessionId(const ZR::UniString& sessionId) { mSessionId = sessionId; }

    /// The manager owns the record. existed: the record was there before.
    void SetCachedProjectInfo(CachedProjectInfo* info, bool existed);
    CachedProjectInfo* GetCachedProjectInfo() const { return mCachedProjectInfo.get(); }
    bool CachedProjectInfoExisted() const { return mCachedProjectInfoExisted; }
    void RemoveCachedProjectInfo();

    /// Makes the mailbox monitor of the location's user (a secondary manager
    /// or a local location makes none), which builds contacts with factory.
    /// The manager owns it; the mail client's InitMailboxRevision, or
    /// StartMailboxMonitor, starts it. A second call keeps the monitor.
    void CreateMailboxMonitor(const ZR::Ref<Mailbox::ContactFactory>& factory);
    /// Null until CreateMailboxMonitor, and for a manager that has none.
    Mailbox::MailboxMonitor* GetMailboxMonitor() const { return mMailboxMonitor.get(); }
    void StartMailboxMonitor();
    /// Stops the monitor: queued requests are canceled, and no callback
    /// comes after it returns. The destructor does it first.
    void StopMailboxMonitor();
    const ZR::Ref<Mailbox::ContactFactory>& GetContactFactory() const { return mContactFactory; }

    /// The manager takes over the object.
    void SetUserAttributes(UserAttributes* attributes);
    const UserAttributes* GetUserAttributes() const { return mUserAttributes.get(); }

    /// The refresh token changed: the manager's location, and its signal
    /// client's, take the new one.
    virtual void PasswordChanged(const IO::Location& location);
    /// A transaction of a write connection was committed.
    virtual void TransactionComitted();
    std::uint32_t GetCommittedTransactions() const { return mCommittedTransactions; }

private:
    IO::Location mLocation;
    bool mSecondary;
    std::unique_ptr<SignalClient> mSignalClient;
    ZR::UniString mSessionId;
    std::unique_ptr<CachedProjectInfo> mCachedProjectInfo;
    bool mCachedProjectInfoExisted = false;
    ZR::Ref<Mailbox::ContactFactory> mContactFactory;
    std::shared_ptr<Mailbox::MailboxMonitor> mMailboxMonitor;
    std::unique_ptr<UserAttributes> mUserAttributes;
    std::uint32_t mCommittedTransactions = 0;
};

/// Services a connection can invoke on the project server.
class KRCB_EXPORT ReadProjectService {
public:
    virtual ~ReadProjectService() = default;
};
class KRCB_EXPORT WriteProjectService : public ReadProjectService {};

class KRCB_EXPORT ReadProjectConnectionBaseInterface {
public:
    virtual ~ReadProjectConnectionBaseInterface() = default;
    virtual ZR::UniString _GetProjectId() const = 0;
    virtual ZR::UniString _GetSessionId() const = 0;
};
class KRCB_EXPORT WriteProjectConnectionBaseInterface : public ReadProjectConnectionBaseInterface {
};

/// The closed half shared by the connection kinds: the manager, the resource
/// manager client and the project client.
class KRCB_EXPORT ProjectConnectionBase {
public:
    ProjectConnectionBase(ProjectConnectionManagerInterface* manager,
                          const ZR::Ref<Management::ResourceManagerClient>& client);
    virtual ~ProjectConnectionBase();
    ProjectConnectionBase(const ProjectConnectionBase&) = delete;
    ProjectConnectionBase& operator=(const ProjectConnectionBase&) = delete;

    ProjectConnectionManagerInterface* GetManager() const { return mManager; }
    /// The session of the manager, or of the connection once it has one.
    ZR::UniString GetSessionId() const;
    /// Set by the constructor: a connection made on a manager with a location
    /// is checked by the library's constructor; one without stands unchecked.
    bool ShouldCheck() const { return mShouldCheck; }

protected:
    /// A connection that logs in at its first use and stands unchecked.
    struct LogInOnUse {};
    ProjectConnectionBase(ProjectConnectionManagerInterface* manager, LogInOnUse);

    ZR::Ref<Management::ResourceManagerClient>& ClientReference() { return mClient; }
    const ZR::Ref<Management::ResourceManagerClient>& ClientReference() const { return mClient; }
    /// The client; one that logs in on use does so at the first call.
    ZR::Ref<Management::ResourceManagerClient> EnsureClient() const;
    /// The project's id: the manager's cached record's, else the server's for
    /// the manager's path; empty without either.
    ZR::UniString ProjectIdOfManager() const;
    virtual ZR::Ref<Kerrow::Server::Project::Client::ProjectClient> _GetProjectClient();
    virtual void _CloseProjectClient();
    virtual bool _IsOpen() const;
    virtual void _Invoke(ReadProjectService& service);

private:
    ProjectConnectionManagerInterface* mManager;
    mutable ZR::Ref<Management::ResourceManagerClient> mClient;
    ZR::Ref<Kerrow::Server::Project::Client::ProjectClient> mProjectClient;
    bool mShouldCheck = false;
    bool mLogInOnUse = false;
};

class KRCB_EXPORT ReadProjectConnectionBase : public ProjectConnectionBase,
                                              public ReadProjectConnectionBaseInterface {
public:
    using ProjectConnectionBase::ProjectConnectionBase;
    ZR::UniString _GetProjectId() const override;
    ZR::UniString _GetSessionId() const override { return GetSessionId(); }
};

class KRCB_EXPORT WriteProjectConnectionBase : public ProjectConnectionBase,
                                               public WriteProjectConnectionBaseInterface {
public:
    using ProjectConnectionBase::ProjectConnectionBase;
    ZR::UniString _GetProjectId() const override;
    ZR::UniString _GetSessionId() const override { return GetSessionId(); }

protected:
    virtual void _Invoke(WriteProjectService& service);
    using ProjectConnectionBase::_Invoke;
};

/// A read connection that takes no part in checks: it logs in at its first
/// use and stands unchecked.
class KRCB_EXPORT TemporaryReadProjectConnection : public ReadProjectConnectionBase {
public:
    explicit TemporaryReadProjectConnection(ProjectConnectionManagerInterface* manager);
};

}  // namespace KRCB
