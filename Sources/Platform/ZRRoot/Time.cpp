#include "ZR/Time.h"

#include <atomic>
#include <chrono>
#include <limits>

#include "ZR/Internal/TestClock.h"

namespace ZR {

namespace {
std::atomic<std::int64_t> testClockOffsetMs{0};
}  // namespace

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
    return duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count() +
           testClockOffsetMs.load(std::memory_order_relaxed);
}
}  // namespace System

namespace Internal {
void AdvanceCurrentTimeMillisForTesting(std::int64_t deltaMs) {
    if (deltaMs > 0) testClockOffsetMs.fetch_add(deltaMs, std::memory_order_relaxed);
}
}  // namespace Internal

}  // namespace ZR

std::int32_t TIGetTime() {
    using namespace std::chrono;
    return ZR::UnixToTI(duration_cast<seconds>(system_clock::now().time_since_epoch()).count());
}
