#pragma once
/// @file
/// The check of a project connection: does it reach the server, is the project
/// the one the cache knows, does the user's session stand and is it this
/// computer's. The answer is one CheckResult; what is wrong also goes out as
/// an internal signal, and the user's presence state follows.

#include <cstdint>

#include "IO/Location.h"
#include "KRCB/Clients.h"
#include "KRCB/ProjectConnection.h"
#include "KRCB/SignalClient.h"
#include "KRClient/KRClientExport.h"
#include "ZR/Exceptions.h"
#include "ZR/Ref.h"
#include "ZR/UniString.h"

namespace Kerrow::Server::Project::Messages {
class SessionInfo;
}

namespace KRC {

class CachedProjectInfo;
class ProjectConnectionInfo;
class ReadProjectConnection;

/// The library's half of a read or write connection. ReadProjectConnection
/// and WriteProjectConnection join it to the base client's half.
///
/// No field is guarded by a lock: one thread at a time uses a connection.
class KRCLIENT_EXPORT ProjectConnectionBase {
public:
    /// A connection's state after a check. Value 9 is not used. Beside each:
    /// the internal signal the check sends with it (KRCB::KnownSignalId) to the
    /// other clients of the project. A failed check also sets the presence
    /// state to kPresenceSessionProblemTold (CheckNoSession with its signal
    /// sent) or kPresenceCheckFailed, except for CheckProjectNotWritable; an
    /// online one sets kPresenceOnline (KRCB::KnownPresenceState).
    enum CheckResult : int {
        /// Usable.
        CheckOnline = 0,
        /// No connection; kSignalProjectMoved if the project lives on elsewhere.
        CheckOffline = 1,
        /// The server wanted a session or refused one; kSignalNoSession.
        CheckNoSession = 2,
        /// Another computer holds the session; kSignalSessionOnOtherComputer.
        CheckSessionOnOtherComputer = 3,
        /// No check has run yet.
        CheckNotChecked = 4,
        /// The server's session isn't the cached one; kSignalSessionChanged.
        CheckSessionChanged = 5,
        /// No such project, or another one at the path; kSignalProjectNotFound.
        CheckProjectNotFound = 6,
        /// Project state 2 on a write connection; kSignalProjectNotWritable.
        CheckProjectNotWritable = 7,
        /// Project state 3; kSignalProjectStateRefused.
        CheckProjectStateRefused = 8,
        /// The project server's version; kSignalIncompatibleServer.
        CheckIncompatibleServer = 10,
        /// The project's version; kSignalIncompatibleProject.
        CheckIncompatibleProject = 11,
    };
    /// The name of a result as written above ("CheckOnline"), for logs and
    /// tools; "unknown" for a value that is none.
    static const char* GetCheckResultName(CheckResult result);

    /// How the user's rights on the server compare with the cached ones.
    enum PermissionCheckResult : int {
        PermissionsUnchanged = 0,   ///< no change that counts
        PermissionRevoked = 1,      ///< the cache holds a right the server no longer gives
        PermissionGranted = 2,      ///< the server gives a right the cache lacks
        PermissionCheckFailed = 3,  ///< no comparison was possible
    };

    /// Frees the connection info and the private copy of the cached record.
    virtual ~ProjectConnectionBase();
    ProjectConnectionBase(const ProjectConnectionBase&) = delete;
    ProjectConnectionBase& operator=(const ProjectConnectionBase&) = delete;

    /// An explicit check of connection: it never claims an unclaimed session
    /// and isn't stopped by the presence state. A ZR::ZRException out of it
    /// answers CheckOffline and leaves a copy in exception.
    static CheckResult Check(ProjectConnectionBase* connection,
                             ZR::Ref<ZR::ZRException, ZR::Counter>& exception, bool sendSignals,
                             bool reconnect);
    /// The same without the exception copy.
    static CheckResult Check(ProjectConnectionBase* connection, bool sendSignals, bool reconnect);
    /// The same on a temporary read connection of manager.
    static CheckResult Check(KRCB::ProjectConnectionManagerInterface* manager,
                             ZR::Ref<ZR::ZRException, ZR::Counter>& exception, bool sendSignals,
                             bool reconnect);
    static CheckResult Check(KRCB::ProjectConnectionManagerInterface* manager, bool sendSignals,
                             bool reconnect);

    /// Checks once, the first time it is asked (from CheckNotChecked), then
    /// reports the stored result. result, if not null, takes the result.
    /// Answers whether it is CheckOnline.
    bool IsOpen(CheckResult* result);

    /// Takes the session over from another computer: an explicit check that
    /// writes this computer's name into a session held by another one, and
    /// sends no internal signal. ignoreCachedSession: a session other than
    /// the cached one is taken too. Answers whether the result is CheckOnline.
    static bool ReceiveSession(ProjectConnectionBase* connection, bool ignoreCachedSession);
    static bool ReceiveSession(KRCB::ProjectConnectionManagerInterface* manager,
                               bool ignoreCachedSession);

    /// The last result.
    CheckResult GetCheckResult() const { return checkResult; }
    /// The last check posted a signal successfully.
    bool CheckErrorSignalSent() const { return checkErrorSignalSent; }

    /// Sends a plain signal with an empty text, whether or not this connection
    /// posts signals. False without a manager or signal client.
    bool SendSignal(const KRCB::SignalId& signal);

    /// Compares the user's rights on the server with the cached ones. A
    /// revoke is only reported; with applyGranted a grant goes into the
    /// manager's record.
    PermissionCheckResult CheckPermmission(bool applyGranted);
    /// The same on a temporary read connection of manager, checked first.
    static PermissionCheckResult CheckPermmission(KRCB::ProjectConnectionManagerInterface* manager,
                                                  bool applyGranted);
    /// Takes the server's rights into the manager's record, whichever way
    /// they moved. False if that could not be done.
    bool UpdateCachePermissions();
    static bool UpdateCachePermissions(KRCB::ProjectConnectionManagerInterface* manager);

    /// The name of the computer that holds the user's session; false, and
    /// computerName empty, if none can be told.
    bool GetSessionComputerAttribute(ZR::UniString& computerName);

    /// Whether another computer works in the project's session: for a
    /// primary connection what its check found, without a server call; a
    /// secondary one, which skipped that test, reads the session's computer.
    static bool IsEditConflict(ReadProjectConnection* connection, const ZR::UniString& projectId);

protected:
    /// Takes the location of manager; a null manager leaves the connection at
    /// CheckOffline. A manager that is secondary or has no signal client
    /// makes a secondary connection, which posts no signals and takes no part
    /// in presence and session claims.
    explicit ProjectConnectionBase(KRCB::ProjectConnectionManagerInterface* manager);

    /// The six steps: connect, take the cached record, find the project,
    /// start or check the session, fill the cache, look at the project's state.
    CheckResult Check(bool sendSignals, bool takeOverSession, bool explicitCheck,
                      bool ignoreCachedSession, ZR::Ref<ZR::ZRException, ZR::Counter>* exception,
                      bool reconnect);

    /// The client the connection holds; empty before its first login.
    virtual ZR::Ref<KRCB::Management::ResourceManagerClient, ZR::AtomicCounter>
    _GetResourceManagerClient() = 0;
    /// Makes client the one the connection holds.
    virtual void _SetResourceManagerClient(
        ZR::Ref<KRCB::Management::ResourceManagerClient, ZR::AtomicCounter>& client) = 0;
    /// The manager the connection was made on; may be null.
    virtual KRCB::ProjectConnectionManagerInterface* _GetProjectConnectionManager() = 0;
    /// The session the connection runs on.
    virtual ZR::UniString _GetSessionId() const = 0;

    // The hooks' non-virtual faces.
    ZR::Ref<KRCB::Management::ResourceManagerClient, ZR::AtomicCounter> GetResourceManagerClient() {
        return _GetResourceManagerClient();
    }
    void SetResourceManagerClient(
        ZR::Ref<KRCB::Management::ResourceManagerClient, ZR::AtomicCounter>& client) {
        _SetResourceManagerClient(client);
    }
    KRCB::ProjectConnectionManagerInterface* GetProjectConnectionManager() {
        return _GetProjectConnectionManager();
    }
    ZR::UniString GetSessionId() const { return _GetSessionId(); }

private:
    // Steps of the check (ProjectConnectionCheck.cpp).
    void ConnectAndAuthenticateToServer(bool reconnect);
    void GetCachedProjectInfo();
    void CheckProjectAvailability();
    void CheckProjectState();
    bool CheckProjectPathChanged();
    void HandleCheckException(ZR::Ref<ZR::ZRException, ZR::Counter>* exception);
    ZR::UniString GetCurrentProjectId() const;

    // Session steps (ProjectConnectionSession.cpp).
    CheckResult StartAndCheckSession(bool explicitCheck, bool takeOverSession,
                                     bool ignoreCachedSession,
                                     Kerrow::Server::Project::Messages::SessionInfo& sessionInfo);
    void FillCache(Kerrow::Server::Project::Messages::SessionInfo& sessionInfo);

    /// Sends an internal signal if this connection posts signals.
    bool PostEvent(const KRCB::SignalId& signal, const ZR::UniString& text);

    CheckResult checkResult = CheckNotChecked;
    bool checkErrorSignalSent = false;
    bool postEvents = true;
    IO::Location projectLocation;
    bool secondary = false;
    ZR::UniString projectId;
    ZR::UniString sessionId;
    ProjectConnectionInfo* connectionInfo = nullptr;
    CachedProjectInfo* cachedProjectInfo = nullptr;
};

}  // namespace KRC
