#include "MailModel.h"

#include <algorithm>
#include <unordered_map>

namespace mailrandom {

namespace {

template <typename T>
bool Has(const std::vector<T>& list, const T& value) {
    return std::find(list.begin(), list.end(), value) != list.end();
}

std::string Joined(const std::vector<std::string>& ids, const char* separator = ",") {
    std::string text, sep;
    for (const auto& id : ids) text += sep + id, sep = separator;
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
    if (!std::erase_if(mails, [&](const Mail& m) { return m.id == id; })) return false;
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

// Only a change of state is pushed.
void Model::SetServerDown(bool down) {
    if (std::exchange(mDown, down) != down && mMonitor.registered)
        Queue(down ? Job::ServerDown : Job::Reconnect, down);
    Run();
}

// The monitor.

void Model::Queue(Job::Kind kind, Job job, bool front) {
    job.kind = kind;
    if (kind == Job::Fetch && job.handlers.empty()) {
        if (mMonitor.fetchQueued) return;
        mMonitor.fetchQueued = true;
    }
    mMonitor.queue.insert(front ? mMonitor.queue.begin() : mMonitor.queue.end(), std::move(job));
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

// A new connection: contacts first, then the status, then what changed.
void Model::Connect() {
    mMonitor.connected = false;
    if (mDown) return Tell(false);
    mMonitor.connected = mMonitor.registered = mMonitor.contactKnown = true;
    UpdateContacts();
    Tell(true);
    Fetch();
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
    if (job.kind == Job::ServerDown) return mMonitor.connected = false, Tell(false);
    if (job.kind == Job::Reconnect) return Connect();
    if (!EnsureConnected()) return Finish(job, 2);
    if (job.kind == Job::Request) {
        std::multiset<std::string> ids(job.ids.begin(), job.ids.end());
        mRequests.push_back(job.op + (job.box.empty() ? "" : " " + job.box) + " " +
                            Joined({ids.begin(), ids.end()}));
        std::deque<bool>& gates = mGates[job.op];
        const bool closed = !gates.empty() && gates.front();
        if (!gates.empty()) gates.pop_front();
        if (!closed) return Answer(job);
        mHeld = std::move(job);
        return;
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
            case Handler::InboxRead:
            case Handler::SentCompleted:
                if (outcome == 0)
                    Forget(
                        mClient.*(handler == Handler::InboxRead       ? &Client::inboxToRead
                                  : handler == Handler::SentCompleted ? &Client::sentToComplete
                                                                      : &Client::inboxToComplete),
                        job.ids);
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
    if (mMonitor.suspended != online) return;
    mMonitor.suspended = mMonitor.suspendPending = !online;
    if (online) Queue(Job::Reconnect, true);
    Run();
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
        for (const Mail& mail : *list)
            if (Mail* known = Find(table, mail.id))
                *known = mail;
            else
                table.push_back(mail);
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
    if (Outboxed(mail->id) || mClient.sent.Find(mail->id)) return;
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
         {Handler::ShowFlagError, Handler::SentCompleted}}};
    const Family& family = families[static_cast<int>(flag)];
    std::vector<std::string>& list = mClient.*family.list;
    for (const auto& id : ids) {
        if (Has(list, id)) continue;
        list.push_back(id);
        Mail* mail = (flag == Flag::CompleteSent ? mClient.sent : mClient.inbox).Find(id);
        if (!mail && flag == Flag::CompleteSent) mail = Outboxed(id);
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
// may go: the client's choice is the allowed one that matches its calls.
bool Model::Limit() {
    if (!mLimitOn) return false;
    std::vector<const Mail*> candidates = Countable();
    if (candidates.size() <= mLimit) return false;
    std::stable_sort(candidates.begin(), candidates.end(),
                     [](const Mail* a, const Mail* b) { return a->time < b->time; });
    const std::size_t go = candidates.size() - mLimit;
    const int edge = candidates[go - 1]->time;
    auto first = std::find_if(candidates.begin(), candidates.end(),
                              [&](const Mail* m) { return m->time == edge; });
    auto last =
        std::find_if(first, candidates.end(), [&](const Mail* m) { return m->time > edge; });
    std::vector<bool> pick(candidates.size(), false);  // whether each goes
    std::fill(pick.begin(), pick.begin() + static_cast<std::ptrdiff_t>(go), true);
    std::map<std::string, std::set<std::string>> threads;
    for (const Mail* mail : AllMails())
        if (!mail->thread.empty()) threads[mail->thread].insert(mail->id);
    Table* const tables[] = {&mClient.inbox, &mClient.sent};
    // Of the choices that match the client's calls, the one that explains most.
    struct Choice {
        std::vector<std::string> outbox, boxes[2], calls;
    } best, choice;
    int bestScore = -1;
    const auto from = pick.begin() + (first - candidates.begin());
    for (int tries = 0; tries < 100000; ++tries) {
        std::set<std::string> ids;
        choice = Choice();
        for (std::size_t i = 0; i < candidates.size(); ++i)
            if (pick[i] && Outboxed(candidates[i]->id))
                choice.outbox.push_back(candidates[i]->id);
            else if (pick[i])
                ids.insert(candidates[i]->id), ids.merge(std::set(threads[candidates[i]->thread]));
        for (const std::string& id : ids)
            for (int box = 0; box < 2; ++box)
                if (tables[box]->Find(id) && !tables[box]->deleted.count(id)) {
                    choice.boxes[box].push_back(id);
                    break;
                }
        std::set<std::string> left;  // the outbox when the calls are made
        for (const MailPtr& mail : mClient.outbox)
            if (!Has(choice.outbox, mail->id)) left.insert(mail->id);
        for (int box = 0; box < 2; ++box)
            if (!choice.boxes[box].empty())
                choice.calls.push_back((box ? "Sent " : "Inbox ") + Joined(choice.boxes[box]) +
                                       " | " + Joined({left.begin(), left.end()}));
        const auto& calls = choice.calls;
        const bool matches =
            mDeleteCalls + calls.size() <= seen.deletes.size() &&
            std::equal(calls.begin(), calls.end(), seen.deletes.begin() + mDeleteCalls) &&
            std::none_of(choice.outbox.begin(), choice.outbox.end(),
                         [&](auto& id) { return seen.outbox.count(id); });
        const int score = matches ? static_cast<int>(calls.size()) : -1;
        if (score > bestScore || tries == 0) best = choice, bestScore = score;
        if (!std::prev_permutation(from, from + (last - first))) break;
    }
    if (bestScore < 0 && mWrongChoice.empty())
        mWrongChoice = "limit " + std::to_string(mLimit) + ": e.g. outbox " + Joined(best.outbox) +
                       " deletes " + Joined(best.calls);
    const auto& [outbox, boxes, calls] = best;
    for (const std::string& id : outbox)
        std::erase_if(mClient.outbox, [&](const MailPtr& m) { return m->id == id; });
    for (int box = 0; box < 2; ++box)
        if (!boxes[box].empty()) DeleteRequest(boxes[box], box == 0, false);
    return true;
}

Mail* Model::Outboxed(const std::string& id) const {
    for (const MailPtr& mail : mClient.outbox)
        if (mail->id == id) return mail.get();
    return nullptr;
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

std::map<std::string, std::string> Model::View() const {
    auto shown = [](const Mail& mail) {
        return mail.id + ":" + (mail.read ? "r" : "-") + (mail.completed ? "c" : "-");
    };
    auto list = [](std::vector<std::string> items, bool sort = true) {
        if (sort) std::sort(items.begin(), items.end());
        return "[" + Joined(items, " ") + "]";
    };
    std::vector<std::string> boxes[2], outbox, all;
    for (int box = 0; box < 2; ++box) {
        const Table& table = box ? mClient.sent : mClient.inbox;
        for (const Mail& mail : table.mails)
            if (!table.deleted.count(mail.id)) boxes[box].push_back(shown(mail));
    }
    for (const MailPtr& mail : mClient.outbox) outbox.push_back(shown(*mail));
    for (const Mail* mail : AllMails()) all.push_back(mail->id);
    return {{"inbox", list(boxes[0])},
            {"sent", list(boxes[1])},
            {"outbox", list(outbox, false)},
            {"all mails", list(all)},
            {"inbox revision", std::to_string(mClient.inbox.revision)},
            {"sent revision", std::to_string(mClient.sent.revision)},
            {"online", std::to_string(mClient.online)},
            {"held", std::to_string(mHeld.has_value())},
            {"completed", std::to_string(Countable().size())},
            {"contacts", list({mMonitor.contacts.begin(), mMonitor.contacts.end()})},
            {"limit's choice", mWrongChoice}};
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
