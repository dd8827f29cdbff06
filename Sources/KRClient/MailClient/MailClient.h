#pragma once
/// @file
/// One user's mailbox as the host sees it: the inbox and the sent box kept in
/// step with the server through the mailbox monitor, and the outbox of mails
/// the server has not confirmed yet. Changes are made locally first and then
/// asked of the server; what the server has not confirmed is repeated after
/// each reconnection and survives a merge.
///
/// Threads: the host calls from its own thread; the monitor's callbacks come
/// on the monitor's thread, the signal client's on its own. The client's lock
/// guards the tables; observers are called outside it and may call back.

#include <atomic>
#include <cstdint>
#include <memory>

#include "KRCB/MailboxMonitor.h"
#include "KRCB/ProjectConnection.h"
#include "KRCB/SignalClient.h"
#include "KRClient/KRClientExport.h"
#include "KRClient/MailClient/ClientMail.h"
#include "KRClient/MailClient/MailClientErrorHandler.h"
#include "KRClient/MailClient/MailClientObserver.h"
#include "KRClient/MailClient/OutboxObserver.h"
#include "ZR/Containers.h"
#include "ZR/DependentResource.h"
#include "ZR/EventSource.h"
#include "ZR/Ref.h"
#include "ZR/Thread.h"

namespace KRC {

class Outbox;
namespace Internal {
class ChangeList;
}

class KRCLIENT_EXPORT MailClient : public ZR::DependentResource,
                                   public KRCB::Mailbox::MailboxMonitorObserver,
                                   public KRCB::PresenceObserver,
                                   public KRCB::SignalObserver,
                                   private ZR::TS::EventSource {
public:
    using Mails = ZR::PagedArray<ZR::Ref<ClientMail>, 8>;
    using Ids = ZR::PagedArray<ZR::UniString, 8>;
    using Task = ZR::Ref<KRCB::Mailbox::MailboxEventHandlerTask>;
    using Tasks = KRCB::Mailbox::MailboxEventHandlerTasks;
    using MailboxChanges = MailClientObserver::MailboxChanges;

    static constexpr const char* kMailsFileName = "Mails.dat";

    /// monitor, signalClient and connectionManager must not be null; the
    /// manager is used here only, for its cache folder. Attaches to the
    /// monitor and the signal client, reads Mails.dat and Outbox.dat of the
    /// cache folder (a missing or damaged Mails.dat gives empty boxes) and, if
    /// the monitor is not running yet, gives it the stored revisions to go on
    /// from.
    MailClient(KRCB::Mailbox::MailboxMonitor* monitor, KRCB::SignalClient* signalClient,
               const KRCB::ProjectConnectionManagerInterface* connectionManager,
               bool useCompletedLimit, unsigned int completedLimitNum,
               std::unique_ptr<MailClientErrorHandler> errorHandler);
    /// Closes, then writes Mails.dat and the outbox. Not from an observer's call.
    ~MailClient() override;
    MailClient(const MailClient&) = delete;
    MailClient& operator=(const MailClient&) = delete;

    /// Ends the connection to the monitor and the signal client: no callback
    /// of theirs comes after it returns, and every operation that needs the
    /// monitor does nothing. Not from a callback of the monitor.
    void Close();

    void Attach(MailClientObserver& observer) { ZR::TS::EventSource::Attach(observer); }
    void Detach(MailClientObserver& observer) { ZR::TS::EventSource::Detach(observer); }
    void AttachOutbox(OutboxObserver& observer);
    void DetachOutbox(OutboxObserver& observer);
    /// Tells the observers, with empty lists, to read the lists anew; only
    /// while the monitor runs.
    void NotifyMailListChanged();

    /// The last status the monitor reported; false at the start and after Close.
    bool IsOnline();
    ZR::UniString GetUserLoginName() const;

    // Sending. A mail that stands in the outbox or in the sent box is not
    // sent again. It goes now if the monitor knows the user's contact, else
    // it waits in the outbox for the way back to the server.
    void SendMail(ZR::Ref<ClientMail>& mail, Task task);

    // Read and completed: set locally at once and kept on record until the
    // server confirms them; offline the caller's task is cancelled.
    void SetInboxMailsRead(const Ids& ids, Task task);
    void SetInboxMailsCompleted(const Ids& ids, Task task);
    void SetSentMailsCompleted(const Ids& ids, Task task);
    void SetInboxMailRead(const ZR::UniString& id);
    void SetInboxMailCompleted(const ZR::UniString& id);
    void SetSentMailCompleted(const ZR::UniString& id);

    // Deleting: the mails are hidden at once and leave the tables when the
    // server reports the deletion. Not repeated.
    void DeleteInboxMails(const Ids& ids, Task task);
    void DeleteSentMails(const Ids& ids, Task task);
    void DeleteInboxMail(const ZR::UniString& id, Task task);
    void DeleteSentMail(const ZR::UniString& id, Task task);
    /// Takes mails out of the outbox; the server is not asked.
    void DeleteOutboxMails(const ZR::HashSet<ZR::UniString>& ids);

    // Reading. Mails being deleted count as gone.
    Mails GetInboxMails() const;
    Mails GetSentMails() const;
    /// In the outbox's order, also the mails under way.
    Mails GetOutboxMails() const;
    /// Inbox, sent box, then the outbox mails not seen in either.
    Mails GetAllMails() const;
    bool GetInboxMail(const ZR::UniString& id, ZR::Ref<ClientMail>& mail) const;
    /// Inbox, sent box, outbox, in this order; mail untouched if none has it.
    bool GetMail(const ZR::UniString& id, ZR::Ref<ClientMail>& mail) const;
    bool IsInboxMail(const ZR::UniString& id) const;
    bool IsSentMail(const ZR::UniString& id) const;
    bool IsOutboxMail(const ZR::UniString& id) const;
    bool IsInboxMail(const ZR::Ref<ClientMail>& mail) const;
    bool IsSentMail(const ZR::Ref<ClientMail>& mail) const;
    bool IsOutboxMail(const ZR::Ref<ClientMail>& mail) const;
    /// The stored revisions of the boxes.
    std::uint64_t GetInboxRevision() const;
    std::uint64_t GetSentRevision() const;

    // The limit on completed mails: the oldest countable completed mails over
    // the limit go, each with its whole thread. The setters store the value only.
    void SetUseCompletedLimit(bool use);
    bool UseCompletedLimit() const;
    void SetCompletedLimitNum(unsigned int limit);
    unsigned int GetCompletedLimitNum() const;
    unsigned int CountCompletedMails() const;
    bool DeleteCompletedMailsOverLimit();

    // The monitor's and the signal client's calls.
    void ContactListChanged(ZR::Ref<const KRCB::Mailbox::ContactList>& list) override;
    void MailboxChanged(ZR::Ref<KRCB::Mailbox::MailboxChange>& change) override;
    void MailboxServerStatusChange(bool online) override;
    void PresenceStateChanged(const KRCB::PresenceState& state) override;
    void OnlineUserListChanged() override;
    bool CheckSignalType(const KRCB::SignalId& id) const override;
    void SignalReceived(KRCB::SignalClient* client, const KRCB::Signal& signal) override;

private:
    class SendMailFinished;
    class InboxMailSetToCompleted;
    class InboxMailSetToRead;
    class SentMailSetToCompleted;
    struct Box;

    void NotifyMailListChanged(const MailboxChanges& changes);
    KRCB::Mailbox::MailboxMonitor* Monitor() const;
    Task NewTask(KRCB::Mailbox::MailboxEventHandler* handler);
    void CancelEvent(Task& task);

    void SendMails(Tasks& tasks);
    void FailedToSendMail(ZR::HashSet<ZR::UniString>& ids);
    void SendMailChanges();
    void AddInboxToReadChanges(const Ids& ids);
    void AddInboxToCompleteChanges(const Ids& ids);
    void AddSentToCompleteChanges(const Ids& ids);
    void DeleteInboxToReadChanges(const Ids& ids);
    void DeleteInboxToCompleteChanges(const Ids& ids);
    void DeleteSentToCompleteChanges(const Ids& ids);
    void DeleteMails(const Ids& ids, Task task, bool inbox);

    int ReadFromDisc();
    int WriteToDisc() const;

    IO::Location mMailsFile;
    // Read without the lock by the signal client's callbacks, which only
    // forward to the monitor; cleared under it.
    std::atomic<KRCB::Mailbox::MailboxMonitor*> mMailboxMonitor;
    bool mOnline = false;
    std::atomic<KRCB::SignalClient*> mSignalClient;
    std::unique_ptr<Outbox> mOutbox;
    bool mUseCompletedLimit;
    unsigned int mCompletedLimitNum;
    std::unique_ptr<Box> mInbox;
    std::unique_ptr<Box> mSent;
    std::unique_ptr<Internal::ChangeList> mInboxToCompleteChanges;
    std::unique_ptr<Internal::ChangeList> mInboxToReadChanges;
    std::unique_ptr<Internal::ChangeList> mSentToCompleteChanges;
    std::unique_ptr<MailClientErrorHandler> mErrorHandler;
    mutable ZR::ReentrantLock mLock;
};

}  // namespace KRC
