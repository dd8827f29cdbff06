#pragma once
/// @file
/// The one way from the base client's classes to a server. A request names
/// the server, the operation, the login it runs under and its parameters as
/// data; the answer is a result as data or a fault, which Call turns into the
/// exception a caller of the base client catches. Whatever serves the
/// requests (the service emulator, or a network transport) installs itself
/// with SetTransport; the client classes never see more of it than this.

#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "KRCB/KRClientBaseExport.h"
#include "KRCB/TransportNames.h"

namespace KRCB::Internal {

/// Parameters and results: JSON values, with byte strings as binary values.
using Data = nlohmann::ordered_json;

// Operation names (Op::kLogin...) and fault kinds: one list, in KRCB/TransportNames.h.
// Which exception each fault kind throws: ThrowFault.

/// A refusal. The message must never hold a token or a password: it becomes
/// the text of an exception.
struct Fault {
    FaultKind kind = FaultKind::ZRException;
    std::string message;
    /// Carried by the Incompatible... kinds: for a model server the server's
    /// version and the client's; for a project or a management server its version.
    int major = 0;
    int minor = 0;
    int clientMajor = 0;
    int clientMinor = 0;
    /// ConnectionFailed only: at this depth of the cause chain (1: the direct
    /// cause) stands a SecureCommunication::SecureCommunicationHandshakeException;
    /// 0 for none.
    int handshakeDepth = 0;
};

struct Request {
    std::string serverUrl;
    /// One of the names of Op ("Login", "GetSessions", ...).
    std::string op;
    /// The login name the call runs under, and the id the server gave that
    /// login (empty for the login itself and the signal channel's connect).
    std::string user;
    std::string loginId;
    Data params = Data::object();
};

struct Reply {
    std::optional<Fault> fault;  ///< set: the call was refused
    Data result;
};

class Transport {
public:
    virtual ~Transport() = default;
    /// Blocks until the server answers. Must not throw.
    virtual Reply Call(const Request& request) = 0;
};

/// What a server sends to one signal client without being asked.
struct Push {
    enum class Kind { Signal, PresenceState, OnlineUsers };
    Kind kind = Kind::Signal;
    std::string clientId;
    int signalId = 0;
    std::string text;
    std::string sender;  ///< login name of the sending user; empty for the server
    int presenceState = 0;
};

/// Hands a push to the signal client it names, which calls its observers.
/// The transport calls it on a thread of its own, holding none of its locks;
/// a push for a client that is gone is dropped.
KRCB_EXPORT void Deliver(const Push& push);

/// What a mail server tells one mailbox monitor without being asked: its
/// user's boxes changed, or the connection to the server went down or came
/// back.
struct MailboxPush {
    enum class Kind { MailsChanged, ServerDown, ServerUp };
    Kind kind = Kind::MailsChanged;
    std::string monitorId;
};

/// Hands a push to the monitor it names, which only queues it for its own
/// thread and returns: a server may call it holding its locks. A push for a
/// monitor that is gone is dropped.
KRCB_EXPORT void DeliverMailbox(const MailboxPush& push);

/// Installs the process-wide transport; null removes it. A call under way
/// keeps the transport it started with. Exported with Deliver: the emulator
/// component, a library of its own, serves the shared object through them.
KRCB_EXPORT void SetTransport(std::shared_ptr<Transport> transport);
KRCB_EXPORT std::shared_ptr<Transport> GetTransport();

/// Sends the request and answers the result; a fault is thrown as its
/// exception. With no transport installed: ConnectionFailedException naming
/// the server.
Data Call(const Request& request);

/// Throws the exception of a fault.
[[noreturn]] void ThrowFault(const Fault& fault);

/// The version of the project server protocol this client speaks.
inline constexpr int kClientMajorVersion = 1;
inline constexpr int kClientMinorVersion = 0;

}  // namespace KRCB::Internal
