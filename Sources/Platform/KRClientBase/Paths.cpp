#include "KRCB/Paths.h"

#include <cstdio>
#include <string_view>

#include "ZR/Exceptions.h"

namespace KRCB {

namespace {

// [begin, end) of the authority of a URL.
std::pair<std::size_t, std::size_t> Authority(const std::string& url) {
    std::size_t scheme = url.find("://");
    std::size_t begin = scheme == std::string::npos ? 0 : scheme + 3;
    std::size_t end = url.find_first_of("/?#", begin);
    return {begin, end == std::string::npos ? url.size() : end};
}

}  // namespace

bool HasUserInfo(const ZR::UniString& url) {
    auto [begin, end] = Authority(url.Std());
    return url.Std().find('@', begin) < end;
}

ZR::UniString WithoutUserInfo(const ZR::UniString& url) {
    const std::string& text = url.Std();
    auto [begin, end] = Authority(text);
    std::size_t at = text.rfind('@', end == 0 ? 0 : end - 1);
    if (at == std::string::npos || at < begin || at >= end) return url;
    return ZR::UniString(text.substr(0, begin) + text.substr(at + 1));
}

void CreateServerLocation(IO::Location& location, const ZR::UniString& serverUrl,
                          const ZR::UniString& userName, const ZR::UniString& refreshToken) {
    if (HasUserInfo(serverUrl))
        throw ZR::IllegalArgumentException(
            ZR::UniString("Failed to create a server location. The server URL \"" +
                          WithoutUserInfo(serverUrl).Std() +
                          "\" carries a user name or password; give them separately."),
            ZR_HERE);
    location = IO::Location::ServerLocation(serverUrl, userName, refreshToken, ZR::UniString());
}

void SetProjectPath(IO::Location& location, const ZR::UniString& projectPath) {
    if (!location.IsServer()) location = IO::Location::ServerLocation("", "", "", "");
    location.SetResourcePath(projectPath);
}

ZR::UniString GetPortalServerUrl(const IO::Location& location) {
    return location.IsServer() ? location.GetServerUrl() : ZR::UniString();
}

ZR::UniString GetProjectPath(const IO::Location& location) {
    return location.IsServer() ? location.GetResourcePath() : ZR::UniString();
}

namespace {

struct UrlParts {
    std::string scheme;  // lower case, empty if none
    std::string host;    // lower case
    std::string port;    // empty for the scheme's default
    std::string path;    // without trailing "/"
};

UrlParts Split(const ZR::UniString& url) {
    std::string s = url.Std();
    while (!s.empty() && (s.back() == ' ' || s.back() == '\t')) s.pop_back();
    std::size_t start = s.find_first_not_of(" \t");
    s = start == std::string::npos ? std::string() : s.substr(start);

    UrlParts parts;
    std::size_t rest = 0;
    if (std::size_t at = s.find("://"); at != std::string::npos) {
        parts.scheme = ZR::UniString(s.substr(0, at)).ToLowerCase().Std();
        rest = at + 3;
    }
    std::size_t slash = s.find('/', rest);
    std::string authority =
        s.substr(rest, slash == std::string::npos ? std::string::npos : slash - rest);
    parts.path = slash == std::string::npos ? std::string() : s.substr(slash);
    while (!parts.path.empty() && parts.path.back() == '/') parts.path.pop_back();
    if (std::size_t userEnd = authority.rfind('@'); userEnd != std::string::npos)
        authority = authority.substr(userEnd + 1);
    std::size_t colon = authority.rfind(':');
    if (colon != std::string::npos && authority.find(']', colon) == std::string::npos) {
        parts.port = authority.substr(colon + 1);
        authority = authority.substr(0, colon);
    }
    parts.host = ZR::UniString(authority).ToLowerCase().Std();
    if ((parts.scheme == "http" && parts.port == "80") ||
        (parts.scheme == "https" && parts.port == "443"))
        parts.port.clear();
    return parts;
}

}  // namespace

bool IsEqualServerUrls(const ZR::UniString& a, const ZR::UniString& b, bool strict) {
    UrlParts pa = Split(a), pb = Split(b);
    if (pa.host != pb.host) return false;
    if (!strict) return true;
    return pa.scheme == pb.scheme && pa.port == pb.port &&
           ZR::UniString(pa.path).IsEqual(ZR::UniString(pb.path), ZR::CaseComparison::Insensitive);
}

std::string ServerUrlKey(const ZR::UniString& url) {
    UrlParts parts = Split(url);
    const std::string path = ZR::UniString(parts.path).FoldCase().Std();
    // Each part with its length first: no part's bytes can pass for another's.
    std::string key;
    for (const std::string* part :
         std::initializer_list<const std::string*>{&parts.scheme, &parts.host, &parts.port, &path})
        key += std::to_string(part->size()) + ":" + *part;
    return key;
}

namespace {
bool MustEscape(unsigned char c, const ZR::UniString* extra) {
    if (c < 0x20 || c == 0x7F) return true;
    switch (c) {
        case '%':
        case '/':
        case '\\':
        case ':':
        case '*':
        case '?':
        case '"':
        case '<':
        case '>':
        case '|':
            return true;
        default:
            break;
    }
    return extra && c < 0x80 && extra->Std().find(static_cast<char>(c)) != std::string::npos;
}

void Escape(std::string& out, unsigned char c) {
    char buf[4];
    std::snprintf(buf, sizeof buf, "%%%02X", c);
    out += buf;
}
}  // namespace

bool FileNameEncode(const ZR::UniString& name, ZR::UniString& encoded,
                    const ZR::UniString* extraCharacters) {
    const std::string& s = name.Std();
    if (s.empty()) {
        encoded = "%00";
        return true;
    }
    std::string out;
    out.reserve(s.size());
    for (std::size_t i = 0; i < s.size(); ++i) {
        unsigned char c = static_cast<unsigned char>(s[i]);
        bool edge = (i == 0 || i + 1 == s.size()) && (c == ' ' || c == '.');
        if (edge || MustEscape(c, extraCharacters))
            Escape(out, c);
        else
            out += static_cast<char>(c);
    }
    bool changed = out != s;
    encoded = ZR::UniString(std::move(out));
    return changed;
}

bool FileNameDecode(const ZR::UniString& encoded, ZR::UniString& name) {
    const std::string& s = encoded.Std();
    if (s == "%00") {
        name = ZR::UniString();
        return true;
    }
    std::string out;
    for (std::size_t i = 0; i < s.size(); ++i) {
        if (s[i] != '%') {
            out += s[i];
            continue;
        }
        if (i + 2 >= s.size()) return false;
        auto hex = [](char c) -> int {
            if (c >= '0' && c <= '9') return c - '0';
            if (c >= 'A' && c <= 'F') return c - 'A' + 10;
            if (c >= 'a' && c <= 'f') return c - 'a' + 10;
            return -1;
        };
        int hi = hex(s[i + 1]), lo = hex(s[i + 2]);
        if (hi < 0 || lo < 0) return false;
        out += static_cast<char>(hi * 16 + lo);
        i += 2;
    }
    name = ZR::UniString(std::move(out));
    return true;
}

void GetProjectPathElements(const ZR::UniString& path, ZR::Array<ZR::UniString>& elements) {
    const std::string& s = path.Std();
    std::size_t i = 0;
    while (i < s.size()) {
        std::size_t j = s.find('/', i);
        if (j == std::string::npos) j = s.size();
        if (j > i) elements.Add(ZR::UniString(s.substr(i, j - i)));
        i = j + 1;
    }
}

ZR::UniString GetParentFolderPath(const ZR::UniString& path) {
    ZR::Array<ZR::UniString> elements;
    GetProjectPathElements(path, elements);
    std::string out;
    for (std::size_t i = 0; i + 1 < elements.GetSize(); ++i) out += "/" + elements[i].Std();
    return ZR::UniString(out);
}

namespace Management {
ZR::UniString GetProjectName(const ZR::UniString& projectPath) {
    // The last element, found from the end: every folder of a deep tree asks
    // this of its path.
    const std::string& s = projectPath.Std();
    const std::size_t end = s.find_last_not_of('/');
    if (end == std::string::npos) return ZR::UniString();
    const std::size_t slash = s.rfind('/', end);
    const std::size_t start = slash == std::string::npos ? 0 : slash + 1;
    return ZR::UniString(s.substr(start, end + 1 - start));
}

void AppendToResourcePath(const ZR::UniString& name, ZR::UniString& path) {
    const std::string& n = name.Std();
    std::size_t first = n.find_first_not_of('/');
    if (first == std::string::npos) return;
    std::string p = path.Std();
    while (!p.empty() && p.back() == '/') p.pop_back();
    path = ZR::UniString(p + "/" + n.substr(first));
}

bool IsResourceNameValid(const ZR::UniString& name) {
    const std::string& s = name.Std();
    if (s.empty() || s.size() > 255 || s == "." || s == "..") return false;
    if (s.front() == ' ' || s.back() == ' ') return false;
    for (unsigned char c : s)
        if (c < 0x20 || c == 0x7F ||
            std::string_view("/\\:*?\"<>|").find(static_cast<char>(c)) != std::string_view::npos)
            return false;
    return true;
}
}  // namespace Management

}  // namespace KRCB
