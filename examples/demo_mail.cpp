// The demo's mail: Anna and Ben each run a MailClient on a mailbox monitor of
// their own against one emulated mail server. Anna goes offline, marks
// Ben's mails read and completed and writes a reply, which waits in her
// outbox; when she comes back, the client sends the reply and repeats her
// changes, and both reach the server and Ben. Last, Anna closes her client
// and opens it again on the same cache folder: her mails are there at once,
// from "Mails.dat", before the server is asked.

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>

#include "Emulator/Service.h"
#include "KRCB/MailboxMonitor.h"
#include "KRCB/Paths.h"
#include "KRCB/SignalClient.h"
#include "KRClient/MailClient/MailClient.h"
#include "KRClient/MailClient/UserContactFactory.h"
#include "ZR/MessageLoop.h"

namespace {

namespace M = Kerrow::Server::Mail;
namespace MB = KRCB::Mailbox;

constexpr auto kBound = std::chrono::seconds(5);

// Runs the message loop until cond holds; false past the bound.
bool Await(const std::function<bool()>& cond) {
    const auto end = std::chrono::steady_clock::now() + kBound;
    while (!cond()) {
        if (std::chrono::steady_clock::now() > end) return false;
        ZR::MessageLoop::RunUntil(cond, 20);
    }
    return true;
}

class PrintErrors : public KRC::MailClientErrorHandler {
    void MailSendingFailed(Failure& f) override { Print("sending", f); }
    void MailDeletingFailed(Failure& f) override { Print("deleting", f); }
    void SetMailsReadFailed(Failure& f) override { Print("a flag", f); }
    static void Print(const char* what, Failure& f) {
        std::printf("     [error] %s failed: %s\n", what, f->GetMessage().ToCString());
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

// One user's desk: the monitor, the signal client and the mail client.
struct Desk {
    Desk(Emulator::Service& service, const char* server, const char* login,
         const std::string& folder)
        : location(Location(service, server, login)),
          monitor(location, ZR::Ref<MB::ContactFactory>(new KRC::Mailbox::UserContactFactory)),
          signals(server, login, location.GetPassword()),
          manager(location, IO::Location(ZR::UniString(folder))) {
        std::filesystem::create_directories(folder);
        std::filesystem::permissions(folder, std::filesystem::perms::owner_all);
        client = std::make_unique<KRC::MailClient>(&monitor, &signals, &manager, false, 0,
                                                   std::make_unique<PrintErrors>());
        monitor.Start();
        Await([&] { return client->IsOnline() && monitor.GetUserContact(); });
    }
    ~Desk() {
        client->Close();
        monitor.Stop();
        client.reset();
    }
    static IO::Location Location(Emulator::Service& service, const char* server,
                                 const char* login) {
        IO::Location location;
        KRCB::CreateServerLocation(location, server, login,
                                   ZR::UniString(service.FindUser(server, login)->refreshToken));
        return location;
    }
    // Ends the client, which writes its files, and builds a new one on the
    // same cache folder before the monitor runs again.
    void Reopen() {
        client->Close();
        monitor.Stop();
        client.reset();
        client = std::make_unique<KRC::MailClient>(&monitor, &signals, &manager, false, 0,
                                                   std::make_unique<PrintErrors>());
    }
    void Start() {
        monitor.Start();
        Await([&] { return client->IsOnline() && monitor.GetUserContact(); });
    }
    ZR::Ref<KRC::ClientMail> Write(const M::Address& to, const char* text) {
        ZR::Ref<KRC::ClientMail> mail(new KRC::ClientMail);
        mail->SetSingleRecipient(to);
        mail->SetMessagePart(text);
        client->SendMail(mail, KRC::MailClient::Task());
        return mail;
    }

    IO::Location location;
    MB::MailboxMonitor monitor;
    KRCB::SignalClient signals;
    CacheFolder manager;
    std::unique_ptr<KRC::MailClient> client;
};

void ShowServer(Emulator::Service& service, const char* server, const char* login) {
    const std::string box = service.GetMailboxId(server, login, "Inbox");
    for (const M::Mail& mail : service.GetMails(server, box))
        std::printf("     [server] %s's inbox: %s%s%s\n", login,
                    mail.GetId().ToString().ToCString(), mail.IsRead() ? " read" : " unread",
                    mail.IsCompleted() ? ", completed" : "");
}

}  // namespace

void RunMailDemo(Emulator::Service& service, const char* server, const std::string& root) {
    std::printf("   Anna and Ben each open their mail client.\n");
    Desk anna(service, server, "anna", root + "/mail-anna");
    Desk ben(service, server, "ben", root + "/mail-ben");
    M::Address annaInbox, benInbox;
    anna.monitor.GetUserContact()->GetInboxMailboxAddress(annaInbox);
    ben.monitor.GetUserContact()->GetInboxMailboxAddress(benInbox);

    std::printf("   Ben sends Anna two mails.\n");
    auto plans = ben.Write(annaInbox, "Plans for level 2");
    auto stair = ben.Write(annaInbox, "Stair detail");
    Await([&] { return anna.client->GetInboxMails().GetSize() == 2; });
    std::printf("     Anna's inbox holds %zu mails\n", anna.client->GetInboxMails().GetSize());

    std::printf("   Anna goes offline (presence \"check failed\": her monitor is suspended).\n");
    anna.client->PresenceStateChanged(KRCB::kPresenceCheckFailed);
    Await([&] { return !anna.client->IsOnline(); });
    anna.client->SetInboxMailRead(plans->GetId());
    anna.client->SetInboxMailCompleted(stair->GetId());
    auto reply = anna.Write(benInbox, "Thanks, looks good");
    std::printf("     online %s; her reply waits in the outbox (%zu mail); the server has:\n",
                anna.client->IsOnline() ? "yes" : "no", anna.client->GetOutboxMails().GetSize());
    ShowServer(service, server, "anna");

    std::printf("   Anna comes back: the outbox goes out and her changes are repeated.\n");
    anna.client->PresenceStateChanged(KRCB::kPresenceOnline);
    ZR::Ref<KRC::ClientMail> got;
    const bool arrived = Await([&] {
        return anna.client->GetOutboxMails().IsEmpty() && ben.client->GetMail(reply->GetId(), got);
    });
    Await([&] {
        bool done = true;
        for (const M::Mail& mail :
             service.GetMails(server, service.GetMailboxId(server, "anna", "Inbox")))
            done = done && (mail.IsRead() || mail.IsCompleted());
        return done;
    });
    std::printf("     Ben %s the reply: \"%s\"\n", arrived ? "has" : "does not have",
                arrived ? got->GetMessagePart().ToCString() : "");
    ShowServer(service, server, "anna");

    std::printf("   Anna closes her mail client and opens it again on the same cache folder.\n");
    anna.Reopen();
    const auto inbox = anna.client->GetInboxMails();
    std::printf("     before the server is asked: %zu inbox mails, %zu sent, revisions %llu/%llu\n",
                inbox.GetSize(), anna.client->GetSentMails().GetSize(),
                static_cast<unsigned long long>(anna.client->GetInboxRevision()),
                static_cast<unsigned long long>(anna.client->GetSentRevision()));
    for (const auto& mail : inbox)
        std::printf("     %s \"%s\"%s%s\n", mail->GetId().ToCString(),
                    mail->GetMessagePart().ToCString(), mail->IsRead() ? " read" : "",
                    mail->IsCompleted() ? " completed" : "");
    anna.Start();
    std::printf("     online again: %s, the server going on from the stored revisions\n",
                anna.client->IsOnline() ? "yes" : "no");
}
