// The observer of a mailbox monitor, and the handlers and tasks by which a
// request of the monitor ends.
#include "KRCB/MailboxMonitor.h"

namespace KRCB::Mailbox {

MailboxMonitorObserver::~MailboxMonitorObserver() = default;
void MailboxMonitorObserver::ContactListChanged(ZR::Ref<const ContactList>&) {}
void MailboxMonitorObserver::MailboxChanged(ZR::Ref<MailboxChange>&) {}
void MailboxMonitorObserver::MailboxServerStatusChange(bool) {}

MailboxEventHandler::~MailboxEventHandler() = default;
void MailboxEventHandler::OnSuccessfulResult() {
    OnSuccess();
}
void MailboxEventHandler::OnCanceledResult() {
    OnCancel();
}
void MailboxEventHandler::OnFailedResult(ZR::Ref<MailboxMonitorException>& exception) {
    OnFailure(exception);
}

MailboxEventHandlerTask::MailboxEventHandlerTask(ZR::DependentResource* resource,
                                                 MailboxEventHandler* handler)
    : ZR::DependentTask(resource), mHandler(handler) {}

MailboxEventHandlerTask::~MailboxEventHandlerTask() = default;

bool MailboxEventHandlerTask::SetSuccessfulResult() {
    std::lock_guard<std::mutex> lock(mMutex);
    if (mResult != Result::None) return false;
    mResult = Result::Success;
    return true;
}

bool MailboxEventHandlerTask::SetCanceledResult() {
    std::lock_guard<std::mutex> lock(mMutex);
    if (mResult != Result::None) return false;
    mResult = Result::Canceled;
    return true;
}

bool MailboxEventHandlerTask::SetFailedResult(const ZR::Ref<MailboxMonitorException>& exception) {
    std::lock_guard<std::mutex> lock(mMutex);
    if (mResult != Result::None) return false;
    mResult = Result::Failed;
    mException = exception;
    return true;
}

MailboxEventHandlerTask::Result MailboxEventHandlerTask::GetResult() const {
    std::lock_guard<std::mutex> lock(mMutex);
    return mResult;
}

void MailboxEventHandlerTask::Run() {
    // A task handed to an executor and run by the monitor too reports once;
    // one without a result waits for it.
    if (GetResult() == Result::None || mRan.exchange(true)) return;
    ZR::DependentTask::Run();
}

void MailboxEventHandlerTask::Execute(ZR::DependentResource*) {
    if (!mHandler) return;
    Result result;
    ZR::Ref<MailboxMonitorException> exception;
    {
        std::lock_guard<std::mutex> lock(mMutex);
        result = mResult;
        exception = mException;
    }
    switch (result) {
        case Result::Success:
            mHandler->OnSuccessfulResult();
            break;
        case Result::Canceled:
            mHandler->OnCanceledResult();
            break;
        case Result::Failed:
            mHandler->OnFailedResult(exception);
            break;
        case Result::None:
            break;
    }
}

}  // namespace KRCB::Mailbox
