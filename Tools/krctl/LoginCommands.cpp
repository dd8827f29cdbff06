// krctl login: the remembered servers and users of the base client.
// Refresh tokens are never printed; output says only whether one is stored.

#include <cstdio>
#include <memory>

#include "DataFolder.h"
#include "KRCB/KRClientBase.h"
#include "KRClient/KRClientExceptions.h"
#include "KRClient/UserInterface/Login/UILoginDataStore.h"
#include "Krctl.h"

namespace krctl {

namespace {

using KRC::UI::Login::UILoginDataStore;

bool IsActiveServer(const UILoginDataStore& store, const UILoginDataStore::Server& server) {
    return store.HasActiveServer() &&
           store.IsSameServers(store.GetActiveServer().GetUniqueURL(), server.GetUniqueURL());
}

// The stored number is major * 100 + minor; people read 26.3.
std::string VersionText(int version) {
    return std::to_string(version / 100) + "." + std::to_string(version % 100);
}

Json ServerToJson(const UILoginDataStore& store, const UILoginDataStore::Server& server) {
    Json users = Json::array();
    for (const auto& user : server.GetUsers()) {
        users.push_back(
            {{"name", user.GetUserName().Std()},
             {"fullName", user.GetFullName().Std()},
             {"hasToken", user.HasRefreshToken()},
             {"active", server.HasActiveUser() && user.IsUser(server.GetActiveUserName())}});
    }
    return {{"url", server.GetUniqueURL().Std()},
            {"friendlyName", server.GetFriendlyName().Std()},
            {"version", VersionText(store.GetServerVersion(server.GetUniqueURL()))},
            {"active", IsActiveServer(store, server)},
            {"users", std::move(users)}};
}

void PrintServer(const Json& server) {
    std::printf("%s%s  \"%s\"  version %s\n", server["active"].get<bool>() ? "* " : "  ",
                Printable(server["url"], 4096).c_str(),
                Printable(server["friendlyName"], 4096).c_str(),
                server["version"].get<std::string>().c_str());
    for (const Json& user : server["users"])
        std::printf("    %s%s  \"%s\"  token: %s\n", user["active"].get<bool>() ? "* " : "  ",
                    Printable(user["name"], 4096).c_str(),
                    Printable(user["fullName"], 4096).c_str(),
                    user["hasToken"].get<bool>() ? "yes" : "no");
}

// After a change: show the server as it now stands.
int Report(const GlobalOptions& options, const UILoginDataStore& store, const std::string& url) {
    Json server = ServerToJson(store, store.GetServer(url));
    if (options.json)
        PrintJson(server);
    else
        PrintServer(server);
    return kExitDone;
}

void Save(const UILoginDataStore& store) {
    if (!store.Write()) throw Failure("the login data could not be written");
}

void RequireServer(const UILoginDataStore& store, const std::string& url) {
    if (!store.ContainsServer(url)) throw Failure("unknown server '" + url + "'");
}

struct LoginArgs {
    std::string url, user, name, token, fullName;
    bool hasToken = false, hasFullName = false;
};

int List(const GlobalOptions& options) {
    Json list = Json::array();
    // Not started: the base folder is absent, and so is the login data.
    if (KRCB::IsStarted() && !KRCB::GetBaseDataFolder().IsEmpty()) {
        // A file its reader refuses would read as no servers, and be set aside.
        const std::string folder = KRCB::GetBaseDataFolder().ToPath().Std();
        if (std::string problem = LoginDataProblem(folder); !problem.empty())
            throw Failure("the login data file " + Printable(LoginDataFile(folder)) +
                          " was refused: " + problem);
        UILoginDataStore store(UILoginDataStore::ForReading);
        ZR::PagedArray<UILoginDataStore::Server> servers;
        store.GetServers(servers);
        for (const auto& server : servers) list.push_back(ServerToJson(store, server));
    }
    if (options.json) {
        PrintJson(Json{{"servers", std::move(list)}});
    } else if (list.empty()) {
        std::printf("no servers\n");
    } else {
        for (const Json& server : list) PrintServer(server);
    }
    return kExitDone;
}

int AddServer(const GlobalOptions& options, const LoginArgs& a) {
    CheckServerUrl(a.url);
    UILoginDataStore store(UILoginDataStore::ForWriting);
    auto info =
        ZR::Ref<UILoginDataStore::ServerInfo>::Make(ZR::UniString(a.url), ZR::UniString(a.name));
    try {
        store.AddServer(info, a.url);
    } catch (const KRC::KRClientException& e) {
        throw Failure(e.GetMessage().Std());
    }
    Save(store);
    return Report(options, store, a.url);
}

int AddUser(const GlobalOptions& options, const LoginArgs& a) {
    CheckServerUrl(a.url);
    if (a.user.empty()) throw UsageError("login add-user needs a non-empty USER");
    UILoginDataStore store(UILoginDataStore::ForWriting);
    RequireServer(store, a.url);
    if (store.ContainsUser(a.url, a.user)) {
        if (a.hasToken) store.SetUserRefreshToken(a.url, a.user, a.token);
        if (a.hasFullName) store.SetUserFullName(a.url, a.user, a.fullName);
    } else {
        store.AddUser(a.url, UILoginDataStore::User(a.user, a.token, a.fullName));
    }
    Save(store);
    return Report(options, store, a.url);
}

int SetActive(const GlobalOptions& options, const LoginArgs& a) {
    CheckServerUrl(a.url);
    UILoginDataStore store(UILoginDataStore::ForWriting);
    RequireServer(store, a.url);
    if (!store.ContainsUser(a.url, a.user))
        throw Failure("unknown user '" + a.user + "' on server '" + a.url + "'");
    store.SetActiveUser(a.url, a.user);
    Save(store);
    return Report(options, store, a.url);
}

}  // namespace

void AddLoginCommands(CLI::App& app, const GlobalOptions& options, Action* action) {
    CLI::App* login = app.add_subcommand(
        "login", "the remembered servers and users of the base client (tokens are never shown)");
    login->require_subcommand(1);
    auto a = std::make_shared<LoginArgs>();
    auto on = [&options, action, a](CLI::App* sub,
                                    int (*run)(const GlobalOptions&, const LoginArgs&)) {
        sub->callback([&options, action, a, run] {
            *action = [&options, a, run] { return run(options, *a); };
        });
    };

    CLI::App* list = login->add_subcommand(
        "list",
        "servers (friendly name, version, active) and their users (full name, whether a\n"
        "token is stored, active)");
    list->callback([&options, action] {
        options.readsOnly = true;
        *action = [&options] { return List(options); };
    });

    CLI::App* addServer =
        login->add_subcommand("add-server", "remember a server under an http or https URL");
    addServer->add_option("URL", a->url, "server URL")->required();
    addServer->add_option("--name", a->name, "friendly name")->type_name("NAME");
    on(addServer, AddServer);

    CLI::App* addUser = login->add_subcommand(
        "add-user", "add a user to a known server; for a known user, change only what is given");
    addUser->add_option("URL", a->url, "server URL")->required();
    addUser->add_option("USER", a->user, "login name")->required();
    addUser->add_option("--token", a->token, "refresh token")
        ->type_name("TOKEN")
        ->each([a](const std::string&) { a->hasToken = true; });
    addUser->add_option("--full-name", a->fullName, "full name")
        ->type_name("NAME")
        ->each([a](const std::string&) { a->hasFullName = true; });
    on(addUser, AddUser);

    CLI::App* setActive = login->add_subcommand(
        "set-active", "make USER the active user of the server, and the server the active one");
    setActive->add_option("URL", a->url, "server URL")->required();
    setActive->add_option("USER", a->user, "login name")->required();
    on(setActive, SetActive);
}

}  // namespace krctl
