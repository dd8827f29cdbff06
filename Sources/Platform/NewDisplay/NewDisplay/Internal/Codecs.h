#pragma once
// The codecs behind NativeImage. Decoders answer false for data they can't
// take, and check the image's size against the limits before they allocate.

#include <cstddef>
#include <cstdint>
#include <vector>

namespace NewDisplay::Internal {

struct Pixels {
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    std::vector<std::uint8_t> rgba;
};

/// Within NativeImage's limits: not empty, not over kMaxSide, not over kMaxPixels.
bool WithinLimits(std::uint64_t width, std::uint64_t height);

bool DecodePng(const std::uint8_t* data, std::size_t size, Pixels& out);
bool DecodeJpeg(const std::uint8_t* data, std::size_t size, Pixels& out);
/// rgba holds width * height * 4 bytes.
bool EncodePng(std::uint32_t width, std::uint32_t height, const std::uint8_t* rgba,
               std::vector<std::uint8_t>& out);
bool EncodeJpeg(std::uint32_t width, std::uint32_t height, const std::uint8_t* rgba, int quality,
                std::vector<std::uint8_t>& out);

}  // namespace NewDisplay::Internal
