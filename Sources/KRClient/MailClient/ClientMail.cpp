#include "KRClient/MailClient/ClientMail.h"

#include <algorithm>
#include <memory>
#include <string>

#include "KRClient/MailClient/Internal/ClientMailInternal.h"
#include "KRClient/MailClient/UserContact.h"
#include "ZR/ChannelX.h"
#include "ZR/Exceptions.h"

namespace KRC {

namespace MailNS = Kerrow::Server::Mail;

const ZR::UniString ClientMail::kThreadHeaderName("ThreadId");
const ZR::UniString ClientMail::kVersionHeaderName("Version");
const ZR::UniString ClientMail::kVersionHeaderValue("1.0");
const ZR::UniString ClientMail::kMessageContentType("KerrowMessage");
const ZR::UniString ClientMail::kAttachmentContentType("KerrowAttachment");

namespace {

constexpr std::size_t kCopyBlock = 8192;

const MailNS::BodyPart* FindFirstOfType(const MailNS::Mail& mail, const ZR::UniString& type) {
    for (const MailNS::BodyPart& part : mail.GetBodyParts())
        if (part.GetContentType() == type) return &part;
    return nullptr;
}

// Copies in blocks, stopping at the first read that gives nothing.
ZR::UniString CopyText(const MailNS::Contents::Content& content) {
    std::unique_ptr<ZR::IChannel> in = content.GetInputChannel();
    MailNS::Contents::TextContent text;
    std::unique_ptr<MailNS::Contents::ContentOChannel> out = text.GetOutputChannel();
    if (!out)
        throw ZR::IllegalArgumentException("Invalid output channel: channel is null.", ZR_HERE);
    if (!in) throw ZR::IllegalArgumentException("Invalid input channel: channel is null.", ZR_HERE);
    char block[kCopyBlock];
    while (true) {
        // A channel that can't tell its length gives a byte at a time.
        std::uint64_t left = in->GetRemaining();
        std::size_t n = left == ZR::IChannel::kUnknownRemaining
                            ? 1
                            : static_cast<std::size_t>(std::min<std::uint64_t>(left, kCopyBlock));
        if (n == 0 || in->Read(block, n) || out->Write(block, n)) break;
    }
    out->Finish();
    return text.GetText();
}

}  // namespace

const ZR::ClassInfo& ClientMail::GetClassInfoStatic() {
    static const ZR::ClassInfo info("Mail", "{C91627B0-30C7-4AAF-BC50-081440846C36}", 1, 0);
    return info;
}

ClientMail::ClientMail() {
    ZR::UniString id = ZR::Guid::Generate().ToString();
    mMail = ZR::Ref<Mail>(new Mail(MailNS::MailId(id)));
    SetThreadId(id);
}

ClientMail::ClientMail(ZR::Ref<Mail>& mail) : mMail(mail) {
    if (!mMail) ZR::ThrowNullReference(ZR_HERE);
    try {
        UpdateAttachments();
    } catch (...) {
        DeleteAttachments();  // no destructor runs for a constructor that throws
        throw;
    }
}

ClientMail::~ClientMail() {
    DeleteAttachments();
}

ZR::UniString ClientMail::GetId() const {
    return mMail->GetId().ToString();
}

ClientMail::Importance ClientMail::GetImportance() const {
    return mMail->GetImportance();
}

ClientMail::AddressList ClientMail::GetRecipients() {
    return mMail->GetTo();
}

ClientMail::Address ClientMail::GetSender() const {
    const AddressList& from = mMail->GetFrom();
    return from.IsEmpty() ? Address() : from[0];
}

int ClientMail::GetSentTime() {
    return mMail->GetSent().GetTime();
}

ZR::UniString ClientMail::GetThreadId() const {
    const ZR::UniString* id = mMail->GetHeader(kThreadHeaderName);
    return id ? *id : ZR::UniString();
}

ZR::UniString ClientMail::GetMessagePart() const {
    const MailNS::BodyPart* part = FindFirstOfType(*mMail, kMessageContentType);
    if (!part) return ZR::UniString();
    return CopyText(*part->GetContent());
}

ZR::UniString ClientMail::GetMessagePartWithoutLineBreaks() const {
    std::string text = GetMessagePart().Std();
    for (char& c : text)
        if (c == '\n') c = ' ';
    for (char& c : text)
        if (c == '\r') c = ' ';
    return ZR::UniString(std::move(text));
}

bool ClientMail::IsCompleted() const {
    return mMail->IsCompleted();
}

bool ClientMail::IsRead() const {
    return mMail->IsRead();
}

void ClientMail::SetCompleted() {
    mMail->SetCompleted(true);
}

void ClientMail::SetRead() {
    mMail->SetRead(true);
}

void ClientMail::SetImportance(const Importance& importance) const {
    mMail->SetImportance(importance);
}

void ClientMail::SetRecipients(const AddressList& recipients) {
    mMail->SetTo(recipients);
}

void ClientMail::SetSingleRecipient(const Address& recipient) {
    SetRecipients(AddressList{recipient});
}

void ClientMail::SetSender(const Address& sender) {
    mMail->SetFrom(AddressList{sender});
}

void ClientMail::SetSent(const MailNS::Date& sent) {
    mMail->SetSent(sent);
}

void ClientMail::SetThreadId(const ZR::UniString& id) {
    if (id.IsEmpty()) return;
    mMail->SetHeader(kThreadHeaderName, id);
}

void ClientMail::SetMessagePart(const ZR::UniString& text) {
    MailNS::BodyParts& parts = mMail->GetBodyParts();
    for (MailNS::BodyPart& part : parts)
        if (part.GetContentType() == kMessageContentType) {
            part.SetContent(
                ZR::Ref<MailNS::Contents::Content>(new MailNS::Contents::TextContent(text)));
            return;
        }
    MailNS::BodyPart part(
        kMessageContentType, MailNS::Headers(),
        ZR::Ref<MailNS::Contents::Content>(new MailNS::Contents::TextContent(text)));
    part.SetContentType(kMessageContentType);
    parts.Add(part);
}

void ClientMail::Update(ZR::Ref<Mail>& mail) {
    mMail = mail;
}

void ClientMail::AddAttachment(const MailAttachment& attachment) {
    MailAttachment* clone = attachment.Clone();
    if (!mAttachments.Add(attachment.GetClassInfo().GetId(), clone)) delete clone;
}

void ClientMail::DeleteAttachment(const ZR::Guid& classId) {
    MailAttachment** found = mAttachments.Find(classId);
    if (!found) return;
    delete *found;
    mAttachments.Remove(classId);
}

const MailAttachment* ClientMail::GetAttachment(const ZR::Guid& classId) const {
    MailAttachment* const* found = mAttachments.Find(classId);
    return found ? *found : nullptr;
}

void ClientMail::DeleteAttachments() {
    for (auto& entry : mAttachments) delete entry.second;
    mAttachments.Clear();
}

void ClientMail::UpdateAttachments() {
    DeleteAttachments();
    for (const MailNS::BodyPart& part : mMail->GetBodyParts()) {
        if (part.GetContentType() != kAttachmentContentType) continue;
        std::unique_ptr<ZR::IChannel> in = part.GetContent()->GetInputChannel();
        JSON::JDOMParser parser;
        JSON::Ref<JSON::Value> document = parser.Parse(*in, false);
        if (!document) return;
        bool classNotFound = false;
        std::unique_ptr<MailAttachment> attachment(
            MailAttachment::CreateFromJSON(JSON::ObjectValue::Cast(document), classNotFound));
        if (!attachment) {
            if (classNotFound) continue;
            return;
        }
        if (mAttachments.Add(attachment->GetClassId(), attachment.get())) attachment.release();
    }
}

ZR::Ref<ClientMail::Mail> ClientMail::ToServerMail() const {
    ZR::Ref<Mail> copy(new Mail(*mMail));
    copy->SetHeader(kVersionHeaderName, kVersionHeaderValue);
    MailNS::BodyParts& parts = copy->GetBodyParts();
    ZR::Array<ZR::UniString> stale;
    for (const MailNS::BodyPart& part : parts)
        if (part.GetContentType() == kAttachmentContentType) stale.Add(part.GetName());
    for (const ZR::UniString& name : stale) parts.Remove(name);
    int index = 0;
    for (const auto& entry : mAttachments) {
        const MailAttachment* attachment = entry.second;
        if (!attachment) return ZR::Ref<Mail>();
        ZR::UniString name = ZR::UniString::Format("%s_%s_%d", kAttachmentContentType.ToCString(),
                                                   attachment->GetClassName().ToCString(), index);
        ZR::Ref<MailNS::Contents::Content> content(new MailNS::Contents::MemoryContent);
        std::unique_ptr<MailNS::Contents::ContentOChannel> out = content->GetOutputChannel();
        JSON::Ref<JSON::ObjectValue> json = attachment->ToJSON();
        if (!json) return ZR::Ref<Mail>();
        JSON::JDOMWriter writer(json, *out, false, 10);
        out->Finish();
        MailNS::BodyPart part(name, MailNS::Headers(), content);
        part.SetContentType(kAttachmentContentType);
        parts.Add(part);
        ++index;
    }
    return copy;
}

void Internal::CreateReplyAllList(const ClientMail& mail, const MailNS::Address& ownAddress,
                                  const ZR::Ref<const KRCB::Mailbox::ContactList>* contacts,
                                  MailNS::AddressList& result) {
    result.Clear();
    MailNS::AddressList candidates;
    // Addresses compare by mailbox; the set keeps the walk linear.
    ZR::HashSet<ZR::UniString> seen;
    MailNS::Address sender = mail.GetSender();
    if (!(sender == ownAddress)) {
        candidates.Add(sender);
        seen.Add(sender.GetMailboxId().ToString());
    }
    for (const MailNS::Address& recipient : const_cast<ClientMail&>(mail).GetRecipients()) {
        if (recipient == ownAddress) continue;
        if (seen.Add(recipient.GetMailboxId().ToString())) candidates.Add(recipient);
    }
    for (const MailNS::Address& candidate : candidates) {
        if (contacts) {
            auto contact = Mailbox::GetUserContact(*contacts, candidate.GetOwnerId());
            if (!contact ||
                !(contact->HasMobilMailboxSession() || contact->HasLumbraMailboxSession()))
                continue;
        }
        result.Add(candidate);
    }
}

void ClientMail::CreateReplayAllList(const ClientMail& mail, const Address& ownAddress,
                                     const KRCB::Mailbox::MailboxMonitor* monitor,
                                     AddressList& result) {
    if (!monitor) return Internal::CreateReplyAllList(mail, ownAddress, nullptr, result);
    ZR::Ref<const KRCB::Mailbox::ContactList> contacts = monitor->GetContactList();
    Internal::CreateReplyAllList(mail, ownAddress, &contacts, result);
}

ZR::UniString ClientMail::ToDisplayText(const AddressList& list) {
    ZR::UniString text;
    for (const Address& address : list) {
        if (!text.IsEmpty()) text += ", ";
        text += address.GetName();
    }
    return text;
}

int ClientMail::Write(const ZR::Ref<ClientMail>& mail, ZR::OChannel& channel) {
    try {
        ZR::OutputFrame frame(channel, GetClassInfoStatic());
        if (frame.GetMajorVersion() != 1) return ZR::kGeneralErrorCode;
        if (int status = WriteVersion1(mail, frame, frame)) return status;
        return frame.Close();
    } catch (...) {
        return ZR::kGeneralErrorCode;
    }
}

int ClientMail::WriteVersion1(const ZR::Ref<ClientMail>& mail, ZR::OChannel& channel,
                              const ZR::OutputFrame&) {
    ZR::OBinaryChannelAdapterForOChannel adapter(channel);
    ZR::OChannelX out(adapter, ZR::GetNetworkByteOrderOProtocolX());
    mail->ToServerMail()->Write(out);
    return 0;
}

int ClientMail::Read(ZR::Ref<ClientMail>& mail, ZR::IChannel& channel) {
    try {
        ZR::InputFrame frame(channel, GetClassInfoStatic());
        if (frame.GetStatus()) return frame.GetStatus();
        if (frame.GetMajorVersion() != 1) return ZR::kGeneralErrorCode;
        ZR::Ref<ClientMail> read;
        if (int status = ReadVersion1(read, frame, frame)) return status;
        if (int status = frame.Close()) return status;
        mail = read;
        return 0;
    } catch (...) {
        return ZR::kGeneralErrorCode;
    }
}

int ClientMail::ReadVersion1(ZR::Ref<ClientMail>& mail, ZR::IChannel& channel,
                             const ZR::InputFrame&) {
    ZR::IBinaryChannelAdapterForIChannel adapter(channel);
    ZR::IChannelX in(adapter, ZR::GetNetworkByteOrderIProtocolX());
    ZR::Ref<Mail> server(new Mail);
    server->Read(in);
    mail = ZR::Ref<ClientMail>(new ClientMail(server));
    return 0;
}

}  // namespace KRC
