#pragma once
/// @file
/// The vocabulary of the transport between the base client and a server: the
/// names of the operations a server serves and the kinds of refusal it can
/// give, as one list. The transport's names, the emulator's dispatch table and
/// its documentation (checked by a test) all come from here: an operation
/// added to the list has a name, must have a handler to link, and must be
/// documented. A host's tests that script the emulator use these names.

#include <cstddef>
#include <string_view>

/// X(name, area): the operation's name is its text; its area groups it
/// with its handlers.
#define KRCB_OPERATIONS(X)                   \
    X(Login, Logins)                         \
    X(CreateSessionWithState, Logins)        \
    X(IsAuthorizationPending, Logins)        \
    X(Query, Users)                          \
    X(GetCurrentUserId, Users)               \
    X(GetUser, Users)                        \
    X(GetUserImage, Users)                   \
    X(GetUsersByIds, Users)                  \
    X(GetProjectIdByPath, Projects)          \
    X(GetResourceById, Projects)             \
    X(OpenProjectClient, Projects)           \
    X(GetProjectState, Projects)             \
    X(GetUserPermissions, Projects)          \
    X(GetSessions, Sessions)                 \
    X(CreateSession, Sessions)               \
    X(GetSessionAttribute, Sessions)         \
    X(SetSessionAttribute, Sessions)         \
    X(GetProjectMembers, Members)            \
    X(SignalConnect, Signals)                \
    X(SignalDisconnect, Signals)             \
    X(SignalJoinProject, Signals)            \
    X(SendInternalSignal, Signals)           \
    X(SendSignal, Signals)                   \
    X(GetPresenceState, Signals)             \
    X(SetPresenceState, Signals)             \
    X(IsOnline, Signals)                     \
    X(IsForcedOffline, Signals)              \
    X(SetForcedOffline, Signals)             \
    X(GetOnlineUsers, Signals)               \
    X(OpenClient, Browsing)                  \
    X(GetPartialFolderTree, Browsing)        \
    X(GetFolderWithChildFolders, Browsing)   \
    X(GetFolderWithChildResources, Browsing) \
    X(CreateProjectFolder, Browsing)         \
    X(RenameProject, Browsing)               \
    X(GetLibraries, Browsing)                \
    X(GetProjectByPath, Browsing)            \
    X(GetProjectById, Browsing)              \
    KRCB_MAIL_OPERATIONS(X)

/// The mail server's operations, the mailbox monitor's only calls.
#define KRCB_MAIL_OPERATIONS(X) \
    X(MailConnect, Mail)        \
    X(MailDisconnect, Mail)     \
    X(GetMailboxChanges, Mail)  \
    X(GetMailContacts, Mail)    \
    X(SendMails, Mail)          \
    X(SetMailsRead, Mail)       \
    X(SetMailsCompleted, Mail)  \
    X(DeleteMails, Mail)

/// X(kind): the kinds of refusal; the transport throws the matching exception.
#define KRCB_FAULT_KINDS(X)            \
    X(SessionRequired)                 \
    X(CreateSessionFailed)             \
    X(EntityNotFound)                  \
    X(PortalServerClient)              \
    X(ConnectionFailed)                \
    X(IncompatibleModelServerVersion)  \
    X(IncompatibleProjectVersion)      \
    X(SessionExists)                   \
    X(ZRException)                     \
    X(Foreign)                         \
    X(PortalServerErrorResponse)       \
    X(NotInCompany)                    \
    X(GeneralErrorResponse)            \
    X(IncompatiblePortalServerVersion) \
    X(Interrupted)                     \
    X(InterruptedIO)                   \
    X(InternalError)                   \
    X(ForcedOffline)                   \
    X(ClientConnection)                \
    X(ProjectManagerClient)            \
    X(AccessDenied)                    \
    X(EntityExists)                    \
    X(EntityValidation)

namespace KRCB::Internal {

/// Operation names, as constants: Op::kLogin is "Login".
namespace Op {
#define KRCB_OPERATION_NAME(name, area) inline constexpr const char* k##name = #name;
KRCB_OPERATIONS(KRCB_OPERATION_NAME)
#undef KRCB_OPERATION_NAME
}  // namespace Op

/// The areas operations are grouped in. Logins need no login; the signal
/// channel's operations run under the user a signal client names; the
/// mail server's under a login, as the others.
enum class OpArea { Logins, Users, Projects, Sessions, Members, Signals, Browsing, Mail };

struct OperationInfo {
    std::string_view name;
    OpArea area;
};

inline constexpr OperationInfo kOperations[] = {
#define KRCB_OPERATION_INFO(name, area) {#name, OpArea::area},
    KRCB_OPERATIONS(KRCB_OPERATION_INFO)
#undef KRCB_OPERATION_INFO
};

/// The kinds of refusal a server gives.
enum class FaultKind {
#define KRCB_FAULT_KIND(kind) kind,
    KRCB_FAULT_KINDS(KRCB_FAULT_KIND)
#undef KRCB_FAULT_KIND
};

inline constexpr std::string_view kFaultKindNames[] = {
#define KRCB_FAULT_KIND_NAME(kind) #kind,
    KRCB_FAULT_KINDS(KRCB_FAULT_KIND_NAME)
#undef KRCB_FAULT_KIND_NAME
};

/// The operation of that name; null for a name not in the list.
constexpr const OperationInfo* FindOperation(std::string_view name) {
    for (const OperationInfo& info : kOperations)
        if (info.name == name) return &info;
    return nullptr;
}

}  // namespace KRCB::Internal
