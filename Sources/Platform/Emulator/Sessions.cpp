// Operations on the sessions of a project and their attributes.
#include "Emulator/Internal/Handlers.h"

namespace Emulator::Internal {

Answer HandleGetSessions(CallContext& call) {
    Project& project = call.RequireProject();
    const std::string& login = call.user->spec.login;
    Data sessions = Data::array();
    for (const Session& session : project.sessions) {
        if (!SameText(session.user, login)) continue;
        // A session's user who was removed is a member again, without a signal.
        sessions.push_back(Data{{"id", session.id},
                                {"projectId", project.id},
                                {"userShortId", call.state.EnsureMember(project, login)}});
    }
    return Ok(std::move(sessions));
}

Answer HandleCreateSession(CallContext& call) {
    Project& project = call.RequireProject();
    const std::string& login = call.user->spec.login;
    if (project.sessionUsers.count(FoldKey(login)))
        return Refuse(FK::SessionExists,
                      "A session of \"" + login + "\" stands in " + project.path);
    // Opening the project makes the user a member, which its clients hear.
    const std::size_t members = project.members.size();
    std::string id = call.state.AddSession(call.server, project, SessionSpec{"", login, {}});
    if (project.members.size() != members) call.state.MembersChanged(call.server, project, login);
    return Ok(Data{{"id", id},
                   {"projectId", project.id},
                   {"userShortId", call.state.EnsureMember(project, login)}});
}

Answer HandleGetSessionAttribute(CallContext& call) {
    Session& session = call.RequireSession(call.RequireProject());
    auto it = session.attributes.find(call.Text("name"));
    if (it == session.attributes.end()) return Ok();
    return Ok(Data::binary(std::vector<std::uint8_t>(it->second.begin(), it->second.end())));
}

Answer HandleSetSessionAttribute(CallContext& call) {
    Session& session = call.RequireSession(call.RequireProject());
    auto bytes = call.params.find("bytes");
    if (bytes == call.params.end() || !bytes->is_binary())
        return Refuse(FK::PortalServerClient, "An attribute needs bytes");
    const auto& b = bytes->get_binary();
    session.attributes[call.Text("name")] = std::vector<unsigned char>(b.begin(), b.end());
    return Ok();
}

}  // namespace Emulator::Internal
