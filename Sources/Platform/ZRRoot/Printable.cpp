#include "ZR/Internal/Printable.h"

#include <cstdio>

namespace ZR::Internal {

namespace {

// The length of the well-formed UTF-8 sequence at text[i], or 0.
std::size_t SequenceLength(std::string_view text, std::size_t i) {
    const auto byte = [&](std::size_t k) { return static_cast<unsigned char>(text[i + k]); };
    const unsigned char lead = byte(0);
    std::size_t length = lead < 0x80   ? 1
                         : lead < 0xc2 ? 0
                         : lead < 0xe0 ? 2
                         : lead < 0xf0 ? 3
                         : lead < 0xf5 ? 4
                                       : 0;
    if (length == 0 || i + length > text.size()) return 0;
    for (std::size_t k = 1; k < length; ++k)
        if ((byte(k) & 0xc0) != 0x80) return 0;
    // Overlong forms, surrogates and values past U+10FFFF.
    if ((lead == 0xe0 && byte(1) < 0xa0) || (lead == 0xed && byte(1) >= 0xa0) ||
        (lead == 0xf0 && byte(1) < 0x90) || (lead == 0xf4 && byte(1) >= 0x90))
        return 0;
    return length;
}

}  // namespace

std::string Printable(std::string_view text, std::size_t maxBytes) {
    std::string out;
    std::size_t i = 0;
    while (i < text.size()) {
        if (out.size() >= maxBytes) {
            out += "...(" + std::to_string(text.size()) + " bytes)";
            break;
        }
        const auto c = static_cast<unsigned char>(text[i]);
        const std::size_t length = SequenceLength(text, i);
        char escape[8];
        if (length == 0) {
            std::snprintf(escape, sizeof escape, "\\x%02x", c);
            out += escape;
            ++i;
        } else if (length == 2 && c == 0xc2 && static_cast<unsigned char>(text[i + 1]) < 0xa0) {
            std::snprintf(escape, sizeof escape, "\\u%04x",
                          static_cast<unsigned char>(text[i + 1]));
            out += escape;
            i += 2;
        } else if (length > 1) {
            out.append(text, i, length);
            i += length;
        } else {
            switch (c) {
                case '\n':
                    out += "\\n";
                    break;
                case '\r':
                    out += "\\r";
                    break;
                case '\t':
                    out += "\\t";
                    break;
                case '\\':
                    out += "\\\\";
                    break;
                default:
                    if (c < 0x20 || c == 0x7f) {
                        std::snprintf(escape, sizeof escape, "\\x%02x", c);
                        out += escape;
                    } else {
                        out += static_cast<char>(c);
                    }
            }
            ++i;
        }
    }
    return out;
}

}  // namespace ZR::Internal
