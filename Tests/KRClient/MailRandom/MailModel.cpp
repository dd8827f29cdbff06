#include "MailModel.h"

#include <algorithm>
#include <map>
#include <optional>
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

std::vector<std::string> Sorted(std::vector<std::string> ids) {
    std::sort(ids.begin(), ids.end());
    return ids;
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
    UpdateContacts();
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

// A new monitor tells its first list, later ones only if they differ.
void Model::UpdateContacts() {
    if (std::exchange(mMonitor.contactsTold, true) && mMonitor.contacts == mUsers) return;
    mMonitor.contacts = mUsers;
    ++mCounts.contactsTold;
    ContactListChanged();
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
                            Joined(Sorted(job.ids)));
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
    if (job.kind == Job::Contacts) UpdateContacts();
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

void Model::Crash(bool mailsWritten) {
    if (mailsWritten) mStored.client = mClient;
    StartFromStored();
}

void Model::Kill(const std::vector<Mail>& sent, const std::string& readId, bool outboxNew,
                 bool mailsNew) {
    mStored.client = mClient;
    mStored.outbox.clear();
    for (const MailPtr& mail : mClient.outbox) mStored.outbox.push_back(*mail);
    if (outboxNew) mStored.outbox.insert(mStored.outbox.end(), sent.begin(), sent.end());
    if (mailsNew && readId != "-" && !Has(mStored.client.inboxToRead, readId)) {
        mStored.client.inboxToRead.push_back(readId);
        if (Mail* mail = mStored.client.inbox.Find(readId)) mail->read = true;
    }
    StartFromStored();
}

// The monitor stops, and what it still held ends canceled, where anyone is
// left to hear it. The new client starts from the files.
void Model::StartFromStored() {
    for (const Job& job : mMonitor.queue)
        mCounts.callerCancel +=
            std::count(job.handlers.begin(), job.handlers.end(), Handler::Caller);
    mClient = mStored.client;
    mClient.online = false;
    mClient.underWay.clear();
    mClient.inbox.deleted.clear();
    mClient.sent.deleted.clear();
    mClient.outbox.clear();
    for (const Mail& mail : mStored.outbox) mClient.outbox.push_back(std::make_shared<Mail>(mail));
    mMonitor = Monitor();
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
        for (const MailPtr& mail : mClient.outbox) mail->time = kNow, mail->from = "anna";
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
    if (!toComplete.empty()) SetFlag(Flag::CompleteSent, toComplete, false), Limit();
    mCounts.notified += inboxChanged || sentChanged;
}

void Model::SendMail(const MailPtr& mail, bool callerTask) {
    const bool goesNow = mMonitor.contactKnown;
    const bool known = std::any_of(mClient.outbox.begin(), mClient.outbox.end(),
                                   [&](const MailPtr& m) { return m->id == mail->id; }) ||
                       mClient.sent.Find(mail->id);
    if (known) return;
    if (goesNow) mail->time = kNow, mail->from = "anna";
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

void Model::Forget(std::vector<std::string>& list, const std::vector<std::string>& ids) {
    for (const auto& id : ids) {
        auto it = std::find(list.begin(), list.end(), id);
        if (it != list.end()) list.erase(it);
    }
}

// The flag goes on locally and into the list of changes at once; the limit
// runs after a completion, before any request.
void Model::SetFlag(Flag flag, const std::vector<std::string>& ids, bool callerTask) {
    if (ids.empty()) return;
    struct Family {
        std::vector<std::string> Client::*list;
        const char *op, *box;
        std::vector<Handler> handlers;
    } const families[] = {
        {&Client::inboxToRead, kRead, "Inbox", {Handler::ShowFlagError, Handler::InboxRead}},
        {&Client::inboxToComplete,
         kComplete,
         "Inbox",
         {Handler::InboxCompleted, Handler::ShowFlagError}},
        {&Client::sentToComplete,
         kComplete,
         "Sent",
         {Handler::ShowFlagError, Handler::SentCompleted}},
    };
    const Family& family = families[static_cast<int>(flag)];
    std::vector<std::string>& list = mClient.*family.list;
    for (const auto& id : ids) {
        if (Has(list, id)) continue;
        list.push_back(id);
        Mail* mail = (flag == Flag::CompleteSent ? mClient.sent : mClient.inbox).Find(id);
        for (const MailPtr& queued : mClient.outbox)
            if (!mail && flag == Flag::CompleteSent && queued->id == id) mail = queued.get();
        if (mail) (flag == Flag::Read ? mail->read : mail->completed) = true;
    }
    if (flag != Flag::Read) Limit();
    if (!mClient.online) {
        mCounts.callerCancel += callerTask;
    } else {
        std::vector<Handler> handlers = family.handlers;
        if (callerTask) handlers.push_back(Handler::Caller);
        FlagRequest(family.op, family.box, ids, handlers);
    }
    Run();
}

// Sent mails whose sender the list lacks are taken as completed.
void Model::ContactListChanged() {
    std::vector<std::string> gone;
    for (const Mail& mail : mClient.sent.mails)
        if (!mail.completed && !mMonitor.contacts.count(mail.from)) gone.push_back(mail.id);
    SetFlag(Flag::CompleteSent, gone, false);
}

std::vector<const Mail*> Model::AllMails() const {
    std::vector<const Mail*> all;
    std::set<std::string> seen;
    for (const Table* table : {&mClient.inbox, &mClient.sent})
        for (const Mail& mail : table->mails)
            if (!table->deleted.count(mail.id)) all.push_back(&mail), seen.insert(mail.id);
    for (const MailPtr& mail : mClient.outbox)
        if (seen.insert(mail->id).second) all.push_back(mail.get());
    return all;
}

std::vector<const Mail*> Model::Countable() const {
    const std::vector<const Mail*> all = AllMails();
    std::set<std::string> automatic;
    for (const Mail* mail : all)
        if (!mail->thread.empty() && mail->autoComplete) automatic.insert(mail->thread);
    std::vector<const Mail*> countable;
    for (const Mail* mail : all)
        if (mail->completed && (mail->autoComplete || !automatic.count(mail->thread)))
            countable.push_back(mail);
    return countable;
}

// Over the limit the oldest countable mails go, each with its whole thread;
// an outbox mail leaves the outbox alone. Of the mails at the edge time any
// may go: the choice is the client's, as its delete calls and outbox show.
bool Model::Limit() {
    if (!mLimitOn) return false;
    std::vector<const Mail*> candidates = Countable();
    if (candidates.size() <= mLimit) return false;
    std::stable_sort(candidates.begin(), candidates.end(),
                     [](const Mail* a, const Mail* b) { return a->time < b->time; });
    const std::size_t go = candidates.size() - mLimit;
    const int edge = candidates[go - 1]->time;
    std::vector<const Mail*> older, tied;
    for (const Mail* mail : candidates) (mail->time < edge ? older : tied).push_back(mail);
    std::erase_if(tied, [&](const Mail* mail) { return mail->time > edge; });
    std::map<std::string, std::vector<std::string>> threads;
    for (const Mail* mail : AllMails())
        if (!mail->thread.empty()) threads[mail->thread].push_back(mail->id);
    auto inOutbox = [&](const std::string& id) {
        return std::any_of(mClient.outbox.begin(), mClient.outbox.end(),
                           [&](const MailPtr& m) { return m->id == id; });
    };
    auto shown = [](const Table& table, const std::string& id) {
        return !table.deleted.count(id) && std::any_of(table.mails.begin(), table.mails.end(),
                                                       [&](const Mail& m) { return m.id == id; });
    };
    struct Effect {
        std::vector<std::string> outbox, inbox, sent, calls;
    };
    auto effect = [&](const std::vector<bool>& pick) {
        Effect e;
        std::set<std::string> boxes;
        std::vector<const Mail*> chosen = older;
        for (std::size_t i = 0; i < tied.size(); ++i)
            if (pick[i]) chosen.push_back(tied[i]);
        for (const Mail* mail : chosen) {
            if (inOutbox(mail->id)) {
                e.outbox.push_back(mail->id);
                continue;
            }
            if (!mail->thread.empty())
                boxes.insert(threads[mail->thread].begin(), threads[mail->thread].end());
            boxes.insert(mail->id);
        }
        for (const std::string& id : boxes)
            if (shown(mClient.inbox, id))
                e.inbox.push_back(id);
            else if (shown(mClient.sent, id))
                e.sent.push_back(id);
        if (!e.inbox.empty()) e.calls.push_back("Inbox " + Joined(e.inbox));
        if (!e.sent.empty()) e.calls.push_back("Sent " + Joined(e.sent));
        return e;
    };
    auto matches = [&](const Effect& e) {
        for (std::size_t i = 0; i < e.calls.size(); ++i)
            if (mDeleteCalls + i >= seen.deletes.size() ||
                seen.deletes[mDeleteCalls + i] != e.calls[i])
                return false;
        return std::none_of(e.outbox.begin(), e.outbox.end(),
                            [&](const std::string& id) { return seen.outbox.count(id); });
    };
    std::vector<bool> pick(tied.size(), false);
    std::fill(pick.begin(), pick.begin() + static_cast<std::ptrdiff_t>(go - older.size()), true);
    const Effect first = effect(pick);
    std::optional<Effect> found;
    for (int tries = 0; !found && tries < 100000; ++tries) {
        if (Effect e = effect(pick); matches(e)) found = std::move(e);
        if (!std::prev_permutation(pick.begin(), pick.end())) break;
    }
    if (!found && mWrongChoice.empty())
        mWrongChoice = "limit " + std::to_string(mLimit) + " over " +
                       std::to_string(candidates.size()) + ": allowed e.g. outbox " +
                       Joined(first.outbox) + " deletes " + Joined(first.calls);
    const Effect& e = found ? *found : first;
    for (const std::string& id : e.outbox)
        std::erase_if(mClient.outbox, [&](const MailPtr& m) { return m->id == id; });
    if (!e.inbox.empty()) DeleteRequest(e.inbox, true, false);
    if (!e.sent.empty()) DeleteRequest(e.sent, false, false);
    return true;
}

void Model::DeleteMails(const std::vector<std::string>& ids, bool inbox, bool callerTask) {
    if (ids.empty()) return;
    DeleteRequest(ids, inbox, callerTask);
    Run();
}

void Model::DeleteRequest(const std::vector<std::string>& ids, bool inbox, bool callerTask) {
    ++mDeleteCalls;
    Job job;
    job.op = kDelete;
    job.box = inbox ? "Inbox" : "Sent";
    job.ids = ids;
    job.handlers = {Handler::ShowDeleteError};
    if (callerTask) job.handlers.push_back(Handler::Caller);
    (inbox ? mClient.inbox : mClient.sent).deleted.insert(ids.begin(), ids.end());
    Queue(Job::Request, std::move(job));
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
    for (const Mail* mail : AllMails()) view.all.push_back(mail->id);
    std::sort(view.all.begin(), view.all.end());
    view.inboxRevision = mClient.inbox.revision;
    view.sentRevision = mClient.sent.revision;
    view.online = mClient.online;
    view.completed = static_cast<unsigned>(Countable().size());
    view.contacts = mMonitor.contacts;
    view.wrongChoice = mWrongChoice;
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
