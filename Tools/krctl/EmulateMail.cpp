// krctl emulate SCENARIO mail: a user's mail client against the emulated
// mail server, as a host runs it: a MailClient on a running mailbox monitor,
// with this thread's message loop. Each command waits, with a bound, for
// the server's first status, the user's contact and the whole boxes before
// it acts, and then for the server's answer.

#include <atomic>
#include <cstdio>
#include <functional>
#include <memory>
#include <mutex>
#include <sstream>
#include <string>
#include <vector>

#include "Emulate.h"
#include "IO/File.h"
#include "KRCB/MailboxMonitor.h"
#include "KRCB/Paths.h"
#include "KRCB/SignalClient.h"
#include "KRClient/MailClient/ClientMail.h"
#include "KRClient/MailClient/MailClient.h"
#include "KRClient/MailClient/UserContactFactory.h"
#include "ZR/Internal/Printable.h"
#include "ZR/MessageLoop.h"

namespace krctl {

namespace {

namespace M = Kerrow::Server::Mail;
namespace MB = KRCB::Mailbox;

// The emulator answers in milliseconds; this is for a server that never does.
constexpr int kWaitMs = 10000;

struct MailArgs {
    std::string action;  // send, list, read, complete, delete
    std::string server, user, from, to, subject, text, id;
    std::string box = "inbox";
    bool offline = false;  // no server is reached: the client works from its files
};

std::string Owner(const Emulator::Service& service, const std::string& server,
                  const std::string& login) {
    auto user = service.FindUser(server, login);
    if (!user)
        throw Failure("the scenario has no user " + ZR::Internal::Printable(login) + " on " +
                      ZR::Internal::Printable(server));
    return user->id;
}

// Without --server, the one server of the scenario that knows the user.
std::string ServerOf(const Emulator::Service& service, const std::string& server,
                     const std::string& login) {
    if (!server.empty()) return Owner(service, server, login), server;
    std::vector<std::string> found;
    const Json state = Json::parse(service.ToDisplayText());
    for (const auto& s : state["servers"])
        if (service.FindUser(s["url"].get<std::string>(), login))
            found.push_back(s["url"].get<std::string>());
    if (found.size() != 1)
        throw Failure(found.empty() ? "the scenario has no user " + ZR::Internal::Printable(login)
                                    : "the user is on several servers; name one with --server");
    return found[0];
}

// What the command waits for, heard on the monitor's thread.
class Waiter : public MB::MailboxMonitorObserver {
public:
    ~Waiter() override { DetachFromSources(); }
    void MailboxChanged(ZR::Ref<MB::MailboxChange>&) override { Set(changes); }
    void MailboxServerStatusChange(bool online) override {
        if (online) Set(online_);
    }
    std::atomic<int> changes{0}, online_{0};

private:
    static void Set(std::atomic<int>& what) {
        ++what;
        ZR::MessageLoop::Wake();
    }
};

// How the command's request ended; empty while it runs.
struct Result {
    std::string Get() {
        std::lock_guard<std::mutex> lock(mutex);
        return text;
    }
    void Set(const std::string& value) {
        {
            std::lock_guard<std::mutex> lock(mutex);
            text = value;
        }
        ZR::MessageLoop::Wake();
    }
    std::mutex mutex;
    std::string text;
};

class Outcome : public MB::MailboxEventHandler {
public:
    explicit Outcome(std::shared_ptr<Result> result) : mResult(std::move(result)) {}
    void OnSuccess() override { mResult->Set("done"); }
    void OnCancel() override { mResult->Set("cancelled"); }
    void OnFailure(ZR::Ref<MB::MailboxMonitorException>& e) override {
        mResult->Set("failed: " + e->GetMessage().Std());
    }

private:
    std::shared_ptr<Result> mResult;
};

// The host's error handler: failures go to standard error.
class PrintErrors : public KRC::MailClientErrorHandler {
    void MailSendingFailed(Failure& f) override { Print("sending", f); }
    void MailDeletingFailed(Failure& f) override { Print("deleting", f); }
    void SetMailsReadFailed(Failure& f) override { Print("setting a flag", f); }
    static void Print(const char* what, Failure& f) {
        std::fprintf(stderr, "krctl: %s failed: %s\n", what,
                     ZR::Internal::Printable(f->GetMessage().Std()).c_str());
    }
};

class CacheFolder : public KRCB::ProjectConnectionManagerInterface {
public:
    CacheFolder(IO::Location location, IO::Location folder)
        : mLocation(std::move(location)), mFolder(std::move(folder)) {}
    const IO::Location& GetKerrowLocation() const override { return mLocation; }
    ZR::UniString GetProjectPath() const override { return ZR::UniString(); }
    bool IsSecondary() const override { return false; }
    KRCB::SignalClient* GetSignalClient() const override { return nullptr; }
    ZR::UniString GetSessionId() const override { return ZR::UniString(); }
    IO::Location GetCacheFolderLocation() const override { return mFolder; }

private:
    IO::Location mLocation, mFolder;
};

// The display name, or the mailbox where there is none.
std::string Name(const M::Address& address) {
    return address.GetName().IsEmpty() ? address.GetMailboxId().ToString().Std()
                                       : address.GetName().Std();
}

Json MailData(const ZR::Ref<KRC::ClientMail>& mail) {
    Json to = Json::array();
    for (const M::Address& a : mail->GetRecipients()) to.push_back(Name(a));
    auto server = mail->ToServerMail();
    const ZR::UniString* subject = server->GetHeader("Subject");
    return {{"id", mail->GetId().Std()},
            {"from", Name(mail->GetSender())},
            {"to", std::move(to)},
            {"subject", subject ? subject->Std() : std::string()},
            {"text", mail->GetMessagePart().Std()},
            {"sent", TimeText(mail->GetSentTime())},
            {"read", mail->IsRead()},
            {"completed", mail->IsCompleted()}};
}

// One user's client for the life of a command.
class Session {
public:
    Session(const GlobalOptions& options, const Emulator::Service& service,
            const std::string& server, const std::string& login, bool offline)
        : offline(offline),
          mFolder(ZR::UniString(options.dataFolder + "/Mail/" + login)),
          mMonitor(Location(service, server, login, offline),
                   ZR::Ref<MB::ContactFactory>(new KRC::Mailbox::UserContactFactory)),
          mSignals(ZR::UniString(offline ? kNoServer : server), ZR::UniString(login),
                   Location(service, server, login, offline).GetPassword()),
          mManager(Location(service, server, login, offline), mFolder) {
        if (IO::fileSystem.CreateFolderTree(mFolder))
            throw Failure("can't make the mail folder " + options.dataFolder + "/Mail");
        mMonitor.Attach(mWaiter);  // before the client: told after it has merged
        client = std::make_unique<KRC::MailClient>(&mMonitor, &mSignals, &mManager, false, 0,
                                                   std::make_unique<PrintErrors>());
        // The client starts a monitor that is not running, from the stored
        // revisions; offline it finds no server and stays offline.
        if (offline) return;
        mMonitor.Start();
        const bool ready = ZR::MessageLoop::RunUntil(
            [&] { return mWaiter.online_ > 0 && mWaiter.changes > 0 && mMonitor.GetUserContact(); },
            kWaitMs);
        if (!ready)
            throw Failure("the mail server did not answer " + ZR::Internal::Printable(login) +
                          " within " + std::to_string(kWaitMs / 1000) + " seconds");
    }
    ~Session() {
        client->Close();
        mMonitor.Stop();
        client.reset();
        ZR::MessageLoop::RunPending();
    }

    // A task for the client whose end the command waits for.
    KRC::MailClient::Task Task() {
        mResult = std::make_shared<Result>();
        return KRC::MailClient::Task(
            new MB::MailboxEventHandlerTask(&mTasks, new Outcome(mResult)));
    }
    // Waits for the task's end and then for cond; the task's result.
    std::string Wait(const std::function<bool()>& cond = [] { return true; }) {
        auto result = mResult;
        if (!ZR::MessageLoop::RunUntil([&] { return !result->Get().empty() && cond(); }, kWaitMs))
            throw Failure("the mail server did not confirm within " +
                          std::to_string(kWaitMs / 1000) + " seconds");
        return result->Get();
    }

    const bool offline;
    std::unique_ptr<KRC::MailClient> client;

private:
    // Offline: a server that is nowhere, with the user's own token.
    static constexpr const char* kNoServer = "https://offline.invalid";
    static IO::Location Location(const Emulator::Service& service, const std::string& server,
                                 const std::string& login, bool offline = false) {
        IO::Location location;
        KRCB::CreateServerLocation(location, ZR::UniString(offline ? kNoServer : server),
                                   ZR::UniString(login),
                                   ZR::UniString(service.FindUser(server, login)->refreshToken));
        return location;
    }
    struct Tasks : ZR::DependentResource {
        ~Tasks() override { ReleaseDependents(); }
    } mTasks;
    IO::Location mFolder;
    Waiter mWaiter;
    MB::MailboxMonitor mMonitor;
    KRCB::SignalClient mSignals;
    CacheFolder mManager;
    std::shared_ptr<Result> mResult = std::make_shared<Result>();
};

std::vector<std::string> Split(const std::string& list) {
    std::vector<std::string> out;
    std::stringstream in(list);
    for (std::string item; std::getline(in, item, ',');)
        if (!item.empty()) out.push_back(item);
    return out;
}

int Send(const GlobalOptions& options, Emulator::Service& service, const MailArgs& args) {
    const std::string server = ServerOf(service, args.server, args.from);
    M::AddressList to;
    for (const std::string& login : Split(args.to))
        to.Add(M::Address({ZR::UniString(Owner(service, server, login)), "Inbox"},
                          ZR::UniString(login)));
    if (to.IsEmpty()) throw UsageError("--to names no user");
    Session session(options, service, server, args.from, args.offline);
    KRC::ClientMail draft;
    draft.SetMessagePart(ZR::UniString(args.text));
    draft.SetRecipients(to);
    auto form = draft.ToServerMail();
    if (!args.subject.empty()) form->SetHeader("Subject", ZR::UniString(args.subject));
    ZR::Ref<KRC::ClientMail> mail(new KRC::ClientMail(form));
    const ZR::UniString id = mail->GetId();
    session.client->SendMail(mail, session.Task());
    if (session.offline) {
        // No contact without the server: it waits in the outbox.
        if (options.json)
            PrintJson(Json{{"id", id.Std()}, {"sent", false}});
        else
            std::printf("mail %s waits in the outbox\n", id.Std().c_str());
        return kExitDone;
    }
    // Sent when the server lists it in the sent box, not when the request ends.
    std::string result = session.Wait([&] { return !session.client->IsOutboxMail(id); });
    if (result != "done") throw Failure("the mail was not sent: " + result);
    if (options.json)
        PrintJson(Json{{"id", id.Std()}, {"sent", true}});
    else
        std::printf("sent mail %s\n", id.Std().c_str());
    return kExitDone;
}

int List(const GlobalOptions& options, Emulator::Service& service, const MailArgs& args) {
    Session session(options, service, ServerOf(service, args.server, args.user), args.user,
                    args.offline);
    auto& c = *session.client;
    KRC::MailClient::Mails mails = args.box == "sent"     ? c.GetSentMails()
                                   : args.box == "outbox" ? c.GetOutboxMails()
                                                          : c.GetInboxMails();
    Json list = Json::array();
    for (const auto& mail : mails) list.push_back(MailData(mail));
    if (options.json) {
        PrintJson(Json{{"user", args.user}, {"box", args.box}, {"mails", std::move(list)}});
        return kExitDone;
    }
    std::printf("%s of %s, %zu mails\n", args.box.c_str(),
                ZR::Internal::Printable(args.user).c_str(), list.size());
    for (const Json& m : list) {
        std::string flags = m["read"].get<bool>() ? "read" : "unread";
        if (m["completed"].get<bool>()) flags += ",completed";
        std::string to;
        for (const Json& name : m["to"]) to += (to.empty() ? "" : ",") + name.get<std::string>();
        std::printf("  mail %s from %s to %s sent %s %s\n    subject \"%s\"\n    text \"%s\"\n",
                    m["id"].get<std::string>().c_str(),
                    ZR::Internal::Printable(m["from"].get<std::string>()).c_str(),
                    ZR::Internal::Printable(to).c_str(), m["sent"].get<std::string>().c_str(),
                    flags.c_str(), ZR::Internal::Printable(m["subject"].get<std::string>()).c_str(),
                    ZR::Internal::Printable(m["text"].get<std::string>()).c_str());
    }
    return kExitDone;
}

int Change(const GlobalOptions& options, Emulator::Service& service, const MailArgs& args) {
    if (args.offline && args.action == "delete")
        throw UsageError("a delete is not kept offline: it needs the server");
    Session session(options, service, ServerOf(service, args.server, args.user), args.user,
                    args.offline);
    auto& c = *session.client;
    const ZR::UniString id(args.id);
    const bool inbox = c.IsInboxMail(id);
    if (!inbox && !c.IsSentMail(id))
        throw Failure("the user has no mail " + ZR::Internal::Printable(args.id));
    const KRC::MailClient::Ids ids{id};
    if (args.action == "read") {
        if (!inbox) throw Failure("only an inbox mail is read");
        c.SetInboxMailsRead(ids, session.Task());
    } else if (args.action == "complete") {
        if (inbox)
            c.SetInboxMailsCompleted(ids, session.Task());
        else
            c.SetSentMailsCompleted(ids, session.Task());
    } else if (inbox) {
        c.DeleteInboxMails(ids, session.Task());
    } else {
        c.DeleteSentMails(ids, session.Task());
    }
    // Offline the flag is set and kept for the server, and the task cancelled.
    std::string result = session.Wait();
    const bool kept = session.offline && result == "cancelled";
    if (result != "done" && !kept) throw Failure("the server did not take the change: " + result);
    if (options.json)
        PrintJson(Json{{"id", args.id}, {"action", args.action}, {"done", !kept}});
    else
        std::printf("%s mail %s: %s\n", args.action.c_str(),
                    ZR::Internal::Printable(args.id).c_str(),
                    kept ? "kept for the server" : "done");
    return kExitDone;
}

int RunMail(const GlobalOptions& options, const MailArgs& args, const std::string& scenario,
            bool update) {
    std::unique_ptr<Emulator::Service> service = LoadScenario(scenario);
    int code = kExitDone;
    {
        Installed installed(*service);
        ZR::MessageLoop::Scope loop;
        if (args.action == "send")
            code = Send(options, *service, args);
        else if (args.action == "list")
            code = List(options, *service, args);
        else
            code = Change(options, *service, args);
    }
    if (update) service->SaveScenarioFile(scenario);
    return code;
}

}  // namespace

void AddEmulateMailCommand(CLI::App* emulate, const GlobalOptions& options, Action* action,
                           const std::string& scenario, const bool& update) {
    CLI::App* mail = emulate->add_subcommand(
        "mail",
        "act as a user's mail client against the emulated mail server: it waits up to 10 "
        "seconds for the server, the user's contact and the boxes, acts, and waits for the "
        "server's answer; with --update the server's boxes go back into the scenario");
    mail->require_subcommand(1);
    auto add = [&](const char* name, const char* help) {
        auto args = std::make_shared<MailArgs>();
        args->action = name;
        CLI::App* sub = mail->add_subcommand(name, help);
        sub->add_option("--server", args->server,
                        "management server URL (default: the one server with the user)");
        sub->add_flag("--offline", args->offline,
                      "keep the client offline: it reaches no server and works from its "
                      "stored files, and what it "
                      "changes goes to the server at the next command that is online");
        sub->callback([&options, action, args, &scenario, &update] {
            *action = [&options, args, &scenario, &update] {
                return RunMail(options, *args, scenario, update);
            };
        });
        return std::make_pair(sub, args);
    };
    auto [send, sendArgs] = add("send",
                                "send a mail; exit 0 once the server lists it in the sender's "
                                "sent box (with --json the keys id and sent)");
    send->add_option("--from", sendArgs->from, "login name of the sender")->required();
    send->add_option("--to", sendArgs->to, "login names of the recipients, comma-separated")
        ->required();
    send->add_option("--subject", sendArgs->subject, "subject header");
    send->add_option("--text", sendArgs->text, "message text");
    auto [list, listArgs] = add("list",
                                "print a box as the mail client holds it: id, sender, "
                                "recipients, sent time, flags, subject and text (with --json "
                                "the keys user, box and mails)");
    list->add_option("--user", listArgs->user, "login name")->required();
    list->add_option("--box", listArgs->box, "inbox (default), sent or outbox")
        ->check(CLI::IsMember({"inbox", "sent", "outbox"}));
    for (const char* name : {"read", "complete", "delete"}) {
        auto [sub, args] =
            add(name, name == std::string("read")       ? "mark an inbox mail read"
                      : name == std::string("complete") ? "mark an inbox or sent mail completed"
                                                        : "delete an inbox or sent mail");
        sub->add_option("--user", args->user, "login name")->required();
        sub->add_option("--id", args->id, "mail id")->required();
    }
}

}  // namespace krctl
