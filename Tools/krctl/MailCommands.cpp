// krctl mail: the mail files of a data folder, read with the library itself
// and never changed.

#include <cstdio>
#include <memory>
#include <string>

#include "IO/File.h"
#include "KRClient/MailClient/Internal/Outbox.h"
#include "Krctl.h"

namespace krctl {

namespace {

struct MailArgs {
    std::string file;
};

std::string ErrorText(int status) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%08x", static_cast<unsigned int>(status));
    return status == -7003 ? "-7003" : text;
}

Json AddressToJson(const Kerrow::Server::Mail::Address& address) {
    return {{"name", address.GetName().Std()},
            {"mailbox", address.GetMailboxId().ToString().Std()}};
}

Json MailToJson(KRC::ClientMail& mail) {
    Json to = Json::array();
    for (const auto& address : mail.GetRecipients()) to.push_back(AddressToJson(address));
    Json classes = Json::array();
    for (const KRC::MailAttachment* attachment : mail.EnumerateAttachments())
        classes.push_back(attachment->GetClassName().Std());
    Json out = {{"id", mail.GetId().Std()},
                {"thread", mail.GetThreadId().Std()},
                {"sender", AddressToJson(mail.GetSender())},
                {"recipients", std::move(to)}};
    PutTime(out, "sent", mail.GetSentTime());
    out["read"] = mail.IsRead();
    out["completed"] = mail.IsCompleted();
    out["attachments"] = std::move(classes);
    return out;
}

std::string AddressText(const Json& address) {
    return OneLine(address["name"].get<std::string>()) + " <" +
           OneLine(address["mailbox"].get<std::string>()) + ">";
}

void PrintMail(std::size_t index, const Json& mail) {
    std::string to, classes;
    for (const Json& address : mail["recipients"])
        to += (to.empty() ? "" : ", ") + AddressText(address);
    for (const Json& name : mail["attachments"])
        classes += (classes.empty() ? "" : ", ") + OneLine(name.get<std::string>());
    std::string flags = std::string(mail["read"].get<bool>() ? "read" : "unread") +
                        (mail["completed"].get<bool>() ? ", completed" : "");
    std::printf(
        "mail %zu\n  id:          %s\n  thread:      %s\n  sender:      %s\n  recipients:  %s\n"
        "  sent:        %s\n  flags:       %s\n  attachments: %s\n",
        index + 1, OneLine(mail["id"].get<std::string>()).c_str(),
        OneLine(mail["thread"].get<std::string>()).c_str(), AddressText(mail["sender"]).c_str(),
        to.empty() ? "(none)" : to.c_str(), mail["sentText"].get<std::string>().c_str(),
        flags.c_str(), classes.empty() ? "(none)" : classes.c_str());
}

int DumpOutbox(const GlobalOptions& options, const MailArgs& a) {
    std::string data;
    IO::Location file{ZR::UniString(a.file)};
    if (int status = IO::fileSystem.ReadWholeFile(file, &data))
        throw Failure("cannot read " + OneLine(a.file) + " (" + ErrorText(status) + ")");
    const auto* bytes = reinterpret_cast<const unsigned char*>(data.data());
    std::uint32_t count = 0;
    ZR::MemoryIChannel head(bytes, data.size());
    bool hasCount = head.ReadUInt32(count) == 0;
    ZR::PagedArray<ZR::Ref<KRC::ClientMail>, 8> mails;
    std::size_t stoppedAt = 0;
    int status = KRC::Outbox::ReadMails(bytes, data.size(), mails, &stoppedAt);

    Json list = Json::array();
    for (const auto& mail : mails) list.push_back(MailToJson(*mail));
    Json result = {{"file", a.file}, {"size", data.size()}};
    if (hasCount) result["count"] = count;
    result["mails"] = list;
    result["complete"] = status == 0;
    if (status) {
        result["stoppedAt"] = stoppedAt;
        result["error"] = ErrorText(status);
    }
    if (options.json) {
        PrintJson(result);
    } else {
        for (std::size_t i = 0; i < list.size(); ++i) PrintMail(i, list[i]);
        if (status == 0)
            std::printf("%zu mail(s)\n", list.size());
        else
            std::printf("%zu of %s mail(s) read; reading stopped at byte %zu (error %s)\n",
                        list.size(), hasCount ? std::to_string(count).c_str() : "?", stoppedAt,
                        ErrorText(status).c_str());
    }
    return status == 0 ? kExitDone : kExitFailed;
}

}  // namespace

void AddMailCommands(CLI::App& app, const GlobalOptions& options, Action* action) {
    CLI::App* mail = app.add_subcommand("mail", "the mail files of a data folder (read only)");
    mail->require_subcommand(1);
    auto a = std::make_shared<MailArgs>();
    CLI::App* dump = mail->add_subcommand(
        "dump-outbox",
        "the mails of an Outbox.dat: id, thread, sender, recipients, sent time, flags and\n"
        "attachment classes. For a damaged file: the mails before the damage and the byte\n"
        "offset where reading stopped, with exit code 1. The file is never changed.");
    dump->add_option("FILE", a->file, "the Outbox.dat to read")->required();
    dump->callback([&options, action, a] {
        options.readsOnly = true;
        *action = [&options, a] { return DumpOutbox(options, *a); };
    });
}

}  // namespace krctl
