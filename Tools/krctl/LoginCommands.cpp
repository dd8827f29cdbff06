// krctl login: the remembered servers and users of the base client.
// Refresh tokens are never printed; output says only whether one is stored.

#include <cstdio>
#include <nlohmann/json.hpp>

#include "KRClient/KRClientExceptions.h"
#include "KRClient/UserInterface/Login/UILoginDataStore.h"
#include "Krctl.h"

namespace krctl {

namespace {

using Json = nlohmann::ordered_json;
using KRC::UI::Login::UILoginDataStore;

const char* const kLoginUsage =
    "usage: krctl login list\n"
    "       krctl login add-server URL [--name FRIENDLY]\n"
    "       krctl login add-user URL USER [--token T] [--full-name N]\n"
    "       krctl login set-active URL USER\n"
    "Reads and changes the login data in the base folder. Tokens are never shown.\n";

const char* const kListUsage =
    "usage: krctl login list\n"
    "Lists servers (friendly name, version, active) and their users (full name,\n"
    "whether a token is stored, active).\n";
const char* const kAddServerUsage =
    "usage: krctl login add-server URL [--name FRIENDLY]\n"
    "Remembers a server under URL, which must be an http or https URL.\n";
const char* const kAddUserUsage =
    "usage: krctl login add-user URL USER [--token T] [--full-name N]\n"
    "Adds a user to a known server; for a known user, changes only what is given.\n";
const char* const kSetActiveUsage =
    "usage: krctl login set-active URL USER\n"
    "Makes USER the active user of the server and the server the active one.\n";

int Help(const char* usage) {
    std::fputs(usage, stdout);
    return 0;
}

bool IsActiveServer(const UILoginDataStore& store, const UILoginDataStore::Server& server) {
    return store.HasActiveServer() &&
           store.IsSameServers(store.GetActiveServer().GetUniqueURL(), server.GetUniqueURL());
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
            {"version", store.GetServerVersion(server.GetUniqueURL())},
            {"active", IsActiveServer(store, server)},
            {"users", std::move(users)}};
}

void PrintServer(const Json& server) {
    int version = server["version"].get<int>();
    std::printf("%s%s  \"%s\"  version %d.%d\n", server["active"].get<bool>() ? "* " : "  ",
                server["url"].get<std::string>().c_str(),
                server["friendlyName"].get<std::string>().c_str(), version / 100, version % 100);
    for (const Json& user : server["users"])
        std::printf("    %s%s  \"%s\"  token: %s\n", user["active"].get<bool>() ? "* " : "  ",
                    user["name"].get<std::string>().c_str(),
                    user["fullName"].get<std::string>().c_str(),
                    user["hasToken"].get<bool>() ? "yes" : "no");
}

// After a change: show the server as it now stands.
int Report(const GlobalOptions& options, const UILoginDataStore& store, const std::string& url) {
    Json server = ServerToJson(store, store.GetServer(url));
    if (options.json)
        std::printf("%s\n", JsonText(server).c_str());
    else
        PrintServer(server);
    return 0;
}

bool Save(const UILoginDataStore& store) {
    if (store.Write()) return true;
    std::fprintf(stderr, "krctl: the login data could not be written\n");
    return false;
}

bool RequireServer(const UILoginDataStore& store, const std::string& url) {
    if (store.ContainsServer(url)) return true;
    std::fprintf(stderr, "krctl: unknown server '%s'\n", url.c_str());
    return false;
}

int List(const GlobalOptions& options, std::vector<std::string> args) {
    if (TakeFlag(args, "--help")) return Help(kListUsage);
    ExpectNoMore(args);
    UILoginDataStore store(UILoginDataStore::ForReading);
    ZR::PagedArray<UILoginDataStore::Server> servers;
    store.GetServers(servers);
    Json list = Json::array();
    for (const auto& server : servers) list.push_back(ServerToJson(store, server));
    if (options.json) {
        std::printf("%s\n", JsonText(Json{{"servers", std::move(list)}}).c_str());
    } else if (list.empty()) {
        std::printf("no servers\n");
    } else {
        for (const Json& server : list) PrintServer(server);
    }
    return 0;
}

int AddServer(const GlobalOptions& options, std::vector<std::string> args) {
    if (TakeFlag(args, "--help")) return Help(kAddServerUsage);
    std::string name;
    TakeOption(args, "--name", &name);
    if (args.size() != 1) throw UsageError("login add-server needs exactly one URL");
    const std::string url = args[0];
    CheckServerUrl(url);

    UILoginDataStore store(UILoginDataStore::ForWriting);
    auto info =
        ZR::Ref<UILoginDataStore::ServerInfo>::Make(ZR::UniString(url), ZR::UniString(name));
    try {
        store.AddServer(info, url);
    } catch (const KRC::KRClientException& e) {
        std::fprintf(stderr, "krctl: %s\n", e.GetMessage().ToCString());
        return 1;
    }
    if (!Save(store)) return 1;
    return Report(options, store, url);
}

int AddUser(const GlobalOptions& options, std::vector<std::string> args) {
    if (TakeFlag(args, "--help")) return Help(kAddUserUsage);
    std::string token, fullName;
    bool hasToken = TakeOption(args, "--token", &token);
    bool hasFullName = TakeOption(args, "--full-name", &fullName);
    if (args.size() != 2) throw UsageError("login add-user needs URL and USER");
    const std::string url = args[0], user = args[1];
    CheckServerUrl(url);
    if (user.empty()) throw UsageError("login add-user needs a non-empty USER");

    UILoginDataStore store(UILoginDataStore::ForWriting);
    if (!RequireServer(store, url)) return 1;
    if (store.ContainsUser(url, user)) {
        if (hasToken) store.SetUserRefreshToken(url, user, token);
        if (hasFullName) store.SetUserFullName(url, user, fullName);
    } else {
        store.AddUser(url, UILoginDataStore::User(user, token, fullName));
    }
    if (!Save(store)) return 1;
    return Report(options, store, url);
}

int SetActive(const GlobalOptions& options, std::vector<std::string> args) {
    if (TakeFlag(args, "--help")) return Help(kSetActiveUsage);
    if (args.size() != 2) throw UsageError("login set-active needs URL and USER");
    const std::string url = args[0], user = args[1];
    CheckServerUrl(url);

    UILoginDataStore store(UILoginDataStore::ForWriting);
    if (!RequireServer(store, url)) return 1;
    if (!store.ContainsUser(url, user)) {
        std::fprintf(stderr, "krctl: unknown user '%s' on server '%s'\n", user.c_str(),
                     url.c_str());
        return 1;
    }
    store.SetActiveUser(url, user);
    if (!Save(store)) return 1;
    return Report(options, store, url);
}

}  // namespace

int RunLoginCommand(const GlobalOptions& options, const std::vector<std::string>& input) {
    std::vector<std::string> args = input;
    if (args.empty())
        throw UsageError("login needs a subcommand: list, add-server, add-user or set-active");
    if (args.front() == "--help") return Help(kLoginUsage);
    std::string sub = args.front();
    args.erase(args.begin());
    if (sub == "list") return List(options, args);
    if (sub == "add-server") return AddServer(options, args);
    if (sub == "add-user") return AddUser(options, args);
    if (sub == "set-active") return SetActive(options, args);
    throw UsageError("unknown login subcommand '" + sub + "'");
}

}  // namespace krctl
