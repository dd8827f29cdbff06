#pragma once
/// @file
/// Contacts of the mail system: what a contact answers, the list the mailbox
/// monitor keeps, and the factory a host library gives it to build contacts.

#include <memory>
#include <shared_mutex>

#include "KRCB/Clients.h"
#include "KRCB/KRClientBaseExport.h"
#include "Kerrow/Mail.h"
#include "ZR/Containers.h"
#include "ZR/Ref.h"
#include "ZR/UniString.h"

namespace KRCB::Mailbox {

/// A user's mailboxes.
using MailboxIds = ZR::PagedArray<Kerrow::Server::Mail::MailboxId>;
/// Mailbox sessions under a key of the server's.
using MailboxSessions =
    ZR::HashTable<ZR::UniString, ZR::PagedArray<Kerrow::Server::Mail::MailboxSessionInfo>>;
/// Mailbox session id, as text, to the properties of that session.
using SessionProperties = ZR::HashTable<ZR::UniString, ZR::HashTable<ZR::UniString, ZR::UniString>>;

/// Someone the user can write to. Immutable once built, shared between threads.
class KRCB_EXPORT Contact {
public:
    virtual ~Contact();
    /// The user's id on the server; the key of the contact in a list.
    virtual ZR::UniString GetOwnerId() const = 0;
    /// The display name.
    virtual ZR::UniString GetName() const = 0;
    /// False, and address untouched, if the contact has no inbox.
    virtual bool GetInboxMailboxAddress(Kerrow::Server::Mail::Address& address) const = 0;
    /// False, and address untouched, if the contact has no sent box.
    virtual bool GetSentMailboxAddress(Kerrow::Server::Mail::Address& address) const = 0;
    /// Whether other would show the same to a user, so that a new version of
    /// a contact need not be announced.
    virtual bool SimilarContact(const Contact& other) const = 0;
};

/// Contacts by owner id, in the order they were first added. Safe to use from
/// several threads: reads share a lock, changes take it alone.
class KRCB_EXPORT ContactList {
public:
    ContactList() = default;
    ContactList(const ContactList& other);
    ContactList& operator=(const ContactList&) = delete;

    /// The owner ids, in list order.
    ZR::PagedArray<ZR::UniString> GetContactOwnerIds() const;
    bool ContainsContact(const ZR::UniString& ownerId) const;
    /// Empty if the list has no contact of that owner.
    ZR::Ref<const Contact> GetContact(const ZR::UniString& ownerId) const;
    /// The contacts in list order, taken at one moment.
    ZR::PagedArray<ZR::Ref<const Contact>> GetContacts() const;
    std::size_t GetSize() const;

    /// Adds a contact under its owner id; a contact of that owner already in
    /// the list is replaced in its place. False, and nothing changed, for an
    /// empty reference.
    bool AddContact(const ZR::Ref<const Contact>& contact);
    /// False if the list had no contact of that owner.
    bool RemoveContact(const ZR::UniString& ownerId);
    void Clear();

private:
    mutable std::shared_mutex mLock;
    ZR::HashTable<ZR::UniString, ZR::Ref<const Contact>> mContacts;
};

/// Builds contacts for the mailbox monitor. The monitor calls it on its own
/// thread; client and queryGuard belong to one batch of calls: a factory that
/// makes server calls opens the guard on the first and leaves it in queryGuard,
/// so that the batch forms one query.
class KRCB_EXPORT ContactFactory {
public:
    virtual ~ContactFactory();

    /// Called before a batch of CreateContact calls for the owners in
    /// ownerIds, so that a factory can fetch their users in one query.
    /// knownOwnerIds is for the factory's own use.
    virtual void PreCheckOwners(
        const ZR::PagedArray<ZR::UniString>& knownOwnerIds,
        const ZR::PagedArray<ZR::UniString>& ownerIds,
        ZR::Ref<Management::PortalServerClient>& client,
        ZR::Ref<Management::PortalServerNonTransactionalQueryGuard>& queryGuard) = 0;

    /// A contact for ownerId, or an empty reference if there is none to be had.
    virtual ZR::Ref<const Contact> CreateContact(
        const ZR::UniString& ownerId, const MailboxIds& mailboxIds,
        const MailboxSessions& activeSessions, const MailboxSessions& sessions,
        const SessionProperties& sessionProperties, ZR::Ref<Management::PortalServerClient>& client,
        ZR::Ref<Management::PortalServerNonTransactionalQueryGuard>& queryGuard) = 0;

    /// A new version of oldContact with new mailbox and session data.
    virtual ZR::Ref<const Contact> ReCreateContact(
        const ZR::Ref<const Contact>& oldContact, const ZR::UniString& ownerId,
        const MailboxIds& mailboxIds, const MailboxSessions& activeSessions,
        const MailboxSessions& sessions, const SessionProperties& sessionProperties,
        ZR::Ref<Management::PortalServerClient>& client,
        ZR::Ref<Management::PortalServerNonTransactionalQueryGuard>& queryGuard) = 0;
};

}  // namespace KRCB::Mailbox

// The monitor, which holds the contact list, lives beside the contacts.
#include "KRCB/MailboxMonitor.h"
