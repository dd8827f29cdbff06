#pragma once
// Writes "CacheInfo.xml" and options files by hand, independently of the
// library's writers, so that reading is tested against the format itself.

#include <algorithm>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "Support/TempFolder.h"
#include "ZR/MD5.h"

namespace krtest {

struct CacheElement {
    const char* name;
    int from;                   // lowest data version that has it
    const char* fallback = "";  // text when no value is given
};

inline const std::vector<CacheElement>& CacheElements() {
    static const std::vector<CacheElement> elements = {
        {"DataVersion", 0},
        {"LoginName", 1},
        {"UserName", 0},
        {"UserId", 0},
        {"ProjectPath", 8},
        {"ProjectName", 0},
        {"ProjectCategoryName", 3},
        {"ServerName", 0},
        {"Port", 0, "0"},
        {"PortalServerUrl", 8},
        {"ModelServerName", 10},
        {"SessionId", 0},
        {"LogonId", 0, "0"},
        {"RoleName", 0},
        {"UserColorList", 2},
        {"ColorMode", 2, "0"},
        {"PermissionCount", 0, "0"},
        {"Permission", 0},
        {"ProjectId", 0},
        {"UnsentChange", 0, "false"},
        {"ProjectForcedOffline", 2, "false"},
        {"LastOpenProjectTime", 5, "0"},
        {"TravelPackageCreationTime", 5, "0"},
        {"TravelPackageCreated", 5, "false"},
        {"ExtractedFromTravelPackage", 5, "false"},
        {"EnableTravelPackageWarningAtClose", 5, "false"},
        {"ProjectVersion", 6},
        {"ProjectBuild", 6, "0"},
        {"ProjectDetached", 6, "false"},
        {"VisitCount", 7, "0"}};
    return elements;
}

// values: element name to text; "Permission" may hold several, separated by '\n'.
inline std::string BuildCacheInfoXml(int version, std::map<std::string, std::string> values) {
    values["DataVersion"] = std::to_string(version);
    std::string xml = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<Cache>\n";
    for (const auto& e : CacheElements()) {
        if (e.from > version) continue;
        std::string name = e.name, v = values[name].empty() ? e.fallback : values[name];
        if (name != "Permission") {
            xml += "  <" + name + ">" + v + "</" + name + ">\n";
            continue;
        }
        for (std::size_t start = 0; !v.empty() && start <= v.size();) {
            std::size_t nl = std::min(v.find('\n', start), v.size());
            xml += "  <Permission>" + v.substr(start, nl - start) + "</Permission>\n";
            start = nl + 1;
        }
    }
    return xml + "</Cache>\n";
}

// The values of a record written as "Name=text;Name=text".
inline std::map<std::string, std::string> Fields(const std::string& text) {
    std::map<std::string, std::string> values;
    for (std::size_t start = 0; start < text.size();) {
        std::size_t end = std::min(text.find(';', start), text.size());
        std::size_t equals = text.find('=', start);
        values[text.substr(start, equals - start)] = text.substr(equals + 1, end - equals - 1);
        start = end + 1;
    }
    return values;
}

// A folder holding a hand-written "CacheInfo.xml"; answers the folder.
inline std::string WriteCacheInfo(const std::string& folder, int version,
                                  std::map<std::string, std::string> values) {
    std::filesystem::create_directories(folder);
    WriteFile(folder + "/CacheInfo.xml", BuildCacheInfoXml(version, std::move(values)));
    return folder;
}

// A record of user's project at path on server in the folder main/name; answers the folder.
inline std::string WriteCache(const std::string& main, const std::string& name,
                              const std::string& server, const std::string& path,
                              const std::string& user,
                              std::map<std::string, std::string> more = {}) {
    more["PortalServerUrl"] = server;
    more["ProjectPath"] = path;
    more["LoginName"] = user;
    return WriteCacheInfo(main + "/" + name, 10, std::move(more));
}

// An options file as another writer leaves it; folderTag names the folder's element.
inline std::string OptionsXml(const std::string& folder, int periodTime,
                              const std::string& folderTag = "LocalDataFolderPath") {
    return "<?xml version=\"1.0\"?>\n<KRDataOptions><DataVersion>1</DataVersion><" + folderTag +
           ">" + folder + "</" + folderTag + "><CleanSchedule><Enable>false</Enable><PeriodTime>" +
           std::to_string(periodTime) +
           "</PeriodTime><LastUsedDays>7</LastUsedDays><LastRunTime>555</LastRunTime></"
           "CleanSchedule></KRDataOptions>\n";
}

// The folder name a new record of the key takes.
inline std::string CacheFolderName(const std::string& server, const std::string& path,
                                   const std::string& user) {
    return MD5::Of(ZR::UniString(server + "_" + path + "_" + user)).GetAsZrString().Std();
}

}  // namespace krtest
