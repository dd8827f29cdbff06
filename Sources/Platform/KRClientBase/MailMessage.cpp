// Mails of the mail server: contents, body parts and the stored form.

#include <utility>

#include "Kerrow/Mail.h"
#include "ZR/Exceptions.h"
#include "ZR/Internal/ReadBounded.h"

namespace Kerrow::Server::Mail {

namespace Contents {

namespace {

class ContentIChannel : public ZR::MemoryIChannel {
public:
    explicit ContentIChannel(const std::string& bytes)
        : ZR::MemoryIChannel(bytes.data(), bytes.size()) {}
};

class BytesOChannel : public ContentOChannel {
public:
    explicit BytesOChannel(std::string& bytes) : mBytes(bytes) { mBytes.clear(); }
    int Write(const void* data, std::size_t length) override {
        mBytes.append(static_cast<const char*>(data), length);
        return 0;
    }
    using ZR::OChannel::Write;
    int Finish() override { return 0; }

private:
    std::string& mBytes;
};

}  // namespace

Content::~Content() = default;

std::unique_ptr<ZR::IChannel> Content::GetInputChannel() const {
    return std::make_unique<ContentIChannel>(mBytes);
}

ZR::Ref<Content> Content::FromBytes(Kind kind, std::string bytes) {
    Content* content = nullptr;
    if (kind == Kind::Text)
        content = new TextContent;
    else if (kind == Kind::Memory)
        content = new MemoryContent;
    else
        return ZR::Ref<Content>();
    content->mBytes = std::move(bytes);
    return ZR::Ref<Content>(content);
}

std::unique_ptr<ContentOChannel> Content::GetOutputChannel() {
    return std::make_unique<BytesOChannel>(mBytes);
}

}  // namespace Contents

BodyParts::BodyParts(const BodyParts& other) {
    for (const BodyPart& part : other) Add(part);
}

BodyParts& BodyParts::operator=(const BodyParts& other) {
    if (this != &other) {
        mIndex.clear();
        mParts.clear();
        for (const BodyPart& part : other) Add(part);
    }
    return *this;
}

bool BodyParts::Add(const BodyPart& part) {
    if (mIndex.count(part.GetName())) return false;
    mParts.push_back(part);
    mIndex.emplace(part.GetName(), std::prev(mParts.end()));
    return true;
}

bool BodyParts::Remove(const ZR::UniString& name) {
    auto it = mIndex.find(name);
    if (it == mIndex.end()) return false;
    mParts.erase(it->second);
    mIndex.erase(it);
    return true;
}

const BodyPart* BodyParts::Find(const ZR::UniString& name) const {
    auto it = mIndex.find(name);
    return it == mIndex.end() ? nullptr : &*it->second;
}

namespace {

// Smallest stored size of an entry of each list: a count is refused if even
// entries this small would not fit in what is left.
constexpr std::uint64_t kMinAddress = 8;
constexpr std::uint64_t kMinHeader = 8;
constexpr std::uint64_t kMinBodyPart = 4 + 4 + 4 + 1 + 4;

[[noreturn]] void Fail(const char* what, int status, const char* file, unsigned int line) {
    throw ZR::ZRException(
        ZR::UniString::Format("Failed to %s a mail: channel error %d", what, status), file, line,
        status);
}

#define KRCB_WRITE(call) \
    if (int status = (call)) Fail("write", status, ZR_HERE)
#define KRCB_READ(call) \
    if (int status = (call)) Fail("read", status, ZR_HERE)

void WriteCount(ZR::OChannelX& channel, std::size_t count) {
    if (count > 0xFFFFFFFFu) Fail("write", ZR::kErrTooLarge, ZR_HERE);
    KRCB_WRITE(channel.WriteUInt32(static_cast<std::uint32_t>(count)));
}

std::uint32_t ReadCount(ZR::IChannelX& channel, std::uint64_t minEntry) {
    std::uint32_t count = 0;
    KRCB_READ(channel.ReadUInt32(count));
    std::uint64_t remaining = channel.GetRemaining();
    if (remaining != ZR::IChannel::kUnknownRemaining && count > remaining / minEntry)
        Fail("read", ZR::kErrTooLarge, ZR_HERE);
    return count;
}

void WriteAddresses(ZR::OChannelX& channel, const AddressList& list) {
    WriteCount(channel, list.GetSize());
    for (const Address& address : list) {
        KRCB_WRITE(channel.Write(address.GetMailboxId().ToString()));
        KRCB_WRITE(channel.Write(address.GetName()));
    }
}

AddressList ReadAddresses(ZR::IChannelX& channel) {
    AddressList list;
    for (std::uint32_t n = ReadCount(channel, kMinAddress); n > 0; --n) {
        ZR::UniString mailbox, name;
        KRCB_READ(channel.Read(mailbox));
        KRCB_READ(channel.Read(name));
        list.Add(Address(MailboxId(mailbox), name));
    }
    return list;
}

void WriteHeaders(ZR::OChannelX& channel, const Headers& headers) {
    WriteCount(channel, headers.GetSize());
    for (const auto& [name, value] : headers) {
        KRCB_WRITE(channel.Write(name));
        KRCB_WRITE(channel.Write(value));
    }
}

Headers ReadHeaders(ZR::IChannelX& channel) {
    Headers headers;
    for (std::uint32_t n = ReadCount(channel, kMinHeader); n > 0; --n) {
        ZR::UniString name, value;
        KRCB_READ(channel.Read(name));
        KRCB_READ(channel.Read(value));
        headers.Set(name, value);
    }
    return headers;
}

}  // namespace

void Mail::Write(ZR::OChannelX& channel) const {
    KRCB_WRITE(channel.WriteUInt8(kFormVersion));
    KRCB_WRITE(channel.Write(mId.ToString()));
    WriteAddresses(channel, mFrom);
    WriteAddresses(channel, mTo);
    KRCB_WRITE(channel.WriteInt32(mSent.GetTime()));
    KRCB_WRITE(channel.WriteUInt8(static_cast<std::uint8_t>(mImportance)));
    KRCB_WRITE(channel.WriteBool(mRead));
    KRCB_WRITE(channel.WriteBool(mCompleted));
    WriteHeaders(channel, mHeaders);
    WriteCount(channel, mBodyParts.GetSize());
    for (const BodyPart& part : mBodyParts) {
        KRCB_WRITE(channel.Write(part.GetName()));
        KRCB_WRITE(channel.Write(part.GetContentType()));
        WriteHeaders(channel, part.GetHeaders());
        const Contents::Content& content = *part.GetContent();
        const std::string& bytes = content.GetBytes();
        KRCB_WRITE(channel.WriteUInt8(static_cast<std::uint8_t>(content.GetKind())));
        WriteCount(channel, bytes.size());
        KRCB_WRITE(channel.WriteBytes(bytes.data(), bytes.size()));
    }
}

void Mail::Read(ZR::IChannelX& channel) {
    std::uint8_t version = 0;
    KRCB_READ(channel.ReadUInt8(version));
    if (version != kFormVersion) Fail("read", ZR::kErrBadData, ZR_HERE);
    ZR::UniString id;
    KRCB_READ(channel.Read(id));
    Mail mail{MailId(id)};
    mail.mFrom = ReadAddresses(channel);
    mail.mTo = ReadAddresses(channel);
    std::int32_t sent = 0;
    std::uint8_t importance = 0;
    KRCB_READ(channel.ReadInt32(sent));
    KRCB_READ(channel.ReadUInt8(importance));
    if (importance > static_cast<std::uint8_t>(Importance::High))
        Fail("read", ZR::kErrBadData, ZR_HERE);
    mail.mSent = Date(sent);
    mail.mImportance = static_cast<Importance>(importance);
    KRCB_READ(channel.ReadBool(mail.mRead));
    KRCB_READ(channel.ReadBool(mail.mCompleted));
    mail.mHeaders = ReadHeaders(channel);
    for (std::uint32_t n = ReadCount(channel, kMinBodyPart); n > 0; --n) {
        ZR::UniString name, type;
        KRCB_READ(channel.Read(name));
        KRCB_READ(channel.Read(type));
        Headers headers = ReadHeaders(channel);
        std::uint8_t kind = 0;
        std::uint32_t length = 0;
        KRCB_READ(channel.ReadUInt8(kind));
        KRCB_READ(channel.ReadUInt32(length));
        std::string bytes;
        KRCB_READ(ZR::Internal::ReadBounded(
            [&](void* buffer, std::size_t size) { return channel.ReadBytes(buffer, size); },
            channel.GetRemaining(), length, bytes));
        ZR::Ref<Contents::Content> content = Contents::Content::FromBytes(
            static_cast<Contents::Content::Kind>(kind), std::move(bytes));
        if (!content) Fail("read", ZR::kErrBadData, ZR_HERE);
        BodyPart part(name, headers, content);
        part.SetContentType(type);
        if (!mail.mBodyParts.Add(part)) Fail("read", ZR::kErrBadData, ZR_HERE);
    }
    *this = std::move(mail);
}

}  // namespace Kerrow::Server::Mail
