#include <csetjmp>
#include <cstdio>
#include <cstdlib>
#include <cstring>

// After <cstdio>: it uses size_t and FILE without including their headers.
#include <jpeglib.h>

#include "NewDisplay/Internal/Codecs.h"

// libjpeg reports a fatal error through error_exit, which must not return: it
// jumps back to the setjmp of the call that started the work. The functions
// that hold a setjmp keep no locals of their own, so nothing is clobbered;
// the state lives in the Decoder and Encoder structures of their callers.

namespace NewDisplay::Internal {

namespace {

// A progressive file may hold any number of scans, each a pass over the whole
// image: a few kilobytes could cost minutes. Real pictures have about ten.
constexpr int kMaxScans = 100;

struct ErrorManager {
    jpeg_error_mgr pub;
    std::jmp_buf jump;
};

[[noreturn]] void ErrorExit(j_common_ptr common) {
    std::longjmp(reinterpret_cast<ErrorManager*>(common->err)->jump, 1);
}

// Warnings (corrupt data the decoder works around) are not printed.
void OutputMessage(j_common_ptr) {}

void ProgressMonitor(j_common_ptr common) {
    auto* cinfo = reinterpret_cast<j_decompress_ptr>(common);
    if (cinfo->is_decompressor && cinfo->input_scan_number > kMaxScans) ErrorExit(common);
}

void InstallErrorManager(ErrorManager& error) {
    jpeg_std_error(&error.pub);
    error.pub.error_exit = ErrorExit;
    error.pub.output_message = OutputMessage;
}

struct Decoder {
    jpeg_decompress_struct cinfo{};
    ErrorManager error{};
    jpeg_progress_mgr progress{};
    bool created = false;
};

// Adobe writes CMYK inverted, which is what JPEG files of CMYK nearly always hold.
void CmykRowToRgba(std::uint8_t* row, std::uint32_t width) {
    for (std::uint32_t x = 0; x < width; ++x, row += 4) {
        unsigned k = row[3];
        row[0] = static_cast<std::uint8_t>(row[0] * k / 255);
        row[1] = static_cast<std::uint8_t>(row[1] * k / 255);
        row[2] = static_cast<std::uint8_t>(row[2] * k / 255);
        row[3] = 255;
    }
}

void Decompress(Decoder& d, const std::uint8_t* data, std::size_t size, Pixels& out) {
    j_decompress_ptr cinfo = &d.cinfo;
    cinfo->err = &d.error.pub;
    jpeg_create_decompress(cinfo);
    d.created = true;
    d.progress.progress_monitor = ProgressMonitor;
    cinfo->progress = &d.progress;
    jpeg_mem_src(cinfo, data, static_cast<unsigned long>(size));
    if (jpeg_read_header(cinfo, TRUE) != JPEG_HEADER_OK)
        ErrorExit(reinterpret_cast<j_common_ptr>(cinfo));
    if (!WithinLimits(cinfo->image_width, cinfo->image_height))
        ErrorExit(reinterpret_cast<j_common_ptr>(cinfo));
    bool cmyk = cinfo->jpeg_color_space == JCS_CMYK || cinfo->jpeg_color_space == JCS_YCCK;
    cinfo->out_color_space = cmyk ? JCS_CMYK : JCS_EXT_RGBA;
    jpeg_start_decompress(cinfo);
    if (cinfo->output_components != 4) ErrorExit(reinterpret_cast<j_common_ptr>(cinfo));
    out.width = cinfo->output_width;
    out.height = cinfo->output_height;
    std::size_t stride = static_cast<std::size_t>(out.width) * 4;
    out.rgba.assign(stride * out.height, 0);
    while (cinfo->output_scanline < cinfo->output_height) {
        JSAMPROW row = out.rgba.data() + stride * cinfo->output_scanline;
        jpeg_read_scanlines(cinfo, &row, 1);
        if (cmyk) CmykRowToRgba(row, out.width);
    }
    jpeg_finish_decompress(cinfo);
}

bool DecompressGuarded(Decoder* d, const std::uint8_t* data, std::size_t size, Pixels* out) {
    InstallErrorManager(d->error);
    if (setjmp(d->error.jump)) return false;
    Decompress(*d, data, size, *out);
    return true;
}

struct Encoder {
    jpeg_compress_struct cinfo{};
    ErrorManager error{};
    unsigned char* buffer = nullptr;
    unsigned long size = 0;
    bool created = false;
};

struct Image {
    std::uint32_t width;
    std::uint32_t height;
    const std::uint8_t* rgba;
};

void Compress(Encoder& e, const Image& in, int quality) {
    j_compress_ptr cinfo = &e.cinfo;
    cinfo->err = &e.error.pub;
    jpeg_create_compress(cinfo);
    e.created = true;
    jpeg_mem_dest(cinfo, &e.buffer, &e.size);
    cinfo->image_width = in.width;
    cinfo->image_height = in.height;
    cinfo->input_components = 4;
    cinfo->in_color_space = JCS_EXT_RGBA;
    jpeg_set_defaults(cinfo);
    jpeg_set_quality(cinfo, quality, TRUE);
    jpeg_start_compress(cinfo, TRUE);
    std::size_t stride = static_cast<std::size_t>(in.width) * 4;
    while (cinfo->next_scanline < cinfo->image_height) {
        // libjpeg's interface takes rows as non-const; it only reads them.
        auto row = const_cast<JSAMPROW>(in.rgba + stride * cinfo->next_scanline);
        jpeg_write_scanlines(cinfo, &row, 1);
    }
    jpeg_finish_compress(cinfo);
}

bool CompressGuarded(Encoder* e, const Image* in, int quality) {
    InstallErrorManager(e->error);
    if (setjmp(e->error.jump)) return false;
    Compress(*e, *in, quality);
    return true;
}

}  // namespace

bool DecodeJpeg(const std::uint8_t* data, std::size_t size, Pixels& out) {
    Decoder decoder;
    Pixels pixels;
    bool ok = DecompressGuarded(&decoder, data, size, &pixels);
    if (decoder.created) jpeg_destroy_decompress(&decoder.cinfo);
    if (ok) out = std::move(pixels);
    return ok;
}

bool EncodeJpeg(std::uint32_t width, std::uint32_t height, const std::uint8_t* rgba, int quality,
                std::vector<std::uint8_t>& out) {
    Encoder encoder;
    Image image{width, height, rgba};
    bool ok = CompressGuarded(&encoder, &image, quality);
    if (encoder.created) jpeg_destroy_compress(&encoder.cinfo);
    if (ok) out.assign(encoder.buffer, encoder.buffer + encoder.size);
    std::free(encoder.buffer);
    return ok;
}

}  // namespace NewDisplay::Internal
