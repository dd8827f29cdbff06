#pragma once
// What the handlers of the operations share. There is one handler per
// operation of the transport's list, named Handle<operation> and defined in
// the file of its area (Logins.cpp, Users.cpp, Projects.cpp, Sessions.cpp,
// Members.cpp, Signals.cpp, Browsing.cpp); the dispatch table is made from the same list,
// so an operation without a handler doesn't link.

#include <functional>
#include <string>

#include "Emulator/Internal/State.h"

namespace Emulator::Internal {

using KRCB::Internal::Reply;
using KRCB::Internal::Request;
using FK = KRCB::Internal::FaultKind;

/// A refusal thrown from within a handler; the dispatch answers with it.
struct Refusal {
    Reply reply;
};
[[noreturn]] void Throw(FK kind, const std::string& message);

/// One call, served under the service's lock.
struct CallContext {
    State& state;
    Server& server;
    const Request& request;
    const Data& params;
    /// The user the call runs under: the login's, or the one a signal client
    /// names; null for a login.
    User* user = nullptr;

    std::string Text(const char* key) const;
    int Number(const char* key, int otherwise = 0) const;
    bool Flag(const char* key) const;
    /// The project of params' projectId; an EntityNotFound refusal if none.
    Project& RequireProject() const;
    /// The project's session of params' sessionId; EntityNotFound if none.
    Session& RequireSession(Project& project) const;
};

/// What a handler answers: a reply made under the lock, or (later set) a
/// reply built after the lock is released, from what the handler copied.
/// Large answers go the second way, so that other calls need not wait for
/// them.
struct Answer {
    Answer(Reply r) : reply(std::move(r)) {}  // NOLINT: a reply is an answer
    Answer(std::function<Reply()> build) : later(std::move(build)) {}  // NOLINT
    Reply reply;
    std::function<Reply()> later;
};

Reply Ok(Data result = nullptr);

/// The fields of a user that answers describe, copied out of the tables.
struct UserSummary {
    std::string id, login, fullName, guid, color;
    bool hasImage = false;
};
UserSummary Summarize(const User& user);
Data UserData(const UserSummary& user);

#define EMULATOR_DECLARE_HANDLER(name, area) Answer Handle##name(CallContext& call);
KRCB_OPERATIONS(EMULATOR_DECLARE_HANDLER)
#undef EMULATOR_DECLARE_HANDLER

}  // namespace Emulator::Internal
