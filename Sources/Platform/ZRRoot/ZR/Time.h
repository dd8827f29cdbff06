#pragma once
/// @file
/// Time scales. TIGetTime counts seconds since 2000-01-01 00:00:00 UTC in a
/// 32-bit signed number, which lasts until 2068; file modification times use
/// the same scale.

#include <cstdint>
#include <ctime>

#include "ZR/ZRRootExport.h"

namespace ZR {

inline constexpr std::int64_t kEpoch2000 = 946684800;  ///< 2000-01-01 in Unix seconds

/// Unix seconds to the 2000-based scale, clamped to the 32-bit range.
ZRROOT_EXPORT std::int32_t UnixToTI(std::int64_t unixSeconds);
ZRROOT_EXPORT std::int64_t TIToUnix(std::int32_t ti);

namespace System {
/// Monotonic milliseconds.
ZRROOT_EXPORT std::int64_t GetCurrentTimeMillis();
}  // namespace System

}  // namespace ZR

ZRROOT_EXPORT std::int32_t TIGetTime();
