#include "ZR/Guid.h"

#include <openssl/rand.h>

#include "ZR/Exceptions.h"

namespace ZR {

Guid Guid::Generate() {
    Guid g;
    if (RAND_bytes(g.mBytes.data(), static_cast<int>(g.mBytes.size())) != 1)
        throw GeneralException("Failed to generate a GUID.", ZR_HERE);
    g.mBytes[6] = static_cast<std::uint8_t>((g.mBytes[6] & 0x0F) | 0x40);
    g.mBytes[8] = static_cast<std::uint8_t>((g.mBytes[8] & 0x3F) | 0x80);
    return g;
}

UniString Guid::ToString() const {
    static const char kHex[] = "0123456789abcdef";
    std::string out;
    for (std::size_t i = 0; i < mBytes.size(); ++i) {
        if (i == 4 || i == 6 || i == 8 || i == 10) out += '-';
        out += kHex[mBytes[i] >> 4];
        out += kHex[mBytes[i] & 0xF];
    }
    return UniString(std::move(out));
}

bool Guid::Parse(const UniString& text, Guid* out) {
    const std::string& s = text.Std();
    if (s.size() != 36) return false;
    Guid g;
    std::size_t b = 0;
    for (std::size_t i = 0; i < s.size();) {
        if (i == 8 || i == 13 || i == 18 || i == 23) {
            if (s[i] != '-') return false;
            ++i;
            continue;
        }
        auto hex = [](char c) -> int {
            if (c >= '0' && c <= '9') return c - '0';
            if (c >= 'a' && c <= 'f') return c - 'a' + 10;
            if (c >= 'A' && c <= 'F') return c - 'A' + 10;
            return -1;
        };
        int hi = hex(s[i]), lo = hex(s[i + 1]);
        if (hi < 0 || lo < 0) return false;
        g.mBytes[b++] = static_cast<std::uint8_t>(hi * 16 + lo);
        i += 2;
    }
    *out = g;
    return true;
}

bool Guid::IsNull() const {
    for (auto b : mBytes)
        if (b) return false;
    return true;
}

}  // namespace ZR
