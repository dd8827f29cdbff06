// Logins as a dialog makes them: with a password, or with a session key and
// state; the refresh tokens they issue, the URL and secure channel the server
// answers with, and company membership.
#include <algorithm>
#include <stdexcept>

#include "Emulator/Internal/State.h"
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
using KRCB::Internal::Reply;
using KRCB::Internal::Request;
using FK = KRCB::Internal::FaultKind;

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

bool IsLoginOperation(const std::string& op) {
    return op == Op::kLogin || op == Op::kCreateSessionWithState ||
           op == Op::kIsAuthorizationPending;
}

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

Reply State::DispatchLogin(Server& server, const Request& request) {
    const std::string& op = request.op;
    const Data& params = request.params;

    if (op == Op::kIsAuthorizationPending) {
        const std::string key = Text(params, "sessionKey");
        bool pending = false;
        for (const Request* call : held)
            pending = pending || (call->op == Op::kCreateSessionWithState &&
                                  FindServer(call->serverUrl) == &server &&
                                  Text(call->params, "sessionKey") == key);
        Reply reply;
        reply.result = pending;
        return reply;
    }

    User* user = nullptr;
    const bool passwordLogin = op == Op::kLogin && params.contains("password");
    if (op == Op::kCreateSessionWithState) {
        const std::string key = Text(params, "sessionKey"), state = Text(params, "sessionState");
        for (const StateLoginSpec& login : server.spec.stateLogins)
            if (!key.empty() && login.key == key && login.state == state)
                user = FindUser(server, login.user);
        if (!user) return Refuse(FK::CreateSessionFailed, "The session state was refused");
    } else {
        user = FindUser(server, request.user);
        if (!user || !CredentialsFit(*user, params))
            return Refuse(FK::CreateSessionFailed,
                          "Login refused for user \"" + request.user + "\"");
    }
    if (!user->spec.companyMember)
        return Refuse(FK::NotInCompany,
                      "The user \"" + user->spec.login + "\" is not a member of the company");

    std::string loginId = NewId("login");
    server.logins[loginId] = user->spec.login;
    Data result{{"loginId", loginId},
                {"userId", user->spec.id},
                {"login", user->spec.login},
                {"serverInfo",
                 {{"uniqueUrl", server.spec.url},
                  {"friendlyName", server.spec.friendlyName},
                  {"major", server.spec.major},
                  {"minor", server.spec.minor}}}};
    if (params.value("details", false)) result["user"] = UserData(*user);
    if (passwordLogin || op == Op::kCreateSessionWithState) {
        // A dialog's login gets a token of its own, which later logins may use.
        user->issuedTokens.push_back(NewId("rt"));
        result["refreshToken"] = user->issuedTokens.back();
        result["serverUrl"] =
            server.spec.answeredUrl.empty() ? server.spec.url : server.spec.answeredUrl;
        if (UsesSsl(server.spec)) result["sslVerifyResult"] = server.spec.sslVerifyResult;
        if (int& interrupt = interruptions[op]; interrupt > 0) {
            --interrupt;
            result["interrupted"] = true;
        }
    }
    Reply reply;
    reply.result = std::move(result);
    return reply;
}

}  // namespace Internal
}  // namespace Emulator
