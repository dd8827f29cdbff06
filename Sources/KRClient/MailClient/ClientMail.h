#pragma once
/// @file
/// One mail as the mail client and the host hold it: the server's mail,
/// shared, plus the attachments parsed out of its body parts. Always handled
/// through ZR::Ref<ClientMail>.

#include <cstddef>
#include <cstdint>
#include <iterator>

#include "KRCB/Mailbox.h"
#include "KRClient/KRClientExport.h"
#include "KRClient/MailClient/MailAttachment.h"
#include "Kerrow/Mail.h"
#include "ZR/Channel.h"
#include "ZR/Containers.h"
#include "ZR/Frame.h"
#include "ZR/Guid.h"
#include "ZR/Object.h"
#include "ZR/Ref.h"
#include "ZR/UniString.h"

namespace KRC {

class KRCLIENT_EXPORT ClientMail {
public:
    using Mail = Kerrow::Server::Mail::Mail;
    using Address = Kerrow::Server::Mail::Address;
    using AddressList = Kerrow::Server::Mail::AddressList;
    using Importance = Kerrow::Server::Mail::Importance;
    using Attachments = ZR::HashTable<ZR::Guid, MailAttachment*>;

    static const ZR::UniString kThreadHeaderName;       ///< "ThreadId"
    static const ZR::UniString kVersionHeaderName;      ///< "Version"
    static const ZR::UniString kVersionHeaderValue;     ///< "1.0"
    static const ZR::UniString kMessageContentType;     ///< "KerrowMessage"
    static const ZR::UniString kAttachmentContentType;  ///< "KerrowAttachment"

    /// A new outgoing mail with a new GUID as id, opening its own thread.
    ClientMail();
    /// Shares mail and parses its attachments; an empty reference throws
    /// ZR::NullReferenceException.
    explicit ClientMail(ZR::Ref<Mail>& mail);
    virtual ~ClientMail();
    ClientMail(const ClientMail&) = delete;
    ClientMail& operator=(const ClientMail&) = delete;

    /// Class "Mail", the class of the stored form.
    static const ZR::ClassInfo& GetClassInfoStatic();
    virtual const ZR::ClassInfo& GetClassInfo() const { return GetClassInfoStatic(); }

    // Reading. Each throws ZR::NullReferenceException if the mail is empty.
    ZR::UniString GetId() const;
    Importance GetImportance() const;
    AddressList GetRecipients();
    /// The first sender; an empty address if there is none.
    Address GetSender() const;
    /// On the scale of TIGetTime.
    int GetSentTime();
    /// Empty if the mail has no thread header.
    ZR::UniString GetThreadId() const;
    /// The text of the first "KerrowMessage" part, copied in blocks of 8 KiB;
    /// empty if there is none.
    ZR::UniString GetMessagePart() const;
    /// The text with each line feed and then each carriage return made a
    /// blank: a CR LF pair becomes two blanks.
    ZR::UniString GetMessagePartWithoutLineBreaks() const;
    bool IsCompleted() const;
    bool IsRead() const;

    // Changing. Neither flag is ever cleared.
    void SetCompleted();
    void SetRead();
    void SetImportance(const Importance& importance) const;
    void SetRecipients(const AddressList& recipients);
    /// The recipient of a reply to the sender.
    void SetSingleRecipient(const Address& recipient);
    void SetSender(const Address& sender);
    void SetSent(const Kerrow::Server::Mail::Date& sent);
    /// An empty id is ignored.
    void SetThreadId(const ZR::UniString& id);
    void SetMessagePart(const ZR::UniString& text);
    /// Replaces the server mail; the attachments stay as they were parsed.
    void Update(ZR::Ref<Mail>& mail);

    // Attachments, one per class, keyed by class id.
    /// Stores a clone; an attachment of that class already there stays.
    void AddAttachment(const MailAttachment& attachment);
    void DeleteAttachment(const ZR::Guid& classId);
    const MailAttachment* GetAttachment(const ZR::Guid& classId) const;
    const Attachments& GetAttachments() const { return mAttachments; }
    bool HasAttachment(const ZR::Guid& classId) const { return mAttachments.Contains(classId); }
    bool HasAnyAttachment() const { return !mAttachments.IsEmpty(); }

    /// A forward range over the attachments in table order.
    class AttachmentRange {
    public:
        class iterator {
        public:
            using iterator_category = std::forward_iterator_tag;
            using value_type = const MailAttachment*;
            using difference_type = std::ptrdiff_t;
            using pointer = const value_type*;
            using reference = value_type;
            explicit iterator(Attachments::const_iterator it) : mIt(it) {}
            const MailAttachment* operator*() const { return mIt->second; }
            iterator& operator++() {
                ++mIt;
                return *this;
            }
            iterator operator++(int) {
                iterator old = *this;
                ++mIt;
                return old;
            }
            bool operator==(const iterator&) const = default;

        private:
            Attachments::const_iterator mIt;
        };
        explicit AttachmentRange(const Attachments& table) : mTable(table) {}
        iterator begin() const { return iterator(mTable.begin()); }
        iterator end() const { return iterator(mTable.end()); }

    private:
        const Attachments& mTable;
    };
    AttachmentRange EnumerateAttachments() const { return AttachmentRange(mAttachments); }

    /// A copy of the mail as it is sent and stored: header "Version" = "1.0"
    /// and one "KerrowAttachment" part per attachment, named "%T_%s_%d" from
    /// content type, class name and index; the parts of that type that came
    /// with the mail are dropped. Empty if an attachment gives no JSON. This
    /// mail is not touched.
    ZR::Ref<Mail> ToServerMail() const;

    /// The recipients of a reply to all: the sender, then the recipients, each
    /// once and never ownAddress. With a monitor, only those whose contact has
    /// a mailbox session of a desktop or a mobile client.
    static void CreateReplayAllList(const ClientMail& mail, const Address& ownAddress,
                                    const KRCB::Mailbox::MailboxMonitor* monitor,
                                    AddressList& result);
    /// The display names joined by ", ".
    static ZR::UniString ToDisplayText(const AddressList& list);

    /// The stored form: a frame of class "Mail", version 1.0, holding the mail
    /// as ToServerMail gives it in network byte order. 0, the frame's status,
    /// or -7003 for any failure inside (no JSON for an attachment, a newer
    /// version, a damaged mail). Read leaves mail untouched unless it answers 0.
    static int Write(const ZR::Ref<ClientMail>& mail, ZR::OChannel& channel);
    static int Read(ZR::Ref<ClientMail>& mail, ZR::IChannel& channel);

private:
    void UpdateAttachments();
    void DeleteAttachments();
    static int ReadVersion1(ZR::Ref<ClientMail>& mail, ZR::IChannel& channel,
                            const ZR::InputFrame& frame);
    static int WriteVersion1(const ZR::Ref<ClientMail>& mail, ZR::OChannel& channel,
                             const ZR::OutputFrame& frame);

    ZR::Ref<Mail> mMail;
    Attachments mAttachments;
};

}  // namespace KRC
