// Scenario files: the mail server's mailboxes with their revisions and mails.
#include <algorithm>
#include <unordered_set>

#include "Emulator/Internal/Scenario.h"
#include "Kerrow/Mail.h"

namespace Emulator::Internal::Scenario {

namespace {

namespace M = Kerrow::Server::Mail;

M::Headers ReadHeaders(const Value& object, const std::string& path) {
    M::Headers headers;
    const Value* value = Member(object, "headers");
    if (!value) return headers;
    if (!value->is_object()) Fail(Child(path, "headers"), "expected an object of texts");
    for (const auto& [name, text] : value->items()) {
        if (!text.is_string()) Fail(Child(Child(path, "headers"), name), "expected a text");
        headers.Set(ZR::UniString(name), ZR::UniString(text.get<std::string>()));
    }
    return headers;
}

M::AddressList ReadAddresses(const Value& object, const std::string& path, const char* key) {
    M::AddressList addresses;
    const Value* list = List(object, path, key);
    if (!list) return addresses;
    for (std::size_t i = 0; i < list->size(); ++i) {
        std::string at = Index(Child(path, key), i);
        const Value& address = Object((*list)[i], at, {"mailbox", "name"});
        try {
            addresses.Add(
                M::Address(M::MailboxId(ZR::UniString(Text(address, at, "mailbox", true))),
                           ZR::UniString(Text(address, at, "name"))));
        } catch (const ZR::ZRException&) {
            Fail(Child(at, "mailbox"), "expected a mailbox id \"owner/name\"");
        }
    }
    return addresses;
}

M::Mail ReadMail(const Value& value, const std::string& path) {
    const Value& object =
        Object(value, path,
               {"id", "from", "to", "sent", "importance", "read", "completed", "headers", "parts"});
    M::Mail mail(M::MailId(ZR::UniString(Text(object, path, "id", true))));
    mail.SetFrom(ReadAddresses(object, path, "from"));
    mail.SetTo(ReadAddresses(object, path, "to"));
    mail.SetSent(
        M::Date(static_cast<std::int32_t>(Integer(object, path, "sent", 0, INT32_MIN, INT32_MAX))));
    mail.SetImportance(static_cast<M::Importance>(Integer(object, path, "importance", 1, 0, 2)));
    mail.SetRead(Boolean(object, path, "read"));
    mail.SetCompleted(Boolean(object, path, "completed"));
    for (const auto& [name, text] : ReadHeaders(object, path)) mail.SetHeader(name, text);
    if (const Value* parts = List(object, path, "parts")) {
        for (std::size_t i = 0; i < parts->size(); ++i) {
            std::string at = Index(Child(path, "parts"), i);
            const Value& part =
                Object((*parts)[i], at, {"name", "contentType", "headers", "text", "data"});
            ZR::Ref<M::Contents::Content> content;
            if (const Value* text = Member(part, "text")) {
                if (!text->is_string()) Fail(Child(at, "text"), "expected a text");
                content = M::Contents::Content::FromBytes(M::Contents::Content::Kind::Text,
                                                          text->get<std::string>());
            } else if (const Value* data = Member(part, "data")) {
                std::vector<unsigned char> bytes = Bytes(*data, Child(at, "data"));
                content = M::Contents::Content::FromBytes(M::Contents::Content::Kind::Memory,
                                                          std::string(bytes.begin(), bytes.end()));
            }
            M::BodyPart body(ZR::UniString(Text(part, at, "name", true)), ReadHeaders(part, at),
                             content);
            body.SetContentType(ZR::UniString(Text(part, at, "contentType")));
            if (!mail.GetBodyParts().Add(body)) Fail(Child(at, "name"), "a part name given twice");
        }
    }
    return mail;
}

Data WriteHeaders(const M::Headers& headers) {
    Data object = Data::object();
    for (const auto& [name, text] : headers) object[name.Std()] = text.Std();
    return object;
}

Data WriteAddresses(const M::AddressList& addresses) {
    Data list = Data::array();
    for (const M::Address& address : addresses)
        list.push_back({{"mailbox", address.GetMailboxId().ToString().Std()},
                        {"name", address.GetName().Std()}});
    return list;
}

Data WriteMail(const M::Mail& mail) {
    Data object{{"id", mail.GetId().ToString().Std()}};
    if (!mail.GetFrom().IsEmpty()) object["from"] = WriteAddresses(mail.GetFrom());
    if (!mail.GetTo().IsEmpty()) object["to"] = WriteAddresses(mail.GetTo());
    if (mail.GetSent().GetTime() != 0) object["sent"] = mail.GetSent().GetTime();
    if (mail.GetImportance() != M::Importance::Normal)
        object["importance"] = static_cast<int>(mail.GetImportance());
    if (mail.IsRead()) object["read"] = true;
    if (mail.IsCompleted()) object["completed"] = true;
    if (!mail.GetHeaders().IsEmpty()) object["headers"] = WriteHeaders(mail.GetHeaders());
    if (!mail.GetBodyParts().IsEmpty()) {
        Data parts = Data::array();
        for (const M::BodyPart& part : mail.GetBodyParts()) {
            Data entry{{"name", part.GetName().Std()}};
            if (!part.GetContentType().IsEmpty())
                entry["contentType"] = part.GetContentType().Std();
            if (!part.GetHeaders().IsEmpty()) entry["headers"] = WriteHeaders(part.GetHeaders());
            if (const auto& content = part.GetContent()) {
                const std::string& bytes = content->GetBytes();
                if (content->GetKind() == M::Contents::Content::Kind::Text)
                    entry["text"] = bytes;
                else
                    entry["data"] =
                        EncodeBase64(std::vector<unsigned char>(bytes.begin(), bytes.end()));
            }
            parts.push_back(std::move(entry));
        }
        object["parts"] = std::move(parts);
    }
    return object;
}

}  // namespace

void ReadMailboxes(State& state, Server& server, const Value& list, const std::string& path) {
    for (std::size_t i = 0; i < list.size(); ++i) {
        std::string at = Index(path, i);
        const Value& entry = Object(list[i], at, {"user", "box", "mailbox", "revision", "mails"});
        std::string mailboxId = Text(entry, at, "mailbox");
        if (mailboxId.empty()) {
            const std::string login = Text(entry, at, "user", true);
            const std::string box = Text(entry, at, "box", true);
            if (box != "Inbox" && box != "Sent") Fail(Child(at, "box"), "expected Inbox or Sent");
            User* user = state.FindUser(server, login);
            if (!user) Fail(Child(at, "user"), "no such user");
            mailboxId =
                M::MailboxId(ZR::UniString(user->spec.id), ZR::UniString(box)).ToString().Std();
        } else if (Member(entry, "user") || Member(entry, "box")) {
            Fail(at, "either \"mailbox\" or \"user\" and \"box\"");
        } else {
            try {
                M::MailboxId check{ZR::UniString(mailboxId)};
            } catch (const ZR::ZRException&) {
                Fail(Child(at, "mailbox"), "expected a mailbox id \"owner/name\"");
            }
        }
        if (server.mailboxes.count(mailboxId)) Fail(at, "a mailbox given twice");
        Mailbox& box = state.RequireMailbox(server, mailboxId);
        if (const Value* mails = List(entry, at, "mails"))
            for (std::size_t m = 0; m < mails->size(); ++m) {
                M::Mail mail = ReadMail((*mails)[m], Index(Child(at, "mails"), m));
                if (box.byId.count(mail.GetId().ToString().Std()))
                    Fail(Index(Child(at, "mails"), m), "a mail id given twice");
                state.PutMail(server, mailboxId, mail);
            }
        // The scenario's revision stands; the changes before it are not known.
        box.revision = static_cast<std::uint64_t>(Integer(
            entry, at, "revision", static_cast<std::int64_t>(box.mails.size()), 0, INT64_MAX));
        box.log.clear();
        box.logStart = box.revision;
    }
}

Data WriteMailboxes(const Server& server) {
    Data list = Data::array();
    std::unordered_set<std::string> written;
    auto write = [&](const std::string& id, Data entry) {
        const Mailbox& box = server.mailboxes.at(id);
        entry["revision"] = box.revision;
        Data mails = Data::array();
        for (const M::Mail& mail : box.mails) mails.push_back(WriteMail(mail));
        entry["mails"] = std::move(mails);
        list.push_back(std::move(entry));
        written.insert(id);
    };
    for (const User& user : server.users)
        for (const char* name : {"Inbox", "Sent"}) {
            const std::string id =
                M::MailboxId(ZR::UniString(user.spec.id), ZR::UniString(name)).ToString().Std();
            auto it = server.mailboxes.find(id);
            if (it == server.mailboxes.end() || (it->second.mails.empty() && !it->second.revision))
                continue;
            write(id, Data{{"user", user.spec.login}, {"box", name}});
        }
    std::vector<std::string> others;
    for (const auto& [id, box] : server.mailboxes)
        if (!written.count(id) && (!box.mails.empty() || box.revision)) others.push_back(id);
    std::sort(others.begin(), others.end());
    for (const std::string& id : others) write(id, Data{{"mailbox", id}});
    return list;
}

}  // namespace Emulator::Internal::Scenario
