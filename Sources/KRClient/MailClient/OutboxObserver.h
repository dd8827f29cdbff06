#pragma once
/// @file
/// What a host implements to hear that the outbox changed: a mail was added
/// or mails were deleted. Calls come on the message loop.

#include "KRClient/KRClientExport.h"
#include "ZR/EventSource.h"

namespace KRC {

class KRCLIENT_EXPORT OutboxObserver : public ZR::TS::EventObserver {
public:
    ~OutboxObserver() override;
    /// The outbox changed; its content is to be asked anew.
    virtual void OutboxContentChanged() = 0;
    /// What the outbox calls; by default OutboxContentChanged.
    virtual void OutboxChanged() { OutboxContentChanged(); }

protected:
    OutboxObserver() = default;
};

}  // namespace KRC
