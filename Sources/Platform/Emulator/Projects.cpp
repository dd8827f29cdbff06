// Operations that find projects and folders and tell their state, model
// server and rights.
#include "Emulator/Internal/Handlers.h"
#include "KRCB/Entities.h"

namespace Emulator::Internal {

Answer HandleGetProjectIdByPath(CallContext& call) {
    Project* project = call.state.FindProjectByPath(call.server, call.Text("path"));
    if (!project) return Refuse(FK::EntityNotFound, "No project at " + call.Text("path"));
    return Ok(project->id);
}

Answer HandleGetResourceById(CallContext& call) {
    const std::string id = call.Text("id");
    if (Project* project = call.state.FindProjectById(call.server, id)) {
        const ModelServerSpec* ms = call.state.FindModelServer(call.server, project->modelServer);
        return Ok(Data{{"type", 1},
                       {"id", project->id},
                       {"path", project->path},
                       {"modelServerPath", ms ? ms->path : std::string()}});
    }
    if (auto folder = call.server.folderById.find(id); folder != call.server.folderById.end())
        return Ok(Data{{"type", 0},
                       {"id", id},
                       {"path", call.server.folders[folder->second].path},
                       {"modelServerPath", ""}});
    return Refuse(FK::EntityNotFound, "No resource of id " + id);
}

Answer HandleOpenProjectClient(CallContext& call) {
    Project* project = call.state.FindProjectById(call.server, call.Text("projectId"));
    if (!project) return Ok(false);
    const ModelServerSpec* ms = call.state.FindModelServer(call.server, project->modelServer);
    const int clientMajor = call.Number("clientMajor"), clientMinor = call.Number("clientMinor");
    if (ms && ms->major != clientMajor) {
        Reply reply = Refuse(FK::IncompatibleModelServerVersion,
                             "The model server " + ms->id + " speaks another version");
        reply.fault->major = ms->major;
        reply.fault->minor = ms->minor;
        reply.fault->clientMajor = clientMajor;
        reply.fault->clientMinor = clientMinor;
        return reply;
    }
    return Ok(true);
}

Answer HandleGetProjectState(CallContext& call) {
    return Ok(call.RequireProject().state);
}

Answer HandleGetUserPermissions(CallContext& call) {
    Project& project = call.RequireProject();
    User* wanted = call.state.FindUserById(call.server, call.Text("userId"));
    if (!wanted) return Refuse(FK::EntityNotFound, "No user of id " + call.Text("userId"));
    Data ids = Data::array();
    auto& mapper = KRCB::Management::Entities::PermissionIDMapper::GetInstance();
    for (const std::string& text : call.state.PermissionsOf(project, wanted->spec.login))
        ids.push_back(mapper.GetPermissionID(text));
    return Ok(std::move(ids));
}

}  // namespace Emulator::Internal
