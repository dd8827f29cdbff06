#pragma once
/// @file
/// Clients of the management server and of a project server. Every call
/// blocks the calling thread and goes to the server; a refusal is an
/// exception of Kerrow/Exceptions.h. A client is logged in when it is made and
/// is used from one thread at a time.

#include <cstdint>
#include <functional>
#include <memory>

#include "IO/Location.h"
#include "KRCB/AuthenticatedClientConnection.h"
#include "KRCB/Entities.h"
#include "KRCB/KRClientBaseExport.h"
#include "Kerrow/ProjectMessages.h"
#include "Kerrow/ServerInfo.h"
#include "ZR/Containers.h"
#include "ZR/Ref.h"
#include "ZR/UniString.h"

namespace Kerrow::Server::Project::Client {
class ProjectClient;
}

namespace KRCB {

class SignalClient;

namespace Internal {
struct ClientSession;
}

namespace Management {

class PortalServerNonTransactionalQueryGuard;

/// A logged-in client of one management server for one user.
class KRCB_EXPORT PortalServerClient {
public:
    virtual ~PortalServerClient();
    PortalServerClient(const PortalServerClient&) = delete;
    PortalServerClient& operator=(const PortalServerClient&) = delete;

    const ZR::UniString& GetServerUrl() const;
    const ZR::UniString& GetUserName() const;
    /// The refresh token the server issued to this login; never logged.
    const ZR::UniString& GetRefreshToken() const;
    const Kerrow::PortalServer::Client::Management::ServerInfo& GetServerInfo() const;

    /// The server id of the logged-in user.
    ZR::UniString GetCurrentUserId();
    /// Rights of a user in a project, as ids.
    void GetUserPermissions(const ZR::UniString& projectId, const ZR::UniString& userId,
                            ZR::HashSet<PermissionID>& ids);

    /// A user this client has already fetched; stays empty otherwise. Makes no call.
    void GetCachedUser(const ZR::UniString& userId, ZR::Ref<Entities::User>& user);
    /// Throws EntityNotFoundException for an unknown id.
    void GetUser(const ZR::UniString& userId, ZR::Ref<Entities::User>& user);
    /// Throws EntityNotFoundException for an unknown id; an empty reference
    /// for a user without a picture.
    void GetUserImage(const ZR::UniString& userId, ZR::Ref<Entities::UserImage>& image);
    /// Fetches the users of these ids in one query; unknown ids are left out.
    void GetUsersByIds(const ZR::Array<ZR::UniString>& ids,
                       ZR::HashTable<ZR::UniString, ZR::Ref<Entities::User>>& users);

    /// True while a query guard stands on this client.
    bool IsInTransaction() const;
    /// The two keys of this client in the operation cache: server and user.
    void GetOperationCacheKeys(ZR::UniString& server, ZR::UniString& user) const;

    /// Folders, projects and libraries.
    ZR::UniString GetProjectIdByPath(const ZR::UniString& projectPath);
    /// Throws EntityNotFoundException for an unknown id.
    ZR::Ref<Entities::Resource> GetResourceById(const ZR::UniString& id);
    /// 0 or 1 usable; 2 read only; 3 refused. Other values are the server's own.
    std::int32_t GetProjectState(const ZR::UniString& projectId);

    // Browsing.
    /// The project at a path (any case) or of an id. A client remembers what
    /// it found: a second look-up of the same path or id makes no call until
    /// ResetProjectLookup. Throws EntityNotFoundException for none.
    ZR::Ref<Entities::Project> GetProjectByPath(const ZR::UniString& projectPath);
    /// The same; the second text (a variant of the look-up on a real
    /// server) is accepted and has no effect here.
    ZR::Ref<Entities::Project> GetProjectByPath(const ZR::UniString& projectPath,
                                                const ZR::UniString& variant);
    ZR::Ref<Entities::Project> GetProjectById(const ZR::UniString& projectId);
    /// Forgets what the look-ups found, for every client of this login.
    void ResetProjectLookup();
    /// Throws IncompatibleModelServerVersionException, naming the server,
    /// unless modelServer meets requirement. serverInfo and serverUrl only
    /// name the management server in the text.
    static void CheckModelServerVersion(
        const Kerrow::PortalServer::Client::Management::ServerInfo& serverInfo,
        const Entities::ModelServer& modelServer, const ModelServerRequirement& requirement,
        const ZR::UniString& serverUrl);
    /// Makes a folder named name in parent; newFolder receives it, with
    /// parent's id as its parent id. Throws EntityExistsException,
    /// EntityValidationException, AccessDeniedException.
    void CreateProjectFolder(const ZR::Ref<Entities::ProjectFolder>& parent,
                             const ZR::UniString& name,
                             ZR::Ref<Entities::ProjectFolder>& newFolder);
    /// The project keeps its id; its path takes the new last element. Throws
    /// as CreateProjectFolder does.
    void RenameProject(const ZR::UniString& projectId, const ZR::UniString& newName);
    /// Appends the server's libraries to libraries.
    void GetLibraries(ZR::PagedArray<ZR::Ref<Entities::Library>, 8>& libraries);

    /// For the emulator's transport and tests: the server's id of this login.
    const Internal::ClientSession& GetSession() const { return *mSession; }

protected:
    explicit PortalServerClient(std::shared_ptr<Internal::ClientSession> session);
    std::shared_ptr<Internal::ClientSession> mSession;

private:
    friend class PortalServerNonTransactionalQueryGuard;
    friend class PortalServerTransactionalQueryGuard;
};

/// The client a project connection uses: the management server's calls and
/// the project servers behind it.
class KRCB_EXPORT ResourceManagerClient : public PortalServerClient {
public:
    ~ResourceManagerClient() override;
    /// A client of the project server that holds the project; empty if the
    /// project is not known.
    ZR::Ref<Kerrow::Server::Project::Client::ProjectClient> GetProjectClient(
        const ZR::UniString& projectId);

private:
    friend class ResourceManagerClientFactory;
    friend ZR::Ref<ResourceManagerClient> MakeResourceManagerClient(
        std::shared_ptr<Internal::ClientSession>);
    using PortalServerClient::PortalServerClient;
};

class KRCB_EXPORT ResourceManagerClientFactory {
public:
    /// A client on the login of a connection (a login dialog's): no second
    /// login. Throws SessionRequiredException if the server no longer knows
    /// the login, or no session stands on the connection yet.
    static ZR::Ref<ResourceManagerClient> Create(
        const ZR::Ref<AuthenticatedClientConnection>& connection);
    /// Logs in with the server URL, user name and refresh token of a project location.
    static ZR::Ref<ResourceManagerClient> CreateAuthenticated(const IO::Location& location,
                                                              bool detailsWanted, bool cached);
    static ZR::Ref<ResourceManagerClient> Create(const ZR::UniString& serverUrl,
                                                 const ZR::UniString& userName,
                                                 const ZR::UniString& refreshToken,
                                                 bool detailsWanted, bool cached);
};

class KRCB_EXPORT PortalServerClientFactory {
public:
    /// As ResourceManagerClientFactory's.
    static ZR::Ref<PortalServerClient> Create(
        const ZR::Ref<AuthenticatedClientConnection>& connection);
    /// Logs in; throws CreateSessionFailedException if the user can't.
    static ZR::Ref<PortalServerClient> Create(const ZR::UniString& serverUrl,
                                              const ZR::UniString& userName,
                                              const ZR::UniString& refreshToken, bool detailsWanted,
                                              bool cached);
};

/// Calls made while one stands form one query of the server.
class KRCB_EXPORT PortalServerNonTransactionalQueryGuard {
public:
    explicit PortalServerNonTransactionalQueryGuard(PortalServerClient& client);
    explicit PortalServerNonTransactionalQueryGuard(const ZR::Ref<PortalServerClient>& client);
    ~PortalServerNonTransactionalQueryGuard();
    PortalServerNonTransactionalQueryGuard(const PortalServerNonTransactionalQueryGuard&) = delete;
    PortalServerNonTransactionalQueryGuard& operator=(
        const PortalServerNonTransactionalQueryGuard&) = delete;

    /// Ends the guard's part of the query now; the destructor then does
    /// nothing more. A second call does nothing.
    void EndQuery();

private:
    PortalServerClient& mClient;
    ZR::Ref<PortalServerClient> mHold;
    bool mEnded = false;
};

/// Runs its function in its constructor, as one transaction of the server.
class KRCB_EXPORT PortalServerTransactionalQueryGuard {
public:
    PortalServerTransactionalQueryGuard(PortalServerClient& client,
                                        const std::function<void()>& function);
};

}  // namespace Management

/// The client of a primary connection: logs in, finds the project by its
/// path and joins the signal channel of the project.
KRCB_EXPORT ZR::Ref<Management::ResourceManagerClient>
CreateResourceManagerClientOnOpenedProjectByPath(SignalClient* signalClient,
                                                 const ZR::UniString& serverUrl,
                                                 const ZR::UniString& userName,
                                                 const ZR::UniString& refreshToken,
                                                 bool detailsWanted, bool cached,
                                                 const ZR::UniString& projectPath, bool reconnect);

/// The client of work on a project that is open already, known by its id:
/// joins the signal client to the project if it stands in another one, then
/// logs in. It never registers the signal client again, so that it can run on a
/// worker while the host uses the signal client. detailsWanted and cached as
/// for the factory; loginKind and reconnect are kept for the callers' sake
/// and change nothing here.
KRCB_EXPORT ZR::Ref<Management::ResourceManagerClient> CreateResourceManagerClientOnOpenedProject(
    SignalClient* signalClient, const ZR::UniString& serverUrl, const ZR::UniString& userName,
    const ZR::UniString& refreshToken, bool detailsWanted, bool cached,
    const ZR::UniString& projectId, int loginKind, bool reconnect);

}  // namespace KRCB

namespace Kerrow::Server::Project::Client {

/// A client of the project server for one project.
class KRCB_EXPORT ProjectClient {
public:
    ~ProjectClient();
    ProjectClient(const ProjectClient&) = delete;
    ProjectClient& operator=(const ProjectClient&) = delete;

    const ZR::UniString& GetProjectId() const { return mProjectId; }

    /// Sessions of the logged-in user in the project. kind 1: the user's own;
    /// running: only sessions that stand.
    void GetSessions(int kind, bool running, ZR::Array<Messages::SessionInfo>& sessions);
    /// Throws ProjectManagerClientSessionExistsException if the user has one.
    void CreateSession(int kind, Messages::SessionInfo& sessionInfo);
    /// Members of the project as seen from a session; detail 1 or 3.
    void GetProjectMembers(const ZR::UniString& sessionId, int detail,
                           ZR::PagedArray<ProjectMember>& members);
    /// False if the session has no attribute of that name.
    bool GetSessionAttribute(const ZR::UniString& sessionId, const ZR::UniString& name,
                             Kerrow::Commons::DataBuffer<unsigned char>& buffer);
    void SetSessionAttribute(const ZR::UniString& sessionId, const ZR::UniString& name,
                             const Kerrow::Commons::DataBuffer<unsigned char>& buffer);

    /// The management server's side of the same login.
    KRCB::Management::PortalServerClient& GetPortalServerClient() const { return *mPortal; }

private:
    friend class KRCB::Management::ResourceManagerClient;
    ProjectClient(ZR::Ref<KRCB::Management::PortalServerClient> portal,
                  const ZR::UniString& projectId);
    ZR::Ref<KRCB::Management::PortalServerClient> mPortal;
    ZR::UniString mProjectId;
};

}  // namespace Kerrow::Server::Project::Client
