// What the host asks of the mail client: sending, read and completed,
// deleting, and the lists. Each change is made locally under the lock, and
// the request goes to the monitor after the lock is released.

#include <utility>

#include "KRCB/LowMessageLoopExecutor.h"
#include "KRClient/MailClient/Internal/ChangeList.h"
#include "KRClient/MailClient/Internal/MailClientBox.h"
#include "KRClient/MailClient/Internal/MailClientHandlers.h"
#include "KRClient/MailClient/Internal/Outbox.h"
#include "KRClient/MailClient/MailClient.h"
#include "ZR/Time.h"

namespace KRC {

namespace M = Kerrow::Server::Mail;
using Guard = ZR::LockGuard<ZR::ReentrantLock>;
using KRCB::Mailbox::MailIdTable;

namespace {

const M::MailboxName kInbox("Inbox");
const M::MailboxName kSent("Sent");

MailIdTable TableOf(const MailClient::Ids& ids) {
    MailIdTable table;
    for (const auto& id : ids) table.Add(id, true);
    return table;
}

}  // namespace

class MailClient::SendMailFinished : public KRCB::Mailbox::MailboxEventHandler {
public:
    SendMailFinished(ZR::HashSet<ZR::UniString> ids, MailClient* client)
        : mIds(std::move(ids)), mClient(client) {}
    // A sent mail leaves the outbox when the server lists it, not here.
    void OnSuccess() override {}
    void OnCancel() override { mClient->FailedToSendMail(mIds); }
    void OnFailure(Failure&) override { mClient->FailedToSendMail(mIds); }

private:
    ZR::HashSet<ZR::UniString> mIds;
    MailClient* mClient;
};

#define KRC_CHANGE_CONFIRMED(Name, Forget)                                           \
    class MailClient::Name : public KRCB::Mailbox::MailboxEventHandler {             \
    public:                                                                          \
        Name(Ids ids, MailClient* client) : mIds(std::move(ids)), mClient(client) {} \
        void OnSuccess() override { mClient->Forget(mIds); }                         \
        void OnCancel() override {}                                                  \
        void OnFailure(Failure&) override {}                                         \
                                                                                     \
    private:                                                                         \
        Ids mIds;                                                                    \
        MailClient* mClient;                                                         \
    };
KRC_CHANGE_CONFIRMED(InboxMailSetToCompleted, DeleteInboxToCompleteChanges)
KRC_CHANGE_CONFIRMED(InboxMailSetToRead, DeleteInboxToReadChanges)
KRC_CHANGE_CONFIRMED(SentMailSetToCompleted, DeleteSentToCompleteChanges)
#undef KRC_CHANGE_CONFIRMED

MailClient::Task MailClient::NewTask(KRCB::Mailbox::MailboxEventHandler* handler) {
    return Task(new KRCB::Mailbox::MailboxEventHandlerTask(this, handler));
}

void MailClient::CancelEvent(Task& task) {
    if (!task) return;
    task->SetCanceledResult();
    KRCB::LowMessageLoopExecutor().Execute(ZR::MakeTask([task] { task->Run(); }));
}

// Sending.

void MailClient::SendMail(ZR::Ref<ClientMail>& mail, Task task) {
    KRCB::Mailbox::MailboxMonitor* monitor = Monitor();
    if (!monitor || !mail) return;
    M::Address address;
    ZR::Ref<const KRCB::Mailbox::Contact> user = monitor->GetUserContact();
    const bool goesNow = user && user->GetInboxMailboxAddress(address);
    {
        Guard guard(mLock);
        const ZR::UniString id = mail->GetId();
        if (mOutbox->ContainsMail(id) || mSent->mails.Contains(id)) return;
        if (goesNow) {
            mail->SetSent(M::Date(TIGetTime()));
            mail->SetSender(address);
        }
        mOutbox->AddMail(mail);
    }
    if (!goesNow) return;
    Tasks tasks;
    if (task) tasks.Add(task);
    SendMails(tasks);
}

void MailClient::SendMails(Tasks& tasks) {
    KRCB::Mailbox::MailboxMonitor* monitor = Monitor();
    if (!monitor) return;
    Mails mails;
    ZR::HashSet<ZR::UniString> ids;
    KRCB::Mailbox::ServerMails serverMails;
    {
        Guard guard(mLock);
        mOutbox->GetMails(mails, true);
        for (const auto& mail : mails) ids.Add(mail->GetId());
        mOutbox->SetMailsUnderWay(ids);
        // Copied under the lock: a status change renews sender and time of
        // the outbox mails, under way or not, from the monitor's thread.
        for (const auto& mail : mails) serverMails.Add(mail->ToServerMail());
    }
    if (mails.IsEmpty()) return;
    tasks.Add(NewTask(new ShowErrorInMailSending(mErrorHandler.get())));
    tasks.Add(NewTask(new SendMailFinished(std::move(ids), this)));
    monitor->SendMails(serverMails, tasks);
}

void MailClient::FailedToSendMail(ZR::HashSet<ZR::UniString>& ids) {
    Guard guard(mLock);
    mOutbox->ResetMailsUnderWay(ids);
}

// The outbox's own event source is thread-safe, and its walk runs on the
// message loop, where an observer may read the client: attaching under the
// client's lock could wait for that walk while it waits for the lock.
void MailClient::AttachOutbox(OutboxObserver& observer) {
    mOutbox->Attach(observer);
}

void MailClient::DetachOutbox(OutboxObserver& observer) {
    mOutbox->Detach(observer);
}

void MailClient::DeleteOutboxMails(const ZR::HashSet<ZR::UniString>& ids) {
    if (ids.IsEmpty()) return;
    Guard guard(mLock);
    mOutbox->DeleteMails(ids);
}

// Read and completed.

void MailClient::AddInboxToCompleteChanges(const Ids& ids) {
    if (ids.IsEmpty()) return;
    Guard guard(mLock);
    for (const auto& id : ids) {
        if (mInboxToCompleteChanges->Contains(id)) continue;
        mInboxToCompleteChanges->Append(id);
        if (auto* mail = mInbox->mails.Find(id)) (*mail)->SetCompleted();
    }
    DeleteCompletedMailsOverLimit();
}

void MailClient::AddInboxToReadChanges(const Ids& ids) {
    if (ids.IsEmpty()) return;
    Guard guard(mLock);
    for (const auto& id : ids) {
        if (mInboxToReadChanges->Contains(id)) continue;
        mInboxToReadChanges->Append(id);
        if (auto* mail = mInbox->mails.Find(id)) (*mail)->SetRead();
    }
}

void MailClient::AddSentToCompleteChanges(const Ids& ids) {
    if (ids.IsEmpty()) return;
    Guard guard(mLock);
    for (const auto& id : ids) {
        if (mSentToCompleteChanges->Contains(id)) continue;
        mSentToCompleteChanges->Append(id);
        ZR::Ref<ClientMail> outboxMail;
        if (auto* mail = mSent->mails.Find(id))
            (*mail)->SetCompleted();
        else if (mOutbox->GetMail(id, outboxMail))
            outboxMail->SetCompleted();
    }
    DeleteCompletedMailsOverLimit();
}

void MailClient::DeleteInboxToReadChanges(const Ids& ids) {
    Guard guard(mLock);
    mInboxToReadChanges->RemoveFirstOf(ids);
}

void MailClient::DeleteInboxToCompleteChanges(const Ids& ids) {
    Guard guard(mLock);
    mInboxToCompleteChanges->RemoveFirstOf(ids);
}

void MailClient::DeleteSentToCompleteChanges(const Ids& ids) {
    Guard guard(mLock);
    mSentToCompleteChanges->RemoveFirstOf(ids);
}

// The caller's task comes last; the handler that keeps the record stands
// before or after the one that shows the error, by family.
void MailClient::SetInboxMailsCompleted(const Ids& ids, Task task) {
    KRCB::Mailbox::MailboxMonitor* monitor = Monitor();
    if (!monitor || ids.IsEmpty()) return;
    MailIdTable table = TableOf(ids);
    AddInboxToCompleteChanges(ids);
    if (!IsOnline()) return CancelEvent(task);
    Tasks tasks;
    tasks.Add(NewTask(new InboxMailSetToCompleted(ids, this)));
    tasks.Add(NewTask(new ShowErrorInSetMailsRead(mErrorHandler.get(), this)));
    if (task) tasks.Add(task);
    monitor->SetMailsCompleted(table, kInbox, tasks);
}

void MailClient::SetInboxMailsRead(const Ids& ids, Task task) {
    KRCB::Mailbox::MailboxMonitor* monitor = Monitor();
    if (!monitor || ids.IsEmpty()) return;
    MailIdTable table = TableOf(ids);
    AddInboxToReadChanges(ids);
    if (!IsOnline()) return CancelEvent(task);
    Tasks tasks;
    tasks.Add(NewTask(new ShowErrorInSetMailsRead(mErrorHandler.get(), this)));
    tasks.Add(NewTask(new InboxMailSetToRead(ids, this)));
    if (task) tasks.Add(task);
    monitor->SetMailsRead(table, kInbox, tasks);
}

void MailClient::SetSentMailsCompleted(const Ids& ids, Task task) {
    KRCB::Mailbox::MailboxMonitor* monitor = Monitor();
    if (!monitor || ids.IsEmpty()) return;
    MailIdTable table = TableOf(ids);
    AddSentToCompleteChanges(ids);
    if (!IsOnline()) return CancelEvent(task);
    Tasks tasks;
    tasks.Add(NewTask(new ShowErrorInSetMailsRead(mErrorHandler.get(), this)));
    tasks.Add(NewTask(new SentMailSetToCompleted(ids, this)));
    if (task) tasks.Add(task);
    monitor->SetMailsCompleted(table, kSent, tasks);
}

void MailClient::SetInboxMailRead(const ZR::UniString& id) {
    if (!id.IsEmpty()) SetInboxMailsRead(Ids{id}, Task());
}

void MailClient::SetInboxMailCompleted(const ZR::UniString& id) {
    if (!id.IsEmpty()) SetInboxMailsCompleted(Ids{id}, Task());
}

void MailClient::SetSentMailCompleted(const ZR::UniString& id) {
    if (!id.IsEmpty()) SetSentMailsCompleted(Ids{id}, Task());
}

// Repetitions of what the server has not confirmed: no error shown, no
// caller to tell; a failure leaves the ids for the next time.
void MailClient::SendMailChanges() {
    KRCB::Mailbox::MailboxMonitor* monitor = Monitor();
    if (!monitor) return;
    Ids inboxCompleted, sentCompleted, inboxRead;
    {
        Guard guard(mLock);
        inboxCompleted = mInboxToCompleteChanges->GetIds();
        sentCompleted = mSentToCompleteChanges->GetIds();
        inboxRead = mInboxToReadChanges->GetIds();
    }
    if (!inboxCompleted.IsEmpty()) {
        Tasks tasks{NewTask(new InboxMailSetToCompleted(inboxCompleted, this))};
        monitor->SetMailsCompleted(TableOf(inboxCompleted), kInbox, tasks);
    }
    if (!sentCompleted.IsEmpty()) {
        Tasks tasks{NewTask(new SentMailSetToCompleted(sentCompleted, this))};
        monitor->SetMailsCompleted(TableOf(sentCompleted), kSent, tasks);
    }
    if (!inboxRead.IsEmpty()) {
        Tasks tasks{NewTask(new InboxMailSetToRead(inboxRead, this))};
        monitor->SetMailsRead(TableOf(inboxRead), kInbox, tasks);
    }
}

// Deleting. Not repeated and not looking at the status: the mails stay
// hidden until the server reports the deletion.

void MailClient::DeleteMails(const Ids& ids, Task task, bool inbox) {
    KRCB::Mailbox::MailboxMonitor* monitor = Monitor();
    if (!monitor || ids.IsEmpty()) return;
    Tasks tasks{NewTask(new ShowErrorInMailDeleting(this, mErrorHandler.get()))};
    if (task) tasks.Add(task);
    {
        Guard guard(mLock);
        Box& box = inbox ? *mInbox : *mSent;
        for (const auto& id : ids) box.deleted.Add(id);
    }
    monitor->DeleteMails(ids, inbox ? kInbox : kSent, tasks);
}

void MailClient::DeleteInboxMails(const Ids& ids, Task task) {
    DeleteMails(ids, std::move(task), true);
}

void MailClient::DeleteSentMails(const Ids& ids, Task task) {
    DeleteMails(ids, std::move(task), false);
}

void MailClient::DeleteInboxMail(const ZR::UniString& id, Task task) {
    if (!id.IsEmpty()) DeleteInboxMails(Ids{id}, std::move(task));
}

void MailClient::DeleteSentMail(const ZR::UniString& id, Task task) {
    if (!id.IsEmpty()) DeleteSentMails(Ids{id}, std::move(task));
}

// Reading.

MailClient::Mails MailClient::GetInboxMails() const {
    Guard guard(mLock);
    Mails result;
    mInbox->AppendShown(result);
    return result;
}

MailClient::Mails MailClient::GetSentMails() const {
    Guard guard(mLock);
    Mails result;
    mSent->AppendShown(result);
    return result;
}

MailClient::Mails MailClient::GetOutboxMails() const {
    Guard guard(mLock);
    Mails result;
    mOutbox->GetMails(result, false);
    return result;
}

MailClient::Mails MailClient::GetAllMails() const {
    Guard guard(mLock);
    Mails result;
    ZR::HashSet<ZR::UniString> seen;
    for (const Box* box : {mInbox.get(), mSent.get()})
        for (const auto& entry : box->mails)
            if (!box->deleted.Contains(entry.first)) {
                result.Add(entry.second);
                seen.Add(entry.first);
            }
    Mails outbox;
    mOutbox->GetMails(outbox, false);
    for (const auto& mail : outbox)
        if (seen.Add(mail->GetId())) result.Add(mail);
    return result;
}

bool MailClient::GetInboxMail(const ZR::UniString& id, ZR::Ref<ClientMail>& mail) const {
    Guard guard(mLock);
    if (!mInbox->Shows(id)) return false;
    mail = *mInbox->mails.Find(id);
    return true;
}

bool MailClient::GetMail(const ZR::UniString& id, ZR::Ref<ClientMail>& mail) const {
    Guard guard(mLock);
    for (const Box* box : {mInbox.get(), mSent.get()})
        if (box->Shows(id)) {
            mail = *box->mails.Find(id);
            return true;
        }
    return mOutbox->GetMail(id, mail);
}

bool MailClient::IsInboxMail(const ZR::UniString& id) const {
    Guard guard(mLock);
    return mInbox->Shows(id);
}

bool MailClient::IsSentMail(const ZR::UniString& id) const {
    Guard guard(mLock);
    return mSent->Shows(id);
}

bool MailClient::IsOutboxMail(const ZR::UniString& id) const {
    if (id.IsEmpty()) return false;
    Guard guard(mLock);
    return mOutbox->ContainsMail(id);
}

bool MailClient::IsInboxMail(const ZR::Ref<ClientMail>& mail) const {
    return mail && IsInboxMail(mail->GetId());
}

bool MailClient::IsSentMail(const ZR::Ref<ClientMail>& mail) const {
    return mail && IsSentMail(mail->GetId());
}

bool MailClient::IsOutboxMail(const ZR::Ref<ClientMail>& mail) const {
    return mail && IsOutboxMail(mail->GetId());
}

// The limit on completed mails: the settings only store their value; the
// limit itself is in MailClientStorage.cpp.

void MailClient::SetUseCompletedLimit(bool use) {
    Guard guard(mLock);
    mUseCompletedLimit = use;
}

bool MailClient::UseCompletedLimit() const {
    Guard guard(mLock);
    return mUseCompletedLimit;
}

void MailClient::SetCompletedLimitNum(unsigned int limit) {
    Guard guard(mLock);
    mCompletedLimitNum = limit;
}

unsigned int MailClient::GetCompletedLimitNum() const {
    Guard guard(mLock);
    return mCompletedLimitNum;
}

}  // namespace KRC
