#include <openssl/evp.h>

#include "Emulator/Internal/State.h"

namespace Emulator::Internal {

std::string EncodeBase64(const std::vector<unsigned char>& bytes) {
    std::string text(4 * ((bytes.size() + 2) / 3) + 1, '\0');
    int length = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()), bytes.data(),
                                 static_cast<int>(bytes.size()));
    text.resize(static_cast<std::size_t>(length));
    return text;
}

bool DecodeBase64(const std::string& text, std::vector<unsigned char>* bytes) {
    // EVP_DecodeBlock is lenient about blanks and padding; a scenario is not.
    if (text.size() % 4 != 0 || text.size() > (1u << 30)) return false;
    if (text.empty()) {
        bytes->clear();
        return true;
    }
    std::size_t padding = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        char c = text[i];
        bool alphabet = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') ||
                        (c >= '0' && c <= '9') || c == '+' || c == '/';
        if (c == '=' && i + 2 >= text.size()) {
            ++padding;
        } else if (!alphabet || padding != 0) {
            return false;
        }
    }
    std::vector<unsigned char> out(text.size() / 4 * 3);
    int length = EVP_DecodeBlock(out.data(), reinterpret_cast<const unsigned char*>(text.data()),
                                 static_cast<int>(text.size()));
    if (length < 0) return false;
    out.resize(static_cast<std::size_t>(length) - padding);
    *bytes = std::move(out);
    return true;
}

}  // namespace Emulator::Internal
