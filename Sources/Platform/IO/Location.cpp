#include "IO/Location.h"

#include <string>
#include <vector>

#include "IO/Internal/Env.h"

namespace IO {
namespace {

// Text form of a server location: the prefix, then four escaped fields
// (server URL, user name, password, resource path) joined by ';'. A local
// path that itself begins with the prefix is written as the prefix and one
// escaped field, so the field count tells the kinds apart.
constexpr std::string_view kServerPrefix = "krcb:";
constexpr char kSeparator = ';';
constexpr std::string_view kFileScheme = "file://";

bool IsPlain(unsigned char c, bool keepSlash) {
    if ((c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9')) return true;
    switch (c) {
        case '-':
        case '.':
        case '_':
        case '~':
        case ':':
        case '@':
            return true;
        case '/':
            return keepSlash;
        default:
            return false;
    }
}

std::string Escape(const std::string& in, bool keepSlash) {
    static const char kHex[] = "0123456789ABCDEF";
    std::string out;
    out.reserve(in.size());
    for (unsigned char c : in) {
        if (IsPlain(c, keepSlash)) {
            out += static_cast<char>(c);
        } else {
            out += '%';
            out += kHex[c >> 4];
            out += kHex[c & 0xF];
        }
    }
    return out;
}

int HexValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    return -1;
}

// False on a '%' not followed by two hex digits.
bool Unescape(std::string_view in, std::string* out) {
    out->clear();
    out->reserve(in.size());
    for (std::size_t i = 0; i < in.size(); ++i) {
        if (in[i] != '%') {
            *out += in[i];
            continue;
        }
        if (i + 2 >= in.size()) return false;
        int hi = HexValue(in[i + 1]);
        int lo = HexValue(in[i + 2]);
        if (hi < 0 || lo < 0) return false;
        *out += static_cast<char>(hi * 16 + lo);
        i += 2;
    }
    return true;
}

std::vector<std::string_view> Split(std::string_view text, char separator) {
    std::vector<std::string_view> parts;
    std::size_t start = 0;
    while (true) {
        std::size_t at = text.find(separator, start);
        if (at == std::string_view::npos) {
            parts.push_back(text.substr(start));
            return parts;
        }
        parts.push_back(text.substr(start, at - start));
        start = at + 1;
    }
}

// ASCII only: a folded comparison could match a prefix of another byte length.
bool HasFileScheme(std::string_view text) {
    if (text.size() < kFileScheme.size()) return false;
    for (std::size_t i = 0; i < kFileScheme.size(); ++i) {
        char c = text[i];
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c + 32);
        if (c != kFileScheme[i]) return false;
    }
    return true;
}

// A URL's "user:password@" keeps only "user@": display text shows no password.
std::string WithoutUrlPassword(const std::string& url) {
    std::size_t scheme = url.find("://");
    std::size_t start = scheme == std::string::npos ? 0 : scheme + 3;
    std::size_t end = url.find_first_of("/?#", start);
    if (end == std::string::npos) end = url.size();
    std::size_t at = url.rfind('@', end == 0 ? 0 : end - 1);
    if (at == std::string::npos || at < start) return url;
    std::size_t colon = url.find(':', start);
    if (colon == std::string::npos || colon > at) return url;
    return url.substr(0, colon) + url.substr(at);
}

std::string NormalisePath(const std::string& in) {
    std::string out;
    out.reserve(in.size());
    for (char c : in) {
        if (c == '/' && !out.empty() && out.back() == '/') continue;
        out += c;
    }
    if (out.size() > 1 && out.back() == '/') out.pop_back();
    return out;
}

}  // namespace

Location::Location(const ZR::UniString& path) {
    std::string normal = NormalisePath(path.Std());
    if (normal.empty()) return;
    mKind = Kind::Local;
    mPath = ZR::UniString(std::move(normal));
}

Location Location::ServerLocation(const ZR::UniString& serverUrl, const ZR::UniString& userName,
                                  const ZR::UniString& password,
                                  const ZR::UniString& resourcePath) {
    Location l;
    l.mKind = Kind::Server;
    l.mServerUrl = serverUrl;
    l.mUserName = userName;
    l.mPassword = password;
    l.mPath = resourcePath;
    return l;
}

ZR::UniString Location::ToPath() const {
    // The text form of a server location carries the token.
    if (mKind == Kind::Server) return ToDisplayText();
    return mPath;
}

const ZR::UniString& Location::GetLocalPath() const {
    static const ZR::UniString kNone;
    return mKind == Kind::Local ? mPath : kNone;
}

Location& Location::AppendName(const Name& name) {
    if (name.IsEmpty() || mKind == Kind::Server) return *this;
    if (mKind == Kind::Empty) {
        *this = Location(name.GetUniString());
        return *this;
    }
    std::string path = mPath.Std();
    if (path != "/") path += '/';
    path += name.GetUniString().Std();
    mPath = ZR::UniString(NormalisePath(path));
    return *this;
}

bool Location::GetLastLocalName(Name* name) const {
    if (mKind != Kind::Local || mPath == "/") return false;
    const std::string& path = mPath.Std();
    std::size_t slash = path.rfind('/');
    std::string last = slash == std::string::npos ? path : path.substr(slash + 1);
    if (name) *name = Name(ZR::UniString(std::move(last)));
    return true;
}

bool Location::MoveLastLocalName(Name* name) {
    if (!GetLastLocalName(name)) return false;
    *this = GetParent();
    return true;
}

Location Location::GetParent() const {
    if (mKind != Kind::Local || mPath == "/") return Location();
    const std::string& path = mPath.Std();
    std::size_t slash = path.rfind('/');
    if (slash == std::string::npos) return Location();  // a relative single name
    if (slash == 0) return Location(ZR::UniString("/"));
    return Location(ZR::UniString(path.substr(0, slash)));
}

void Location::SetServerUrl(const ZR::UniString& url) {
    mKind = Kind::Server;
    mServerUrl = url;
}

ZR::UniString Location::ToText() const {
    switch (mKind) {
        case Kind::Empty:
            return ZR::UniString();
        case Kind::Local:
            if (mPath.Std().starts_with(kServerPrefix))
                return ZR::UniString(std::string(kServerPrefix) + Escape(mPath.Std(), true));
            return mPath;
        case Kind::Server: {
            std::string text(kServerPrefix);
            text += Escape(mServerUrl.Std(), true);
            text += kSeparator;
            text += Escape(mUserName.Std(), true);
            text += kSeparator;
            text += Escape(mPassword.Std(), true);
            text += kSeparator;
            text += Escape(mPath.Std(), true);
            return ZR::UniString(std::move(text));
        }
    }
    return ZR::UniString();
}

bool Location::Set(const ZR::UniString& text) {
    const std::string& t = text.Std();
    if (t.empty()) {
        Clear();
        return true;
    }
    // A normalised local path never holds "//", so this cannot be one.
    if (HasFileScheme(t)) return SetObsolete(text);
    if (!t.starts_with(kServerPrefix)) {
        *this = Location(text);
        return true;
    }
    std::vector<std::string_view> fields =
        Split(std::string_view(t).substr(kServerPrefix.size()), kSeparator);
    std::string values[4];
    if (fields.size() == 1) {
        if (!Unescape(fields[0], &values[0])) return false;
        *this = Location(ZR::UniString(values[0]));
        return true;
    }
    if (fields.size() != 4) return false;
    for (std::size_t i = 0; i < 4; ++i)
        if (!Unescape(fields[i], &values[i])) return false;
    *this = ServerLocation(ZR::UniString(values[0]), ZR::UniString(values[1]),
                           ZR::UniString(values[2]), ZR::UniString(values[3]));
    return true;
}

bool Location::SetObsolete(const ZR::UniString& text) {
    const std::string& t = text.Std();
    if (!HasFileScheme(t)) return false;
    std::string_view rest = std::string_view(t).substr(kFileScheme.size());
    // An authority, if present, must name this computer.
    std::size_t slash = rest.find('/');
    if (slash == std::string_view::npos) return false;
    std::string_view host = rest.substr(0, slash);
    if (!host.empty() && !ZR::UniString(host).IsEqual("localhost", ZR::kIgnoreCase)) return false;
    std::string path;
    if (!Unescape(rest.substr(slash), &path)) return false;
    *this = Location(ZR::UniString(std::move(path)));
    return true;
}

ZR::UniString Location::ToObsoleteText() const {
    if (mKind != Kind::Local) return ZR::UniString();
    std::string path = mPath.Std();
    if (!path.starts_with('/')) {
        // The older form only knew absolute paths.
        std::string cwd = Sys::GetCurrentFolder();
        if (cwd.empty()) return ZR::UniString();
        path = NormalisePath(cwd + "/" + path);
    }
    return ZR::UniString(std::string(kFileScheme) + Escape(path, true));
}

ZR::UniString Location::ToDisplayText() const {
    switch (mKind) {
        case Kind::Empty:
            return ZR::UniString();
        case Kind::Local:
            return mPath;
        case Kind::Server: {
            std::string text;
            if (!mUserName.IsEmpty()) text = mUserName.Std() + "@";
            text += WithoutUrlPassword(mServerUrl.Std());
            if (!mPath.IsEmpty() && !mPath.Std().starts_with('/')) text += '/';
            text += mPath.Std();
            return ZR::UniString(std::move(text));
        }
    }
    return ZR::UniString();
}

bool Location::operator==(const Location& other) const {
    return mKind == other.mKind && mPath == other.mPath && mServerUrl == other.mServerUrl &&
           mUserName == other.mUserName && mPassword == other.mPassword;
}

}  // namespace IO
