// The mails the emulator holds in its servers' mailboxes.

#include "Emulator/Internal/State.h"
#include "Emulator/Service.h"

namespace Emulator {

void Service::AddMail(const std::string& serverUrl, const std::string& mailboxId,
                      const Kerrow::Server::Mail::Mail& mail) {
    std::lock_guard<std::mutex> lock(mState->mutex);
    mState->RequireServer(serverUrl).mailboxes[mailboxId].push_back(mail);
}

std::vector<Kerrow::Server::Mail::Mail> Service::GetMails(const std::string& serverUrl,
                                                          const std::string& mailboxId) const {
    std::lock_guard<std::mutex> lock(mState->mutex);
    const Internal::Server& server = mState->RequireServer(serverUrl);
    auto it = server.mailboxes.find(mailboxId);
    return it == server.mailboxes.end() ? std::vector<Kerrow::Server::Mail::Mail>() : it->second;
}

bool Service::DeleteMail(const std::string& serverUrl, const std::string& mailboxId,
                         const std::string& mailId) {
    std::lock_guard<std::mutex> lock(mState->mutex);
    auto& mailboxes = mState->RequireServer(serverUrl).mailboxes;
    auto it = mailboxes.find(mailboxId);
    if (it == mailboxes.end()) return false;
    for (auto mail = it->second.begin(); mail != it->second.end(); ++mail)
        if (mail->GetId().ToString() == mailId) {
            it->second.erase(mail);
            return true;
        }
    return false;
}

}  // namespace Emulator
