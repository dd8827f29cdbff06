// The members of a project: the operation that lists them, and the changes
// a test makes, which the project's clients hear of as signal 1.
#include <algorithm>
#include <stdexcept>

#include "Emulator/Internal/Handlers.h"

namespace Emulator {

namespace Internal {

Answer HandleGetProjectMembers(CallContext& call) {
    Project& project = call.RequireProject();
    call.RequireSession(project);
    struct Entry {
        std::int16_t userId;
        std::string serverUserId;
        std::string login;
    };
    std::vector<Entry> entries;
    entries.reserve(project.members.size());
    for (const MemberSpec& member : project.members) {
        User* who = call.state.FindUser(call.server, member.user);
        entries.push_back(Entry{member.userId, who ? who->spec.id : std::string(), member.user});
    }
    return std::function<Reply()>([entries = std::move(entries)] {
        Data members = Data::array();
        for (const Entry& entry : entries)
            members.push_back(Data{{"userId", entry.userId},
                                   {"serverUserId", entry.serverUserId},
                                   {"login", entry.login}});
        return Ok(std::move(members));
    });
}

}  // namespace Internal

using Internal::Project;
using Internal::Server;

void Service::AddMember(const std::string& serverUrl, const std::string& path,
                        const MemberSpec& member) {
    std::lock_guard<std::mutex> lock(mState->mutex);
    Server& server = mState->RequireServer(serverUrl);
    Project& project = mState->RequireProject(server, path);
    Internal::User* user = mState->FindUser(server, member.user);
    if (!user) throw std::invalid_argument("no user " + member.user);
    const std::size_t before = project.members.size();
    mState->EnsureMember(project, user->spec.login, member.userId);
    if (project.members.size() != before) mState->MembersChanged(server, project, user->spec.login);
}

void Service::RemoveMember(const std::string& serverUrl, const std::string& path,
                           const std::string& login) {
    std::lock_guard<std::mutex> lock(mState->mutex);
    Server& server = mState->RequireServer(serverUrl);
    Project& project = mState->RequireProject(server, path);
    auto it = std::find_if(project.members.begin(), project.members.end(),
                           [&](const MemberSpec& m) { return Internal::SameText(m.user, login); });
    if (it == project.members.end()) throw std::invalid_argument(login + " is no member");
    const std::string removed = it->user;
    project.members.erase(it);
    Internal::State::ReindexMembers(project);
    mState->MembersChanged(server, project, removed);
}

void Service::SetMemberUser(const std::string& serverUrl, const std::string& path,
                            std::int16_t userId, const std::string& login) {
    std::lock_guard<std::mutex> lock(mState->mutex);
    Server& server = mState->RequireServer(serverUrl);
    Project& project = mState->RequireProject(server, path);
    Internal::User* user = mState->FindUser(server, login);
    if (!user) throw std::invalid_argument("no user " + login);
    MemberSpec* target = nullptr;
    for (MemberSpec& member : project.members)
        if (member.userId == userId) target = &member;
    auto other = project.memberByLogin.find(Internal::FoldKey(login));
    if (other != project.memberByLogin.end() && &project.members[other->second] != target)
        throw std::invalid_argument(login + " is a member already");
    if (!target) throw std::invalid_argument("no member of short id " + std::to_string(userId));
    target->user = user->spec.login;
    Internal::State::ReindexMembers(project);
    mState->MembersChanged(server, project, user->spec.login);
}

std::vector<MemberSpec> Service::GetMembers(const std::string& serverUrl,
                                            const std::string& path) const {
    std::lock_guard<std::mutex> lock(mState->mutex);
    Server& server = mState->RequireServer(serverUrl);
    return mState->RequireProject(server, path).members;
}

void Service::SetMemberSignals(bool on) {
    std::lock_guard<std::mutex> lock(mState->mutex);
    mState->memberSignals = on;
}

}  // namespace Emulator
