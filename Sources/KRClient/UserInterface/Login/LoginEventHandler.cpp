#include "KRClient/UserInterface/Login/LoginEventHandler.h"

#include <functional>
#include <memory>

#include "KRClient/KRClientExceptions.h"
#include "Kerrow/Exceptions.h"
#include "ZR/MessageLoop.h"

namespace KRC::UI::Login {

using Status = KRCB::LoginDataStore::PortalServerStatus::Status;

ILoginTaskEventHandler::~ILoginTaskEventHandler() = default;

ILoginEventObserver::ILoginEventObserver() = default;

ILoginEventObserver::~ILoginEventObserver() {
    ReleaseDependents();
}

void ILoginEventObserver::AuthorizationPending() {}

namespace {

// A notifier of one event: runs on the message loop, only while the observer
// lives, and only for the login the observer still waits for.
class LoginDependentTask : public ZR::DependentTask {
public:
    LoginDependentTask(ILoginEventObserver* observer, const ZR::UniString& serverUrl,
                       const ZR::UniString& userName, const ZR::UniString& password,
                       unsigned int taskId)
        : ZR::DependentTask(observer),
          mServerUrl(serverUrl),
          mUserName(userName),
          mPassword(password),
          mTaskId(taskId) {}

    void Execute(ZR::DependentResource* resource) override {
        if (auto* observer = dynamic_cast<ILoginEventObserver*>(resource)) {
            if (observer->GetTaskId() != mTaskId) return;
            NotifyObserver(*observer);
        }
    }

protected:
    virtual void NotifyObserver(ILoginEventObserver& observer) = 0;

    ZR::UniString mServerUrl;
    ZR::UniString mUserName;
    ZR::UniString mPassword;
    unsigned int mTaskId;
};

// What an event other than success does to the dialog's store before the
// observer hears of it.
enum class StoreUpdate { None, AccessDenied, ServerFailed, HandshakeFailed };

using ObserverCall = std::function<void(ILoginEventObserver&, const ZR::UniString&,
                                        const ZR::UniString&, const ZR::UniString&)>;

class EventNotifier : public LoginDependentTask {
public:
    EventNotifier(ILoginEventObserver* observer, const ZR::UniString& serverUrl,
                  const ZR::UniString& userName, const ZR::UniString& password, unsigned int taskId,
                  StoreUpdate update, ObserverCall call)
        : LoginDependentTask(observer, serverUrl, userName, password, taskId),
          mUpdate(update),
          mCall(std::move(call)) {}

private:
    void NotifyObserver(ILoginEventObserver& observer) override {
        if (mUpdate != StoreUpdate::None) {
            UILoginDataStore& store = observer.GetLoginDataStore();
            store.Reload(true);
            if (mUpdate == StoreUpdate::AccessDenied)
                store.SetUserAccessDenied(mServerUrl, mUserName);
            else
                store.SetPortalServerStatus(mServerUrl, mUpdate == StoreUpdate::HandshakeFailed
                                                            ? Status::InsecureConnectionRefused
                                                            : Status::ConnectionFailed);
        }
        mCall(observer, mServerUrl, mUserName, mPassword);
    }

    StoreUpdate mUpdate;
    ObserverCall mCall;
};

class SuccessfulLoginNotifier : public LoginDependentTask {
public:
    SuccessfulLoginNotifier(ILoginEventObserver* observer, const ZR::UniString& serverUrl,
                            const ZR::UniString& userName, const ZR::UniString& token,
                            unsigned int taskId,
                            const ILoginTaskEventHandler::Connection& connection,
                            const ZR::UniString& fullName)
        : LoginDependentTask(observer, serverUrl, userName, token, taskId),
          mConnection(connection),
          mFullName(fullName) {}

private:
    // The third text holds the refresh token once it is known. A failure on
    // the way undoes nothing: the observer hears of it as an unknown error.
    void NotifyObserver(ILoginEventObserver& observer) override {
        try {
            UILoginDataStore& store = observer.GetLoginDataStore();
            store.Reload(false);
            store.AddServer(mConnection->GetServerInfo(), mServerUrl);
            ZR::Ref<Communication::SslSession> ssl = mConnection->GetSslSession();
            store.SetPortalServerStatus(mServerUrl, !ssl ? Status::ConnectedWithoutTls
                                                    : ssl->GetVerifyResult() == 0
                                                        ? Status::ConnectedVerifiedTls
                                                        : Status::ConnectedUnverifiedTls);
            const ZR::UniString token = mConnection->GetPortalServerClient()->GetRefreshToken();
            store.AddUser(mServerUrl, UILoginDataStore::User(mUserName, token, mFullName));
            store.SetActiveUser(mServerUrl, mUserName);
            store.SetUserAccessed(mServerUrl, mUserName);
            mPassword = token;
            store.Write();
            observer.SuccessfulLogin(mConnection, mServerUrl, mUserName, mPassword);
        } catch (const ZR::ZRException& e) {
            Kerrow::Common::DebugPrintEx(e);
            observer.UnknownLoginError(mServerUrl, mUserName, mPassword,
                                       ILoginTaskEventHandler::Exception(e.Clone()));
        }
    }

    ILoginTaskEventHandler::Connection mConnection;
    ZR::UniString mFullName;
};

// Hands the notifier to the message loop and returns at once.
void Post(std::unique_ptr<LoginDependentTask> notifier) {
    ZR::MessageLoopExecutor executor;
    executor.Execute(ZR::RunnableTask(std::move(notifier)), ZR::MessageLoop::kNormalPriority);
}

}  // namespace

LoginEventHandler::LoginEventHandler(ILoginEventObserver* observer, unsigned int taskId)
    : mObserver(observer), mTaskId(taskId) {
    if (!mObserver)
        throw KRClientException("Failed to create LoginEventHandler. Event observer is nullptr.",
                                ZR_HERE);
}

void LoginEventHandler::OnStart(const ZR::UniString&, const ZR::UniString&, const ZR::UniString&) {
    if (!mObserver) return;
    try {
        mObserver->GetLoginDataStore().Write();
    } catch (const ZR::ZRException& e) {
        Kerrow::Common::DebugPrintEx(e);
    }
}

namespace {

using S = ZR::UniString;

// The notifier of an event other than success: the store update of its kind,
// then the observer's operation of the event, given the event's exception if
// it has one.
template <typename... Extra>
std::unique_ptr<LoginDependentTask> Notifier(
    ILoginEventObserver* observer, unsigned int taskId, const S& serverUrl, const S& userName,
    const S& password, StoreUpdate update,
    void (ILoginEventObserver::*call)(const S&, const S&, const S&, const Extra&...),
    const Extra&... extra) {
    return std::make_unique<EventNotifier>(
        observer, serverUrl, userName, password, taskId, update,
        [call, extra...](ILoginEventObserver& o, const S& url, const S& user, const S& pw) {
            (o.*call)(url, user, pw, extra...);
        });
}

}  // namespace

void LoginEventHandler::OnAuthorizationPending() {
    Post(std::make_unique<EventNotifier>(
        mObserver, S(), S(), S(), mTaskId, StoreUpdate::None,
        [](ILoginEventObserver& o, const S&, const S&, const S&) { o.AuthorizationPending(); }));
}

void LoginEventHandler::OnSuccessfulLogin(Connection& connection, const S& serverUrl,
                                          const S& userName, const S& token, const S& fullName) {
    Post(std::make_unique<SuccessfulLoginNotifier>(mObserver, serverUrl, userName, token, mTaskId,
                                                   connection, fullName));
}

void LoginEventHandler::OnInvalidPasswordLogin(const S& url, const S& user, const S& pw) {
    Post(Notifier(mObserver, mTaskId, url, user, pw, StoreUpdate::AccessDenied,
                  &ILoginEventObserver::InvalidPasswordLogin));
}

void LoginEventHandler::OnInsecureServerConnectionLoginError(const S& url, const S& user,
                                                             const S& pw,
                                                             const HandshakeException& exception) {
    Post(Notifier(mObserver, mTaskId, url, user, pw, StoreUpdate::HandshakeFailed,
                  &ILoginEventObserver::InsecureServerConnectionLoginError, exception));
}

void LoginEventHandler::OnIncompatiblePortalServer(const S& url, const S& user, const S& pw,
                                                   const VersionException& exception) {
    Post(Notifier(mObserver, mTaskId, url, user, pw, StoreUpdate::ServerFailed,
                  &ILoginEventObserver::IncompatiblePortalServer, exception));
}

void LoginEventHandler::OnServerConnectionLoginError(const S& url, const S& user, const S& pw) {
    Post(Notifier(mObserver, mTaskId, url, user, pw, StoreUpdate::ServerFailed,
                  &ILoginEventObserver::ServerConnectionLoginError));
}

void LoginEventHandler::OnUnexpectedServerResponseError(const S& url, const S& user, const S& pw) {
    Post(Notifier(mObserver, mTaskId, url, user, pw, StoreUpdate::ServerFailed,
                  &ILoginEventObserver::UnexpectedServerResponseError));
}

void LoginEventHandler::OnInvalidURLError(const S& url, const S& user, const S& pw) {
    Post(Notifier(mObserver, mTaskId, url, user, pw, StoreUpdate::ServerFailed,
                  &ILoginEventObserver::InvalidURLError));
}

void LoginEventHandler::OnUnknownLoginError(const S& url, const S& user, const S& pw,
                                            const Exception& exception) {
    Post(Notifier(mObserver, mTaskId, url, user, pw, StoreUpdate::ServerFailed,
                  &ILoginEventObserver::UnknownLoginError, exception));
}

void LoginEventHandler::OnNotMemberOfCompanyError(const S& url, const S& user, const S& pw) {
    Post(Notifier(mObserver, mTaskId, url, user, pw, StoreUpdate::ServerFailed,
                  &ILoginEventObserver::NotMemberOfCompanyError));
}

void LoginEventHandler::OnLoginInterrupted(const S& url, const S& user, const S& pw) {
    Post(Notifier(mObserver, mTaskId, url, user, pw, StoreUpdate::None,
                  &ILoginEventObserver::LoginInterrupted));
}

}  // namespace KRC::UI::Login
