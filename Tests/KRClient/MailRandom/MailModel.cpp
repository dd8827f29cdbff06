#include "MailModel.h"

#include <algorithm>
#include <unordered_map>
#include <utility>

namespace mailrandom {

namespace {

template <typename T>
bool Has(const std::vector<T>& list, const T& value) {
    return std::find(list.begin(), list.end(), value) != list.end();
}

std::string Joined(const std::vector<std::string>& ids) {
    std::string text, sep;
    for (const auto& id : ids) text += sep + id, sep = ",";
    return text;
}

std::vector<std::string> Unique(const std::vector<std::string>& ids) {
    std::vector<std::string> once;
    for (const auto& id : ids)
        if (!Has(once, id)) once.push_back(id);
    return once;
}

}  // namespace

// The server.

Mail* ServerBox::Find(const std::string& id) {
    for (Mail& mail : mails)
        if (mail.id == id) return &mail;
    return nullptr;
}

void ServerBox::Put(const Mail& mail) {
    if (Mail* known = Find(mail.id)) {
        *known = mail;
        Log(mail.id, Kind::Updated);
    } else {
        mails.push_back(mail);
        Log(mail.id, Kind::Created);
    }
}

bool ServerBox::Remove(const std::string& id) {
    auto it = std::find_if(mails.begin(), mails.end(), [&](const Mail& m) { return m.id == id; });
    if (it == mails.end()) return false;
    mails.erase(it);
    Log(id, Kind::Deleted);
    return true;
}

// A mail created since from and still there is created, one there before is
// updated, one there before and gone is deleted, in the order of first change.
ServerBox::Delta ServerBox::Changes(std::uint64_t from) {
    Delta delta;
    delta.to = revision;
    delta.whole = from == 0 || wholeNext || from > revision;
    wholeNext = false;
    if (delta.whole) {
        delta.created = mails;
        return delta;
    }
    delta.from = std::max(from, gapAt);
    std::vector<std::string> order;
    std::unordered_map<std::string, bool> createdSince;
    for (const Entry& entry : log) {
        if (entry.revision <= delta.from) continue;
        auto [it, added] = createdSince.emplace(entry.id, false);
        if (added) order.push_back(entry.id);
        if (entry.kind == Kind::Created) it->second = true;
    }
    for (const std::string& id : order) {
        if (Mail* mail = Find(id))
            (createdSince[id] ? delta.created : delta.updated).push_back(*mail);
        else if (!createdSince[id])
            delta.deleted.push_back(id);
    }
    return delta;
}

void Model::Push(const std::string& user) {
    if (user == "anna" && mMonitor.registered) Queue(Job::Fetch);
}

void Model::PutMail(const std::string& user, bool inbox, const Mail& mail) {
    Box(user, inbox).Put(mail);
    Push(user);
    Run();
}

void Model::RemoveMail(const std::string& user, bool inbox, const std::string& id) {
    if (Box(user, inbox).Remove(id)) Push(user);
    Run();
}

void Model::Gap(bool inbox) {
    ServerBox& box = Box("anna", inbox);
    box.gapAt = ++box.revision;
}

// Only a change of state is pushed.
void Model::SetServerDown(bool down) {
    if (std::exchange(mDown, down) != down && mMonitor.registered) {
        if (down)
            Queue(Job::ServerDown, true);
        else
            Queue(Job::Reconnect);
    }
    Run();
}

// The monitor.

void Model::Queue(Job::Kind kind, bool front) {
    Queue(kind, Job(), front);
}

void Model::Queue(Job::Kind kind, Job job, bool front) {
    job.kind = kind;
    if (kind == Job::Fetch && job.handlers.empty()) {
        if (mMonitor.fetchQueued) return;
        mMonitor.fetchQueued = true;
    }
    if (front)
        mMonitor.queue.push_front(std::move(job));
    else
        mMonitor.queue.push_back(std::move(job));
}

// The monitor's thread: one job after the other. What a job queues (the
// client calls in from its callbacks) waits for the jobs before it.
void Model::Run() {
    if (mRunning) return;
    mRunning = true;
    while (!mHeld) {
        if (mMonitor.suspendPending) {
            mMonitor.suspendPending = false;
            mMonitor.connected = mMonitor.registered = false;
            Tell(false);
            continue;
        }
        if (mMonitor.suspended || mMonitor.queue.empty()) break;
        Job job = std::move(mMonitor.queue.front());
        mMonitor.queue.pop_front();
        if (job.kind == Job::Fetch && job.handlers.empty()) mMonitor.fetchQueued = false;
        Process(job);
    }
    mRunning = false;
}

void Model::Tell(bool online) {
    if (mMonitor.reported == (online ? 1 : 0)) return;
    mMonitor.reported = online ? 1 : 0;
    StatusChange(online);
}

// A new connection: contacts first, then the status, then what changed.
void Model::Connect() {
    mMonitor.connected = false;
    if (mDown) return Tell(false);
    mMonitor.connected = mMonitor.registered = mMonitor.contactKnown = true;
    Tell(true);
    Fetch();
}

bool Model::EnsureConnected() {
    if (!mMonitor.connected) Connect();
    return mMonitor.connected;
}

void Model::Fetch() {
    ServerBox::Delta inbox = Box("anna", true).Changes(mMonitor.inboxRevision);
    ServerBox::Delta sent = Box("anna", false).Changes(mMonitor.sentRevision);
    if (!inbox.HasChange() && !sent.HasChange()) return;
    mMonitor.inboxRevision = inbox.to;
    mMonitor.sentRevision = sent.to;
    MailboxChanged(inbox, sent);
}

void Model::Process(Job& job) {
    switch (job.kind) {
        case Job::ServerDown:
            mMonitor.connected = false;
            return Tell(false);
        case Job::Reconnect:
            return Connect();
        default:
            break;
    }
    if (!EnsureConnected()) return Finish(job, 2);
    if (job.kind == Job::Request) {
        mRequests.push_back(job.op + (job.box.empty() ? "" : " " + job.box) + " " +
                            Joined(job.ids));
        std::deque<bool>& gates = mGates[job.op];
        const bool closed = !gates.empty() && gates.front();
        if (!gates.empty()) gates.pop_front();
        if (closed) {
            mHeld = std::move(job);
            return;
        }
        return Answer(job);
    }
    if (job.kind == Job::Fetch) Fetch();
    Finish(job, 0);
}

// The server's answer to a request that reached it: a scripted fault, a
// server gone meanwhile, or the change, which comes back as a change before
// the request ends.
void Model::Answer(const Job& job) {
    auto [first, last] = mFaults.equal_range(job.op);
    if (first != last) {
        const Fault fault = first->second;
        mFaults.erase(first, last);
        return Finish(job, fault == Fault::Cancel ? 1 : 2);
    }
    if (mDown) {
        mMonitor.connected = false;
        Tell(false);
        return Finish(job, 2);
    }
    Apply(job);
    Fetch();
    Finish(job, 0);
}

bool Model::IsHolding() const {
    if (mHeld) return true;
    for (const auto& [op, gates] : mGates)
        if (std::count(gates.begin(), gates.end(), true)) return true;
    return false;
}

void Model::Release() {
    for (auto& [op, gates] : mGates) std::fill(gates.begin(), gates.end(), false);
    if (!mHeld) return;
    Job job = std::move(*mHeld);
    mHeld.reset();
    mRunning = true;
    Answer(job);
    mRunning = false;
    Run();
}

// A request's effect on the server.
void Model::Apply(const Job& job) {
    const bool inbox = job.box == "Inbox";
    if (job.op == kSend) {
        for (const Mail& mail : job.mails) {
            Box("anna", false).Put(mail);
            Push("anna");
            Mail delivered = mail;
            delivered.read = delivered.completed = false;
            delivered.senderSet = false;
            for (const std::string& user : mail.to) Box(user, true).Put(delivered), Push(user);
        }
    } else if (job.op == kDelete) {
        for (const std::string& id : job.ids)
            if (Box("anna", inbox).Remove(id)) Push("anna");
    } else {
        bool changed = false;
        for (const std::string& id : Unique(job.ids)) {
            Mail* mail = Box("anna", inbox).Find(id);
            if (!mail) continue;
            bool& flag = job.op == kRead ? mail->read : mail->completed;
            if (flag) continue;
            flag = true;
            Box("anna", inbox).Log(id, ServerBox::Kind::Updated);
            changed = true;
        }
        if (changed) Push("anna");
    }
}

void Model::Finish(const Job& job, int outcome) {
    for (Handler handler : job.handlers) switch (handler) {
            case Handler::ShowSendError:
                mCounts.sendFailed += outcome == 2;
                break;
            case Handler::SendFinished:
                if (outcome != 0)
                    for (const auto& id : job.ids) mClient.underWay.erase(id);
                break;
            case Handler::ShowDeleteError:
            case Handler::ShowFlagError:
                (handler == Handler::ShowDeleteError ? mCounts.deleteFailed : mCounts.flagFailed) +=
                    outcome == 2;
                mCounts.notified += outcome == 0;
                break;
            case Handler::InboxCompleted:
                if (outcome == 0) Forget(mClient.inboxToComplete, job.ids);
                break;
            case Handler::InboxRead:
                if (outcome == 0) Forget(mClient.inboxToRead, job.ids);
                break;
            case Handler::SentCompleted:
                if (outcome == 0) Forget(mClient.sentToComplete, job.ids);
                break;
            case Handler::Caller:
                (outcome == 0   ? mCounts.callerSuccess
                 : outcome == 1 ? mCounts.callerCancel
                                : mCounts.callerFailure)++;
                break;
        }
}

// Suspended at once, left the server once the job under way has ended.
void Model::SetPresence(bool online) {
    if (!online) {
        if (mMonitor.suspended) return;
        mMonitor.suspended = mMonitor.suspendPending = true;
        return Run();
    }
    if (!mMonitor.suspended) return;
    mMonitor.suspended = mMonitor.suspendPending = false;
    Queue(Job::Reconnect, true);
    Run();
}

void Model::Start() {
    mMonitor.inboxRevision = mClient.inbox.revision;
    mMonitor.sentRevision = mClient.sent.revision;
    Queue(Job::Reconnect, true);
    Run();
}

// The client ends in order: its files are written, then the monitor stops
// and what it still held ends canceled, where anyone is left to hear it.
void Model::Restart() {
    StoreMails();
    mStored.outbox.clear();
    for (const MailPtr& mail : mClient.outbox) mStored.outbox.push_back(*mail);
    StartFromStored();
}

void Model::Crash(bool mailsWritten) {
    if (mailsWritten) StoreMails();
    StartFromStored();
}

void Model::Kill(const std::vector<Mail>& sent, const std::string& readId, bool outboxNew,
                 bool mailsNew) {
    StoreMails();
    mStored.outbox.clear();
    for (const MailPtr& mail : mClient.outbox) mStored.outbox.push_back(*mail);
    if (outboxNew) mStored.outbox.insert(mStored.outbox.end(), sent.begin(), sent.end());
    if (mailsNew && mStorage && readId != "-" && !Has(mStored.inboxToRead, readId)) {
        mStored.inboxToRead.push_back(readId);
        for (Mail& mail : mStored.inbox)
            if (mail.id == readId) mail.read = true;
    }
    StartFromStored();
}

void Model::StoreMails() {
    if (mStorage) {
        mStored.inbox = mClient.inbox.mails;
        mStored.sent = mClient.sent.mails;
        mStored.inboxRevision = mClient.inbox.revision;
        mStored.sentRevision = mClient.sent.revision;
        mStored.inboxToComplete = mClient.inboxToComplete;
        mStored.inboxToRead = mClient.inboxToRead;
        mStored.sentToComplete = mClient.sentToComplete;
    }
}

void Model::StartFromStored() {
    for (const Job& job : mMonitor.queue)
        mCounts.callerCancel +=
            std::count(job.handlers.begin(), job.handlers.end(), Handler::Caller);
    mClient = Client();
    mMonitor = Monitor();
    mClient.inbox.mails = mStored.inbox;
    mClient.sent.mails = mStored.sent;
    mClient.inbox.revision = mStored.inboxRevision;
    mClient.sent.revision = mStored.sentRevision;
    mClient.inboxToComplete = mStored.inboxToComplete;
    mClient.inboxToRead = mStored.inboxToRead;
    mClient.sentToComplete = mStored.sentToComplete;
    for (const Mail& mail : mStored.outbox) mClient.outbox.push_back(std::make_shared<Mail>(mail));
    Start();
}

// The client.

Mail* Model::Table::Find(const std::string& id) {
    for (Mail& mail : mails)
        if (mail.id == id) return &mail;
    return nullptr;
}

void Model::StatusChange(bool online) {
    if (!mClient.online && online && mMonitor.contactKnown)
        for (const MailPtr& mail : mClient.outbox) mail->senderSet = true;
    mClient.online = online;
    if (!online) return;
    SendMails({});
    SendMailChanges();
}

namespace {

// One box: the whole box, a gap that applies nothing, or what changed.
// True if the host hears of it.
bool Merge(const ServerBox::Delta& delta, std::vector<Mail>& table, std::uint64_t& revision,
           std::set<std::string>& deleted) {
    const std::uint64_t from = delta.whole ? 0 : delta.from;
    const std::uint64_t stored = std::exchange(revision, delta.to);
    if (from == 0) {
        table = delta.created;
        return !delta.created.empty();
    }
    if (from != stored) return false;
    for (const auto* list : {&delta.created, &delta.updated})
        for (const Mail& mail : *list) {
            auto it = std::find_if(table.begin(), table.end(),
                                   [&](const Mail& m) { return m.id == mail.id; });
            if (it != table.end())
                *it = mail;
            else
                table.push_back(mail);
        }
    bool removed = false;
    for (const std::string& id : delta.deleted) {
        removed |= std::erase_if(table, [&](const Mail& m) { return m.id == id; }) != 0;
        deleted.erase(id);
    }
    return removed || !delta.created.empty() || !delta.updated.empty();
}

}  // namespace

void Model::MailboxChanged(const ServerBox::Delta& inbox, const ServerBox::Delta& sent) {
    const bool inboxChanged =
        Merge(inbox, mClient.inbox.mails, mClient.inbox.revision, mClient.inbox.deleted);
    const bool sentChanged =
        Merge(sent, mClient.sent.mails, mClient.sent.revision, mClient.sent.deleted);

    // The server has these now, whether or not the merge took them in.
    std::vector<std::string> toComplete;
    for (const Mail& mail : sent.created) {
        std::erase_if(mClient.outbox, [&](const MailPtr& m) { return m->id == mail.id; });
        const Mail* local = mClient.sent.Find(mail.id);
        if (local && local->autoComplete && !mail.completed) toComplete.push_back(mail.id);
    }
    // What the server has not confirmed goes back on the merged mails.
    for (const auto& id : mClient.inboxToComplete)
        if (Mail* mail = mClient.inbox.Find(id)) mail->completed = true;
    for (const auto& id : mClient.inboxToRead)
        if (Mail* mail = mClient.inbox.Find(id)) mail->read = true;
    for (const auto& id : mClient.sentToComplete)
        if (Mail* mail = mClient.sent.Find(id)) mail->completed = true;
    if (!toComplete.empty()) SetSentMailsCompleted(toComplete, false);
    mCounts.notified += inboxChanged || sentChanged;
}

void Model::SendMail(const MailPtr& mail, bool callerTask) {
    const bool goesNow = mMonitor.contactKnown;
    const bool known = std::any_of(mClient.outbox.begin(), mClient.outbox.end(),
                                   [&](const MailPtr& m) { return m->id == mail->id; }) ||
                       mClient.sent.Find(mail->id);
    if (known) return;
    if (goesNow) mail->senderSet = true;
    mClient.outbox.push_back(mail);
    if (!goesNow) return;
    SendMails(callerTask ? std::vector<Handler>{Handler::Caller} : std::vector<Handler>{});
    Run();
}

void Model::SendMails(std::vector<Handler> tasks) {
    Job job;
    job.op = kSend;
    for (const MailPtr& mail : mClient.outbox)
        if (mClient.underWay.insert(mail->id).second) {
            job.ids.push_back(mail->id);
            job.mails.push_back(*mail);
        }
    if (job.ids.empty()) return;
    tasks.push_back(Handler::ShowSendError);
    tasks.push_back(Handler::SendFinished);
    job.handlers = std::move(tasks);
    Queue(Job::Request, std::move(job));
}

void Model::SendMailChanges() {
    if (!mClient.inboxToComplete.empty())
        FlagRequest(kComplete, "Inbox", mClient.inboxToComplete, {Handler::InboxCompleted});
    if (!mClient.sentToComplete.empty())
        FlagRequest(kComplete, "Sent", mClient.sentToComplete, {Handler::SentCompleted});
    if (!mClient.inboxToRead.empty())
        FlagRequest(kRead, "Inbox", mClient.inboxToRead, {Handler::InboxRead});
}

void Model::FlagRequest(const char* op, const char* box, std::vector<std::string> ids,
                        std::vector<Handler> handlers) {
    Job job;
    job.op = op;
    job.box = box;
    job.ids = Unique(ids);
    job.handlers = std::move(handlers);
    Queue(Job::Request, std::move(job));
}

void Model::AddChanges(std::vector<std::string>& list, const std::vector<std::string>& ids,
                       std::vector<std::string>* added) {
    for (const auto& id : ids)
        if (!Has(list, id)) {
            list.push_back(id);
            added->push_back(id);
        }
}

void Model::Forget(std::vector<std::string>& list, const std::vector<std::string>& ids) {
    for (const auto& id : ids) {
        auto it = std::find(list.begin(), list.end(), id);
        if (it != list.end()) list.erase(it);
    }
}

void Model::SetInboxMailsRead(const std::vector<std::string>& ids, bool callerTask) {
    if (ids.empty()) return;
    std::vector<std::string> added;
    AddChanges(mClient.inboxToRead, ids, &added);
    for (const auto& id : added)
        if (Mail* mail = mClient.inbox.Find(id)) mail->read = true;
    if (!mClient.online) {
        mCounts.callerCancel += callerTask;
        return;
    }
    std::vector<Handler> handlers{Handler::ShowFlagError, Handler::InboxRead};
    if (callerTask) handlers.push_back(Handler::Caller);
    FlagRequest(kRead, "Inbox", ids, handlers);
    Run();
}

void Model::SetInboxMailsCompleted(const std::vector<std::string>& ids, bool callerTask) {
    if (ids.empty()) return;
    std::vector<std::string> added;
    AddChanges(mClient.inboxToComplete, ids, &added);
    for (const auto& id : added)
        if (Mail* mail = mClient.inbox.Find(id)) mail->completed = true;
    if (!mClient.online) {
        mCounts.callerCancel += callerTask;
        return;
    }
    std::vector<Handler> handlers{Handler::InboxCompleted, Handler::ShowFlagError};
    if (callerTask) handlers.push_back(Handler::Caller);
    FlagRequest(kComplete, "Inbox", ids, handlers);
    Run();
}

void Model::SetSentMailsCompleted(const std::vector<std::string>& ids, bool callerTask) {
    if (ids.empty()) return;
    std::vector<std::string> added;
    AddChanges(mClient.sentToComplete, ids, &added);
    for (const auto& id : added) {
        if (Mail* mail = mClient.sent.Find(id)) {
            mail->completed = true;
            continue;
        }
        for (const MailPtr& mail : mClient.outbox)
            if (mail->id == id) {
                mail->completed = true;
                break;
            }
    }
    if (!mClient.online) {
        mCounts.callerCancel += callerTask;
        return;
    }
    std::vector<Handler> handlers{Handler::ShowFlagError, Handler::SentCompleted};
    if (callerTask) handlers.push_back(Handler::Caller);
    FlagRequest(kComplete, "Sent", ids, handlers);
    Run();
}

void Model::DeleteMails(const std::vector<std::string>& ids, bool inbox, bool callerTask) {
    if (ids.empty()) return;
    Job job;
    job.op = kDelete;
    job.box = inbox ? "Inbox" : "Sent";
    job.ids = ids;
    job.handlers = {Handler::ShowDeleteError};
    if (callerTask) job.handlers.push_back(Handler::Caller);
    (inbox ? mClient.inbox : mClient.sent).deleted.insert(ids.begin(), ids.end());
    Queue(Job::Request, std::move(job));
    Run();
}

// What the host sees.

Model::ClientView Model::View() const {
    ClientView view;
    auto shown = [](const Table& table, std::vector<std::string>& out) {
        for (const Mail& mail : table.mails)
            if (!table.deleted.count(mail.id))
                out.push_back(mail.id + ":" + (mail.read ? "r" : "-") +
                              (mail.completed ? "c" : "-"));
        std::sort(out.begin(), out.end());
    };
    shown(mClient.inbox, view.inbox);
    shown(mClient.sent, view.sent);
    for (const MailPtr& mail : mClient.outbox)
        view.outbox.push_back(mail->id + ":" + (mail->completed ? "c" : "-"));
    std::set<std::string> seen;
    for (const Table* table : {&mClient.inbox, &mClient.sent})
        for (const Mail& mail : table->mails)
            if (!table->deleted.count(mail.id)) view.all.push_back(mail.id), seen.insert(mail.id);
    for (const MailPtr& mail : mClient.outbox)
        if (seen.insert(mail->id).second) view.all.push_back(mail->id);
    std::sort(view.all.begin(), view.all.end());
    view.inboxRevision = mClient.inbox.revision;
    view.sentRevision = mClient.sent.revision;
    view.online = mClient.online;
    return view;
}

std::vector<std::string> Model::Candidates(bool inbox) const {
    std::vector<std::string> ids;
    const Table& table = inbox ? mClient.inbox : mClient.sent;
    for (const Mail& mail : table.mails) ids.push_back(mail.id);
    auto it = mServer.find(inbox ? "anna/I" : "anna/S");
    if (it != mServer.end())
        for (const Mail& mail : it->second.mails) ids.push_back(mail.id);
    if (!inbox)
        for (const MailPtr& mail : mClient.outbox) ids.push_back(mail->id);
    return Unique(ids);
}

}  // namespace mailrandom
