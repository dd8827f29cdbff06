// krctl cache: one cache folder's record.

#include <cerrno>
#include <climits>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <map>
#include <nlohmann/json.hpp>

#include "KRClient/CachedProjectInfo.h"
#include "KRClient/KRClient.h"
#include "KRClient/UserInterface/Login/UILoginDataStore.h"
#include "Krctl.h"
#include "WriteWatch.h"

namespace krctl {
namespace {

using Json = nlohmann::ordered_json;

const char* const kCacheUsage =
    "usage: krctl cache create --main-folder DIR --server URL --path PATH --user NAME [--token T]\n"
    "       krctl cache show CACHE_FOLDER\n"
    "       krctl cache set CACHE_FOLDER FIELD VALUE\n"
    "FIELD is one of: userName userId sessionId projectId projectPath modelServerPath logonId\n"
    "  permissions (comma-separated) unsentChanges projectForcedOffline lastOpenProjectTime\n"
    "  travelPackageCreationTime travelPackageCreated extractedFromTravelPackage\n"
    "  enableTravelPackageWarningAtClose userColorList colorMode projectVersion projectBuildNum\n"
    "  projectDetached (true only; false reloads) visitCount\n";

Json RecordToJson(const KRC::CachedProjectInfo& info) {
    Json permissions = Json::array();
    for (const ZR::UniString& p : info.GetPermissions()) permissions.push_back(p.Std());
    return Json{
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
        {"modificationTime", info.GetModificationTime()},
        {"logonId", info.GetLogonId()},
        {"roleName", info.GetRoleName().Std()},
        {"permissions", permissions},
        {"projectForcedOffline", info.IsProjectForcedOffline()},
        {"unsentChanges", info.IsChanges()},
        {"lastOpenProjectTime", info.GetLastOpenProjectTime()},
        {"travelPackageCreationTime", info.GetTravelPackageCreationTime()},
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
}

void PrintRecord(const Json& record) {
    for (const auto& [key, value] : record.items()) {
        std::string text;
        if (value.is_string())
            text = value.get<std::string>();
        else if (value.is_array()) {
            for (const auto& p : value) text += (text.empty() ? "" : ", ") + p.get<std::string>();
        } else
            text = JsonText(value, -1);
        std::printf("%-34s %s\n", key.c_str(), text.c_str());
    }
}

int Create(const GlobalOptions& options, std::vector<std::string> args) {
    std::string mainFolder, server, path, user, token;
    if (!TakeOption(args, "--main-folder", &mainFolder))
        throw UsageError("cache create needs --main-folder");
    if (!TakeOption(args, "--server", &server)) throw UsageError("cache create needs --server");
    if (!TakeOption(args, "--path", &path)) throw UsageError("cache create needs --path");
    if (!TakeOption(args, "--user", &user)) throw UsageError("cache create needs --user");
    bool tokenGiven = TakeOption(args, "--token", &token);
    ExpectNoMore(args);
    CheckServerUrl(server);
    if (!tokenGiven) {
        // A record takes its token from the login data; without --token the
        // stored one stays as it is.
        KRC::UI::Login::UILoginDataStore store(KRC::UI::Login::UILoginDataStore::ForReading);
        if (store.ContainsServer(server) && store.ContainsUser(server, user))
            token = store.GetUserRefreshToken(server, user).Std();
    }

    KRC::ProjectConnectionInfo info;
    info.SetServerUrl(server);
    info.SetProjectPath(path);
    info.SetUserName(user);
    info.SetRefreshToken(token);
    WriteWatch watch;
    KRC::CachedProjectInfo record(
        info, IO::Location(ZR::UniString(std::filesystem::absolute(mainFolder).string())));
    if (!ReportFailures(watch)) return 1;
    std::string folder = record.GetCacheFolderLocation().ToPath().Std();
    if (options.json)
        std::printf("%s\n", JsonText(Json{{"cacheFolder", folder}}).c_str());
    else
        std::printf("%s\n", folder.c_str());
    return 0;
}

int Show(const GlobalOptions& options, std::vector<std::string> args) {
    if (args.size() != 1) throw UsageError("cache show needs exactly one CACHE_FOLDER");
    try {
        KRC::CachedProjectInfo record{IO::Location(ZR::UniString(args[0]))};
        Json json = RecordToJson(record);
        if (options.json)
            std::printf("%s\n", JsonText(json).c_str());
        else
            PrintRecord(json);
        return 0;
    } catch (const KRC::FileOpeningError&) {
        std::fprintf(stderr, "krctl: cannot open %s/%s\n", args[0].c_str(),
                     KRC::kCacheInfoFileName);
    } catch (const KRC::ErrorReadingFile&) {
        std::fprintf(stderr, "krctl: cannot read %s/%s: malformed record\n", args[0].c_str(),
                     KRC::kCacheInfoFileName);
    }
    return 1;
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

int Set(const GlobalOptions& options, std::vector<std::string> args) {
    if (args.size() != 3) throw UsageError("cache set needs CACHE_FOLDER FIELD VALUE");
    auto it = Setters().find(args[1]);
    if (it == Setters().end())
        throw UsageError("unknown field '" + args[1] + "' (see krctl cache --help)");
    std::unique_ptr<KRC::CachedProjectInfo> record;
    try {
        record = std::make_unique<KRC::CachedProjectInfo>(IO::Location(ZR::UniString(args[0])));
    } catch (const KRC::FileException&) {
        std::fprintf(stderr, "krctl: cannot read %s/%s\n", args[0].c_str(),
                     KRC::kCacheInfoFileName);
        return 1;
    }
    WriteWatch watch;
    it->second(*record, args[2]);
    if (!ReportFailures(watch)) return 1;
    if (options.json)
        std::printf("%s\n",
                    JsonText(Json{{"field", args[1]}, {"written", watch.writes > 0}}).c_str());
    else
        std::printf("%s: %s\n", args[1].c_str(),
                    watch.writes > 0 ? "written" : "unchanged, nothing written");
    return 0;
}

}  // namespace

int RunCacheCommand(const GlobalOptions& options, const std::vector<std::string>& input) {
    std::vector<std::string> args = input;
    if (args.empty()) throw UsageError("cache needs a subcommand: create, show or set");
    if (TakeFlag(args, "--help")) {
        std::fputs(kCacheUsage, stdout);
        return 0;
    }
    std::string sub = args.front();
    args.erase(args.begin());
    if (sub == "create") return Create(options, args);
    if (sub == "show") return Show(options, args);
    if (sub == "set") return Set(options, args);
    throw UsageError("unknown cache subcommand '" + sub + "'");
}

}  // namespace krctl
