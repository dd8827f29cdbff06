#pragma once
/// @file
/// A colour of red, green, blue and alpha bytes.

#include <cstdint>

#include "Gfx/GfxExport.h"
#include "ZR/UniString.h"

namespace Gfx {

class GFX_EXPORT Color {
public:
    Color() = default;
    Color(std::uint8_t r, std::uint8_t g, std::uint8_t b, std::uint8_t a = 255)
        : mR(r), mG(g), mB(b), mA(a) {}

    std::uint8_t GetR() const { return mR; }
    std::uint8_t GetG() const { return mG; }
    std::uint8_t GetB() const { return mB; }
    std::uint8_t GetA() const { return mA; }
    bool operator==(const Color&) const = default;

    /// "#RRGGBBAA", lower-case hex.
    ZR::UniString ToString() const;
    /// Reads "#RRGGBB" or "#RRGGBBAA" (either case); false and no change otherwise.
    static bool Parse(const ZR::UniString& text, Color* color);

private:
    std::uint8_t mR = 0;
    std::uint8_t mG = 0;
    std::uint8_t mB = 0;
    std::uint8_t mA = 255;
};

}  // namespace Gfx
