#pragma once
/// @file
/// MD5 fingerprints; the text form is lower-case hex.

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "ZR/UniString.h"
#include "ZR/ZRRootExport.h"

namespace MD5 {

class ZRROOT_EXPORT FingerPrint {
public:
    FingerPrint() { mBytes.fill(0); }
    explicit FingerPrint(const std::array<std::uint8_t, 16>& bytes) : mBytes(bytes) {}
    ZR::UniString GetAsZrString() const;
    const std::array<std::uint8_t, 16>& GetBytes() const { return mBytes; }
    bool operator==(const FingerPrint&) const = default;

private:
    std::array<std::uint8_t, 16> mBytes;
};

class ZRROOT_EXPORT Generator {
public:
    Generator();
    ~Generator();
    Generator(const Generator&) = delete;
    Generator& operator=(const Generator&) = delete;

    void Update(const void* data, std::size_t length);
    FingerPrint GetFingerPrint();

private:
    struct Impl;
    std::unique_ptr<Impl> mImpl;
};

/// Fingerprint of the bytes of a text (its UTF-8 form, no closing zero).
ZRROOT_EXPORT FingerPrint Of(const ZR::UniString& text);

}  // namespace MD5
