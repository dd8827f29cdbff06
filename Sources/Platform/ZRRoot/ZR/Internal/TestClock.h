#pragma once
/// @file
/// A seam in the millisecond clock for tests of rules about elapsed time: a
/// test moves the clock instead of waiting.

#include <cstdint>

namespace ZR::Internal {

/// Moves ZR::System::GetCurrentTimeMillis forward by deltaMs for the whole
/// process. Never taken back, so the clock stays monotonic across tests.
void AdvanceCurrentTimeMillisForTesting(std::int64_t deltaMs);

}  // namespace ZR::Internal
