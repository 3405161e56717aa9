#include "onedrive/QuickXorHash.h"

#include "framework/Text.h"

namespace vxcloud::sandbox::onedrive {

void QuickXorHash::update(std::string_view bytes) {
    for (const char c : bytes) {
        const std::uint64_t b = static_cast<unsigned char>(c);
        const unsigned p = shift_;
        if (p < 128) {
            const unsigned cell = p / 64, offset = p % 64;
            cells_[cell] ^= b << offset;
            // Bits past the word's top go to the start of the next word.
            if (offset > 56) cells_[cell + 1] ^= b >> (64 - offset);
        } else {
            const unsigned offset = p - 128;
            cells_[2] ^= (b << offset) & 0xFFFFFFFFu;
            // Bits past bit 159 wrap around to bit 0.
            if (offset > 24) cells_[0] ^= b >> (32 - offset);
        }
        shift_ = (shift_ + 11) % 160;
    }
    length_ += bytes.size();
}

std::string QuickXorHash::base64() const {
    unsigned char digest[20];
    for (int i = 0; i < 20; ++i) digest[i] = static_cast<unsigned char>(cells_[i / 8] >> (8 * (i % 8)));
    for (int i = 0; i < 8; ++i) digest[12 + i] ^= static_cast<unsigned char>(length_ >> (8 * i));
    std::string text = base64UrlEncode(std::string_view(reinterpret_cast<const char*>(digest), sizeof digest), true);
    for (char& c : text) {
        if (c == '-') c = '+';
        if (c == '_') c = '/';
    }
    return text;
}

std::string quickXorHash(std::string_view bytes) {
    QuickXorHash hash;
    hash.update(bytes);
    return hash.base64();
}

}  // namespace vxcloud::sandbox::onedrive
