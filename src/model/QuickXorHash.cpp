#include "model/QuickXorHash.h"

#include <cstring>

namespace vxcloud {

void QuickXorHash::update(const std::uint8_t* data, std::size_t size) {
    std::size_t lane = static_cast<std::size_t>(length_ % kLanes);
    length_ += size;
    // Up to the next whole 160-byte row.
    while (size > 0 && lane != 0) {
        lanes_[lane] ^= *data++;
        --size;
        lane = lane + 1 == kLanes ? 0 : lane + 1;
    }
    // Whole rows, 64 bits at a time; the compiler turns this into vector XORs.
    constexpr std::size_t kWords = kLanes / 8;
    std::uint64_t acc[kWords];
    std::memcpy(acc, lanes_.data(), kLanes);
    for (; size >= kLanes; size -= kLanes, data += kLanes) {
        std::uint64_t row[kWords];
        std::memcpy(row, data, kLanes);
        for (std::size_t w = 0; w < kWords; ++w) acc[w] ^= row[w];
    }
    std::memcpy(lanes_.data(), acc, kLanes);
    for (std::size_t k = 0; k < size; ++k) lanes_[k] ^= data[k];
}

std::array<std::uint8_t, QuickXorHash::kDigestBytes> QuickXorHash::finish() const {
    std::array<std::uint8_t, kDigestBytes> state{};
    for (std::size_t k = 0; k < kLanes; ++k) {
        const unsigned byte = lanes_[k];
        if (byte == 0) continue;
        const std::size_t shift = (11 * k) % kLanes;
        for (unsigned bit = 0; bit < 8; ++bit) {
            if (((byte >> bit) & 1U) == 0) continue;
            const std::size_t position = (shift + bit) % kLanes;
            state[position / 8] ^= static_cast<std::uint8_t>(1U << (position % 8));
        }
    }
    for (std::size_t i = 0; i < 8; ++i) {
        state[kDigestBytes - 8 + i] ^= static_cast<std::uint8_t>(length_ >> (8 * i));
    }
    return state;
}

}  // namespace vxcloud
