#pragma once
/// @file
/// The event handler of a login dialog: it carries each event of a LoginTask
/// over to the message loop, updates the dialog's login data store there and
/// calls the dialog's observer. Events of a login the dialog no longer waits
/// for (its task id changed), and events for an observer that is gone, are
/// dropped.

#include "KRClient/KRClientExport.h"
#include "KRClient/UserInterface/Login/ILoginTaskEventHandler.h"
#include "KRClient/UserInterface/Login/UILoginDataStore.h"
#include "ZR/DependentResource.h"

namespace KRC::UI::Login {

/// Implemented by the host's login dialog; called on the message loop. Unless
/// said otherwise, an event carries the server URL, user name and password of
/// the task.
///
/// A notifier under way on the message loop keeps the observer alive for its
/// call. An observer destroyed on another thread than the loop's calls
/// ReleaseDependents() first thing in its own destructor.
class KRCLIENT_EXPORT ILoginEventObserver : public ZR::DependentResource {
public:
    using Connection = ILoginTaskEventHandler::Connection;

    ILoginEventObserver();
    ~ILoginEventObserver() override;

    /// The server still waits for the authorization of a state login.
    virtual void AuthorizationPending();
    /// The login stands; the store holds the server and the user. serverUrl is
    /// the URL under which the server answered; token is the refresh token,
    /// never the password.
    virtual void SuccessfulLogin(Connection& connection, const ZR::UniString& serverUrl,
                                 const ZR::UniString& userName, const ZR::UniString& token) = 0;
    /// The server refused the credentials; the store marks the user's access denied.
    virtual void InvalidPasswordLogin(const ZR::UniString& serverUrl, const ZR::UniString& userName,
                                      const ZR::UniString& password) = 0;
    /// The secure handshake failed; the store marks the server refused as insecure (5).
    virtual void InsecureServerConnectionLoginError(
        const ZR::UniString& serverUrl, const ZR::UniString& userName,
        const ZR::UniString& password,
        const ILoginTaskEventHandler::HandshakeException& exception) = 0;
    /// The server is of a version this client can't use; the server's status is failed (4).
    virtual void IncompatiblePortalServer(
        const ZR::UniString& serverUrl, const ZR::UniString& userName,
        const ZR::UniString& password,
        const ILoginTaskEventHandler::VersionException& exception) = 0;
    /// The server could not be reached; the server's status is failed (4).
    virtual void ServerConnectionLoginError(const ZR::UniString& serverUrl,
                                            const ZR::UniString& userName,
                                            const ZR::UniString& password) = 0;
    /// The server answered with a general error; the server's status is failed (4).
    virtual void UnexpectedServerResponseError(const ZR::UniString& serverUrl,
                                               const ZR::UniString& userName,
                                               const ZR::UniString& password) = 0;
    /// The URL names no server; the server's status is failed (4).
    virtual void InvalidURLError(const ZR::UniString& serverUrl, const ZR::UniString& userName,
                                 const ZR::UniString& password) = 0;
    /// Any other failure, with the server's status failed (4); also a failure
    /// while a successful login was being stored, which leaves the store as it
    /// got and the third text as it was by then (empty, or the token).
    virtual void UnknownLoginError(const ZR::UniString& serverUrl, const ZR::UniString& userName,
                                   const ZR::UniString& password,
                                   const ILoginTaskEventHandler::Exception& exception) = 0;
    /// The user is not a member of the server's company; the server's status is failed (4).
    virtual void NotMemberOfCompanyError(const ZR::UniString& serverUrl,
                                         const ZR::UniString& userName,
                                         const ZR::UniString& password) = 0;
    /// The login was interrupted; the store is left alone.
    virtual void LoginInterrupted(const ZR::UniString& serverUrl, const ZR::UniString& userName,
                                  const ZR::UniString& password) = 0;
    /// The id of the login the observer waits for now; change it to abandon one.
    virtual unsigned int GetTaskId() = 0;
    /// The observer's own store, alive as long as the observer.
    virtual UILoginDataStore& GetLoginDataStore() = 0;
};

/// Shared with the task by ZR::Ref; lives as long as it.
class KRCLIENT_EXPORT LoginEventHandler : public ILoginTaskEventHandler {
public:
    /// Throws KRClientException for a null observer. taskId tells this login
    /// from the dialog's others.
    LoginEventHandler(ILoginEventObserver* observer, unsigned int taskId);

    /// Writes the observer's store on the task's thread, before any notifier.
    void OnStart(const ZR::UniString& serverUrl, const ZR::UniString& userName,
                 const ZR::UniString& password) override;
    /// The others post a notifier to the message loop and return at once.
    void OnAuthorizationPending() override;
    void OnSuccessfulLogin(Connection& connection, const ZR::UniString& serverUrl,
                           const ZR::UniString& userName, const ZR::UniString& token,
                           const ZR::UniString& fullName) override;
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
    ILoginEventObserver* mObserver;
    unsigned int mTaskId;
};

}  // namespace KRC::UI::Login
