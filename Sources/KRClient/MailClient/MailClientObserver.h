#pragma once
/// @file
/// What a host implements to hear of the mail client: which mails the server
/// created, updated or deleted in the inbox and the sent box.

#include "KRClient/KRClientExport.h"
#include "Kerrow/Mail.h"
#include "ZR/Containers.h"
#include "ZR/EventSource.h"

namespace KRC {

class MailClient;

class KRCLIENT_EXPORT MailClientObserver : public ZR::TS::EventObserver {
public:
    using MailIds = ZR::PagedArray<Kerrow::Server::Mail::MailId, 8>;

    /// The ids of one change; all empty when the client only says that its
    /// lists are to be read anew.
    class KRCLIENT_EXPORT MailboxChanges {
    public:
        MailboxChanges() = default;
        MailboxChanges(MailIds createdInbox, MailIds updatedInbox, MailIds deletedInbox,
                       MailIds createdSent, MailIds updatedSent, MailIds deletedSent);
        const MailIds& GetCreatedInboxMails() const { return mCreatedInbox; }
        const MailIds& GetUpdatedInboxMails() const { return mUpdatedInbox; }
        const MailIds& GetDeletedInboxMails() const { return mDeletedInbox; }
        const MailIds& GetCreatedSentMails() const { return mCreatedSent; }
        const MailIds& GetUpdatedSentMails() const { return mUpdatedSent; }
        const MailIds& GetDeletedSentMails() const { return mDeletedSent; }

    private:
        MailIds mCreatedInbox, mUpdatedInbox, mDeletedInbox;
        MailIds mCreatedSent, mUpdatedSent, mDeletedSent;
    };

    ~MailClientObserver() override;
    /// Called on the thread of the change, with no lock of the client held:
    /// the observer may call the client.
    virtual void MailListChanged(MailClient& client, const MailboxChanges& changes) = 0;
};

}  // namespace KRC
