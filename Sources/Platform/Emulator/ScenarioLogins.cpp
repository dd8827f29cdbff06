// Scenario files: the state logins a server accepts.
#include "Emulator/Internal/Scenario.h"

namespace Emulator::Internal::Scenario {

void ReadStateLogins(State& state, Server& server, const Value& list, const std::string& path) {
    for (std::size_t i = 0; i < list.size(); ++i) {
        std::string at = Index(path, i);
        const Value& login = Object(list[i], at, {"key", "state", "user"});
        StateLoginSpec spec{Text(login, at, "key", true), Text(login, at, "state"),
                            Text(login, at, "user", true)};
        At(at, [&] {
            state.AddStateLogin(server, spec);
            return 0;
        });
    }
}

Data WriteStateLogins(const Server& server, bool withSecrets) {
    Data logins = Data::array();
    for (const StateLoginSpec& login : server.spec.stateLogins) {
        Data entry{{"key", login.key}};
        if (withSecrets) entry["state"] = login.state;
        entry["user"] = login.user;
        logins.push_back(std::move(entry));
    }
    return logins;
}

}  // namespace Emulator::Internal::Scenario
