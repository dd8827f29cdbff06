#pragma once
/// @file
/// The client of the service's signal channel: internal signals to the other
/// clients of a project, plain signals, the user's presence state, and
/// whether the channel is online.

#include <cstdint>
#include <memory>

#include "IO/Location.h"
#include "KRCB/KRClientBaseExport.h"
#include "ZR/Containers.h"
#include "ZR/EventSource.h"
#include "ZR/Ref.h"
#include "ZR/UniString.h"

namespace KRCB {

namespace Internal {
class SignalChannel;
}

/// Ids of signals: any number; KnownSignalId names the ones the library sends
/// or listens to.
using SignalId = std::int32_t;

/// The signal ids the library sends (a connection check, to the other clients
/// of the project) and listens to. One id may mean two things to two
/// listeners: the mail client gives 1 and 18 meanings of its own.
enum KnownSignalId : SignalId {
    /// Project members: the project's members changed, fetch them again.
    /// Mail client: the contact list changed (the monitor updates it).
    kSignalMembersChanged = 1,
    /// Mail client: the mailbox changed (the monitor updates the mails).
    kSignalMailsChanged = 10,
    /// Check: the user's session belongs to another computer; the text names it.
    kSignalSessionOnOtherComputer = 12,
    /// Check: the server's session isn't the one in the cache.
    kSignalSessionChanged = 13,
    /// Check: the server wanted a session, or refused to make one.
    kSignalNoSession = 14,
    /// Check: no such project on the server, or another project at its path.
    kSignalProjectNotFound = 15,
    /// Check: the project lives on under another path.
    kSignalProjectMoved = 16,
    /// Check: project state 2 on a write connection.
    kSignalProjectNotWritable = 17,
    /// Check: project state 3.
    /// Mail client: reset the connection of the mailbox monitor.
    kSignalProjectStateRefused = 18,
    /// Check: the model server's version doesn't fit; the text tells the versions.
    kSignalIncompatibleServer = 19,
    /// Check: the project's version doesn't fit; the text is "major.minor.0/minor".
    kSignalIncompatibleProject = 22,
};

/// The name of a known signal id as a check sends it ("ProjectNotFound"), or
/// "unknown". Ids 1 and 18 carry their check and members names; see above for
/// the mail client's.
inline const char* GetSignalName(SignalId id) {
    switch (id) {
        case kSignalMembersChanged:
            return "MembersChanged";
        case kSignalMailsChanged:
            return "MailsChanged";
        case kSignalSessionOnOtherComputer:
            return "SessionOnOtherComputer";
        case kSignalSessionChanged:
            return "SessionChanged";
        case kSignalNoSession:
            return "NoSession";
        case kSignalProjectNotFound:
            return "ProjectNotFound";
        case kSignalProjectMoved:
            return "ProjectMoved";
        case kSignalProjectNotWritable:
            return "ProjectNotWritable";
        case kSignalProjectStateRefused:
            return "ProjectStateRefused";
        case kSignalIncompatibleServer:
            return "IncompatibleServer";
        case kSignalIncompatibleProject:
            return "IncompatibleProject";
        default:
            return "unknown";
    }
}

/// A user's presence, as the connection check reads and sets it on the
/// signal client: any number; KnownPresenceState names the ones it uses.
using PresenceState = std::int32_t;

enum KnownPresenceState : PresenceState {
    /// Nothing set yet.
    kPresenceNotSet = 0,
    /// A session problem, already told by a signal: a later implicit check
    /// stays offline until an explicit one.
    kPresenceSessionProblemTold = 1,
    /// A check failed; likewise.
    kPresenceCheckFailed = 2,
    /// The last check found the connection usable. The mail client's monitor
    /// runs only in this state and is suspended in every other.
    kPresenceOnline = 3,
};

/// "not set", "session problem told", "check failed", "online", or "unknown".
inline const char* GetPresenceStateName(PresenceState state) {
    switch (state) {
        case kPresenceNotSet:
            return "not set";
        case kPresenceSessionProblemTold:
            return "session problem told";
        case kPresenceCheckFailed:
            return "check failed";
        case kPresenceOnline:
            return "online";
        default:
            return "unknown";
    }
}

class SignalClient;

/// A signal as it reaches the other clients of a project.
class KRCB_EXPORT Signal {
public:
    Signal() = default;
    Signal(SignalId id, const ZR::UniString& text, const ZR::UniString& sender)
        : mId(id), mText(text), mSender(sender) {}
    const SignalId& GetId() const { return mId; }
    const ZR::UniString& GetText() const { return mText; }
    /// Login name of the user whose client sent it; empty if the server did.
    const ZR::UniString& GetSender() const { return mSender; }

private:
    SignalId mId = 0;
    ZR::UniString mText;
    ZR::UniString mSender;
};

/// Hears the signals of the project its signal client joined. Called on the
/// signal client's delivery thread, never on the host's; an observer that is
/// destroyed while others still deliver calls DetachFromSources first.
class KRCB_EXPORT SignalObserver : public ZR::TS::EventObserver {
public:
    ~SignalObserver() override;
    /// Whether SignalReceived wants signals of this id; the base wants all.
    virtual bool CheckSignalType(const SignalId& id) const;
    /// What the signal client calls: SignalReceived if CheckSignalType accepts the id.
    virtual void PrimarySignalReceived(SignalClient* client, const Signal& signal);
    virtual void SignalReceived(SignalClient* client, const Signal& signal);
};

/// Hears the user's presence state and the list of online users change.
/// Called on the signal client's delivery thread.
class KRCB_EXPORT PresenceObserver : public ZR::TS::EventObserver {
public:
    ~PresenceObserver() override;
    /// What the signal client calls: PresenceStateChanged.
    virtual void PrimaryPresenceStateChanged(const PresenceState& state);
    virtual void PresenceStateChanged(const PresenceState& state);
    /// GetOnlineUsers would answer differently now.
    virtual void OnlineUserListChanged();
};

/// Calls of the channel never throw: what can't reach the server is dropped,
/// and the state questions answer what was last known.
class KRCB_EXPORT SignalClient {
public:
    /// A signal client of this user on this management server. It registers
    /// with the server at once; if the server can't be reached or refuses the
    /// token it stands offline until Reconnect.
    SignalClient(const ZR::UniString& serverUrl, const ZR::UniString& userName,
                 const ZR::UniString& refreshToken);
    virtual ~SignalClient();
    SignalClient(const SignalClient&) = delete;
    SignalClient& operator=(const SignalClient&) = delete;

    /// Sends an internal signal, heard by the other clients of the project.
    void SendInternalSignal(const SignalId& signal, const ZR::UniString& text);
    /// Sends a plain signal.
    void SendSignal(const SignalId& signal, const ZR::UniString& text);

    PresenceState GetPresenceState() const;
    void SetPresenceState(PresenceState state);

    /// Registered, and the server and the user's channel are up.
    bool IsOnline() const;
    /// The user chose to work offline.
    bool IsForcedOffline() const;
    void SetForcedOffline(bool offline);
    /// Login names of the users whose clients are online on this server.
    void GetOnlineUsers(ZR::Array<ZR::UniString>& users) const;
    /// Whether the user of that login name (any case) is among them.
    bool IsOnline(const ZR::UniString& userName) const;

    /// Registers again (after the server was down, or with a new token) and
    /// joins the project it had joined.
    void Reconnect();
    /// Joins the channel of a project: its signals go to the project's clients.
    void JoinProject(const ZR::UniString& projectId);
    ZR::UniString GetProjectId() const;

    /// The project location of the manager that made the client; its
    /// password is the refresh token in use. PasswordChanged replaces it.
    IO::Location GetProjectLocation() const;
    void SetProjectLocation(const IO::Location& location);

    const ZR::UniString& GetServerUrl() const { return mServerUrl; }
    const ZR::UniString& GetUserName() const { return mUserName; }
    /// The id under which the server knows this client; empty while offline.
    ZR::UniString GetClientId() const;

    /// Observers are called on the client's delivery thread (the server's
    /// push channel), one message at a time, in the order the server sent
    /// them. Safe from any thread; a detach waits for a call under way. An
    /// observer must not destroy the client from its call.
    void Attach(SignalObserver& observer);
    void Detach(SignalObserver& observer);
    void Attach(PresenceObserver& observer);
    void Detach(PresenceObserver& observer);

private:
    ZR::UniString mServerUrl;
    ZR::UniString mUserName;
    std::unique_ptr<Internal::SignalChannel> mChannel;
    void SetClientId(const ZR::UniString& clientId);
    friend class Internal::SignalChannel;
};

}  // namespace KRCB
