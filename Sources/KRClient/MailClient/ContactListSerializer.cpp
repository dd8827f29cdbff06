#include "KRClient/MailClient/ContactListSerializer.h"

#include <vector>

#include "KRClient/KRClient.h"
#include "KRClient/MailClient/UserContact.h"
#include "ZR/ChannelX.h"
#include "ZR/Exceptions.h"

namespace KRC::Mailbox {

namespace {

using Kerrow::Server::Mail::MailboxId;
using Kerrow::Server::Mail::MailboxSessionInfo;
using KRCB::Mailbox::MailboxIds;
using KRCB::Mailbox::MailboxSessions;
using KRCB::Mailbox::SessionProperties;

// Each step answers 0 or an error code; the first error ends the whole read or write.
#define KRC_TRY(expression)                                   \
    do {                                                      \
        if (int krcStatus_ = (expression)) return krcStatus_; \
    } while (false)

int WriteSessions(ZR::OChannel& channel, const MailboxSessions& table) {
    KRC_TRY(channel.WriteUInt32(static_cast<std::uint32_t>(table.GetSize())));
    ZR::OBinaryChannelAdapterForOChannel binary(channel);
    ZR::OChannelX channelX(binary, ZR::GetNetworkByteOrderOProtocolX());
    for (const auto& entry : table) {
        KRC_TRY(channel.Write(entry.first));
        KRC_TRY(channel.WriteUInt32(static_cast<std::uint32_t>(entry.second.GetSize())));
        for (const MailboxSessionInfo& session : entry.second) {
            try {
                session.Write(channelX);
            } catch (const ZR::ZRException& e) {
                DebugPrintEx(e);
                return ZR::kGeneralErrorCode;
            }
        }
    }
    return 0;
}

int WriteContactBody(ZR::OChannel& channel, const UserContact& contact) {
    KRC_TRY(channel.Write(contact.GetOwnerId()));
    KRC_TRY(channel.Write(contact.GetName()));
    KRC_TRY(channel.Write(contact.GetUserName()));
    Gfx::Color color = contact.GetUserColor();
    const std::uint8_t rgba[4] = {color.GetR(), color.GetG(), color.GetB(), color.GetA()};
    KRC_TRY(channel.Write(rgba, sizeof(rgba)));

    ZR::MemoryOChannel32 image;
    if (!contact.GetImage().IsNull())
        KRC_TRY(contact.GetImage().Encode(image, NewDisplay::NativeImage::kPNG));
    KRC_TRY(channel.WriteUInt32(image.GetSize()));
    KRC_TRY(channel.Write(image.GetData(), image.GetSize()));

    const MailboxIds& mailboxes = contact.GetMailboxIds();
    KRC_TRY(channel.WriteUInt32(static_cast<std::uint32_t>(mailboxes.GetSize())));
    for (const MailboxId& id : mailboxes) KRC_TRY(channel.Write(id.ToString()));

    // Active sessions are not stored: a contact read back shows none until the
    // server says otherwise.
    KRC_TRY(WriteSessions(channel, contact.GetSessions()));

    const SessionProperties& properties = contact.GetSessionProperties();
    KRC_TRY(channel.WriteUInt32(static_cast<std::uint32_t>(properties.GetSize())));
    for (const auto& entry : properties) {
        KRC_TRY(channel.Write(entry.first));
        KRC_TRY(channel.WriteUInt32(static_cast<std::uint32_t>(entry.second.GetSize())));
        for (const auto& property : entry.second) {
            KRC_TRY(channel.Write(property.first));
            KRC_TRY(channel.Write(property.second));
        }
    }
    return 0;
}

int ReadSessions(ZR::IChannel& channel, MailboxSessions& table) {
    std::uint32_t entries = 0;
    KRC_TRY(channel.ReadUInt32(entries));
    ZR::IBinaryChannelAdapterForIChannel binary(channel);
    ZR::IChannelX channelX(binary, ZR::GetNetworkByteOrderIProtocolX());
    // Every count is only a bound of a loop: each item takes bytes of the
    // input, so a hostile count ends at the end of the data, never in memory.
    for (std::uint32_t i = 0; i < entries; ++i) {
        ZR::UniString key;
        KRC_TRY(channel.Read(key));
        std::uint32_t count = 0;
        KRC_TRY(channel.ReadUInt32(count));
        ZR::PagedArray<MailboxSessionInfo> sessions;
        for (std::uint32_t j = 0; j < count; ++j) {
            MailboxSessionInfo session;
            try {
                session.Read(channelX);
            } catch (const ZR::ZRException& e) {
                DebugPrintEx(e);
                return ZR::kGeneralErrorCode;
            }
            sessions.Add(std::move(session));
        }
        table.Add(key, sessions);
    }
    return 0;
}

int ReadContactBody(ZR::IChannel& channel, ZR::Ref<const UserContact>& contact) {
    ZR::UniString ownerId, name, userName;
    KRC_TRY(channel.Read(ownerId));
    KRC_TRY(channel.Read(name));
    KRC_TRY(channel.Read(userName));
    std::uint8_t rgba[4];
    KRC_TRY(channel.Read(rgba, sizeof(rgba)));

    std::uint32_t imageSize = 0;
    KRC_TRY(channel.ReadUInt32(imageSize));
    NewDisplay::NativeImage image;
    if (imageSize != 0) {
        std::vector<unsigned char> png;
        KRC_TRY(channel.ReadBytes(png, imageSize));
        // A picture that doesn't decode leaves the contact without one.
        image = NewDisplay::NativeImage(png.data(), png.size(), NewDisplay::NativeImage::kPNG);
    }

    std::uint32_t mailboxCount = 0;
    KRC_TRY(channel.ReadUInt32(mailboxCount));
    MailboxIds mailboxes;
    for (std::uint32_t i = 0; i < mailboxCount; ++i) {
        ZR::UniString text;
        KRC_TRY(channel.Read(text));
        try {
            mailboxes.Add(MailboxId(text));
        } catch (const ZR::ZRException& e) {
            DebugPrintEx(e);
            return ZR::kGeneralErrorCode;
        }
    }

    MailboxSessions sessions;
    KRC_TRY(ReadSessions(channel, sessions));

    std::uint32_t propertyEntries = 0;
    KRC_TRY(channel.ReadUInt32(propertyEntries));
    SessionProperties properties;
    for (std::uint32_t i = 0; i < propertyEntries; ++i) {
        ZR::UniString sessionId;
        KRC_TRY(channel.Read(sessionId));
        std::uint32_t count = 0;
        KRC_TRY(channel.ReadUInt32(count));
        ZR::HashTable<ZR::UniString, ZR::UniString> inner;
        for (std::uint32_t j = 0; j < count; ++j) {
            ZR::UniString key, value;
            KRC_TRY(channel.Read(key));
            KRC_TRY(channel.Read(value));
            inner.Add(key, value);
        }
        properties.Add(sessionId, inner);
    }

    contact = ZR::Ref<const UserContact>::Make(ownerId, name, userName, rgba[0], rgba[1], rgba[2],
                                               rgba[3], image, mailboxes, MailboxSessions(),
                                               sessions, properties);
    return 0;
}

}  // namespace

int ContactListSerializer::ReadContactList(ZR::IChannel& channel,
                                           ZR::Ref<KRCB::Mailbox::ContactList>& list) {
    if (!list) return ZR::kGeneralErrorCode;
    std::uint32_t version = 0, reserved = 0, count = 0;
    KRC_TRY(channel.ReadUInt32(version));
    KRC_TRY(channel.ReadUInt32(reserved));
    if (version > kVersion) {
        // A list written by a later version counts as no data.
        list->Clear();
        return 0;
    }
    KRC_TRY(channel.ReadUInt32(count));
    ZR::PagedArray<ZR::Ref<const UserContact>> contacts;
    for (std::uint32_t i = 0; i < count; ++i) {
        std::uint32_t type = 0, size = 0;
        KRC_TRY(channel.ReadUInt32(type));
        KRC_TRY(channel.ReadUInt32(size));
        if (type != kUserContactRecord) {
            KRC_TRY(channel.Skip(size));
            continue;
        }
        std::vector<unsigned char> body;
        KRC_TRY(channel.ReadBytes(body, size));
        ZR::MemoryIChannel bodyChannel(body);
        ZR::Ref<const UserContact> contact;
        KRC_TRY(ReadContactBody(bodyChannel, contact));
        contacts.Add(contact);
    }
    list->Clear();
    for (const ZR::Ref<const UserContact>& contact : contacts) list->AddContact(contact);
    return 0;
}

int ContactListSerializer::WriteContactList(const ZR::Ref<const KRCB::Mailbox::ContactList>& list,
                                            ZR::OChannel& channel) {
    if (!list) return ZR::kGeneralErrorCode;
    // One look at the list, so that the count and the records agree while
    // other threads change it.
    ZR::PagedArray<ZR::Ref<const KRCB::Mailbox::Contact>> contacts = list->GetContacts();
    KRC_TRY(channel.WriteUInt32(kVersion));
    KRC_TRY(channel.WriteUInt32(0));
    KRC_TRY(channel.WriteUInt32(static_cast<std::uint32_t>(contacts.GetSize())));
    for (const ZR::Ref<const KRCB::Mailbox::Contact>& contact : contacts) {
        const auto* userContact = dynamic_cast<const UserContact*>(contact.Get());
        if (!userContact) continue;
        ZR::MemoryOChannel32 body;
        KRC_TRY(WriteContactBody(body, *userContact));
        KRC_TRY(channel.WriteUInt32(kUserContactRecord));
        KRC_TRY(channel.WriteUInt32(body.GetSize()));
        KRC_TRY(channel.Write(body.GetData(), body.GetSize()));
    }
    return 0;
}

#undef KRC_TRY

}  // namespace KRC::Mailbox
