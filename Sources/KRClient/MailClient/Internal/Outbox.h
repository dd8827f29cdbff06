#pragma once
// The mails the user sent that the server has not confirmed yet, kept across
// runs in "Outbox.dat" (docs/FORMATS.md). Driven by the mail client alone,
// under its lock; each operation takes the outbox's own lock too.

#include <unordered_map>
#include <vector>

#include "IO/Location.h"
#include "KRClient/MailClient/ClientMail.h"
#include "KRClient/MailClient/OutboxObserver.h"
#include "ZR/Containers.h"
#include "ZR/DependentResource.h"
#include "ZR/EventSource.h"
#include "ZR/Ref.h"
#include "ZR/Thread.h"

namespace KRC {

class Outbox : public ZR::TS::EventSource, public ZR::DependentResource {
public:
    static constexpr const char* kFileName = "Outbox.dat";

    /// Reads cacheFolder/Outbox.dat; a missing or damaged file gives the mails
    /// before the damage, and no message. A damaged file is kept beside as
    /// "Outbox.dat.unread-<time>" before it is written anew.
    explicit Outbox(const IO::Location& cacheFolder);
    /// Writes the file, the only time it is written.
    ~Outbox() override;

    /// Appends the mail, then tells the observers.
    void AddMail(const ZR::Ref<ClientMail>& mail);
    /// Removes the first mail of each id, then tells the observers, found or not.
    void DeleteMails(const ZR::HashSet<ZR::UniString>& ids);
    bool ContainsMail(const ZR::UniString& id);
    /// False, and mail untouched, if there is none of that id.
    bool GetMail(const ZR::UniString& id, ZR::Ref<ClientMail>& mail);
    /// All mails in order, or with onlyNotUnderWay those not under way.
    void GetMails(ZR::PagedArray<ZR::Ref<ClientMail>, 8>& result, bool onlyNotUnderWay);
    void SetMailsUnderWay(const ZR::HashSet<ZR::UniString>& ids);
    void ResetMailsUnderWay(const ZR::HashSet<ZR::UniString>& ids);
    /// On every mail, under way or not: sent now, from sender.
    void UpdateSender(const Kerrow::Server::Mail::Address& sender);

    /// The stored form of mails; 0 or the first error.
    static int WriteMails(const ZR::PagedArray<ZR::Ref<ClientMail>, 8>& mails,
                          ZR::OChannel& channel);
    /// The mails of a stored form up to the first that can't be read; 0 if
    /// all the count named were read, or the error that stopped the reading.
    /// *stoppedAt (if given) is the offset of the first byte not used.
    static int ReadMails(const unsigned char* data, std::size_t size,
                         ZR::PagedArray<ZR::Ref<ClientMail>, 8>& mails,
                         std::size_t* stoppedAt = nullptr);

    void Attach(OutboxObserver& observer) { ZR::TS::EventSource::Attach(observer); }
    void Detach(OutboxObserver& observer) { ZR::TS::EventSource::Detach(observer); }

private:
    class OutboxChangedNotificationTask;

    int Write();
    void Notify();
    void Append(const ZR::Ref<ClientMail>& mail);

    IO::Location mOutboxFile;
    ZR::PagedArray<ZR::Ref<ClientMail>, 8> mMails;
    ZR::HashSet<ZR::UniString> mMailsUnderWay;
    // The mails of each id in list order, so that look-ups and deletes by id
    // need no walk over the list. Kept in step with mMails.
    std::unordered_map<ZR::UniString, std::vector<ZR::Ref<ClientMail>>> mById;
    ZR::Lock mLock;
};

}  // namespace KRC
