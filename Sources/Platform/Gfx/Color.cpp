#include "Gfx/Color.h"

#include <cstdio>

namespace Gfx {

ZR::UniString Color::ToString() const {
    char text[10];
    std::snprintf(text, sizeof text, "#%02x%02x%02x%02x", mR, mG, mB, mA);
    return ZR::UniString(text);
}

namespace {
int HexDigit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}
}  // namespace

bool Color::Parse(const ZR::UniString& text, Color* color) {
    const std::string& s = text.Std();
    if ((s.size() != 7 && s.size() != 9) || s[0] != '#') return false;
    std::uint8_t bytes[4] = {0, 0, 0, 255};
    for (std::size_t i = 1, b = 0; i < s.size(); i += 2, ++b) {
        const int hi = HexDigit(s[i]);
        const int lo = HexDigit(s[i + 1]);
        if (hi < 0 || lo < 0) return false;
        bytes[b] = static_cast<std::uint8_t>(hi * 16 + lo);
    }
    *color = Color(bytes[0], bytes[1], bytes[2], bytes[3]);
    return true;
}

}  // namespace Gfx
