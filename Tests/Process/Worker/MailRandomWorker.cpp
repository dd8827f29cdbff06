// A host process on a mail client's cache folder, with no server, for the
// random mail sequences that kill it while it writes:
//   mail_random_worker FOLDER TO_OWNER_ID READ_ID MAIL_ID...
// sends the mails (each to TO_OWNER_ID's inbox, so they wait in the outbox),
// sets READ_ID read unless it is "-", prints "ending" and ends the client,
// which writes its files, then prints "ended".

#include <cstdio>
#include <memory>
#include <string>

#include "KRCB/MailboxMonitor.h"
#include "KRCB/SignalClient.h"
#include "KRClient/MailClient/MailAttachment.h"
#include "KRClient/MailClient/MailClient.h"
#include "KRClient/MailRandom/PinnedAttachment.h"

namespace {

using mailrandom::Pinned;

struct Silent : KRC::MailClientErrorHandler {
    void MailSendingFailed(Failure&) override {}
    void MailDeletingFailed(Failure&) override {}
    void SetMailsReadFailed(Failure&) override {}
};

}  // namespace

int main(int argc, char** argv) {
    namespace M = Kerrow::Server::Mail;
    if (argc < 4) return 2;
    KRCB::Mailbox::MailboxMonitor monitor;
    KRCB::SignalClient signals("https://nowhere.invalid", "anna", "rt-none");
    KRCB::CacheFolderConnection folder{IO::Location(ZR::UniString(argv[1])), IO::Location(), "/p"};
    auto client = std::make_unique<KRC::MailClient>(&monitor, &signals, &folder, false, 0,
                                                    std::make_unique<Silent>());
    M::AddressList to;
    to.Add(M::Address(M::MailboxId(ZR::UniString(argv[2]), "Inbox"), "to"));
    for (int i = 4; i < argc; ++i) {
        auto mail = ZR::Ref<M::Mail>::Make(M::MailId(ZR::UniString(argv[i])));
        ZR::Ref<KRC::ClientMail> own(new KRC::ClientMail(mail));
        own->SetRecipients(to);
        own->SetMessagePart(ZR::UniString(std::string("text of ") + argv[i]));
        client->SendMail(own, KRC::MailClient::Task());
    }
    if (std::string(argv[3]) != "-") client->SetInboxMailRead(ZR::UniString(argv[3]));
    std::printf("ending\n");
    std::fflush(stdout);
    client.reset();
    monitor.Stop();
    std::printf("ended\n");
    return 0;
}
