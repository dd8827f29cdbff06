#pragma once
/// @file
/// Mailbox ids, addresses and mailbox sessions of the mail server's messages.

#include "KRCB/KRClientBaseExport.h"
#include "ZR/ChannelX.h"
#include "ZR/UniString.h"

namespace Kerrow::Server::Mail {

/// The name of one of a user's mailboxes, such as "Inbox" or "Sent".
using MailboxName = ZR::UniString;

/// One mailbox: the id of the user who owns it and its name.
///
/// Text form: owner id, "/", mailbox name, with every "%" and "/" inside the
/// two parts written as "%25" and "%2F", so any owner id and name round-trip.
class KRCB_EXPORT MailboxId {
public:
    MailboxId() = default;
    MailboxId(const ZR::UniString& ownerId, const MailboxName& name)
        : mOwnerId(ownerId), mName(name) {}
    /// From the text form; throws ZR::IllegalArgumentException for a text that
    /// isn't one (no separator, two of them, or a broken escape).
    explicit MailboxId(const ZR::UniString& text);

    const ZR::UniString& GetOwnerId() const { return mOwnerId; }
    const MailboxName& GetName() const { return mName; }
    ZR::UniString ToString() const;

    bool operator==(const MailboxId&) const = default;

private:
    ZR::UniString mOwnerId;
    MailboxName mName;
};

/// Where a mail goes or comes from: a mailbox and the display name of its owner.
class KRCB_EXPORT Address {
public:
    Address() = default;
    Address(const MailboxId& mailboxId, const ZR::UniString& name)
        : mMailboxId(mailboxId), mName(name) {}

    const MailboxId& GetMailboxId() const { return mMailboxId; }
    const ZR::UniString& GetOwnerId() const { return mMailboxId.GetOwnerId(); }
    /// The display name.
    const ZR::UniString& GetName() const { return mName; }
    bool IsEmpty() const { return mMailboxId == MailboxId(); }

    /// Two addresses are equal when they name the same mailbox; the display
    /// name follows the user's profile and plays no part.
    bool operator==(const Address& other) const { return mMailboxId == other.mMailboxId; }

private:
    MailboxId mMailboxId;
    ZR::UniString mName;
};

/// A session of a mail client on one of a user's mailboxes.
class KRCB_EXPORT MailboxSessionInfo {
public:
    MailboxSessionInfo() = default;
    MailboxSessionInfo(const ZR::UniString& sessionId, const MailboxId& mailboxId)
        : mSessionId(sessionId), mMailboxId(mailboxId) {}

    const ZR::UniString& GetSessionId() const { return mSessionId; }
    const MailboxId& GetMailboxId() const { return mMailboxId; }

    /// Session id, then the mailbox id's text form, each as a text of the
    /// channel. Throws ZR::ZRException, with the channel's code, if the
    /// channel fails.
    void Write(ZR::OChannelX& channel) const;
    /// Reads what Write wrote. Throws ZR::ZRException if the channel fails
    /// (with its code) or the mailbox id is not one; this object is changed
    /// only on success.
    void Read(ZR::IChannelX& channel);

    bool operator==(const MailboxSessionInfo&) const = default;

private:
    ZR::UniString mSessionId;
    MailboxId mMailboxId;
};

}  // namespace Kerrow::Server::Mail
