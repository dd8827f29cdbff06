#pragma once
/// @file
/// A login to a management server as a dialog makes it: with a user name and
/// a password, or with a session key and state that the server turns into a
/// session. The product is an AuthenticatedClientConnection, which carries
/// the login's client, the server's details and the secure channel's state.
/// Every call blocks; a refusal is an exception of Kerrow/Exceptions.h.

#include <memory>
#include <mutex>

#include "KRCB/Entities.h"
#include "KRCB/KRClientBaseExport.h"
#include "Kerrow/ServerInfo.h"
#include "ZR/Ref.h"
#include "ZR/UniString.h"

namespace KRCB::Management {
class AuthenticatedClientConnection;
class AuthenticatedClientConnectionFactory;
}  // namespace KRCB::Management

namespace KRCB::Internal {
struct ClientSession;
/// The login of a connection, which clients made from it share. Throws
/// SessionRequiredException while no session stands on it.
std::shared_ptr<ClientSession> SessionOf(
    const Management::AuthenticatedClientConnection& connection);
}  // namespace KRCB::Internal

namespace Communication {

/// The secure channel under a connection.
class KRCB_EXPORT SslSession {
public:
    explicit SslSession(int verifyResult) : mVerifyResult(verifyResult) {}
    /// 0 if the server's certificate was verified; otherwise why not.
    int GetVerifyResult() const { return mVerifyResult; }

private:
    int mVerifyResult;
};

}  // namespace Communication

namespace Kerrow::PortalServer::Client {

/// The form in which a password travels and may be remembered. It is a one-way
/// fingerprint: the plain password can't be had back from it.
class KRCB_EXPORT PasswordEncrypter {
public:
    /// True for text in the encrypted form.
    static bool IsEncrypted(const ZR::UniString& password);
    /// The encrypted form of a plain password; an encrypted one is returned as it is.
    static ZR::UniString Encrypt(const ZR::UniString& password);
};

/// The management server's side of one login of a connection.
class KRCB_EXPORT PortalServerClient {
public:
    ~PortalServerClient();
    PortalServerClient(const PortalServerClient&) = delete;
    PortalServerClient& operator=(const PortalServerClient&) = delete;

    /// Has the server make the session of a state login; blocks until it stands
    /// (the server may take its time while someone authorizes it elsewhere).
    /// Throws CreateSessionFailedException for a key and state it refuses.
    void CreateSessionWithState(const ZR::UniString& sessionKey, const ZR::UniString& sessionState,
                                bool detailsWanted);
    /// While CreateSessionWithState blocks: whether the server still waits for
    /// the authorization. Safe from another thread than the one that blocks.
    bool IsAuthorizationPending();
    /// True if the login was interrupted on the server's side: the client
    /// stands, but must not be used.
    bool IsInterrupted() const;
    /// The refresh token the server issued to this login; empty before a
    /// session stands. Never logged.
    ZR::UniString GetRefreshToken() const;
    /// The login name of the session's user; empty before a session stands.
    ZR::UniString GetUserName() const;

private:
    friend class KRCB::Management::AuthenticatedClientConnection;
    friend class KRCB::Management::AuthenticatedClientConnectionFactory;
    friend std::shared_ptr<KRCB::Internal::ClientSession> KRCB::Internal::SessionOf(
        const KRCB::Management::AuthenticatedClientConnection& connection);
    /// What the server answered to the login; never changed once set.
    struct Login;
    PortalServerClient(const ZR::UniString& serverUrl, const ZR::UniString& sessionKey);
    std::shared_ptr<const Login> GetLogin() const;
    void SetLogin(std::shared_ptr<const Login> login);

    const ZR::UniString mServerUrl;
    const ZR::UniString mSessionKey;
    mutable std::mutex mMutex;
    std::shared_ptr<const Login> mLogin;
};

}  // namespace Kerrow::PortalServer::Client

namespace KRCB::Management {

/// A logged-in connection to a management server, as a login dialog leaves it.
class KRCB_EXPORT AuthenticatedClientConnection {
public:
    ~AuthenticatedClientConnection();
    AuthenticatedClientConnection(const AuthenticatedClientConnection&) = delete;
    AuthenticatedClientConnection& operator=(const AuthenticatedClientConnection&) = delete;

    ZR::Ref<Kerrow::PortalServer::Client::PortalServerClient> GetPortalServerClient() const {
        return mClient;
    }
    /// The user of the session with full and login name; empty unless details
    /// were asked for, or before a session stands.
    ZR::Ref<Entities::User> GetUserDetails() const;
    /// The URL under which the server answered, which may differ from the one
    /// that was given (a trailing "/", another host name).
    ZR::UniString GetServerUrl() const;
    /// What the server tells of itself; empty before a session stands.
    ZR::Ref<Kerrow::PortalServer::Client::Management::ServerInfo> GetServerInfo() const;
    /// The secure channel; empty for a connection without one.
    ZR::Ref<Communication::SslSession> GetSslSession() const;

private:
    friend class AuthenticatedClientConnectionFactory;
    friend std::shared_ptr<Internal::ClientSession> Internal::SessionOf(
        const AuthenticatedClientConnection& connection);
    explicit AuthenticatedClientConnection(
        ZR::Ref<Kerrow::PortalServer::Client::PortalServerClient> client);
    ZR::Ref<Kerrow::PortalServer::Client::PortalServerClient> mClient;
};

/// The client accepts management servers of this major version and later.
inline constexpr int kMinPortalServerMajorVersion = 1;

class KRCB_EXPORT AuthenticatedClientConnectionFactory {
public:
    /// A connection for a state login: no session stands on it until its
    /// client's CreateSessionWithState. Makes no call.
    static ZR::Ref<AuthenticatedClientConnection> Create(const ZR::UniString& serverUrl,
                                                         const ZR::UniString& sessionKey,
                                                         bool cached, unsigned int flags);
    /// Logs in with a password in the encrypted form.
    static ZR::Ref<AuthenticatedClientConnection> Create(const ZR::UniString& serverUrl,
                                                         const ZR::UniString& userName,
                                                         const ZR::UniString& password,
                                                         bool detailsWanted, bool cached,
                                                         unsigned int flags);
    /// Logs in with a plain password; encryptedPassword receives its encrypted
    /// form, which a caller may remember in place of the password.
    static ZR::Ref<AuthenticatedClientConnection> Create(const ZR::UniString& serverUrl,
                                                         const ZR::UniString& userName,
                                                         const ZR::UniString& password,
                                                         ZR::UniString& encryptedPassword,
                                                         bool detailsWanted, bool cached,
                                                         unsigned int flags);
};

}  // namespace KRCB::Management
