// A host process that writes its mail files again and again: mail_worker
// FOLDER START builds a mail client on FOLDER, gives it an inbox at revision
// n and an outbox of one mail with the text n, and ends it, which writes
// Mails.dat and Outbox.dat; for n = START + 1, START + 2, ... until it is
// killed. It prints "ready" first and n after each end.

#include <cstdio>
#include <cstdlib>
#include <string>

#include "KRClient/MailClient/MailClient.h"
#include "Support/ScriptedMailboxMonitor.h"

namespace {

class NoErrors : public KRC::MailClientErrorHandler {
    void MailSendingFailed(Failure&) override {}
    void MailDeletingFailed(Failure&) override {}
    void SetMailsReadFailed(Failure&) override {}
};

struct Folder : KRCB::ProjectConnectionManagerInterface {
    explicit Folder(IO::Location folder) : folder(std::move(folder)) {}
    const IO::Location& GetKerrowLocation() const override { return folder; }
    ZR::UniString GetProjectPath() const override { return "/p"; }
    bool IsSecondary() const override { return false; }
    KRCB::SignalClient* GetSignalClient() const override { return nullptr; }
    ZR::UniString GetSessionId() const override { return ""; }
    IO::Location GetCacheFolderLocation() const override { return folder; }
    IO::Location folder;
};

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) return 2;
    Folder folder{IO::Location(ZR::UniString(argv[1]))};
    krtest::ScriptedMailboxMonitor monitor;
    monitor.Start();
    KRCB::SignalClient signals{"https://nowhere.invalid", "anna", "rt-none"};
    std::printf("ready\n");
    std::fflush(stdout);
    for (long n = std::atol(argv[2]) + 1;; ++n) {
        {
            KRC::MailClient client(&monitor, &signals, &folder, false, 0,
                                   std::make_unique<NoErrors>());
            // Enough mails that a write takes a while to kill it in.
            krtest::ScriptedMailboxMonitor::Box inbox;
            for (int i = 0; i < 20; ++i) {
                Kerrow::Server::Mail::Mail mail{
                    Kerrow::Server::Mail::MailId(ZR::UniString("m" + std::to_string(i)))};
                mail.SetHeader("Body", ZR::UniString(std::string(400, 'x')));
                inbox.created.push_back(mail);
            }
            inbox.to = static_cast<std::uint64_t>(n);
            monitor.Deliver(krtest::ScriptedMailboxMonitor::Change(inbox, {}));
            ZR::HashSet<ZR::UniString> old;
            for (const auto& mail : client.GetOutboxMails()) old.Add(mail->GetId());
            client.DeleteOutboxMails(old);
            ZR::Ref<KRC::ClientMail> mail(new KRC::ClientMail);
            mail->SetMessagePart(ZR::UniString(std::to_string(n)));
            client.SendMail(mail, {});
        }
        std::printf("%ld\n", n);
        std::fflush(stdout);
    }
}
