#include <png.h>

#include "NewDisplay/Internal/Codecs.h"

// libpng's simplified interface: it converts every colour type and bit depth to
// 8-bit RGBA, reports errors by its result and never prints.

namespace NewDisplay::Internal {

bool DecodePng(const std::uint8_t* data, std::size_t size, Pixels& out) {
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    if (!png_image_begin_read_from_memory(&image, data, size)) return false;
    image.format = PNG_FORMAT_RGBA;
    if (!WithinLimits(image.width, image.height)) {
        png_image_free(&image);
        return false;
    }
    std::vector<std::uint8_t> rgba(PNG_IMAGE_SIZE(image));
    // finish_read frees the image's resources, whatever its result.
    if (!png_image_finish_read(&image, nullptr, rgba.data(), 0, nullptr)) return false;
    out.width = image.width;
    out.height = image.height;
    out.rgba = std::move(rgba);
    return true;
}

bool EncodePng(std::uint32_t width, std::uint32_t height, const std::uint8_t* rgba,
               std::vector<std::uint8_t>& out) {
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    image.width = width;
    image.height = height;
    image.format = PNG_FORMAT_RGBA;
    // Large enough for any PNG of this image, so one pass is enough.
    std::vector<std::uint8_t> buffer(PNG_IMAGE_PNG_SIZE_MAX(image));
    png_alloc_size_t size = buffer.size();
    if (!png_image_write_to_memory(&image, buffer.data(), &size, 0, rgba, 0, nullptr)) return false;
    buffer.resize(size);
    out = std::move(buffer);
    return true;
}

}  // namespace NewDisplay::Internal
