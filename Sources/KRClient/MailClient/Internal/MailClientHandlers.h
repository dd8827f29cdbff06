#pragma once
// The handlers by which the mail client hears how a request to the monitor
// ended. The three that show errors are the host's way to hear of failures;
// the others keep the client's own records. Each is wrapped in a task that
// depends on the client, so none runs after the client is gone.

#include <memory>

#include "KRCB/MailboxMonitor.h"
#include "KRCB/Operation.h"
#include "KRClient/MailClient/MailClient.h"
#include "KRClient/MailClient/MailClientErrorHandler.h"

namespace KRC {

using Failure = ZR::Ref<KRCB::Mailbox::MailboxMonitorException>;

class ShowErrorInMailSending : public KRCB::Mailbox::MailboxEventHandler {
public:
    explicit ShowErrorInMailSending(MailClientErrorHandler* errorHandler)
        : mErrorHandler(errorHandler) {}
    void OnSuccess() override {}
    void OnCancel() override {}
    void OnFailure(Failure& failure) override {
        if (mErrorHandler) mErrorHandler->MailSendingFailed(failure);
    }

private:
    MailClientErrorHandler* mErrorHandler;
};

class ShowErrorInMailDeleting : public KRCB::Mailbox::MailboxEventHandler {
public:
    ShowErrorInMailDeleting(MailClient* client, MailClientErrorHandler* errorHandler)
        : mClient(client),
          mErrorHandler(errorHandler),
          mGuard(ZR::Ref<KRCB::BusyStateGuard>::Make(false)) {}
    void OnSuccess() override { mClient->NotifyMailListChanged(); }
    void OnCancel() override {}
    void OnFailure(Failure& failure) override {
        if (mErrorHandler) mErrorHandler->MailDeletingFailed(failure);
    }

private:
    MailClient* mClient;
    MailClientErrorHandler* mErrorHandler;
    ZR::Ref<KRCB::BusyStateGuard> mGuard;  // marks the request under way
};

class ShowErrorInSetMailsRead : public KRCB::Mailbox::MailboxEventHandler {
public:
    ShowErrorInSetMailsRead(MailClientErrorHandler* errorHandler, MailClient* client)
        : mGuard(ZR::Ref<KRCB::BusyStateGuard>::Make(false)),
          mErrorHandler(errorHandler),
          mClient(client) {}
    void OnSuccess() override { mClient->NotifyMailListChanged(); }
    void OnCancel() override {}
    void OnFailure(Failure& failure) override {
        if (mErrorHandler) mErrorHandler->SetMailsReadFailed(failure);
    }

private:
    ZR::Ref<KRCB::BusyStateGuard> mGuard;  // marks the request under way
    MailClientErrorHandler* mErrorHandler;
    MailClient* mClient;
};

}  // namespace KRC
