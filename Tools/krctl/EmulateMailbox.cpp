// krctl emulate SCENARIO mailbox: a user's boxes on the emulated mail
// server, as the server holds them: revision, and each mail's id, thread,
// sender, recipients, sent time and flags.

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "Emulate.h"
#include "Kerrow/Mail.h"
#include "ZR/Internal/Printable.h"

namespace krctl {

namespace {

namespace M = Kerrow::Server::Mail;

struct MailboxArgs {
    std::string server, user;
    std::string box;  // "inbox", "sent", or empty for both
};

Json AddressData(const M::Address& address) {
    return {{"mailbox", address.GetMailboxId().ToString().Std()},
            {"name", address.GetName().Std()}};
}

Json BoxData(const Emulator::Service& service, const std::string& server,
             const std::string& mailboxId) {
    Json mails = Json::array();
    for (const M::Mail& mail : service.GetMails(server, mailboxId)) {
        const ZR::UniString* thread = mail.GetHeader("ThreadId");
        Json from = Json::array(), to = Json::array();
        for (const M::Address& a : mail.GetFrom()) from.push_back(AddressData(a));
        for (const M::Address& a : mail.GetTo()) to.push_back(AddressData(a));
        mails.push_back({{"id", mail.GetId().ToString().Std()},
                         {"thread", thread ? thread->Std() : std::string()},
                         {"from", std::move(from)},
                         {"to", std::move(to)},
                         {"sent", TimeText(mail.GetSent().GetTime())},
                         {"read", mail.IsRead()},
                         {"completed", mail.IsCompleted()}});
    }
    return {{"mailbox", mailboxId},
            {"revision", service.GetMailboxRevision(server, mailboxId)},
            {"mails", std::move(mails)}};
}

void PrintBox(const char* name, const Json& box) {
    std::printf("%s %s revision %llu, %zu mails\n", name,
                ZR::Internal::Printable(box["mailbox"].get<std::string>()).c_str(),
                static_cast<unsigned long long>(box["revision"].get<std::uint64_t>()),
                box["mails"].size());
    for (const Json& mail : box["mails"]) {
        std::string flags = mail["read"].get<bool>() ? "read" : "unread";
        if (mail["completed"].get<bool>()) flags += ",completed";
        std::printf("  mail %s thread %s sent %s %s\n",
                    ZR::Internal::Printable(mail["id"].get<std::string>()).c_str(),
                    mail["thread"].get<std::string>().empty()
                        ? "(none)"
                        : ZR::Internal::Printable(mail["thread"].get<std::string>()).c_str(),
                    mail["sent"].get<std::string>().c_str(), flags.c_str());
        for (const char* side : {"from", "to"})
            for (const Json& a : mail[side])
                std::printf("    %s \"%s\" <%s>\n", side,
                            ZR::Internal::Printable(a["name"].get<std::string>()).c_str(),
                            ZR::Internal::Printable(a["mailbox"].get<std::string>()).c_str());
    }
}

// Without --server, the one server of the scenario that knows the user.
std::string FindServer(const Emulator::Service& service, const MailboxArgs& args) {
    if (!args.server.empty()) {
        if (!service.FindUser(args.server, args.user))
            throw Failure("the scenario has no user " + ZR::Internal::Printable(args.user) +
                          " on " + ZR::Internal::Printable(args.server));
        return args.server;
    }
    std::vector<std::string> found;
    const nlohmann::json state = nlohmann::json::parse(service.ToDisplayText());
    for (const auto& server : state["servers"]) {
        const std::string url = server["url"].get<std::string>();
        if (service.FindUser(url, args.user)) found.push_back(url);
    }
    if (found.size() != 1)
        throw Failure(found.empty()
                          ? "the scenario has no user " + ZR::Internal::Printable(args.user)
                          : "the user is on several servers; name one with --server");
    return found[0];
}

int RunMailbox(const GlobalOptions& options, const MailboxArgs& args, const std::string& scenario) {
    std::unique_ptr<Emulator::Service> service = LoadScenario(scenario);
    const std::string server = FindServer(*service, args);
    Json boxes = Json::object();
    for (const char* box : {"inbox", "sent"})
        if (args.box.empty() || args.box == box)
            boxes[box] =
                BoxData(*service, server,
                        service->GetMailboxId(server, args.user,
                                              box == std::string("inbox") ? "Inbox" : "Sent"));
    if (options.json) {
        PrintJson(Json{{"server", server}, {"user", args.user}, {"boxes", std::move(boxes)}});
        return kExitDone;
    }
    for (const auto& [name, box] : boxes.items()) PrintBox(name.c_str(), box);
    return kExitDone;
}

}  // namespace

void AddEmulateMailboxCommand(CLI::App* emulate, GlobalOptions& options, Action* action,
                              const std::string& scenario) {
    auto args = std::make_shared<MailboxArgs>();
    CLI::App* mailbox = emulate->add_subcommand(
        "mailbox",
        "print a user's inbox and sent box on the emulated mail server: revision, and each "
        "mail's id, thread, sender, recipients, sent time (ISO 8601, UTC) and read and "
        "completed flags (with --json the keys server, user, boxes.inbox and boxes.sent, each "
        "with mailbox, revision and mails)");
    mailbox->add_option("--user", args->user, "login name")->required();
    mailbox->add_option("--server", args->server,
                        "management server URL (default: the one server with the user)");
    mailbox->add_option("--box", args->box, "only this box")
        ->check(CLI::IsMember({"inbox", "sent"}));
    mailbox->callback([&options, action, args, &scenario] {
        options.readsOnly = true;
        *action = [&options, args, &scenario] { return RunMailbox(options, *args, scenario); };
    });
}

}  // namespace krctl
