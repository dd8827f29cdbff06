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
    /// joins the project it had joined. Not to be called while another
    /// thread reads GetClientId.
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
    const ZR::UniString& GetClientId() const { return mClientId; }

private:
    ZR::UniString mServerUrl;
    ZR::UniString mUserName;
    ZR::UniString mClientId;
    std::unique_ptr<Internal::SignalChannel> mChannel;
};

}  // namespace KRCB
