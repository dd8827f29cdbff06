// The mails the emulator holds in its servers' mailboxes, as tests and
// scenarios see and script them.

#include "Emulator/Internal/State.h"
#include "Emulator/Service.h"

namespace Emulator {

void Service::AddMail(const std::string& serverUrl, const std::string& mailboxId,
                      const Kerrow::Server::Mail::Mail& mail) {
    std::lock_guard<std::mutex> lock(mState->mutex);
    mState->PutMail(mState->RequireServer(serverUrl), mailboxId, mail);
}

std::vector<Kerrow::Server::Mail::Mail> Service::GetMails(const std::string& serverUrl,
                                                          const std::string& mailboxId) const {
    std::lock_guard<std::mutex> lock(mState->mutex);
    const Internal::Server& server = mState->RequireServer(serverUrl);
    auto it = server.mailboxes.find(mailboxId);
    return it == server.mailboxes.end() ? std::vector<Kerrow::Server::Mail::Mail>()
                                        : it->second.mails;
}

bool Service::DeleteMail(const std::string& serverUrl, const std::string& mailboxId,
                         const std::string& mailId) {
    std::lock_guard<std::mutex> lock(mState->mutex);
    return mState->RemoveMail(mState->RequireServer(serverUrl), mailboxId, mailId);
}

std::uint64_t Service::GetMailboxRevision(const std::string& serverUrl,
                                          const std::string& mailboxId) const {
    std::lock_guard<std::mutex> lock(mState->mutex);
    const Internal::Server& server = mState->RequireServer(serverUrl);
    auto it = server.mailboxes.find(mailboxId);
    return it == server.mailboxes.end() ? 0 : it->second.revision;
}

void Service::ScriptMailGap(const std::string& serverUrl, const std::string& mailboxId) {
    std::lock_guard<std::mutex> lock(mState->mutex);
    Internal::Mailbox& box = mState->RequireMailbox(mState->RequireServer(serverUrl), mailboxId);
    box.gapAt = ++box.revision;
}

void Service::ScriptWholeMailbox(const std::string& serverUrl, const std::string& mailboxId) {
    std::lock_guard<std::mutex> lock(mState->mutex);
    mState->RequireMailbox(mState->RequireServer(serverUrl), mailboxId).wholeNext = true;
}

void Service::CancelNext(const std::string& op) {
    FailNext(op, {FaultKind::Interrupted, "The request was canceled"});
}

std::vector<MailRequestRecord> Service::GetMailRequests() const {
    std::lock_guard<std::mutex> lock(mState->mutex);
    return mState->mailRequests;
}

void Service::ClearMailRequests() {
    std::lock_guard<std::mutex> lock(mState->mutex);
    mState->mailRequests.clear();
}

}  // namespace Emulator
