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

/// Ids of signals. The library uses 1 (project members changed) and 12 to 22
/// (problems found by a connection check).
using SignalId = std::int32_t;

/// 0 not yet set; 1 a session problem already told by a signal; 2 a check
/// failed; 3 online.
using PresenceState = std::int32_t;

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
