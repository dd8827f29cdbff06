// krctl cache: one cache folder's record, read and changed directly. The
// registry's own maker is `registry create`; `cache create` is the low-level one.

#include <sys/stat.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <functional>
#include <map>
#include <memory>

#include "DataFolder.h"
#include "KRClient/CachedProjectInfo.h"
#include "KRClient/KRClient.h"
#include "KRClient/UserInterface/Login/UILoginDataStore.h"
#include "Krctl.h"
#include "WriteWatch.h"

namespace krctl {
namespace {

const char* const kFields =
    "FIELD is one of: userName userId sessionId projectId projectPath modelServerPath logonId\n"
    "  permissions (comma-separated) unsentChanges projectForcedOffline lastOpenProjectTime\n"
    "  travelPackageCreationTime travelPackageCreated extractedFromTravelPackage\n"
    "  enableTravelPackageWarningAtClose userColorList colorMode projectVersion projectBuildNum\n"
    "  projectDetached (true detaches, false reloads) visitCount";

Json RecordToJson(const KRC::CachedProjectInfo& info) {
    Json permissions = Json::array();
    for (const ZR::UniString& p : info.GetPermissions()) permissions.push_back(p.Std());
    Json record{
        {"cacheFolder", info.GetCacheFolderLocation().ToPath().Std()},
        {"xmlVersion", info.GetXMLVersion()},
        {"port", info.GetPort()},
        {"serverName", info.GetServerName().Std()},
        {"portalServerUrl", info.GetPortalServerUrl().Std()},
        {"modelServerPath", info.GetModelServerPath().Std()},
        {"projectPath", info.GetProjectPath().Std()},
        {"projectName", info.GetProjectName().Std()},
        {"loginName", info.GetLoginName().Std()},
        {"userName", info.GetUserName_().Std()},
        {"userId", info.GetUserId().Std()},
        {"sessionId", info.GetSessionId().Std()},
        {"projectId", info.GetProjectId().Std()},
        {"projectCategoryName", info.GetProjectCategoryName().Std()},
        {"logonId", info.GetLogonId()},
        {"roleName", info.GetRoleName().Std()},
        {"permissions", permissions},
        {"projectForcedOffline", info.IsProjectForcedOffline()},
        {"unsentChanges", info.IsChanges()},
        {"travelPackageCreated", info.IsTravelPackageCreated()},
        {"extractedFromTravelPackage", info.ExtractedFromTravelPackage()},
        {"enableTravelPackageWarningAtClose", info.IsEnabledTravelPackageWarningAtClose()},
        {"userColorList", info.GetUserColorListString().Std()},
        {"colorMode", info.GetColorMode()},
        {"projectVersion", info.GetProjectVersion().Std()},
        {"projectBuildNum", info.GetProjectBuildNum()},
        {"projectDetached", info.IsProjectDetached()},
        {"visitCount", info.GetVisitCount()},
        {"complete", info.IsComplete()},
    };
    PutTime(record, "modificationTime", info.GetModificationTime());
    PutTime(record, "lastOpenProjectTime", info.GetLastOpenProjectTime());
    PutTime(record, "travelPackageCreationTime", info.GetTravelPackageCreationTime());
    return record;
}

using Setter = std::function<void(KRC::CachedProjectInfo&, const std::string&)>;

const std::map<std::string, Setter>& Setters() {
    auto i32 = [](const std::string& v) {
        return static_cast<int>(ParseNumber(v, INT_MIN, INT_MAX));
    };
    auto i16 = [](const std::string& v) {
        return static_cast<short>(ParseNumber(v, SHRT_MIN, SHRT_MAX));
    };
    static const std::map<std::string, Setter> setters = {
        {"userName", [](auto& r, auto& v) { r.SetUserName(v); }},
        {"userId", [](auto& r, auto& v) { r.SetUserId(v); }},
        {"sessionId", [](auto& r, auto& v) { r.SetSessionId(v); }},
        {"projectId", [](auto& r, auto& v) { r.SetProjectId(v); }},
        {"projectPath", [](auto& r, auto& v) { r.SetProjectPath(v); }},
        {"modelServerPath", [](auto& r, auto& v) { r.SetModelServerPath(v); }},
        {"logonId", [i32](auto& r, auto& v) { r.SetLogonId(i32(v)); }},
        {"permissions",
         [](auto& r, auto& v) {
             ZR::HashSet<ZR::UniString> set;
             std::size_t start = 0;
             while (start <= v.size() && !v.empty()) {
                 std::size_t comma = v.find(',', start);
                 if (comma == std::string::npos) comma = v.size();
                 if (comma > start) set.Add(ZR::UniString(v.substr(start, comma - start)));
                 start = comma + 1;
             }
             r.SetPermissions(set);
         }},
        {"unsentChanges", [](auto& r, auto& v) { r.SetUnsentChanges(ParseBool(v)); }},
        {"projectForcedOffline", [](auto& r, auto& v) { r.SetProjectForcedOffline(ParseBool(v)); }},
        {"lastOpenProjectTime", [i32](auto& r, auto& v) { r.SetLastOpenProjectTime(i32(v)); }},
        {"travelPackageCreationTime",
         [i32](auto& r, auto& v) { r.SetTravelPackageCreationTime(i32(v)); }},
        {"travelPackageCreated", [](auto& r, auto& v) { r.SetTravelPackageCreated(ParseBool(v)); }},
        {"extractedFromTravelPackage",
         [](auto& r, auto& v) { r.SetExtractedFromTravelPackage(ParseBool(v)); }},
        {"enableTravelPackageWarningAtClose",
         [](auto& r, auto& v) { r.EnableTravelPackageWarningAtClose(ParseBool(v)); }},
        {"userColorList", [](auto& r, auto& v) { r.SetUserColorListString(ZR::UniString(v)); }},
        {"colorMode", [i16](auto& r, auto& v) { r.SetColorMode(i16(v)); }},
        {"projectVersion", [](auto& r, auto& v) { r.SetProjectVersion(v); }},
        {"projectBuildNum", [i32](auto& r, auto& v) { r.SetProjectBuildNum(i32(v)); }},
        {"projectDetached",
         [](auto& r, auto& v) {
             if (ParseBool(v))
                 r.ProjectDetached();
             else
                 r.ProjectReloaded();
         }},
        {"visitCount",
         [](auto& r, auto& v) {
             r.SetVisitCount(static_cast<unsigned int>(ParseNumber(v, 0, UINT_MAX)));
         }},
    };
    return setters;
}

void PrintRecord(const Json& record) {
    for (const auto& [key, value] : record.items()) {
        if (key.size() > 4 && key.compare(key.size() - 4, 4, "Text") == 0) continue;
        std::string text;
        if (value.is_string())
            text = value.get<std::string>();
        else if (value.is_array()) {
            for (const auto& p : value) text += (text.empty() ? "" : ", ") + p.get<std::string>();
        } else
            text = Dump(value);
        if (record.contains(key + "Text"))
            text += " (" + record[key + "Text"].get<std::string>() + ")";
        std::printf("%-34s %s\n", key.c_str(), Printable(text, 4096).c_str());
    }
}

// Why a record could not be read: the file's own errno, or that it is damaged.
[[noreturn]] void ThrowUnreadable(const std::string& folder) {
    std::string file = folder + "/" + KRC::kCacheInfoFileName;
    struct stat st {};
    if (stat(file.c_str(), &st) != 0) throw Failure(FileFailure("cannot open", file, errno));
    throw Failure("cannot read " + file + ": the record is damaged");
}

std::unique_ptr<KRC::CachedProjectInfo> ReadRecord(const std::string& folder) {
    try {
        return std::make_unique<KRC::CachedProjectInfo>(IO::Location(ZR::UniString(folder)));
    } catch (const KRC::FileException&) {
        ThrowUnreadable(folder);
    }
}

struct CreateArgs {
    std::string mainFolder, server, path, user, token;
    bool tokenGiven = false;
};

int Create(const GlobalOptions& options, const CreateArgs& a) {
    CheckServerUrl(a.server);
    std::string token = a.token;
    if (!a.tokenGiven) {
        // A record takes its token from the login data; without --token the
        // stored one stays as it is.
        KRC::UI::Login::UILoginDataStore store(KRC::UI::Login::UILoginDataStore::ForReading);
        if (store.ContainsServer(a.server) && store.ContainsUser(a.server, a.user))
            token = store.GetUserRefreshToken(a.server, a.user).Std();
    }
    KRC::ProjectConnectionInfo info;
    info.SetServerUrl(a.server);
    info.SetProjectPath(a.path);
    info.SetUserName(a.user);
    info.SetRefreshToken(token);
    WriteWatch watch;
    KRC::CachedProjectInfo record(info, IO::Location(ZR::UniString(AbsoluteFolder(a.mainFolder))));
    watch.ThrowIfFailed();
    std::string folder = record.GetCacheFolderLocation().ToPath().Std();
    if (options.json)
        PrintJson(Json{{"cacheFolder", folder}});
    else
        std::printf("%s\n", folder.c_str());
    return kExitDone;
}

int Show(const GlobalOptions& options, const std::string& folder) {
    Json json = RecordToJson(*ReadRecord(folder));
    if (options.json)
        PrintJson(json);
    else
        PrintRecord(json);
    return kExitDone;
}

int Set(const GlobalOptions& options, const std::string& folder, const std::string& field,
        const std::string& value) {
    auto it = Setters().find(field);
    if (it == Setters().end())
        throw UsageError("unknown field '" + field + "' (see krctl cache set --help)");
    auto record = ReadRecord(folder);
    WriteWatch watch;
    WithField(field, [&] { it->second(*record, value); });
    watch.ThrowIfFailed();
    if (options.json)
        PrintJson(Json{{"field", field}, {"written", watch.writes > 0}});
    else
        std::printf("%s: %s\n", field.c_str(),
                    watch.writes > 0 ? "written" : "unchanged, nothing written");
    return kExitDone;
}

}  // namespace

void AddCacheCommands(CLI::App& app, const GlobalOptions& options, Action* action) {
    CLI::App* cache = app.add_subcommand("cache", "read and change one cache folder's record");
    cache->require_subcommand(1);

    auto create = std::make_shared<CreateArgs>();
    CLI::App* c = cache->add_subcommand(
        "create",
        "low-level maker: a new cache folder without the registry or its lock "
        "(`registry create` finds or makes a record as a host does)");
    c->add_option("--main-folder", create->mainFolder, "the project cache folder")
        ->required()
        ->type_name("DIR");
    c->add_option("--server", create->server, "server URL")->required()->type_name("URL");
    c->add_option("--path", create->path, "project path")->required()->type_name("PATH");
    c->add_option("--user", create->user, "login name")->required()->type_name("NAME");
    c->add_option("--token", create->token, "refresh token, kept in the login data only")
        ->type_name("TOKEN")
        ->each([create](const std::string&) { create->tokenGiven = true; });
    c->callback([&options, action, create] {
        *action = [&options, create] { return Create(options, *create); };
    });

    auto folder = std::make_shared<std::string>();
    CLI::App* show = cache->add_subcommand("show", "show the record of a cache folder");
    show->add_option("CACHE_FOLDER", *folder, "the cache folder")->required();
    show->callback([&options, action, folder] {
        options.readsOnly = true;
        *action = [&options, folder] { return Show(options, *folder); };
    });

    auto field = std::make_shared<std::array<std::string, 3>>();
    CLI::App* set = cache->add_subcommand("set", "change one field of a record");
    set->footer(kFields);
    set->add_option("CACHE_FOLDER", (*field)[0], "the cache folder")->required();
    set->add_option("FIELD", (*field)[1], "the field")->required();
    set->add_option("VALUE", (*field)[2], "its new value")->required();
    set->callback([&options, action, field] {
        *action = [&options, field] { return Set(options, (*field)[0], (*field)[1], (*field)[2]); };
    });
}

}  // namespace krctl
