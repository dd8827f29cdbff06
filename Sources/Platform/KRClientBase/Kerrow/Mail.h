#pragma once
/// @file
/// Mailbox ids, addresses, mailbox sessions and the mails of the mail server's
/// messages, with the stored form of a mail.

#include <cstdint>
#include <list>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "KRCB/KRClientBaseExport.h"
#include "ZR/Channel.h"
#include "ZR/ChannelX.h"
#include "ZR/Containers.h"
#include "ZR/Ref.h"
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

/// The addresses of a mail's sender or recipients, in order.
using AddressList = ZR::PagedArray<Address>;
/// Named texts of a mail or a body part; a name stands once.
using Headers = ZR::HashTable<ZR::UniString, ZR::UniString>;

/// The id of a mail; its text form is the text it was made from.
class KRCB_EXPORT MailId {
public:
    MailId() = default;
    explicit MailId(const ZR::UniString& text) : mText(text) {}
    const ZR::UniString& ToString() const { return mText; }
    bool operator==(const MailId&) const = default;

private:
    ZR::UniString mText;
};

enum class Importance : std::uint8_t { Low = 0, Normal = 1, High = 2 };

/// When a mail was sent, on the scale of TIGetTime.
class KRCB_EXPORT Date {
public:
    Date() = default;
    explicit Date(std::int32_t time) : mTime(time) {}
    std::int32_t GetTime() const { return mTime; }
    bool operator==(const Date&) const = default;

private:
    std::int32_t mTime = 0;
};

namespace Contents {

/// Where a content is written to. Finish ends the writing; what was written
/// before it is the content.
class KRCB_EXPORT ContentOChannel : public ZR::OChannel {
public:
    virtual int Finish() = 0;
};

/// The bytes of a body part. A content is filled through its output channel
/// right after it is made and read through input channels afterwards; mails
/// that are copies of each other share their contents, so a content that
/// others may hold is replaced, never written again.
class KRCB_EXPORT Content {
public:
    enum class Kind : std::uint8_t { Text = 1, Memory = 2 };
    virtual ~Content();
    virtual Kind GetKind() const = 0;
    /// Reads the bytes from the start; the content must outlive the channel.
    virtual std::unique_ptr<ZR::IChannel> GetInputChannel() const;
    /// Empties the content and writes it anew.
    virtual std::unique_ptr<ContentOChannel> GetOutputChannel();
    const std::string& GetBytes() const { return mBytes; }
    /// A content of that kind holding bytes; empty for an unknown kind.
    static ZR::Ref<Content> FromBytes(Kind kind, std::string bytes);

protected:
    Content() = default;
    explicit Content(std::string bytes) : mBytes(std::move(bytes)) {}

private:
    std::string mBytes;
};

/// A text, in UTF-8.
class KRCB_EXPORT TextContent : public Content {
public:
    TextContent() = default;
    explicit TextContent(const ZR::UniString& text) : Content(text.Std()) {}
    Kind GetKind() const override { return Kind::Text; }
    ZR::UniString GetText() const { return ZR::UniString(GetBytes()); }
};

/// Bytes of any kind.
class KRCB_EXPORT MemoryContent : public Content {
public:
    MemoryContent() = default;
    explicit MemoryContent(std::string bytes) : Content(std::move(bytes)) {}
    Kind GetKind() const override { return Kind::Memory; }
};

}  // namespace Contents

/// One named part of a mail's body with its content type and headers.
class KRCB_EXPORT BodyPart {
public:
    BodyPart(const ZR::UniString& name, const Headers& headers,
             const ZR::Ref<Contents::Content>& content)
        : mName(name), mHeaders(headers), mContent(content) {}

    const ZR::UniString& GetName() const { return mName; }
    const Headers& GetHeaders() const { return mHeaders; }
    const ZR::UniString& GetContentType() const { return mContentType; }
    void SetContentType(const ZR::UniString& type) { mContentType = type; }
    const ZR::Ref<Contents::Content>& GetContent() const { return mContent; }
    void SetContent(const ZR::Ref<Contents::Content>& content) { mContent = content; }

private:
    ZR::UniString mName;
    Headers mHeaders;
    ZR::UniString mContentType;
    ZR::Ref<Contents::Content> mContent;
};

/// The body parts of a mail by name, enumerated in the order they were added.
class KRCB_EXPORT BodyParts {
public:
    using const_iterator = std::list<BodyPart>::const_iterator;
    using iterator = std::list<BodyPart>::iterator;

    BodyParts() = default;
    BodyParts(const BodyParts& other);
    BodyParts& operator=(const BodyParts& other);

    /// Keeps a part of that name that is there and answers false.
    bool Add(const BodyPart& part);
    bool Remove(const ZR::UniString& name);
    const BodyPart* Find(const ZR::UniString& name) const;
    std::size_t GetSize() const { return mParts.size(); }
    bool IsEmpty() const { return mParts.empty(); }

    iterator begin() { return mParts.begin(); }
    iterator end() { return mParts.end(); }
    const_iterator begin() const { return mParts.begin(); }
    const_iterator end() const { return mParts.end(); }

private:
    std::list<BodyPart> mParts;
    std::unordered_map<ZR::UniString, iterator> mIndex;
};

/// One mail of the mail server. A copy shares the contents of its body parts
/// with the original and copies all else.
class KRCB_EXPORT Mail {
public:
    /// The version of the stored form this library writes and reads.
    static constexpr std::uint8_t kFormVersion = 1;

    Mail() = default;
    explicit Mail(const MailId& id) : mId(id) {}
    Mail(const Mail&) = default;
    Mail& operator=(const Mail&) = default;

    const MailId& GetId() const { return mId; }
    const AddressList& GetFrom() const { return mFrom; }
    void SetFrom(const AddressList& from) { mFrom = from; }
    const AddressList& GetTo() const { return mTo; }
    void SetTo(const AddressList& to) { mTo = to; }
    const Date& GetSent() const { return mSent; }
    void SetSent(const Date& sent) { mSent = sent; }
    Importance GetImportance() const { return mImportance; }
    void SetImportance(Importance importance) { mImportance = importance; }
    bool IsRead() const { return mRead; }
    void SetRead(bool read) { mRead = read; }
    bool IsCompleted() const { return mCompleted; }
    void SetCompleted(bool completed) { mCompleted = completed; }

    const Headers& GetHeaders() const { return mHeaders; }
    /// The value of a header, or null.
    const ZR::UniString* GetHeader(const ZR::UniString& name) const { return mHeaders.Find(name); }
    /// Adds the header or overwrites its value.
    void SetHeader(const ZR::UniString& name, const ZR::UniString& value) {
        mHeaders.Set(name, value);
    }
    BodyParts& GetBodyParts() { return mBodyParts; }
    const BodyParts& GetBodyParts() const { return mBodyParts; }

    /// The stored form (docs/FORMATS.md). Throws ZR::ZRException with the
    /// channel's code if the channel fails.
    void Write(ZR::OChannelX& channel) const;
    /// Reads what Write wrote. Throws ZR::ZRException if the channel fails or
    /// the bytes are no mail; this mail is changed only on success. Every
    /// count and length is checked against what the channel holds first.
    void Read(ZR::IChannelX& channel);

private:
    MailId mId;
    AddressList mFrom;
    AddressList mTo;
    Date mSent;
    Importance mImportance = Importance::Normal;
    bool mRead = false;
    bool mCompleted = false;
    Headers mHeaders;
    BodyParts mBodyParts;
};

/// The stored form as bytes, as the mail server's messages carry a mail.
KRCB_EXPORT std::vector<unsigned char> ToStoredBytes(const Mail& mail);
/// A mail from its stored form; throws ZR::ZRException for bytes that are no mail.
KRCB_EXPORT Mail FromStoredBytes(const std::vector<unsigned char>& bytes);

}  // namespace Kerrow::Server::Mail
