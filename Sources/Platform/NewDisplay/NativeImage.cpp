#include "NewDisplay/NativeImage.h"

#include "NewDisplay/Internal/Codecs.h"
#include "ZR/Exceptions.h"

namespace NewDisplay {

namespace Internal {

bool WithinLimits(std::uint64_t width, std::uint64_t height) {
    return width > 0 && height > 0 && width <= NativeImage::kMaxSide &&
           height <= NativeImage::kMaxSide && width * height <= NativeImage::kMaxPixels;
}

}  // namespace Internal

NativeImage::NativeImage(const void* data, std::size_t size, int encoding) {
    if (!data || size == 0) return;
    const auto* bytes = static_cast<const std::uint8_t*>(data);
    Internal::Pixels pixels;
    bool ok = false;
    if (encoding == kJPEG)
        ok = Internal::DecodeJpeg(bytes, size, pixels);
    else if (encoding == kPNG)
        ok = Internal::DecodePng(bytes, size, pixels);
    if (!ok) return;
    mWidth = pixels.width;
    mHeight = pixels.height;
    mPixels = std::make_shared<const std::vector<std::uint8_t>>(std::move(pixels.rgba));
}

NativeImage::NativeImage(std::uint32_t width, std::uint32_t height,
                         std::vector<std::uint8_t> rgba) {
    if (width == 0 && height == 0 && rgba.empty()) return;
    if (!Internal::WithinLimits(width, height) ||
        rgba.size() != static_cast<std::uint64_t>(width) * height * 4)
        throw ZR::IllegalArgumentException(
            ZR::UniString::Format("Failed to make an image of %ux%u pixels from %zu bytes", width,
                                  height, rgba.size()),
            ZR_HERE);
    mWidth = width;
    mHeight = height;
    mPixels = std::make_shared<const std::vector<std::uint8_t>>(std::move(rgba));
}

Gfx::Color NativeImage::GetPixel(std::uint32_t x, std::uint32_t y) const {
    if (x >= mWidth || y >= mHeight)
        throw ZR::IllegalArgumentException(
            ZR::UniString::Format("Failed to read pixel (%u, %u) of an image of %ux%u", x, y,
                                  mWidth, mHeight),
            ZR_HERE);
    const std::uint8_t* p = mPixels->data() + (static_cast<std::size_t>(y) * mWidth + x) * 4;
    return Gfx::Color(p[0], p[1], p[2], p[3]);
}

int NativeImage::Encode(ZR::OChannel& channel, int encoding) const {
    if (IsNull() || (encoding != kJPEG && encoding != kPNG)) return ZR::kIllegalArgumentCode;
    std::vector<std::uint8_t> encoded;
    bool ok = encoding == kPNG
                  ? Internal::EncodePng(mWidth, mHeight, mPixels->data(), encoded)
                  : Internal::EncodeJpeg(mWidth, mHeight, mPixels->data(), 90, encoded);
    if (!ok) return ZR::kGeneralErrorCode;
    return channel.Write(encoded.data(), encoded.size());
}

bool NativeImage::operator==(const NativeImage& other) const {
    if (mWidth != other.mWidth || mHeight != other.mHeight) return false;
    if (mPixels == other.mPixels) return true;
    return mPixels && other.mPixels && *mPixels == *other.mPixels;
}

}  // namespace NewDisplay
