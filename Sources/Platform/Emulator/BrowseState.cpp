// The folder tree of a server: folders with ids that survive a move, the
// projects and libraries in each, and the indexes that find them.
#include <stdexcept>

#include "Emulator/Internal/State.h"
#include "ZR/UniString.h"

namespace Emulator::Internal {

namespace {

// The checked paths of the tables have no empty element: the parent is
// what stands before the last "/".
std::string ParentPath(const std::string& path) {
    std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? std::string() : path.substr(0, slash);
}

void CheckFolderPath(const std::string& path) {
    if (path.size() < 2 || path[0] != '/' || path.back() == '/' ||
        path.find("//") != std::string::npos)
        throw std::invalid_argument("folder path \"" + path +
                                    "\" must start with \"/\" and name something");
}

bool Under(const std::string& path, const std::string& folder) {
    return path.size() > folder.size() && path[folder.size()] == '/' &&
           SameText(path.substr(0, folder.size()), folder);
}

}  // namespace

void State::MakeRootFolder(Server& server) {
    Folder root;
    root.id = kRootFolderId;
    server.folders.push_back(root);
    server.folderByPath.emplace("", 0);
    server.folderById.emplace(root.id, 0);
}

Folder* State::FindFolderByPath(Server& server, const std::string& path) {
    auto it = server.folderByPath.find(FoldKey(path));
    return it == server.folderByPath.end() ? nullptr : &server.folders[it->second];
}

Folder* State::FindFolderById(Server& server, const std::string& id) {
    auto it = server.folderById.find(id);
    return it == server.folderById.end() ? nullptr : &server.folders[it->second];
}

Folder& State::EnsureFolder(Server& server, const std::string& path) {
    // Walk down from the root: the first missing ancestor and all below it
    // are made, without recursion.
    std::vector<std::pair<std::string, std::string>> missing;  // path and its key
    std::size_t parent = 0;
    for (std::string at = path;;) {
        std::string key = FoldKey(at);
        auto found = server.folderByPath.find(key);
        if (found != server.folderByPath.end()) {
            parent = found->second;
            break;
        }
        std::string up = ParentPath(at);
        missing.emplace_back(std::move(at), std::move(key));
        at = std::move(up);
    }
    for (auto it = missing.rbegin(); it != missing.rend(); ++it) {
        CheckFolderPath(it->first);
        if (server.projectByPath.count(it->second))
            throw std::invalid_argument("a project stands at " + it->first);
        Folder folder;
        folder.path = it->first;
        folder.id = FolderId(it->first);
        // A folder that moved away keeps the id its old path gave it.
        if (server.folderById.count(folder.id)) folder.id = NewId("folder");
        folder.parentId = server.folders[parent].id;
        folder.implicit = true;
        parent = server.folders.size();
        server.subFolders[folder.parentId].push_back(parent);
        server.folderByPath.emplace(std::move(it->second), parent);
        server.folderById.emplace(folder.id, parent);
        server.folders.push_back(std::move(folder));
    }
    return server.folders[parent];
}

std::string State::AddFolder(Server& server, const FolderSpec& spec) {
    for (const auto& [login, texts] : spec.permissions) {
        if (!FindUser(server, login)) throw std::invalid_argument("no user " + login);
        CheckPermissionTexts(texts);
    }
    if (!spec.defaultModelServer.empty() && !FindModelServer(server, spec.defaultModelServer))
        throw std::invalid_argument("no model server " + spec.defaultModelServer);
    Folder* folder = FindFolderByPath(server, spec.path);
    if (folder && !folder->implicit && !spec.path.empty())
        throw std::invalid_argument("folder " + spec.path + " exists");
    if (!folder) {
        CheckFolderPath(spec.path);
        if (!spec.id.empty() && server.folderById.count(spec.id))
            throw std::invalid_argument("folder id " + spec.id + " is taken");
        folder = &EnsureFolder(server, spec.path);
        if (!spec.id.empty() && spec.id != folder->id) {
            server.folderById.erase(folder->id);
            folder->id = spec.id;
            server.folderById.emplace(folder->id,
                                      static_cast<std::size_t>(folder - server.folders.data()));
        }
    } else if (!spec.id.empty() && spec.id != folder->id) {
        throw std::invalid_argument("folder " + spec.path + " has the id " + folder->id);
    }
    folder->implicit = false;
    folder->defaultModelServer = spec.defaultModelServer;
    folder->locked = spec.locked;
    folder->permissions = spec.permissions;
    return folder->id;
}

void State::MoveFolder(Server& server, const std::string& oldPath, const std::string& newPath) {
    Folder* folder = FindFolderByPath(server, oldPath);
    if (!folder || folder->path.empty()) throw std::invalid_argument("no folder " + oldPath);
    CheckFolderPath(newPath);
    if (FindFolderByPath(server, newPath) || FindProjectByPath(server, newPath))
        throw std::invalid_argument(newPath + " is taken");
    if (SameText(newPath, oldPath) || Under(newPath, oldPath))
        throw std::invalid_argument("a folder can't move into itself");
    Folder* parent = FindFolderByPath(server, ParentPath(newPath));
    if (!parent) throw std::invalid_argument("no folder " + ParentPath(newPath));
    const std::string old = folder->path;
    folder->parentId = parent->id;
    auto rebase = [&](std::string& path) {
        if (SameText(path, old) || Under(path, old)) path = newPath + path.substr(old.size());
    };
    for (Folder& f : server.folders) rebase(f.path);
    for (Library& l : server.libraries) rebase(l.path);
    for (Project& p : server.projects) rebase(p.path);
    // A moved folder stands after its new parent, so parents keep coming first.
    std::vector<Folder> ordered, moved;
    ordered.reserve(server.folders.size());
    for (Folder& f : server.folders)
        (SameText(f.path, newPath) || Under(f.path, newPath) ? moved : ordered)
            .push_back(std::move(f));
    for (Folder& f : moved) ordered.push_back(std::move(f));
    server.folders = std::move(ordered);
    ReindexProjects(server);
    ReindexBrowsing(server);
}

std::string State::AddLibrary(Server& server, const LibrarySpec& spec) {
    CheckFolderPath(spec.path);
    for (const auto& [login, texts] : spec.permissions) {
        if (!FindUser(server, login)) throw std::invalid_argument("no user " + login);
        CheckPermissionTexts(texts);
    }
    Library library;
    library.id = spec.id.empty() ? NewId("library") : spec.id;
    if (server.libraryById.count(library.id))
        throw std::invalid_argument("library id " + library.id + " is taken");
    library.path = spec.path;
    library.permissions = spec.permissions;
    const std::string folderId = EnsureFolder(server, ParentPath(spec.path)).id;
    server.libraries.push_back(std::move(library));
    server.libraryById.emplace(server.libraries.back().id, server.libraries.size() - 1);
    server.folderLibraries[folderId].push_back(server.libraries.size() - 1);
    return server.libraries.back().id;
}

void State::ReindexBrowsing(Server& server) {
    server.folderByPath.clear();
    server.folderById.clear();
    server.subFolders.clear();
    server.folderProjects.clear();
    server.folderLibraries.clear();
    server.libraryById.clear();
    for (std::size_t i = 0; i < server.folders.size(); ++i) {
        const Folder& f = server.folders[i];
        server.folderByPath.emplace(FoldKey(f.path), i);
        server.folderById.emplace(f.id, i);
        if (!f.path.empty()) server.subFolders[f.parentId].push_back(i);
    }
    for (std::size_t i = 0; i < server.projects.size(); ++i)
        if (Folder* f = FindFolderByPath(server, ParentPath(server.projects[i].path)))
            server.folderProjects[f->id].push_back(i);
    for (std::size_t i = 0; i < server.libraries.size(); ++i) {
        server.libraryById.emplace(server.libraries[i].id, i);
        if (Folder* f = FindFolderByPath(server, ParentPath(server.libraries[i].path)))
            server.folderLibraries[f->id].push_back(i);
    }
}

}  // namespace Emulator::Internal
