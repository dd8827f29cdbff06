#pragma once
// What the commands of krctl emulate share: the scenario's service, installed
// for one command.

#include <memory>
#include <string>

#include "Emulator/Service.h"
#include "Krctl.h"

namespace krctl {

// The service of a scenario file; UsageError naming the place if it doesn't fit.
std::unique_ptr<Emulator::Service> LoadScenario(const std::string& path);

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

}  // namespace krctl
