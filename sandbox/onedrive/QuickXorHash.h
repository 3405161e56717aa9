#pragma once
// OneDrive's QuickXorHash, written here from the published algorithm, apart from the client
// library's, so that a mistake in either shows up as a mismatch.
#include <cstdint>
#include <string>
#include <string_view>

namespace vxcloud::sandbox::onedrive {

class QuickXorHash {
public:
    void update(std::string_view bytes);
    // The 20-byte digest, in standard base64 (28 characters).
    std::string base64() const;

private:
    // The 160-bit state: bits 0-63, 64-127, and 128-159 in the low half of the third word.
    std::uint64_t cells_[3] = {0, 0, 0};
    std::uint64_t length_ = 0;
    unsigned shift_ = 0;  // (11 * offset) mod 160 of the next byte
};

std::string quickXorHash(std::string_view bytes);

}  // namespace vxcloud::sandbox::onedrive
