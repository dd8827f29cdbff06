#pragma once

#include <array>
#include <cstdint>
#include <functional>

#include "ZR/UniString.h"
#include "ZR/ZRRootExport.h"

namespace ZR {

class ZRROOT_EXPORT Guid {
public:
    Guid() { mBytes.fill(0); }
    /// The GUID of these 16 bytes, in the order GetBytes gives them.
    explicit Guid(const std::array<std::uint8_t, 16>& bytes) : mBytes(bytes) {}
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

template <>
struct std::hash<ZR::Guid> {
    std::size_t operator()(const ZR::Guid& guid) const noexcept {
        std::size_t h = 1469598103934665603ull;
        for (std::uint8_t b : guid.GetBytes()) h = (h ^ b) * 1099511628211ull;
        return h;
    }
};
