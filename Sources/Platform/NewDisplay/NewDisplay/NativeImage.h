#pragma once
/// @file
/// Images as the platform's displays take them: 8-bit RGBA pixels, decoded
/// from JPEG or PNG data and encoded again.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "Gfx/Color.h"
#include "NewDisplay/NewDisplayExport.h"
#include "ZR/Channel.h"

namespace NewDisplay {

/// A picture of width x height pixels, four bytes each (red, green, blue,
/// alpha, not premultiplied), rows top to bottom. A null image has no pixels.
/// Copies share the pixels, which never change.
class NEWDISPLAY_EXPORT NativeImage {
public:
    enum Encoding : int { kJPEG = 0, kPNG = 1 };

    /// Decoding refuses, before it allocates the pixels, an image of more
    /// pixels than this (about 16.7 million, 64 MiB of pixels) or wider or
    /// higher than kMaxSide: the data of a tiny file may claim a huge picture.
    static constexpr std::uint64_t kMaxPixels = 4096ull * 4096ull;
    static constexpr std::uint32_t kMaxSide = 32768;

    /// The null image.
    NativeImage() = default;
    /// Decodes size bytes of data in the encoding (kJPEG or kPNG). Data that
    /// doesn't decode, an unknown encoding or an image over the limits give the
    /// null image.
    NativeImage(const void* data, std::size_t size, int encoding);
    /// An image of the given pixels (width * height * 4 bytes). Throws
    /// ZR::IllegalArgumentException if the size doesn't match or the image is
    /// over the limits; an image of no pixels is the null image.
    NativeImage(std::uint32_t width, std::uint32_t height, std::vector<std::uint8_t> rgba);

    bool IsNull() const { return !mPixels; }
    std::uint32_t GetWidth() const { return mWidth; }
    std::uint32_t GetHeight() const { return mHeight; }
    /// width * height * 4 bytes; null for the null image.
    const std::uint8_t* GetPixels() const { return mPixels ? mPixels->data() : nullptr; }
    /// The pixel at column x, row y; throws ZR::IllegalArgumentException
    /// outside the image.
    Gfx::Color GetPixel(std::uint32_t x, std::uint32_t y) const;

    /// Writes the image in the encoding to channel: PNG keeps every pixel
    /// exactly, JPEG (quality 90) drops alpha. Answers 0, the channel's error,
    /// ZR::kIllegalArgumentCode for the null image or an unknown encoding, or
    /// ZR::kGeneralErrorCode if the encoder fails.
    int Encode(ZR::OChannel& channel, int encoding) const;

    /// Same size and the same pixels.
    bool operator==(const NativeImage& other) const;

private:
    std::uint32_t mWidth = 0;
    std::uint32_t mHeight = 0;
    std::shared_ptr<const std::vector<std::uint8_t>> mPixels;
};

}  // namespace NewDisplay
