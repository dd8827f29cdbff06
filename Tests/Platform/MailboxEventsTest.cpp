// How a mailbox request ends: a handler task reports one result once, and
// never to a resource that is gone; the scripted test monitor records
// requests and ends and delivers exactly what a test says.

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "KRCB/Operation.h"
#include "Support/ScriptedMailboxMonitor.h"

namespace {

namespace MB = KRCB::Mailbox;
using Result = MB::MailboxEventHandlerTask::Result;

class Handler : public MB::MailboxEventHandler {
public:
    explicit Handler(std::vector<std::string>& log) : mLog(log) {}
    void OnSuccess() override { mLog.push_back("success"); }
    void OnCancel() override { mLog.push_back("cancel"); }
    void OnFailure(ZR::Ref<MB::MailboxMonitorException>& e) override {
        mLog.push_back("failure " + e->GetMessage().Std());
    }

private:
    std::vector<std::string>& mLog;
};

struct Resource : ZR::DependentResource {
    ~Resource() override { ReleaseDependents(); }
};

ZR::Ref<MB::MailboxEventHandlerTask> Task(ZR::DependentResource* resource,
                                          std::vector<std::string>& log) {
    return ZR::Ref<MB::MailboxEventHandlerTask>(
        new MB::MailboxEventHandlerTask(resource, new Handler(log)));
}

bool Set(MB::MailboxEventHandlerTask& task, Result result) {
    ZR::Ref<MB::MailboxMonitorException> e(new MB::MailboxMonitorException("no room", ZR_HERE));
    return result == Result::Success    ? task.SetSuccessfulResult()
           : result == Result::Canceled ? task.SetCanceledResult()
                                        : task.SetFailedResult(e);
}

TEST(MailboxEvents, ATaskReportsItsFirstResultOnceAndOnlyWhileItsResourceLives) {
    const struct {
        Result first, second;
        const char* heard;
    } rows[] = {
        {Result::Success, Result::Failed, "success"},
        {Result::Canceled, Result::Success, "cancel"},
        {Result::Failed, Result::Canceled, "failure no room"},
    };
    for (const auto& row : rows) {
        Resource resource;
        std::vector<std::string> log;
        auto task = Task(&resource, log);
        task->Run();  // no result yet: nothing, and the run is not used up
        EXPECT_TRUE(Set(*task, row.first));
        EXPECT_FALSE(Set(*task, row.second));
        EXPECT_EQ(task->GetResult(), row.first);
        task->Run();
        task->Run();
        EXPECT_EQ(log, std::vector<std::string>{row.heard});
    }
    std::vector<std::string> log;
    auto orphan = [&] {
        Resource gone;
        return Task(&gone, log);
    }();
    orphan->SetSuccessfulResult();
    orphan->Run();
    EXPECT_TRUE(log.empty());
}

class Recorder : public MB::MailboxMonitorObserver {
public:
    ~Recorder() override { DetachFromSources(); }
    void MailboxChanged(ZR::Ref<MB::MailboxChange>& change) override {
        heard.push_back("change " + std::to_string(change->GetInboxRevisionTo()));
    }
    void MailboxServerStatusChange(bool online) override {
        heard.push_back(online ? "online" : "offline");
    }
    void ContactListChanged(ZR::Ref<const MB::ContactList>& list) override {
        heard.push_back("contacts " + std::to_string(list->GetSize()));
    }
    std::vector<std::string> heard;
};

TEST(MailboxEvents, TheScriptedMonitorRecordsRequestsAndDeliversWhatTheTestSays) {
    krtest::ScriptedMailboxMonitor monitor;
    Recorder recorder;
    monitor.Attach(recorder);
    EXPECT_FALSE(monitor.IsRunning());
    monitor.InitMailboxRevision(4, 5);

    Resource resource;
    std::vector<std::string> log;
    MB::MailboxEventHandlerTasks tasks;
    tasks.Add(Task(&resource, log));
    tasks.Add(Task(&resource, log));
    MB::MailIdTable ids;
    ids.Set("m1", true);
    monitor.SetMailsRead(ids, "Inbox", tasks);
    MB::ServerMails mails;
    mails.Add(ZR::Ref<Kerrow::Server::Mail::Mail>::Make(
        Kerrow::Server::Mail::MailId(ZR::UniString("out"))));
    MB::MailboxEventHandlerTasks one{Task(&resource, log)};
    monitor.SendMails(mails, one);
    monitor.DeleteMails({"d1", "d2"}, "Sent", one);
    monitor.Suspend();

    auto requests = monitor.Requests();
    ASSERT_EQ(requests.size(), 5u);
    EXPECT_EQ(requests[0].op, "InitMailboxRevision");
    EXPECT_EQ(requests[0].sentRevision, 5u);
    EXPECT_EQ(requests[1].op + " " + requests[1].box + " " + requests[1].ids[0],
              "SetMailsRead Inbox m1");
    EXPECT_EQ(requests[1].tasks.GetSize(), 2u);
    EXPECT_EQ(requests[2].mails[0].GetId().ToString().Std(), "out");
    EXPECT_EQ(requests[3].ids, (std::vector<std::string>{"d1", "d2"}));
    EXPECT_EQ(requests[4].op, "Suspend");
    EXPECT_TRUE(log.empty());  // nothing ends until the test says
    monitor.Fail(1, "full");
    monitor.Cancel(2);
    EXPECT_EQ(log, (std::vector<std::string>{"failure full", "failure full", "cancel"}));

    krtest::ScriptedMailboxMonitor::Box inbox;
    inbox.created = {Kerrow::Server::Mail::Mail(Kerrow::Server::Mail::MailId(ZR::UniString("a")))};
    inbox.to = 3;
    monitor.SetStatus(true);
    monitor.Deliver(krtest::ScriptedMailboxMonitor::Change(inbox, {}));
    monitor.SetContacts(ZR::Ref<MB::ContactList>(new MB::ContactList), "me");
    EXPECT_EQ(recorder.heard, (std::vector<std::string>{"online", "change 3", "contacts 0"}));
    EXPECT_TRUE(monitor.GetUserContact().IsNull());
}

TEST(MailboxEvents, BusyStateGuardsCountWhileTheyStand) {
    const int before = KRCB::BusyStateGuard::GetCount();
    {
        KRCB::BusyStateGuard background(false);
        auto busy = std::make_unique<KRCB::BusyStateGuard>(true);
        EXPECT_EQ(KRCB::BusyStateGuard::GetCount(), before + 2);
        EXPECT_TRUE(KRCB::Operation::OperationGuard::IsBusy());
    }
    EXPECT_EQ(KRCB::BusyStateGuard::GetCount(), before);
}

}  // namespace
