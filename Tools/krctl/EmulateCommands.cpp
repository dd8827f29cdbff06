// krctl emulate: runs the library against the service emulator loaded from a
// scenario file, as a host on this computer would. With --update the server's
// state after the command goes back into the file, so that successive runs
// act like hosts on different computers working against one server.
// Passwords and tokens of the scenario are never printed.

#include <cstdio>
#include <memory>
#include <optional>

#include "DataFolder.h"
#include "Emulate.h"
#include "Emulator/Service.h"
#include "KRCB/Paths.h"
#include "KRCB/SignalClient.h"
#include "KRClient/ClientProjectConnectionManager.h"
#include "KRClient/ProjectConnection.h"
#include "KRClient/ProjectConnectionBase.h"
#include "KRClient/RegisteredProjects.h"
#include "KRClient/UserInterface/Login/UILoginDataStore.h"
#include "Krctl.h"
#include "ZR/Internal/Printable.h"

namespace krctl {

namespace {

using KRC::ProjectConnectionBase;

struct EmulateArgs {
    std::string scenario;
    bool update = false;
    ProjectArgs project;
    bool ignoreCachedSession = false;
};

}  // namespace

std::unique_ptr<Emulator::Service> LoadScenario(const std::string& path) {
    try {
        return Emulator::Service::FromScenarioFile(path);
    } catch (const Emulator::ScenarioError& e) {
        // The message names the file already.
        throw UsageError(e.what());
    }
}

IO::Location ProjectLocation(const Emulator::Service& service, const ProjectArgs& args) {
    CheckServerUrl(args.server);
    std::string token = args.token;
    if (token.empty()) {
        std::optional<Emulator::UserSpec> user = service.FindUser(args.server, args.user);
        if (!user)
            throw Failure("the scenario has no user '" + ZR::Internal::Printable(args.user) +
                          "' on " + ZR::Internal::Printable(args.server));
        token = user->refreshToken;
    }
    IO::Location location;
    KRCB::CreateServerLocation(location, ZR::UniString(args.server), ZR::UniString(args.user),
                               ZR::UniString(token));
    KRCB::SetProjectPath(location, ZR::UniString(args.path));
    return location;
}

void StartRegistry(const GlobalOptions& options) {
    CheckDataFolderBeforeStart(options, Access::Change);
    KRC::RegisteredProjects::Init(IO::Location(ZR::UniString(options.dataFolder)),
                                  ZR::UniString(options.projectCache),
                                  ZR::UniString(options.libCache));
}

void RememberLogin(const Emulator::Service& service, const ProjectArgs& args) {
    using KRC::UI::Login::UILoginDataStore;
    std::optional<Emulator::UserSpec> user = service.FindUser(args.server, args.user);
    if (!user) return;  // a login the server would refuse is not remembered
    auto info =
        ZR::Ref<UILoginDataStore::ServerInfo>::Make(ZR::UniString(args.server), ZR::UniString());
    const Json state = Json::parse(service.ToDisplayText());
    for (const Json& server : state.value("servers", Json::array())) {
        if (!server.contains("url") ||
            !KRCB::IsEqualServerUrls(ZR::UniString(server["url"].get<std::string>()),
                                     ZR::UniString(args.server), true))
            continue;
        info->uniqueURL = server.value("answeredUrl", server["url"].get<std::string>());
        info->friendlyName = server.value("friendlyName", std::string());
        const Json version = server.value("version", Json::array());
        if (version.size() == 2 && version[0].is_number_integer() &&
            version[1].is_number_integer()) {
            info->majorVersion = version[0].get<int>();
            info->minorVersion = version[1].get<int>();
        }
        break;
    }
    const std::string token = args.token.empty() ? user->refreshToken : args.token;
    UILoginDataStore store(UILoginDataStore::ForWriting);
    store.AddServer(info, args.server);
    if (store.ContainsUser(args.server, args.user)) {
        store.SetUserRefreshToken(args.server, args.user, token);
        store.SetUserFullName(args.server, args.user, user->fullName);
    } else {
        store.AddUser(args.server, UILoginDataStore::User(args.user, token, user->fullName));
    }
    store.SetActiveUser(args.server, args.user);
    if (!store.Write()) throw Failure("the login data could not be written");
}

void AddProjectOptions(CLI::App* sub, ProjectArgs& args) {
    sub->add_option("--server", args.server, "management server URL")->required();
    sub->add_option("--user", args.user, "login name")->required();
    sub->add_option("--path", args.path, "project path on the server, \"/Folder/Project\"")
        ->required();
    sub->add_option("--token", args.token,
                    "refresh token to log in with (default: the user's from the scenario)");
}

namespace {

int Report(const GlobalOptions& options, const Emulator::Service& service, const EmulateArgs& args,
           ProjectConnectionBase::CheckResult result) {
    Json signals = Json::array();
    for (const Emulator::SignalRecord& signal : service.GetSignals())
        signals.push_back(
            {{"id", signal.id}, {"name", KRCB::GetSignalName(signal.id)}, {"text", signal.text}});
    const int presence = service.GetPresenceState(args.project.server, args.project.user);
    if (options.json) {
        PrintJson(Json{{"checkResult", static_cast<int>(result)},
                       {"checkResultName", KRC::ProjectConnectionBase::GetCheckResultName(result)},
                       {"signals", std::move(signals)},
                       {"presenceState", presence},
                       {"presenceStateName", KRCB::GetPresenceStateName(presence)}});
    } else {
        std::printf("check result: %d %s\n", static_cast<int>(result),
                    KRC::ProjectConnectionBase::GetCheckResultName(result));
        for (const Json& signal : signals)
            std::printf("signal %d (%s) \"%s\"\n", signal["id"].get<int>(),
                        signal["name"].get<std::string>().c_str(),
                        ZR::Internal::Printable(signal["text"].get<std::string>()).c_str());
        std::printf("presence %d (%s)\n", presence, KRCB::GetPresenceStateName(presence));
    }
    return result == ProjectConnectionBase::CheckOnline ? kExitDone : kExitFailed;
}

// Opens the project as a host does: a manager, and a read connection whose
// constructor runs the check; or takes the session over with ReceiveSession.
int RunConnection(const GlobalOptions& options, const EmulateArgs& args, bool receive) {
    std::unique_ptr<Emulator::Service> service = LoadScenario(args.scenario);
    IO::Location location = ProjectLocation(*service, args.project);
    ProjectConnectionBase::CheckResult result;
    {
        Installed installed(*service);
        StartRegistry(options);
        RememberLogin(*service, args.project);
        KRC::ClientProjectConnectionManager manager(location, true);
        if (receive) {
            ZR::Ref<KRC::ReadProjectConnection> connection(
                new KRC::ReadProjectConnection(&manager, false));
            ProjectConnectionBase::ReceiveSession(connection.Get(), args.ignoreCachedSession);
            result = connection->GetCheckResult();
        } else {
            ZR::Ref<KRC::ReadProjectConnection> connection(
                new KRC::ReadProjectConnection(&manager, true));
            result = connection->GetCheckResult();
        }
    }
    if (args.update) service->SaveScenarioFile(args.scenario);
    return Report(options, *service, args, result);
}

// The state read back, into a plain map: an object of many members reads in
// logarithmic steps, and the text output looks members up by name.
using ShownJson = nlohmann::json;

// A name as one line of bounded length, whatever it holds.
std::string Name(const ShownJson& object, const char* key) {
    auto it = object.find(key);
    return it != object.end() && it->is_string()
               ? ZR::Internal::Printable(it->get_ref<const std::string&>())
               : std::string();
}

// A list of an object by reference: value() would copy it whole.
const ShownJson& Items(const ShownJson& object, const char* key) {
    static const ShownJson kNone = ShownJson::array();
    auto it = object.find(key);
    return it != object.end() && it->is_array() ? *it : kNone;
}

void PrintState(const ShownJson& state) {
    for (const ShownJson& server : Items(state, "servers")) {
        std::printf("server %s \"%s\"\n", Name(server, "url").c_str(),
                    Name(server, "friendlyName").c_str());
        for (const ShownJson& user : Items(server, "users"))
            std::printf("  user %s \"%s\" id %s\n", Name(user, "login").c_str(),
                        Name(user, "fullName").c_str(), Name(user, "id").c_str());
        for (const ShownJson& project : Items(server, "projects")) {
            std::printf("  project %s id %s state %d\n", Name(project, "path").c_str(),
                        Name(project, "id").c_str(), project.value("state", 0));
            for (const ShownJson& session : Items(project, "sessions")) {
                std::string computer = Name(session, "computer");
                std::printf("    session %s of %s on %s\n", Name(session, "id").c_str(),
                            Name(session, "user").c_str(),
                            computer.empty() ? "no computer" : computer.c_str());
            }
        }
        for (const ShownJson& box : Items(server, "mailboxes")) {
            std::string owner = Name(box, "user");
            std::printf("  mailbox %s revision %llu, %zu mails\n",
                        owner.empty() ? Name(box, "mailbox").c_str()
                                      : (owner + " " + Name(box, "box")).c_str(),
                        box.value("revision", 0ull), Items(box, "mails").size());
        }
    }
}

// The display text leaves out passwords, tokens and picture bytes; as JSON it
// escapes control characters itself.
int Show(const GlobalOptions& options, const EmulateArgs& args) {
    std::unique_ptr<Emulator::Service> service = LoadScenario(args.scenario);
    std::string shown = service->ToDisplayText();
    if (options.json)
        std::fputs(shown.c_str(), stdout);
    else
        PrintState(ShownJson::parse(shown));
    return kExitDone;
}

}  // namespace

void AddEmulateCommands(CLI::App& app, GlobalOptions& options, Action* action) {
    static EmulateArgs args;
    CLI::App* emulate = app.add_subcommand(
        "emulate",
        "run the library against the service emulator of a scenario file (EMULATOR.md in "
        "share/doc/KRClient of the install, docs/ of the sources); "
        "without --data-folder and --base-folder a scratch folder is used");
    emulate->add_option("SCENARIO", args.scenario, "scenario file")->required();
    emulate->add_flag("--update", args.update,
                      "write the server's state after the command back into the scenario file");
    emulate->require_subcommand(1);
    emulate->fallthrough();
    emulate->callback([&options] { options.scratch = true; });

    CLI::App* check = emulate->add_subcommand(
        "check",
        "open the project as a host does and print the check result, signals and presence");
    AddProjectOptions(check, args.project);
    check->callback([&options, action] {
        *action = [&options] { return RunConnection(options, args, false); };
    });

    CLI::App* receive = emulate->add_subcommand(
        "receive-session", "take the user's session over for this computer (ReceiveSession)");
    AddProjectOptions(receive, args.project);
    receive->add_flag("--ignore-cached-session", args.ignoreCachedSession,
                      "don't compare with the session stored in the cache");
    receive->callback([&options, action] {
        *action = [&options] { return RunConnection(options, args, true); };
    });

    CLI::App* show = emulate->add_subcommand("show", "print the servers' state (no secrets)");
    show->callback([&options, action] {
        options.readsOnly = true;
        *action = [&options] { return Show(options, args); };
    });

    AddEmulateLoginCommand(emulate, options, action, args.scenario, args.update);
    AddEmulateMembersCommand(emulate, options, action, args.scenario, args.update);
    AddEmulateMailboxCommand(emulate, options, action, args.scenario);
    AddEmulateBrowseCommand(emulate, options, action, args.scenario, args.update);
    AddEmulateMailCommand(emulate, options, action, args.scenario, args.update);
}

}  // namespace krctl
