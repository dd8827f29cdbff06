// krctl registry, options and lock: the registry of a data folder, as the
// library itself sees it.

#include <time.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <map>
#include <nlohmann/json.hpp>
#include <thread>

#include "KRClient/Internal/KRDataOptions.h"
#include "KRClient/KRClient.h"
#include "KRClient/RegisteredProjects.h"
#include "Krctl.h"
#include "WriteWatch.h"

namespace krctl {
namespace {

using Json = nlohmann::ordered_json;
using KRC::RegisteredProjects;
using KRC::registeredProjects;

const char* const kRegistryUsage =
    "usage: krctl --data-folder DIR [--project-cache NAME] [--lib-cache NAME] registry list "
    "[--user U] [--server URL]\n"
    "       krctl --data-folder DIR registry find --server URL --user U --path P\n"
    "       krctl --data-folder DIR registry set PROPERTY [VALUE] --server URL --user U --path P\n"
    "PROPERTY is one of: visitCount projectVersion projectBuildNum travelPackageCreationTime\n"
    "  travelPackageCreated extractedFromTravelPackage enableTravelPackageWarningAtClose,\n"
    "  or, without a value: projectOpened projectDetached projectReloaded\n";
const char* const kOptionsUsage =
    "usage: krctl --data-folder DIR options show\n"
    "       krctl --data-folder DIR options set FIELD VALUE\n"
    "FIELD is one of: enableAutoClean periodTime lastUsedDays lastRunTime dataFolder\n";
const char* const kLockUsage = "usage: krctl --data-folder DIR lock hold --seconds N\n";

void StartRegistry(const GlobalOptions& options) {
    if (options.dataFolder.empty()) throw UsageError("this command needs --data-folder DIR");
    RegisteredProjects::Init(IO::Location(ZR::UniString(options.dataFolder)),
                             ZR::UniString(options.projectCache), ZR::UniString(options.libCache));
}

// The project location named by --server, --user and --path.
IO::Location TakeProject(std::vector<std::string>& args) {
    std::string server, user, path;
    if (!TakeOption(args, "--server", &server)) throw UsageError("needs --server URL");
    if (!TakeOption(args, "--user", &user)) throw UsageError("needs --user NAME");
    if (!TakeOption(args, "--path", &path)) throw UsageError("needs --path PROJECT_PATH");
    CheckServerUrl(server);
    KRC::ProjectConnectionInfo info;
    info.SetServerUrl(ZR::UniString(server));
    info.SetUserName(ZR::UniString(user));
    info.SetProjectPath(ZR::UniString(path));
    IO::Location location;
    return info.ToKerrowLocation(&location);
}

Json ProjectToJson(const KRC::RegisteredProject& p) {
    const KRC::CachedProjectInfo* info = p.GetCachedProjectInfo();
    return Json{{"serverUrl", p.GetServerUrl().Std()},
                {"userName", p.GetUserName().Std()},
                {"projectPath", p.GetProjectPath().Std()},
                {"modelServerPath", p.GetModelServerPath().Std()},
                {"cacheDataFolder", p.GetCacheDataFolderLocation().ToPath().Std()},
                {"lastOpenedTime", p.GetLastOpenedTime()},
                {"visitCount", info ? info->GetVisitCount() : 0u},
                {"travelPackageCreationTime", p.GetTravelPackageCreationTime()},
                {"travelPackageCreated", p.IsTravelPackageCreated()},
                {"extractedFromTravelPackage", p.ExtractedFromTravelPackage()},
                {"localDataVersion", p.GetLocalDataVersion()}};
}

int List(const GlobalOptions& options, std::vector<std::string> args) {
    std::string user, server;
    TakeOption(args, "--user", &user);
    TakeOption(args, "--server", &server);
    ExpectNoMore(args);
    if (!server.empty()) CheckServerUrl(server);
    WriteWatch watch;
    StartRegistry(options);
    Json list = Json::array();
    for (RegisteredProjects::ProjectConstIterator it{ZR::UniString(user), ZR::UniString(server),
                                                     nullptr};
         it != nullptr; ++it)
        list.push_back(ProjectToJson(*it));
    // Without readable options the data folder is unknown: an empty list would be a lie.
    if (!ReportFailures(watch)) return 1;
    if (options.json) {
        std::printf("%s\n", JsonText(list).c_str());
        return 0;
    }
    for (const auto& p : list)
        std::printf("%s  %s  %s  %s\n", p["cacheDataFolder"].get<std::string>().c_str(),
                    p["serverUrl"].get<std::string>().c_str(),
                    p["userName"].get<std::string>().c_str(),
                    p["projectPath"].get<std::string>().c_str());
    std::printf("%zu project(s)\n", list.size());
    return 0;
}

int Find(const GlobalOptions& options, std::vector<std::string> args) {
    IO::Location project = TakeProject(args);
    ExpectNoMore(args);
    WriteWatch watch;
    StartRegistry(options);
    IO::Location folder = registeredProjects.GetCacheDataFolder(project);
    if (!ReportFailures(watch)) return 1;
    if (folder.IsEmpty()) {
        std::fprintf(stderr, "krctl: not found\n");
        return 1;
    }
    if (options.json)
        std::printf("%s\n", JsonText(Json{{"cacheDataFolder", folder.ToPath().Std()}}).c_str());
    else
        std::printf("%s\n", folder.ToPath().ToCString());
    return 0;
}

using ProjectSetter = std::function<void(const IO::Location&, const std::string&)>;

int SetProperty(const GlobalOptions& options, std::vector<std::string> args) {
    IO::Location project = TakeProject(args);
    if (args.empty()) throw UsageError("registry set needs a PROPERTY");
    std::string property = args[0];
    static const std::map<std::string, std::pair<bool, ProjectSetter>> setters = {
        {"visitCount",
         {true,
          [](auto& l, auto& v) {
              registeredProjects.SetVisitCount(l,
                                               static_cast<unsigned>(ParseNumber(v, 0, UINT_MAX)));
          }}},
        {"projectVersion",
         {true,
          [](auto& l, auto& v) { registeredProjects.SetProjectVersion(l, ZR::UniString(v)); }}},
        {"projectBuildNum",
         {true,
          [](auto& l, auto& v) {
              registeredProjects.SetProjectBuildNum(
                  l, static_cast<int>(ParseNumber(v, INT_MIN, INT_MAX)));
          }}},
        {"travelPackageCreationTime",
         {true,
          [](auto& l, auto& v) {
              registeredProjects.SetTravelPackageCreationTime(
                  l, static_cast<int>(ParseNumber(v, INT_MIN, INT_MAX)));
          }}},
        {"travelPackageCreated",
         {true,
          [](auto& l, auto& v) { registeredProjects.SetTravelPackageCreated(l, ParseBool(v)); }}},
        {"extractedFromTravelPackage",
         {true,
          [](auto& l, auto& v) {
              registeredProjects.SetExtractedFromTravelPackage(l, ParseBool(v));
          }}},
        {"enableTravelPackageWarningAtClose",
         {true,
          [](auto& l, auto& v) {
              registeredProjects.EnableTravelPackageWarningAtClose(l, ParseBool(v));
          }}},
        {"projectOpened", {false, [](auto& l, auto&) { registeredProjects.ProjectOpened(l); }}},
        {"projectDetached", {false, [](auto& l, auto&) { registeredProjects.ProjectDetached(l); }}},
        {"projectReloaded", {false, [](auto& l, auto&) { registeredProjects.ProjectReloaded(l); }}},
    };
    auto it = setters.find(property);
    if (it == setters.end())
        throw UsageError("unknown property '" + property + "' (see krctl registry --help)");
    bool takesValue = it->second.first;
    if (takesValue && args.size() != 2) throw UsageError(property + " needs one VALUE");
    if (!takesValue && args.size() != 1) throw UsageError(property + " takes no value");
    std::string value = takesValue ? args[1] : std::string();
    WriteWatch watch;
    StartRegistry(options);
    if (registeredProjects.GetCacheDataFolder(project).IsEmpty()) {
        if (!ReportFailures(watch)) return 1;
        std::fprintf(stderr, "krctl: not found\n");
        return 1;
    }
    it->second.second(project, value);
    if (!ReportFailures(watch)) return 1;
    if (options.json)
        std::printf("%s\n", JsonText(Json{{"property", property}, {"done", true}}).c_str());
    else
        std::printf("%s: done\n", property.c_str());
    return 0;
}

Json OptionsToJson() {
    return Json{
        {"dataFolder", registeredProjects.GetKRDataFolder().ToPath().Std()},
        {"mainProjectCacheFolder",
         registeredProjects.GetMainProjectCacheFolderLocation().ToPath().Std()},
        {"mainLibCacheFolder", registeredProjects.GetMainLibCacheFolderLocation().ToPath().Std()},
        {"enableAutoClean", registeredProjects.GetEnableAutoClean()},
        {"periodTime", registeredProjects.GetPeriodTime()},
        {"lastUsedDays", registeredProjects.GetLastUsedDays()},
        {"lastRunTime", registeredProjects.GetLastRunTime()}};
}

int Options(const GlobalOptions& options, std::vector<std::string> args) {
    if (args.empty()) throw UsageError("options needs a subcommand: show or set");
    if (TakeFlag(args, "--help")) {
        std::fputs(kOptionsUsage, stdout);
        return 0;
    }
    std::string sub = args[0];
    args.erase(args.begin());
    if (sub == "show") {
        ExpectNoMore(args);
        WriteWatch watch;
        StartRegistry(options);
        Json json = OptionsToJson();
        // Values that were not read are not shown.
        if (!ReportFailures(watch)) return 1;
        if (options.json)
            std::printf("%s\n", JsonText(json).c_str());
        else
            for (const auto& [k, v] : json.items())
                std::printf("%-24s %s\n", k.c_str(),
                            v.is_string() ? v.get<std::string>().c_str() : JsonText(v, -1).c_str());
        return 0;
    }
    if (sub != "set") throw UsageError("unknown options subcommand '" + sub + "'");
    if (args.size() != 2) throw UsageError("options set needs FIELD VALUE");
    const std::string& field = args[0];
    const std::string& value = args[1];
    std::function<void()> apply;
    if (field == "enableAutoClean")
        apply = [v = ParseBool(value)] { registeredProjects.SetEnableAutoClean(v); };
    else if (field == "periodTime")
        apply = [v = ParseNumber(value, INT_MIN, INT_MAX)] {
            registeredProjects.SetPeriodTime(static_cast<int>(v));
        };
    else if (field == "lastUsedDays")
        apply = [v = ParseNumber(value, INT_MIN, INT_MAX)] {
            registeredProjects.SetLastUsedDays(static_cast<int>(v));
        };
    else if (field == "lastRunTime")
        apply = [v = ParseNumber(value, INT_MIN, INT_MAX)] {
            registeredProjects.SetLastRunTime(static_cast<int>(v));
        };
    else if (field == "dataFolder")
        // Absolute: every host process must find the same folder, whatever its working folder.
        apply = [folder = std::filesystem::absolute(value).lexically_normal().string()] {
            registeredProjects.SetKRDataFolder(IO::Location(ZR::UniString(folder)), false);
        };
    else
        throw UsageError("unknown options field '" + field + "'");
    WriteWatch watch;
    StartRegistry(options);
    apply();
    if (!ReportFailures(watch)) return 1;
    // Options are written when the lock goes; still dirty means they never reached the file.
    if (KRC::dataOptions.IsDirty()) {
        std::fprintf(stderr,
                     "krctl: could not write the options (lock not taken or file not writable)\n");
        return 1;
    }
    if (options.json)
        std::printf("%s\n", JsonText(OptionsToJson()).c_str());
    else
        std::printf("%s: done\n", field.c_str());
    return 0;
}

std::int64_t MonotonicMillis() {
    timespec ts{};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<std::int64_t>(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
}

int Lock(const GlobalOptions& options, std::vector<std::string> args) {
    if (TakeFlag(args, "--help")) {
        std::fputs(kLockUsage, stdout);
        return 0;
    }
    if (args.empty() || args[0] != "hold") throw UsageError("lock needs the subcommand hold");
    args.erase(args.begin());
    std::string seconds;
    if (!TakeOption(args, "--seconds", &seconds)) throw UsageError("lock hold needs --seconds N");
    long long n = ParseNumber(seconds, 0, 86400);
    ExpectNoMore(args);
    StartRegistry(options);
    {
        RegisteredProjects::Synchronizer guard;
        // Monotonic times let a test on this machine compare across processes.
        std::printf("%s %lld\n",
                    RegisteredProjects::Synchronizer::IsLocked() ? "locked" : "not-locked",
                    static_cast<long long>(MonotonicMillis()));
        std::fflush(stdout);
        std::this_thread::sleep_for(std::chrono::seconds(n));
    }
    std::printf("released %lld\n", static_cast<long long>(MonotonicMillis()));
    std::fflush(stdout);
    return 0;
}

}  // namespace

int RunRegistryCommand(const GlobalOptions& options, const std::vector<std::string>& input) {
    std::vector<std::string> args = input;
    if (args.empty()) throw UsageError("registry needs a subcommand: list, find or set");
    if (TakeFlag(args, "--help")) {
        std::fputs(kRegistryUsage, stdout);
        return 0;
    }
    std::string sub = args[0];
    args.erase(args.begin());
    if (sub == "list") return List(options, args);
    if (sub == "find") return Find(options, args);
    if (sub == "set") return SetProperty(options, args);
    throw UsageError("unknown registry subcommand '" + sub + "'");
}

int RunOptionsCommand(const GlobalOptions& options, const std::vector<std::string>& args) {
    return Options(options, args);
}

int RunLockCommand(const GlobalOptions& options, const std::vector<std::string>& args) {
    return Lock(options, args);
}

}  // namespace krctl
