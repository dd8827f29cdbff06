#pragma once
/// @file
/// The mailbox monitor: it keeps one user's inbox and sent box in step with
/// the mail server, holds the contact list, and carries the mail client's
/// requests to the server, all on a thread of its own. Also the change it
/// delivers, its observer, and the handlers by which a request ends.

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>

#include "IO/Location.h"
#include "KRCB/KRClientBaseExport.h"
#include "KRCB/Mailbox.h"
#include "Kerrow/Exceptions.h"
#include "Kerrow/Mail.h"
#include "ZR/Containers.h"
#include "ZR/DependentResource.h"
#include "ZR/EventSource.h"
#include "ZR/Ref.h"
#include "ZR/UniString.h"

namespace KRCB::Mailbox {

namespace Internal {
struct MonitorCore;
}

using ServerMails = ZR::PagedArray<ZR::Ref<Kerrow::Server::Mail::Mail>, 8>;
using ServerMailIds = ZR::PagedArray<Kerrow::Server::Mail::MailId, 8>;
/// Mail ids, as text, to true: the ids a read or completed request sets.
using MailIdTable = ZR::HashTable<ZR::UniString, bool>;

/// A request to the mail server failed; the message says why and the cause,
/// where there is one, is the server's refusal.
KERROW_DECLARE_EXCEPTION(MailboxMonitorException, KRCB::KRClientBaseException)

/// What changed in the two boxes between two revisions of each. A change
/// whose from revision is 0 is the whole box.
class KRCB_EXPORT MailboxChange {
public:
    ServerMails& GetInboxCreatedMails() { return mInboxCreated; }
    ServerMails& GetInboxUpdatedMails() { return mInboxUpdated; }
    ServerMailIds& GetInboxDeletedMails() { return mInboxDeleted; }
    ServerMails& GetSentCreatedMails() { return mSentCreated; }
    ServerMails& GetSentUpdatedMails() { return mSentUpdated; }
    ServerMailIds& GetSentDeletedMails() { return mSentDeleted; }
    std::uint64_t GetInboxRevisionFrom() const { return mInboxFrom; }
    std::uint64_t GetInboxRevisionTo() const { return mInboxTo; }
    std::uint64_t GetSentRevisionFrom() const { return mSentFrom; }
    std::uint64_t GetSentRevisionTo() const { return mSentTo; }
    void SetInboxRevisions(std::uint64_t from, std::uint64_t to) {
        mInboxFrom = from, mInboxTo = to;
    }
    void SetSentRevisions(std::uint64_t from, std::uint64_t to) { mSentFrom = from, mSentTo = to; }

private:
    ServerMails mInboxCreated, mInboxUpdated, mSentCreated, mSentUpdated;
    ServerMailIds mInboxDeleted, mSentDeleted;
    std::uint64_t mInboxFrom = 0, mInboxTo = 0, mSentFrom = 0, mSentTo = 0;
};

/// Hears a monitor, on the monitor's thread. An observer destroyed while the
/// monitor runs calls DetachFromSources first; after Detach returns no call
/// reaches it.
class KRCB_EXPORT MailboxMonitorObserver : public ZR::TS::EventObserver {
public:
    ~MailboxMonitorObserver() override;
    virtual void ContactListChanged(ZR::Ref<const ContactList>& list);
    virtual void MailboxChanged(ZR::Ref<MailboxChange>& change);
    /// true: the server can be reached now; false: it can't any more.
    virtual void MailboxServerStatusChange(bool online);
};

/// The caller's side of a request: exactly one of the three is called when
/// the request ends.
class KRCB_EXPORT MailboxEventHandler {
public:
    virtual ~MailboxEventHandler();
    virtual void OnSuccess() = 0;
    virtual void OnCancel() = 0;
    virtual void OnFailure(ZR::Ref<MailboxMonitorException>& exception) = 0;
    /// What a task calls; each calls the matching one above.
    virtual void OnSuccessfulResult();
    virtual void OnCanceledResult();
    virtual void OnFailedResult(ZR::Ref<MailboxMonitorException>& exception);
};

/// A handler bound to the resource it reports to. The monitor sets the
/// result and runs the task; a task whose resource is gone runs nothing. A
/// result is set once, and the task runs its handler once: later results
/// and runs are ignored.
class KRCB_EXPORT MailboxEventHandlerTask : public ZR::DependentTask {
public:
    enum class Result { None, Success, Canceled, Failed };
    /// Takes over handler.
    MailboxEventHandlerTask(ZR::DependentResource* resource, MailboxEventHandler* handler);
    ~MailboxEventHandlerTask() override;

    /// False if a result was set before.
    bool SetSuccessfulResult();
    bool SetCanceledResult();
    bool SetFailedResult(const ZR::Ref<MailboxMonitorException>& exception);
    Result GetResult() const;
    MailboxEventHandler* GetHandler() const { return mHandler.get(); }

    /// Runs the handler's callback of the result, at most once.
    void Run() override;
    void Execute(ZR::DependentResource* resource) override;

private:
    std::unique_ptr<MailboxEventHandler> mHandler;
    mutable std::mutex mMutex;
    Result mResult = Result::None;
    ZR::Ref<MailboxMonitorException> mException;
    std::atomic<bool> mRan{false};
};

using MailboxEventHandlerTasks = ZR::PagedArray<ZR::Ref<MailboxEventHandlerTask>, 8>;

/// One user's mailboxes on one server. Requests are queued and return at
/// once; the monitor's thread sends them in order, ends each in one outcome
/// for all its tasks, fetches what changed, and calls the observers. Its
/// owner (the project connection manager) starts and stops it; Stop cancels
/// what is queued and waits for the thread, and after it no callback comes.
///
/// The request operations are virtual so that a test may put a monitor of
/// its own in the mail client's hands.
class KRCB_EXPORT MailboxMonitor : public ZR::TS::EventSource {
public:
    /// A monitor without a server: every request fails.
    MailboxMonitor();
    /// A monitor of the user of a project location (server URL, user name,
    /// refresh token), which builds contacts with factory.
    MailboxMonitor(const IO::Location& location, const ZR::Ref<ContactFactory>& factory);
    ~MailboxMonitor() override;
    MailboxMonitor(const MailboxMonitor&) = delete;
    MailboxMonitor& operator=(const MailboxMonitor&) = delete;

    void Attach(MailboxMonitorObserver& observer) { ZR::TS::EventSource::Attach(observer); }
    void Detach(MailboxMonitorObserver& observer) { ZR::TS::EventSource::Detach(observer); }

    /// The contacts as last fetched; never empty.
    ZR::Ref<const ContactList> GetContactList() const;
    /// The user's own contact; empty until the list has it.
    ZR::Ref<const Contact> GetUserContact() const;

    /// Starts the thread, which connects and fetches from the revisions the
    /// monitor has. Does nothing while running.
    virtual void Start();
    /// Cancels the queued requests, waits for the thread and disconnects.
    /// Not from an observer's call. The monitor may be started again.
    virtual void Stop();
    virtual bool IsRunning() const;
    /// The revisions to go on from; a monitor not yet running starts with them.
    virtual void InitMailboxRevision(std::uint64_t inboxRevision, std::uint64_t sentRevision);
    std::uint64_t GetInboxRevision() const;
    std::uint64_t GetSentRevision() const;
    /// Whether the last contact with the server succeeded.
    bool IsOnline() const;
    /// The refresh token of the next login (the manager's changed).
    void SetRefreshToken(const ZR::UniString& token);

    /// For tests that pump the monitor: waits until its thread is between jobs
    /// with nothing queued that can run now (or it is not running); false
    /// after timeoutMs.
    bool WaitUntilIdle(int timeoutMs) const;

    virtual void SendMails(ServerMails& mails, MailboxEventHandlerTasks& tasks);
    virtual void SetMailsRead(const MailIdTable& ids, const Kerrow::Server::Mail::MailboxName& box,
                              MailboxEventHandlerTasks& tasks);
    virtual void SetMailsCompleted(const MailIdTable& ids,
                                   const Kerrow::Server::Mail::MailboxName& box,
                                   MailboxEventHandlerTasks& tasks);
    virtual void DeleteMails(const ZR::PagedArray<ZR::UniString, 8>& ids,
                             const Kerrow::Server::Mail::MailboxName& box,
                             MailboxEventHandlerTasks& tasks);
    virtual void UpdateContactList(MailboxEventHandlerTasks& tasks);
    virtual void UpdateMails(MailboxEventHandlerTasks& tasks);
    /// Drops the connection and makes it anew, fetching what changed.
    virtual void ResetConnection();
    /// Stops talking to the server (reported as offline) until Continue;
    /// requests wait in the queue meanwhile.
    virtual void Suspend();
    virtual void Continue();

protected:
    /// Calls of the observers, for the monitor's thread and for a test's
    /// monitor. The caller holds no lock of its own.
    void NotifyMailboxChanged(ZR::Ref<MailboxChange>& change);
    void NotifyContactListChanged();
    void NotifyServerStatus(bool online);
    /// Replaces the list and answers the user's contact from it.
    void SetContactList(const ZR::Ref<ContactList>& list, const ZR::UniString& userId);

private:
    friend struct Internal::MonitorCore;
    mutable std::mutex mContactsMutex;
    ZR::Ref<ContactList> mContactList;
    ZR::UniString mUserId;
    std::shared_ptr<Internal::MonitorCore> mCore;
};

}  // namespace KRCB::Mailbox
