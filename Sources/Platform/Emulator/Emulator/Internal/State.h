#pragma once
// The emulator's tables and the machinery around them: one mutex over all of
// it, the seeded generator of ids, faults, gates and counts.
//
// The tables keep their entries in order (the order a scenario is written
// in); beside them stand indexes by id and by case-folded name, so that no
// look-up walks a table. Whatever changes a table goes through State, or
// calls the Reindex function of the table it changed.

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "Emulator/Service.h"
#include "KRCB/Internal/Transport.h"
#include "ZR/Thread.h"

namespace Emulator::Internal {

using KRCB::Internal::Data;

inline constexpr const char* kComputerNameAttribute = "ComputerName";

struct Session {
    std::string id;
    std::string user;  ///< login name
    std::map<std::string, std::vector<unsigned char>> attributes;
};

struct Project {
    std::string id;
    std::string path;
    std::string modelServer;
    int state = 0;
    std::map<std::string, std::vector<std::string>> permissions;  ///< login to texts
    std::vector<Session> sessions;                                ///< in creation order
    std::vector<MemberSpec> members;

    // Indexes, by FoldKey of the login: the place of each member in members;
    // the short ids taken and the highest; the users with a session; the
    // keys of permissions (a scenario may spell one user two ways).
    std::unordered_map<std::string, std::size_t> memberByLogin;
    std::unordered_set<std::int16_t> memberIds;
    std::int16_t highestMemberId = 0;
    std::unordered_set<std::string> sessionUsers;
    std::unordered_map<std::string, std::set<std::string>> permissionKeys;
};

struct User {
    UserSpec spec;
    bool online = true;
    bool forcedOffline = false;
    int presence = 0;
    /// Refresh tokens issued by password and state logins; each logs in as
    /// the scenario's token does. Not written to a scenario.
    std::vector<std::string> issuedTokens;
};

/// A folder of the tree; the root stands first in Server::folders.
struct Folder {
    std::string id;
    std::string path;  ///< "" for the root
    std::string parentId;
    std::string defaultModelServer;
    bool locked = false;
    /// Made as the ancestor of another; not written to a scenario.
    bool implicit = false;
    std::map<std::string, std::vector<std::string>> permissions;
};

struct Library {
    std::string id;
    std::string path;
    std::map<std::string, std::vector<std::string>> permissions;
};

inline constexpr const char* kRootFolderId = "projectRoot";

struct SignalClientEntry {
    std::string id;
    std::string user;
    std::string projectId;
};

/// One mailbox of the mail server. The log holds the changes after
/// logStart; a fetch from before it gets the whole box.
struct Mailbox {
    enum class Change { Created, Updated, Deleted };
    struct Entry {
        std::uint64_t revision;
        std::string mailId;
        Change change;
    };
    std::vector<Kerrow::Server::Mail::Mail> mails;  ///< in the order they came
    std::unordered_map<std::string, std::size_t> byId;
    std::uint64_t revision = 0;
    std::uint64_t logStart = 0;
    std::vector<Entry> log;
    /// Scripted: a fetch from before gapAt starts at it; the next fetch is whole.
    std::uint64_t gapAt = 0;
    bool wholeNext = false;
};

/// A mailbox monitor connected to the mail server; kept when it leaves, as
/// the user's known mailbox sessions.
struct MailMonitorEntry {
    std::string id;
    std::string userId;
    bool active = true;
};

struct Server {
    ServerSpec spec;
    bool down = false;
    std::vector<User> users;
    std::vector<ModelServerSpec> modelServers;
    std::vector<Folder> folders;  ///< the root first; parents before children
    std::vector<Library> libraries;
    std::vector<Project> projects;
    std::vector<SignalClientEntry> clients;
    std::map<std::string, std::string> logins;  ///< login id to login name
    /// Mailbox id (text form) to the mailbox.
    std::unordered_map<std::string, Mailbox> mailboxes;
    std::vector<MailMonitorEntry> mailMonitors;

    // Indexes: places in the tables above by FoldKey of a login or path, and
    // by id; a folder's path by FolderId; a session's project id by session id.
    std::unordered_map<std::string, std::size_t> userByLogin;
    std::unordered_map<std::string, std::size_t> userById;
    std::unordered_map<std::string, std::size_t> modelServerById;
    std::unordered_map<std::string, std::size_t> folderByPath;
    std::unordered_map<std::string, std::size_t> folderById;
    /// By folder id: its sub-folders, projects and libraries, as places.
    std::unordered_map<std::string, std::vector<std::size_t>> subFolders;
    std::unordered_map<std::string, std::vector<std::size_t>> folderProjects;
    std::unordered_map<std::string, std::vector<std::size_t>> folderLibraries;
    std::unordered_map<std::string, std::size_t> libraryById;
    std::unordered_map<std::string, std::size_t> projectByPath;
    std::unordered_map<std::string, std::size_t> projectById;
    std::unordered_map<std::string, std::string> sessionProject;
};

class GateImpl : public Gate {
public:
    bool WaitUntilReached(int timeoutMs) override;
    void Release() override;
    /// Called by the held call, outside the service's lock. False if the
    /// calling thread was interrupted while it waited, as a blocking read is.
    bool Hold();

private:
    std::mutex mMutex;
    ZR::Condition mChanged;
    bool mReached = false;
    bool mReleased = false;
};

/// Sends pushes to the base client on a thread of its own, in the order they
/// were queued, as a server's push channel would. The thread starts with the
/// first push and ends with Stop.
class Deliverer {
public:
    ~Deliverer();
    /// Drops the push after Stop.
    void Queue(KRCB::Internal::Push push);
    /// Waits until nothing is queued or under way; false after timeoutMs.
    bool WaitIdle(int timeoutMs);
    /// Ends the thread after the push under way; what is queued is dropped.
    void Stop();

private:
    void Run();
    std::mutex mMutex;
    std::condition_variable mChanged;
    std::deque<KRCB::Internal::Push> mQueue;
    bool mBusy = false;
    bool mStopped = false;
    std::thread mThread;
};

struct FaultRule {
    int countdown = 1;  ///< fires when it reaches 0
    Fault fault;
};

struct State {
    explicit State(std::uint64_t seed);

    mutable std::mutex mutex;
    std::uint64_t random;
    std::int64_t clock;
    std::vector<Server> servers;
    /// Places in servers by KRCB::ServerUrlKey.
    std::unordered_map<std::string, std::size_t> serverByUrl;

    std::map<std::string, std::vector<FaultRule>> faults;
    std::map<std::string, Fault> permanentFaults;
    std::map<std::string, std::deque<std::shared_ptr<GateImpl>>> gates;
    std::vector<std::shared_ptr<GateImpl>> allGates;  ///< released when the service goes
    std::map<std::string, int> counts;
    std::vector<SignalRecord> signals;
    /// Calls waiting at a gate, for IsAuthorizationPending.
    std::vector<const KRCB::Internal::Request*> held;
    /// Logins to be answered as interrupted, by operation.
    std::map<std::string, int> interruptions;
    /// The transport Install made, to tell it from another one at Uninstall.
    const KRCB::Internal::Transport* installed = nullptr;
    /// Pushes go out only while the service is installed.
    std::shared_ptr<Deliverer> deliverer = std::make_shared<Deliverer>();
    /// Whether a change of a project's members sends signal 1 to its clients.
    bool memberSignals = true;
    std::vector<MailRequestRecord> mailRequests;
    std::vector<LookupRecord> lookups;

    // Under the lock.
    std::uint64_t Next();
    std::string NewId(const char* prefix);
    std::string NewGuid();
    std::int64_t Tick();

    Server* FindServer(const std::string& url);
    Server& RequireServer(const std::string& url);
    User* FindUser(Server& server, const std::string& login);
    User* FindUserById(Server& server, const std::string& id);
    Project* FindProjectByPath(Server& server, const std::string& path);
    Project* FindProjectById(Server& server, const std::string& id);
    Project& RequireProject(Server& server, const std::string& path);
    /// The session and its project; null if none has that id.
    Session* FindSession(Server& server, const std::string& sessionId, Project** project);
    const ModelServerSpec* FindModelServer(const Server& server, const std::string& id) const;

    /// Additions that check what they're given; std::invalid_argument if it doesn't fit.
    void AddServer(const ServerSpec& spec);
    std::string AddUser(Server& server, UserSpec spec);
    void AddModelServer(Server& server, const ModelServerSpec& spec);
    void AddFolder(Server& server, const std::string& path);
    // Browsing (BrowseState.cpp).
    std::string AddFolder(Server& server, const FolderSpec& spec);
    Folder* FindFolderByPath(Server& server, const std::string& path);
    Folder* FindFolderById(Server& server, const std::string& id);
    /// The folder at path, made (implicit, with its ancestors) if missing.
    Folder& EnsureFolder(Server& server, const std::string& path);
    void MoveFolder(Server& server, const std::string& oldPath, const std::string& newPath);
    std::string AddLibrary(Server& server, const LibrarySpec& spec);
    /// Rebuilds the folder, project-in-folder and library indexes.
    void ReindexBrowsing(Server& server);
    static void MakeRootFolder(Server& server);
    std::string AddProject(Server& server, const ProjectSpec& spec);
    std::string AddSession(Server& server, Project& project, const SessionSpec& spec);
    /// The member's short id; the user becomes a member with the next one.
    std::int16_t EnsureMember(Project& project, const std::string& login, std::int16_t userId = 0);
    static void CheckPermissionTexts(const std::vector<std::string>& texts);

    /// Rebuild the indexes of a table after a change that moved its entries
    /// (a removal) or changed many keys at once.
    static void ReindexMembers(Project& project);
    static void ReindexPermissions(Project& project);
    void ReindexProjects(Server& server);
    /// After the project's sessions changed: its users and the session ids.
    void ReindexSessions(Server& server, Project& project);
    /// The project at path gets another path or id; the indexes follow.
    void MoveProject(Server& server, Project& project, const std::string& newPath);
    void ChangeProjectId(Server& server, Project& project, const std::string& newId);
    void RemoveProject(Server& server, Project& project);
    void RemoveSession(Server& server, Project& project, const std::string& sessionId);
    /// Permission texts of a user, all spellings of the login together.
    std::vector<std::string> PermissionsOf(const Project& project, const std::string& login) const;
    void SetPermissions(Project& project, const std::string& login,
                        const std::vector<std::string>& texts);

    /// Pushes, queued under the lock. A signal goes to the clients that
    /// joined the project, but the sending one (clientId, may be empty).
    void PushSignal(Server& server, const std::string& projectId, const std::string& clientId,
                    const std::string& sender, int id, const std::string& text);
    void PushPresence(Server& server, const std::string& user, const std::string& clientId,
                      int state);
    void PushOnlineUsers(Server& server, const std::string& clientId);
    /// Signal 1 to the project's clients, if memberSignals is on.
    void MembersChanged(Server& server, const Project& project, const std::string& login);

    /// The mail server, in MailServer.cpp. Changes of a box log themselves
    /// and push to the monitors of its owner.
    Mailbox& RequireMailbox(Server& server, const std::string& mailboxId);
    void PutMail(Server& server, const std::string& mailboxId,
                 const Kerrow::Server::Mail::Mail& mail);
    bool RemoveMail(Server& server, const std::string& mailboxId, const std::string& mailId);
    void PushMailsChanged(Server& server, const std::string& ownerId);
    /// To the monitors of the server: it went down or came back.
    void PushMailServerState(Server& server, bool down);
    void RecordMailRequest(const KRCB::Internal::Request& request);

    /// The transport: counts, gates, faults, then the operation's handler,
    /// which runs under the lock; a large answer is built after it.
    KRCB::Internal::Reply Call(const KRCB::Internal::Request& request);
    void AddStateLogin(Server& server, const StateLoginSpec& spec);
};

/// A login with a refresh token (the scenario's or one the server issued) or
/// with a password in its encrypted form; an empty one never fits.
bool CredentialsFit(const User& user, const Data& params);
/// Operations of the logins' area, which need no login.
bool IsLoginOperation(const std::string& op);

/// The signal channel's operations, which ServerCallCount leaves out.
bool IsSignalOperation(const std::string& op);

/// A folder's id, made from its path so that it is the same in every run.
std::string FolderId(const std::string& path);

/// Paths and logins compare without regard to case.
bool SameText(const std::string& a, const std::string& b);
/// The key of a text in an index: equal keys exactly for texts that SameText finds equal.
std::string FoldKey(const std::string& text);

KRCB::Internal::Reply Refuse(KRCB::Internal::FaultKind kind, const std::string& message);
KRCB::Internal::Fault ToTransportFault(const Fault& fault);

std::string EncodeBase64(const std::vector<unsigned char>& bytes);
/// False for anything but strict base64 (padding included).
bool DecodeBase64(const std::string& text, std::vector<unsigned char>* bytes);

}  // namespace Emulator::Internal
