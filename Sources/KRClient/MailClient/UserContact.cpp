#include "KRClient/MailClient/UserContact.h"

#include <memory>

namespace KRC::Mailbox {

UserContact::UserContact(const ZR::UniString& ownerId, const ZR::UniString& name,
                         const ZR::UniString& userName, unsigned char red, unsigned char green,
                         unsigned char blue, unsigned char alpha,
                         const NewDisplay::NativeImage& image,
                         const KRCB::Mailbox::MailboxIds& mailboxIds,
                         const KRCB::Mailbox::MailboxSessions& activeSessions,
                         const KRCB::Mailbox::MailboxSessions& sessions,
                         const KRCB::Mailbox::SessionProperties& sessionProperties)
    : mOwnerId(ownerId),
      mName(name),
      mUserName(userName),
      mColor(red, green, blue, alpha),
      mImage(image),
      mMailboxIds(mailboxIds),
      mActiveSessions(activeSessions),
      mSessions(sessions),
      mSessionProperties(sessionProperties) {}

UserContact::~UserContact() = default;

bool UserContact::GetMailboxAddress(const char* mailboxName,
                                    Kerrow::Server::Mail::Address& address) const {
    for (const Kerrow::Server::Mail::MailboxId& id : mMailboxIds) {
        if (id.GetName() == mailboxName) {
            address = Kerrow::Server::Mail::Address(id, mName);
            return true;
        }
    }
    return false;
}

bool UserContact::GetInboxMailboxAddress(Kerrow::Server::Mail::Address& address) const {
    return GetMailboxAddress(kInboxMailboxName, address);
}

bool UserContact::GetSentMailboxAddress(Kerrow::Server::Mail::Address& address) const {
    return GetMailboxAddress(kSentMailboxName, address);
}

bool UserContact::HasMailboxSession(const KRCB::Mailbox::MailboxSessions& table,
                                    const char* clientType) const {
    for (const auto& entry : table) {
        for (const Kerrow::Server::Mail::MailboxSessionInfo& session : entry.second) {
            if (!(session.GetMailboxId().GetName() == kInboxMailboxName)) continue;
            const auto* properties = mSessionProperties.Find(session.GetSessionId());
            if (!properties) continue;
            const ZR::UniString* type = properties->Find(kClientTypeProperty);
            if (type && type->IsEqual(clientType, ZR::kIgnoreCase)) return true;
        }
    }
    return false;
}

bool UserContact::HasLumbraMailboxSession() const {
    return HasMailboxSession(mSessions, kLumbraClientType);
}
bool UserContact::HasActiveLumbraMailboxSession() const {
    return HasMailboxSession(mActiveSessions, kLumbraClientType);
}
bool UserContact::HasMobilMailboxSession() const {
    return HasMailboxSession(mSessions, kMobileClientType);
}
bool UserContact::HasActiveMobilMailboxSession() const {
    return HasMailboxSession(mActiveSessions, kMobileClientType);
}

bool UserContact::SimilarContact(const KRCB::Mailbox::Contact& other) const {
    const auto* that = dynamic_cast<const UserContact*>(&other);
    if (!that) return false;
    Kerrow::Server::Mail::Address ignored;
    // Only an address this contact has and the other lacks counts; the
    // addresses themselves are not compared.
    if (GetInboxMailboxAddress(ignored) && !that->GetInboxMailboxAddress(ignored)) return false;
    if (GetSentMailboxAddress(ignored) && !that->GetSentMailboxAddress(ignored)) return false;
    if (!(mColor == that->mColor)) return false;
    return HasLumbraMailboxSession() == that->HasLumbraMailboxSession() &&
           HasActiveLumbraMailboxSession() == that->HasActiveLumbraMailboxSession() &&
           HasMobilMailboxSession() == that->HasMobilMailboxSession() &&
           HasActiveMobilMailboxSession() == that->HasActiveMobilMailboxSession();
}

ZR::Ref<const UserContact> GetUserContact(const ZR::Ref<const KRCB::Mailbox::ContactList>& list,
                                          const ZR::UniString& ownerId) {
    if (!list || !list->ContainsContact(ownerId)) return {};
    return std::dynamic_pointer_cast<const UserContact>(list->GetContact(ownerId).Std());
}

ZR::Ref<const UserContact> GetUserContactByUserName(
    const ZR::Ref<const KRCB::Mailbox::ContactList>& list, const ZR::UniString& userName) {
    if (!list) return {};
    for (const ZR::UniString& ownerId : list->GetContactOwnerIds()) {
        ZR::Ref<const UserContact> contact = GetUserContact(list, ownerId);
        if (contact && contact->GetUserName() == userName) return contact;
    }
    return {};
}

void GetUserContacts(const ZR::Ref<const KRCB::Mailbox::ContactList>& list,
                     ZR::HashTable<ZR::UniString, ZR::Ref<const UserContact>>& contacts) {
    contacts.Clear();
    if (!list) return;
    for (const ZR::UniString& ownerId : list->GetContactOwnerIds()) {
        ZR::Ref<const UserContact> contact = GetUserContact(list, ownerId);
        if (contact) contacts.Add(ownerId, contact);
    }
}

}  // namespace KRC::Mailbox
