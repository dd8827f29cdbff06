#include "IO/URI.h"

#include <cstdio>

namespace IO::URI {

URI::URI(const ZR::UniString& text) {
    std::string s = text.Std();
    if (std::size_t hash = s.find('#'); hash != std::string::npos) {
        mFragment = ZR::UniString(s.substr(hash + 1));
        mHasFragment = true;
        s.resize(hash);
    }
    if (std::size_t q = s.find('?'); q != std::string::npos) {
        mQuery = ZR::UniString(s.substr(q + 1));
        mHasQuery = true;
        s.resize(q);
    }
    std::size_t rest = 0;
    if (std::size_t at = s.find("://"); at != std::string::npos) {
        mScheme = ZR::UniString(s.substr(0, at));
        rest = at + 3;
    }
    std::size_t slash = s.find('/', rest);
    std::string authority =
        s.substr(rest, slash == std::string::npos ? std::string::npos : slash - rest);
    if (slash != std::string::npos) mPath = ZR::UniString(s.substr(slash));
    if (std::size_t user = authority.rfind('@'); user != std::string::npos) {
        mUserInfo = ZR::UniString(authority.substr(0, user));
        authority = authority.substr(user + 1);
    }
    std::size_t colon = authority.rfind(':');
    if (colon != std::string::npos && authority.find(']', colon) == std::string::npos) {
        mPort = ZR::UniString(authority.substr(colon + 1));
        authority.resize(colon);
    }
    mHost = ZR::UniString(authority);
}

namespace {

std::string Encode(const std::string& text, const char* keep) {
    std::string out;
    for (unsigned char c : text) {
        bool plain = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') ||
                     std::string("-._~").find(static_cast<char>(c)) != std::string::npos ||
                     std::string(keep).find(static_cast<char>(c)) != std::string::npos;
        if (plain) {
            out += static_cast<char>(c);
        } else {
            char hex[4];
            std::snprintf(hex, sizeof hex, "%%%02X", c);
            out += hex;
        }
    }
    return out;
}

}  // namespace

ZR::UniString URI::ToString(int encoding) const {
    auto part = [encoding](const ZR::UniString& p, const char* keep) {
        return encoding == 0 ? Encode(p.Std(), keep) : p.Std();
    };
    std::string out;
    if (!mScheme.IsEmpty()) out += mScheme.Std() + "://";
    if (!mUserInfo.IsEmpty()) out += part(mUserInfo, ":") + "@";
    out += mHost.Std();
    if (!mPort.IsEmpty()) out += ":" + mPort.Std();
    out += part(mPath, "/:@");
    if (mHasQuery) out += "?" + part(mQuery, "/:@=&?");
    if (mHasFragment) out += "#" + part(mFragment, "/:@?");
    return ZR::UniString(out);
}

}  // namespace IO::URI
