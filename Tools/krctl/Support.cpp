// Values and output shared by the commands of krctl.

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>

#include "KRClient/Internal/ServerUrl.h"
#include "Krctl.h"
#include "ZR/Time.h"

namespace krctl {

long long ParseNumber(const std::string& text, long long min, long long max) {
    errno = 0;
    char* end = nullptr;
    long long v = std::strtoll(text.c_str(), &end, 10);
    if (text.empty() || *end != '\0' || errno == ERANGE || v < min || v > max)
        throw UsageError("'" + text + "' is not a number from " + std::to_string(min) + " to " +
                         std::to_string(max));
    return v;
}

bool ParseBool(const std::string& text) {
    if (text == "true" || text == "1") return true;
    if (text == "false" || text == "0") return false;
    throw UsageError("'" + text + "' is not true or false");
}

std::string Dump(const Json& value, int indent) {
    return value.dump(indent, ' ', false, Json::error_handler_t::replace);
}

void CheckServerUrl(const std::string& url) {
    if (KRC::ServerUrlHasUserInfo(ZR::UniString(url)))
        throw UsageError(
            "the server URL holds a user name or password; give the server without them (users "
            "and their tokens go in with 'login add-user')");
}

void PrintJson(const Json& value) {
    std::printf("%s\n", Dump(value, 2).c_str());
}

std::string TimeText(std::int32_t time) {
    std::time_t unix = static_cast<std::time_t>(ZR::TIToUnix(time));
    std::tm utc{};
    gmtime_r(&unix, &utc);
    char text[32];
    std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &utc);
    return text;
}

void PutTime(Json& object, const std::string& key, std::int32_t time) {
    object[key] = time;
    object[key + "Text"] = TimeText(time);
}

std::string FileFailure(const std::string& what, const std::string& path, int error) {
    return what + " " + path + ": " + std::strerror(error);
}

std::string AbsoluteFolder(const std::string& path) {
    std::string folder = std::filesystem::absolute(path).lexically_normal().string();
    // "DIR/" and "DIR" are one folder: compared as texts, they must be one text.
    while (folder.size() > 1 && folder.back() == '/') folder.pop_back();
    return folder;
}

void Note(const GlobalOptions& options, const std::string& text) {
    if (options.json)
        std::fprintf(stderr, "%s\n", Dump(Json{{"note", text}}).c_str());
    else
        std::fprintf(stderr, "krctl: %s\n", text.c_str());
}

}  // namespace krctl
