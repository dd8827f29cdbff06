// Scenario files: the JSON form of the emulator's state (docs/EMULATOR.md).
#include <cstdio>
#include <set>
#include <stdexcept>
#include <string_view>

#include "Emulator/Internal/State.h"
#include "IO/File.h"

namespace Emulator {

using Internal::Data;

namespace {

constexpr std::size_t kMaxScenarioBytes = 64u << 20;

std::string Child(const std::string& path, const std::string& key) {
    return path.empty() ? key : path + "." + key;
}

std::string Index(const std::string& path, std::size_t i) {
    return path + "[" + std::to_string(i) + "]";
}

[[noreturn]] void Fail(const std::string& path, const std::string& what) {
    throw ScenarioError((path.empty() ? std::string("scenario") : path) + ": " + what);
}

// An object with only the keys named; the first other key is the error.
const Data& Object(const Data& value, const std::string& path,
                   std::initializer_list<std::string_view> keys) {
    if (!value.is_object()) Fail(path, "expected an object");
    for (const auto& [key, member] : value.items()) {
        bool known = false;
        for (std::string_view k : keys) known = known || k == key;
        if (!known) Fail(Child(path, key), "unknown key");
    }
    return value;
}

const Data* Member(const Data& object, const char* key) {
    auto it = object.find(key);
    return it == object.end() ? nullptr : &*it;
}

std::string Text(const Data& object, const std::string& path, const char* key,
                 bool required = false) {
    const Data* value = Member(object, key);
    if (!value) {
        if (required) Fail(path, std::string("missing key \"") + key + "\"");
        return std::string();
    }
    if (!value->is_string()) Fail(Child(path, key), "expected a text");
    return value->get<std::string>();
}

int Integer(const Data& object, const std::string& path, const char* key, int otherwise, int low,
            int high) {
    const Data* value = Member(object, key);
    if (!value) return otherwise;
    if (!value->is_number_integer()) Fail(Child(path, key), "expected an integer");
    long long number = value->get<long long>();
    if (number < low || number > high)
        Fail(Child(path, key), "expected " + std::to_string(low) + " to " + std::to_string(high));
    return static_cast<int>(number);
}

bool Boolean(const Data& object, const std::string& path, const char* key) {
    const Data* value = Member(object, key);
    if (!value) return false;
    if (!value->is_boolean()) Fail(Child(path, key), "expected true or false");
    return value->get<bool>();
}

void Version(const Data& object, const std::string& path, int* major, int* minor) {
    const Data* value = Member(object, "version");
    if (!value) return;
    if (!value->is_array() || value->size() != 2 || !(*value)[0].is_number_integer() ||
        !(*value)[1].is_number_integer() || (*value)[0].get<long long>() < 0 ||
        (*value)[1].get<long long>() < 0 || (*value)[0].get<long long>() > 0xffff ||
        (*value)[1].get<long long>() > 0xffff)
        Fail(Child(path, "version"), "expected [major, minor]");
    *major = (*value)[0].get<int>();
    *minor = (*value)[1].get<int>();
}

// The array under key, or null if there is none.
const Data* List(const Data& object, const std::string& path, const char* key) {
    const Data* value = Member(object, key);
    if (value && !value->is_array()) Fail(Child(path, key), "expected an array");
    return value;
}

std::vector<unsigned char> Bytes(const Data& value, const std::string& path) {
    std::vector<unsigned char> bytes;
    if (!value.is_string() || !Internal::DecodeBase64(value.get<std::string>(), &bytes))
        Fail(path, "expected base64 text");
    return bytes;
}

// A refusal of the tables becomes an error at the entry that caused it.
template <typename F>
auto At(const std::string& path, F&& add) {
    try {
        return add();
    } catch (const std::invalid_argument& e) {
        Fail(path, e.what());
    }
}

UserSpec ReadUser(const Data& value, const std::string& path) {
    const Data& user = Object(value, path,
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
    if (const Data* picture = Member(user, "picture")) {
        std::string at = Child(path, "picture");
        Object(*picture, at, {"type", "data"});
        spec.pictureType = Text(*picture, at, "type", true);
        const Data* data = Member(*picture, "data");
        if (!data) Fail(at, "missing key \"data\"");
        spec.picture = Bytes(*data, Child(at, "data"));
        if (spec.picture.empty()) Fail(Child(at, "data"), "a picture has bytes");
    }
    return spec;
}

SessionSpec ReadSession(const Data& value, const std::string& path) {
    const Data& session = Object(value, path, {"user", "id", "computer", "attributes"});
    SessionSpec spec;
    spec.user = Text(session, path, "user", true);
    spec.id = Text(session, path, "id");
    if (const Data* attributes = Member(session, "attributes")) {
        std::string at = Child(path, "attributes");
        if (!attributes->is_object()) Fail(at, "expected an object");
        for (const auto& [name, bytes] : attributes->items())
            spec.attributes[name] = Bytes(bytes, Child(at, name));
    }
    if (Member(session, "computer")) {
        if (spec.attributes.count(Internal::kComputerNameAttribute))
            Fail(Child(path, "computer"), "given twice, also as attributes.ComputerName");
        std::string computer = Text(session, path, "computer");
        spec.attributes[Internal::kComputerNameAttribute] =
            std::vector<unsigned char>(computer.begin(), computer.end());
    }
    return spec;
}

ProjectSpec ReadProject(const Data& value, const std::string& path) {
    const Data& project = Object(
        value, path, {"path", "id", "modelServer", "state", "permissions", "sessions", "members"});
    ProjectSpec spec;
    spec.path = Text(project, path, "path", true);
    spec.id = Text(project, path, "id");
    spec.modelServer = Text(project, path, "modelServer");
    spec.state = Integer(project, path, "state", 0, INT32_MIN, INT32_MAX);
    if (const Data* permissions = Member(project, "permissions")) {
        std::string at = Child(path, "permissions");
        if (!permissions->is_object()) Fail(at, "expected an object");
        for (const auto& [login, texts] : permissions->items()) {
            std::string entry = Child(at, login);
            if (!texts.is_array()) Fail(entry, "expected an array of permission texts");
            std::vector<std::string>& list = spec.permissions[login];
            for (std::size_t i = 0; i < texts.size(); ++i) {
                if (!texts[i].is_string()) Fail(Index(entry, i), "expected a text");
                list.push_back(texts[i].get<std::string>());
                At(Index(entry, i), [&] {
                    Internal::State::CheckPermissionTexts({list.back()});
                    return 0;
                });
            }
        }
    }
    if (const Data* members = List(project, path, "members")) {
        for (std::size_t i = 0; i < members->size(); ++i) {
            std::string at = Index(Child(path, "members"), i);
            const Data& member = Object((*members)[i], at, {"user", "userId"});
            spec.members.push_back(MemberSpec{
                Text(member, at, "user", true),
                static_cast<std::int16_t>(Integer(member, at, "userId", 0, 1, INT16_MAX))});
        }
    }
    if (const Data* sessions = List(project, path, "sessions"))
        for (std::size_t i = 0; i < sessions->size(); ++i)
            spec.sessions.push_back(ReadSession((*sessions)[i], Index(Child(path, "sessions"), i)));
    return spec;
}

void ReadServer(Internal::State& state, const Data& value, const std::string& path) {
    const Data& server =
        Object(value, path,
               {"url", "friendlyName", "version", "down", "users", "modelServers", "folders",
                "projects", "answeredUrl", "ssl", "sslVerifyResult", "stateLogins"});
    ServerSpec spec;
    spec.url = Text(server, path, "url", true);
    spec.friendlyName = Text(server, path, "friendlyName");
    Version(server, path, &spec.major, &spec.minor);
    spec.answeredUrl = Text(server, path, "answeredUrl");
    if (Member(server, "ssl")) spec.ssl = Boolean(server, path, "ssl");
    spec.sslVerifyResult = Integer(server, path, "sslVerifyResult", 0, INT32_MIN, INT32_MAX);
    At(path, [&] {
        state.AddServer(spec);
        return 0;
    });
    Internal::Server& added = state.servers.back();
    added.down = Boolean(server, path, "down");

    if (const Data* users = List(server, path, "users"))
        for (std::size_t i = 0; i < users->size(); ++i) {
            std::string at = Index(Child(path, "users"), i);
            UserSpec user = ReadUser((*users)[i], at);
            At(at, [&] { return state.AddUser(added, user); });
        }
    if (const Data* modelServers = List(server, path, "modelServers"))
        for (std::size_t i = 0; i < modelServers->size(); ++i) {
            std::string at = Index(Child(path, "modelServers"), i);
            const Data& ms = Object((*modelServers)[i], at, {"id", "path", "version"});
            ModelServerSpec msSpec;
            msSpec.id = Text(ms, at, "id", true);
            msSpec.path = Text(ms, at, "path");
            Version(ms, at, &msSpec.major, &msSpec.minor);
            At(at, [&] {
                state.AddModelServer(added, msSpec);
                return 0;
            });
        }
    if (const Data* folders = List(server, path, "folders"))
        for (std::size_t i = 0; i < folders->size(); ++i) {
            std::string at = Index(Child(path, "folders"), i);
            if (!(*folders)[i].is_string()) Fail(at, "expected a path");
            At(at, [&] {
                state.AddFolder(added, (*folders)[i].get<std::string>());
                return 0;
            });
        }
    if (const Data* projects = List(server, path, "projects"))
        for (std::size_t i = 0; i < projects->size(); ++i) {
            std::string at = Index(Child(path, "projects"), i);
            ProjectSpec project = ReadProject((*projects)[i], at);
            At(at, [&] { return state.AddProject(added, project); });
        }
    if (const Data* logins = List(server, path, "stateLogins"))
        for (std::size_t i = 0; i < logins->size(); ++i) {
            std::string at = Index(Child(path, "stateLogins"), i);
            const Data& login = Object((*logins)[i], at, {"key", "state", "user"});
            StateLoginSpec spec{Text(login, at, "key", true), Text(login, at, "state"),
                                Text(login, at, "user", true)};
            At(at, [&] {
                state.AddStateLogin(added, spec);
                return 0;
            });
        }
}

// Keys given twice in one object are refused: the parser would keep one of
// them without a word. The stack follows the parser's events to name the place.
struct DuplicateKeyCheck {
    struct Frame {
        bool array = false;
        long index = -1;
        std::string key;
        std::set<std::string> keys;
    };
    std::vector<Frame> frames;

    std::string Path() const {
        std::string path;
        for (std::size_t i = 0; i + 1 < frames.size(); ++i)
            path = frames[i].array ? Index(path, static_cast<std::size_t>(frames[i].index))
                                   : Child(path, frames[i].key);
        return path;
    }
    void Element() {
        if (!frames.empty() && frames.back().array) ++frames.back().index;
    }
    bool operator()(int, Data::parse_event_t event, Data& parsed) {
        switch (event) {
            case Data::parse_event_t::object_start:
            case Data::parse_event_t::array_start:
                Element();
                frames.push_back(Frame{event == Data::parse_event_t::array_start, -1, {}, {}});
                break;
            case Data::parse_event_t::object_end:
            case Data::parse_event_t::array_end:
                if (!frames.empty()) frames.pop_back();
                break;
            case Data::parse_event_t::key: {
                std::string key = parsed.get<std::string>();
                if (!frames.back().keys.insert(key).second) Fail(Child(Path(), key), "given twice");
                frames.back().key = key;
                break;
            }
            case Data::parse_event_t::value:
                Element();
                break;
        }
        return true;
    }
};

// The parser's reason without the text it last read, which may hold a token.
std::string SyntaxReason(const std::string& what) {
    std::string reason = "syntax error";
    std::size_t context = what.find("while parsing ");
    std::size_t dash = what.find(" - ", context == std::string::npos ? 0 : context);
    if (context != std::string::npos && dash != std::string::npos)
        reason += " " + what.substr(context, dash - context);
    if (dash != std::string::npos) {
        std::size_t end = std::min(what.find("; last read", dash), what.find("; expected ", dash));
        reason += ": " + what.substr(dash + 3, end == std::string::npos ? end : end - dash - 3);
    }
    std::size_t expected = what.rfind("; expected ");
    if (expected != std::string::npos && expected > dash) reason += what.substr(expected);
    for (char& c : reason)
        if (c == '\n' || c == '\r') c = ' ';
    return reason;
}

Data Parse(const std::string& text) {
    DuplicateKeyCheck check;
    try {
        return Data::parse(text, std::ref(check));
    } catch (const Data::parse_error& e) {
        // The line and column of the byte the parser stopped at.
        std::size_t at = e.byte == 0 ? 0 : std::min<std::size_t>(e.byte - 1, text.size());
        int line = 1;
        std::size_t lineStart = 0;
        for (std::size_t i = 0; i < at; ++i)
            if (text[i] == '\n') {
                ++line;
                lineStart = i + 1;
            }
        int column = static_cast<int>(at - lineStart) + 1;
        throw ScenarioError("line " + std::to_string(line) + ", column " + std::to_string(column) +
                                ": " + SyntaxReason(e.what()),
                            line, column);
    }
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

Data WriteVersion(int major, int minor) {
    return Data::array({major, minor});
}

std::string WriteScenario(const Internal::State& state, bool withSecrets);

}  // namespace

std::unique_ptr<Service> Service::FromScenarioText(const std::string& text, std::uint64_t seed) {
    Data document = Parse(text);
    auto service = std::make_unique<Service>(seed);
    std::lock_guard<std::mutex> lock(service->mState->mutex);
    Object(document, "", {"servers"});
    if (const Data* servers = List(document, "", "servers"))
        for (std::size_t i = 0; i < servers->size(); ++i)
            ReadServer(*service->mState, (*servers)[i], Index("servers", i));
    return service;
}

std::unique_ptr<Service> Service::FromScenarioFile(const std::string& path, std::uint64_t seed) {
    std::string text;
    int status =
        IO::fileSystem.ReadWholeFile(IO::Location(ZR::UniString(path)), &text, kMaxScenarioBytes);
    if (status != IO::kOk) {
        char code[16];
        std::snprintf(code, sizeof code, "0x%08x", static_cast<unsigned int>(status));
        throw ScenarioError(path + ": can't be read" +
                            (status == IO::kErrNotFound   ? std::string(": no such file")
                             : status == IO::kErrTooLarge ? std::string(": larger than 64 MiB")
                                                          : std::string(" (error ") + code + ")"));
    }
    try {
        return FromScenarioText(text, seed);
    } catch (const ScenarioError& e) {
        throw ScenarioError(path + ": " + e.what(), e.GetLine(), e.GetColumn());
    }
}

std::string Service::ToScenarioText() const {
    return WriteScenario(*mState, true);
}

std::string Service::ToDisplayText() const {
    return WriteScenario(*mState, false);
}

namespace {

std::string WriteScenario(const Internal::State& state, bool withSecrets) {
    std::lock_guard<std::mutex> lock(state.mutex);
    Data servers = Data::array();
    for (const Internal::Server& server : state.servers) {
        Data s{{"url", server.spec.url},
               {"friendlyName", server.spec.friendlyName},
               {"version", WriteVersion(server.spec.major, server.spec.minor)}};
        if (server.down) s["down"] = true;
        if (!server.spec.answeredUrl.empty()) s["answeredUrl"] = server.spec.answeredUrl;
        if (server.spec.ssl) s["ssl"] = *server.spec.ssl;
        if (server.spec.sslVerifyResult != 0) s["sslVerifyResult"] = server.spec.sslVerifyResult;
        Data users = Data::array();
        for (const Internal::User& user : server.users) {
            const UserSpec& u = user.spec;
            Data entry{{"login", u.login}};
            if (withSecrets && !u.password.empty()) entry["password"] = u.password;
            entry["fullName"] = u.fullName;
            entry["id"] = u.id;
            if (withSecrets) entry["refreshToken"] = u.refreshToken;
            entry["color"] = u.color;
            entry["guid"] = u.guid;
            if (!u.picture.empty())
                entry["picture"] = {{"type", u.pictureType},
                                    {"data", Internal::EncodeBase64(u.picture)}};
            if (!u.companyMember) entry["companyMember"] = false;
            users.push_back(std::move(entry));
        }
        s["users"] = std::move(users);
        Data modelServers = Data::array();
        for (const ModelServerSpec& ms : server.modelServers)
            modelServers.push_back(
                {{"id", ms.id}, {"path", ms.path}, {"version", WriteVersion(ms.major, ms.minor)}});
        s["modelServers"] = std::move(modelServers);
        s["folders"] = server.folders;
        Data projects = Data::array();
        for (const Internal::Project& project : server.projects) {
            Data p{{"path", project.path}, {"id", project.id}};
            if (!project.modelServer.empty()) p["modelServer"] = project.modelServer;
            p["state"] = project.state;
            Data permissions = Data::object();
            for (const auto& [login, texts] : project.permissions) permissions[login] = texts;
            p["permissions"] = std::move(permissions);
            Data members = Data::array();
            for (const MemberSpec& member : project.members)
                members.push_back({{"user", member.user}, {"userId", member.userId}});
            p["members"] = std::move(members);
            Data sessions = Data::array();
            for (const Internal::Session& session : project.sessions) {
                Data entry{{"user", session.user}, {"id", session.id}};
                Data attributes = Data::object();
                for (const auto& [name, bytes] : session.attributes) {
                    if (name == Internal::kComputerNameAttribute && IsUtf8(bytes))
                        entry["computer"] = std::string(bytes.begin(), bytes.end());
                    else
                        attributes[name] = Internal::EncodeBase64(bytes);
                }
                if (!attributes.empty()) entry["attributes"] = std::move(attributes);
                sessions.push_back(std::move(entry));
            }
            p["sessions"] = std::move(sessions);
            projects.push_back(std::move(p));
        }
        s["projects"] = std::move(projects);
        if (!server.spec.stateLogins.empty()) {
            Data logins = Data::array();
            for (const StateLoginSpec& login : server.spec.stateLogins) {
                Data entry{{"key", login.key}};
                if (withSecrets) entry["state"] = login.state;
                entry["user"] = login.user;
                logins.push_back(std::move(entry));
            }
            s["stateLogins"] = std::move(logins);
        }
        servers.push_back(std::move(s));
    }
    return Data{{"servers", std::move(servers)}}.dump(2) + "\n";
}

}  // namespace

void Service::SaveScenarioFile(const std::string& path) const {
    int status = IO::fileSystem.WriteFileAtomically(IO::Location(ZR::UniString(path)),
                                                    ToScenarioText(), IO::kNewFileMode);
    if (status != IO::kOk) {
        char code[16];
        std::snprintf(code, sizeof code, "0x%08x", static_cast<unsigned int>(status));
        throw std::runtime_error("Failed to write the scenario " + path + " (error " + code + ")");
    }
}

}  // namespace Emulator
