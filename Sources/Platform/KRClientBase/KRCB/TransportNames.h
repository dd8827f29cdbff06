#pragma once
/// @file
/// The vocabulary of the transport between the base client and a server: the
/// names of the operations a server serves and the kinds of refusal it can
/// give. Whatever serves the requests (the service emulator, or a network
/// transport) and a host's tests that script the emulator use these names.

namespace KRCB::Internal {

/// Operation names; the emulator counts, fails and blocks calls by them.
namespace Op {
inline constexpr const char* kLogin = "Login";
inline constexpr const char* kQuery = "Query";
inline constexpr const char* kGetCurrentUserId = "GetCurrentUserId";
inline constexpr const char* kGetProjectIdByPath = "GetProjectIdByPath";
inline constexpr const char* kGetResourceById = "GetResourceById";
inline constexpr const char* kGetProjectState = "GetProjectState";
inline constexpr const char* kGetUserPermissions = "GetUserPermissions";
inline constexpr const char* kGetUser = "GetUser";
inline constexpr const char* kGetUserImage = "GetUserImage";
inline constexpr const char* kGetUsersByIds = "GetUsersByIds";
inline constexpr const char* kOpenProjectClient = "OpenProjectClient";
inline constexpr const char* kGetSessions = "GetSessions";
inline constexpr const char* kCreateSession = "CreateSession";
inline constexpr const char* kGetProjectMembers = "GetProjectMembers";
inline constexpr const char* kGetSessionAttribute = "GetSessionAttribute";
inline constexpr const char* kSetSessionAttribute = "SetSessionAttribute";
inline constexpr const char* kSignalConnect = "SignalConnect";
inline constexpr const char* kSignalDisconnect = "SignalDisconnect";
inline constexpr const char* kSignalJoinProject = "SignalJoinProject";
inline constexpr const char* kSendInternalSignal = "SendInternalSignal";
inline constexpr const char* kSendSignal = "SendSignal";
inline constexpr const char* kGetPresenceState = "GetPresenceState";
inline constexpr const char* kSetPresenceState = "SetPresenceState";
inline constexpr const char* kIsOnline = "IsOnline";
inline constexpr const char* kIsForcedOffline = "IsForcedOffline";
inline constexpr const char* kSetForcedOffline = "SetForcedOffline";
inline constexpr const char* kGetOnlineUsers = "GetOnlineUsers";
inline constexpr const char* kCreateSessionWithState = "CreateSessionWithState";
inline constexpr const char* kIsAuthorizationPending = "IsAuthorizationPending";
}  // namespace Op

/// The kinds of refusal a server gives; Call throws the matching exception.
enum class FaultKind {
    SessionRequired,                 ///< Kerrow::PortalServer::Client::SessionRequiredException
    CreateSessionFailed,             ///< ...::CreateSessionFailedException
    EntityNotFound,                  ///< ...::EntityNotFoundException
    PortalServerClient,              ///< ...::PortalServerClientException
    ConnectionFailed,                ///< ...::ConnectionFailedException
    IncompatibleModelServerVersion,  ///< KRCB::IncompatibleModelServerVersionException
    IncompatibleProjectVersion,      ///< KRCB::IncompatibleProjectVersionException
    SessionExists,  ///< Kerrow::Server::Project::Client::ProjectManagerClientSessionExistsException
    ZRException,    ///< ZR::ZRException
    Foreign,        ///< std::runtime_error: a failure outside the ZR family
    PortalServerErrorResponse,        ///< ...::PortalServerErrorResponseException
    NotInCompany,                     ///< ...::NotInCompanyResponseException
    GeneralErrorResponse,             ///< ...::GeneralErrorResponseException
    IncompatiblePortalServerVersion,  ///< KRCB::IncompatiblePortalServerVersionException
    Interrupted,                      ///< ZR::InterruptedException
    InterruptedIO,                    ///< ZR::InterruptedIOException
    InternalError,                    ///< ZR::InternalErrorException
    ForcedOffline,                    ///< KRCB::ForcedOfflineStateException
    ClientConnection,                 ///< Communication::Client::ClientConnectionException
    ProjectManagerClient,  ///< Kerrow::Server::Project::Client::ProjectManagerClientException
};

}  // namespace KRCB::Internal
