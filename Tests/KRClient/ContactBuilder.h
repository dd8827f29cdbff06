#pragma once
// Builds UserContacts for tests: a user with an inbox and a sent box, and
// mailbox sessions of chosen client types.

#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "KRClient/MailClient/UserContact.h"

namespace krtest {

struct ContactSpec {
    std::string ownerId = "u-1";
    std::string name = "Jo Doe";
    std::string userName = "jo";
    Gfx::Color color{10, 20, 30, 255};
    NewDisplay::NativeImage image;
    std::vector<std::string> mailboxes{"Inbox", "Sent"};
    // (session id, mailbox name, client type or "" for no property) in each table.
    std::vector<std::tuple<std::string, std::string, std::string>> sessions;
    std::vector<std::tuple<std::string, std::string, std::string>> activeSessions;

    ZR::Ref<const KRC::Mailbox::UserContact> Build() const {
        KRCB::Mailbox::MailboxIds ids;
        for (const auto& m : mailboxes) ids.Add({ZR::UniString(ownerId), ZR::UniString(m)});
        KRCB::Mailbox::SessionProperties properties;
        auto table = [&](const auto& list) {
            KRCB::Mailbox::MailboxSessions result;
            ZR::PagedArray<Kerrow::Server::Mail::MailboxSessionInfo> infos;
            for (const auto& [id, mailbox, type] : list) {
                infos.Add({ZR::UniString(id), {ZR::UniString(ownerId), ZR::UniString(mailbox)}});
                ZR::HashTable<ZR::UniString, ZR::UniString> props;
                props.Add("Version", "7");
                if (!type.empty()) props.Add(KRC::Mailbox::kClientTypeProperty, type);
                properties.Add(ZR::UniString(id), props);
            }
            if (!infos.IsEmpty()) result.Add("server-key", infos);
            return result;
        };
        KRCB::Mailbox::MailboxSessions known = table(sessions);
        KRCB::Mailbox::MailboxSessions active = table(activeSessions);
        return ZR::Ref<const KRC::Mailbox::UserContact>::Make(
            ZR::UniString(ownerId), ZR::UniString(name), ZR::UniString(userName), color.GetR(),
            color.GetG(), color.GetB(), color.GetA(), image, ids, active, known, properties);
    }
};

}  // namespace krtest
