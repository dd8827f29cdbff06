#pragma once
// Writes "CacheInfo.xml" files of any data version by hand, independently of
// the library's writer, so that reading is tested against the format itself.

#include <map>
#include <string>
#include <vector>

namespace krtest {

struct CacheElement {
    const char* name;
    int from;  // lowest data version that has it
};

inline const std::vector<CacheElement>& CacheElements() {
    static const std::vector<CacheElement> elements = {
        {"DataVersion", 0}, {"LoginName", 1}, {"UserName", 0}, {"UserId", 0}, {"ProjectPath", 8},
        {"ProjectName", 0}, {"ProjectCategoryName", 3}, {"ServerName", 0}, {"Port", 0},
        {"PortalServerUrl", 8}, {"ModelServerName", 10}, {"SessionId", 0}, {"LogonId", 0}, {"RoleName", 0},
        {"UserColorList", 2}, {"ColorMode", 2}, {"PermissionCount", 0}, {"Permission", 0}, {"ProjectId", 0},
        {"UnsentChange", 0}, {"ProjectForcedOffline", 2}, {"LastOpenProjectTime", 5},
        {"TravelPackageCreationTime", 5}, {"TravelPackageCreated", 5}, {"ExtractedFromTravelPackage", 5},
        {"EnableTravelPackageWarningAtClose", 5}, {"ProjectVersion", 6}, {"ProjectBuild", 6},
        {"ProjectDetached", 6}, {"VisitCount", 7}};
    return elements;
}

// values: element name to text; "Permission" may hold several, separated by '\n'.
inline std::string BuildCacheInfoXml(int version, std::map<std::string, std::string> values) {
    values["DataVersion"] = std::to_string(version);
    std::string xml = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<Cache>\n";
    for (const auto& e : CacheElements()) {
        if (e.from > version) continue;
        std::string v = values.count(e.name) ? values[e.name] : "";
        if (std::string(e.name) == "Permission") {
            std::size_t start = 0;
            while (!v.empty() && start <= v.size()) {
                std::size_t nl = v.find('\n', start);
                if (nl == std::string::npos) nl = v.size();
                xml += "  <Permission>" + v.substr(start, nl - start) + "</Permission>\n";
                start = nl + 1;
            }
            continue;
        }
        if (v.empty() && (std::string(e.name) == "Port" || std::string(e.name) == "LogonId" ||
                          std::string(e.name) == "ColorMode" || std::string(e.name) == "PermissionCount" ||
                          std::string(e.name).find("Time") != std::string::npos ||
                          std::string(e.name) == "ProjectBuild" || std::string(e.name) == "VisitCount"))
            v = "0";
        if (v.empty() && (std::string(e.name) == "UnsentChange" || std::string(e.name) == "ProjectForcedOffline" ||
                          std::string(e.name).find("TravelPackage") != std::string::npos ||
                          std::string(e.name) == "ProjectDetached"))
            v = "false";
        xml += "  <" + std::string(e.name) + ">" + v + "</" + e.name + ">\n";
    }
    return xml + "</Cache>\n";
}

}  // namespace krtest
