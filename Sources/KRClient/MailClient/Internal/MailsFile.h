#pragma once
// "Mails.dat": the two boxes of the mail client with their revisions and the
// three lists of changes the server has not confirmed (docs/FORMATS.md).
// Read and written in a stream, so that a large file costs little memory
// beyond the mails it holds; shared by the client, krctl and the fuzz target.

#include <cstdint>

#include "IO/File.h"
#include "IO/Location.h"
#include "KRClient/MailClient/ClientMail.h"
#include "ZR/Channel.h"
#include "ZR/Containers.h"

namespace KRC::Internal {

using MailTable = ZR::HashTable<ZR::UniString, ZR::Ref<ClientMail>>;
using MailIdList = ZR::PagedArray<ZR::UniString, 8>;

/// What the file holds, in the order of the file.
struct MailsFileContent {
    std::uint64_t inboxRevision = 0;
    MailTable inbox;
    std::uint64_t sentRevision = 0;
    MailTable sent;
    MailIdList inboxToComplete;
    MailIdList sentToComplete;
    MailIdList inboxToRead;
};

/// What goes into the file, borrowed from the client's own tables.
struct MailsFileSource {
    std::uint64_t inboxRevision;
    const MailTable& inbox;
    std::uint64_t sentRevision;
    const MailTable& sent;
    const MailIdList& inboxToComplete;
    const MailIdList& sentToComplete;
    const MailIdList& inboxToRead;
};

/// Fewest bytes one stored mail can take: a frame header with an empty class
/// name. A count of more mails than the rest of the input could hold is
/// refused before any of them is read.
inline constexpr std::uint64_t kMinStoredMailBytes = 4 + 16 + 2 + 2 + 4;

/// The items in order into content, which holds what was read up to a
/// failure: 0, or the first error, with *stoppedAt (if given) the offset of
/// the item that could not be read. A mail id met twice in a box keeps its
/// first mail.
int ReadMails(ZR::IChannel& channel, MailsFileContent& content, std::uint64_t* stoppedAt = nullptr);
/// 0 or the first error; what was written before it stays written.
int WriteMails(ZR::OChannel& channel, const MailsFileSource& source);

/// Reads an open file in blocks, knowing how much of it is left.
class FileIChannel : public ZR::IChannel {
public:
    /// file must be open for reading and outlive the channel.
    explicit FileIChannel(IO::File& file);
    int Read(void* buffer, std::size_t length) override;
    using ZR::IChannel::Read;
    std::uint64_t GetRemaining() const override { return mSize - mPosition; }
    /// The status of finding the file's length.
    int GetStatus() const { return mStatus; }

private:
    IO::File& mFile;
    int mStatus = 0;
    std::uint64_t mSize = 0;
    std::uint64_t mPosition = 0;
    std::vector<unsigned char> mBuffer;
    std::size_t mBufferUsed = 0;
    std::size_t mBufferEnd = 0;
};

/// Collects writes in blocks for an atomic file writer.
class WriterOChannel : public ZR::OChannel {
public:
    explicit WriterOChannel(IO::AtomicFileWriter& writer);
    int Write(const void* data, std::size_t length) override;
    using ZR::OChannel::Write;
    /// Writes out what is collected.
    int Flush();

private:
    IO::AtomicFileWriter& mWriter;
    std::vector<unsigned char> mBuffer;
};

/// The whole file at location, streamed; 0, the error that stopped the
/// reading (*stoppedAt as for ReadMails), or the status of opening it.
int ReadMailsFile(const IO::Location& location, MailsFileContent& content,
                  std::uint64_t* stoppedAt = nullptr);
/// Through a temporary file and a rename, mode 0600: the file is replaced
/// only if every item was written; otherwise the old one stays.
int WriteMailsFile(const IO::Location& location, const MailsFileSource& source);

}  // namespace KRC::Internal
