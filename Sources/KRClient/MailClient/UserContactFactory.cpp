#include "KRClient/MailClient/UserContactFactory.h"

#include "KRCB/Operation.h"
#include "KRClient/MailClient/UserContact.h"
#include "Kerrow/Exceptions.h"
#include "NewDisplay/NativeImage.h"

namespace KRC::Mailbox {

namespace {

using KRCB::Management::PortalServerClient;
using KRCB::Management::PortalServerNonTransactionalQueryGuard;

constexpr const char* kJpegImageType = "image/jpeg";
constexpr const char* kPngImageType = "image/png";

// The first server call of a batch opens the guard; the caller's reference
// keeps it open for the calls that follow.
void EnsureTransaction(ZR::Ref<PortalServerClient>& client,
                       ZR::Ref<PortalServerNonTransactionalQueryGuard>& queryGuard) {
    if (!client->IsInTransaction() && !queryGuard)
        queryGuard = ZR::Ref<PortalServerNonTransactionalQueryGuard>::Make(client);
}

NewDisplay::NativeImage FetchImage(const ZR::UniString& ownerId,
                                   ZR::Ref<PortalServerClient>& client,
                                   ZR::Ref<PortalServerNonTransactionalQueryGuard>& queryGuard) {
    ZR::Ref<KRCB::Management::Entities::UserImage> image;
    try {
        EnsureTransaction(client, queryGuard);
        client->GetUserImage(ownerId, image);
    } catch (const Kerrow::PortalServer::Client::PortalServerClientException&) {
        return {};
    } catch (const ZR::InterruptedIOException&) {
        throw;
    } catch (const ZR::InterruptedException&) {
        throw;
    } catch (const ZR::ZRException& e) {
        Kerrow::Common::DebugPrintEx(e);
        return {};
    }
    if (!image || !image->GetData() || image->GetSize() == 0) return {};
    if (image->GetType().IsEqual(kJpegImageType, ZR::kIgnoreCase))
        return NewDisplay::NativeImage(image->GetData(), image->GetSize(),
                                       NewDisplay::NativeImage::kJPEG);
    if (image->GetType().IsEqual(kPngImageType, ZR::kIgnoreCase))
        return NewDisplay::NativeImage(image->GetData(), image->GetSize(),
                                       NewDisplay::NativeImage::kPNG);
    return {};
}

}  // namespace

UserContactFactory::~UserContactFactory() = default;

void UserContactFactory::PreCheckOwners(
    const ZR::PagedArray<ZR::UniString>&, const ZR::PagedArray<ZR::UniString>& ownerIds,
    ZR::Ref<PortalServerClient>& client,
    ZR::Ref<PortalServerNonTransactionalQueryGuard>& queryGuard) {
    KRCB::Operation::OperationCache& cache = KRCB::Operation::OperationCache::GetInstance();
    if (!cache.CacheEnabled() || !client) return;
    ZR::UniString server, user;
    client->GetOperationCacheKeys(server, user);
    ZR::Array<ZR::UniString> known, missing;
    if (!cache.ContainsUsers(server, user, ownerIds, known, missing) || missing.IsEmpty()) return;
    EnsureTransaction(client, queryGuard);
    // Only the fetch matters: it fills the caches that CreateContact reads.
    ZR::HashTable<ZR::UniString, ZR::Ref<KRCB::Management::Entities::User>> users;
    client->GetUsersByIds(missing, users);
}

ZR::Ref<const KRCB::Mailbox::Contact> UserContactFactory::CreateContact(
    const ZR::UniString& ownerId, const KRCB::Mailbox::MailboxIds& mailboxIds,
    const KRCB::Mailbox::MailboxSessions& activeSessions,
    const KRCB::Mailbox::MailboxSessions& sessions,
    const KRCB::Mailbox::SessionProperties& sessionProperties, ZR::Ref<PortalServerClient>& client,
    ZR::Ref<PortalServerNonTransactionalQueryGuard>& queryGuard) {
    if (!client) return {};
    ZR::Ref<KRCB::Management::Entities::User> user;
    client->GetCachedUser(ownerId, user);
    if (!user) {
        try {
            EnsureTransaction(client, queryGuard);
            client->GetUser(ownerId, user);
        } catch (const Kerrow::PortalServer::Client::EntityNotFoundException&) {
            return {};
        }
    }
    if (!user) return {};
    NewDisplay::NativeImage image;
    if (user->HasImage()) image = FetchImage(ownerId, client, queryGuard);
    const Gfx::Color& color = user->GetColor();
    return ZR::Ref<const UserContact>::Make(
        user->GetId(), user->GetFullName(), user->GetLoginName(), color.GetR(), color.GetG(),
        color.GetB(), color.GetA(), image, mailboxIds, activeSessions, sessions, sessionProperties);
}

ZR::Ref<const KRCB::Mailbox::Contact> UserContactFactory::ReCreateContact(
    const ZR::Ref<const KRCB::Mailbox::Contact>& oldContact, const ZR::UniString& ownerId,
    const KRCB::Mailbox::MailboxIds& mailboxIds,
    const KRCB::Mailbox::MailboxSessions& activeSessions,
    const KRCB::Mailbox::MailboxSessions& sessions,
    const KRCB::Mailbox::SessionProperties& sessionProperties, ZR::Ref<PortalServerClient>& client,
    ZR::Ref<PortalServerNonTransactionalQueryGuard>& queryGuard) {
    const auto* old = dynamic_cast<const UserContact*>(oldContact.Get());
    if (!old)
        return CreateContact(ownerId, mailboxIds, activeSessions, sessions, sessionProperties,
                             client, queryGuard);
    Gfx::Color color = old->GetUserColor();
    return ZR::Ref<const UserContact>::Make(
        ownerId, old->GetName(), old->GetUserName(), color.GetR(), color.GetG(), color.GetB(),
        color.GetA(), old->GetImage(), mailboxIds, activeSessions, sessions, sessionProperties);
}

}  // namespace KRC::Mailbox
