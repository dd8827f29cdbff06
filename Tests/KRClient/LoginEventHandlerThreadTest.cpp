// The dialog's event handler: events carried from the task's worker to the
// message loop, the store updates of each outcome, abandoned logins and
// observers that are gone; and the handler without a dialog.

#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <memory>

#include "KRClient/KRClientExceptions.h"
#include "KRClient/LoginFixture.h"
#include "KRClient/UserInterface/Login/AsyncLoginTaskEventHandler.h"
#include "Support/EmulatorFixture.h"
#include "Support/FaultEnv.h"
#include "Support/LibraryTest.h"
#include "ZR/MessageLoop.h"

namespace {

using namespace krtest;
using Emulator::FaultKind;
using KRC::UI::Login::AsyncLoginTaskEventHandler;
using KRC::UI::Login::LoginEventHandler;
using KRC::UI::Login::LoginTask;
using KRC::UI::Login::UILoginDataStore;
using ServerStatus = KRCB::LoginDataStore::PortalServerStatus::Status;
using UserStatus = KRCB::LoginDataStore::UserStatus::Status;

class LoginEventHandlerThreadTest : public LibraryTest {
protected:
    // A password login of anna for the observer, run on a worker; the
    // notifiers wait on the loop until Pump.
    void LogIn(RecordingObserver& observer, const char* password, unsigned int taskId = 1,
               const char* url = kServer) {
        LoginTask::EventHandler handler(new LoginEventHandler(&observer, taskId));
        LoginTask task(url, "anna", password, handler, true, true);
        worker = RunOnWorker(task);
    }
    static std::size_t Pump() { return ZR::MessageLoop::RunPending(); }
    std::string File() const { return BaseFolder() + "/LoginData.json"; }

    EmulatedService service;
    ZR::MessageLoop::Scope loop;
    std::thread::id worker;
};

TEST_F(LoginEventHandlerThreadTest, ASuccessStoresServerAndUserWithTheTokenAndWritesOnce) {
    FaultEnv env;
    RecordingObserver observer;
    LogIn(observer, "pw-anna");
    // OnStart wrote the store on the worker, before any notifier; the observer
    // heard nothing yet.
    EXPECT_EQ(observer.storeThread, worker);
    EXPECT_TRUE(observer.log.Events().empty());
    EXPECT_EQ(env.Count(Call::Rename), 0);

    EXPECT_EQ(Pump(), 1u);
    std::vector<LoginEvent> events = observer.log.Events();
    ASSERT_EQ(events.size(), 1u);
    const LoginEvent& success = events[0];
    EXPECT_EQ(success.name, "SuccessfulLogin");
    EXPECT_EQ(success.thread, std::this_thread::get_id());
    // The issued refresh token in the place of the password.
    ASSERT_FALSE(success.third.empty());
    EXPECT_NE(success.third, "pw-anna");

    const UILoginDataStore& store = observer.store;
    EXPECT_EQ(store.GetServerFriendlyName(kServer), "Portal");
    EXPECT_EQ(store.GetUserFullName(kServer, "anna"), "Anna Berg");
    EXPECT_EQ(store.GetActiveUser(kServer).GetUserName(), "anna");
    EXPECT_EQ(store.GetPortalServerStatus(kServer), ServerStatus::ConnectedVerifiedTls);
    EXPECT_EQ(store.GetUserStatus(kServer, "anna"), UserStatus::Accessed);
    EXPECT_EQ(env.Count(Call::Rename), 1);

    // What a later dialog reads from the file.
    UILoginDataStore reread(UILoginDataStore::ForReading);
    EXPECT_EQ(reread.GetActiveUser(kServer).GetRefreshToken(), success.third);
    EXPECT_EQ(ReadFile(File()).find("pw-anna"), std::string::npos);
}

// The secure channel decides the status of a success. A failure on the way of
// a success (a URL no client takes) reaches the observer as an unknown error,
// with what was stored so far left as it is.
TEST_F(LoginEventHandlerThreadTest, ChannelDecidesASuccessStatusAndAFailureInItUndoesNothing) {
    struct Row {
        const char* url;
        const char* channel;
        ServerStatus status;
    } rows[] = {
        {"ldap://odd.example", "", ServerStatus::Unknown},
        {"http://plain.example", "", ServerStatus::ConnectedWithoutTls},  // no secure channel
        {"https://odd.example", R"(, "sslVerifyResult": 18)",
         ServerStatus::ConnectedUnverifiedTls}};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.url);
        auto other = Emulator::Service::FromScenarioText(
            std::string(R"({"servers": [{"url": ")") + row.url + "\"" + row.channel +
            R"(, "users": [{"login": "anna", "password": "pw"}]}]})");
        other->Install();
        RecordingObserver observer;
        LogIn(observer, "pw", 1, row.url);
        Pump();
        const bool success = row.status != ServerStatus::Unknown;
        std::vector<LoginEvent> events = observer.log.Events();
        ASSERT_EQ(events.size(), 1u);
        EXPECT_EQ(events[0].name, success ? "SuccessfulLogin" : "UnknownLoginError");
        EXPECT_EQ(observer.store.GetPortalServerStatus(row.url), row.status);
        EXPECT_EQ(std::filesystem::exists(File()), success);  // the failing row comes first
        if (!success) {
            EXPECT_EQ(events[0].exception, "KRClientException");
            EXPECT_EQ(events[0].third, "");  // the token was not known yet
        }
        other->Uninstall();
    }
    EXPECT_THROW(LoginEventHandler(nullptr, 1), KRC::KRClientException);
}

// One row per kind of status a failure leaves; the other events set theirs alike.
TEST_F(LoginEventHandlerThreadTest, EachFailureSetsItsStatusOnTheLoopAndWritesNothing) {
    struct Row {
        Emulator::Fault fault;
        const char* event;
        ServerStatus server;
        UserStatus user;
    };
    Emulator::Fault handshake{FaultKind::ConnectionFailed};
    handshake.handshakeDepth = 2;
    using K = FaultKind;
    using SS = ServerStatus;
    const UserStatus none = UserStatus::Unknown;
    const ServerStatus down = ServerStatus::ConnectionFailed;
    const Row rows[] = {
        {{K::CreateSessionFailed}, "InvalidPasswordLogin", SS::Unknown, UserStatus::AccessDenied},
        {handshake, "InsecureServerConnectionLoginError", SS::InsecureConnectionRefused, none},
        {{K::NotInCompany}, "NotMemberOfCompanyError", down, none},
        {{K::Interrupted}, "LoginInterrupted", SS::Unknown, none},
    };
    FaultEnv env;
    for (const Row& row : rows) {
        SCOPED_TRACE(row.event);
        KRCB::LoginDataStore::ConnectionStatusStore::GetInstance().Clear();
        RecordingObserver observer;
        service->FailNext(Emulator::Op::kLogin, row.fault);
        LogIn(observer, "pw-anna");
        EXPECT_TRUE(observer.log.Events().empty());
        Pump();
        std::vector<LoginEvent> events = observer.log.Events();
        ASSERT_EQ(events.size(), 1u);
        EXPECT_EQ(events[0].name, row.event);
        EXPECT_EQ(events[0].serverUrl, kServer);
        EXPECT_EQ(events[0].thread, std::this_thread::get_id());
        EXPECT_EQ(observer.store.GetPortalServerStatus(kServer), row.server);
        EXPECT_EQ(observer.store.GetUserStatus(kServer, "anna"), row.user);
    }
    EXPECT_FALSE(std::filesystem::exists(File()));
    EXPECT_EQ(env.Count(Call::Rename), 0);
}

TEST_F(LoginEventHandlerThreadTest, AfterAFailureTheActiveServerStaysActive) {
    {
        RecordingObserver first;
        LogIn(first, "pw-anna");
        Pump();
    }
    // Another process makes another server active in the file meanwhile.
    {
        UILoginDataStore other(UILoginDataStore::ForWriting);
        other.AddServer(ZR::Ref<UILoginDataStore::ServerInfo>::Make("https://other.example", ""),
                        "https://other.example");
        other.SetServerActive("https://other.example");
        ASSERT_TRUE(other.Write());
    }
    KRCB::LoginDataStore::ActiveConnection::GetInstance().Clear();
    RecordingObserver observer;
    EXPECT_EQ(observer.store.GetActiveServer().GetUniqueURL(), "https://other.example");
    observer.store.SetServerActive(kServer);
    LogIn(observer, "wrong");
    Pump();
    EXPECT_EQ(observer.log.Names(), std::vector<std::string>{"InvalidPasswordLogin"});
    EXPECT_EQ(observer.store.GetActiveServer().GetUniqueURL(), kServer);
}

TEST_F(LoginEventHandlerThreadTest, AnAbandonedLoginAndAGoneObserverChangeNothing) {
    RecordingObserver observer(7);
    LogIn(observer, "pw-anna", 7);
    LogIn(observer, "wrong", 7);
    observer.taskId = 8;  // the dialog waits for another login now
    EXPECT_EQ(Pump(), 2u);
    EXPECT_TRUE(observer.log.Events().empty());
    EXPECT_EQ(observer.store.GetUserStatus(kServer, "anna"), UserStatus::Unknown);
    EXPECT_FALSE(std::filesystem::exists(File()));

    auto gone = std::make_unique<RecordingObserver>();
    LogIn(*gone, "pw-anna");
    LogIn(*gone, "wrong");
    gone.reset();
    EXPECT_EQ(Pump(), 2u);
    EXPECT_EQ(
        KRCB::LoginDataStore::ConnectionStatusStore::GetInstance().GetUserStatus(kServer, "anna"),
        UserStatus::Unknown);
    EXPECT_FALSE(std::filesystem::exists(File()));
}

TEST_F(LoginEventHandlerThreadTest, TheHandlerWithoutADialogKeepsAStatusAnyThreadMayRead) {
    using Status = AsyncLoginTaskEventHandler::ConnectionStatus;
    struct Row {
        std::optional<Emulator::Fault> fault;
        Status status;
    } rows[] = {{std::nullopt, Status::Connected},  // each event sets its one status
                {Emulator::Fault{FaultKind::ConnectionFailed}, Status::ServerConnectionError}};
    for (const Row& row : rows) {
        if (row.fault) service->FailNext(Emulator::Op::kLogin, *row.fault);
        ZR::Ref<KRCB::Management::AuthenticatedClientConnection> connection;
        auto handler = ZR::Ref<AsyncLoginTaskEventHandler>::Make(connection);
        LoginTask task(kServer, "anna", "pw-anna", handler, false, false);
        // A caller polls the status while the task runs.
        std::atomic<bool> done{false};
        std::thread poller([&] {
            while (!done) (void)handler->GetConnectionStatus();
        });
        RunOnWorker(task);
        done = true;
        poller.join();
        EXPECT_EQ(handler->GetConnectionStatus(), row.status);
        EXPECT_EQ(static_cast<bool>(connection), row.status == Status::Connected);
        if (connection) {
            // The same connection again still counts as connected.
            handler->OnAuthorizationPending();
            EXPECT_EQ(handler->GetConnectionStatus(), Status::Pending);
            handler->OnSuccessfulLogin(connection, "", "", "", "");
            EXPECT_EQ(handler->GetConnectionStatus(), Status::Connected);
            EXPECT_EQ(&handler->GetConnection(), &connection);
        }
    }
}

}  // namespace
