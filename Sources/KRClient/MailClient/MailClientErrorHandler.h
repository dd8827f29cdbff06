#pragma once
/// @file
/// How the host tells the user that a mail request failed. The mail client
/// owns it and calls it on the thread on which the request ended; a cancelled
/// request reaches none of these.

#include "KRCB/MailboxMonitor.h"
#include "KRClient/KRClientExport.h"
#include "ZR/Ref.h"

namespace KRC {

class KRCLIENT_EXPORT MailClientErrorHandler {
public:
    using Failure = ZR::Ref<KRCB::Mailbox::MailboxMonitorException>;
    virtual ~MailClientErrorHandler();
    virtual void MailSendingFailed(Failure& failure) = 0;
    virtual void MailDeletingFailed(Failure& failure) = 0;
    /// A read or completed request that the host made; repetitions the
    /// client makes by itself after a reconnection report nothing.
    virtual void SetMailsReadFailed(Failure& failure) = 0;
};

}  // namespace KRC
