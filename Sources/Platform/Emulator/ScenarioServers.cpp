// Scenario files: servers, their users, model servers and folders.
#include "Emulator/Internal/Scenario.h"

namespace Emulator::Internal::Scenario {

namespace {

UserSpec ReadUser(const Value& value, const std::string& path) {
    const Value& user = Object(value, path,
                               {"login", "password", "fullName", "id", "refreshToken", "color",
                                "guid", "picture", "companyMember"});
    UserSpec spec;
    spec.login = Text(user, path, "login", true);
    spec.password = Text(user, path, "password");
    spec.fullName = Text(user, path, "fullName");
    spec.id = Text(user, path, "id");
    spec.refreshToken = Text(user, path, "refreshToken");
    if (Member(user, "color")) spec.color = Text(user, path, "color");
    spec.guid = Text(user, path, "guid");
    if (Member(user, "companyMember")) spec.companyMember = Boolean(user, path, "companyMember");
    if (const Value* picture = Member(user, "picture")) {
        std::string at = Child(path, "picture");
        Object(*picture, at, {"type", "data"});
        spec.pictureType = Text(*picture, at, "type", true);
        const Value* data = Member(*picture, "data");
        if (!data) Fail(at, "missing key \"data\"");
        spec.picture = Bytes(*data, Child(at, "data"));
        if (spec.picture.empty()) Fail(Child(at, "data"), "a picture has bytes");
    }
    return spec;
}

void ReadModelServers(State& state, Server& server, const Value& list, const std::string& path) {
    for (std::size_t i = 0; i < list.size(); ++i) {
        std::string at = Index(path, i);
        const Value& ms = Object(list[i], at, {"id", "path", "version", "visible"});
        ModelServerSpec spec;
        spec.id = Text(ms, at, "id", true);
        spec.path = Text(ms, at, "path");
        if (Member(ms, "visible")) spec.visible = Boolean(ms, at, "visible");
        Version(ms, at, &spec.major, &spec.minor);
        At(at, [&] {
            state.AddModelServer(server, spec);
            return 0;
        });
    }
}

}  // namespace

void ReadUsers(State& state, Server& server, const Value& list, const std::string& path) {
    for (std::size_t i = 0; i < list.size(); ++i) {
        std::string at = Index(path, i);
        UserSpec user = ReadUser(list[i], at);
        At(at, [&] { return state.AddUser(server, user); });
    }
}

void ReadServer(State& state, const Value& value, const std::string& path) {
    const Value& server = Object(value, path,
                                 {"url", "friendlyName", "version", "down", "users", "modelServers",
                                  "folders", "projects", "answeredUrl", "ssl", "sslVerifyResult",
                                  "stateLogins", "mailboxes", "rootFolder", "libraries"});
    ServerSpec spec;
    spec.url = Text(server, path, "url", true);
    spec.friendlyName = Text(server, path, "friendlyName");
    Version(server, path, &spec.major, &spec.minor);
    spec.answeredUrl = Text(server, path, "answeredUrl");
    if (Member(server, "ssl")) spec.ssl = Boolean(server, path, "ssl");
    spec.sslVerifyResult =
        static_cast<int>(Integer(server, path, "sslVerifyResult", 0, INT32_MIN, INT32_MAX));
    const bool down = Boolean(server, path, "down");
    At(path, [&] {
        state.AddServer(spec);
        return 0;
    });
    Server& added = state.servers.back();
    added.down = down;

    if (const Value* users = List(server, path, "users"))
        ReadUsers(state, added, *users, Child(path, "users"));
    if (const Value* modelServers = List(server, path, "modelServers"))
        ReadModelServers(state, added, *modelServers, Child(path, "modelServers"));
    if (const Value* folders = List(server, path, "folders"))
        ReadFolders(state, added, *folders, Child(path, "folders"));
    if (const Value* root = Member(server, "rootFolder"))
        ReadRootFolder(state, added, *root, Child(path, "rootFolder"));
    if (const Value* libraries = List(server, path, "libraries"))
        ReadLibraries(state, added, *libraries, Child(path, "libraries"));
    if (const Value* projects = List(server, path, "projects"))
        ReadProjects(state, added, *projects, Child(path, "projects"));
    if (const Value* logins = List(server, path, "stateLogins"))
        ReadStateLogins(state, added, *logins, Child(path, "stateLogins"));
    if (const Value* mailboxes = List(server, path, "mailboxes"))
        ReadMailboxes(state, added, *mailboxes, Child(path, "mailboxes"));
}

Data WriteUsers(const Server& server, bool withSecrets) {
    Data users = Data::array();
    for (const User& user : server.users) {
        const UserSpec& u = user.spec;
        Data entry{{"login", u.login}};
        if (withSecrets && !u.password.empty()) entry["password"] = u.password;
        entry["fullName"] = u.fullName;
        entry["id"] = u.id;
        if (withSecrets) entry["refreshToken"] = u.refreshToken;
        entry["color"] = u.color;
        entry["guid"] = u.guid;
        if (!u.picture.empty()) {
            if (withSecrets)
                entry["picture"] = {{"type", u.pictureType}, {"data", EncodeBase64(u.picture)}};
            else
                entry["hasPicture"] = true;
        }
        if (!u.companyMember) entry["companyMember"] = false;
        users.push_back(std::move(entry));
    }
    return users;
}

Data WriteServer(const Server& server, bool withSecrets) {
    Data s{{"url", server.spec.url},
           {"friendlyName", server.spec.friendlyName},
           {"version", Data::array({server.spec.major, server.spec.minor})}};
    if (server.down) s["down"] = true;
    if (!server.spec.answeredUrl.empty()) s["answeredUrl"] = server.spec.answeredUrl;
    if (server.spec.ssl) s["ssl"] = *server.spec.ssl;
    if (server.spec.sslVerifyResult != 0) s["sslVerifyResult"] = server.spec.sslVerifyResult;
    s["users"] = WriteUsers(server, withSecrets);
    Data modelServers = Data::array();
    for (const ModelServerSpec& ms : server.modelServers) {
        Data entry{
            {"id", ms.id}, {"path", ms.path}, {"version", Data::array({ms.major, ms.minor})}};
        if (!ms.visible) entry["visible"] = false;
        modelServers.push_back(std::move(entry));
    }
    s["modelServers"] = std::move(modelServers);
    s["folders"] = WriteFolders(server);
    if (Data root = WriteRootFolder(server); !root.empty()) s["rootFolder"] = std::move(root);
    if (!server.libraries.empty()) s["libraries"] = WriteLibraries(server);
    s["projects"] = WriteProjects(server);
    if (!server.spec.stateLogins.empty()) s["stateLogins"] = WriteStateLogins(server, withSecrets);
    if (Data mailboxes = WriteMailboxes(server); !mailboxes.empty())
        s["mailboxes"] = std::move(mailboxes);
    return s;
}

}  // namespace Emulator::Internal::Scenario
