#pragma once
// Reading a run of bytes whose length came from the input itself.

#include <algorithm>
#include <cstdint>
#include <limits>

#include "ZR/Channel.h"

namespace ZR::Internal {

/// Reads length bytes into out (a std::string or a vector of bytes) through
/// read(buffer, n). Where the source knows what it holds (remaining), a larger
/// length is refused before anything is allocated. Where it doesn't, the buffer
/// grows in steps as the bytes arrive, so a hostile length costs no more memory
/// than the input really had (plus one step).
template <typename Read, typename Out>
int ReadBounded(Read&& read, std::uint64_t remaining, std::uint64_t length, Out& out) {
    constexpr std::uint64_t kStep = 64 * 1024;
    if (remaining != IChannel::kUnknownRemaining && length > remaining) return kErrTooLarge;
    if (length > std::numeric_limits<std::size_t>::max() / 2) return kErrTooLarge;
    out.clear();
    if (remaining != IChannel::kUnknownRemaining) {
        out.resize(static_cast<std::size_t>(length));
        return length == 0 ? 0 : read(out.data(), out.size());
    }
    std::uint64_t done = 0;
    while (done < length) {
        auto step = static_cast<std::size_t>(std::min(kStep, length - done));
        out.resize(static_cast<std::size_t>(done) + step);
        if (int status = read(out.data() + done, step)) return status;
        done += step;
    }
    return 0;
}

}  // namespace ZR::Internal
