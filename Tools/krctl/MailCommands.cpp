// krctl mail: the mail files of a data folder, read with the library itself
// and never changed.

#include <cstdio>
#include <memory>
#include <string>

#include "IO/File.h"
#include "KRClient/KRClient.h"
#include "KRClient/MailClient/Internal/MailsFile.h"
#include "KRClient/MailClient/Internal/Outbox.h"
#include "KRClient/MailClient/MailClient.h"
#include "Krctl.h"

namespace krctl {

namespace {

struct MailArgs {
    std::string file;
    std::string folder;
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

// An Outbox.dat as JSON: the mails before any damage, and where reading stopped.
Json ReadOutbox(const std::string& path, int* status) {
    std::string data;
    IO::Location file{ZR::UniString(path)};
    if (int failed = IO::fileSystem.ReadWholeFile(file, &data))
        throw Failure("cannot read " + OneLine(path) + " (" + ErrorText(failed) + ")");
    const auto* bytes = reinterpret_cast<const unsigned char*>(data.data());
    std::uint32_t count = 0;
    ZR::MemoryIChannel head(bytes, data.size());
    bool hasCount = head.ReadUInt32(count) == 0;
    ZR::PagedArray<ZR::Ref<KRC::ClientMail>, 8> mails;
    std::size_t stoppedAt = 0;
    *status = KRC::Outbox::ReadMails(bytes, data.size(), mails, &stoppedAt);

    Json list = Json::array();
    for (const auto& mail : mails) list.push_back(MailToJson(*mail));
    Json result = {{"file", path}, {"size", data.size()}};
    if (hasCount) result["count"] = count;
    result["mails"] = list;
    result["complete"] = *status == 0;
    if (*status) {
        result["stoppedAt"] = stoppedAt;
        result["error"] = ErrorText(*status);
    }
    return result;
}

void PrintOutboxEnd(const Json& result, int status) {
    const std::size_t read = result["mails"].size();
    if (status == 0)
        std::printf("%zu mail(s)\n", read);
    else
        std::printf(
            "%zu of %s mail(s) read; reading stopped at byte %zu (error %s)\n", read,
            result.contains("count") ? std::to_string(result["count"].get<std::uint32_t>()).c_str()
                                     : "?",
            result["stoppedAt"].get<std::size_t>(), result["error"].get<std::string>().c_str());
}

int DumpOutbox(const GlobalOptions& options, const MailArgs& a) {
    int status = 0;
    Json result = ReadOutbox(a.file, &status);
    if (options.json) {
        PrintJson(result);
    } else {
        for (std::size_t i = 0; i < result["mails"].size(); ++i) PrintMail(i, result["mails"][i]);
        PrintOutboxEnd(result, status);
    }
    return status == 0 ? kExitDone : kExitFailed;
}

Json IdsToJson(const KRC::Internal::MailIdList& ids) {
    Json list = Json::array();
    for (const auto& id : ids) list.push_back(id.Std());
    return list;
}

Json TableToJson(const KRC::Internal::MailTable& table) {
    Json list = Json::array();
    for (const auto& entry : table) list.push_back(MailToJson(*entry.second));
    return list;
}

// A Mails.dat as JSON: what was read, in the file's order, and for a damaged
// file where reading stopped. The client would take none of a damaged file.
Json ReadMailsDat(const std::string& path, int* status) {
    std::uint64_t size = 0;
    IO::File file{IO::Location(ZR::UniString(path)), IO::kNotFoundFail};
    if (int failed = file.GetStatus() ? file.GetStatus() : file.GetDataLength(&size))
        throw Failure("cannot read " + OneLine(path) + " (" + ErrorText(failed) + ")");
    KRC::Internal::MailsFileContent content;
    std::uint64_t stoppedAt = 0;
    *status = KRC::Internal::ReadMailsFile(file.GetLocation(), content, &stoppedAt);
    Json result = {{"file", path},
                   {"size", size},
                   {"inboxRevision", content.inboxRevision},
                   {"inbox", TableToJson(content.inbox)},
                   {"sentRevision", content.sentRevision},
                   {"sent", TableToJson(content.sent)},
                   {"inboxToComplete", IdsToJson(content.inboxToComplete)},
                   {"sentToComplete", IdsToJson(content.sentToComplete)},
                   {"inboxToRead", IdsToJson(content.inboxToRead)},
                   {"complete", *status == 0}};
    if (*status) {
        result["stoppedAt"] = stoppedAt;
        result["error"] = ErrorText(*status);
    }
    return result;
}

std::string IdsText(const Json& ids) {
    std::string text;
    for (const Json& id : ids) text += (text.empty() ? "" : ", ") + OneLine(id.get<std::string>());
    return text.empty() ? "(none)" : text;
}

void PrintMailsDat(const Json& r) {
    std::printf("%s, %zu bytes\n", OneLine(r["file"].get<std::string>()).c_str(),
                r["size"].get<std::size_t>());
    if (!r["complete"].get<bool>())
        std::printf(
            "DAMAGED: reading stopped at byte %zu (error %s); the client takes none of "
            "it. What was read before:\n",
            r["stoppedAt"].get<std::size_t>(), r["error"].get<std::string>().c_str());
    for (const char* box : {"inbox", "sent"}) {
        const Json& mails = r[box];
        std::printf(
            "%s: revision %llu, %zu mail(s)\n", box,
            static_cast<unsigned long long>(r[std::string(box) + "Revision"].get<std::uint64_t>()),
            mails.size());
        for (std::size_t i = 0; i < mails.size(); ++i) PrintMail(i, mails[i]);
    }
    std::printf("completed inbox mails for the server: %s\n",
                IdsText(r["inboxToComplete"]).c_str());
    std::printf("completed sent mails for the server: %s\n", IdsText(r["sentToComplete"]).c_str());
    std::printf("read inbox mails for the server: %s\n", IdsText(r["inboxToRead"]).c_str());
}

// Both mail files of a cache folder; a missing one is reported as such.
int DumpFolder(const GlobalOptions& options, const MailArgs& a) {
    IO::Location folder{ZR::UniString(a.folder)};
    bool exists = false;
    if (IO::fileSystem.Contains(folder, &exists) || !exists)
        throw Failure("no cache folder " + OneLine(a.folder));
    const std::string mailsPath = a.folder + "/" + KRC::MailClient::kMailsFileName;
    const std::string outboxPath = a.folder + "/" + KRC::Outbox::kFileName;
    Json result = {{"folder", a.folder}};
    int mailsStatus = 0, outboxStatus = 0;
    const bool hasMails = KRC::FileExist(IO::Location(ZR::UniString(mailsPath)));
    const bool hasOutbox = KRC::FileExist(IO::Location(ZR::UniString(outboxPath)));
    result["mails"] = hasMails ? ReadMailsDat(mailsPath, &mailsStatus) : Json(nullptr);
    result["outbox"] = hasOutbox ? ReadOutbox(outboxPath, &outboxStatus) : Json(nullptr);
    if (options.json) {
        PrintJson(result);
    } else {
        if (hasMails)
            PrintMailsDat(result["mails"]);
        else
            std::printf("%s: none\n", OneLine(mailsPath).c_str());
        if (hasOutbox) {
            const Json& outbox = result["outbox"];
            std::printf("%s, %zu bytes\noutbox:\n", OneLine(outboxPath).c_str(),
                        outbox["size"].get<std::size_t>());
            for (std::size_t i = 0; i < outbox["mails"].size(); ++i)
                PrintMail(i, outbox["mails"][i]);
            PrintOutboxEnd(outbox, outboxStatus);
        } else {
            std::printf("%s: none\n", OneLine(outboxPath).c_str());
        }
    }
    return mailsStatus == 0 && outboxStatus == 0 ? kExitDone : kExitFailed;
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

    CLI::App* both = mail->add_subcommand(
        "dump",
        "the Mails.dat and Outbox.dat of a cache folder: revisions, the mails of each box\n"
        "(id, thread, sender, recipients, sent time, flags, attachment classes), the three\n"
        "lists of changes the server has not confirmed, and the outbox. A damaged file is\n"
        "reported with the byte offset where reading stopped, with exit code 1. Nothing is\n"
        "changed.");
    both->add_option("CACHE_FOLDER", a->folder, "the cache folder")->required();
    both->callback([&options, action, a] {
        options.readsOnly = true;
        *action = [&options, a] { return DumpFolder(options, *a); };
    });
}

}  // namespace krctl
