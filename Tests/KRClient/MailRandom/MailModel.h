#pragma once
// A reference of what the mail client promises, small enough to read in one
// go: the server's boxes, the mailbox monitor's queue, connection and contact
// list, and the client's tables, outbox, lists of changes, deletions under way
// and limit on completed mails. It is written apart from the client and
// shares none of its code, so that after each step of a random sequence the
// two can be compared.
//
// The server and the monitor are modelled as far as they decide what the
// client is given: a fetch answers what changed after a revision, the whole
// box, or a gap; requests run one after the other, each followed by a fetch;
// a suspended monitor keeps its queue; a monitor that left the server hears
// no pushes. What the client does with that is its own promise.

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace mailrandom {

// Sent times: 0 unset, small ones set by the server's side, kNow by the
// client. The client's all tie: they fall within a second or two.
constexpr int kNow = 1 << 30;

struct Mail {
    Mail() = default;
    explicit Mail(std::string mailId) : id(std::move(mailId)) {}
    std::string id;
    bool read = false;
    bool completed = false;
    bool autoComplete = true;     // no attachment forbids the client to complete it
    std::vector<std::string> to;  // logins
    std::string from, thread;     // sender's login, thread id; empty for none
    int time = 0;
};
using MailPtr = std::shared_ptr<Mail>;

inline Mail* Find(std::vector<Mail>& mails, const std::string& id) {
    auto it = std::find_if(mails.begin(), mails.end(), [&](const Mail& m) { return m.id == id; });
    return it == mails.end() ? nullptr : &*it;
}

// One mailbox of the server: mails in order of arrival, a revision that each
// change raises, and the log from which fetches are answered.
struct ServerBox {
    enum class Kind { Created, Updated, Deleted };
    struct Entry {
        std::uint64_t revision;
        std::string id;
        Kind kind;
    };
    struct Delta {
        bool whole = false;
        std::uint64_t from = 0, to = 0;
        std::vector<Mail> created, updated;
        std::vector<std::string> deleted;
        bool HasChange() const { return whole || from != to; }
    };

    std::vector<Mail> mails;
    std::uint64_t revision = 0;
    std::uint64_t gapAt = 0;
    bool wholeNext = false;
    std::vector<Entry> log;

    Mail* Find(const std::string& id) { return mailrandom::Find(mails, id); }
    void Put(const Mail& mail);
    bool Remove(const std::string& id);
    void Log(const std::string& id, Kind kind) { log.push_back({++revision, id, kind}); }
    Delta Changes(std::uint64_t from);
};

// What a request's handlers and the caller's task do with its end.
enum class Handler {
    ShowSendError,
    SendFinished,
    ShowDeleteError,
    ShowFlagError,
    InboxCompleted,
    InboxRead,
    SentCompleted,
    Caller
};

// What the host hears; atomic, since the client's side is heard on any thread.
struct Counts {
    std::atomic<int> sendFailed{0}, deleteFailed{0}, flagFailed{0};
    std::atomic<int> callerSuccess{0}, callerCancel{0}, callerFailure{0};
    std::atomic<int> notified{0};      // calls of the client's observers
    std::atomic<int> contactsTold{0};  // the monitor's calls of ContactListChanged
    std::atomic<int> overLimit{0};     // the host's calls of the limit that answered true
};

enum class Fault { Fail, Cancel };

class Model {
public:
    // The request operations of the mail server, as faults name them.
    static constexpr const char* kSend = "SendMails";
    static constexpr const char* kRead = "SetMailsRead";
    static constexpr const char* kComplete = "SetMailsCompleted";
    static constexpr const char* kDelete = "DeleteMails";

    Model(bool limitOn, unsigned limit) : mLimitOn(limitOn), mLimit(limit) {}

    // What the client did where it may choose among mails of one sent time: its
    // delete calls in order ("box id,id | outbox as it was, id,id", ids sorted),
    // and its outbox at the end of the step. The limit takes a choice that matches.
    struct Witness {
        std::vector<std::string> deletes;
        std::set<std::string> outbox;
    } seen;

    // The server, before or between steps. user is "anna" (the client's
    // user, whose boxes the monitor follows) or "bert".
    ServerBox& Box(const std::string& user, bool inbox) {
        return mServer[user + (inbox ? "/I" : "/S")];
    }
    void PutMail(const std::string& user, bool inbox, const Mail& mail) {
        Box(user, inbox).Put(mail), Push(user), Run();
    }
    void RemoveMail(const std::string& user, bool inbox, const std::string& id) {
        if (Box(user, inbox).Remove(id)) Push(user);
        Run();
    }
    void Gap(bool inbox) { Box("anna", inbox).gapAt = ++Box("anna", inbox).revision; }
    void WholeNext(bool inbox) { Box("anna", inbox).wholeNext = true; }
    void SetServerDown(bool down);
    void AddUser(const std::string& login) { mUsers.insert(login); }
    void ArmFault(const std::string& op, Fault fault) { mFaults.emplace(op, fault); }
    // A gate for the next call of op that has none yet: the call waits at
    // the server until Release, and the monitor waits with it. Released
    // gates stay until a call has passed them.
    void Hold(const std::string& op) { mGates[op].push_back(true); }
    void Release();
    bool IsHolding() const;

    // The client's start (a monitor that is not running yet is started).
    void Start() {
        mMonitor.inboxRevision = mClient.inbox.revision;
        mMonitor.sentRevision = mClient.sent.revision;
        Queue(Job::Reconnect, true), Run();
    }
    // An end in order, and a new start on the same files.
    void Restart() { Kill({}, "-", false, false); }
    // The process dies as it ends: before it writes, or (mailsWritten) after
    // "Mails.dat" and before "Outbox.dat". What it did not write stays as the
    // last end in order left it.
    void Crash(bool mailsWritten) {
        if (mailsWritten) mStored.client = mClient;
        StartFromStored();
    }
    // An end in order, then another host process on the files that sends
    // mails and sets readId read ("-": none) offline, and is killed as it
    // writes: each of its files is new or as it was.
    void Kill(const std::vector<Mail>& sent, const std::string& readId, bool outboxNew,
              bool mailsNew);

    // The host.
    void SendMail(const MailPtr& mail, bool callerTask);
    enum class Flag { Read, CompleteInbox, CompleteSent };
    void SetFlag(Flag flag, const std::vector<std::string>& ids, bool callerTask);
    void DeleteMails(const std::vector<std::string>& ids, bool inbox, bool callerTask) {
        if (!ids.empty()) DeleteRequest(ids, inbox, callerTask), Run();
    }
    // The limit's settings, and its run by the host.
    void SetLimit(bool on, unsigned limit) { mLimitOn = on, mLimit = limit; }
    void DeleteOverLimit() { mCounts.overLimit += Limit(), Run(); }

    // Signals and presence, as the signal client hands them on.
    void UpdateMails() { Queue(Job::Fetch), Run(); }
    void ResetConnection() { Queue(Job::Reconnect, true), Run(); }
    void UpdateContactList() { Queue(Job::Contacts), Run(); }
    void SetPresence(bool online);

    // What the host sees, by name: boxes as "[id:rc ...]", sorted but for
    // the outbox; "limit's choice" names a choice of the client's that no
    // allowed one matches.
    std::map<std::string, std::string> View() const;
    // The server's requests of the four operations, "op box id,id", since the last take.
    std::vector<std::string> TakeRequests() { return std::exchange(mRequests, {}); }
    const Counts& GetCounts() const { return mCounts; }
    // A client's first calls of its observers come before anyone can attach.
    void SetNotified(int count) { mCounts.notified = count; }
    bool IsSuspended() const { return mMonitor.suspended; }
    bool IsServerDown() const { return mDown; }

    // Ids the steps may aim at: the client's and the server's of a box.
    std::vector<std::string> Candidates(bool inbox) const;

private:
    struct Job {
        enum Kind { Request, Contacts, Fetch, Reconnect, ServerDown } kind = Request;
        std::string op, box;
        std::vector<std::string> ids;
        std::vector<Mail> mails;  // a send's mails as they went
        std::vector<Handler> handlers;
    };
    struct Table {
        std::vector<Mail> mails;
        std::uint64_t revision = 0;
        std::set<std::string> deleted;
        Mail* Find(const std::string& id) { return mailrandom::Find(mails, id); }
    };
    struct Client {
        bool online = false;
        Table inbox, sent;
        std::vector<std::string> inboxToComplete, inboxToRead, sentToComplete;
        std::vector<MailPtr> outbox;
        std::set<std::string> underWay;
    };
    struct Monitor {
        bool suspended = false, suspendPending = false;
        bool connected = false, registered = false, contactKnown = false;
        std::optional<bool> reported;
        bool fetchQueued = false, contactsTold = false;
        std::set<std::string> contacts;
        std::uint64_t inboxRevision = 0, sentRevision = 0;
        std::deque<Job> queue;
    };
    struct Stored {  // what the last end in order wrote
        Client client;
        std::vector<Mail> outbox;
    };

    void Queue(Job::Kind kind, Job job, bool front = false);
    void Queue(Job::Kind kind, bool front = false) { Queue(kind, Job(), front); }
    void Run();
    void Process(Job& job);
    bool EnsureConnected() {
        if (!mMonitor.connected) Connect();
        return mMonitor.connected;
    }
    void Connect();
    void Tell(bool online) {  // only a change
        if (std::exchange(mMonitor.reported, online) != online) StatusChange(online);
    }
    void Fetch();
    void Apply(const Job& job);
    void Answer(const Job& job);
    void Finish(const Job& job, int outcome);  // 0 success, 1 cancel, 2 failure
    void Push(const std::string& user) {
        if (user == "anna" && mMonitor.registered) Queue(Job::Fetch);
    }
    void StartFromStored();
    void UpdateContacts();

    // The client's side.
    void ContactListChanged();
    std::vector<const Mail*> AllMails() const;
    std::vector<const Mail*> Countable() const;
    bool Limit();
    Mail* Outboxed(const std::string& id) const;
    void DeleteRequest(const std::vector<std::string>& ids, bool inbox, bool callerTask);
    void StatusChange(bool online);
    void MailboxChanged(const ServerBox::Delta& inbox, const ServerBox::Delta& sent);
    void SendMails(std::vector<Handler> tasks);
    void SendMailChanges();
    void FlagRequest(const char* op, const char* box, std::vector<std::string> ids,
                     std::vector<Handler> handlers);
    static void Forget(std::vector<std::string>& list, const std::vector<std::string>& ids);

    bool mLimitOn;
    unsigned mLimit;
    std::set<std::string> mUsers{"anna", "bert"};
    std::size_t mDeleteCalls = 0;
    std::string mWrongChoice;
    bool mDown = false;
    bool mRunning = false;
    std::map<std::string, std::deque<bool>> mGates;  // op: closed or not, in order
    std::optional<Job> mHeld;
    std::map<std::string, ServerBox> mServer;
    std::multimap<std::string, Fault> mFaults;
    Client mClient;
    Monitor mMonitor;
    Stored mStored;
    Counts mCounts;
    std::vector<std::string> mRequests;
};

}  // namespace mailrandom
