#include "KRClient/MailClient/Internal/MailsFile.h"

#include <algorithm>
#include <cstring>

#include "ZR/Exceptions.h"

namespace KRC::Internal {

namespace {

constexpr std::size_t kBlock = 64 * 1024;
// A stored id is its length (u32) at least.
constexpr std::uint64_t kMinStoredIdBytes = 4;

// Counts what is read, so that a failure can name its offset.
class CountingIChannel : public ZR::IChannel {
public:
    explicit CountingIChannel(ZR::IChannel& inner) : mInner(inner) {}
    int Read(void* buffer, std::size_t length) override {
        int status = mInner.Read(buffer, length);
        if (status == 0) mPosition += length;
        return status;
    }
    using ZR::IChannel::Read;
    std::uint64_t GetRemaining() const override { return mInner.GetRemaining(); }
    std::uint64_t GetPosition() const { return mPosition; }

private:
    ZR::IChannel& mInner;
    std::uint64_t mPosition = 0;
};

// A count is refused at once if even items of the smallest size would not
// fit in what is left: a lying count costs neither memory nor reading.
int ReadCount(CountingIChannel& in, std::uint32_t& count, std::uint64_t minItemBytes) {
    if (int status = in.ReadUInt32(count)) return status;
    std::uint64_t left = in.GetRemaining();
    if (left != ZR::IChannel::kUnknownRemaining && count > left / minItemBytes)
        return ZR::kErrTooLarge;
    return 0;
}

int ReadBox(CountingIChannel& in, std::uint64_t& revision, MailTable& table,
            std::uint64_t& itemStart) {
    itemStart = in.GetPosition();
    if (int status = in.ReadUInt64(revision)) return status;
    itemStart = in.GetPosition();
    std::uint32_t count = 0;
    if (int status = ReadCount(in, count, kMinStoredMailBytes)) return status;
    table.Reserve(table.GetSize() + count);  // the count fits in what is left
    for (std::uint32_t i = 0; i < count; ++i) {
        itemStart = in.GetPosition();
        ZR::Ref<ClientMail> mail;
        int status = ClientMail::Read(mail, in);
        if (status == 0 && !mail) status = ZR::kGeneralErrorCode;
        if (status) return status;
        table.Add(mail->GetId(), mail);  // of two mails with one id the first stays
    }
    return 0;
}

int ReadIds(CountingIChannel& in, MailIdList& ids, std::uint64_t& itemStart) {
    itemStart = in.GetPosition();
    std::uint32_t count = 0;
    if (int status = ReadCount(in, count, kMinStoredIdBytes)) return status;
    for (std::uint32_t i = 0; i < count; ++i) {
        itemStart = in.GetPosition();
        ZR::UniString id;
        if (int status = in.Read(id)) return status;
        ids.Add(std::move(id));
    }
    return 0;
}

int WriteBox(ZR::OChannel& out, std::uint64_t revision, const MailTable& table) {
    if (int status = out.WriteUInt64(revision)) return status;
    if (int status = out.WriteUInt32(static_cast<std::uint32_t>(table.GetSize()))) return status;
    for (const auto& entry : table)
        if (int status = ClientMail::Write(entry.second, out)) return status;
    return 0;
}

int WriteIds(ZR::OChannel& out, const MailIdList& ids) {
    if (int status = out.WriteUInt32(static_cast<std::uint32_t>(ids.GetSize()))) return status;
    for (const auto& id : ids)
        if (int status = out.Write(id)) return status;
    return 0;
}

}  // namespace

int ReadMails(ZR::IChannel& channel, MailsFileContent& content, std::uint64_t* stoppedAt) {
    CountingIChannel in(channel);
    std::uint64_t itemStart = 0;
    int status = ReadBox(in, content.inboxRevision, content.inbox, itemStart);
    if (status == 0) status = ReadBox(in, content.sentRevision, content.sent, itemStart);
    // The file's order, not the order of the client's fields.
    if (status == 0) status = ReadIds(in, content.inboxToComplete, itemStart);
    if (status == 0) status = ReadIds(in, content.sentToComplete, itemStart);
    if (status == 0) status = ReadIds(in, content.inboxToRead, itemStart);
    if (stoppedAt) *stoppedAt = status ? itemStart : in.GetPosition();
    return status;
}

int WriteMails(ZR::OChannel& out, const MailsFileSource& source) {
    if (int status = WriteBox(out, source.inboxRevision, source.inbox)) return status;
    if (int status = WriteBox(out, source.sentRevision, source.sent)) return status;
    if (int status = WriteIds(out, source.inboxToComplete)) return status;
    if (int status = WriteIds(out, source.sentToComplete)) return status;
    return WriteIds(out, source.inboxToRead);
}

FileIChannel::FileIChannel(IO::File& file) : mFile(file) {
    mStatus = mFile.GetDataLength(&mSize);
    if (mStatus) mSize = 0;
}

int FileIChannel::Read(void* buffer, std::size_t length) {
    if (length > GetRemaining()) return ZR::kErrEndOfData;
    auto* out = static_cast<unsigned char*>(buffer);
    while (length > 0) {
        if (mBufferUsed == mBufferEnd) {
            // Large reads go straight through; small ones are gathered.
            if (length >= kBlock) {
                std::size_t got = 0;
                if (int status = mFile.Read(out, length, &got)) return status;
                mPosition += got;
                if (got < length) return ZR::kErrEndOfData;  // the file shrank meanwhile
                return 0;
            }
            mBuffer.resize(kBlock);
            std::size_t got = 0;
            if (int status = mFile.Read(mBuffer.data(),
                                        std::min<std::uint64_t>(kBlock, GetRemaining()), &got))
                return status;
            if (got == 0) return ZR::kErrEndOfData;
            mBufferUsed = 0;
            mBufferEnd = got;
        }
        std::size_t n = std::min(length, mBufferEnd - mBufferUsed);
        std::memcpy(out, mBuffer.data() + mBufferUsed, n);
        mBufferUsed += n;
        mPosition += n;
        out += n;
        length -= n;
    }
    return 0;
}

WriterOChannel::WriterOChannel(IO::AtomicFileWriter& writer) : mWriter(writer) {
    mBuffer.reserve(kBlock);
}

int WriterOChannel::Write(const void* data, std::size_t length) {
    if (mBuffer.size() + length > kBlock)
        if (int status = Flush()) return status;
    if (length >= kBlock) return mWriter.Write(data, length);
    const auto* bytes = static_cast<const unsigned char*>(data);
    mBuffer.insert(mBuffer.end(), bytes, bytes + length);
    return 0;
}

int WriterOChannel::Flush() {
    if (mBuffer.empty()) return mWriter.GetStatus();
    int status = mWriter.Write(mBuffer.data(), mBuffer.size());
    mBuffer.clear();
    return status;
}

int ReadMailsFile(const IO::Location& location, MailsFileContent& content,
                  std::uint64_t* stoppedAt) {
    if (stoppedAt) *stoppedAt = 0;
    IO::File file(location, IO::kNotFoundFail);
    if (int status = file.GetStatus()) return status;
    if (int status = file.Open(IO::kOpenRead, 2)) return status;
    FileIChannel in(file);
    int status = in.GetStatus();
    if (status == 0) {
        try {
            status = ReadMails(in, content, stoppedAt);
        } catch (const ZR::ZRException&) {
            status = ZR::kGeneralErrorCode;
        }
    }
    file.Close();
    return status;
}

int WriteMailsFile(const IO::Location& location, const MailsFileSource& source) {
    IO::AtomicFileWriter writer(location);
    if (int status = writer.GetStatus()) return status;
    WriterOChannel out(writer);
    int status = 0;
    try {
        status = WriteMails(out, source);
    } catch (const ZR::ZRException&) {
        status = ZR::kGeneralErrorCode;
    }
    if (status == 0) status = out.Flush();
    if (status == 0) status = writer.Commit();
    return status;
}

}  // namespace KRC::Internal
