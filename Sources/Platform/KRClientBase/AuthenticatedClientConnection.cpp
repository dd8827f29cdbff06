#include "KRCB/AuthenticatedClientConnection.h"

#include <optional>

#include "KRCB/Internal/ClientSession.h"
#include "KRCB/Internal/Transport.h"
#include "Kerrow/Exceptions.h"
#include "ZR/MD5.h"

namespace Kerrow::PortalServer::Client {

using KRCB::Internal::Data;
namespace Op = KRCB::Internal::Op;

namespace {

constexpr const char* kEncryptedPrefix = "krpw1:";
constexpr std::size_t kFingerPrintDigits = 32;

bool IsHexDigit(char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f');
}

}  // namespace

bool PasswordEncrypter::IsEncrypted(const ZR::UniString& password) {
    const std::string& text = password.Std();
    const std::string prefix(kEncryptedPrefix);
    if (text.size() != prefix.size() + kFingerPrintDigits || text.compare(0, prefix.size(), prefix))
        return false;
    for (std::size_t i = prefix.size(); i < text.size(); ++i)
        if (!IsHexDigit(text[i])) return false;
    return true;
}

ZR::UniString PasswordEncrypter::Encrypt(const ZR::UniString& password) {
    if (IsEncrypted(password)) return password;
    // Salted, so that the form of a common password is not the one other
    // tools would make of it.
    MD5::Generator generator;
    static const char kSalt[] = "KRCB password\n";
    generator.Update(kSalt, sizeof kSalt - 1);
    generator.Update(password.Std().data(), password.Std().size());
    return ZR::UniString(kEncryptedPrefix) + generator.GetFingerPrint().GetAsZrString();
}

struct PortalServerClient::Login {
    std::shared_ptr<KRCB::Internal::ClientSession> session;
    ZR::UniString answeredUrl;
    std::optional<int> sslVerifyResult;
    bool interrupted = false;
};

PortalServerClient::PortalServerClient(const ZR::UniString& serverUrl,
                                       const ZR::UniString& sessionKey)
    : mServerUrl(serverUrl), mSessionKey(sessionKey) {}

PortalServerClient::~PortalServerClient() = default;

std::shared_ptr<const PortalServerClient::Login> PortalServerClient::GetLogin() const {
    std::lock_guard<std::mutex> lock(mMutex);
    return mLogin;
}

void PortalServerClient::SetLogin(std::shared_ptr<const Login> login) {
    std::lock_guard<std::mutex> lock(mMutex);
    mLogin = std::move(login);
}

namespace {

// The server's answer to a password or state login, with what a dialog needs
// beyond the session: the URL it answered under, the secure channel, and
// whether the login was interrupted.
template <typename Login>
std::shared_ptr<const Login> TakeLogin(const ZR::UniString& serverUrl, const ZR::UniString& user,
                                       const Data& result, bool detailsWanted, const char* op) {
    auto login = std::make_shared<Login>();
    login->session = std::make_shared<KRCB::Internal::ClientSession>();
    KRCB::Internal::ClientSession& session = *login->session;
    session.serverUrl = serverUrl;
    KRCB::Internal::FillSession(session, result, detailsWanted, op);
    auto text = [&result](const char* key) {
        auto it = result.find(key);
        return it != result.end() && it->is_string()
                   ? ZR::UniString(it->template get<std::string>())
                   : ZR::UniString();
    };
    session.userName = user.IsEmpty() ? text("login") : user;
    session.refreshToken = text("refreshToken");
    login->answeredUrl = text("serverUrl");
    if (login->answeredUrl.IsEmpty()) login->answeredUrl = serverUrl;
    if (auto ssl = result.find("sslVerifyResult"); ssl != result.end() && ssl->is_number_integer())
        login->sslVerifyResult = ssl->template get<int>();
    if (auto interrupted = result.find("interrupted");
        interrupted != result.end() && interrupted->is_boolean())
        login->interrupted = interrupted->template get<bool>();

    const auto& info = session.serverInfo;
    if (info.majorVersion < KRCB::Management::kMinPortalServerMajorVersion)
        throw KRCB::IncompatiblePortalServerVersionException(
            ZR::UniString::Format("The management server speaks version %d.%d, which this "
                                  "client can't use",
                                  info.majorVersion, info.minorVersion),
            ZR_HERE, info.majorVersion, info.minorVersion);
    return login;
}

}  // namespace

void PortalServerClient::CreateSessionWithState(const ZR::UniString& sessionKey,
                                                const ZR::UniString& sessionState,
                                                bool detailsWanted) {
    KRCB::Internal::Request request;
    request.serverUrl = mServerUrl.Std();
    request.op = Op::kCreateSessionWithState;
    request.params = {{"sessionKey", sessionKey.Std()},
                      {"sessionState", sessionState.Std()},
                      {"details", detailsWanted}};
    Data result = KRCB::Internal::Call(request);
    SetLogin(TakeLogin<Login>(mServerUrl, ZR::UniString(), result, detailsWanted,
                              Op::kCreateSessionWithState));
}

bool PortalServerClient::IsAuthorizationPending() {
    KRCB::Internal::Request request;
    request.serverUrl = mServerUrl.Std();
    request.op = Op::kIsAuthorizationPending;
    request.params = {{"sessionKey", mSessionKey.Std()}};
    Data result = KRCB::Internal::Call(request);
    return result.is_boolean() && result.get<bool>();
}

bool PortalServerClient::IsInterrupted() const {
    std::shared_ptr<const Login> login = GetLogin();
    return login && login->interrupted;
}

ZR::UniString PortalServerClient::GetRefreshToken() const {
    std::shared_ptr<const Login> login = GetLogin();
    return login ? login->session->refreshToken : ZR::UniString();
}

ZR::UniString PortalServerClient::GetUserName() const {
    std::shared_ptr<const Login> login = GetLogin();
    return login ? login->session->userName : ZR::UniString();
}

}  // namespace Kerrow::PortalServer::Client

namespace KRCB::Management {

using Kerrow::PortalServer::Client::PasswordEncrypter;
using Kerrow::PortalServer::Client::PortalServerClient;

AuthenticatedClientConnection::AuthenticatedClientConnection(ZR::Ref<PortalServerClient> client)
    : mClient(std::move(client)) {}

AuthenticatedClientConnection::~AuthenticatedClientConnection() = default;

}  // namespace KRCB::Management

namespace KRCB::Internal {

std::shared_ptr<ClientSession> SessionOf(
    const Management::AuthenticatedClientConnection& connection) {
    auto login = connection.mClient->GetLogin();
    if (!login)
        throw Kerrow::PortalServer::Client::SessionRequiredException(
            "The connection has no session yet", ZR_HERE);
    return login->session;
}

}  // namespace KRCB::Internal

namespace KRCB::Management {

ZR::Ref<Entities::User> AuthenticatedClientConnection::GetUserDetails() const {
    auto login = mClient->GetLogin();
    return login ? login->session->details : ZR::Ref<Entities::User>();
}

ZR::UniString AuthenticatedClientConnection::GetServerUrl() const {
    auto login = mClient->GetLogin();
    return login ? login->answeredUrl : mClient->mServerUrl;
}

ZR::Ref<Kerrow::PortalServer::Client::Management::ServerInfo>
AuthenticatedClientConnection::GetServerInfo() const {
    auto login = mClient->GetLogin();
    if (!login) return {};
    return ZR::Ref<Kerrow::PortalServer::Client::Management::ServerInfo>::Make(
        login->session->serverInfo);
}

ZR::Ref<Communication::SslSession> AuthenticatedClientConnection::GetSslSession() const {
    auto login = mClient->GetLogin();
    if (!login || !login->sslVerifyResult) return {};
    return ZR::Ref<Communication::SslSession>::Make(*login->sslVerifyResult);
}

ZR::Ref<AuthenticatedClientConnection> AuthenticatedClientConnectionFactory::Create(
    const ZR::UniString& serverUrl, const ZR::UniString& sessionKey, bool, unsigned int) {
    ZR::Ref<PortalServerClient> client(new PortalServerClient(serverUrl, sessionKey));
    return ZR::Ref<AuthenticatedClientConnection>(new AuthenticatedClientConnection(client));
}

ZR::Ref<AuthenticatedClientConnection> AuthenticatedClientConnectionFactory::Create(
    const ZR::UniString& serverUrl, const ZR::UniString& userName, const ZR::UniString& password,
    bool detailsWanted, bool, unsigned int) {
    // Only the encrypted form ever leaves the client.
    KRCB::Internal::Request request;
    request.serverUrl = serverUrl.Std();
    request.op = Internal::Op::kLogin;
    request.user = userName.Std();
    request.params = {{"password", PasswordEncrypter::Encrypt(password).Std()},
                      {"details", detailsWanted}};
    Internal::Data result = Internal::Call(request);
    ZR::Ref<PortalServerClient> client(new PortalServerClient(serverUrl, ZR::UniString()));
    client->SetLogin(Kerrow::PortalServer::Client::TakeLogin<PortalServerClient::Login>(
        serverUrl, userName, result, detailsWanted, Internal::Op::kLogin));
    return ZR::Ref<AuthenticatedClientConnection>(new AuthenticatedClientConnection(client));
}

ZR::Ref<AuthenticatedClientConnection> AuthenticatedClientConnectionFactory::Create(
    const ZR::UniString& serverUrl, const ZR::UniString& userName, const ZR::UniString& password,
    ZR::UniString& encryptedPassword, bool detailsWanted, bool cached, unsigned int flags) {
    encryptedPassword = PasswordEncrypter::Encrypt(password);
    return Create(serverUrl, userName, encryptedPassword, detailsWanted, cached, flags);
}

}  // namespace KRCB::Management
