#pragma once
/// @file
/// Builds the library's contacts from the management server's user data for
/// the mailbox monitor.

#include "KRCB/Clients.h"
#include "KRCB/Mailbox.h"
#include "KRClient/KRClientExport.h"
#include "ZR/Containers.h"
#include "ZR/Ref.h"
#include "ZR/UniString.h"

namespace KRC::Mailbox {

/// Makes UserContacts. Each server call runs on the caller's thread, and the
/// first one of a batch opens a query guard that it leaves in queryGuard for
/// the rest of the batch, unless the client is inside a transaction already.
class KRCLIENT_EXPORT UserContactFactory : public KRCB::Mailbox::ContactFactory {
public:
    UserContactFactory() = default;
    ~UserContactFactory() override;

    /// Fetches, in one query, the users of ownerIds that the operation cache
    /// doesn't know yet, so that the CreateContact calls of the batch find them
    /// cached. Does nothing while the cache is off. The first array is not used.
    void PreCheckOwners(
        const ZR::PagedArray<ZR::UniString>& knownOwnerIds,
        const ZR::PagedArray<ZR::UniString>& ownerIds,
        ZR::Ref<KRCB::Management::PortalServerClient>& client,
        ZR::Ref<KRCB::Management::PortalServerNonTransactionalQueryGuard>& queryGuard) override;

    /// A UserContact of the user ownerId, with the picture if the server has
    /// one that can be had; empty without a client or for a user the server
    /// doesn't know. A failing picture download leaves the contact without a
    /// picture; interruptions and other failures of the user query pass on.
    ZR::Ref<const KRCB::Mailbox::Contact> CreateContact(
        const ZR::UniString& ownerId, const KRCB::Mailbox::MailboxIds& mailboxIds,
        const KRCB::Mailbox::MailboxSessions& activeSessions,
        const KRCB::Mailbox::MailboxSessions& sessions,
        const KRCB::Mailbox::SessionProperties& sessionProperties,
        ZR::Ref<KRCB::Management::PortalServerClient>& client,
        ZR::Ref<KRCB::Management::PortalServerNonTransactionalQueryGuard>& queryGuard) override;

    /// The old contact's names, colour and picture with the new mailboxes and
    /// sessions, without asking the server; CreateContact if the old contact is
    /// not a UserContact.
    ZR::Ref<const KRCB::Mailbox::Contact> ReCreateContact(
        const ZR::Ref<const KRCB::Mailbox::Contact>& oldContact, const ZR::UniString& ownerId,
        const KRCB::Mailbox::MailboxIds& mailboxIds,
        const KRCB::Mailbox::MailboxSessions& activeSessions,
        const KRCB::Mailbox::MailboxSessions& sessions,
        const KRCB::Mailbox::SessionProperties& sessionProperties,
        ZR::Ref<KRCB::Management::PortalServerClient>& client,
        ZR::Ref<KRCB::Management::PortalServerNonTransactionalQueryGuard>& queryGuard) override;
};

}  // namespace KRC::Mailbox
