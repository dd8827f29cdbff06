// Scenario files: projects, their permissions, members and sessions.
#include "Emulator/Internal/Scenario.h"

namespace Emulator::Internal::Scenario {

namespace {

SessionSpec ReadSession(const Value& value, const std::string& path) {
    const Value& session = Object(value, path, {"user", "id", "computer", "attributes"});
    SessionSpec spec;
    spec.user = Text(session, path, "user", true);
    spec.id = Text(session, path, "id");
    if (const Value* attributes = Member(session, "attributes")) {
        std::string at = Child(path, "attributes");
        if (!attributes->is_object()) Fail(at, "expected an object");
        for (const auto& [name, bytes] : attributes->items())
            spec.attributes[name] = Bytes(bytes, Child(at, name));
    }
    if (Member(session, "computer")) {
        if (spec.attributes.count(kComputerNameAttribute))
            Fail(Child(path, "computer"), "given twice, also as attributes.ComputerName");
        std::string computer = Text(session, path, "computer");
        spec.attributes[kComputerNameAttribute] =
            std::vector<unsigned char>(computer.begin(), computer.end());
    }
    return spec;
}

void ReadPermissions(const Value& permissions, const std::string& path, ProjectSpec* spec) {
    if (!permissions.is_object()) Fail(path, "expected an object");
    for (const auto& [login, texts] : permissions.items()) {
        std::string entry = Child(path, login);
        if (!texts.is_array()) Fail(entry, "expected an array of permission texts");
        std::vector<std::string>& list = spec->permissions[login];
        list.reserve(texts.size());
        for (std::size_t i = 0; i < texts.size(); ++i) {
            if (!texts[i].is_string()) Fail(Index(entry, i), "expected a text");
            list.push_back(texts[i].get<std::string>());
            At(Index(entry, i), [&] {
                State::CheckPermissionTexts({list.back()});
                return 0;
            });
        }
    }
}

ProjectSpec ReadProject(const Value& value, const std::string& path) {
    const Value& project = Object(
        value, path, {"path", "id", "modelServer", "state", "permissions", "sessions", "members"});
    ProjectSpec spec;
    spec.path = Text(project, path, "path", true);
    spec.id = Text(project, path, "id");
    spec.modelServer = Text(project, path, "modelServer");
    // Any 32-bit value: the client gives meaning to the states it knows.
    spec.state = static_cast<int>(Integer(project, path, "state", 0, INT32_MIN, INT32_MAX));
    if (const Value* permissions = Member(project, "permissions"))
        ReadPermissions(*permissions, Child(path, "permissions"), &spec);
    if (const Value* members = List(project, path, "members")) {
        spec.members.reserve(members->size());
        for (std::size_t i = 0; i < members->size(); ++i) {
            std::string at = Index(Child(path, "members"), i);
            const Value& member = Object((*members)[i], at, {"user", "userId"});
            spec.members.push_back(MemberSpec{
                Text(member, at, "user", true),
                static_cast<std::int16_t>(Integer(member, at, "userId", 0, 1, INT16_MAX))});
        }
    }
    if (const Value* sessions = List(project, path, "sessions")) {
        spec.sessions.reserve(sessions->size());
        for (std::size_t i = 0; i < sessions->size(); ++i)
            spec.sessions.push_back(ReadSession((*sessions)[i], Index(Child(path, "sessions"), i)));
    }
    return spec;
}

// Text the document can carry as it is; the writer refuses broken UTF-8.
bool IsUtf8(const std::vector<unsigned char>& bytes) {
    try {
        Data(std::string(bytes.begin(), bytes.end())).dump();
        return true;
    } catch (const Data::type_error&) {
        return false;
    }
}

Data WriteSession(const Session& session) {
    Data entry{{"user", session.user}, {"id", session.id}};
    Data attributes = Data::object();
    for (const auto& [name, bytes] : session.attributes) {
        if (name == kComputerNameAttribute && IsUtf8(bytes))
            entry["computer"] = std::string(bytes.begin(), bytes.end());
        else
            Append(attributes, name, EncodeBase64(bytes));
    }
    if (!attributes.empty()) entry["attributes"] = std::move(attributes);
    return entry;
}

}  // namespace

void ReadProjects(State& state, Server& server, const Value& list, const std::string& path) {
    for (std::size_t i = 0; i < list.size(); ++i) {
        std::string at = Index(path, i);
        ProjectSpec project = ReadProject(list[i], at);
        At(at, [&] { return state.AddProject(server, project); });
    }
}

Data WriteProjects(const Server& server) {
    Data projects = Data::array();
    for (const Project& project : server.projects) {
        Data p{{"path", project.path}, {"id", project.id}};
        if (!project.modelServer.empty()) p["modelServer"] = project.modelServer;
        p["state"] = project.state;
        Data permissions = Data::object();
        for (const auto& [login, texts] : project.permissions) Append(permissions, login, texts);
        p["permissions"] = std::move(permissions);
        Data members = Data::array();
        for (const MemberSpec& member : project.members)
            members.push_back({{"user", member.user}, {"userId", member.userId}});
        p["members"] = std::move(members);
        Data sessions = Data::array();
        for (const Session& session : project.sessions) sessions.push_back(WriteSession(session));
        p["sessions"] = std::move(sessions);
        projects.push_back(std::move(p));
    }
    return projects;
}

}  // namespace Emulator::Internal::Scenario
