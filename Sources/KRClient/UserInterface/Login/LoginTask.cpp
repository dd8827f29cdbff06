#include "KRClient/UserInterface/Login/LoginTask.h"

#include "KRClient/Internal/LogWrite.h"
#include "KRClient/KRClient.h"
#include "KRClient/KRClientExceptions.h"
#include "ZR/Logger.h"

namespace KRC::UI::Login {

namespace {

using Kerrow::PortalServer::Client::PasswordEncrypter;
using KRCB::Management::AuthenticatedClientConnection;
using KRCB::Management::AuthenticatedClientConnectionFactory;
using SecureCommunication::SecureCommunicationHandshakeException;

const ZR::ErrorLogLine kPortalServerErrorResponse(
    "Kerrow login task failed, PortalServerErrorResponseException occurred: %", "KRClient");
const ZR::ErrorLogLine kConnectionFailed(
    "Kerrow login task failed, ConnectionFailedException occurred: %", "KRClient");
const ZR::ErrorLogLine kGeneralErrorResponse(
    "Kerrow login task failed, GeneralErrorResponseException occurred: %", "KRClient");
const ZR::ErrorLogLine kGeneralException("Kerrow login task failed, general exception occurred: %",
                                         "KRClient");
const ZR::ErrorLogLine kUnknownException("Kerrow login task failed, general exception occurred",
                                         "KRClient");

// The exception itself, else the first of its causes, that tells of a failed
// secure handshake.
const SecureCommunicationHandshakeException* FindHandshake(const ZR::ZRException& exception) {
    if (auto* handshake = dynamic_cast<const SecureCommunicationHandshakeException*>(&exception))
        return handshake;
    for (const ZR::ZRException* cause = exception.GetCause(); cause; cause = cause->GetCause())
        if (auto* handshake = dynamic_cast<const SecureCommunicationHandshakeException*>(cause))
            return handshake;
    return nullptr;
}

const LoginTask::EventHandler& Required(const LoginTask::EventHandler& eventHandler) {
    if (!eventHandler)
        throw KRClientException("Failed to create LoginTask. Event handler is nullptr.", ZR_HERE);
    return eventHandler;
}

ZR::UniString WithoutTrailingSlash(ZR::UniString url) {
    if (!url.IsEmpty() && url.Std().back() == '/')
        url = ZR::UniString(url.Std().substr(0, url.Std().size() - 1));
    return url;
}

}  // namespace

LoginTask::LoginTask(const ZR::UniString& serverUrl, const ZR::UniString& userName,
                     const ZR::UniString& password, const EventHandler& eventHandler,
                     bool wantFullName, bool wantUserName)
    : mServerUrl(serverUrl),
      mUserName(userName),
      mPassword(password),
      mEventHandler(Required(eventHandler)),
      mWantFullName(wantFullName),
      mWantUserName(wantUserName) {}

LoginTask::LoginTask(const ZR::UniString& serverUrl, const ZR::UniString& sessionKey,
                     const ZR::UniString& sessionState, const EventHandler& eventHandler)
    : mServerUrl(serverUrl),
      mSessionKey(sessionKey),
      mSessionState(sessionState),
      mEventHandler(Required(eventHandler)),
      mWantFullName(true),
      mWantUserName(true) {}

LoginTask::LoginTask(const LoginTask& other)
    : ZR::Runnable(other),
      mServerUrl(other.mServerUrl),
      mUserName(other.mUserName),
      mPassword(other.mPassword),
      mSessionKey(other.mSessionKey),
      mSessionState(other.mSessionState),
      mEventHandler(other.mEventHandler),
      mWantFullName(other.mWantFullName),
      mWantUserName(other.mWantUserName),
      mConnection(other.GetConnection()) {}

LoginTask::~LoginTask() = default;

ZR::Ref<AuthenticatedClientConnection, ZR::AtomicCounter> LoginTask::GetConnection() const {
    std::lock_guard<std::mutex> lock(mConnectionMutex);
    return mConnection;
}

void LoginTask::SetConnection(
    const ZR::Ref<AuthenticatedClientConnection, ZR::AtomicCounter>& connection) {
    std::lock_guard<std::mutex> lock(mConnectionMutex);
    mConnection = connection;
}

bool LoginTask::IsAuthorizationPending() {
    // The connection is taken under the lock, then asked outside it: the
    // server call may take a while, and Run sets the field meanwhile.
    ZR::Ref<AuthenticatedClientConnection, ZR::AtomicCounter> connection = GetConnection();
    if (!connection) return false;
    if (!connection->GetPortalServerClient()->IsAuthorizationPending()) return false;
    mEventHandler->OnAuthorizationPending();
    return true;
}

void LoginTask::Run() {
    ZR::UniString userName = mUserName;
    ZR::UniString fullName;
    const bool detailsWanted = mWantFullName || mWantUserName;
    try {
        mEventHandler->OnStart(mServerUrl, mUserName, mPassword);
        if (!mSessionKey.IsEmpty()) {
            SetConnection(
                AuthenticatedClientConnectionFactory::Create(mServerUrl, mSessionKey, false, 0));
        } else if (PasswordEncrypter::IsEncrypted(mPassword)) {
            SetConnection(AuthenticatedClientConnectionFactory::Create(
                mServerUrl, mUserName, mPassword, detailsWanted, false, 0));
        } else {
            ZR::UniString encrypted;
            SetConnection(AuthenticatedClientConnectionFactory::Create(
                mServerUrl, mUserName, mPassword, encrypted, detailsWanted, false, 0));
        }
        ZR::Ref<AuthenticatedClientConnection, ZR::AtomicCounter> connection = GetConnection();
        if (!mSessionKey.IsEmpty())
            connection->GetPortalServerClient()->CreateSessionWithState(mSessionKey, mSessionState,
                                                                        detailsWanted);
        // An interrupted login ends without a word: whoever interrupted it knows.
        if (connection->GetPortalServerClient()->IsInterrupted()) return;
        if (detailsWanted) {
            ZR::Ref<KRCB::Management::Entities::User> details = connection->GetUserDetails();
            if (mWantFullName) fullName = details->GetFullName();
            if (mWantUserName) userName = details->GetLoginName();
        }
        const ZR::UniString serverUrl = WithoutTrailingSlash(connection->GetServerUrl());
        mEventHandler->OnSuccessfulLogin(connection, serverUrl, userName, ZR::UniString(),
                                         fullName);
    } catch (const Kerrow::PortalServer::Client::CreateSessionFailedException&) {
        mEventHandler->OnInvalidPasswordLogin(mServerUrl, mUserName, mPassword);
    } catch (const Kerrow::PortalServer::Client::PortalServerErrorResponseException& e) {
        Internal::WriteLog(kPortalServerErrorResponse, ToString(e));
        mEventHandler->OnInvalidPasswordLogin(mServerUrl, mUserName, mPassword);
    } catch (const Kerrow::PortalServer::Client::ConnectionFailedException& e) {
        Internal::WriteLog(kConnectionFailed, ToString(e));
        if (const SecureCommunicationHandshakeException* handshake = FindHandshake(e)) {
            ILoginTaskEventHandler::HandshakeException copy(
                new SecureCommunicationHandshakeException(*handshake));
            mEventHandler->OnInsecureServerConnectionLoginError(mServerUrl, mUserName, mPassword,
                                                                copy);
        } else {
            mEventHandler->OnServerConnectionLoginError(mServerUrl, mUserName, mPassword);
        }
    } catch (const Kerrow::PortalServer::Client::NotInCompanyResponseException&) {
        mEventHandler->OnNotMemberOfCompanyError(mServerUrl, mUserName, mPassword);
    } catch (const Kerrow::PortalServer::Client::GeneralErrorResponseException& e) {
        Internal::WriteLog(kGeneralErrorResponse, ToString(e));
        DebugPrintEx(e);
        mEventHandler->OnUnexpectedServerResponseError(mServerUrl, mUserName, mPassword);
    } catch (const KRCB::IncompatiblePortalServerVersionException& e) {
        ILoginTaskEventHandler::VersionException copy(
            new KRCB::IncompatiblePortalServerVersionException(e));
        mEventHandler->OnIncompatiblePortalServer(mServerUrl, mUserName, mPassword, copy);
    } catch (const ZR::InterruptedException&) {
        mEventHandler->OnLoginInterrupted(mServerUrl, mUserName, mPassword);
    } catch (const ZR::InterruptedIOException&) {
        mEventHandler->OnLoginInterrupted(mServerUrl, mUserName, mPassword);
    } catch (const ZR::ZRException& e) {
        Internal::WriteLog(kGeneralException, ToString(e));
        mEventHandler->OnUnknownLoginError(mServerUrl, mUserName, mPassword,
                                           ILoginTaskEventHandler::Exception(e.Clone()));
    } catch (...) {
        Internal::WriteLog(kUnknownException);
        mEventHandler->OnUnknownLoginError(
            mServerUrl, mUserName, mPassword,
            ILoginTaskEventHandler::Exception(new ZR::ZRException("General login task exception",
                                                                  ZR_HERE, ZR::kGeneralErrorCode)));
    }
}

}  // namespace KRC::UI::Login
