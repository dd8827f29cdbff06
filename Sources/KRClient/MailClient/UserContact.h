#pragma once
/// @file
/// The library's contacts: a user of the management server with mailboxes,
/// picture, colour and mail sessions, and look-ups of contacts in a list.

#include "Gfx/Color.h"
#include "KRCB/Mailbox.h"
#include "KRClient/KRClientExport.h"
#include "Kerrow/Mail.h"
#include "NewDisplay/NativeImage.h"
#include "ZR/Containers.h"
#include "ZR/Ref.h"
#include "ZR/UniString.h"

namespace KRC::Mailbox {

/// Names of the two mailboxes every user has.
inline constexpr const char* kInboxMailboxName = "Inbox";
inline constexpr const char* kSentMailboxName = "Sent";
/// The session property that tells the kind of mail client, and its values.
inline constexpr const char* kClientTypeProperty = "ClientType";
inline constexpr const char* kLumbraClientType = "Lumbra";
inline constexpr const char* kMobileClientType = "Mobile";

/// A user the current user can write to. Immutable once built; shared between
/// threads as a ZR::Ref<const UserContact>.
class KRCLIENT_EXPORT UserContact : public KRCB::Mailbox::Contact {
public:
    UserContact(const ZR::UniString& ownerId, const ZR::UniString& name,
                const ZR::UniString& userName, unsigned char red, unsigned char green,
                unsigned char blue, unsigned char alpha, const NewDisplay::NativeImage& image,
                const KRCB::Mailbox::MailboxIds& mailboxIds,
                const KRCB::Mailbox::MailboxSessions& activeSessions,
                const KRCB::Mailbox::MailboxSessions& sessions,
                const KRCB::Mailbox::SessionProperties& sessionProperties);
    ~UserContact() override;

    /// The user's id on the server.
    ZR::UniString GetOwnerId() const override { return mOwnerId; }
    /// The full name.
    ZR::UniString GetName() const override { return mName; }
    /// The address of the first mailbox named "Inbox", under the full name.
    bool GetInboxMailboxAddress(Kerrow::Server::Mail::Address& address) const override;
    /// The address of the first mailbox named "Sent", under the full name.
    bool GetSentMailboxAddress(Kerrow::Server::Mail::Address& address) const override;
    /// True if other is a UserContact that shows the same: it has an inbox and
    /// a sent box where this one has them, the same colour, and the same kinds
    /// of mail sessions. Names, picture and owner id don't count.
    bool SimilarContact(const KRCB::Mailbox::Contact& other) const override;

    /// The login name.
    ZR::UniString GetUserName() const { return mUserName; }
    Gfx::Color GetUserColor() const { return mColor; }
    /// May be the null image.
    const NewDisplay::NativeImage& GetImage() const { return mImage; }
    const KRCB::Mailbox::MailboxIds& GetMailboxIds() const { return mMailboxIds; }
    /// Sessions running now. The keys are the server's and not looked at here.
    const KRCB::Mailbox::MailboxSessions& GetActiveSessions() const { return mActiveSessions; }
    /// Every known session.
    const KRCB::Mailbox::MailboxSessions& GetSessions() const { return mSessions; }
    const KRCB::Mailbox::SessionProperties& GetSessionProperties() const {
        return mSessionProperties;
    }

    /// Whether the user has an inbox session of a desktop client.
    bool HasLumbraMailboxSession() const;
    bool HasActiveLumbraMailboxSession() const;
    /// Whether the user has an inbox session of a mobile client.
    bool HasMobilMailboxSession() const;
    bool HasActiveMobilMailboxSession() const;

private:
    bool GetMailboxAddress(const char* mailboxName, Kerrow::Server::Mail::Address& address) const;
    bool HasMailboxSession(const KRCB::Mailbox::MailboxSessions& table,
                           const char* clientType) const;

    ZR::UniString mOwnerId;
    ZR::UniString mName;
    ZR::UniString mUserName;
    Gfx::Color mColor;
    NewDisplay::NativeImage mImage;
    KRCB::Mailbox::MailboxIds mMailboxIds;
    KRCB::Mailbox::MailboxSessions mActiveSessions;
    KRCB::Mailbox::MailboxSessions mSessions;
    KRCB::Mailbox::SessionProperties mSessionProperties;
};

/// The contact of ownerId if it is a UserContact; empty for an empty list, an
/// unknown owner or a contact of another class.
KRCLIENT_EXPORT ZR::Ref<const UserContact> GetUserContact(
    const ZR::Ref<const KRCB::Mailbox::ContactList>& list, const ZR::UniString& ownerId);

/// The first UserContact, in list order, whose login name equals userName
/// exactly (case counts); empty if none does.
KRCLIENT_EXPORT ZR::Ref<const UserContact> GetUserContactByUserName(
    const ZR::Ref<const KRCB::Mailbox::ContactList>& list, const ZR::UniString& userName);

/// Empties contacts, then adds every UserContact of the list under its owner id.
KRCLIENT_EXPORT void GetUserContacts(
    const ZR::Ref<const KRCB::Mailbox::ContactList>& list,
    ZR::HashTable<ZR::UniString, ZR::Ref<const UserContact>>& contacts);

}  // namespace KRC::Mailbox
