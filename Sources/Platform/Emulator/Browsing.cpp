// Browsing: the folder tree as the data queries ask for it, folder creation,
// project rename, libraries and the look-ups of projects by path and id.
#include <algorithm>

#include "Emulator/Internal/Handlers.h"
#include "KRCB/Entities.h"
#include "KRCB/Paths.h"

namespace Emulator::Internal {

namespace {

using Places = std::vector<std::size_t>;

const Places& PlacesOf(const std::unordered_map<std::string, Places>& index,
                       const std::string& id) {
    static const Places kNone;
    auto it = index.find(id);
    return it == index.end() ? kNone : it->second;
}

Data PermissionIds(const std::map<std::string, std::vector<std::string>>& permissions,
                   const std::string& login) {
    auto& mapper = KRCB::Management::Entities::PermissionIDMapper::GetInstance();
    Data ids = Data::array();
    for (const auto& [who, texts] : permissions)
        if (SameText(who, login))
            for (const std::string& text : texts) ids.push_back(mapper.GetPermissionID(text));
    return ids;
}

Data FolderData(const Folder& f) {
    Data d{{"id", f.id}, {"path", f.path}, {"parentId", f.parentId}};
    if (!f.defaultModelServer.empty()) d["defaultModelServer"] = f.defaultModelServer;
    return d;
}

// What an answer of the browsing area gathers, turned into data at the end.
struct Gather {
    explicit Gather(CallContext& c) : call(c) {}
    CallContext& call;
    Data folders = Data::array();
    Data projects = Data::array();
    Data libraries = Data::array();
    Data folderPermissions = Data::array();
    Data libraryPermissions = Data::array();
    std::vector<std::string> modelServers;  ///< of the projects, in order, once each
    bool wantFolderPermissions = false, wantLibraryPermissions = false;

    void AddFolder(const Folder& f) {
        folders.push_back(FolderData(f));
        if (wantFolderPermissions) {
            Data ids = PermissionIds(f.permissions, call.user->spec.login);
            if (!ids.empty()) folderPermissions.push_back({{"id", f.id}, {"ids", std::move(ids)}});
        }
    }
    void AddChildFolders(const Folder& f) {
        for (std::size_t place : PlacesOf(call.server.subFolders, f.id))
            AddFolder(call.server.folders[place]);
    }
    void AddResources(const Folder& f, bool withProjects, bool withLibraries) {
        if (withProjects)
            for (std::size_t place : PlacesOf(call.server.folderProjects, f.id)) {
                const Project& p = call.server.projects[place];
                projects.push_back(ProjectData(call, p, f.id));
                if (!p.modelServer.empty() && std::find(modelServers.begin(), modelServers.end(),
                                                        p.modelServer) == modelServers.end())
                    modelServers.push_back(p.modelServer);
            }
        if (withLibraries)
            for (std::size_t place : PlacesOf(call.server.folderLibraries, f.id)) {
                const Library& l = call.server.libraries[place];
                libraries.push_back({{"id", l.id}, {"path", l.path}, {"parentFolderId", f.id}});
                if (wantLibraryPermissions) {
                    Data ids = PermissionIds(l.permissions, call.user->spec.login);
                    for (Data& id : PermissionIds(f.permissions, call.user->spec.login))
                        if (std::find(ids.begin(), ids.end(), id) == ids.end()) ids.push_back(id);
                    if (!ids.empty())
                        libraryPermissions.push_back({{"id", l.id}, {"ids", std::move(ids)}});
                }
            }
    }

    static Data ModelServerData(const ModelServerSpec& ms) {
        return {{"id", ms.id}, {"path", ms.path}, {"major", ms.major}, {"minor", ms.minor}};
    }
    static Data ProjectData(CallContext& call, const Project& p, const std::string& folderId) {
        const ModelServerSpec* ms = call.state.FindModelServer(call.server, p.modelServer);
        Data joined = Data::array();
        for (const Session& s : p.sessions) joined.push_back(s.user);
        return {{"id", p.id},
                {"path", p.path},
                {"parentFolderId", folderId},
                {"modelServerId", p.modelServer},
                {"modelServerPath", ms ? ms->path : std::string()},
                {"state", p.state},
                {"version", "1.0.0 / 100"},
                {"joined", std::move(joined)}};
    }

    Data Finish(bool found) {
        Data answer{{"found", found}, {"folders", std::move(folders)}};
        answer["projects"] = std::move(projects);
        answer["libraries"] = std::move(libraries);
        if (wantFolderPermissions) answer["foldersPermissions"] = std::move(folderPermissions);
        if (wantLibraryPermissions) answer["librariesPermissions"] = std::move(libraryPermissions);
        if (call.Flag("visibleModelServers")) {
            Data list = Data::array();
            for (const ModelServerSpec& ms : call.server.modelServers)
                if (ms.visible) list.push_back(ModelServerData(ms));
            answer["visibleModelServers"] = std::move(list);
        }
        if (call.Flag("resourceModelServers")) {
            Data list = Data::array();
            for (const std::string& id : modelServers)
                if (const ModelServerSpec* ms = call.state.FindModelServer(call.server, id))
                    list.push_back(ModelServerData(*ms));
            answer["resourceModelServers"] = std::move(list);
        }
        if (call.Flag("serverInfo")) {
            const ServerSpec& spec = call.server.spec;
            answer["serverInfo"] = {{"uniqueUrl", spec.url},
                                    {"friendlyName", spec.friendlyName},
                                    {"major", spec.major},
                                    {"minor", spec.minor}};
        }
        return answer;
    }
};

Gather Start(CallContext& call) {
    Gather g(call);
    g.wantFolderPermissions = call.Flag("foldersPermissions");
    g.wantLibraryPermissions = call.Flag("librariesPermissions");
    return g;
}

Project& RequireProjectById(CallContext& call, const std::string& id) {
    Project* project = call.state.FindProjectById(call.server, id);
    if (!project) Throw(FK::EntityNotFound, "No project of id " + id);
    return *project;
}

bool NameTaken(CallContext& call, const std::string& path, const Project* self) {
    Project* project = call.state.FindProjectByPath(call.server, path);
    if (project && project != self) return true;
    if (call.state.FindFolderByPath(call.server, path)) return true;
    for (const Library& l : call.server.libraries)
        if (SameText(l.path, path)) return true;
    return false;
}

Answer Lookup(CallContext& call, Project* project, const std::string& key) {
    call.state.lookups.push_back(
        LookupRecord{call.server.spec.url, call.user->spec.login, call.request.op, key});
    if (!project) return Refuse(FK::EntityNotFound, "No project " + key);
    const std::string parent = KRCB::GetParentFolderPath(ZR::UniString(project->path)).Std();
    Folder* folder = call.state.FindFolderByPath(call.server, parent);
    return Ok(Gather::ProjectData(call, *project, folder ? folder->id : std::string()));
}

}  // namespace

Answer HandleOpenClient(CallContext&) {
    // The dispatch has checked the login: a client made from a connection
    // whose login the server forgot is refused there.
    return Ok();
}

Answer HandleGetPartialFolderTree(CallContext& call) {
    Gather g = Start(call);
    Folder* queried = call.state.FindFolderByPath(call.server, call.Text("path"));
    if (!queried) return Ok(g.Finish(false));
    // The chain from the root to the queried folder, bounded by the table.
    std::vector<const Folder*> chain;
    for (const Folder* f = queried; f && chain.size() <= call.server.folders.size();
         f = f->path.empty() ? nullptr : call.state.FindFolderById(call.server, f->parentId))
        chain.push_back(f);
    std::reverse(chain.begin(), chain.end());
    const int type = call.Number("queryType");
    const bool projects = call.Flag("projects"), libraries = call.Flag("libraries");
    g.AddFolder(*chain.front());
    for (std::size_t i = 0; i < chain.size(); ++i) {
        const bool last = i + 1 == chain.size();
        if (!last || call.Flag("subFolders")) g.AddChildFolders(*chain[i]);
        const bool resources = type == 1 || last || (type == 2 && i == 0);
        if (resources) g.AddResources(*chain[i], projects, libraries);
    }
    return Ok(g.Finish(true));
}

Answer HandleGetFolderWithChildFolders(CallContext& call) {
    Gather g = Start(call);
    Folder* folder = call.state.FindFolderById(call.server, call.Text("folderId"));
    if (!folder) return Ok(g.Finish(false));
    g.AddFolder(*folder);
    g.AddChildFolders(*folder);
    return Ok(g.Finish(true));
}

Answer HandleGetFolderWithChildResources(CallContext& call) {
    Gather g = Start(call);
    Folder* folder = call.state.FindFolderById(call.server, call.Text("folderId"));
    if (!folder) return Ok(g.Finish(false));
    g.AddFolder(*folder);
    g.AddResources(*folder, true, call.Flag("libraries"));
    return Ok(g.Finish(true));
}

Answer HandleCreateProjectFolder(CallContext& call) {
    Folder* parent = call.state.FindFolderById(call.server, call.Text("parentId"));
    if (!parent) return Refuse(FK::EntityNotFound, "No folder of id " + call.Text("parentId"));
    const std::string name = call.Text("name");
    if (!KRCB::Management::IsResourceNameValid(ZR::UniString(name)))
        return Refuse(FK::EntityValidation, "A folder can't be named so");
    if (parent->locked)
        return Refuse(FK::AccessDenied, "No folder may be created in " + parent->path);
    const std::string path = parent->path + "/" + name;
    if (NameTaken(call, path, nullptr)) return Refuse(FK::EntityExists, path + " exists");
    FolderSpec spec;
    spec.path = path;
    call.state.AddFolder(call.server, spec);
    return Ok(FolderData(*call.state.FindFolderByPath(call.server, path)));
}

Answer HandleRenameProject(CallContext& call) {
    Project& project = RequireProjectById(call, call.Text("projectId"));
    const std::string name = call.Text("name");
    if (!KRCB::Management::IsResourceNameValid(ZR::UniString(name)))
        return Refuse(FK::EntityValidation, "A project can't be named so");
    const std::vector<std::string> rights =
        call.state.PermissionsOf(project, call.user->spec.login);
    if (std::find(rights.begin(), rights.end(), "AdministerProject") == rights.end())
        return Refuse(FK::AccessDenied, "Only an administrator renames " + project.path);
    const std::string path =
        KRCB::GetParentFolderPath(ZR::UniString(project.path)).Std() + "/" + name;
    if (NameTaken(call, path, &project)) return Refuse(FK::EntityExists, path + " exists");
    call.state.MoveProject(call.server, project, path);
    return Ok();
}

Answer HandleGetLibraries(CallContext& call) {
    Data list = Data::array();
    for (const Library& l : call.server.libraries) {
        Folder* folder = call.state.FindFolderByPath(
            call.server, KRCB::GetParentFolderPath(ZR::UniString(l.path)).Std());
        list.push_back(
            {{"id", l.id}, {"path", l.path}, {"parentFolderId", folder ? folder->id : ""}});
    }
    return Ok(std::move(list));
}

Answer HandleGetProjectByPath(CallContext& call) {
    return Lookup(call, call.state.FindProjectByPath(call.server, call.Text("path")),
                  call.Text("path"));
}

Answer HandleGetProjectById(CallContext& call) {
    return Lookup(call, call.state.FindProjectById(call.server, call.Text("id")), call.Text("id"));
}

}  // namespace Emulator::Internal
