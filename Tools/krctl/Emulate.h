#pragma once
// What the commands of krctl emulate share: the scenario's service, installed
// for one command.

#include <memory>
#include <string>

#include "Emulator/Service.h"
#include "IO/Location.h"
#include "KRCB/AuthenticatedClientConnection.h"
#include "KRCB/DataQuery.h"
#include "Krctl.h"

namespace krctl {

// The service of a scenario file; UsageError naming the place if it doesn't fit.
std::unique_ptr<Emulator::Service> LoadScenario(const std::string& path);

// The project a command opens, and as whom.
struct ProjectArgs {
    std::string server, user, path;
    std::string token;  // empty: the user's from the scenario
};
// --server, --user, --path and --token.
void AddProjectOptions(CLI::App* sub, ProjectArgs& args);
// The project's location with the user's token; Failure for a user the
// scenario doesn't have on that server.
IO::Location ProjectLocation(const Emulator::Service& service, const ProjectArgs& args);
// The registry on the data folder of the command, as a host starts it.
void StartRegistry(const GlobalOptions& options);
// The login of args in the login data, as a host's login dialog leaves it:
// server, user with the token projects are opened with, both active. A host
// opens projects only after such a login, so the records a command makes
// belong to a known user.
void RememberLogin(const Emulator::Service& service, const ProjectArgs& args);

// The emulator serves the process for the command and is taken away after it.
class Installed {
public:
    explicit Installed(Emulator::Service& service) : mService(service) { mService.Install(); }
    ~Installed() { mService.Uninstall(); }
    Installed(const Installed&) = delete;
    Installed& operator=(const Installed&) = delete;

private:
    Emulator::Service& mService;
};

// emulate SCENARIO login: a login as a host's dialog makes it (EmulateLogin.cpp).
// scenario and update are filled when the command line is parsed.
void AddEmulateLoginCommand(CLI::App* emulate, const GlobalOptions& options, Action* action,
                            const std::string& scenario, const bool& update);
// emulate SCENARIO members: the project's members as a host's ProjectMembers
// fetches them (EmulateMembers.cpp).
void AddEmulateMembersCommand(CLI::App* emulate, const GlobalOptions& options, Action* action,
                              const std::string& scenario, const bool& update);
// emulate SCENARIO browse tree|mkdir|rename|libraries: the browsing tasks
// (EmulateBrowse.cpp).
void AddEmulateBrowseCommand(CLI::App* emulate, const GlobalOptions& options, Action* action,
                             const std::string& scenario, const bool& update);

// The browse commands' login with the user's password from the scenario, and
// one data query through the library's task (EmulateBrowse.cpp). Failure if
// either does not succeed.
ZR::Ref<KRCB::Management::AuthenticatedClientConnection> BrowseLogIn(
    const Emulator::Service& service, const std::string& server, const std::string& user);
void BrowseQuery(const ZR::Ref<KRCB::Management::AuthenticatedClientConnection>& connection,
                 const ZR::Ref<KRCB::DataQuery::DataQueryResult>& result);

// emulate SCENARIO browse tree --with-cache: the server's tree in a result
// cache with the data folder's records laid in; emulate SCENARIO browse
// check-cache: the cached project check over those records
// (LocalCacheCommands.cpp).
int BrowseTreeWithCache(const GlobalOptions& options,
                        const ZR::Ref<KRCB::Management::AuthenticatedClientConnection>& connection,
                        const std::string& server, const std::string& user, const std::string& path,
                        int depth);
void AddEmulateCheckCacheCommand(CLI::App* browse, const GlobalOptions& options, Action* action,
                                 const std::string& scenario, const std::string& server,
                                 const std::string& user);

// emulate SCENARIO mailbox: a user's boxes on the mail server (EmulateMailbox.cpp).
void AddEmulateMailboxCommand(CLI::App* emulate, GlobalOptions& options, Action* action,
                              const std::string& scenario);

// emulate SCENARIO mail: a user's mail client sending, listing, marking and
// deleting mails (EmulateMail.cpp).
void AddEmulateMailCommand(CLI::App* emulate, const GlobalOptions& options, Action* action,
                           const std::string& scenario, const bool& update);

}  // namespace krctl
