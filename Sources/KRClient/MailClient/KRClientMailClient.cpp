#include <utility>

#include "KRClient/KRClient.h"
#include "KRClient/MailClient/Internal/ChangeList.h"
#include "KRClient/MailClient/Internal/MailClientBox.h"
#include "KRClient/MailClient/Internal/Outbox.h"
#include "KRClient/MailClient/MailAttachment.h"
#include "KRClient/MailClient/MailClient.h"
#include "ZR/Debug.h"
#include "ZR/Time.h"

namespace KRC {

namespace M = Kerrow::Server::Mail;
using KRCB::Mailbox::MailboxChange;
using KRCB::Mailbox::ServerMailIds;
using KRCB::Mailbox::ServerMails;
using Guard = ZR::LockGuard<ZR::ReentrantLock>;

MailClientObserver::~MailClientObserver() = default;
MailClientErrorHandler::~MailClientErrorHandler() = default;

MailClientObserver::MailboxChanges::MailboxChanges(MailIds createdInbox, MailIds updatedInbox,
                                                   MailIds deletedInbox, MailIds createdSent,
                                                   MailIds updatedSent, MailIds deletedSent)
    : mCreatedInbox(std::move(createdInbox)),
      mUpdatedInbox(std::move(updatedInbox)),
      mDeletedInbox(std::move(deletedInbox)),
      mCreatedSent(std::move(createdSent)),
      mUpdatedSent(std::move(updatedSent)),
      mDeletedSent(std::move(deletedSent)) {}

MailClient::MailClient(KRCB::Mailbox::MailboxMonitor* monitor, KRCB::SignalClient* signalClient,
                       const KRCB::ProjectConnectionManagerInterface* connectionManager,
                       bool useCompletedLimit, unsigned int completedLimitNum,
                       std::unique_ptr<MailClientErrorHandler> errorHandler)
    : mMailsFile(connectionManager->GetCacheFolderLocation()),
      mMailboxMonitor(monitor),
      mSignalClient(signalClient),
      mOutbox(std::make_unique<Outbox>(connectionManager->GetCacheFolderLocation())),
      mUseCompletedLimit(useCompletedLimit),
      mCompletedLimitNum(completedLimitNum),
      mInbox(std::make_unique<Box>()),
      mSent(std::make_unique<Box>()),
      mInboxToCompleteChanges(std::make_unique<Internal::ChangeList>()),
      mInboxToReadChanges(std::make_unique<Internal::ChangeList>()),
      mSentToCompleteChanges(std::make_unique<Internal::ChangeList>()),
      mErrorHandler(std::move(errorHandler)) {
    if (!mErrorHandler)
        DBPrintf("Assertion failed: m_errorHandler != nullptr in KRC::MailClient::MailClient\n");
    mMailsFile = mMailsFile + IO::Name(kMailsFileName);
    monitor->Attach(static_cast<KRCB::Mailbox::MailboxMonitorObserver&>(*this));
    signalClient->Attach(static_cast<KRCB::PresenceObserver&>(*this));
    signalClient->Attach(static_cast<KRCB::SignalObserver&>(*this));
    ReadFromDisc();
    if (!monitor->IsRunning()) monitor->InitMailboxRevision(mInbox->revision, mSent->revision);
}

MailClient::~MailClient() {
    // Tasks first: a handler running on another thread finishes before the
    // parts it touches go, and none starts afterwards.
    ReleaseDependents();
    Close();
    KRCB::Mailbox::MailboxMonitorObserver::DetachFromSources();
    KRCB::PresenceObserver::DetachFromSources();
    KRCB::SignalObserver::DetachFromSources();
    DetachObservers();
    WriteToDisc();
}

void MailClient::Close() {
    if (KRCB::SignalClient* signals = mSignalClient.exchange(nullptr)) {
        signals->Detach(static_cast<KRCB::SignalObserver&>(*this));
        signals->Detach(static_cast<KRCB::PresenceObserver&>(*this));
    }
    // The detach waits for a walk of the monitor under way, and that walk may
    // be waiting for our lock inside MailboxChanged: so it is done before the
    // lock is taken. Once it returns no callback of the monitor comes.
    KRCB::Mailbox::MailboxMonitor* monitor = Monitor();
    if (monitor) monitor->Detach(static_cast<KRCB::Mailbox::MailboxMonitorObserver&>(*this));
    Guard guard(mLock);
    mMailboxMonitor = nullptr;
    mOnline = false;
}

KRCB::Mailbox::MailboxMonitor* MailClient::Monitor() const {
    return mMailboxMonitor.load();
}

bool MailClient::IsOnline() {
    Guard guard(mLock);
    return mOnline;
}

ZR::UniString MailClient::GetUserLoginName() const {
    KRCB::SignalClient* signals = mSignalClient;
    return signals ? signals->GetUserName() : ZR::UniString();
}

std::uint64_t MailClient::GetInboxRevision() const {
    Guard guard(mLock);
    return mInbox->revision;
}

std::uint64_t MailClient::GetSentRevision() const {
    Guard guard(mLock);
    return mSent->revision;
}

void MailClient::NotifyMailListChanged() {
    NotifyMailListChanged(MailboxChanges());
}

void MailClient::NotifyMailListChanged(const MailboxChanges& changes) {
    KRCB::Mailbox::MailboxMonitor* monitor = Monitor();
    if (!monitor || !monitor->IsRunning()) return;
    ForEachObserver([&](ZR::TS::EventObserver* observer) {
        if (auto* o = dynamic_cast<MailClientObserver*>(observer))
            o->MailListChanged(*this, changes);
    });
}

namespace {

// Merges one box; true if the table changed in a way the observers hear of.
bool Merge(ServerMails& created, ServerMails& updated, const ServerMailIds& deleted,
           std::uint64_t from, std::uint64_t to, std::uint64_t& revision,
           ZR::HashTable<ZR::UniString, ZR::Ref<ClientMail>>& table,
           ZR::HashSet<ZR::UniString>& deletions) {
    if (from == 0) {
        // The whole box. Wrapped before the table is touched, so that a mail
        // that can't be wrapped leaves table and revision as they were.
        ZR::HashTable<ZR::UniString, ZR::Ref<ClientMail>> whole;
        for (auto& mail : created) {
            ZR::Ref<ClientMail> wrapped(new ClientMail(mail));
            whole.Add(mail->GetId().ToString(), wrapped);
        }
        table = std::move(whole);
        revision = to;
        return !created.IsEmpty();
    }
    if (from != revision) {
        revision = to;
        return false;
    }
    ZR::PagedArray<ZR::Ref<ClientMail>, 8> added;
    for (ServerMails* list : {&created, &updated})
        for (auto& mail : *list) {
            const ZR::UniString& id = mail->GetId().ToString();
            if (ZR::Ref<ClientMail>* known = table.Find(id))
                (*known)->Update(mail);
            else
                table.Set(id, ZR::Ref<ClientMail>(new ClientMail(mail)));
        }
    bool removed = false;
    for (const auto& id : deleted) {
        if (table.Remove(id.ToString())) removed = true;
        deletions.Remove(id.ToString());
    }
    revision = to;
    return removed || !created.IsEmpty() || !updated.IsEmpty();
}

ServerMailIds IdsOf(const ServerMails& mails) {
    ServerMailIds ids;
    for (const auto& mail : mails) ids.Add(mail->GetId());
    return ids;
}

}  // namespace

void MailClient::MailboxChanged(ZR::Ref<MailboxChange>& change) {
    MailboxChange& c = *change;
    bool changed = false;
    {
        Guard guard(mLock);
        changed |= Merge(c.GetInboxCreatedMails(), c.GetInboxUpdatedMails(),
                         c.GetInboxDeletedMails(), c.GetInboxRevisionFrom(), c.GetInboxRevisionTo(),
                         mInbox->revision, mInbox->mails, mInbox->deleted);
        changed |= Merge(c.GetSentCreatedMails(), c.GetSentUpdatedMails(), c.GetSentDeletedMails(),
                         c.GetSentRevisionFrom(), c.GetSentRevisionTo(), mSent->revision,
                         mSent->mails, mSent->deleted);

        // The server has these now, whether or not the merge took them in.
        ZR::HashSet<ZR::UniString> arrived;
        Ids toComplete;
        for (const auto& mail : c.GetSentCreatedMails()) {
            const ZR::UniString& id = mail->GetId().ToString();
            arrived.Add(id);
            const ZR::Ref<ClientMail>* local = mSent->mails.Find(id);
            if (local && MailAttachment::IsAutomaticCompleteEnabledInMail(*local) &&
                !mail->IsCompleted())
                toComplete.Add(id);
        }
        if (!arrived.IsEmpty()) DeleteOutboxMails(arrived);

        // A merged mail carries the server's flags: what the server has not
        // confirmed yet goes back on it.
        for (const auto& id : mInboxToCompleteChanges->GetIds())
            if (auto* mail = mInbox->mails.Find(id)) (*mail)->SetCompleted();
        for (const auto& id : mInboxToReadChanges->GetIds())
            if (auto* mail = mInbox->mails.Find(id)) (*mail)->SetRead();
        for (const auto& id : mSentToCompleteChanges->GetIds())
            if (auto* mail = mSent->mails.Find(id)) (*mail)->SetCompleted();

        if (!toComplete.IsEmpty()) {
            SetSentMailsCompleted(toComplete, Task());
            DeleteCompletedMailsOverLimit();
        }
    }
    if (!changed) return;
    NotifyMailListChanged(MailboxChanges(
        IdsOf(c.GetInboxCreatedMails()), IdsOf(c.GetInboxUpdatedMails()), c.GetInboxDeletedMails(),
        IdsOf(c.GetSentCreatedMails()), IdsOf(c.GetSentUpdatedMails()), c.GetSentDeletedMails()));
}

void MailClient::ContactListChanged(ZR::Ref<const KRCB::Mailbox::ContactList>& list) {
    Ids gone;
    {
        Guard guard(mLock);
        for (const auto& entry : mSent->mails) {
            const ZR::Ref<ClientMail>& mail = entry.second;
            if (!mail->IsCompleted() && !MailAttachment::IsSenderNeedToBeActiveInMail(mail) &&
                !list->ContainsContact(mail->GetSender().GetOwnerId()))
                gone.Add(entry.first);
        }
    }
    if (!gone.IsEmpty()) SetSentMailsCompleted(gone, Task());
}

void MailClient::MailboxServerStatusChange(bool online) {
    {
        Guard guard(mLock);
        KRCB::Mailbox::MailboxMonitor* monitor = Monitor();
        if (!mOnline && online && monitor) {
            // Back to the server: the outbox mails go under the user's
            // address as it is now, and at the time they really leave.
            ZR::Ref<const KRCB::Mailbox::Contact> user = monitor->GetUserContact();
            M::Address address;
            if (user && user->GetInboxMailboxAddress(address)) mOutbox->UpdateSender(address);
        }
        mOnline = online;
    }
    if (!online) return;
    Tasks none;
    SendMails(none);
    SendMailChanges();
}

void MailClient::PresenceStateChanged(const KRCB::PresenceState& state) {
    KRCB::Mailbox::MailboxMonitor* monitor = Monitor();
    if (!monitor) return;
    if (state == KRCB::kPresenceOnline)
        monitor->Continue();
    else
        monitor->Suspend();
}

void MailClient::OnlineUserListChanged() {
    KRCB::Mailbox::MailboxMonitor* monitor = Monitor();
    if (!monitor) return;
    Tasks none;
    monitor->UpdateContactList(none);
}

bool MailClient::CheckSignalType(const KRCB::SignalId& id) const {
    return id == KRCB::kSignalMembersChanged || id == KRCB::kSignalMailsChanged ||
           id == KRCB::kSignalProjectStateRefused;
}

void MailClient::SignalReceived(KRCB::SignalClient*, const KRCB::Signal& signal) {
    KRCB::Mailbox::MailboxMonitor* monitor = Monitor();
    if (!monitor) return;
    Tasks none;
    switch (signal.GetId()) {
        case KRCB::kSignalMembersChanged:
            monitor->UpdateContactList(none);
            break;
        case KRCB::kSignalMailsChanged:
            monitor->UpdateMails(none);
            break;
        case KRCB::kSignalProjectStateRefused:
            monitor->ResetConnection();
            break;
        default:
            break;
    }
}

}  // namespace KRC
