// A host process on an outbox: outbox_worker FOLDER add PREFIX N adds N mails
// with texts PREFIX-0, PREFIX-1, ... to the outbox of FOLDER and ends, which
// writes Outbox.dat; outbox_worker FOLDER list prints each mail of it as
// "text|sender|attachment classes".

#include <cstdio>
#include <cstdlib>
#include <string>

#include "KRClient/MailClient/Internal/Outbox.h"

int main(int argc, char** argv) {
    if (argc < 3) return 2;
    KRC::Outbox outbox{IO::Location(ZR::UniString(argv[1]))};
    std::string mode = argv[2];
    if (mode == "add" && argc == 5) {
        for (long i = 0; i < std::atol(argv[4]); ++i) {
            ZR::Ref<KRC::ClientMail> mail(new KRC::ClientMail);
            mail->SetMessagePart(ZR::UniString(std::string(argv[3]) + "-" + std::to_string(i)));
            mail->SetSender(Kerrow::Server::Mail::Address({"me", "Sent"}, "Me"));
            KRC::TestAttachment attachment;
            attachment.SetCustomProperty("n", ZR::UniString(std::to_string(i)));
            mail->AddAttachment(attachment);
            outbox.AddMail(mail);
        }
        return 0;
    }
    if (mode != "list") return 2;
    ZR::PagedArray<ZR::Ref<KRC::ClientMail>, 8> mails;
    outbox.GetMails(mails, false);
    for (const auto& mail : mails) {
        std::string classes;
        for (const KRC::MailAttachment* a : mail->EnumerateAttachments())
            classes += a->GetClassName().Std() + ":" + a->GetCustomProperty("n").Std() + ";";
        std::printf("%s|%s|%s\n", mail->GetMessagePart().ToCString(),
                    mail->GetSender().GetName().ToCString(), classes.c_str());
    }
    return 0;
}
