#include <gtest/gtest.h>

#include <cstdlib>
#include <vector>

#include "NewDisplay/NativeImage.h"
#include "Support/AllocationMeter.h"
#include "ZR/Channel.h"
#include "ZR/Exceptions.h"

using NewDisplay::NativeImage;

namespace {

using Bytes = std::vector<unsigned char>;

// A gradient with varying alpha, so that any mix-up of channels or rows shows.
NativeImage Gradient(std::uint32_t w, std::uint32_t h) {
    std::vector<std::uint8_t> rgba;
    for (std::uint32_t y = 0; y < h; ++y)
        for (std::uint32_t x = 0; x < w; ++x)
            rgba.insert(rgba.end(), {static_cast<std::uint8_t>(x * 255 / (w - 1)),
                                     static_cast<std::uint8_t>(y * 255 / (h - 1)),
                                     static_cast<std::uint8_t>(128),
                                     static_cast<std::uint8_t>(255 - x * 100 / w)});
    return NativeImage(w, h, std::move(rgba));
}

Bytes Encoded(const NativeImage& image, int encoding) {
    ZR::MemoryOChannel32 out;
    EXPECT_EQ(image.Encode(out, encoding), 0);
    return out.GetBytes();
}

std::uint32_t Crc32(const unsigned char* data, std::size_t size) {
    std::uint32_t crc = 0xFFFFFFFFu;
    for (std::size_t i = 0; i < size; ++i) {
        crc ^= data[i];
        for (int k = 0; k < 8; ++k) crc = (crc >> 1) ^ (0xEDB88320u & (0u - (crc & 1u)));
    }
    return ~crc;
}

void PutBe32(Bytes& bytes, std::size_t at, std::uint32_t v) {
    for (int i = 0; i < 4; ++i) bytes[at + i] = static_cast<unsigned char>(v >> (24 - 8 * i));
}

}  // namespace

TEST(NativeImage, PngKeepsEveryPixelAndJpegComesClose) {
    NativeImage image = Gradient(17, 9);
    ASSERT_FALSE(image.IsNull());

    Bytes png = Encoded(image, NativeImage::kPNG);
    EXPECT_EQ(NativeImage(png.data(), png.size(), NativeImage::kPNG), image);

    Bytes jpeg = Encoded(image, NativeImage::kJPEG);
    NativeImage fromJpeg(jpeg.data(), jpeg.size(), NativeImage::kJPEG);
    ASSERT_EQ(fromJpeg.GetWidth(), 17u);
    ASSERT_EQ(fromJpeg.GetHeight(), 9u);
    for (std::uint32_t y = 0; y < 9; ++y) {
        for (std::uint32_t x = 0; x < 17; ++x) {
            Gfx::Color want = image.GetPixel(x, y), got = fromJpeg.GetPixel(x, y);
            EXPECT_NEAR(got.GetR(), want.GetR(), 24) << x << "," << y;
            EXPECT_NEAR(got.GetG(), want.GetG(), 24) << x << "," << y;
            EXPECT_EQ(got.GetA(), 255);  // JPEG has no alpha
        }
    }

    // Each decoder takes only its own format.
    EXPECT_TRUE(NativeImage(png.data(), png.size(), NativeImage::kJPEG).IsNull());
    EXPECT_TRUE(NativeImage(jpeg.data(), jpeg.size(), NativeImage::kPNG).IsNull());
    EXPECT_TRUE(NativeImage(png.data(), png.size(), 2).IsNull());
}

TEST(NativeImage, BrokenDataGivesTheNullImage) {
    Bytes png = Encoded(Gradient(8, 8), NativeImage::kPNG);
    Bytes jpeg = Encoded(Gradient(8, 8), NativeImage::kJPEG);
    Bytes garbage(300);
    for (std::size_t i = 0; i < garbage.size(); ++i) garbage[i] = static_cast<unsigned char>(i * 7);

    // Nothing, garbage, cut short in the header, or with a damaged checksum.
    for (int encoding : {NativeImage::kPNG, NativeImage::kJPEG}) {
        const Bytes& good = encoding == NativeImage::kPNG ? png : jpeg;
        EXPECT_TRUE(NativeImage(nullptr, 0, encoding).IsNull());
        EXPECT_TRUE(NativeImage(garbage.data(), garbage.size(), encoding).IsNull());
        EXPECT_TRUE(NativeImage(good.data(), 20, encoding).IsNull());
    }
    Bytes badCrc = png;
    badCrc[29] ^= 0xFF;  // the checksum of IHDR
    EXPECT_TRUE(NativeImage(badCrc.data(), badCrc.size(), NativeImage::kPNG).IsNull());

    NativeImage null;
    ZR::MemoryOChannel32 out;
    EXPECT_EQ(null.Encode(out, NativeImage::kPNG), ZR::kIllegalArgumentCode);
    EXPECT_EQ(Gradient(2, 2).Encode(out, 7), ZR::kIllegalArgumentCode);
    EXPECT_EQ(out.GetSize(), 0u);
    EXPECT_THROW(Gradient(2, 2).GetPixel(2, 0), ZR::IllegalArgumentException);
    EXPECT_THROW(NativeImage(2, 2, std::vector<std::uint8_t>(15)), ZR::IllegalArgumentException);
}

TEST(NativeImage, HugeClaimsAreRefusedBeforeAllocating) {
    // A valid small PNG whose header claims 30000 x 30000 pixels (3.6 GB of RGBA).
    Bytes png = Encoded(Gradient(8, 8), NativeImage::kPNG);
    PutBe32(png, 16, 30000);
    PutBe32(png, 20, 30000);
    PutBe32(png, 29, Crc32(png.data() + 12, 17));
    // A JPEG whose frame header claims 60000 x 60000.
    Bytes jpeg = Encoded(Gradient(8, 8), NativeImage::kJPEG);
    std::size_t sof = 2;
    while (sof + 9 < jpeg.size() && !(jpeg[sof] == 0xFF && jpeg[sof + 1] == 0xC0)) ++sof;
    ASSERT_LT(sof + 9, jpeg.size());
    jpeg[sof + 5] = 0xEA;  // height 0xEA60
    jpeg[sof + 6] = 0x60;
    jpeg[sof + 7] = 0xEA;  // width
    jpeg[sof + 8] = 0x60;

    krtest::LargestAllocation meter;
    EXPECT_TRUE(NativeImage(png.data(), png.size(), NativeImage::kPNG).IsNull());
    EXPECT_TRUE(NativeImage(jpeg.data(), jpeg.size(), NativeImage::kJPEG).IsNull());
    EXPECT_LT(meter.Bytes(), 1u << 20);
}
