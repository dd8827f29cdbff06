// How a mailbox request ends: a handler task reports one result once, and
// never to a resource that is gone. (The scripted test monitor is exercised
// through the mail client tests, which lean on every part of it.)

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "KRCB/MailboxMonitor.h"

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

}  // namespace
