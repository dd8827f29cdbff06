#include "MailDriver.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <sstream>
#include <thread>

#include "KRCB/MailboxMonitor.h"
#include "KRCB/SignalClient.h"
#include "KRClient/MailClient/MailClient.h"
#include "KRClient/MailClient/UserContactFactory.h"
#include "MailModel.h"
#include "PinnedAttachment.h"
#include "Support/EmulatorFixture.h"
#include "Support/Process.h"
#include "Support/TempFolder.h"
#include "ZR/MessageLoop.h"

namespace mailrandom {

namespace M = Kerrow::Server::Mail;
namespace MB = KRCB::Mailbox;
using krtest::kServer;

namespace {

constexpr int kBoundMs = 10000;
const char* const kFaultOps[] = {Model::kSend, Model::kRead, Model::kComplete, Model::kDelete};

// Logins of the server's users and of those it does not know yet.
std::string UserId(const std::string& login) {
    return login == "anna"   ? krtest::kAnnaId
           : login == "bert" ? krtest::kBertId
                             : "5e000000-0000-4000-8000-00000000000" + login.substr(1);
}
std::string Login(const std::string& id) {
    return id == krtest::kAnnaId ? "anna" : id == krtest::kBertId ? "bert" : "s" + id.substr(35);
}

M::Address InboxOf(const std::string& login) {
    return M::Address(M::MailboxId(ZR::UniString(UserId(login)), "Inbox"), ZR::UniString(login));
}

std::string Flags(bool read, bool completed) {
    return std::string(read ? "r" : "-") + (completed ? "c" : "-");
}

std::string Joined(const auto& ids, const char* separator = ",") {
    std::string text, sep;
    for (const auto& id : ids) text += sep + id, sep = separator;
    return text;
}
std::string Show(const auto& list) {
    return "[" + Joined(list, " ") + "]";
}
std::vector<std::string> Sorted(std::vector<std::string> list) {
    std::sort(list.begin(), list.end());
    return list;
}

// The client's mail of a modelled one; sender and time only where set.
ZR::Ref<KRC::ClientMail> Wrap(const Mail& m) {
    auto mail = ZR::Ref<M::Mail>::Make(M::MailId(ZR::UniString(m.id)));
    ZR::Ref<KRC::ClientMail> own(new KRC::ClientMail(mail));
    M::AddressList recipients;
    for (const auto& login : m.to) recipients.Add(InboxOf(login));
    own->SetRecipients(recipients);
    if (!m.from.empty()) own->SetSender(InboxOf(m.from));
    if (m.time) own->SetSent(M::Date(m.time));
    own->SetThreadId(ZR::UniString(m.thread));
    own->SetMessagePart(ZR::UniString("text of " + m.id));
    if (!m.autoComplete) own->AddAttachment(Pinned());
    return own;
}

// What the host hears, on any thread; it observes each client in turn.
struct Heard : Counts, KRC::MailClientObserver {
    ~Heard() override { DetachFromSources(); }
    void MailListChanged(KRC::MailClient&, const MailboxChanges&) override { ++notified; }
    std::mutex mutex;
    std::vector<std::string> deletes;  // the client's delete calls, as the model writes them
};

struct ErrorHandler : KRC::MailClientErrorHandler {
    explicit ErrorHandler(Heard& heard) : mHeard(heard) {}
    void MailSendingFailed(Failure&) override { ++mHeard.sendFailed; }
    void MailDeletingFailed(Failure&) override { ++mHeard.deleteFailed; }
    void SetMailsReadFailed(Failure&) override { ++mHeard.flagFailed; }
    Heard& mHeard;
};

struct CallerHandler : MB::MailboxEventHandler {
    explicit CallerHandler(Heard& heard) : mHeard(heard) {}
    void OnSuccess() override { ++mHeard.callerSuccess; }
    void OnCancel() override { ++mHeard.callerCancel; }
    void OnFailure(ZR::Ref<MB::MailboxMonitorException>&) override { ++mHeard.callerFailure; }
    Heard& mHeard;
};

// The monitor the client is given: it notes the delete calls as they come,
// with the client's outbox at the time.
struct Monitor : MB::MailboxMonitor {
    Monitor(const IO::Location& location, Heard& heard)
        : MailboxMonitor(location,
                         ZR::Ref<MB::ContactFactory>(new KRC::Mailbox::UserContactFactory)),
          mHeard(heard) {}
    void DeleteMails(const ZR::PagedArray<ZR::UniString, 8>& ids, const M::MailboxName& box,
                     MB::MailboxEventHandlerTasks& tasks) override {
        std::vector<std::string> list, outbox;
        for (const auto& id : ids) list.push_back(id.Std());
        for (const auto& mail : client->GetOutboxMails()) outbox.push_back(mail->GetId().Std());
        {
            std::lock_guard<std::mutex> lock(mHeard.mutex);
            mHeard.deletes.push_back(box.Std() + " " + Joined(Sorted(list)) + " | " +
                                     Joined(Sorted(outbox)));
        }
        MailboxMonitor::DeleteMails(ids, box, tasks);
    }
    Heard& mHeard;
    KRC::MailClient* client = nullptr;
};

struct ContactsHeard : MB::MailboxMonitorObserver {
    ContactsHeard(MB::MailboxMonitor& monitor, Heard& heard) : mHeard(heard) {
        monitor.Attach(*this);
    }
    ~ContactsHeard() override { DetachFromSources(); }
    void ContactListChanged(ZR::Ref<const MB::ContactList>&) override { ++mHeard.contactsTold; }
    Heard& mHeard;
};

// One run of the host: a monitor of its own, and the client on the cache
// folder. Ends as a host ends: the client first, then the monitor.
struct Session {
    Session(const krtest::TempFolder& folder, Heard& heard, bool limitOn, unsigned limit)
        : monitor(krtest::ProjectLocation(), heard),
          contacts(monitor, heard),
          manager(folder.Location(), IO::Location(), krtest::kProjectPath),
          client(std::make_unique<KRC::MailClient>(&monitor, &signals, &manager, limitOn, limit,
                                                   std::make_unique<ErrorHandler>(heard))) {
        client->Attach(heard), monitor.client = client.get();
    }
    ~Session() {
        client.reset();
        monitor.Stop();
    }
    Monitor monitor;
    ContactsHeard contacts;
    // Reaches no server: presence and signals come from the steps.
    KRCB::SignalClient signals{"https://nowhere.invalid", "anna", "rt-none"};
    KRCB::CacheFolderConnection manager;
    std::unique_ptr<KRC::MailClient> client;
};

// The real side acts at once; the model's side of a step waits until the
// client has come to rest, so that where the client may choose among mails
// of one sent time, the model can see the choice made.
class World {
public:
    explicit World(std::uint64_t seed)
        : mService(seed), mLimitOn(seed % 3 != 0), mLimit(seed / 3 % 4), mModel(mLimitOn, mLimit) {
        // Both boxes have a history before the client first looks.
        Put(true, ServerMail("b0", "bert", 1));
        Put(false, ServerMail("x0", "anna", 1));
        KeepFiles();
        NewSession();
        Later([this] { mModel.Start(); });
    }
    ~World() {
        for (auto* gate : {&mGate, &mConnect})
            if (*gate) (*gate)->Release();
        mSession.reset();
        ZR::MessageLoop::RunPending();
    }

    // The client's first connection, at rest.
    std::string Begin() {
        std::string busy = Settle();
        Flush();
        mModel.SetNotified(mHeard.notified);
        return busy.empty() ? Compare(true) : busy;
    }
    std::string Do(const Step& step);
    std::string Finish();

private:
    KRC::MailClient& Client() { return *mSession->client; }
    // The first connection waits until the session stands: Settle lets it go.
    void NewSession() {
        if (!mConnect) mConnect = mService->BlockNext("MailConnect");
        mSession = std::make_unique<Session>(mFolder, mHeard, mLimitOn, mLimit);
    }
    std::string Box(const std::string& login, bool inbox) {
        return mService->GetMailboxId(kServer, login, inbox ? "Inbox" : "Sent");
    }
    std::vector<std::string> Pick(bool inbox, const Step& step) const;
    ZR::Ref<MB::MailboxEventHandlerTask> Caller(bool wanted) {
        return wanted ? ZR::Ref<MB::MailboxEventHandlerTask>(
                            new MB::MailboxEventHandlerTask(&mOwner, new CallerHandler(mHeard)))
                      : ZR::Ref<MB::MailboxEventHandlerTask>();
    }
    Mail ServerMail(const std::string& id, const std::string& from, int time, int shape = 0) {
        Mail mail(id);
        mail.from = from;
        mail.to = {from == "bert" ? "anna" : "bert"};
        mail.time = time;
        mail.autoComplete = shape % 2 == 0;
        mail.thread = shape / 2 % 4 == 0 ? "" : "t" + std::to_string(shape / 2 % 4);
        return mail;
    }
    // A mail put straight into one of the user's boxes on the server.
    void Put(bool inbox, const Mail& mail) {
        mService->AddMail(kServer, Box("anna", inbox), *Wrap(mail)->ToServerMail());
        Later([=, this] { mModel.PutMail("anna", inbox, mail); });
    }
    void ChangeOnServer(bool inbox, int which, bool read);
    void Later(std::function<void()> step) { mLater.push_back(std::move(step)); }
    // The model catches up with what the client did, and sees its choices.
    void Flush() {
        {
            std::lock_guard<std::mutex> lock(mHeard.mutex);
            mModel.seen.deletes = mHeard.deletes;
        }
        mModel.seen.outbox.clear();
        for (const auto& mail : Client().GetOutboxMails())
            mModel.seen.outbox.insert(mail->GetId().Std());
        for (auto& step : std::exchange(mLater, {})) step();
    }
    std::string Settle();
    std::string Compare(bool withServer);
    void Release() {
        if (mGate) mGate->Release();
        mGate.reset();
        Later([this] { mModel.Release(); });
    }
    // What the released call sets off ends before the client does.
    std::string ReleaseAndSettle() {
        Release();
        std::string busy = Settle();
        Flush();
        if (busy.empty()) mSession.reset();
        return busy;
    }
    void KeepFiles() {
        for (const char* name : {KRC::MailClient::kMailsFileName, "Outbox.dat"})
            mKept[name] = krtest::Exists(mFolder.Sub(name))
                              ? std::optional<std::string>(krtest::ReadFile(mFolder.Sub(name)))
                              : std::nullopt;
    }
    std::string Kill(const Step& step, std::function<void()>& model);

    struct Owner : ZR::DependentResource {
        ~Owner() override { ReleaseDependents(); }
    } mOwner;
    krtest::EmulatedService mService;
    ZR::MessageLoop::Scope mLoop;
    krtest::TempFolder mFolder;
    Heard mHeard;
    bool mLimitOn;
    unsigned mLimit;
    Model mModel;
    std::unique_ptr<Session> mSession;
    std::shared_ptr<Emulator::Gate> mGate, mConnect;
    std::vector<std::function<void()>> mLater;
    std::map<std::string, std::pair<ZR::Ref<KRC::ClientMail>, MailPtr>> mOwn;  // the host's mails
    std::vector<std::string> mOwnIds;
    std::set<std::string> mJoined;
    int mNext = 1;
    std::size_t mRequestsSeen = 0;
    std::map<std::string, std::optional<std::string>> mKept;  // the files of the last end in order
};

// The user's other computer sets a flag.
void World::ChangeOnServer(bool inbox, int which, bool read) {
    const std::vector<Mail>& mails = mModel.Box("anna", inbox).mails;
    if (mails.empty()) return;
    Mail mail = mails[static_cast<std::size_t>(which) % mails.size()];
    for (M::Mail server : mService->GetMails(kServer, Box("anna", inbox)))
        if (server.GetId().ToString().Std() == mail.id) {
            (read ? server.SetRead(true) : server.SetCompleted(true));
            mService->AddMail(kServer, Box("anna", inbox), server);
        }
    (read ? mail.read : mail.completed) = true;
    Later([=, this] { mModel.PutMail("anna", inbox, mail); });
}

std::vector<std::string> World::Pick(bool inbox, const Step& step) const {
    std::vector<std::string> all = mModel.Candidates(inbox), ids;
    if (all.empty()) return ids;
    const int count = 1 + step.b % 3;
    for (int i = 0; i < count; ++i)
        ids.push_back(all[static_cast<std::size_t>(step.a + i) % all.size()]);
    return ids;
}

std::string World::Do(const Step& step) {
    const bool caller = step.b / 3 % 2;
    const bool single = step.b / 6 % 2;
    auto ids = [](const std::vector<std::string>& list) {
        KRC::MailClient::Ids out;
        for (const auto& id : list) out.Add(ZR::UniString(id));
        return out;
    };
    using C = KRC::MailClient;
    KRC::MailClient& c = Client();
    switch (step.op) {
        case Op::Send: {
            const std::string id = "a" + std::to_string(mNext++);
            auto mail = std::make_shared<Mail>(ServerMail(id, "", 0, step.b % 2 + step.a / 3 * 2));
            mail->to = step.a % 3 == 0   ? std::vector<std::string>{"bert"}
                       : step.a % 3 == 1 ? std::vector<std::string>{"anna"}
                                         : std::vector<std::string>{"bert", "anna"};
            mOwn[id] = {Wrap(*mail), mail};
            mOwnIds.push_back(id);
            c.SendMail(mOwn[id].first, Caller(step.b / 2 % 2));
            Later([=, this] { mModel.SendMail(mail, step.b / 2 % 2); });
            break;
        }
        case Op::Resend: {
            if (mOwnIds.empty()) break;
            auto own = mOwn[mOwnIds[static_cast<std::size_t>(step.a) % mOwnIds.size()]];
            c.SendMail(own.first, Caller(caller));
            Later([=, this] { mModel.SendMail(own.second, caller); });
            break;
        }
        case Op::Read:
        case Op::CompleteInbox:
        case Op::CompleteSent: {
            const int family = static_cast<int>(step.op) - static_cast<int>(Op::Read);
            static void (C::*const plural[])(const C::Ids&, C::Task) = {
                &C::SetInboxMailsRead, &C::SetInboxMailsCompleted, &C::SetSentMailsCompleted};
            static void (C::*const singular[])(const ZR::UniString&) = {
                &C::SetInboxMailRead, &C::SetInboxMailCompleted, &C::SetSentMailCompleted};
            auto list = Pick(step.op != Op::CompleteSent, step);
            const bool one = single && !list.empty(), task = caller && !one;
            // A connection that the limit's deletes set off waits until the
            // call has looked whether the client is online: Settle lets it go.
            if (step.op != Op::Read && !mConnect) mConnect = mService->BlockNext("MailConnect");
            if (one) {
                list.resize(1);
                (c.*singular[family])(ZR::UniString(list[0]));
            } else {
                (c.*plural[family])(ids(list), Caller(task));
            }
            Later([=, this] { mModel.SetFlag(static_cast<Model::Flag>(family), list, task); });
            break;
        }
        case Op::DeleteInbox:
        case Op::DeleteSent: {
            const bool inbox = step.op == Op::DeleteInbox;
            auto list = Pick(inbox, step);
            if (single && !list.empty()) {
                list.resize(1);
                (c.*(inbox ? &C::DeleteInboxMail : &C::DeleteSentMail))(ZR::UniString(list[0]),
                                                                        Caller(caller));
            } else {
                (c.*(inbox ? &C::DeleteInboxMails : &C::DeleteSentMails))(ids(list),
                                                                          Caller(caller));
            }
            Later([=, this] { mModel.DeleteMails(list, inbox, caller); });
            break;
        }
        case Op::BertSends:
            Put(true, ServerMail("b" + std::to_string(mNext++), "bert", 1 + step.b % 3, step.a));
            break;
        case Op::Stranger:
            Put(false, ServerMail("s" + std::to_string(mNext++), "s" + std::to_string(step.a % 3),
                                  1 + step.a / 3 % 3, step.b));
            break;
        case Op::Newcomer: {
            const std::string login = "s" + std::to_string(step.a % 3);
            if (!mJoined.insert(login).second) break;
            Emulator::UserSpec user;
            user.login = login, user.id = UserId(login);
            mService->AddUser(kServer, user);
            Later([=, this] { mModel.AddUser(login); });
            break;
        }
        case Op::OtherRead:
        case Op::OtherComplete:
            ChangeOnServer(step.op == Op::OtherRead || step.b % 2 == 0, step.a,
                           step.op == Op::OtherRead);
            break;
        case Op::OtherDelete: {
            const bool inbox = step.b % 2 == 0;
            const std::vector<Mail>& mails = mModel.Box("anna", inbox).mails;
            if (mails.empty()) break;
            const std::string id = mails[static_cast<std::size_t>(step.a) % mails.size()].id;
            mService->DeleteMail(kServer, Box("anna", inbox), id);
            Later([=, this] { mModel.RemoveMail("anna", inbox, id); });
            break;
        }
        case Op::Down:
        case Op::Up:
            mService->SetServerDown(kServer, step.op == Op::Down);
            Later([=, this] { mModel.SetServerDown(step.op == Op::Down); });
            break;
        case Op::Away:
        case Op::Back:
            c.PresenceStateChanged(step.op == Op::Back ? KRCB::kPresenceOnline
                                                       : KRCB::kPresenceCheckFailed);
            Later([=, this] { mModel.SetPresence(step.op == Op::Back); });
            break;
        case Op::Fail: {
            const char* op = kFaultOps[step.a % 4];
            if (step.b % 2)
                mService->CancelNext(op);
            else
                mService->FailNext(op, {Emulator::FaultKind::ZRException, "refused"});
            Later([=, this] { mModel.ArmFault(op, step.b % 2 ? Fault::Cancel : Fault::Fail); });
            break;
        }
        case Op::Gap: {
            const bool inbox = step.a % 2 == 0;
            mService->ScriptMailGap(kServer, Box("anna", inbox));
            Later([=, this] { mModel.Gap(inbox); });
            Put(inbox, ServerMail((inbox ? "b" : "x") + std::to_string(mNext++),
                                  inbox ? "bert" : "anna", 1 + step.b % 3));
            break;
        }
        case Op::Whole:
        case Op::Fetch:
            if (step.op == Op::Whole) {
                mService->ScriptWholeMailbox(kServer, Box("anna", step.a % 2 == 0));
                Later([=, this] { mModel.WholeNext(step.a % 2 == 0); });
            }
            c.SignalReceived(nullptr, KRCB::Signal(KRCB::kSignalMailsChanged, "", ""));
            Later([this] { mModel.UpdateMails(); });
            break;
        case Op::Reset:
            c.SignalReceived(nullptr, KRCB::Signal(KRCB::kSignalProjectStateRefused, "", ""));
            Later([this] { mModel.ResetConnection(); });
            break;
        case Op::Contacts:
            c.OnlineUserListChanged();
            Later([this] { mModel.UpdateContactList(); });
            break;
        case Op::Limit: {
            mLimitOn = step.b % 3 != 0;
            mLimit = static_cast<unsigned>(step.a % 4);
            c.SetUseCompletedLimit(mLimitOn);
            c.SetCompletedLimitNum(mLimit);
            mHeard.overLimit += c.DeleteCompletedMailsOverLimit();
            Later([on = mLimitOn, limit = mLimit, this] {
                mModel.SetLimit(on, limit);
                mModel.DeleteOverLimit();
            });
            break;
        }
        case Op::Hold:
            if (mModel.IsHolding()) break;
            mGate = mService->BlockNext(kFaultOps[step.a % 4]);
            Later([=, this] { mModel.Hold(kFaultOps[step.a % 4]); });
            break;
        case Op::Release:
            Release();
            break;
        case Op::Restart:
        case Op::Crash:
        case Op::Kill: {
            std::function<void()> model = [this] { mModel.Restart(); };
            if (std::string busy = ReleaseAndSettle(); !busy.empty()) return busy;
            if (step.op == Op::Kill) {
                if (std::string busy = Kill(step, model); !busy.empty()) return busy;
            } else if (step.op == Op::Crash) {
                // What the process did not write stays as the last end left
                // it: the client ends in order all the same, then that is put back.
                if (step.a % 2) mKept.erase(KRC::MailClient::kMailsFileName);
                for (const auto& [name, bytes] : mKept)
                    if (bytes)
                        krtest::WriteFile(mFolder.Sub(name), *bytes);
                    else
                        std::filesystem::remove(mFolder.Sub(name));
                model = [=, this] { mModel.Crash(step.a % 2); };
            }
            KeepFiles();
            NewSession();
            Later(model);
            break;
        }
    }
    if (std::string busy = Settle(); !busy.empty()) return busy;
    Flush();
    if (step.op == Op::Restart || step.op == Op::Crash || step.op == Op::Kill)
        mModel.SetNotified(mHeard.notified);
    return Compare(false);
}

// Another host process on the files, killed as it ends.
std::string World::Kill(const Step& step, std::function<void()>& model) {
    KeepFiles();
    std::vector<Mail> sent;
    std::vector<std::string> argv{MAIL_RANDOM_WORKER_PATH, mFolder.Path(), krtest::kBertId};
    const std::vector<std::string> candidates = mModel.Candidates(true);
    argv.push_back(candidates.empty() ? "-" : candidates[step.b % candidates.size()]);
    for (int i = 0; i <= step.a % 2; ++i) {
        sent.emplace_back("k" + std::to_string(mNext++));
        sent.back().to = {"bert"};
        argv.push_back(sent.back().id);
    }
    {
        krtest::ChildProcess worker(argv);
        std::string line;
        if (!worker.ReadLine(&line) || line != "ending")
            return "  the killed host process did not start: " + line + "\n";
        // A kill at some point of its end, which writes the files.
        for (int i = 0; i < (step.b % 4) * 100; ++i) std::this_thread::yield();
        worker.Kill(SIGKILL);
        worker.Wait();
    }
    auto changed = [&](const char* name) {
        const auto& kept = mKept[name];
        const bool now = krtest::Exists(mFolder.Sub(name));
        return now != kept.has_value() || (now && krtest::ReadFile(mFolder.Sub(name)) != *kept);
    };
    model = [=, this, outboxNew = changed("Outbox.dat"),
             mailsNew = changed(KRC::MailClient::kMailsFileName)] {
        mModel.Kill(sent, argv[3], outboxNew, mailsNew);
    };
    return "";
}

// The end of a sequence: the server up, the user present, a new connection,
// and a quiet period.
std::string World::Finish() {
    std::string result = Do({Op::Release});
    if (result.empty() && mModel.IsServerDown()) result = Do({Op::Up});
    if (result.empty() && mModel.IsSuspended()) result = Do({Op::Back});
    if (result.empty()) result = Do({Op::Reset});
    return result.empty() ? Compare(true) : result;
}

// Until the monitor is between jobs with nothing to run and the message loop
// has nothing pending, or a held call has reached the server, which holds
// the monitor's thread until it is released. A held connection goes on.
std::string World::Settle() {
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(kBoundMs);
    while (std::chrono::steady_clock::now() < end) {
        if (mConnect && mConnect->WaitUntilReached(0)) mConnect->Release(), mConnect.reset();
        if (mGate && mGate->WaitUntilReached(0)) {
            while (ZR::MessageLoop::RunPending() != 0) {
            }
            return "";
        }
        if (mSession->monitor.WaitUntilIdle(mGate || mConnect ? 5 : kBoundMs) &&
            ZR::MessageLoop::RunPending() == 0 && mSession->monitor.WaitUntilIdle(0))
            return "";
    }
    return "  the client did not come to rest\n";
}

std::string World::Compare(bool withServer) {
    std::ostringstream diff;
    auto check = [&](const std::string& what, const auto& real, const auto& expected) {
        if (!(real == expected))
            diff << "  " << what << ": client " << real << ", model " << expected << "\n";
    };
    auto shown = [](const KRC::MailClient::Mails& mails, bool flags) {
        std::vector<std::string> out;
        for (const auto& mail : mails)
            out.push_back(mail->GetId().Std() +
                          (flags ? ":" + Flags(mail->IsRead(), mail->IsCompleted()) : ""));
        return out;
    };
    KRC::MailClient& c = Client();
    std::vector<std::string> contacts;
    for (const auto& id : mSession->monitor.GetContactList()->GetContactOwnerIds())
        contacts.push_back(Login(id.Std()));
    std::map<std::string, std::string> real = {
        {"inbox", Show(Sorted(shown(c.GetInboxMails(), true)))},
        {"sent", Show(Sorted(shown(c.GetSentMails(), true)))},
        {"outbox", Show(shown(c.GetOutboxMails(), true))},
        {"all mails", Show(Sorted(shown(c.GetAllMails(), false)))},
        {"inbox revision", std::to_string(c.GetInboxRevision())},
        {"sent revision", std::to_string(c.GetSentRevision())},
        {"online", std::to_string(c.IsOnline())},
        {"held", std::to_string(mGate && mGate->WaitUntilReached(0))},
        {"completed", std::to_string(c.CountCompletedMails())},
        {"contacts", Show(Sorted(contacts))}};
    for (const auto& [what, expected] : mModel.View()) check(what, real[what], expected);

    std::vector<std::string> requests;
    const auto records = mService->GetMailRequests();
    for (; mRequestsSeen < records.size(); ++mRequestsSeen) {
        const Emulator::MailRequestRecord& r = records[mRequestsSeen];
        if (std::find(std::begin(kFaultOps), std::end(kFaultOps), r.op) != std::end(kFaultOps))
            requests.push_back(r.op + (r.box.empty() ? "" : " " + r.box) + " " +
                               Joined(Sorted(r.ids)));
    }
    check("requests", Show(requests), Show(mModel.TakeRequests()));

    auto counts = [](const Counts& n) {
        std::ostringstream out;
        out << "errors send " << n.sendFailed << " delete " << n.deleteFailed << " flags "
            << n.flagFailed << "; caller success " << n.callerSuccess << " cancel "
            << n.callerCancel << " failure " << n.callerFailure << "; observers told " << n.notified
            << "; contacts told " << n.contactsTold << "; over the limit " << n.overLimit;
        return out.str();
    };
    check("heard", counts(mHeard), counts(mModel.GetCounts()));

    if (withServer)
        for (const auto& [login, inbox] :
             {std::pair{"anna", true}, std::pair{"anna", false}, std::pair{"bert", true}}) {
            std::vector<std::string> real, modelled;
            for (const M::Mail& mail : mService->GetMails(kServer, Box(login, inbox)))
                real.push_back(mail.GetId().ToString().Std() + ":" +
                               Flags(mail.IsRead(), mail.IsCompleted()));
            for (const Mail& mail : mModel.Box(login, inbox).mails)
                modelled.push_back(mail.id + ":" + Flags(mail.read, mail.completed));
            const std::string what = std::string("server ") + login + (inbox ? " inbox" : " sent");
            check(what, Show(real), Show(modelled));
            check(what + " revision", mService->GetMailboxRevision(kServer, Box(login, inbox)),
                  mModel.Box(login, inbox).revision);
        }
    return diff.str();
}

}  // namespace

std::string RunSequence(const Sequence& sequence, std::uint64_t seed) {
    World world(seed);
    if (std::string diff = world.Begin(); !diff.empty()) return "at the start:\n" + diff;
    for (std::size_t i = 0; i <= sequence.size(); ++i) {
        const std::string diff = i < sequence.size() ? world.Do(sequence[i]) : world.Finish();
        if (diff.empty()) continue;
        const std::string at = i < sequence.size()
                                   ? "step " + std::to_string(i + 1) + " " + ToText({sequence[i]})
                                   : std::string("the end");
        return "after " + at + ":\n" + diff;
    }
    return "";
}

}  // namespace mailrandom
