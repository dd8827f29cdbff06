#include "ZR/Time.h"

#include <chrono>
#include <limits>

namespace ZR {

std::int32_t UnixToTI(std::int64_t unixSeconds) {
    std::int64_t ti = unixSeconds - kEpoch2000;
    if (ti > std::numeric_limits<std::int32_t>::max())
        return std::numeric_limits<std::int32_t>::max();
    if (ti < std::numeric_limits<std::int32_t>::min())
        return std::numeric_limits<std::int32_t>::min();
    return static_cast<std::int32_t>(ti);
}

std::int64_t TIToUnix(std::int32_t ti) {
    return static_cast<std::int64_t>(ti) + kEpoch2000;
}

namespace System {
std::int64_t GetCurrentTimeMillis() {
    using namespace std::chrono;
    return duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count();
}
}  // namespace System

}  // namespace ZR

std::int32_t TIGetTime() {
    using namespace std::chrono;
    return ZR::UnixToTI(duration_cast<seconds>(system_clock::now().time_since_epoch()).count());
}
