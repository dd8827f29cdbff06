// krctl registry, options and lock: the registry of a data folder, as the
// library itself sees it.

#include <time.h>

#include <climits>
#include <cstdio>
#include <functional>
#include <map>
#include <memory>
#include <thread>

#include "CommandLine.h"
#include "DataFolder.h"
#include "KRCB/Paths.h"
#include "KRClient/Internal/KRDataOptions.h"
#include "KRClient/KRClient.h"
#include "KRClient/RegisteredProjects.h"
#include "Krctl.h"
#include "RegistryLock.h"
#include "WriteWatch.h"

namespace krctl {
namespace {

using KRC::RegisteredProjects;
using KRC::registeredProjects;

const char* const kProperties =
    "PROPERTY is one of: visitCount projectVersion projectBuildNum travelPackageCreationTime\n"
    "  travelPackageCreated extractedFromTravelPackage enableTravelPackageWarningAtClose,\n"
    "  or, without a value: projectOpened projectDetached projectReloaded";
const char* const kOptionFields =
    "FIELD is one of: enableAutoClean periodTime lastUsedDays lastRunTime dataFolder";

// For a command that changes the folder: the library starts only once it can
// work there, and makes what is missing.
void StartRegistry(const GlobalOptions& options) {
    CheckDataFolderBeforeStart(options, Access::Change);
    RegisteredProjects::Init(IO::Location(ZR::UniString(options.dataFolder)),
                             ZR::UniString(options.projectCache), ZR::UniString(options.libCache));
}

struct ProjectArgs {
    std::string server, user, path;
    IO::Location Location() const {
        CheckServerUrl(server);
        KRC::ProjectConnectionInfo info;
        info.SetServerUrl(ZR::UniString(server));
        info.SetUserName(ZR::UniString(user));
        info.SetProjectPath(ZR::UniString(path));
        IO::Location location;
        return info.ToKerrowLocation(&location);
    }
    void AddTo(CLI::App* sub, bool required) {
        auto* s = sub->add_option("--server", server, "server URL")->type_name("URL");
        auto* u = sub->add_option("--user", user, "login name")->type_name("NAME");
        auto* p = sub->add_option("--path", path, "project path")->type_name("PATH");
        if (required) {
            s->required();
            u->required();
            p->required();
        }
    }
};

Json ProjectToJson(const KRC::RegisteredProject& p) {
    const KRC::CachedProjectInfo* info = p.GetCachedProjectInfo();
    Json json{{"serverUrl", p.GetServerUrl().Std()},
              {"userName", p.GetUserName().Std()},
              {"projectPath", p.GetProjectPath().Std()},
              {"modelServerPath", p.GetModelServerPath().Std()},
              {"cacheDataFolder", p.GetCacheDataFolderLocation().ToPath().Std()},
              {"visitCount", info ? info->GetVisitCount() : 0u},
              {"travelPackageCreated", p.IsTravelPackageCreated()},
              {"extractedFromTravelPackage", p.ExtractedFromTravelPackage()},
              {"localDataVersion", p.GetLocalDataVersion()}};
    PutTime(json, "lastOpenedTime", p.GetLastOpenedTime());
    PutTime(json, "travelPackageCreationTime", p.GetTravelPackageCreationTime());
    return json;
}

int List(const GlobalOptions& options, const ProjectArgs& filter) {
    if (!filter.server.empty()) CheckServerUrl(filter.server);
    RecordWalk walk = ReadRecords(options);
    const ZR::UniString user(filter.user), server(filter.server);
    Json list = Json::array();
    for (const auto& info : walk.records)
        if ((user.IsEmpty() || user.IsEqual(info->GetLoginName(), ZR::kIgnoreCase)) &&
            (server.IsEmpty() ||
             KRCB::IsEqualServerUrls(server, info->GetPortalServerUrl(), false)))
            list.push_back(ProjectToJson(KRC::RegisteredProject(info.get())));
    if (options.json) {
        PrintJson(list);
        return kExitDone;
    }
    for (const auto& p : list)
        std::printf("%s  %s  %s  %s\n", Printable(p["cacheDataFolder"], 4096).c_str(),
                    Printable(p["serverUrl"], 4096).c_str(), Printable(p["userName"], 4096).c_str(),
                    Printable(p["projectPath"], 4096).c_str());
    std::printf("%zu project(s)\n", list.size());
    return kExitDone;
}

[[noreturn]] void ThrowNotFound(const ProjectArgs& project) {
    throw Failure("not found: no record of " + Printable(project.user) + " for " +
                  Printable(project.path) + " on " + Printable(project.server));
}

IO::Location FindFolder(const ProjectArgs& project) {
    IO::Location folder = registeredProjects.GetCacheDataFolder(project.Location());
    if (folder.IsEmpty()) ThrowNotFound(project);
    return folder;
}

void PrintFolder(const GlobalOptions& options, const IO::Location& folder, const Json& more) {
    if (options.json) {
        Json json{{"cacheDataFolder", folder.ToPath().Std()}};
        json.update(more);
        PrintJson(json);
    } else {
        std::printf("%s\n", Printable(folder.ToPath().Std(), 4096).c_str());
    }
}

// The registry's look-up: path and user alike but for case, and the first
// strict match of the server, or else its one loose match.
int Find(const GlobalOptions& options, const ProjectArgs& project) {
    project.Location();  // refuses a URL with a user name or password
    RecordWalk walk = ReadRecords(options);
    const ZR::UniString server(project.server), user(project.user), path(project.path);
    const KRC::CachedProjectInfo* strict = nullptr;
    std::vector<const KRC::CachedProjectInfo*> loose;
    for (const auto& info : walk.records) {
        if (!path.IsEqual(info->GetProjectPath(), ZR::kIgnoreCase) ||
            !user.IsEqual(info->GetLoginName(), ZR::kIgnoreCase))
            continue;
        if (KRCB::IsEqualServerUrls(info->GetPortalServerUrl(), server, true)) {
            strict = info.get();
            break;
        }
        if (KRCB::IsEqualServerUrls(info->GetPortalServerUrl(), server, false))
            loose.push_back(info.get());
    }
    if (!strict && loose.size() == 1) strict = loose[0];
    if (!strict) ThrowNotFound(project);
    PrintFolder(options, strict->GetCacheFolderLocation(), Json::object());
    return kExitDone;
}

// Finds or makes the record through the registry under its lock, as a host
// does, so that a repeat or a concurrent run finds the folder made first.
int Create(const GlobalOptions& options, const ProjectArgs& project) {
    IO::Location location = project.Location();
    WriteWatch watch;
    StartRegistry(options);
    watch.ThrowIfFailed();
    RegistryLock lock(options);
    bool created = false;
    std::unique_ptr<KRC::CachedProjectInfo> record(
        registeredProjects.CreateCachedProjectInfo(location, created));
    watch.ThrowIfFailed();
    if (!record) throw Failure("the record could not be made");
    PrintFolder(options, record->GetCacheFolderLocation(), Json{{"created", created}});
    return kExitDone;
}

// A property's setter: parses the value (UsageError if bad) and answers what
// applies it to a project.
using Apply = std::function<void(const IO::Location&)>;
using ProjectSetter = std::function<Apply(const std::string&)>;

const std::map<std::string, std::pair<bool, ProjectSetter>>& ProjectSetters() {
    auto i32 = [](const std::string& v) {
        return static_cast<int>(ParseNumber(v, INT_MIN, INT_MAX));
    };
    static const std::map<std::string, std::pair<bool, ProjectSetter>> setters = {
        {"visitCount",
         {true,
          [](auto& v) -> Apply {
              auto n = static_cast<unsigned>(ParseNumber(v, 0, UINT_MAX));
              return [n](auto& l) { registeredProjects.SetVisitCount(l, n); };
          }}},
        {"projectVersion",
         {true,
          [](auto& v) -> Apply {
              return [v](auto& l) { registeredProjects.SetProjectVersion(l, ZR::UniString(v)); };
          }}},
        {"projectBuildNum",
         {true,
          [i32](auto& v) -> Apply {
              return [n = i32(v)](auto& l) { registeredProjects.SetProjectBuildNum(l, n); };
          }}},
        {"travelPackageCreationTime",
         {true,
          [i32](auto& v) -> Apply {
              return
                  [n = i32(v)](auto& l) { registeredProjects.SetTravelPackageCreationTime(l, n); };
          }}},
        {"travelPackageCreated",
         {true,
          [](auto& v) -> Apply {
              return
                  [b = ParseBool(v)](auto& l) { registeredProjects.SetTravelPackageCreated(l, b); };
          }}},
        {"extractedFromTravelPackage",
         {true,
          [](auto& v) -> Apply {
              return [b = ParseBool(v)](auto& l) {
                  registeredProjects.SetExtractedFromTravelPackage(l, b);
              };
          }}},
        {"enableTravelPackageWarningAtClose",
         {true,
          [](auto& v) -> Apply {
              return [b = ParseBool(v)](auto& l) {
                  registeredProjects.EnableTravelPackageWarningAtClose(l, b);
              };
          }}},
        {"projectOpened",
         {false,
          [](auto&) -> Apply { return [](auto& l) { registeredProjects.ProjectOpened(l); }; }}},
        {"projectDetached",
         {false,
          [](auto&) -> Apply { return [](auto& l) { registeredProjects.ProjectDetached(l); }; }}},
        {"projectReloaded",
         {false,
          [](auto&) -> Apply { return [](auto& l) { registeredProjects.ProjectReloaded(l); }; }}},
    };
    return setters;
}

int SetProperty(const GlobalOptions& options, const ProjectArgs& project,
                const std::string& property, const std::vector<std::string>& values) {
    auto it = ProjectSetters().find(property);
    if (it == ProjectSetters().end())
        throw UsageError("unknown property '" + property + "' (see krctl registry set --help)");
    bool takesValue = it->second.first;
    if (takesValue && values.size() != 1) throw UsageError(property + " needs one VALUE");
    if (!takesValue && !values.empty()) throw UsageError(property + " takes no value");
    Apply apply;
    // A bad value is refused before anything is read or locked.
    WithField(property, [&] { apply = it->second.second(takesValue ? values[0] : std::string()); });

    IO::Location location = project.Location();
    WriteWatch watch;
    StartRegistry(options);
    watch.ThrowIfFailed();
    RegistryLock lock(options);
    if (registeredProjects.GetCacheDataFolder(location).IsEmpty()) {
        watch.ThrowIfFailed();
        FindFolder(project);
    }
    apply(location);
    watch.ThrowIfFailed();
    if (options.json)
        PrintJson(Json{{"property", property}, {"done", true}});
    else
        std::printf("%s: done\n", property.c_str());
    return kExitDone;
}

Json OptionsToJson(const std::string& dataFolder, const std::string& projects,
                   const std::string& libs, bool enable, int period, int lastUsed, int lastRun) {
    Json json{{"dataFolder", dataFolder},   {"mainProjectCacheFolder", projects},
              {"mainLibCacheFolder", libs}, {"enableAutoClean", enable},
              {"periodTime", period},       {"lastUsedDays", lastUsed}};
    PutTime(json, "lastRunTime", lastRun);
    return json;
}

Json OptionsToJson() {
    return OptionsToJson(registeredProjects.GetKRDataFolder().ToPath().Std(),
                         registeredProjects.GetMainProjectCacheFolderLocation().ToPath().Std(),
                         registeredProjects.GetMainLibCacheFolderLocation().ToPath().Std(),
                         registeredProjects.GetEnableAutoClean(),
                         registeredProjects.GetPeriodTime(), registeredProjects.GetLastUsedDays(),
                         registeredProjects.GetLastRunTime());
}

// The file as the library reads it; without one, the defaults a start would write.
int ShowOptions(const GlobalOptions& options) {
    DataFolderView view = CheckDataFolderBeforeStart(options, Access::Read);
    const KRC::KRDataOptions::Values& v = view.values;
    if (!view.optionsPresent)
        Note(options, "no options in " + Printable(view.optionsFile) + ": the defaults");
    const std::string& d = view.localDataFolder;
    Json json = view.optionsPresent
                    ? OptionsToJson(d, d + "/" + options.projectCache, d + "/" + options.libCache,
                                    v.enableAutoClean, v.periodTime, v.lastUsedDays, v.lastRunTime)
                    : OptionsToJson(d, d + "/" + options.projectCache, d + "/" + options.libCache,
                                    true, KRC::KRDataOptions::kDefaultPeriodTime,
                                    KRC::KRDataOptions::kDefaultLastUsedDays,
                                    KRC::dataOptions.GetLastRunTime());
    if (options.json) {
        PrintJson(json);
        return kExitDone;
    }
    for (const auto& [k, v] : json.items()) {
        if (k.size() > 4 && k.compare(k.size() - 4, 4, "Text") == 0) continue;
        std::string text = v.is_string() ? v.get<std::string>() : v.dump();
        if (json.contains(k + "Text")) text += " (" + json[k + "Text"].get<std::string>() + ")";
        std::printf("%-24s %s\n", k.c_str(), Printable(text, 4096).c_str());
    }
    return kExitDone;
}

int SetOption(const GlobalOptions& options, const std::string& field, const std::string& value) {
    std::function<void()> apply;
    WithField(field, [&] {
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
            apply = [folder = AbsoluteFolder(value)] {
                registeredProjects.SetKRDataFolder(IO::Location(ZR::UniString(folder)), false);
            };
        else
            throw UsageError("unknown options field '" + field +
                             "' (see krctl options set --help)");
    });
    WriteWatch watch;
    StartRegistry(options);
    watch.ThrowIfFailed();
    {
        RegistryLock lock(options);
        apply();
    }
    watch.ThrowIfFailed();
    // Options are written when the lock goes; still dirty means they never reached the file.
    if (KRC::dataOptions.IsDirty()) throw Failure("could not write the options");
    if (options.json)
        PrintJson(OptionsToJson());
    else
        std::printf("%s: done\n", field.c_str());
    return kExitDone;
}

std::int64_t MonotonicMillis() {
    timespec ts{};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<std::int64_t>(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
}

// One line per event, flushed at once: a test on this machine compares the
// monotonic times across processes.
void LockEvent(const GlobalOptions& options, const char* event, bool locked) {
    long long now = static_cast<long long>(MonotonicMillis());
    if (options.json)
        std::printf(
            "%s\n",
            Dump(Json{{"event", event}, {"locked", locked}, {"monotonicMillis", now}}).c_str());
    else
        std::printf("%s %lld ms (monotonic clock)\n", event, now);
    std::fflush(stdout);
}

int HoldLock(const GlobalOptions& options, double seconds) {
    StartRegistry(options);
    {
        RegistryLock lock(options);
        LockEvent(options, "locked", true);
        std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
    }
    LockEvent(options, "released", false);
    return kExitDone;
}

}  // namespace

void AddRegistryCommands(CLI::App& app, const GlobalOptions& options, Action* action) {
    CLI::App* registry = app.add_subcommand(
        "registry", "the registry of the cached projects of --data-folder, as a host sees it");
    registry->require_subcommand(1);

    auto filter = std::make_shared<ProjectArgs>();
    CLI::App* list = registry->add_subcommand("list", "list the registered projects");
    list->add_option("--server", filter->server, "only those of this server")->type_name("URL");
    list->add_option("--user", filter->user, "only those of this login name")->type_name("NAME");
    list->callback([&options, action, filter] {
        options.readsOnly = true;
        *action = [&options, filter] { return List(options, *filter); };
    });

    auto project = std::make_shared<ProjectArgs>();
    CLI::App* find = registry->add_subcommand(
        "find", "print the cache folder of a project (exit 1 if there is none)");
    project->AddTo(find, true);
    find->callback([&options, action, project] {
        options.readsOnly = true;
        *action = [&options, project] { return Find(options, *project); };
    });

    CLI::App* create = registry->add_subcommand(
        "create",
        "find or make the record of a project through the registry, under its lock: a repeat, or\n"
        "runs in several processes at once, give one cache folder");
    project->AddTo(create, true);
    create->callback([&options, action, project] {
        *action = [&options, project] { return Create(options, *project); };
    });

    auto property = std::make_shared<std::string>();
    auto values = std::make_shared<std::vector<std::string>>();
    CLI::App* set = registry->add_subcommand("set", "change one property of a project's record");
    set->footer(kProperties);
    set->add_option("PROPERTY", *property, "the property")->required();
    set->add_option("VALUE", *values, "its new value, if it takes one")->expected(0, 1);
    project->AddTo(set, true);
    set->callback([&options, action, project, property, values] {
        *action = [&options, project, property, values] {
            return SetProperty(options, *project, *property, *values);
        };
    });

    AddRegistryTreeCommand(registry, options, action);
}

void AddOptionsCommands(CLI::App& app, const GlobalOptions& options, Action* action) {
    CLI::App* cmd = app.add_subcommand("options", "the data options of --data-folder");
    cmd->require_subcommand(1);
    CLI::App* show = cmd->add_subcommand("show", "show the options");
    show->callback([&options, action] {
        options.readsOnly = true;
        *action = [&options] { return ShowOptions(options); };
    });

    auto args = std::make_shared<std::array<std::string, 2>>();
    CLI::App* set = cmd->add_subcommand("set", "change one option, under the registry lock");
    set->footer(kOptionFields);
    set->add_option("FIELD", (*args)[0], "the option")->required();
    set->add_option("VALUE", (*args)[1], "its new value")->required();
    set->callback([&options, action, args] {
        *action = [&options, args] { return SetOption(options, (*args)[0], (*args)[1]); };
    });
}

void AddLockCommands(CLI::App& app, const GlobalOptions& options, Action* action) {
    CLI::App* cmd = app.add_subcommand("lock", "the registry lock of --data-folder");
    cmd->require_subcommand(1);
    auto seconds = std::make_shared<double>(0);
    CLI::App* hold = cmd->add_subcommand(
        "hold", "take the lock, print \"locked\" and a monotonic time in ms, hold it, let go");
    TakesSeconds(hold->add_option("--seconds", *seconds, "how long to hold it (up to a day)")
                     ->required()
                     ->type_name("N"),
                 86400);
    hold->callback([&options, action, seconds] {
        *action = [&options, seconds] { return HoldLock(options, *seconds); };
    });
}

}  // namespace krctl
