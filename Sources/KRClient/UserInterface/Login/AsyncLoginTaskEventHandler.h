#pragma once
/// @file
/// The event handler of a caller without a dialog: it records how the login
/// went in a status and hands the connection to a reference of the caller's.

#include <atomic>

#include "KRClient/KRClientExport.h"
#include "KRClient/UserInterface/Login/ILoginTaskEventHandler.h"

namespace KRC::UI::Login {

class KRCLIENT_EXPORT AsyncLoginTaskEventHandler : public ILoginTaskEventHandler {
public:
    enum ConnectionStatus {
        Pending = 0,
        Connected = 1,
        InvalidPassword = 2,
        InsecureServerConnection = 3,
        IncompatibleServer = 4,
        ServerConnectionError = 5,
        UnexpectedServerResponse = 6,
        InvalidURL = 7,
        UnknownError = 8,
        Interrupted = 9,
        NotMemberOfCompany = 10,
    };

    /// connection receives the connection of a good login; it must outlive
    /// the handler.
    explicit AsyncLoginTaskEventHandler(Connection& connection);

    /// Safe to poll from any thread. Once it is Connected, the caller's
    /// reference holds the connection.
    ConnectionStatus GetConnectionStatus() const;
    /// The caller's reference; read it once the login has ended.
    Connection& GetConnection() { return mConnection; }

    /// Does nothing.
    void OnStart(const ZR::UniString& serverUrl, const ZR::UniString& userName,
                 const ZR::UniString& password) override;
    /// Pending again.
    void OnAuthorizationPending() override;
    /// Gives the caller's reference the connection (unless it holds it), then Connected.
    void OnSuccessfulLogin(Connection& connection, const ZR::UniString& serverUrl,
                           const ZR::UniString& userName, const ZR::UniString& token,
                           const ZR::UniString& fullName) override;
    /// The failures set the status of their name and drop their arguments.
    void OnInvalidPasswordLogin(const ZR::UniString& serverUrl, const ZR::UniString& userName,
                                const ZR::UniString& password) override;
    void OnInsecureServerConnectionLoginError(const ZR::UniString& serverUrl,
                                              const ZR::UniString& userName,
                                              const ZR::UniString& password,
                                              const HandshakeException& exception) override;
    void OnIncompatiblePortalServer(const ZR::UniString& serverUrl, const ZR::UniString& userName,
                                    const ZR::UniString& password,
                                    const VersionException& exception) override;
    void OnServerConnectionLoginError(const ZR::UniString& serverUrl, const ZR::UniString& userName,
                                      const ZR::UniString& password) override;
    void OnUnexpectedServerResponseError(const ZR::UniString& serverUrl,
                                         const ZR::UniString& userName,
                                         const ZR::UniString& password) override;
    void OnInvalidURLError(const ZR::UniString& serverUrl, const ZR::UniString& userName,
                           const ZR::UniString& password) override;
    void OnUnknownLoginError(const ZR::UniString& serverUrl, const ZR::UniString& userName,
                             const ZR::UniString& password, const Exception& exception) override;
    void OnNotMemberOfCompanyError(const ZR::UniString& serverUrl, const ZR::UniString& userName,
                                   const ZR::UniString& password) override;
    void OnLoginInterrupted(const ZR::UniString& serverUrl, const ZR::UniString& userName,
                            const ZR::UniString& password) override;

private:
    void Set(ConnectionStatus status);

    Connection& mConnection;
    /// Written on the task's thread and on a polling thread, read on any.
    std::atomic<ConnectionStatus> mStatus{Pending};
};

}  // namespace KRC::UI::Login
