#pragma once
/// @file
/// One attempt to log a user in to a management server. The host wraps the
/// task in a ZR::RunnableTask and hands it to an executor of its own: Run
/// blocks its worker thread for the whole exchange and tells how it went only
/// through the event handler.

#include <mutex>

#include "KRClient/KRClientExport.h"
#include "KRClient/UserInterface/Login/ILoginTaskEventHandler.h"
#include "ZR/Runnable.h"

namespace KRC::UI::Login {

class KRCLIENT_EXPORT LoginTask : public ZR::Runnable {
public:
    using EventHandler = ZR::Ref<ILoginTaskEventHandler, ZR::AtomicCounter>;

    /// A password login. password is plain, or in the encrypted form that
    /// Kerrow::PortalServer::Client::PasswordEncrypter recognises. wantUserName:
    /// report the server's login name in place of the one typed. Throws
    /// KRClientException for an empty event handler.
    LoginTask(const ZR::UniString& serverUrl, const ZR::UniString& userName,
              const ZR::UniString& password, const EventHandler& eventHandler, bool wantFullName,
              bool wantUserName);
    /// A state login: the server makes the session from the key and state.
    /// Asks for the full and the login name. Throws KRClientException for an
    /// empty event handler.
    LoginTask(const ZR::UniString& serverUrl, const ZR::UniString& sessionKey,
              const ZR::UniString& sessionState, const EventHandler& eventHandler);
    /// Shares the event handler and the connection.
    LoginTask(const LoginTask& other);
    ~LoginTask() override;
    LoginTask& operator=(const LoginTask&) = delete;

    /// Logs in and raises exactly one final event, unless the server reports
    /// the login interrupted after it stood: then none at all.
    void Run() override;

    /// For a host that polls from another thread while Run blocks in a state
    /// login: true, with OnAuthorizationPending raised on the calling thread,
    /// each time the server still waits for the authorization. False before
    /// the connection stands. A server that can't be asked throws its
    /// exception to the caller.
    bool IsAuthorizationPending();

    /// The connection of the login; empty until it was made.
    ZR::Ref<KRCB::Management::AuthenticatedClientConnection, ZR::AtomicCounter> GetConnection()
        const;

private:
    void SetConnection(const ZR::Ref<KRCB::Management::AuthenticatedClientConnection,
                                     ZR::AtomicCounter>& connection);

    ZR::UniString mServerUrl;
    ZR::UniString mUserName;
    ZR::UniString mPassword;
    ZR::UniString mSessionKey;
    ZR::UniString mSessionState;
    EventHandler mEventHandler;
    bool mWantFullName = false;
    bool mWantUserName = false;
    /// Set by Run, read by a polling thread: under mConnectionMutex.
    mutable std::mutex mConnectionMutex;
    ZR::Ref<KRCB::Management::AuthenticatedClientConnection, ZR::AtomicCounter> mConnection;
};

}  // namespace KRC::UI::Login
