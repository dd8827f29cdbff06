#pragma once

#include <array>
#include <cstdint>

#include "ZR/UniString.h"
#include "ZR/ZRRootExport.h"

namespace ZR {

class ZRROOT_EXPORT Guid {
public:
    Guid() { mBytes.fill(0); }
    /// A random (version 4) GUID; throws GeneralException if no random bytes can be had.
    static Guid Generate();
    /// Parses "xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx"; false on malformed text.
    static bool Parse(const UniString& text, Guid* out);

    UniString ToString() const;
    bool IsNull() const;
    bool operator==(const Guid&) const = default;
    const std::array<std::uint8_t, 16>& GetBytes() const { return mBytes; }

private:
    std::array<std::uint8_t, 16> mBytes;
};

}  // namespace ZR
