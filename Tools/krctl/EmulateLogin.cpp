// krctl emulate SCENARIO login: logs a user in against the scenario's server
// as a host's login dialog does. A LoginTask runs on a worker thread with the
// dialog's event handler, whose notifiers run on this thread's message loop;
// a good login leaves the server and the user in the login data store. The
// password comes from standard input only, never from the command line or the
// environment, and neither it nor a token is ever printed.

#include <termios.h>
#include <unistd.h>

#include <cstdio>
#include <iostream>
#include <memory>
#include <thread>
#include <vector>

#include "Emulate.h"
#include "KRClient/UserInterface/Login/LoginEventHandler.h"
#include "KRClient/UserInterface/Login/LoginTask.h"
#include "ZR/Internal/Printable.h"
#include "ZR/MessageLoop.h"

namespace krctl {

namespace {

using KRC::UI::Login::ILoginEventObserver;
using KRC::UI::Login::ILoginTaskEventHandler;
using KRC::UI::Login::LoginEventHandler;
using KRC::UI::Login::LoginTask;
using KRC::UI::Login::UILoginDataStore;
using S = ZR::UniString;

struct LoginArgs {
    std::string url, user, stateKey, state;
    bool hasState = false;
};

// One line of standard input; from a terminal, asked for and read without echo.
std::string ReadPassword() {
    const bool terminal = isatty(STDIN_FILENO) == 1;
    termios saved{};
    if (terminal) {
        std::fprintf(stderr, "Password: ");
        std::fflush(stderr);
        tcgetattr(STDIN_FILENO, &saved);
        termios quiet = saved;
        quiet.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        tcsetattr(STDIN_FILENO, TCSAFLUSH, &quiet);
    }
    std::string password;
    const bool read = static_cast<bool>(std::getline(std::cin, password));
    if (terminal) {
        tcsetattr(STDIN_FILENO, TCSAFLUSH, &saved);
        std::fprintf(stderr, "\n");
    }
    if (!read) throw UsageError("login reads the password from standard input, which gave none");
    if (!password.empty() && password.back() == '\r') password.pop_back();
    return password;
}

// The dialog: it keeps the event it heard, without the password or token
// that come with some.
class Dialog : public ILoginEventObserver {
public:
    Dialog() : mStore(UILoginDataStore::ForWriting) {}
    ~Dialog() override { ReleaseDependents(); }

    std::string event;
    std::string serverUrl, userName, fullName;

    void SuccessfulLogin(Connection&, const S& url, const S& user, const S&) override {
        Heard("SuccessfulLogin", url, user);
        fullName = mStore.GetUserFullName(url, user).Std();
    }
    void InvalidPasswordLogin(const S& u, const S& n, const S&) override {
        Heard("InvalidPasswordLogin", u, n);
    }
    void InsecureServerConnectionLoginError(
        const S& u, const S& n, const S&,
        const ILoginTaskEventHandler::HandshakeException&) override {
        Heard("InsecureServerConnectionLoginError", u, n);
    }
    void IncompatiblePortalServer(const S& u, const S& n, const S&,
                                  const ILoginTaskEventHandler::VersionException&) override {
        Heard("IncompatiblePortalServer", u, n);
    }
    void ServerConnectionLoginError(const S& u, const S& n, const S&) override {
        Heard("ServerConnectionLoginError", u, n);
    }
    void UnexpectedServerResponseError(const S& u, const S& n, const S&) override {
        Heard("UnexpectedServerResponseError", u, n);
    }
    void InvalidURLError(const S& u, const S& n, const S&) override {
        Heard("InvalidURLError", u, n);
    }
    void UnknownLoginError(const S& u, const S& n, const S&,
                           const ILoginTaskEventHandler::Exception&) override {
        Heard("UnknownLoginError", u, n);
    }
    void NotMemberOfCompanyError(const S& u, const S& n, const S&) override {
        Heard("NotMemberOfCompanyError", u, n);
    }
    void LoginInterrupted(const S& u, const S& n, const S&) override {
        Heard("LoginInterrupted", u, n);
    }
    unsigned int GetTaskId() override { return 1; }
    UILoginDataStore& GetLoginDataStore() override { return mStore; }

private:
    void Heard(const char* name, const S& url, const S& user) {
        event = name;
        serverUrl = url.Std();
        userName = user.Std();
    }
    UILoginDataStore mStore;
};

int RunLogin(const GlobalOptions& options, const LoginArgs& args, const std::string& scenario,
             bool update) {
    CheckServerUrl(args.url);
    if (args.stateKey.empty() == args.user.empty())
        throw UsageError("login needs USER, or --state-key and --state for a state login");
    if (!args.stateKey.empty() && !args.hasState) throw UsageError("--state-key needs --state");
    std::unique_ptr<Emulator::Service> service = LoadScenario(scenario);
    const std::string password = args.stateKey.empty() ? ReadPassword() : std::string();

    Dialog dialog;
    {
        Installed installed(*service);
        ZR::MessageLoop::Scope loop;
        LoginTask::EventHandler handler(new LoginEventHandler(&dialog, dialog.GetTaskId()));
        std::unique_ptr<LoginTask> task =
            args.stateKey.empty() ? std::make_unique<LoginTask>(S(args.url), S(args.user),
                                                                S(password), handler, true, true)
                                  : std::make_unique<LoginTask>(S(args.url), S(args.stateKey),
                                                                S(args.state), handler);
        std::thread worker([&task] { task->Run(); });
        worker.join();
        // The task posted its notifier before it ended.
        ZR::MessageLoop::RunPending();
    }
    if (update) service->SaveScenarioFile(scenario);

    const bool success = dialog.event == "SuccessfulLogin";
    if (options.json) {
        Json out{{"event", dialog.event.empty() ? Json() : Json(dialog.event)}};
        if (!dialog.event.empty()) {
            out["serverUrl"] = dialog.serverUrl;
            out["userName"] = dialog.userName;
        }
        if (success) out["fullName"] = dialog.fullName;
        PrintJson(out);
    } else if (dialog.event.empty()) {
        std::printf("login: no event (the server reported the login interrupted)\n");
    } else {
        std::printf("login: %s\nserver: %s\n", dialog.event.c_str(),
                    ZR::Internal::Printable(dialog.serverUrl).c_str());
        if (success)
            std::printf("user: %s \"%s\"\n", ZR::Internal::Printable(dialog.userName).c_str(),
                        ZR::Internal::Printable(dialog.fullName).c_str());
    }
    return success ? kExitDone : kExitFailed;
}

}  // namespace

void AddEmulateLoginCommand(CLI::App* emulate, const GlobalOptions& options, Action* action,
                            const std::string& scenario, const bool& update) {
    auto args = std::make_shared<LoginArgs>();
    CLI::App* login = emulate->add_subcommand(
        "login",
        "log USER in as a host's login dialog does, the password read from standard input (from "
        "a terminal without echo); a good login stores the server and the user in the login data "
        "(see 'krctl login list'). Exit 0 on success, 1 otherwise");
    login->add_option("URL", args->url, "management server URL")->required();
    login->add_option("USER", args->user, "login name (not with --state-key)");
    login->add_option("--state-key", args->stateKey, "log in by session key and state instead")
        ->type_name("KEY");
    login->add_option("--state", args->state, "the session state of --state-key")
        ->type_name("STATE")
        ->each([args](const std::string&) { args->hasState = true; });
    login->callback([&options, action, args, &scenario, &update] {
        *action = [&options, args, &scenario, &update] {
            return RunLogin(options, *args, scenario, update);
        };
    });
}

}  // namespace krctl
