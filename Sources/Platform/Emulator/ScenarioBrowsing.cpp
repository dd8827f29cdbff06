// Scenario files: the folder tree (folders, the root folder), libraries.
#include "Emulator/Internal/Scenario.h"

namespace Emulator::Internal::Scenario {

namespace {

using Permissions = std::map<std::string, std::vector<std::string>>;

Permissions ReadPermissionTable(const Value& value, const std::string& path) {
    if (!value.is_object()) Fail(path, "expected an object");
    Permissions out;
    for (const auto& [login, texts] : value.items()) {
        std::string entry = Child(path, login);
        if (!texts.is_array()) Fail(entry, "expected an array of permission texts");
        std::vector<std::string>& list = out[login];
        for (std::size_t i = 0; i < texts.size(); ++i) {
            if (!texts[i].is_string()) Fail(Index(entry, i), "expected a text");
            list.push_back(texts[i].get<std::string>());
        }
    }
    return out;
}

void ReadFolderSettings(const Value& folder, const std::string& path, FolderSpec* spec) {
    spec->defaultModelServer = Text(folder, path, "defaultModelServer");
    spec->locked = Boolean(folder, path, "locked");
    if (const Value* permissions = Member(folder, "permissions"))
        spec->permissions = ReadPermissionTable(*permissions, Child(path, "permissions"));
}

Data PermissionData(const Permissions& permissions) {
    Data out = Data::object();
    for (const auto& [login, texts] : permissions) Append(out, login, texts);
    return out;
}

Data Settings(const Folder& f) {
    Data d = Data::object();
    if (!f.defaultModelServer.empty()) d["defaultModelServer"] = f.defaultModelServer;
    if (f.locked) d["locked"] = true;
    if (!f.permissions.empty()) d["permissions"] = PermissionData(f.permissions);
    return d;
}

}  // namespace

void ReadFolders(State& state, Server& server, const Value& list, const std::string& path) {
    for (std::size_t i = 0; i < list.size(); ++i) {
        std::string at = Index(path, i);
        FolderSpec spec;
        if (list[i].is_string()) {
            spec.path = list[i].get<std::string>();
        } else {
            const Value& folder =
                Object(list[i], at, {"path", "id", "defaultModelServer", "locked", "permissions"});
            spec.path = Text(folder, at, "path", true);
            spec.id = Text(folder, at, "id");
            ReadFolderSettings(folder, at, &spec);
        }
        if (spec.path.empty()) Fail(at, "the root folder is given as rootFolder");
        At(at, [&] { return state.AddFolder(server, spec); });
    }
}

void ReadRootFolder(State& state, Server& server, const Value& value, const std::string& path) {
    const Value& root = Object(value, path, {"defaultModelServer", "locked", "permissions"});
    FolderSpec spec;
    ReadFolderSettings(root, path, &spec);
    At(path, [&] { return state.AddFolder(server, spec); });
}

void ReadLibraries(State& state, Server& server, const Value& list, const std::string& path) {
    for (std::size_t i = 0; i < list.size(); ++i) {
        std::string at = Index(path, i);
        const Value& library = Object(list[i], at, {"path", "id", "permissions"});
        LibrarySpec spec;
        spec.path = Text(library, at, "path", true);
        spec.id = Text(library, at, "id");
        if (const Value* permissions = Member(library, "permissions"))
            spec.permissions = ReadPermissionTable(*permissions, Child(at, "permissions"));
        At(at, [&] { return state.AddLibrary(server, spec); });
    }
}

Data WriteFolders(const Server& server) {
    Data folders = Data::array();
    for (const Folder& f : server.folders) {
        if (f.path.empty() || f.implicit) continue;
        Data settings = Settings(f);
        // The short form while the id is the one the path gives.
        if (settings.empty() && f.id == FolderId(f.path)) {
            folders.push_back(f.path);
            continue;
        }
        Data entry{{"path", f.path}, {"id", f.id}};
        for (auto& [key, value] : settings.items()) Append(entry, key, value);
        folders.push_back(std::move(entry));
    }
    return folders;
}

Data WriteRootFolder(const Server& server) {
    return Settings(server.folders.front());
}

Data WriteLibraries(const Server& server) {
    Data libraries = Data::array();
    for (const Library& l : server.libraries) {
        Data entry{{"path", l.path}, {"id", l.id}};
        if (!l.permissions.empty()) entry["permissions"] = PermissionData(l.permissions);
        libraries.push_back(std::move(entry));
    }
    return libraries;
}

}  // namespace Emulator::Internal::Scenario
