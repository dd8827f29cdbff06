#pragma once
/// @file
/// The client of the service's signal channel: internal signals to the other
/// clients of a project, plain signals, the user's presence state, and
/// whether the channel is online.

#include <cstdint>
#include <memory>

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

class KRCB_EXPORT SignalClient {
public:
    /// A signal client of this user on this management server. It registers
    /// with the server at once; if the server can't be reached it stands
    /// offline.
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

    bool IsOnline() const;
    /// The user chose to work offline.
    bool IsForcedOffline() const;
    void SetForcedOffline(bool offline);
    /// Login names of the users whose clients are online on this server.
    void GetOnlineUsers(ZR::Array<ZR::UniString>& users) const;

    const ZR::UniString& GetServerUrl() const { return mServerUrl; }
    const ZR::UniString& GetUserName() const { return mUserName; }
    /// The id under which the server knows this client; empty while offline.
    const ZR::UniString& GetClientId() const { return mClientId; }

private:
    ZR::UniString mServerUrl;
    ZR::UniString mUserName;
    ZR::UniString mClientId;
};

}  // namespace KRCB
