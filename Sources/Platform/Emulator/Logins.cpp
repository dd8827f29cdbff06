// Logins as a dialog makes them: with a password, or with a session key and
// state; the refresh tokens they issue, the URL and secure channel the server
// answers with, and company membership.
#include <algorithm>
#include <stdexcept>

#include "Emulator/Internal/Handlers.h"
#include "KRCB/AuthenticatedClientConnection.h"

namespace Emulator {

void Service::InterruptNext(const std::string& op) {
    if (!Internal::IsLoginOperation(op) || op == Op::kIsAuthorizationPending)
        throw std::invalid_argument("only a login can be interrupted: " + op);
    std::lock_guard<std::mutex> lock(mState->mutex);
    ++mState->interruptions[op];
}

void Service::AddStateLogin(const std::string& serverUrl, const StateLoginSpec& login) {
    std::lock_guard<std::mutex> lock(mState->mutex);
    mState->AddStateLogin(mState->RequireServer(serverUrl), login);
}

namespace Internal {

using Kerrow::PortalServer::Client::PasswordEncrypter;

namespace {

std::string Text(const Data& params, const char* key) {
    auto it = params.find(key);
    return it != params.end() && it->is_string() ? it->get<std::string>() : std::string();
}

bool UsesSsl(const ServerSpec& spec) {
    if (spec.ssl) return *spec.ssl;
    return ZR::UniString(spec.url).BeginsWith("https://", ZR::kIgnoreCase);
}

}  // namespace

bool CredentialsFit(const User& user, const Data& params) {
    std::string token = Text(params, "refreshToken");
    if (!token.empty())
        return token == user.spec.refreshToken ||
               std::find(user.issuedTokens.begin(), user.issuedTokens.end(), token) !=
                   user.issuedTokens.end();
    // The client sends only the encrypted form; the plain one is refused.
    ZR::UniString password(Text(params, "password"));
    return !user.spec.password.empty() && PasswordEncrypter::IsEncrypted(password) &&
           password == PasswordEncrypter::Encrypt(ZR::UniString(user.spec.password));
}

void State::AddStateLogin(Server& server, const StateLoginSpec& spec) {
    if (spec.key.empty()) throw std::invalid_argument("a state login needs a key");
    if (!FindUser(server, spec.user)) throw std::invalid_argument("no user " + spec.user);
    for (const StateLoginSpec& other : server.spec.stateLogins)
        if (other.key == spec.key) throw std::invalid_argument("the key is given twice");
    server.spec.stateLogins.push_back(spec);
}

Answer HandleIsAuthorizationPending(CallContext& call) {
    const std::string key = call.Text("sessionKey");
    bool pending = false;
    for (const Request* held : call.state.held)
        pending = pending || (held->op == Op::kCreateSessionWithState &&
                              call.state.FindServer(held->serverUrl) == &call.server &&
                              Text(held->params, "sessionKey") == key);
    return Ok(pending);
}

namespace {

// A login of the user: the server's answer, and for a dialog's login a
// refresh token of its own.
Answer LogIn(CallContext& call, User& user, bool dialog) {
    State& state = call.state;
    const ServerSpec& server = call.server.spec;
    if (!user.spec.companyMember)
        return Refuse(FK::NotInCompany,
                      "The user \"" + user.spec.login + "\" is not a member of the company");

    std::string loginId = state.NewId("login");
    call.server.logins[loginId] = user.spec.login;
    Data result{{"loginId", loginId},
                {"userId", user.spec.id},
                {"login", user.spec.login},
                {"serverInfo",
                 {{"uniqueUrl", server.url},
                  {"friendlyName", server.friendlyName},
                  {"major", server.major},
                  {"minor", server.minor}}}};
    if (call.params.value("details", false)) result["user"] = UserData(Summarize(user));
    if (dialog) {
        // A dialog's login gets a token of its own, which later logins may use.
        user.issuedTokens.push_back(state.NewId("rt"));
        result["refreshToken"] = user.issuedTokens.back();
        result["serverUrl"] = server.answeredUrl.empty() ? server.url : server.answeredUrl;
        if (UsesSsl(server)) result["sslVerifyResult"] = server.sslVerifyResult;
        if (int& interrupt = state.interruptions[call.request.op]; interrupt > 0) {
            --interrupt;
            result["interrupted"] = true;
        }
    }
    return Ok(std::move(result));
}

}  // namespace

Answer HandleLogin(CallContext& call) {
    User* user = call.state.FindUser(call.server, call.request.user);
    if (!user || !CredentialsFit(*user, call.params))
        return Refuse(FK::CreateSessionFailed,
                      "Login refused for user \"" + call.request.user + "\"");
    return LogIn(call, *user, call.params.contains("password"));
}

Answer HandleCreateSessionWithState(CallContext& call) {
    const std::string key = call.Text("sessionKey"), sessionState = call.Text("sessionState");
    User* user = nullptr;
    for (const StateLoginSpec& login : call.server.spec.stateLogins)
        if (!key.empty() && login.key == key && login.state == sessionState)
            user = call.state.FindUser(call.server, login.user);
    if (!user) return Refuse(FK::CreateSessionFailed, "The session state was refused");
    return LogIn(call, *user, true);
}

}  // namespace Internal
}  // namespace Emulator
