#pragma once
// krctl: the support engineer's command line over a data folder.

#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <vector>

namespace krctl {

struct GlobalOptions {
    std::string baseFolder;  // the base client's own data (login data store)
    std::string logFile;     // every log line of the run goes there
    std::string dataFolder;  // the folder given to the registry
    std::string projectCache = "Projects";
    std::string libCache = "Libraries";
    bool json = false;
};

// Bad arguments: main prints "krctl: <what>" on standard error and exits 2.
class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Each answers the exit code. args are what follows the subcommand's name.
int RunCacheCommand(const GlobalOptions& options, const std::vector<std::string>& args);
int RunLoginCommand(const GlobalOptions& options, const std::vector<std::string>& args);
int RunRegistryCommand(const GlobalOptions& options, const std::vector<std::string>& args);
int RunOptionsCommand(const GlobalOptions& options, const std::vector<std::string>& args);
int RunLockCommand(const GlobalOptions& options, const std::vector<std::string>& args);

// Takes "--name value" out of args; empty optional if absent. Throws UsageError
// if the option is given without a value.
bool TakeOption(std::vector<std::string>& args, const std::string& name, std::string* value);
bool TakeFlag(std::vector<std::string>& args, const std::string& name);
// Throws UsageError if anything is left.
void ExpectNoMore(const std::vector<std::string>& args);
// Values of the command line; UsageError if the text is not one.
long long ParseNumber(const std::string& text, long long min, long long max);
bool ParseBool(const std::string& text);

// Refuses (UsageError) a server URL that carries a user name or password:
// such a URL would be stored and shown. The text of the error leaves the URL out.
void CheckServerUrl(const std::string& url);

// JSON output. Text that is not valid UTF-8 (a path of any bytes, say) is
// written with each bad byte replaced by U+FFFD, so that one such value never
// costs the rest of the output.
inline std::string JsonText(const nlohmann::ordered_json& json, int indent = 2) {
    return json.dump(indent, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

}  // namespace krctl
