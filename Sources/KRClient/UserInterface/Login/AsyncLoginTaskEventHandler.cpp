#include "KRClient/UserInterface/Login/AsyncLoginTaskEventHandler.h"

namespace KRC::UI::Login {

AsyncLoginTaskEventHandler::AsyncLoginTaskEventHandler(Connection& connection)
    : mConnection(connection) {}

AsyncLoginTaskEventHandler::ConnectionStatus AsyncLoginTaskEventHandler::GetConnectionStatus()
    const {
    return mStatus.load(std::memory_order_acquire);
}

// Release: a reader that sees Connected sees the connection assigned before it.
void AsyncLoginTaskEventHandler::Set(ConnectionStatus status) {
    mStatus.store(status, std::memory_order_release);
}

void AsyncLoginTaskEventHandler::OnStart(const ZR::UniString&, const ZR::UniString&,
                                         const ZR::UniString&) {}

void AsyncLoginTaskEventHandler::OnAuthorizationPending() {
    Set(Pending);
}

void AsyncLoginTaskEventHandler::OnSuccessfulLogin(Connection& connection, const ZR::UniString&,
                                                   const ZR::UniString&, const ZR::UniString&,
                                                   const ZR::UniString&) {
    if (!(mConnection == connection)) mConnection = connection;
    Set(Connected);
}

void AsyncLoginTaskEventHandler::OnInvalidPasswordLogin(const ZR::UniString&, const ZR::UniString&,
                                                        const ZR::UniString&) {
    Set(InvalidPassword);
}

void AsyncLoginTaskEventHandler::OnInsecureServerConnectionLoginError(const ZR::UniString&,
                                                                      const ZR::UniString&,
                                                                      const ZR::UniString&,
                                                                      const HandshakeException&) {
    Set(InsecureServerConnection);
}

void AsyncLoginTaskEventHandler::OnIncompatiblePortalServer(const ZR::UniString&,
                                                            const ZR::UniString&,
                                                            const ZR::UniString&,
                                                            const VersionException&) {
    Set(IncompatibleServer);
}

void AsyncLoginTaskEventHandler::OnServerConnectionLoginError(const ZR::UniString&,
                                                              const ZR::UniString&,
                                                              const ZR::UniString&) {
    Set(ServerConnectionError);
}

void AsyncLoginTaskEventHandler::OnUnexpectedServerResponseError(const ZR::UniString&,
                                                                 const ZR::UniString&,
                                                                 const ZR::UniString&) {
    Set(UnexpectedServerResponse);
}

void AsyncLoginTaskEventHandler::OnInvalidURLError(const ZR::UniString&, const ZR::UniString&,
                                                   const ZR::UniString&) {
    Set(InvalidURL);
}

void AsyncLoginTaskEventHandler::OnUnknownLoginError(const ZR::UniString&, const ZR::UniString&,
                                                     const ZR::UniString&, const Exception&) {
    Set(UnknownError);
}

void AsyncLoginTaskEventHandler::OnNotMemberOfCompanyError(const ZR::UniString&,
                                                           const ZR::UniString&,
                                                           const ZR::UniString&) {
    Set(NotMemberOfCompany);
}

void AsyncLoginTaskEventHandler::OnLoginInterrupted(const ZR::UniString&, const ZR::UniString&,
                                                    const ZR::UniString&) {
    Set(Interrupted);
}

}  // namespace KRC::UI::Login
