// Values and output shared by the commands of krctl.

#include <cctype>
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
    std::string scheme = url.substr(0, url.find("://") + 3);
    for (char& c : scheme) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    if (scheme != "http://" && scheme != "https://")
        throw UsageError("the server URL must begin with http:// or https://");
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
    if (path.empty()) throw UsageError("a folder is named by a path, not an empty word");
    std::string folder = std::filesystem::absolute(path).lexically_normal().string();
    // "DIR/" and "DIR" are one folder: compared as texts, they must be one text.
    while (folder.size() > 1 && folder.back() == '/') folder.pop_back();
    return folder;
}

std::string OneLine(const std::string& text) {
    // The last guard of an error line, whose names are already made printable:
    // control characters only, and backslashes left as they are, so that what
    // was escaped once is not escaped twice.
    // Enough for any path; a line longer than this is hostile, not helpful.
    constexpr std::size_t kLongest = 4096;
    std::string line;
    for (char c : text) {
        if (line.size() >= kLongest) {
            line += "...";
            break;
        }
        const auto byte = static_cast<unsigned char>(c);
        if (c == '\n') {
            line += "\\n";
        } else if (byte < 0x20 || byte == 0x7f) {
            char escaped[8];
            std::snprintf(escaped, sizeof escaped, "\\x%02x", byte);
            line += escaped;
        } else {
            line += c;
        }
    }
    return line;
}

void Note(const GlobalOptions& options, const std::string& text) {
    if (options.json)
        std::fprintf(stderr, "%s\n", Dump(Json{{"note", text}}).c_str());
    else
        std::fprintf(stderr, "krctl: %s\n", OneLine(text).c_str());
}

}  // namespace krctl
