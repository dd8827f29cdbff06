// The login task on a worker thread against the emulated service: each road
// to its one event, the log lines of the failures, the URL and names of a
// success, and a state login polled from another thread while it waits.

#include <gtest/gtest.h>

#include <atomic>

#include "KRClient/KRClientExceptions.h"
#include "KRClient/LoginFixture.h"
#include "Kerrow/Exceptions.h"
#include "Support/EmulatorFixture.h"
#include "Support/LibraryTest.h"

namespace {

using namespace krtest;
using Emulator::FaultKind;
using KRC::UI::Login::LoginTask;

class LoginTaskThreadTest : public LibraryTest {
protected:
    // A password login of anna, typed as a user would, on a worker thread.
    std::vector<LoginEvent> LogIn(const std::string& password, bool wantFullName = true,
                                  bool wantUserName = true) {
        auto handler = ZR::Ref<RecordingHandler>::Make();
        LoginTask task(kTyped, "ANNA", ZR::UniString(password), handler, wantFullName,
                       wantUserName);
        worker = RunOnWorker(task);
        return handler->log.Events();
    }
    std::vector<ZR::LogRecord> KRClientLines() const {
        std::vector<ZR::LogRecord> lines;
        for (const ZR::LogRecord& record : log.GetRecords())
            if (record.component == "KRClient") lines.push_back(record);
        return lines;
    }

    static constexpr const char* kTyped = "https://PORTAL.test/";
    EmulatedService service;
    std::thread::id worker;
};

TEST_F(LoginTaskThreadTest, EachFailureReachesItsEventWithItsLogLineOnTheWorker) {
    struct Row {
        Emulator::Fault fault;
        const char* event;
        const char* logged;  // the line's text up to its argument; null: no line
    };
    auto handshakeAt = [](int depth) {
        Emulator::Fault fault{FaultKind::ConnectionFailed};
        fault.handshakeDepth = depth;
        return fault;
    };
    const char* const kGeneral = "Kerrow login task failed, general exception occurred: ";
    const std::string prefix = "Kerrow login task failed, ";
    const std::string failed = prefix + "ConnectionFailedException occurred: ";
    const std::string portal = prefix + "PortalServerErrorResponseException occurred: ";
    const std::string general = prefix + "GeneralErrorResponseException occurred: ";
    using K = FaultKind;
    const Row rows[] = {
        {{K::CreateSessionFailed}, "InvalidPasswordLogin", nullptr},
        {{K::PortalServerErrorResponse}, "InvalidPasswordLogin", portal.c_str()},
        {{K::ConnectionFailed}, "ServerConnectionLoginError", failed.c_str()},
        {handshakeAt(1), "InsecureServerConnectionLoginError", failed.c_str()},
        {handshakeAt(3), "InsecureServerConnectionLoginError", failed.c_str()},
        {{K::NotInCompany}, "NotMemberOfCompanyError", nullptr},
        {{K::GeneralErrorResponse}, "UnexpectedServerResponseError", general.c_str()},
        {{K::IncompatiblePortalServerVersion}, "IncompatiblePortalServer", nullptr},
        {{K::Interrupted}, "LoginInterrupted", nullptr},
        {{K::InterruptedIO}, "LoginInterrupted", nullptr},
        {{K::ZRException}, "UnknownLoginError", kGeneral},
        {{K::Foreign}, "UnknownLoginError", "Kerrow login task failed, general exception occurred"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.event + std::string(" ") +
                     std::to_string(static_cast<int>(row.fault.kind)));
        log.Clear();
        service->FailNext(Emulator::Op::kLogin, row.fault);
        std::vector<LoginEvent> events = LogIn("pw-anna");
        ASSERT_EQ(events.size(), 2u);
        EXPECT_EQ(events[0].name, "Start");
        EXPECT_EQ(events[1].name, row.event);
        // The URL and name as typed, and the password the task was given.
        EXPECT_EQ(events[1].serverUrl, kTyped);
        EXPECT_EQ(events[1].userName, "ANNA");
        EXPECT_EQ(events[1].third, "pw-anna");
        for (const LoginEvent& e : events) EXPECT_EQ(e.thread, worker);

        std::vector<ZR::LogRecord> lines = KRClientLines();
        if (!row.logged) {
            EXPECT_TRUE(lines.empty()) << lines.front().text;
            continue;
        }
        ASSERT_EQ(lines.size(), 1u);
        EXPECT_EQ(lines[0].level, ZR::LogLevel::Error);
        EXPECT_EQ(lines[0].text.rfind(row.logged, 0), 0u) << lines[0].text;
        EXPECT_EQ(lines[0].text.find("pw-anna"), std::string::npos);
    }
    // What the exceptions of the events hold.
    service->FailNext(Emulator::Op::kLogin, {FaultKind::Foreign, "not ours"});
    EXPECT_EQ(LogIn("pw-anna")[1].exception, "ZRException: General login task exception");
    service->FailNext(Emulator::Op::kLogin, handshakeAt(2));
    EXPECT_EQ(LogIn("pw-anna")[1].exception, "SecureCommunicationHandshakeException");
}

TEST_F(LoginTaskThreadTest, ASuccessCarriesTheAnsweredUrlAndTheNamesAskedFor) {
    auto replacement = Emulator::Service::FromScenarioText(R"({"servers": [{
        "url": "https://portal.test", "answeredUrl": "https://portal.test//",
        "users": [{"login": "anna", "password": "pw-anna", "fullName": "Anna Berg"}]}]})");
    replacement->Install();
    struct Row {
        bool wantFullName, wantUserName;
        const char* userName;
        const char* fullName;
    } rows[] = {{true, false, "ANNA", "Anna Berg"}, {false, true, "anna", ""}};
    for (const Row& row : rows) {
        std::vector<LoginEvent> events = LogIn("pw-anna", row.wantFullName, row.wantUserName);
        ASSERT_EQ(events.size(), 2u);
        const LoginEvent& success = events[1];
        EXPECT_EQ(success.name, "SuccessfulLogin");
        EXPECT_EQ(success.serverUrl, "https://portal.test/");  // one of two slashes removed
        EXPECT_EQ(success.userName, row.userName);
        EXPECT_EQ(success.fullName, row.fullName);
        EXPECT_EQ(success.third, "");
        EXPECT_EQ(success.thread, worker);
        ASSERT_TRUE(success.connection);
        EXPECT_FALSE(success.connection->GetPortalServerClient()->GetRefreshToken().IsEmpty());
    }
    replacement->Uninstall();
    service->Install();
}

TEST_F(LoginTaskThreadTest, AnInterruptionTheClientReportsEndsWithoutAnEvent) {
    service->InterruptNext(Emulator::Op::kLogin);
    auto handler = ZR::Ref<RecordingHandler>::Make();
    LoginTask task(kTyped, "anna", "pw-anna", handler, true, true);
    RunOnWorker(task);
    EXPECT_EQ(handler->log.Names(), std::vector<std::string>{"Start"});
    // The task keeps its connection after Run.
    EXPECT_TRUE(task.GetConnection());
    EXPECT_TRUE(KRClientLines().empty());
}

TEST_F(LoginTaskThreadTest, AStateLoginIsPendingOnEachPollWhileTheServerHoldsIt) {
    service->AddStateLogin(kServer, {"key-1", "state-1", "anna"});
    auto handler = ZR::Ref<RecordingHandler>::Make();
    LoginTask task(kServer, "key-1", "state-1", handler);
    EXPECT_FALSE(task.IsAuthorizationPending());  // no connection yet

    // A host polls from the start, while Run sets the connection.
    std::atomic<bool> stop{false};
    std::thread poller([&] {
        while (!stop) task.IsAuthorizationPending();
    });
    auto gate = service->BlockNext(Emulator::Op::kCreateSessionWithState);
    std::thread worker([&] { task.Run(); });
    ASSERT_TRUE(gate->WaitUntilReached(10000));
    stop = true;
    poller.join();
    handler->log.Clear();
    EXPECT_TRUE(task.IsAuthorizationPending());
    EXPECT_TRUE(task.IsAuthorizationPending());
    // Each poll that finds it pending raises the event, on the polling thread.
    std::vector<LoginEvent> pending = handler->log.Events();
    ASSERT_EQ(pending.size(), 2u);
    for (const LoginEvent& e : pending) {
        EXPECT_EQ(e.name, "AuthorizationPending");
        EXPECT_EQ(e.thread, std::this_thread::get_id());
    }
    gate->Release();
    worker.join();
    EXPECT_FALSE(task.IsAuthorizationPending());
    std::vector<LoginEvent> events = handler->log.Events();
    ASSERT_EQ(events.size(), 3u);
    EXPECT_EQ(events[2].name, "SuccessfulLogin");
    EXPECT_EQ(events[2].userName, "anna");
    EXPECT_EQ(events[2].fullName, "Anna Berg");
}

TEST_F(LoginTaskThreadTest, AnEmptyEventHandlerIsTheOneFailureTheCallerSees) {
    LoginTask::EventHandler none;
    EXPECT_THROW(LoginTask(kServer, "key", "state", none), KRC::KRClientException);
    try {
        LoginTask(kServer, "anna", "pw", none, true, true);
        ADD_FAILURE();
    } catch (const KRC::KRClientException& e) {
        EXPECT_EQ(e.GetMessage(), "Failed to create LoginTask. Event handler is nullptr.");
    }
}

}  // namespace
