#include "MailDriver.h"

#include <algorithm>
#include <atomic>
#include <csignal>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <thread>

#include "KRCB/MailboxMonitor.h"
#include "KRCB/SignalClient.h"
#include "KRClient/MailClient/MailAttachment.h"
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

using mailrandom::Pinned;

const char* const kFaultOps[] = {Model::kSend, Model::kRead, Model::kComplete, Model::kDelete};

std::string UserId(const std::string& login) {
    return login == "anna" ? krtest::kAnnaId : krtest::kBertId;
}

M::Address InboxOf(const std::string& login) {
    return M::Address(M::MailboxId(ZR::UniString(UserId(login)), "Inbox"), ZR::UniString(login));
}

std::string Flags(const M::Mail& mail) {
    return std::string(mail.IsRead() ? "r" : "-") + (mail.IsCompleted() ? "c" : "-");
}

template <typename T>
std::string Show(const std::vector<T>& list) {
    std::ostringstream out;
    out << "[";
    for (std::size_t i = 0; i < list.size(); ++i) out << (i ? " " : "") << list[i];
    out << "]";
    return out.str();
}

// What the host hears, from any thread.
struct Heard {
    std::atomic<int> sendFailed{0}, deleteFailed{0}, flagFailed{0};
    std::atomic<int> callerSuccess{0}, callerCancel{0}, callerFailure{0};
    std::atomic<int> notified{0};
    Counts Get() const {
        return {sendFailed,   deleteFailed,  flagFailed, callerSuccess,
                callerCancel, callerFailure, notified};
    }
};

class ErrorHandler : public KRC::MailClientErrorHandler {
public:
    explicit ErrorHandler(Heard& heard) : mHeard(heard) {}
    void MailSendingFailed(Failure&) override { ++mHeard.sendFailed; }
    void MailDeletingFailed(Failure&) override { ++mHeard.deleteFailed; }
    void SetMailsReadFailed(Failure&) override { ++mHeard.flagFailed; }

private:
    Heard& mHeard;
};

class CallerHandler : public MB::MailboxEventHandler {
public:
    explicit CallerHandler(Heard& heard) : mHeard(heard) {}
    void OnSuccess() override { ++mHeard.callerSuccess; }
    void OnCancel() override { ++mHeard.callerCancel; }
    void OnFailure(ZR::Ref<MB::MailboxMonitorException>&) override { ++mHeard.callerFailure; }

private:
    Heard& mHeard;
};

class Observer : public KRC::MailClientObserver {
public:
    explicit Observer(Heard& heard) : mHeard(heard) {}
    ~Observer() override { DetachFromSources(); }
    void MailListChanged(KRC::MailClient&, const MailboxChanges&) override { ++mHeard.notified; }

private:
    Heard& mHeard;
};

struct FolderManager : KRCB::CacheFolderConnection {
    explicit FolderManager(IO::Location folder)
        : CacheFolderConnection(std::move(folder), IO::Location(), krtest::kProjectPath) {}
};

// One run of the host: a monitor of its own, and the client on the cache
// folder. Ends as a host ends: the client first, then the monitor.
struct Session {
    Session(const IO::Location& location, const krtest::TempFolder& folder, Heard& heard)
        : monitor(location, ZR::Ref<MB::ContactFactory>(new KRC::Mailbox::UserContactFactory)),
          manager(folder.Location()),
          client(std::make_unique<KRC::MailClient>(&monitor, &signals, &manager, false, 0,
                                                   std::make_unique<ErrorHandler>(heard))),
          observer(heard) {
        client->Attach(observer);
    }
    ~Session() {
        client.reset();
        monitor.Stop();
    }
    MB::MailboxMonitor monitor;
    // Reaches no server: presence and signals come from the steps.
    KRCB::SignalClient signals{"https://nowhere.invalid", "anna", "rt-none"};
    FolderManager manager;
    std::unique_ptr<KRC::MailClient> client;
    Observer observer;
};

class World {
public:
    World(std::uint64_t seed, bool storage) : mService(seed), mModel(storage) {
        // Both boxes have a history before the client first looks.
        Deliver("b0", false);
        SentElsewhere("x0");
        KeepFiles();
        mSession = std::make_unique<Session>(krtest::ProjectLocation(), mFolder, mHeard);
        mModel.Start();
    }
    ~World() {
        if (mGate) mGate->Release();
        mSession.reset();
        ZR::MessageLoop::RunPending();
    }

    // The client's first connection, at rest.
    std::string Begin() {
        std::string busy = Settle();
        mModel.SetNotified(mHeard.notified);
        return busy.empty() ? Compare(true) : busy;
    }
    std::string Do(const Step& step);
    std::string Finish();

private:
    KRC::MailClient& Client() { return *mSession->client; }
    std::string Box(const std::string& login, bool inbox) {
        return mService->GetMailboxId(kServer, login, inbox ? "Inbox" : "Sent");
    }
    std::vector<std::string> Pick(bool inbox, const Step& step) const;
    MB::MailboxEventHandlerTask* NewCaller() {
        return new MB::MailboxEventHandlerTask(&mOwner, new CallerHandler(mHeard));
    }
    ZR::Ref<MB::MailboxEventHandlerTask> Caller(bool wanted) {
        return wanted ? ZR::Ref<MB::MailboxEventHandlerTask>(NewCaller())
                      : ZR::Ref<MB::MailboxEventHandlerTask>();
    }
    void Deliver(const std::string& id, bool pinned);
    void SentElsewhere(const std::string& id);
    void ChangeOnServer(bool inbox, int which, bool read);
    std::string Settle();
    std::string Compare(bool withServer);
    void Release() {
        if (mGate) mGate->Release();
        mGate.reset();
        mModel.Release();
    }
    // What the released call sets off ends before the client does.
    std::string ReleaseAndSettle() {
        Release();
        return Settle();
    }
    void KeepFiles() {
        for (const char* name : {KRC::MailClient::kMailsFileName, "Outbox.dat"})
            mKept[name] = krtest::Exists(mFolder.Sub(name))
                              ? std::optional<std::string>(krtest::ReadFile(mFolder.Sub(name)))
                              : std::nullopt;
    }

    struct Owner : ZR::DependentResource {
        ~Owner() override { ReleaseDependents(); }
    } mOwner;
    krtest::EmulatedService mService;
    ZR::MessageLoop::Scope mLoop;
    krtest::TempFolder mFolder;
    Heard mHeard;
    Model mModel;
    std::unique_ptr<Session> mSession;
    std::shared_ptr<Emulator::Gate> mGate;
    std::map<std::string, ZR::Ref<KRC::ClientMail>> mMails;  // the host's own
    std::map<std::string, MailPtr> mModelMails;
    std::vector<std::string> mOwnIds;
    int mNext = 1;
    std::size_t mRequestsSeen = 0;
    std::map<std::string, std::optional<std::string>> mKept;  // the files of the last end in order
};

ZR::Ref<M::Mail> NewServerMail(const std::string& id, const std::string& from,
                               const std::vector<std::string>& to, bool pinned) {
    auto mail = ZR::Ref<M::Mail>::Make(M::MailId(ZR::UniString(id)));
    M::AddressList senders, recipients;
    senders.Add(InboxOf(from));
    for (const auto& login : to) recipients.Add(InboxOf(login));
    mail->SetFrom(senders);
    mail->SetTo(recipients);
    KRC::ClientMail wrapped(mail);
    wrapped.SetMessagePart(ZR::UniString("text of " + id));
    if (pinned) wrapped.AddAttachment(Pinned());
    return wrapped.ToServerMail();
}

void World::Deliver(const std::string& id, bool pinned) {
    mService->AddMail(kServer, Box("anna", true), *NewServerMail(id, "bert", {"anna"}, pinned));
    Mail mail(id);
    mail.autoComplete = !pinned;
    mail.to = {"anna"};
    mModel.PutMail("anna", true, mail);
}

// A mail the user sent from another computer.
void World::SentElsewhere(const std::string& id) {
    mService->AddMail(kServer, Box("anna", false), *NewServerMail(id, "anna", {"bert"}, false));
    Mail mail(id);
    mail.to = {"bert"};
    mModel.PutMail("anna", false, mail);
}

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
    mModel.PutMail("anna", inbox, mail);
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
    KRC::MailClient& c = Client();
    switch (step.op) {
        case Op::Send: {
            const std::string id = "a" + std::to_string(mNext++);
            const std::vector<std::string> to = step.a % 3 == 0 ? std::vector<std::string>{"bert"}
                                                : step.a % 3 == 1
                                                    ? std::vector<std::string>{"anna"}
                                                    : std::vector<std::string>{"bert", "anna"};
            const bool pinned = step.b % 2;
            auto mail = ZR::Ref<M::Mail>::Make(M::MailId(ZR::UniString(id)));
            ZR::Ref<KRC::ClientMail> own(new KRC::ClientMail(mail));
            M::AddressList recipients;
            for (const auto& login : to) recipients.Add(InboxOf(login));
            own->SetRecipients(recipients);
            own->SetMessagePart(ZR::UniString("text of " + id));
            if (pinned) own->AddAttachment(Pinned());
            auto modelled = std::make_shared<Mail>(id);
            modelled->autoComplete = !pinned;
            modelled->to = to;
            mMails[id] = own;
            mModelMails[id] = modelled;
            mOwnIds.push_back(id);
            c.SendMail(own, Caller(step.b / 2 % 2));
            mModel.SendMail(modelled, step.b / 2 % 2);
            break;
        }
        case Op::Resend: {
            if (mOwnIds.empty()) break;
            const std::string& id = mOwnIds[static_cast<std::size_t>(step.a) % mOwnIds.size()];
            c.SendMail(mMails[id], Caller(caller));
            mModel.SendMail(mModelMails[id], caller);
            break;
        }
        case Op::Read: {
            auto list = Pick(true, step);
            if (single && !list.empty()) {
                list.resize(1);
                c.SetInboxMailRead(ZR::UniString(list[0]));
                mModel.SetInboxMailsRead(list, false);
            } else {
                c.SetInboxMailsRead(ids(list), Caller(caller));
                mModel.SetInboxMailsRead(list, caller);
            }
            break;
        }
        case Op::CompleteInbox: {
            auto list = Pick(true, step);
            if (single && !list.empty()) {
                list.resize(1);
                c.SetInboxMailCompleted(ZR::UniString(list[0]));
                mModel.SetInboxMailsCompleted(list, false);
            } else {
                c.SetInboxMailsCompleted(ids(list), Caller(caller));
                mModel.SetInboxMailsCompleted(list, caller);
            }
            break;
        }
        case Op::CompleteSent: {
            auto list = Pick(false, step);
            if (single && !list.empty()) {
                list.resize(1);
                c.SetSentMailCompleted(ZR::UniString(list[0]));
                mModel.SetSentMailsCompleted(list, false);
            } else {
                c.SetSentMailsCompleted(ids(list), Caller(caller));
                mModel.SetSentMailsCompleted(list, caller);
            }
            break;
        }
        case Op::DeleteInbox:
        case Op::DeleteSent: {
            const bool inbox = step.op == Op::DeleteInbox;
            auto list = Pick(inbox, step);
            if (single && !list.empty()) {
                list.resize(1);
                if (inbox)
                    c.DeleteInboxMail(ZR::UniString(list[0]), Caller(caller));
                else
                    c.DeleteSentMail(ZR::UniString(list[0]), Caller(caller));
            } else if (inbox) {
                c.DeleteInboxMails(ids(list), Caller(caller));
            } else {
                c.DeleteSentMails(ids(list), Caller(caller));
            }
            mModel.DeleteMails(list, inbox, caller);
            break;
        }
        case Op::BertSends:
            Deliver("b" + std::to_string(mNext++), step.a % 2);
            break;
        case Op::OtherRead:
            ChangeOnServer(true, step.a, true);
            break;
        case Op::OtherComplete:
            ChangeOnServer(step.b % 2 == 0, step.a, false);
            break;
        case Op::OtherDelete: {
            const bool inbox = step.b % 2 == 0;
            const std::vector<Mail>& mails = mModel.Box("anna", inbox).mails;
            if (mails.empty()) break;
            const std::string id = mails[static_cast<std::size_t>(step.a) % mails.size()].id;
            mService->DeleteMail(kServer, Box("anna", inbox), id);
            mModel.RemoveMail("anna", inbox, id);
            break;
        }
        case Op::Down:
        case Op::Up:
            mService->SetServerDown(kServer, step.op == Op::Down);
            mModel.SetServerDown(step.op == Op::Down);
            break;
        case Op::Away:
        case Op::Back:
            c.PresenceStateChanged(step.op == Op::Back ? KRCB::kPresenceOnline
                                                       : KRCB::kPresenceCheckFailed);
            mModel.SetPresence(step.op == Op::Back);
            break;
        case Op::Fail: {
            const char* op = kFaultOps[step.a % 4];
            if (step.b % 2)
                mService->CancelNext(op);
            else
                mService->FailNext(op, {Emulator::FaultKind::ZRException, "refused"});
            mModel.ArmFault(op, step.b % 2 ? Fault::Cancel : Fault::Fail);
            break;
        }
        case Op::Gap: {
            const bool inbox = step.a % 2 == 0;
            mService->ScriptMailGap(kServer, Box("anna", inbox));
            mModel.Gap(inbox);
            if (inbox)
                Deliver("b" + std::to_string(mNext++), false);
            else
                SentElsewhere("x" + std::to_string(mNext++));
            break;
        }
        case Op::Whole:
            mService->ScriptWholeMailbox(kServer, Box("anna", step.a % 2 == 0));
            mModel.WholeNext(step.a % 2 == 0);
            c.SignalReceived(nullptr, KRCB::Signal(KRCB::kSignalMailsChanged, "", ""));
            mModel.UpdateMails();
            break;
        case Op::Fetch:
            c.SignalReceived(nullptr, KRCB::Signal(KRCB::kSignalMailsChanged, "", ""));
            mModel.UpdateMails();
            break;
        case Op::Reset:
            c.SignalReceived(nullptr, KRCB::Signal(KRCB::kSignalProjectStateRefused, "", ""));
            mModel.ResetConnection();
            break;
        case Op::Contacts:
            c.OnlineUserListChanged();
            mModel.UpdateContactList();
            break;
        case Op::Hold:
            if (mModel.IsHolding()) break;
            mGate = mService->BlockNext(kFaultOps[step.a % 4]);
            mModel.Hold(kFaultOps[step.a % 4]);
            break;
        case Op::Release:
            Release();
            break;
        case Op::Restart:
            if (std::string busy = ReleaseAndSettle(); !busy.empty()) return busy;
            mSession.reset();
            KeepFiles();
            mSession = std::make_unique<Session>(krtest::ProjectLocation(), mFolder, mHeard);
            mModel.Restart();
            break;
        case Op::Crash:
            if (std::string busy = ReleaseAndSettle(); !busy.empty()) return busy;
            // What the process did not write stays as the last end left it:
            // the client ends in order all the same, then that is put back.
            mSession.reset();
            if (step.a % 2) mKept.erase(KRC::MailClient::kMailsFileName);
            for (const auto& [name, bytes] : mKept)
                if (bytes)
                    krtest::WriteFile(mFolder.Sub(name), *bytes);
                else
                    std::filesystem::remove(mFolder.Sub(name));
            KeepFiles();
            mSession = std::make_unique<Session>(krtest::ProjectLocation(), mFolder, mHeard);
            mModel.Crash(step.a % 2);
            break;
        case Op::Kill: {
            if (std::string busy = ReleaseAndSettle(); !busy.empty()) return busy;
            mSession.reset();
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
                return now != kept.has_value() ||
                       (now && krtest::ReadFile(mFolder.Sub(name)) != *kept);
            };
            const bool outboxNew = changed("Outbox.dat");
            const bool mailsNew = changed(KRC::MailClient::kMailsFileName);
            KeepFiles();
            mSession = std::make_unique<Session>(krtest::ProjectLocation(), mFolder, mHeard);
            mModel.Kill(sent, argv[3], outboxNew, mailsNew);
            break;
        }
        case Op::Count:
            break;
    }
    if (std::string busy = Settle(); !busy.empty()) return busy;
    if (step.op == Op::Restart || step.op == Op::Crash || step.op == Op::Kill)
        mModel.SetNotified(mHeard.notified);
    return Compare(false);
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
// has nothing pending: whatever a step set off has happened by then.
std::string World::Settle() {
    // A call held at the server holds the monitor's thread: nothing else
    // happens there until it is released.
    if (mModel.IsHeld()) {
        if (!mGate->WaitUntilReached(kBoundMs)) return "  the held call did not reach the server\n";
        while (ZR::MessageLoop::RunPending() != 0) {
        }
        return "";
    }
    for (int round = 0; round < 100; ++round) {
        if (!mSession->monitor.WaitUntilIdle(kBoundMs))
            return "  the monitor did not come to rest\n";
        if (ZR::MessageLoop::RunPending() == 0 && mSession->monitor.WaitUntilIdle(0)) return "";
    }
    return "  the client did not come to rest\n";
}

std::string World::Compare(bool withServer) {
    std::ostringstream diff;
    auto check = [&](const char* what, const auto& real, const auto& expected) {
        if (!(real == expected))
            diff << "  " << what << ": client " << real << ", model " << expected << "\n";
    };
    auto shown = [](const KRC::MailClient::Mails& mails) {
        std::vector<std::string> out;
        for (const auto& mail : mails)
            out.push_back(mail->GetId().Std() + ":" + (mail->IsRead() ? "r" : "-") +
                          (mail->IsCompleted() ? "c" : "-"));
        std::sort(out.begin(), out.end());
        return Show(out);
    };
    KRC::MailClient& c = Client();
    const Model::ClientView view = mModel.View();
    check("inbox", shown(c.GetInboxMails()), Show(view.inbox));
    check("sent", shown(c.GetSentMails()), Show(view.sent));
    std::vector<std::string> outbox;
    for (const auto& mail : c.GetOutboxMails())
        outbox.push_back(mail->GetId().Std() + ":" + (mail->IsCompleted() ? "c" : "-"));
    check("outbox", Show(outbox), Show(view.outbox));
    std::vector<std::string> all;
    for (const auto& mail : c.GetAllMails()) all.push_back(mail->GetId().Std());
    std::sort(all.begin(), all.end());
    check("all mails", Show(all), Show(view.all));
    check("inbox revision", c.GetInboxRevision(), view.inboxRevision);
    check("sent revision", c.GetSentRevision(), view.sentRevision);
    check("online", c.IsOnline(), view.online);

    std::vector<std::string> requests;
    const auto records = mService->GetMailRequests();
    for (; mRequestsSeen < records.size(); ++mRequestsSeen) {
        const Emulator::MailRequestRecord& r = records[mRequestsSeen];
        if (std::find(std::begin(kFaultOps), std::end(kFaultOps), r.op) == std::end(kFaultOps))
            continue;
        std::string text = r.op + (r.box.empty() ? "" : " " + r.box) + " ", sep;
        for (const auto& id : r.ids) text += sep + id, sep = ",";
        requests.push_back(text);
    }
    check("requests", Show(requests), Show(mModel.TakeRequests()));

    const Counts heard = mHeard.Get(), expected = mModel.GetCounts();
    auto counts = [](const Counts& n) {
        std::ostringstream out;
        out << "errors send " << n.sendFailed << " delete " << n.deleteFailed << " flags "
            << n.flagFailed << "; caller success " << n.callerSuccess << " cancel "
            << n.callerCancel << " failure " << n.callerFailure << "; observers told "
            << n.notified;
        return out.str();
    };
    check("heard", counts(heard), counts(expected));

    if (withServer)
        for (const auto& [login, inbox] :
             {std::pair{"anna", true}, std::pair{"anna", false}, std::pair{"bert", true}}) {
            std::vector<std::string> real, modelled;
            for (const M::Mail& mail : mService->GetMails(kServer, Box(login, inbox)))
                real.push_back(mail.GetId().ToString().Std() + ":" + Flags(mail));
            for (const Mail& mail : mModel.Box(login, inbox).mails)
                modelled.push_back(mail.id + ":" + (mail.read ? "r" : "-") +
                                   (mail.completed ? "c" : "-"));
            const std::string what = std::string("server ") + login + (inbox ? " inbox" : " sent");
            check(what.c_str(), Show(real), Show(modelled));
            check((what + " revision").c_str(),
                  mService->GetMailboxRevision(kServer, Box(login, inbox)),
                  mModel.Box(login, inbox).revision);
        }
    return diff.str();
}

}  // namespace

bool ClientKeepsBoxes() {
    static const bool keeps = [] {
        krtest::TempFolder folder;
        Heard heard;
        {
            ZR::MessageLoop::Scope loop;
            MB::MailboxMonitor monitor;
            KRCB::SignalClient signals{"https://nowhere.invalid", "anna", "rt-none"};
            FolderManager manager(folder.Location());
            KRC::MailClient client(&monitor, &signals, &manager, false, 0,
                                   std::make_unique<ErrorHandler>(heard));
            client.Close();
            monitor.Stop();
        }
        return krtest::Exists(folder.Sub(KRC::MailClient::kMailsFileName));
    }();
    return keeps;
}

std::string RunSequence(const Sequence& sequence, std::uint64_t seed) {
    World world(seed, ClientKeepsBoxes());
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
