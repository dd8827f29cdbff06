// The mailbox monitor against the emulated mail server: the changes it
// tells, the outcomes of a request, a stop with a call held and work queued,
// requests racing stops, and mails and signals on threads apart. What the
// client makes of it is the random mail sequences' ground. Every wait is
// bounded; none sleeps.

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "KRCB/MailboxMonitor.h"
#include "KRCB/ProjectConnection.h"
#include "KRCB/SignalClient.h"
#include "KRClient/MailClient/UserContactFactory.h"
#include "Support/EmulatorFixture.h"

namespace krtest {
namespace {

namespace M = Kerrow::Server::Mail;
namespace MB = KRCB::Mailbox;
using Op = std::string;

constexpr int kWaitMs = 10000;

// State that other threads change under its lock, waited for under a bound.
struct Waitable {
    template <typename F>
    void Change(F&& f) {
        std::lock_guard<std::mutex> lock(mutex);
        f();
        changed.notify_all();
    }
    bool WaitFor(const std::function<bool()>& done) {
        std::unique_lock<std::mutex> lock(mutex);
        return changed.wait_for(lock, std::chrono::milliseconds(kWaitMs), done);
    }
    std::mutex mutex;
    std::condition_variable changed;
};

// What a monitor told.
class Recorder : public MB::MailboxMonitorObserver, public Waitable {
public:
    ~Recorder() override { DetachFromSources(); }
    void MailboxChanged(ZR::Ref<MB::MailboxChange>& c) override {
        Change([&] { changes.push_back(c); });
    }
    void MailboxServerStatusChange(bool online) override {
        Change([&] { statuses.push_back(online); });
    }
    void ContactListChanged(ZR::Ref<const MB::ContactList>&) override {
        Change([&] { ++contactLists; });
    }
    std::vector<ZR::Ref<MB::MailboxChange>> changes;
    std::vector<bool> statuses;
    int contactLists = 0;
};

// The outcomes of handlers, by name, each once.
struct Outcomes : Waitable {
    std::vector<std::string> ended;  // "name:success", "name:failure:<text>", "name:cancel"
    void Add(const std::string& text) {
        Change([&] { ended.push_back(text); });
    }
    bool WaitForCount(std::size_t n) {
        return WaitFor([&] { return ended.size() >= n; });
    }
};

class Handler : public MB::MailboxEventHandler {
public:
    Handler(std::string name, Outcomes& outcomes) : mName(std::move(name)), mOutcomes(outcomes) {}
    void OnSuccess() override { mOutcomes.Add(mName + ":success"); }
    void OnCancel() override { mOutcomes.Add(mName + ":cancel"); }
    void OnFailure(ZR::Ref<MB::MailboxMonitorException>& e) override {
        mOutcomes.Add(mName + ":failure:" + e->GetMessage().Std());
    }

private:
    std::string mName;
    Outcomes& mOutcomes;
};

struct Resource : ZR::DependentResource {
    ~Resource() override { ReleaseDependents(); }
};

struct MailboxMonitorThreadTest : ::testing::Test {
    MailboxMonitorThreadTest() {
        inbox = service->GetMailboxId(kServer, "anna", "Inbox");
        monitor.Attach(recorder);
    }
    ~MailboxMonitorThreadTest() override { monitor.Stop(); }

    MB::MailboxEventHandlerTasks Tasks(const std::string& name, int count = 1) {
        MB::MailboxEventHandlerTasks tasks;
        for (int i = 0; i < count; ++i)
            tasks.Add(ZR::Ref<MB::MailboxEventHandlerTask>(new MB::MailboxEventHandlerTask(
                &resource, new Handler(name + std::to_string(i), outcomes))));
        return tasks;
    }
    M::Mail Mail(const std::string& id, const std::string& to = kBertId) {
        M::Mail mail{M::MailId(ZR::UniString(id))};
        mail.SetFrom({M::Address(M::MailboxId(ZR::UniString(kAnnaId), "Sent"), "Anna")});
        mail.SetTo({M::Address(M::MailboxId(ZR::UniString(to), "Inbox"), "")});
        mail.SetSent(M::Date(1000));
        return mail;
    }
    bool WaitForChanges(std::size_t n) {
        return recorder.WaitFor([&] { return recorder.changes.size() >= n; });
    }
    bool WaitOnline() {
        return recorder.WaitFor(
            [&] { return !recorder.statuses.empty() && recorder.statuses.back(); });
    }
    // The inbox part of change i: "from-to +created ~updated -deleted".
    std::string Inbox(std::size_t i) {
        std::lock_guard<std::mutex> lock(recorder.mutex);
        MB::MailboxChange& c = *recorder.changes.at(i);
        std::string s =
            std::to_string(c.GetInboxRevisionFrom()) + "-" + std::to_string(c.GetInboxRevisionTo());
        for (const auto& m : c.GetInboxCreatedMails()) s += " +" + m->GetId().ToString().Std();
        for (const auto& m : c.GetInboxUpdatedMails()) s += " ~" + m->GetId().ToString().Std();
        for (const auto& id : c.GetInboxDeletedMails()) s += " -" + id.ToString().Std();
        return s;
    }

    EmulatedService service;
    Resource resource;
    Outcomes outcomes;
    Recorder recorder;
    MB::MailboxMonitor monitor{ProjectLocation(),
                               ZR::Ref<MB::ContactFactory>(new KRC::Mailbox::UserContactFactory)};
    std::string inbox;
};

TEST_F(MailboxMonitorThreadTest, WholeBoxesIncrementsGapsAndNothingOfWhatCameAndWentWhileAway) {
    service->AddMail(kServer, inbox, Mail("m1"));
    service->AddMail(kServer, inbox, Mail("m2"));
    EXPECT_ANY_THROW(service->AddMail("https://other.invalid", inbox, Mail("m9")));
    monitor.InitMailboxRevision(0, 0);
    ASSERT_TRUE(WaitForChanges(1) && WaitOnline());
    // Contacts come before the status: the user's own knows its inbox.
    M::Address address;
    ASSERT_TRUE(monitor.GetUserContact()->GetInboxMailboxAddress(address));
    EXPECT_EQ(address.GetMailboxId().ToString().Std(), inbox);
    EXPECT_EQ(recorder.contactLists, 1);

    M::Mail changed = Mail("m1");
    changed.SetRead(true);
    const std::function<void()> steps[] = {
        [&] { service->AddMail(kServer, inbox, Mail("m3")); },  // pushed to the monitor
        [&] { service->AddMail(kServer, inbox, changed); },
        [&] { service->DeleteMail(kServer, inbox, "m2"); },
        [&] {
            monitor.Suspend();
            ASSERT_TRUE(recorder.WaitFor([&] { return !recorder.statuses.back(); }));
            service->AddMail(kServer, inbox, Mail("brief"));
            service->DeleteMail(kServer, inbox, "brief");
            service->DeleteMail(kServer, inbox, "m3");
            monitor.Continue();
        },
        [&] {
            service->ScriptMailGap(kServer, inbox);  // revision 9 is lost
            service->AddMail(kServer, inbox, Mail("m4"));
        },
    };
    for (std::size_t i = 0; i < std::size(steps); ++i) {
        steps[i]();
        ASSERT_TRUE(WaitForChanges(i + 2)) << i;
    }
    service->ScriptWholeMailbox(kServer, inbox);
    auto tasks = Tasks("update");
    monitor.UpdateMails(tasks);
    ASSERT_TRUE(outcomes.WaitForCount(1));
    ASSERT_EQ(recorder.changes.size(), 7u);  // fetched before the task ends
    const char* const told[] = {"0-2 +m1 +m2", "2-3 +m3",  "3-4 ~m1",     "4-5 -m2",
                                "5-8 -m3",     "9-10 +m4", "0-10 +m1 +m4"};
    for (std::size_t i = 0; i < std::size(told); ++i) EXPECT_EQ(Inbox(i), told[i]);
    EXPECT_EQ(monitor.GetInboxRevision(), 10u);
}

TEST_F(MailboxMonitorThreadTest, EachRequestEndsInOneOutcomeForAllItsTasksAndIsRecorded) {
    service->AddMail(kServer, inbox, Mail("in1"));
    monitor.InitMailboxRevision(0, 0);
    ASSERT_TRUE(WaitOnline());
    service->ClearMailRequests();
    struct Case {
        Op op;
        int script;  // 0 none, 1 fail, 2 cancel, 3 fail the fetch after it
        std::string outcome;
    };
    const Case cases[] = {
        {"SendMails", 0, "success"},
        {"SendMails", 1, "failure:Failed to send the mails"},
        {"SendMails", 2, "cancel"},
        {"SetMailsCompleted", 3, "success"},
        {"DeleteMails", 1, "failure:Failed to delete"},
        {"UpdateMails", 3, "failure:Failed to update the mails"},
    };
    std::size_t ended = 0;
    for (const Case& c : cases) {
        if (c.script == 1) service->FailNext(c.op, {Emulator::FaultKind::PortalServerClient, "no"});
        if (c.script == 2) service->CancelNext(c.op);
        if (c.script == 3) service->FailNext("GetMailboxChanges", {});
        auto tasks = Tasks(c.op, 2);
        MB::MailIdTable ids;
        ids.Set("in1", true);
        if (c.op == "SendMails") {
            MB::ServerMails mails;
            mails.Add(ZR::Ref<M::Mail>::Make(Mail("out-" + std::to_string(ended))));
            monitor.SendMails(mails, tasks);
        } else if (c.op == "SetMailsCompleted") {
            monitor.SetMailsCompleted(ids, "Inbox", tasks);
        } else if (c.op == "DeleteMails") {
            monitor.DeleteMails({"in1"}, "Inbox", tasks);
        } else {
            monitor.UpdateMails(tasks);
        }
        ASSERT_TRUE(outcomes.WaitForCount(ended + 2)) << c.op;
        for (int t = 0; t < 2; ++t) {
            const std::string& got = outcomes.ended[ended + t];
            EXPECT_EQ(got.rfind(c.op + std::to_string(t) + ":" + c.outcome, 0), 0u) << got;
        }
        ended += 2;
    }
    EXPECT_EQ(outcomes.ended.size(), ended);  // nothing ended twice
}

TEST_F(MailboxMonitorThreadTest, StopCancelsWhatIsQueuedAndNothingComesAfterIt) {
    monitor.InitMailboxRevision(0, 0);
    ASSERT_TRUE(WaitForChanges(1));
    auto gate = service->BlockNext("GetMailboxChanges");
    auto held = Tasks("held");
    monitor.UpdateMails(held);
    ASSERT_TRUE(gate->WaitUntilReached(kWaitMs));
    auto queued = Tasks("queued", 2);
    monitor.UpdateContactList(queued);
    std::thread stopper([&] { monitor.Stop(); });
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(kWaitMs);
    while (monitor.IsRunning() && std::chrono::steady_clock::now() < deadline)
        std::this_thread::yield();  // until the stop has taken the queue
    EXPECT_FALSE(monitor.IsRunning());
    gate->Release();
    stopper.join();
    ASSERT_TRUE(outcomes.WaitForCount(3));
    EXPECT_EQ(outcomes.ended[0], "held0:success");
    EXPECT_EQ(outcomes.ended[1], "queued0:cancel");
    EXPECT_FALSE(monitor.IsRunning());
    std::size_t told = recorder.changes.size() + recorder.statuses.size();
    service->AddMail(kServer, inbox, Mail("late"));  // no monitor listens any more
    EXPECT_EQ(recorder.changes.size() + recorder.statuses.size(), told);
}

// Requests from several threads, deliveries, status changes, stops and
// restarts race; every task ends exactly once and each stop returns, within
// the bound.
TEST_F(MailboxMonitorThreadTest, RequestsDeliveriesStatusAndStopRace) {
    monitor.InitMailboxRevision(0, 0);
    constexpr int kThreads = 3, kEach = 20;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
        threads.emplace_back([&, t] {
            for (int i = 0; i < kEach; ++i) {
                const std::string name = "t" + std::to_string(t) + "-" + std::to_string(i);
                auto tasks = Tasks(name);
                MB::ServerMails mails;
                mails.Add(ZR::Ref<M::Mail>::Make(Mail(name)));
                if (i % 3 == 0) {
                    monitor.SendMails(mails, tasks);
                } else if (i % 3 == 1) {
                    monitor.UpdateMails(tasks);
                } else {
                    monitor.ResetConnection();
                    monitor.UpdateContactList(tasks);
                }
            }
        });
    std::thread server([&] {
        for (int i = 0; i < 10; ++i) {
            service->AddMail(kServer, inbox, Mail("s" + std::to_string(i)));
            service->SetServerDown(kServer, i % 4 == 1);
        }
        service->SetServerDown(kServer, false);
    });
    for (int i = 0; i < 3; ++i) {
        monitor.Stop();
        monitor.Start();
    }
    for (auto& thread : threads) thread.join();
    server.join();
    monitor.Stop();  // cancels what came in after the last start
    ASSERT_TRUE(outcomes.WaitForCount(kThreads * kEach));
    EXPECT_EQ(outcomes.ended.size(), static_cast<std::size_t>(kThreads * kEach));
}

// Holds the thread that calls Enter until Release, within the bound.
struct Hold : Waitable {
    void Enter() {
        Change([&] { reached = true; });
        WaitFor([&] { return released; });
    }
    bool WaitReached() {
        return WaitFor([&] { return reached; });
    }
    void Release() {
        Change([&] { released = true; });
    }
    bool reached = false, released = false;
};

class SignalHolder : public KRCB::SignalObserver {
public:
    ~SignalHolder() override { DetachFromSources(); }
    void SignalReceived(KRCB::SignalClient*, const KRCB::Signal& signal) override {
        if (signal.GetText() == ZR::UniString("hold")) hold.Enter();
        ++heard;
    }
    Hold hold;
    std::atomic<int> heard{0};
};

class MailHolder : public MB::MailboxMonitorObserver {
public:
    ~MailHolder() override { DetachFromSources(); }
    void MailboxChanged(ZR::Ref<MB::MailboxChange>&) override { hold.Enter(); }
    Hold hold;
};

// Mail deliveries and signals go on threads of their own: neither waits
// behind the other.
TEST_F(MailboxMonitorThreadTest, MailDeliveriesAndSignalsDoNotWaitForEachOther) {
    KRCB::SignalClient signals(kServer, "anna", "rt-anna");
    signals.JoinProject(kProjectId);
    SignalHolder signalHolder;
    signals.Attach(signalHolder);
    monitor.InitMailboxRevision(0, 0);
    ASSERT_TRUE(WaitForChanges(1));

    service->SendSignal(kServer, kProjectPath, 7, "hold");
    ASSERT_TRUE(signalHolder.hold.WaitReached());  // the signal thread is held
    service->AddMail(kServer, inbox, Mail("while-signals-wait"));
    EXPECT_TRUE(WaitForChanges(2));
    signalHolder.hold.Release();
    ASSERT_TRUE(service->WaitForPushes(kWaitMs));

    MailHolder mailHolder;
    monitor.Attach(mailHolder);
    service->AddMail(kServer, inbox, Mail("held"));
    ASSERT_TRUE(mailHolder.hold.WaitReached());  // the monitor's thread is held
    service->SendSignal(kServer, kProjectPath, 7, "pass");
    EXPECT_TRUE(service->WaitForPushes(kWaitMs));
    EXPECT_EQ(signalHolder.heard, 2);
    mailHolder.hold.Release();
    EXPECT_TRUE(WaitForChanges(3));
    monitor.Stop();
}

TEST(MailboxManagerThreadTest, TheManagerMakesOwnsAndStopsTheMonitor) {
    EmulatedService service;
    auto factory = ZR::Ref<MB::ContactFactory>(new KRC::Mailbox::UserContactFactory);
    KRCB::ProjectConnectionManager secondary(ProjectLocation(), true);
    secondary.CreateMailboxMonitor(factory);
    EXPECT_EQ(secondary.GetMailboxMonitor(), nullptr);
    EXPECT_TRUE(secondary.GetCacheFolderLocation().IsEmpty());

    Recorder recorder;
    {
        KRCB::ProjectConnectionManager manager(ProjectLocation(), false);
        EXPECT_EQ(manager.GetMailboxMonitor(), nullptr);
        manager.CreateMailboxMonitor(factory);
        MB::MailboxMonitor* monitor = manager.GetMailboxMonitor();
        ASSERT_NE(monitor, nullptr);
        manager.CreateMailboxMonitor(factory);
        EXPECT_EQ(manager.GetMailboxMonitor(), monitor);
        monitor->Attach(recorder);
        manager.StartMailboxMonitor();
        ASSERT_TRUE(recorder.WaitFor([&] { return !recorder.statuses.empty(); }));
        // The next login takes the manager's new token, which this server refuses.
        manager.PasswordChanged(ProjectLocation("anna", "rt-revoked"));
        monitor->ResetConnection();
        ASSERT_TRUE(recorder.WaitFor([&] { return recorder.statuses.size() == 2; }));
    }  // the manager stops the monitor, which leaves the observer
    std::lock_guard<std::mutex> lock(recorder.mutex);
    EXPECT_EQ(recorder.statuses, (std::vector<bool>{true, false}));
}

}  // namespace
}  // namespace krtest
