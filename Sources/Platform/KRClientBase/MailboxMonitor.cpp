// The mailbox monitor's queue and thread. Callers only queue; the thread
// connects, sends, fetches and calls the observers, so that no caller ever
// waits for the server or for an observer, and the mail client may call in
// from its callbacks while it holds its lock.
#include "KRCB/MailboxMonitor.h"

#include <chrono>
#include <condition_variable>
#include <deque>
#include <string>
#include <thread>
#include <unordered_map>

#include "KRCB/Clients.h"
#include "KRCB/Internal/ClientSession.h"
#include "KRCB/Internal/Transport.h"
#include "KRCB/Paths.h"

namespace KRCB::Mailbox {

namespace M = Kerrow::Server::Mail;
using Internal::MonitorCore;
using KRCB::Internal::Data;

namespace Internal {

struct Job {
    enum class Kind { Request, Contacts, Fetch, Reconnect, ServerDown };
    Job(Kind kind, const char* op = nullptr, const char* what = "", Data params = Data::object(),
        MailboxEventHandlerTasks tasks = {})
        : kind(kind), op(op), what(what), params(std::move(params)), tasks(std::move(tasks)) {}
    Kind kind;
    const char* op = nullptr;  ///< a Request's operation
    const char* what = "";     ///< for the failure's text: "send the mails"
    Data params = Data::object();
    MailboxEventHandlerTasks tasks;
};

struct MonitorCore {
    MailboxMonitor* owner = nullptr;
    bool hasServer = false;
    ZR::UniString serverUrl, userName;
    ZR::UniString refreshToken;  ///< under mutex; never logged
    ZR::Ref<ContactFactory> factory;

    std::mutex mutex;
    std::condition_variable wake;
    std::deque<Job> queue;
    // Between jobs or not: for WaitUntilIdle.
    bool busy = false;
    std::condition_variable idle;
    bool running = false;
    bool stopping = false;
    bool suspended = false;
    bool suspendPending = false;
    bool fetchQueued = false;
    std::thread thread;
    std::atomic<std::uint64_t> inboxRevision{0};
    std::atomic<std::uint64_t> sentRevision{0};
    std::atomic<bool> online{false};

    // The thread's own.
    ZR::Ref<Management::PortalServerClient> client;
    std::string monitorId;
    int reported = -1;  ///< the status last told: -1 none yet, 0 offline, 1 online
    bool contactsTold = false;

    void Queue(Job job, bool front = false) {
        std::lock_guard<std::mutex> lock(mutex);
        if (job.kind == Job::Kind::Fetch && job.tasks.IsEmpty()) {
            if (fetchQueued) return;
            fetchQueued = true;
        }
        if (front)
            queue.push_front(std::move(job));
        else
            queue.push_back(std::move(job));
        wake.notify_all();
    }

    void Run();
    void Process(Job& job);
    bool EnsureConnected();
    void Connect();
    void Leave(const std::string& id);
    void Disconnect(bool leave);
    void Fetch();
    void FetchQuietly();
    void UpdateContacts();
    void Tell(bool nowOnline);
    Data Call(const char* op, Data params = Data::object());
};

namespace {

std::mutex& RegistryMutex() {
    static std::mutex mutex;
    return mutex;
}

std::unordered_map<std::string, std::weak_ptr<MonitorCore>>& Registry() {
    static std::unordered_map<std::string, std::weak_ptr<MonitorCore>> registry;
    return registry;
}

void Finish(MailboxEventHandlerTasks& tasks, MailboxEventHandlerTask::Result result,
            const ZR::Ref<MailboxMonitorException>& exception = {}) {
    for (ZR::Ref<MailboxEventHandlerTask>& task : tasks) {
        if (!task) continue;
        if (result == MailboxEventHandlerTask::Result::Success)
            task->SetSuccessfulResult();
        else if (result == MailboxEventHandlerTask::Result::Canceled)
            task->SetCanceledResult();
        else
            task->SetFailedResult(exception);
        try {
            task->Run();
        } catch (const ZR::ZRException& e) {
            // One handler's failure must not keep the others from their result.
            Kerrow::Common::DebugPrintEx(e);
        } catch (...) {
        }
    }
}

ZR::Ref<MailboxMonitorException> Failure(const std::string& what, const ZR::ZRException* cause) {
    const ZR::UniString text("Failed to " + what +
                             (cause ? ": " + cause->GetMessage().Std() : std::string()));
    return cause ? ZR::Ref<MailboxMonitorException>(
                       new MailboxMonitorException(text, ZR_HERE, *cause))
                 : ZR::Ref<MailboxMonitorException>(new MailboxMonitorException(text, ZR_HERE));
}

bool IsConnectionLoss(const ZR::ZRException& e) {
    return dynamic_cast<const Kerrow::PortalServer::Client::ConnectionFailedException*>(&e) ||
           dynamic_cast<const Communication::Client::ClientConnectionException*>(&e);
}

bool IsCancel(const ZR::ZRException& e) {
    return dynamic_cast<const ZR::InterruptedException*>(&e) ||
           dynamic_cast<const ZR::InterruptedIOException*>(&e);
}

void ReadBox(const Data& box, ServerMails& created, ServerMails& updated, ServerMailIds& deleted) {
    for (const Data& bytes : box.at("created"))
        created.Add(ZR::Ref<M::Mail>::Make(M::FromStoredBytes(bytes.get_binary())));
    for (const Data& bytes : box.at("updated"))
        updated.Add(ZR::Ref<M::Mail>::Make(M::FromStoredBytes(bytes.get_binary())));
    for (const Data& id : box.at("deleted"))
        deleted.Add(M::MailId(ZR::UniString(id.get<std::string>())));
}

bool HasChange(const Data& box) {
    return box.at("whole").get<bool>() || box.at("from") != box.at("to");
}

MailboxSessions ReadSessions(const Data& data) {
    MailboxSessions sessions;
    for (const auto& [key, list] : data.items()) {
        ZR::PagedArray<M::MailboxSessionInfo> infos;
        for (const Data& s : list)
            infos.Add(M::MailboxSessionInfo(
                ZR::UniString(s.at("session").get<std::string>()),
                M::MailboxId(ZR::UniString(s.at("mailbox").get<std::string>()))));
        sessions.Set(ZR::UniString(key), infos);
    }
    return sessions;
}

}  // namespace

Data MonitorCore::Call(const char* op, Data params) {
    return client->GetSession().Call(op, std::move(params));
}

void MonitorCore::Tell(bool nowOnline) {
    online = nowOnline;
    if (reported == (nowOnline ? 1 : 0)) return;
    reported = nowOnline ? 1 : 0;
    owner->NotifyServerStatus(nowOnline);
}

void MonitorCore::Leave(const std::string& id) {
    if (id.empty()) return;
    {
        std::lock_guard<std::mutex> lock(RegistryMutex());
        Registry().erase(id);
    }
    if (!client) return;
    try {
        Call(KRCB::Internal::Op::kMailDisconnect, {{"monitorId", id}});
    } catch (...) {
        // Leaving a server that is gone needs no answer.
    }
}

void MonitorCore::Disconnect(bool leave) {
    // A lost connection keeps the monitor's id registered, so that the
    // server's notice of its return still finds it.
    if (leave) Leave(monitorId), monitorId.clear();
    client.Reset();
}

// The old id is left only once a new one stands: a monitor that can't
// reconnect stays reachable by the server's notice.
void MonitorCore::Connect() {
    client.Reset();
    if (!hasServer) {
        Tell(false);
        return;
    }
    ZR::UniString token;
    {
        std::lock_guard<std::mutex> lock(mutex);
        token = refreshToken;
    }
    try {
        client =
            Management::PortalServerClientFactory::Create(serverUrl, userName, token, false, false);
        Data result = Call(KRCB::Internal::Op::kMailConnect);
        Leave(monitorId);
        monitorId = result.at("monitorId").get<std::string>();
        {
            std::lock_guard<std::mutex> lock(RegistryMutex());
            Registry()[monitorId] = owner->mCore;
        }
        // Contacts first: whoever hears of the way back asks for the user's contact.
        UpdateContacts();
    } catch (const ZR::ZRException& e) {
        Kerrow::Common::DebugPrintEx(e);
        Disconnect(false);
        Tell(false);
        return;
    } catch (const std::exception&) {
        Disconnect(false);
        Tell(false);
        return;
    }
    Tell(true);
    FetchQuietly();
}

void MonitorCore::FetchQuietly() {
    try {
        Fetch();
    } catch (const ZR::ZRException& e) {
        // A refused fetch is retried by the next change; only a lost server ends the connection.
        Kerrow::Common::DebugPrintEx(e);
        if (IsConnectionLoss(e)) {
            Disconnect(false);
            Tell(false);
        }
    } catch (const std::exception&) {
    }
}

bool MonitorCore::EnsureConnected() {
    if (!client) Connect();
    return static_cast<bool>(client);
}

void MonitorCore::Fetch() {
    Data result =
        Call(KRCB::Internal::Op::kGetMailboxChanges,
             {{"inboxRevision", inboxRevision.load()}, {"sentRevision", sentRevision.load()}});
    const Data& inbox = result.at("inbox");
    const Data& sent = result.at("sent");
    if (!HasChange(inbox) && !HasChange(sent)) return;
    ZR::Ref<MailboxChange> change(new MailboxChange);
    ReadBox(inbox, change->GetInboxCreatedMails(), change->GetInboxUpdatedMails(),
            change->GetInboxDeletedMails());
    ReadBox(sent, change->GetSentCreatedMails(), change->GetSentUpdatedMails(),
            change->GetSentDeletedMails());
    change->SetInboxRevisions(inbox.at("from").get<std::uint64_t>(),
                              inbox.at("to").get<std::uint64_t>());
    change->SetSentRevisions(sent.at("from").get<std::uint64_t>(),
                             sent.at("to").get<std::uint64_t>());
    inboxRevision = change->GetInboxRevisionTo();
    sentRevision = change->GetSentRevisionTo();
    owner->NotifyMailboxChanged(change);
}

void MonitorCore::UpdateContacts() {
    Data result = Call(KRCB::Internal::Op::kGetMailContacts);
    const ZR::UniString userId = client->GetSession().userId;
    if (!factory) return;
    ZR::Ref<const ContactList> old = owner->GetContactList();
    ZR::PagedArray<ZR::UniString> ownerIds;
    for (const Data& entry : result)
        ownerIds.Add(ZR::UniString(entry.at("ownerId").get<std::string>()));
    ZR::Ref<Management::PortalServerNonTransactionalQueryGuard> guard;
    factory->PreCheckOwners(old->GetContactOwnerIds(), ownerIds, client, guard);
    ZR::Ref<ContactList> list(new ContactList);
    bool changed = !contactsTold;
    for (const Data& entry : result) {
        const ZR::UniString ownerId(entry.at("ownerId").get<std::string>());
        MailboxIds mailboxes;
        for (const Data& id : entry.at("mailboxes"))
            mailboxes.Add(M::MailboxId(ZR::UniString(id.get<std::string>())));
        const MailboxSessions active = ReadSessions(entry.at("activeSessions"));
        const MailboxSessions sessions = ReadSessions(entry.at("sessions"));
        SessionProperties properties;
        for (const auto& [session, props] : entry.at("properties").items()) {
            ZR::HashTable<ZR::UniString, ZR::UniString> table;
            for (const auto& [key, value] : props.items())
                table.Set(ZR::UniString(key), ZR::UniString(value.get<std::string>()));
            properties.Set(ZR::UniString(session), table);
        }
        ZR::Ref<const Contact> before = old->GetContact(ownerId);
        ZR::Ref<const Contact> contact =
            before ? factory->ReCreateContact(before, ownerId, mailboxes, active, sessions,
                                              properties, client, guard)
                   : factory->CreateContact(ownerId, mailboxes, active, sessions, properties,
                                            client, guard);
        if (!contact) continue;
        if (!before || !before->SimilarContact(*contact) || !contact->SimilarContact(*before))
            changed = true;
        list->AddContact(contact);
    }
    guard.Reset();
    changed = changed || list->GetSize() != old->GetSize();
    owner->SetContactList(list, userId);
    if (!changed) return;
    contactsTold = true;
    owner->NotifyContactListChanged();
}

void MonitorCore::Process(Job& job) {
    using Result = MailboxEventHandlerTask::Result;
    switch (job.kind) {
        case Job::Kind::ServerDown:
            Disconnect(false);
            Tell(false);
            return;
        case Job::Kind::Reconnect:
            Connect();
            Finish(job.tasks, client ? Result::Success : Result::Failed,
                   Failure("reach the mail server", nullptr));
            return;
        default:
            break;
    }
    if (!EnsureConnected()) {
        Finish(job.tasks, Result::Failed, Failure(job.what, nullptr));
        return;
    }
    try {
        if (job.kind == Job::Kind::Request) {
            job.params["monitorId"] = monitorId;
            Call(job.op, job.params);
            // The server changed: what the request did comes back as a change
            // first. The request stands whatever the fetch meets.
            FetchQuietly();
        } else if (job.kind == Job::Kind::Contacts) {
            UpdateContacts();
        } else {
            Fetch();
        }
        Finish(job.tasks, Result::Success);
    } catch (const ZR::ZRException& e) {
        if (IsCancel(e)) {
            Finish(job.tasks, Result::Canceled);
            return;
        }
        if (IsConnectionLoss(e)) {
            Disconnect(false);
            Tell(false);
        }
        Finish(job.tasks, Result::Failed, Failure(job.what, &e));
    } catch (const std::exception& e) {
        const ZR::ZRException cause(ZR::UniString(e.what()), ZR_HERE);
        Finish(job.tasks, Result::Failed, Failure(job.what, &cause));
    }
}

void MonitorCore::Run() {
    std::unique_lock<std::mutex> lock(mutex);
    while (true) {
        wake.wait(lock,
                  [this] { return stopping || suspendPending || (!suspended && !queue.empty()); });
        if (stopping) break;
        busy = true;
        if (suspendPending) {
            suspendPending = false;
            lock.unlock();
            Disconnect(true);
            Tell(false);
            lock.lock();
        } else {
            Job job = std::move(queue.front());
            queue.pop_front();
            if (job.kind == Job::Kind::Fetch && job.tasks.IsEmpty()) fetchQueued = false;
            lock.unlock();
            Process(job);
            lock.lock();
        }
        busy = false;
        idle.notify_all();
    }
    lock.unlock();
    Disconnect(true);
}

}  // namespace Internal

MailboxMonitor::MailboxMonitor() : mContactList(new ContactList), mCore(new MonitorCore) {
    mCore->owner = this;
}

MailboxMonitor::MailboxMonitor(const IO::Location& location, const ZR::Ref<ContactFactory>& factory)
    : MailboxMonitor() {
    mCore->hasServer = location.IsServer();
    mCore->serverUrl = KRCB::GetPortalServerUrl(location);
    mCore->userName = location.GetUserName();
    mCore->refreshToken = location.GetPassword();
    mCore->factory = factory;
}

MailboxMonitor::~MailboxMonitor() {
    Stop();
    DetachObservers();
}

ZR::Ref<const ContactList> MailboxMonitor::GetContactList() const {
    std::lock_guard<std::mutex> lock(mContactsMutex);
    return mContactList;
}

ZR::Ref<const Contact> MailboxMonitor::GetUserContact() const {
    std::lock_guard<std::mutex> lock(mContactsMutex);
    return mUserId.IsEmpty() ? ZR::Ref<const Contact>() : mContactList->GetContact(mUserId);
}

void MailboxMonitor::SetContactList(const ZR::Ref<ContactList>& list, const ZR::UniString& userId) {
    std::lock_guard<std::mutex> lock(mContactsMutex);
    mContactList = list;
    mUserId = userId;
}

void MailboxMonitor::Start() {
    std::lock_guard<std::mutex> lock(mCore->mutex);
    if (mCore->running) return;
    mCore->running = true;
    mCore->stopping = false;
    mCore->queue.push_front(Internal::Job{Internal::Job::Kind::Reconnect});
    mCore->thread = std::thread([core = mCore] { core->Run(); });
}

bool MailboxMonitor::WaitUntilIdle(int timeoutMs) const {
    std::unique_lock<std::mutex> lock(mCore->mutex);
    return mCore->idle.wait_for(lock, std::chrono::milliseconds(timeoutMs), [this] {
        const Internal::MonitorCore& c = *mCore;
        return !c.running || c.stopping ||
               (!c.busy && !c.suspendPending && (c.suspended || c.queue.empty()));
    });
}

void MailboxMonitor::Stop() {
    std::thread thread;
    MailboxEventHandlerTasks canceled;
    {
        std::lock_guard<std::mutex> lock(mCore->mutex);
        mCore->stopping = true;
        for (Internal::Job& job : mCore->queue)
            for (auto& task : job.tasks) canceled.Add(task);
        mCore->queue.clear();
        mCore->fetchQueued = false;
        thread = std::move(mCore->thread);
        mCore->wake.notify_all();
    }
    if (thread.joinable()) {
        if (thread.get_id() == std::this_thread::get_id())
            thread.detach();  // from an observer's call: the thread ends after it
        else
            thread.join();
    }
    {
        std::lock_guard<std::mutex> lock(mCore->mutex);
        mCore->running = false;
        mCore->online = false;
        mCore->reported = -1;
        mCore->idle.notify_all();
    }
    Internal::Finish(canceled, MailboxEventHandlerTask::Result::Canceled);
}

bool MailboxMonitor::IsRunning() const {
    std::lock_guard<std::mutex> lock(mCore->mutex);
    return mCore->running && !mCore->stopping;
}

void MailboxMonitor::InitMailboxRevision(std::uint64_t inboxRevision, std::uint64_t sentRevision) {
    if (IsRunning()) return;
    mCore->inboxRevision = inboxRevision;
    mCore->sentRevision = sentRevision;
    Start();
}

std::uint64_t MailboxMonitor::GetInboxRevision() const {
    return mCore->inboxRevision;
}
std::uint64_t MailboxMonitor::GetSentRevision() const {
    return mCore->sentRevision;
}
bool MailboxMonitor::IsOnline() const {
    return mCore->online;
}

void MailboxMonitor::SetRefreshToken(const ZR::UniString& token) {
    std::lock_guard<std::mutex> lock(mCore->mutex);
    mCore->refreshToken = token;
}

namespace {

Data IdList(const MailIdTable& ids) {
    Data list = Data::array();
    for (const auto& entry : ids) list.push_back(entry.first.Std());
    return list;
}

}  // namespace

void MailboxMonitor::SendMails(ServerMails& mails, MailboxEventHandlerTasks& tasks) {
    Data list = Data::array();
    for (const ZR::Ref<M::Mail>& mail : mails)
        if (mail) list.push_back(Data::binary(M::ToStoredBytes(*mail)));
    mCore->Queue({Internal::Job::Kind::Request,
                  KRCB::Internal::Op::kSendMails,
                  "send the mails",
                  {{"mails", std::move(list)}},
                  tasks});
}

void MailboxMonitor::SetMailsRead(const MailIdTable& ids, const M::MailboxName& box,
                                  MailboxEventHandlerTasks& tasks) {
    mCore->Queue({Internal::Job::Kind::Request,
                  KRCB::Internal::Op::kSetMailsRead,
                  "set the mails read",
                  {{"box", box.Std()}, {"ids", IdList(ids)}},
                  tasks});
}

void MailboxMonitor::SetMailsCompleted(const MailIdTable& ids, const M::MailboxName& box,
                                       MailboxEventHandlerTasks& tasks) {
    mCore->Queue({Internal::Job::Kind::Request,
                  KRCB::Internal::Op::kSetMailsCompleted,
                  "set the mails completed",
                  {{"box", box.Std()}, {"ids", IdList(ids)}},
                  tasks});
}

void MailboxMonitor::DeleteMails(const ZR::PagedArray<ZR::UniString, 8>& ids,
                                 const M::MailboxName& box, MailboxEventHandlerTasks& tasks) {
    Data list = Data::array();
    for (const ZR::UniString& id : ids) list.push_back(id.Std());
    mCore->Queue({Internal::Job::Kind::Request,
                  KRCB::Internal::Op::kDeleteMails,
                  "delete the mails",
                  {{"box", box.Std()}, {"ids", std::move(list)}},
                  tasks});
}

void MailboxMonitor::UpdateContactList(MailboxEventHandlerTasks& tasks) {
    mCore->Queue(
        {Internal::Job::Kind::Contacts, nullptr, "update the contact list", Data::object(), tasks});
}

void MailboxMonitor::UpdateMails(MailboxEventHandlerTasks& tasks) {
    mCore->Queue({Internal::Job::Kind::Fetch, nullptr, "update the mails", Data::object(), tasks});
}

void MailboxMonitor::ResetConnection() {
    mCore->Queue({Internal::Job::Kind::Reconnect, nullptr, "reach the mail server"}, true);
}

void MailboxMonitor::Suspend() {
    std::lock_guard<std::mutex> lock(mCore->mutex);
    if (mCore->suspended) return;
    mCore->suspended = true;
    mCore->suspendPending = true;
    mCore->wake.notify_all();
}

void MailboxMonitor::Continue() {
    {
        std::lock_guard<std::mutex> lock(mCore->mutex);
        if (!mCore->suspended) return;
        mCore->suspended = false;
        mCore->suspendPending = false;
    }
    ResetConnection();
}

void MailboxMonitor::NotifyMailboxChanged(ZR::Ref<MailboxChange>& change) {
    ForEachObserver([&](ZR::TS::EventObserver* o) {
        static_cast<MailboxMonitorObserver*>(o)->MailboxChanged(change);
    });
}

void MailboxMonitor::NotifyContactListChanged() {
    ZR::Ref<const ContactList> list = GetContactList();
    ForEachObserver([&](ZR::TS::EventObserver* o) {
        static_cast<MailboxMonitorObserver*>(o)->ContactListChanged(list);
    });
}

void MailboxMonitor::NotifyServerStatus(bool online) {
    ForEachObserver([&](ZR::TS::EventObserver* o) {
        static_cast<MailboxMonitorObserver*>(o)->MailboxServerStatusChange(online);
    });
}

}  // namespace KRCB::Mailbox

namespace KRCB::Internal {

void DeliverMailbox(const MailboxPush& push) {
    std::shared_ptr<Mailbox::Internal::MonitorCore> core;
    {
        std::lock_guard<std::mutex> lock(Mailbox::Internal::RegistryMutex());
        auto it = Mailbox::Internal::Registry().find(push.monitorId);
        if (it == Mailbox::Internal::Registry().end()) return;
        core = it->second.lock();
    }
    if (!core) return;
    using Kind = Mailbox::Internal::Job::Kind;
    switch (push.kind) {
        case MailboxPush::Kind::MailsChanged:
            core->Queue({Kind::Fetch});
            break;
        case MailboxPush::Kind::ServerDown:
            core->Queue({Kind::ServerDown}, true);
            break;
        case MailboxPush::Kind::ServerUp:
            core->Queue({Kind::Reconnect});
            break;
    }
}

}  // namespace KRCB::Internal
