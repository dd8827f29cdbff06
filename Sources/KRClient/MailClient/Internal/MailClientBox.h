#pragma once
// One box of the mail client: its table by mail id, the revision the table
// stands at, and the ids whose delete request is under way.

#include <cstdint>

#include "KRClient/MailClient/ClientMail.h"
#include "KRClient/MailClient/MailClient.h"
#include "ZR/Containers.h"

namespace KRC {

struct MailClient::Box {
    ZR::HashTable<ZR::UniString, ZR::Ref<ClientMail>> mails;
    std::uint64_t revision = 0;
    ZR::HashSet<ZR::UniString> deleted;

    bool Shows(const ZR::UniString& id) const {
        return !id.IsEmpty() && mails.Contains(id) && !deleted.Contains(id);
    }
    void AppendShown(Mails& result) const {
        for (const auto& entry : mails)
            if (!deleted.Contains(entry.first)) result.Add(entry.second);
    }
};

}  // namespace KRC
