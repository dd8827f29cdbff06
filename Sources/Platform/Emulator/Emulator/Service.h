#pragma once
/// @file
/// An in-process emulation of the service: management servers by URL, their
/// users, folders, projects, model servers and permissions, the project
/// servers' sessions and members, and the signal channel. The base client's
/// classes reach it through their transport interface only; tests and tools
/// build and change its state, script failures and blocks, and count calls
/// through this class. Thread-safe; ids and times are deterministic under the
/// seed.
///
/// Installed as the component `KRClient::Emulator`
/// (`find_package(KRClient COMPONENTS Emulator)`, or pkg-config
/// `KRClientEmulator`), so that a host's own tests start the service in their
/// process as the library's tests do:
///
/// @code
/// Emulator::Service service;                   // or FromScenarioFile(path)
/// service.AddServer({.url = "https://design.example.com"});
/// service.AddUser("https://design.example.com", {.login = "anna", .password = "secret"});
/// service.Install();                           // the library's calls reach it now
/// @endcode
///
/// Scenario files are described in EMULATOR.md, installed with the library's
/// documentation (share/doc/KRClient).
/// @ingroup emulator

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "KRCB/TransportNames.h"
#include "Kerrow/Mail.h"

/// The emulator is a library of its own beside the one a host ships.
#define KRC_EMULATOR_EXPORT __attribute__((visibility("default")))

namespace Emulator {

namespace Internal {
struct State;
}

/// Names of the operations the base client sends, for faults, blocks and
/// counts: the transport's own list. The signal channel's operations are not
/// counted by ServerCallCount.
namespace Op = KRCB::Internal::Op;

/// What a scripted failure throws at the caller in the base client.
using FaultKind = KRCB::Internal::FaultKind;

struct Fault {
    FaultKind kind = FaultKind::ZRException;
    std::string message = "emulated failure";
    /// Versions carried by the two Incompatible... kinds: for the model server
    /// the server's (major, minor) and the client's; for a project its (major, minor).
    int major = 0;
    int minor = 0;
    int clientMajor = 0;
    int clientMinor = 0;
    /// ConnectionFailed only: a SecureCommunicationHandshakeException stands at
    /// this depth of the exception's causes (1: the direct cause); 0 for none.
    int handshakeDepth = 0;
};

/// A scenario file that can't be used: a JSON syntax error (line and column
/// set) or a document that doesn't fit (an unknown key, a missing field...).
class KRC_EMULATOR_EXPORT ScenarioError : public std::runtime_error {
public:
    ScenarioError(const std::string& message, int line = 0, int column = 0);
    int GetLine() const { return mLine; }
    int GetColumn() const { return mColumn; }

private:
    int mLine;
    int mColumn;
};

struct UserSpec {
    std::string login;
    std::string password;
    std::string fullName;
    /// The server's id of the user: a GUID text generated from the seed if
    /// empty. Members' guids are made from it; any other text gives the null guid.
    std::string id;
    std::string refreshToken;  ///< generated from the seed if empty
    std::string color = "#808080ff";
    std::string guid;         ///< generated from the seed if empty
    std::string pictureType;  ///< "image/jpeg", "image/png", or empty for none
    std::vector<unsigned char> picture;
    /// A user outside the server's company is refused every login.
    bool companyMember = true;
};

struct ModelServerSpec {
    std::string id;
    std::string path;
    int major = 1;
    int minor = 0;
    /// Whether browsing answers list it among the visible model servers.
    bool visible = true;
};

/// A folder of the server's tree. Its id stays when it moves. The path ""
/// stands for the root folder, whose id is "projectRoot": AddFolder then
/// changes the root's settings.
struct FolderSpec {
    std::string path;  ///< "/a/b"; missing ancestors are made too
    std::string id;    ///< made from the path if empty
    /// The model server that new projects in it default to.
    std::string defaultModelServer;
    /// Nobody may create a folder in a locked folder (AccessDenied).
    bool locked = false;
    /// Login name to permission texts of the folder (the marks 2001 and
    /// above: LibraryView, LibraryRead, LibraryModify, LibraryDelete).
    std::map<std::string, std::vector<std::string>> permissions;
};

/// A library stored in a folder.
struct LibrarySpec {
    std::string path;  ///< "/Folder/Library"
    std::string id{};  ///< generated if empty
    std::map<std::string, std::vector<std::string>> permissions{};
};

/// A look-up of a project by path or id, as the server saw it.
struct LookupRecord {
    std::string serverUrl;
    std::string user;
    std::string op;   ///< GetProjectByPath or GetProjectById
    std::string key;  ///< the path or id asked for
};

struct SessionSpec {
    std::string id;    ///< generated if empty
    std::string user;  ///< login name
    std::map<std::string, std::vector<unsigned char>> attributes;
};

struct MemberSpec {
    std::string user;         ///< login name
    std::int16_t userId = 0;  ///< short id in the project; assigned if 0
};

struct ProjectSpec {
    std::string path;         ///< "/Folder/Project"
    std::string id;           ///< generated if empty
    std::string modelServer;  ///< model server id
    int state = 0;
    /// Login name to permission texts.
    std::map<std::string, std::vector<std::string>> permissions;
    std::vector<SessionSpec> sessions;
    std::vector<MemberSpec> members;
};

/// A state login the server accepts: the session key and state a login
/// dialog got elsewhere, and the user whose session they make.
struct StateLoginSpec {
    std::string key;
    std::string state;
    std::string user;  ///< login name
};

struct ServerSpec {
    std::string url;
    std::string friendlyName;
    int major = 1;
    int minor = 0;
    /// The URL a login reports the server under; empty: url.
    std::string answeredUrl{};
    /// Whether logins run over a secure channel; unset: an https url does.
    std::optional<bool> ssl{};
    /// The verification result of the secure channel; 0 is verified.
    int sslVerifyResult = 0;
    /// Taken as they are by AddServer; AddStateLogin checks what it is given.
    std::vector<StateLoginSpec> stateLogins{};
};

/// A signal the base client sent, in the order of sending.
struct SignalRecord {
    std::string serverUrl;
    std::string user;
    std::string clientId;
    std::string projectId;  ///< the project the client had joined; may be empty
    bool internal = false;  ///< SendInternalSignal or SendSignal
    int id = 0;
    std::string text;
    std::int64_t time = 0;  ///< the emulator's clock, milliseconds
};

/// A call of the mail server, with its arguments.
struct MailRequestRecord {
    std::string serverUrl;
    std::string user;  ///< login name
    std::string op;
    std::string box;  ///< "Inbox" or "Sent" for flags and deletes; else empty
    /// The mails set or deleted, or the ids of the mails sent.
    std::vector<std::string> ids;
    /// A fetch's revisions.
    std::uint64_t inboxRevision = 0;
    std::uint64_t sentRevision = 0;
};

/// A call held by BlockNext until Release.
class KRC_EMULATOR_EXPORT Gate {
public:
    virtual ~Gate() = default;
    /// Waits until a call has reached the gate; false after timeoutMs.
    virtual bool WaitUntilReached(int timeoutMs) = 0;
    /// Lets the held call (and any later one at this gate) go on.
    virtual void Release() = 0;
};

class KRC_EMULATOR_EXPORT Service {
public:
    explicit Service(std::uint64_t seed = 1);
    ~Service();
    Service(const Service&) = delete;
    Service& operator=(const Service&) = delete;

    /// Scenario files (see docs/EMULATOR.md).
    static std::unique_ptr<Service> FromScenarioText(const std::string& text,
                                                     std::uint64_t seed = 1);
    static std::unique_ptr<Service> FromScenarioFile(const std::string& path,
                                                     std::uint64_t seed = 1);
    /// The state as a scenario document (sessions and attributes included).
    std::string ToScenarioText() const;
    /// The same without passwords, refresh tokens and picture bytes (a user with a
    /// picture has "hasPicture": true): the state for people to see.
    std::string ToDisplayText() const;
    /// Writes ToScenarioText atomically (temporary file and rename).
    void SaveScenarioFile(const std::string& path) const;

    /// Makes this the service the base client talks to, until Uninstall or
    /// destruction. One service at a time per process.
    void Install();
    void Uninstall();

    // State.
    void AddServer(const ServerSpec& server);
    /// Answers the user's id.
    std::string AddUser(const std::string& serverUrl, const UserSpec& user);
    void AddModelServer(const std::string& serverUrl, const ModelServerSpec& modelServer);
    void AddFolder(const std::string& serverUrl, const std::string& path);

    // Browsing: the folder tree, libraries and look-ups.
    /// Answers the folder's id.
    std::string AddFolder(const std::string& serverUrl, const FolderSpec& folder);
    /// Empty if no folder stands at that path; "projectRoot" for "".
    std::string GetFolderId(const std::string& serverUrl, const std::string& path) const;
    /// The folder with everything under it goes to newPath; ids stay. The
    /// new parent must exist and newPath must be free.
    void MoveFolder(const std::string& serverUrl, const std::string& oldPath,
                    const std::string& newPath);
    /// Paths of the folders under path (all levels), in creation order.
    std::vector<std::string> GetFolders(const std::string& serverUrl,
                                        const std::string& path = "") const;
    /// Answers the library's id.
    std::string AddLibrary(const std::string& serverUrl, const LibrarySpec& library);
    /// Project look-ups by path and id since the start or ClearLookups.
    std::vector<LookupRecord> GetLookups() const;
    void ClearLookups();
    /// Answers the project's id. The sessions and members it lists are added too.
    std::string AddProject(const std::string& serverUrl, const ProjectSpec& project);
    std::optional<UserSpec> FindUser(const std::string& serverUrl, const std::string& login) const;
    /// Empty if no project stands at that path.
    std::string GetProjectId(const std::string& serverUrl, const std::string& path) const;

    /// Between calls: the id stays, the path changes (rename or move).
    void MoveProject(const std::string& serverUrl, const std::string& oldPath,
                     const std::string& newPath);
    /// Another project, of a new id, takes the path; the old one is gone. Answers the new id.
    std::string ReplaceProject(const std::string& serverUrl, const std::string& path);
    void DeleteProject(const std::string& serverUrl, const std::string& path);
    void SetProjectState(const std::string& serverUrl, const std::string& path, int state);
    void SetPermissions(const std::string& serverUrl, const std::string& path,
                        const std::string& login, const std::vector<std::string>& texts);
    void GrantPermission(const std::string& serverUrl, const std::string& path,
                         const std::string& login, const std::string& text);
    void RevokePermission(const std::string& serverUrl, const std::string& path,
                          const std::string& login, const std::string& text);
    std::vector<std::string> GetPermissions(const std::string& serverUrl, const std::string& path,
                                            const std::string& login) const;

    /// Sessions of the project at path. AddSession answers the session id.
    std::string AddSession(const std::string& serverUrl, const std::string& path,
                           const SessionSpec& session);
    std::vector<SessionSpec> GetSessions(const std::string& serverUrl,
                                         const std::string& path) const;
    void DeleteSession(const std::string& serverUrl, const std::string& sessionId);
    /// The session's "ComputerName" attribute, as the client stores it (UTF-8).
    void SetSessionComputer(const std::string& serverUrl, const std::string& sessionId,
                            const std::string& computer);
    std::optional<std::string> GetSessionComputer(const std::string& serverUrl,
                                                  const std::string& sessionId) const;
    void SetSessionAttribute(const std::string& serverUrl, const std::string& sessionId,
                             const std::string& name, const std::vector<unsigned char>& bytes);
    std::optional<std::vector<unsigned char>> GetSessionAttribute(const std::string& serverUrl,
                                                                  const std::string& sessionId,
                                                                  const std::string& name) const;

    /// Members of the project at path. A change sends signal 1 ("members
    /// changed", the text the user's login name) to the clients that joined
    /// the project, unless SetMemberSignals(false).
    void AddMember(const std::string& serverUrl, const std::string& path, const MemberSpec& member);
    void RemoveMember(const std::string& serverUrl, const std::string& path,
                      const std::string& login);
    /// The member of that short id becomes another user (who is no member yet).
    void SetMemberUser(const std::string& serverUrl, const std::string& path, std::int16_t userId,
                       const std::string& login);
    std::vector<MemberSpec> GetMembers(const std::string& serverUrl, const std::string& path) const;
    void SetMemberSignals(bool on);
    /// Changes a user's full name; no signal.
    void SetUserFullName(const std::string& serverUrl, const std::string& login,
                         const std::string& fullName);

    /// Logins by session key and state (CreateSessionWithState). A call held
    /// at a gate (BlockNext) is reported as pending authorization by
    /// IsAuthorizationPending until it goes on.
    void AddStateLogin(const std::string& serverUrl, const StateLoginSpec& login);

    /// A server that is down refuses every call with ConnectionFailed, and
    /// its signal clients are offline.
    void SetServerDown(const std::string& serverUrl, bool down);

    // Scripting.
    /// The next call of op (on any server) throws the fault.
    void FailNext(const std::string& op, const Fault& fault);
    /// The nth call of op from now (1 = the next) throws the fault.
    void FailNth(const std::string& op, int nth, const Fault& fault);
    /// Every call of op throws the fault until ClearFaults.
    void FailAlways(const std::string& op, const Fault& fault);
    void ClearFaults();
    /// The next successful login of op (Login or CreateSessionWithState) is
    /// answered as interrupted: the client stands, and IsInterrupted says so.
    void InterruptNext(const std::string& op);
    /// The next call of op waits at the returned gate until it is released.
    /// A thread interrupted while its call waits gets InterruptedIOException.
    std::shared_ptr<Gate> BlockNext(const std::string& op);

    /// Calls of op since the start or the last ResetCounts, failed ones included.
    int CallCount(const std::string& op) const;
    /// Calls of every server operation (the signal channel not counted).
    int ServerCallCount() const;
    void ResetCounts();

    // The signal channel. Pushes (signals to the other clients of a project,
    // presence states to a user's clients, changes of the online list to a
    // server's clients) go out on a thread of the emulator's own while it is
    // installed.
    /// A signal of the server itself to the clients that joined the project.
    void SendSignal(const std::string& serverUrl, const std::string& path, int id,
                    const std::string& text);
    /// Waits until every push sent so far has been delivered; false after timeoutMs.
    bool WaitForPushes(int timeoutMs) const;
    /// Signals the base client sent (not those of the server).
    std::vector<SignalRecord> GetSignals() const;
    void ClearSignals();
    /// The presence state last set by a client of that user; 0 if none.
    int GetPresenceState(const std::string& serverUrl, const std::string& user) const;
    void SetPresenceState(const std::string& serverUrl, const std::string& user, int state);
    /// Takes the user's signal clients offline (or back online). These three
    /// push to the clients of the server as a change made elsewhere would.
    void SetOnline(const std::string& serverUrl, const std::string& user, bool online);
    void SetForcedOffline(const std::string& serverUrl, const std::string& user, bool offline);

    // The mail server. Each user of a server has an inbox and a sent box,
    // named by the text form of their mailbox id ("<user id>/Inbox",
    // "<user id>/Sent"), each with a revision that every change raises and a
    // log of changes that mailbox monitors fetch from their revision. A
    // change is pushed to the monitors of the box's owner, which fetch it on
    // their own thread.
    /// The text form of a user's mailbox id; box is "Inbox" or "Sent".
    std::string GetMailboxId(const std::string& serverUrl, const std::string& login,
                             const std::string& box) const;
    /// Puts a mail into a mailbox (a mail of that id there already is replaced).
    void AddMail(const std::string& serverUrl, const std::string& mailboxId,
                 const Kerrow::Server::Mail::Mail& mail);
    /// The mails of the mailbox in the order they came; none for a mailbox that holds nothing.
    std::vector<Kerrow::Server::Mail::Mail> GetMails(const std::string& serverUrl,
                                                     const std::string& mailboxId) const;
    /// Removes the mail of that id; false if the mailbox has none.
    bool DeleteMail(const std::string& serverUrl, const std::string& mailboxId,
                    const std::string& mailId);
    /// 0 for a mailbox that never changed.
    std::uint64_t GetMailboxRevision(const std::string& serverUrl,
                                     const std::string& mailboxId) const;
    /// A gap: the revision moves on by a change no fetch will see, so the next
    /// change a monitor fetches starts past its revision.
    void ScriptMailGap(const std::string& serverUrl, const std::string& mailboxId);
    /// The next fetch of the mailbox answers the whole box, from revision 0.
    void ScriptWholeMailbox(const std::string& serverUrl, const std::string& mailboxId);
    /// The next call of op is answered as interrupted: a mailbox monitor
    /// ends its request canceled.
    void CancelNext(const std::string& op);
    /// Every call of the mail server's operations, failed ones included, in order.
    std::vector<MailRequestRecord> GetMailRequests() const;
    void ClearMailRequests();

private:
    std::shared_ptr<Internal::State> mState;
};

}  // namespace Emulator
