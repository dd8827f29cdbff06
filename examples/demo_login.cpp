// The demo's login: a dialog runs a LoginTask on a worker thread, and its
// observer hears the outcome on the message loop, first of a wrong password,
// then of the right one. The refresh token of the good login opens the project
// afterwards; neither it nor the password is ever printed.

#include <cstdio>
#include <string>
#include <thread>

#include "KRClient/UserInterface/Login/LoginEventHandler.h"
#include "KRClient/UserInterface/Login/LoginTask.h"
#include "ZR/MessageLoop.h"

namespace {

using KRC::UI::Login::ILoginEventObserver;
using KRC::UI::Login::ILoginTaskEventHandler;
using KRC::UI::Login::UILoginDataStore;
using S = ZR::UniString;

// The host's login dialog. Each attempt has an id of its own; the dialog
// waits for the latest.
class LoginDialog : public ILoginEventObserver {
public:
    LoginDialog() : mStore(UILoginDataStore::ForWriting) {}
    ~LoginDialog() override { ReleaseDependents(); }

    unsigned int attempt = 0;
    std::string heard;
    S token;

    void SuccessfulLogin(Connection&, const S& url, const S& user, const S& refreshToken) override {
        heard = "SuccessfulLogin";
        token = refreshToken;
        std::printf("     [dialog] SuccessfulLogin: %s on %s, a refresh token came along\n",
                    user.ToCString(), url.ToCString());
    }
    void InvalidPasswordLogin(const S& url, const S& user, const S&) override {
        Failed("InvalidPasswordLogin", url, user);
    }
    void InsecureServerConnectionLoginError(
        const S& url, const S& user, const S&,
        const ILoginTaskEventHandler::HandshakeException&) override {
        Failed("InsecureServerConnectionLoginError", url, user);
    }
    void IncompatiblePortalServer(const S& url, const S& user, const S&,
                                  const ILoginTaskEventHandler::VersionException&) override {
        Failed("IncompatiblePortalServer", url, user);
    }
    void ServerConnectionLoginError(const S& url, const S& user, const S&) override {
        Failed("ServerConnectionLoginError", url, user);
    }
    void UnexpectedServerResponseError(const S& url, const S& user, const S&) override {
        Failed("UnexpectedServerResponseError", url, user);
    }
    void InvalidURLError(const S& url, const S& user, const S&) override {
        Failed("InvalidURLError", url, user);
    }
    void UnknownLoginError(const S& url, const S& user, const S&,
                           const ILoginTaskEventHandler::Exception&) override {
        Failed("UnknownLoginError", url, user);
    }
    void NotMemberOfCompanyError(const S& url, const S& user, const S&) override {
        Failed("NotMemberOfCompanyError", url, user);
    }
    void LoginInterrupted(const S& url, const S& user, const S&) override {
        Failed("LoginInterrupted", url, user);
    }
    unsigned int GetTaskId() override { return attempt; }
    UILoginDataStore& GetLoginDataStore() override { return mStore; }

    // One attempt: the task on a worker thread, its notifier on this thread's loop.
    void LogIn(const S& server, const S& user, const S& password) {
        heard.clear();
        ++attempt;
        LoginTask::EventHandler handler(new KRC::UI::Login::LoginEventHandler(this, attempt));
        LoginTask task(server, user, password, handler, true, true);
        std::thread worker([&task] { task.Run(); });
        worker.join();
        ZR::MessageLoop::RunPending();
    }

private:
    using LoginTask = KRC::UI::Login::LoginTask;
    void Failed(const char* event, const S& url, const S& user) {
        heard = event;
        std::printf("     [dialog] %s: %s on %s\n", event, user.ToCString(), url.ToCString());
    }
    UILoginDataStore mStore;
};

const char* UserStatusName(KRCB::LoginDataStore::UserStatus::Status status) {
    switch (status) {
        case KRCB::LoginDataStore::UserStatus::Accessed:
            return "accessed";
        case KRCB::LoginDataStore::UserStatus::AccessDenied:
            return "access denied";
        default:
            return "unknown";
    }
}

}  // namespace

// Logs the user in as a host's dialog does and answers the refresh token of
// the good login (empty if it failed).
ZR::UniString RunLoginDemo(const char* server, const char* user, const char* password) {
    ZR::MessageLoop::Scope loop;
    LoginDialog dialog;

    std::printf("   %s types a wrong password.\n", user);
    dialog.LogIn(server, user, "not-the-password");
    std::printf("     store: %s is marked \"%s\"\n", user,
                UserStatusName(dialog.GetLoginDataStore().GetUserStatus(server, user)));

    std::printf("   %s types the right one.\n", user);
    dialog.LogIn(server, user, password);
    const UILoginDataStore& store = dialog.GetLoginDataStore();
    if (store.HasActiveConnection())
        std::printf("     store: active server %s (\"%s\"), active user %s (\"%s\"), %s\n",
                    store.GetActiveServer().GetUniqueURL().ToCString(),
                    store.GetServerFriendlyName(server).ToCString(),
                    store.GetActiveUser(server).GetUserName().ToCString(),
                    store.GetActiveUser(server).GetFullName().ToCString(),
                    UserStatusName(store.GetUserStatus(server, user)));
    return dialog.token;
}
