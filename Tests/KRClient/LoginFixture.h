#pragma once
// Login tests: a handler and an observer that record what reaches them and
// on which thread, and a worker thread that runs a task to its end.

#include <gtest/gtest.h>

#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "KRClient/UserInterface/Login/LoginEventHandler.h"
#include "KRClient/UserInterface/Login/LoginTask.h"
#include "ZR/Runnable.h"

namespace krtest {

struct LoginEvent {
    std::string name;
    std::string serverUrl, userName, third, fullName;
    std::thread::id thread;
    std::string exception;  // the name of an event's exception, if it has one
    KRC::UI::Login::ILoginTaskEventHandler::Connection connection;
};

// Every event with its arguments, under a lock: events come from the worker
// and from polling threads.
class LoginEventLog {
public:
    void Add(LoginEvent event) {
        event.thread = std::this_thread::get_id();
        std::lock_guard<std::mutex> lock(mMutex);
        mEvents.push_back(std::move(event));
    }
    std::vector<LoginEvent> Events() const {
        std::lock_guard<std::mutex> lock(mMutex);
        return mEvents;
    }
    void Clear() {
        std::lock_guard<std::mutex> lock(mMutex);
        mEvents.clear();
    }
    std::vector<std::string> Names() const {
        std::vector<std::string> names;
        for (const LoginEvent& e : Events()) names.push_back(e.name);
        return names;
    }

private:
    mutable std::mutex mMutex;
    std::vector<LoginEvent> mEvents;
};

using S = ZR::UniString;
using TaskHandler = KRC::UI::Login::ILoginTaskEventHandler;

// What both recorders share: the log, and one entry per event.
class LoginEventRecorder {
public:
    LoginEventLog log;

protected:
    void Add(const char* name, const S& u, const S& n, const S& p, const S& exception = S()) {
        log.Add({name, u.Std(), n.Std(), p.Std(), "", {}, exception.Std(), {}});
    }
};

// An event of the server URL, user name and password only, logged under `name`.
#define KRTEST_PLAIN_EVENT(method, name)                       \
    void method(const S& u, const S& n, const S& p) override { \
        Add(name, u, n, p);                                    \
    }

class RecordingHandler : public KRC::UI::Login::ILoginTaskEventHandler, public LoginEventRecorder {
public:
    KRTEST_PLAIN_EVENT(OnStart, "Start")
    KRTEST_PLAIN_EVENT(OnInvalidPasswordLogin, "InvalidPasswordLogin")
    KRTEST_PLAIN_EVENT(OnServerConnectionLoginError, "ServerConnectionLoginError")
    KRTEST_PLAIN_EVENT(OnUnexpectedServerResponseError, "UnexpectedServerResponseError")
    KRTEST_PLAIN_EVENT(OnInvalidURLError, "InvalidURLError")
    KRTEST_PLAIN_EVENT(OnNotMemberOfCompanyError, "NotMemberOfCompanyError")
    KRTEST_PLAIN_EVENT(OnLoginInterrupted, "LoginInterrupted")
    void OnAuthorizationPending() override { Add("AuthorizationPending", "", "", ""); }
    void OnSuccessfulLogin(Connection& c, const S& u, const S& n, const S& t, const S& f) override {
        log.Add({"SuccessfulLogin", u.Std(), n.Std(), t.Std(), f.Std(), {}, {}, c});
    }
    void OnInsecureServerConnectionLoginError(const S& u, const S& n, const S& p,
                                              const HandshakeException& e) override {
        Add("InsecureServerConnectionLoginError", u, n, p, e->GetName());
    }
    void OnIncompatiblePortalServer(const S& u, const S& n, const S& p,
                                    const VersionException& e) override {
        Add("IncompatiblePortalServer", u, n, p, e->GetName());
    }
    void OnUnknownLoginError(const S& u, const S& n, const S& p, const Exception& e) override {
        Add("UnknownLoginError", u, n, p, e->GetName() + ": " + e->GetMessage());
    }
};

// A dialog: its own store, the id of the login it waits for, and the events
// it heard. The thread of the first use of its store is kept.
class RecordingObserver : public KRC::UI::Login::ILoginEventObserver, public LoginEventRecorder {
public:
    explicit RecordingObserver(unsigned int taskId = 1)
        : store(KRC::UI::Login::UILoginDataStore::ForWriting), taskId(taskId) {}
    ~RecordingObserver() override { ReleaseDependents(); }

    KRTEST_PLAIN_EVENT(InvalidPasswordLogin, "InvalidPasswordLogin")
    KRTEST_PLAIN_EVENT(ServerConnectionLoginError, "ServerConnectionLoginError")
    KRTEST_PLAIN_EVENT(UnexpectedServerResponseError, "UnexpectedServerResponseError")
    KRTEST_PLAIN_EVENT(InvalidURLError, "InvalidURLError")
    KRTEST_PLAIN_EVENT(NotMemberOfCompanyError, "NotMemberOfCompanyError")
    KRTEST_PLAIN_EVENT(LoginInterrupted, "LoginInterrupted")
    void AuthorizationPending() override { Add("AuthorizationPending", "", "", ""); }
    void SuccessfulLogin(Connection& c, const S& u, const S& n, const S& t) override {
        log.Add({"SuccessfulLogin", u.Std(), n.Std(), t.Std(), "", {}, {}, c});
    }
    void InsecureServerConnectionLoginError(const S& u, const S& n, const S& p,
                                            const TaskHandler::HandshakeException& e) override {
        Add("InsecureServerConnectionLoginError", u, n, p, e->GetName());
    }
    void IncompatiblePortalServer(const S& u, const S& n, const S& p,
                                  const TaskHandler::VersionException& e) override {
        Add("IncompatiblePortalServer", u, n, p, e->GetName());
    }
    void UnknownLoginError(const S& u, const S& n, const S& p,
                           const TaskHandler::Exception& e) override {
        Add("UnknownLoginError", u, n, p, e->GetName());
    }
    unsigned int GetTaskId() override { return taskId; }
    KRC::UI::Login::UILoginDataStore& GetLoginDataStore() override {
        std::lock_guard<std::mutex> lock(mMutex);
        if (storeThread == std::thread::id()) storeThread = std::this_thread::get_id();
        return store;
    }

    KRC::UI::Login::UILoginDataStore store;
    unsigned int taskId;
    std::thread::id storeThread;

private:
    std::mutex mMutex;
};

#undef KRTEST_PLAIN_EVENT

// Runs the task's Run on a thread of its own and waits for its end; answers
// that thread's id.
inline std::thread::id RunOnWorker(ZR::Runnable& task) {
    std::thread::id id;
    std::thread worker([&] {
        id = std::this_thread::get_id();
        task.Run();
    });
    worker.join();
    return id;
}

}  // namespace krtest
