// The mail server: mailboxes with revisions and a change log, the monitors
// connected to it, and the handlers of its operations.
#include <algorithm>

#include "Emulator/Internal/Handlers.h"
#include "Kerrow/Mail.h"

namespace Emulator::Internal {

namespace M = Kerrow::Server::Mail;

namespace {

constexpr const char* kInbox = "Inbox";
constexpr const char* kSent = "Sent";

std::string BoxId(const std::string& userId, const char* name) {
    return M::MailboxId(ZR::UniString(userId), ZR::UniString(name)).ToString().Std();
}

std::string OwnerOf(const std::string& mailboxId) {
    try {
        return M::MailboxId(ZR::UniString(mailboxId)).GetOwnerId().Std();
    } catch (const ZR::ZRException&) {
        return std::string();
    }
}

void Log(Mailbox& box, const std::string& mailId, Mailbox::Change change) {
    box.log.push_back({++box.revision, mailId, change});
}

// What changed after revision from: a mail created since then and still
// there is created, one that was there before is updated, one that was there
// before and is gone is deleted, in the order of their first change.
Data Changes(Mailbox& box, std::uint64_t from) {
    const bool whole = from == 0 || box.wholeNext || from < box.logStart || from > box.revision;
    box.wholeNext = false;
    Data created = Data::array(), updated = Data::array(), deleted = Data::array();
    if (whole) {
        for (const M::Mail& mail : box.mails)
            created.push_back(Data::binary(M::ToStoredBytes(mail)));
        return Data{{"from", 0},          {"to", box.revision}, {"whole", true},
                    {"created", created}, {"updated", updated}, {"deleted", deleted}};
    }
    const std::uint64_t start = std::max(from, box.gapAt);
    std::vector<std::string> order;
    std::unordered_map<std::string, bool> createdSince;
    for (const Mailbox::Entry& entry : box.log) {
        if (entry.revision <= start) continue;
        auto [it, added] = createdSince.emplace(entry.mailId, false);
        if (added) order.push_back(entry.mailId);
        if (entry.change == Mailbox::Change::Created) it->second = true;
    }
    for (const std::string& id : order) {
        auto at = box.byId.find(id);
        if (at != box.byId.end())
            (createdSince[id] ? created : updated)
                .push_back(Data::binary(M::ToStoredBytes(box.mails[at->second])));
        else if (!createdSince[id])
            deleted.push_back(id);
    }
    return Data{{"from", start},      {"to", box.revision}, {"whole", false},
                {"created", created}, {"updated", updated}, {"deleted", deleted}};
}

std::vector<std::string> Texts(const Data& params, const char* key) {
    std::vector<std::string> texts;
    auto it = params.find(key);
    if (it == params.end() || !it->is_array()) return texts;
    for (const Data& value : *it)
        if (value.is_string()) texts.push_back(value.get<std::string>());
    return texts;
}

std::uint64_t Revision(const Data& params, const char* key) {
    auto it = params.find(key);
    return it != params.end() && it->is_number_unsigned() ? it->get<std::uint64_t>() : 0;
}

// The user's box named by the call's "box": Inbox or Sent.
std::string CallBox(CallContext& call) {
    const std::string name = call.Text("box");
    if (name != kInbox && name != kSent)
        Throw(FK::PortalServerClient, "No mailbox \"" + name + "\"");
    return BoxId(call.user->spec.id, name == kInbox ? kInbox : kSent);
}

template <typename F>
Answer ChangeMails(CallContext& call, F&& change) {
    const std::string boxId = CallBox(call);
    Mailbox& box = call.state.RequireMailbox(call.server, boxId);
    bool changed = false;
    for (const std::string& id : Texts(call.params, "ids")) {
        auto at = box.byId.find(id);
        if (at != box.byId.end() && change(box.mails[at->second])) {
            Log(box, id, Mailbox::Change::Updated);
            changed = true;
        }
    }
    if (changed) call.state.PushMailsChanged(call.server, call.user->spec.id);
    return Ok();
}

Data Sessions(const Server& server, const std::string& userId, bool activeOnly) {
    Data list = Data::array();
    for (const MailMonitorEntry& monitor : server.mailMonitors)
        if (monitor.userId == userId && (monitor.active || !activeOnly))
            list.push_back({{"session", monitor.id}, {"mailbox", BoxId(userId, kInbox)}});
    return list.empty() ? Data::object() : Data{{"Lumbra", list}};
}

}  // namespace

Mailbox& State::RequireMailbox(Server& server, const std::string& mailboxId) {
    return server.mailboxes[mailboxId];
}

void State::PutMail(Server& server, const std::string& mailboxId, const M::Mail& mail) {
    Mailbox& box = RequireMailbox(server, mailboxId);
    const std::string id = mail.GetId().ToString().Std();
    auto at = box.byId.find(id);
    if (at != box.byId.end()) {
        box.mails[at->second] = mail;
        Log(box, id, Mailbox::Change::Updated);
    } else {
        box.byId.emplace(id, box.mails.size());
        box.mails.push_back(mail);
        Log(box, id, Mailbox::Change::Created);
    }
    PushMailsChanged(server, OwnerOf(mailboxId));
}

bool State::RemoveMail(Server& server, const std::string& mailboxId, const std::string& mailId) {
    auto it = server.mailboxes.find(mailboxId);
    if (it == server.mailboxes.end()) return false;
    Mailbox& box = it->second;
    auto at = box.byId.find(mailId);
    if (at == box.byId.end()) return false;
    box.mails.erase(box.mails.begin() + static_cast<std::ptrdiff_t>(at->second));
    box.byId.clear();
    for (std::size_t i = 0; i < box.mails.size(); ++i)
        box.byId.emplace(box.mails[i].GetId().ToString().Std(), i);
    Log(box, mailId, Mailbox::Change::Deleted);
    PushMailsChanged(server, OwnerOf(mailboxId));
    return true;
}

void State::PushMailsChanged(Server& server, const std::string& ownerId) {
    if (!installed) return;
    for (const MailMonitorEntry& monitor : server.mailMonitors)
        if (monitor.active && monitor.userId == ownerId)
            KRCB::Internal::DeliverMailbox(
                {KRCB::Internal::MailboxPush::Kind::MailsChanged, monitor.id});
}

void State::PushMailServerState(Server& server, bool down) {
    if (!installed) return;
    using Kind = KRCB::Internal::MailboxPush::Kind;
    for (const MailMonitorEntry& monitor : server.mailMonitors)
        if (monitor.active)
            KRCB::Internal::DeliverMailbox({down ? Kind::ServerDown : Kind::ServerUp, monitor.id});
}

void State::RecordMailRequest(const Request& request) {
    MailRequestRecord record;
    record.serverUrl = request.serverUrl;
    record.user = request.user;
    record.op = request.op;
    auto box = request.params.find("box");
    if (box != request.params.end() && box->is_string()) record.box = box->get<std::string>();
    record.ids = Texts(request.params, "ids");
    if (auto mails = request.params.find("mails");
        mails != request.params.end() && mails->is_array())
        for (const Data& bytes : *mails) try {
                record.ids.push_back(
                    M::FromStoredBytes(bytes.get_binary()).GetId().ToString().Std());
            } catch (...) {
                record.ids.push_back(std::string());
            }
    record.inboxRevision = Revision(request.params, "inboxRevision");
    record.sentRevision = Revision(request.params, "sentRevision");
    mailRequests.push_back(std::move(record));
}

Answer HandleMailConnect(CallContext& call) {
    MailMonitorEntry monitor{call.state.NewId("mon-"), call.user->spec.id};
    call.server.mailMonitors.push_back(monitor);
    return Ok({{"monitorId", monitor.id}});
}

Answer HandleMailDisconnect(CallContext& call) {
    for (MailMonitorEntry& monitor : call.server.mailMonitors)
        if (monitor.id == call.Text("monitorId")) monitor.active = false;
    return Ok();
}

Answer HandleGetMailboxChanges(CallContext& call) {
    const std::string& userId = call.user->spec.id;
    Mailbox& inbox = call.state.RequireMailbox(call.server, BoxId(userId, kInbox));
    Mailbox& sent = call.state.RequireMailbox(call.server, BoxId(userId, kSent));
    return Ok({{"inbox", Changes(inbox, Revision(call.params, "inboxRevision"))},
               {"sent", Changes(sent, Revision(call.params, "sentRevision"))}});
}

Answer HandleGetMailContacts(CallContext& call) {
    Data contacts = Data::array();
    for (const User& user : call.server.users) {
        const std::string& id = user.spec.id;
        Data properties = Data::object();
        for (const MailMonitorEntry& monitor : call.server.mailMonitors)
            if (monitor.userId == id) properties[monitor.id] = {{"ClientType", "Lumbra"}};
        contacts.push_back({{"ownerId", id},
                            {"mailboxes", {BoxId(id, kInbox), BoxId(id, kSent)}},
                            {"activeSessions", Sessions(call.server, id, true)},
                            {"sessions", Sessions(call.server, id, false)},
                            {"properties", std::move(properties)}});
    }
    return Ok(std::move(contacts));
}

// A mail goes into the sender's sent box and each recipient's inbox, unread
// and not completed there.
Answer HandleSendMails(CallContext& call) {
    auto mails = call.params.find("mails");
    if (mails == call.params.end() || !mails->is_array())
        Throw(FK::PortalServerClient, "No mails to send");
    std::vector<M::Mail> parsed;
    for (const Data& bytes : *mails) {
        if (!bytes.is_binary()) Throw(FK::PortalServerClient, "A mail is not in its stored form");
        try {
            parsed.push_back(M::FromStoredBytes(bytes.get_binary()));
        } catch (const ZR::ZRException& e) {
            Throw(FK::PortalServerClient,
                  "A mail is not in its stored form: " + e.GetMessage().Std());
        }
        if (parsed.back().GetId().ToString().IsEmpty())
            Throw(FK::PortalServerClient, "A mail has no id");
    }
    for (const M::Mail& mail : parsed) {
        call.state.PutMail(call.server, BoxId(call.user->spec.id, kSent), mail);
        M::Mail delivered = mail;
        delivered.SetRead(false);
        delivered.SetCompleted(false);
        for (const M::Address& to : mail.GetTo())
            if (call.state.FindUserById(call.server, to.GetOwnerId().Std()))
                call.state.PutMail(call.server, BoxId(to.GetOwnerId().Std(), kInbox), delivered);
    }
    return Ok();
}

Answer HandleSetMailsRead(CallContext& call) {
    return ChangeMails(call, [](M::Mail& mail) {
        if (mail.IsRead()) return false;
        mail.SetRead(true);
        return true;
    });
}

Answer HandleSetMailsCompleted(CallContext& call) {
    return ChangeMails(call, [](M::Mail& mail) {
        if (mail.IsCompleted()) return false;
        mail.SetCompleted(true);
        return true;
    });
}

Answer HandleDeleteMails(CallContext& call) {
    const std::string boxId = CallBox(call);
    for (const std::string& id : Texts(call.params, "ids"))
        call.state.RemoveMail(call.server, boxId, id);
    return Ok();
}

}  // namespace Emulator::Internal

namespace Emulator {

std::string Service::GetMailboxId(const std::string& serverUrl, const std::string& login,
                                  const std::string& box) const {
    std::lock_guard<std::mutex> lock(mState->mutex);
    Internal::User* user = mState->FindUser(mState->RequireServer(serverUrl), login);
    if (!user) throw std::invalid_argument("no user " + login);
    return Internal::BoxId(user->spec.id,
                           box == Internal::kSent ? Internal::kSent : Internal::kInbox);
}

}  // namespace Emulator
