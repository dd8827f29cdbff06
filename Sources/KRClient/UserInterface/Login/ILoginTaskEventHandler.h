#pragma once
/// @file
/// How a LoginTask tells how its attempt went. Every event is called on the
/// thread that raises it: the task's worker thread, or for
/// OnAuthorizationPending the thread that polls the task.

#include "KRCB/AuthenticatedClientConnection.h"
#include "KRClient/KRClientExport.h"
#include "Kerrow/Exceptions.h"
#include "ZR/Exceptions.h"
#include "ZR/Ref.h"
#include "ZR/UniString.h"

namespace KRC::UI::Login {

/// The receiver of a login task's events. Unless said otherwise, an event
/// carries the server URL, user name and password the task was given.
class KRCLIENT_EXPORT ILoginTaskEventHandler {
public:
    using Connection = ZR::Ref<KRCB::Management::AuthenticatedClientConnection, ZR::AtomicCounter>;
    using HandshakeException =
        ZR::Ref<SecureCommunication::SecureCommunicationHandshakeException, ZR::AtomicCounter>;
    using VersionException =
        ZR::Ref<KRCB::IncompatiblePortalServerVersionException, ZR::AtomicCounter>;
    using Exception = ZR::Ref<ZR::ZRException, ZR::AtomicCounter>;

    virtual ~ILoginTaskEventHandler();

    /// The task begins.
    virtual void OnStart(const ZR::UniString& serverUrl, const ZR::UniString& userName,
                         const ZR::UniString& password) = 0;
    /// A poll of LoginTask::IsAuthorizationPending found the state pending.
    virtual void OnAuthorizationPending() = 0;
    /// The login stands. serverUrl is the URL under which the server answered,
    /// without one trailing "/"; userName is the server's login name if the
    /// task asked for it; token is empty when the task raises the event.
    virtual void OnSuccessfulLogin(Connection& connection, const ZR::UniString& serverUrl,
                                   const ZR::UniString& userName, const ZR::UniString& token,
                                   const ZR::UniString& fullName) = 0;
    /// The server refused the credentials.
    virtual void OnInvalidPasswordLogin(const ZR::UniString& serverUrl,
                                        const ZR::UniString& userName,
                                        const ZR::UniString& password) = 0;
    /// The secure handshake with the server failed.
    virtual void OnInsecureServerConnectionLoginError(const ZR::UniString& serverUrl,
                                                      const ZR::UniString& userName,
                                                      const ZR::UniString& password,
                                                      const HandshakeException& exception) = 0;
    /// The server is of a version this client can't use.
    virtual void OnIncompatiblePortalServer(const ZR::UniString& serverUrl,
                                            const ZR::UniString& userName,
                                            const ZR::UniString& password,
                                            const VersionException& exception) = 0;
    /// The server could not be reached.
    virtual void OnServerConnectionLoginError(const ZR::UniString& serverUrl,
                                              const ZR::UniString& userName,
                                              const ZR::UniString& password) = 0;
    /// The server answered with a general error.
    virtual void OnUnexpectedServerResponseError(const ZR::UniString& serverUrl,
                                                 const ZR::UniString& userName,
                                                 const ZR::UniString& password) = 0;
    /// Never raised by LoginTask; for hosts that check a URL before they start one.
    virtual void OnInvalidURLError(const ZR::UniString& serverUrl, const ZR::UniString& userName,
                                   const ZR::UniString& password) = 0;
    /// Any other failure.
    virtual void OnUnknownLoginError(const ZR::UniString& serverUrl, const ZR::UniString& userName,
                                     const ZR::UniString& password, const Exception& exception) = 0;
    /// The user is not a member of the server's company.
    virtual void OnNotMemberOfCompanyError(const ZR::UniString& serverUrl,
                                           const ZR::UniString& userName,
                                           const ZR::UniString& password) = 0;
    /// The login was interrupted.
    virtual void OnLoginInterrupted(const ZR::UniString& serverUrl, const ZR::UniString& userName,
                                    const ZR::UniString& password) = 0;
};

}  // namespace KRC::UI::Login
