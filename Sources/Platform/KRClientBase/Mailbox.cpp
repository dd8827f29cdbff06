#include "KRCB/Mailbox.h"

#include <mutex>

namespace KRCB::Mailbox {

Contact::~Contact() = default;
ContactFactory::~ContactFactory() = default;

ContactList::ContactList(const ContactList& other) {
    std::shared_lock lock(other.mLock);
    mContacts = other.mContacts;
}

ZR::PagedArray<ZR::UniString> ContactList::GetContactOwnerIds() const {
    std::shared_lock lock(mLock);
    ZR::PagedArray<ZR::UniString> ids;
    ids.EnsureCapacity(mContacts.GetSize());
    for (const auto& entry : mContacts) ids.Add(entry.first);
    return ids;
}

bool ContactList::ContainsContact(const ZR::UniString& ownerId) const {
    std::shared_lock lock(mLock);
    return mContacts.Contains(ownerId);
}

ZR::Ref<const Contact> ContactList::GetContact(const ZR::UniString& ownerId) const {
    std::shared_lock lock(mLock);
    const ZR::Ref<const Contact>* contact = mContacts.Find(ownerId);
    return contact ? *contact : ZR::Ref<const Contact>();
}

ZR::PagedArray<ZR::Ref<const Contact>> ContactList::GetContacts() const {
    std::shared_lock lock(mLock);
    ZR::PagedArray<ZR::Ref<const Contact>> contacts;
    contacts.EnsureCapacity(mContacts.GetSize());
    for (const auto& entry : mContacts) contacts.Add(entry.second);
    return contacts;
}

std::size_t ContactList::GetSize() const {
    std::shared_lock lock(mLock);
    return mContacts.GetSize();
}

bool ContactList::AddContact(const ZR::Ref<const Contact>& contact) {
    if (!contact) return false;
    // The id is asked outside the lock: it is the contact's own code.
    ZR::UniString ownerId = contact->GetOwnerId();
    std::unique_lock lock(mLock);
    mContacts.Set(ownerId, contact);
    return true;
}

bool ContactList::RemoveContact(const ZR::UniString& ownerId) {
    std::unique_lock lock(mLock);
    return mContacts.Remove(ownerId);
}

void ContactList::Clear() {
    std::unique_lock lock(mLock);
    mContacts.Clear();
}

}  // namespace KRCB::Mailbox
