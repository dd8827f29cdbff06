#pragma once
// krctl: the support engineer's command line over a data folder.

#include <CLI/CLI.hpp>
#include <cstdint>
#include <functional>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>

namespace krctl {

using Json = nlohmann::ordered_json;

// Exit codes, documented in --help and the README.
inline constexpr int kExitDone = 0;
inline constexpr int kExitFailed = 1;  // a failure, or what was asked for is not there
inline constexpr int kExitUsage = 2;

struct GlobalOptions {
    std::string baseFolder;  // the base client's own data (login data store)
    std::string logFile;     // every log line of the run goes there
    std::string dataFolder;  // the folder given to the registry
    std::string projectCache = "Projects";
    std::string libCache = "Libraries";
    bool json = false;
    bool create = false;         // --data-folder may be made
    double waitSeconds = -1;     // bound of a wait for the registry lock; negative: no bound
    std::string computerName;    // the process acts as this computer (emulate)
    bool scratch = false;        // the command wants scratch folders for those not given
    bool followOptions = false;  // work where the options point, even outside --data-folder
    // Set by the callback of a command that only reads: it must create nothing.
    mutable bool readsOnly = false;
};

// What a parsed command runs once the library is up; answers the exit code.
using Action = std::function<int()>;

// Registers a command family on the application; the family's callbacks set
// *action to what the chosen subcommand does.
void AddCacheCommands(CLI::App& app, const GlobalOptions& options, Action* action);
void AddLoginCommands(CLI::App& app, const GlobalOptions& options, Action* action);
void AddRegistryCommands(CLI::App& app, const GlobalOptions& options, Action* action);
// krctl registry tree: the records' bare folder tree (LocalCacheCommands.cpp).
void AddRegistryTreeCommand(CLI::App* registry, const GlobalOptions& options, Action* action);
void AddOptionsCommands(CLI::App& app, const GlobalOptions& options, Action* action);
void AddLockCommands(CLI::App& app, const GlobalOptions& options, Action* action);
void AddEmulateCommands(CLI::App& app, GlobalOptions& options, Action* action);
// krctl mail.
void AddMailCommands(CLI::App& app, const GlobalOptions& options, Action* action);

// Bad arguments found after parsing: exit 2 with the one line.
class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};
// A command that could not do its work: exit 1 with the one line.
class Failure : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Values of the command line; UsageError if the text is not one.
long long ParseNumber(const std::string& text, long long min, long long max);
bool ParseBool(const std::string& text);
// Runs body; a UsageError from it names the field it was about.
template <typename F>
void WithField(const std::string& field, F&& body) {
    try {
        body();
    } catch (const UsageError& e) {
        throw UsageError(field + ": " + e.what());
    }
}

// Refuses (UsageError) a server URL that is not http or https, or that carries
// a user name or password: such a URL would be stored and shown. The text of
// the error leaves the URL out.
void CheckServerUrl(const std::string& url);

// JSON text in which bytes that are not UTF-8 become U+FFFD, so that one bad
// value never hides the rest of a listing. indent -1: one line.
std::string Dump(const Json& value, int indent = -1);
// A result document on standard output.
void PrintJson(const Json& value);
// A time of the library's 2000-based scale as ISO 8601 UTC ("2026-11-23T05:41:47Z").
std::string TimeText(std::int32_t time);
// key: the raw value, and keyText beside it.
void PutTime(Json& object, const std::string& key, std::int32_t time);
// "what: reason" for the errno of a failed file operation on path.
std::string FileFailure(const std::string& what, const std::string& path, int error);
// The absolute, normalised form of a folder given on the command line;
// UsageError for an empty one.
std::string AbsoluteFolder(const std::string& path);

// text as one line for a terminal: control characters escaped ("\\n", "\\x1b"),
// and cut if it is very long.
std::string OneLine(const std::string& text);

// A message on standard error that is not the result (progress, waiting).
void Note(const GlobalOptions& options, const std::string& text);

}  // namespace krctl
