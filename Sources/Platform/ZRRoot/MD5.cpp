#include "ZR/MD5.h"

#include <openssl/evp.h>

#include <stdexcept>

namespace MD5 {

struct Generator::Impl {
    EVP_MD_CTX* ctx = nullptr;
};

Generator::Generator() : mImpl(std::make_unique<Impl>()) {
    mImpl->ctx = EVP_MD_CTX_new();
    if (!mImpl->ctx || EVP_DigestInit_ex(mImpl->ctx, EVP_md5(), nullptr) != 1)
        throw std::runtime_error("MD5 initialisation failed");
}

Generator::~Generator() {
    EVP_MD_CTX_free(mImpl->ctx);
}

void Generator::Update(const void* data, std::size_t length) {
    EVP_DigestUpdate(mImpl->ctx, data, length);
}

FingerPrint Generator::GetFingerPrint() {
    std::array<std::uint8_t, 16> bytes{};
    unsigned int len = 0;
    EVP_DigestFinal_ex(mImpl->ctx, bytes.data(), &len);
    EVP_DigestInit_ex(mImpl->ctx, EVP_md5(), nullptr);
    return FingerPrint(bytes);
}

ZR::UniString FingerPrint::GetAsZrString() const {
    static const char kHex[] = "0123456789abcdef";
    std::string out;
    out.reserve(32);
    for (std::uint8_t b : mBytes) {
        out += kHex[b >> 4];
        out += kHex[b & 0xF];
    }
    return ZR::UniString(std::move(out));
}

FingerPrint Of(const ZR::UniString& text) {
    Generator g;
    g.Update(text.Std().data(), text.Std().size());
    return g.GetFingerPrint();
}

}  // namespace MD5
