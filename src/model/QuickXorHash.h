#pragma once
// OneDrive's QuickXorHash: every byte is XORed into a 160-bit state at bit position
// 11 * offset (mod 160), circularly, and the length is XORed into the last 8 bytes.
//
// Bytes 160 apart land on the same bit position, so the stream is first folded into 160
// byte lanes with plain word-wide XOR (lane k holds the XOR of every byte at an offset of
// k mod 160) and the lanes are rotated into place once, at the end.
#include <array>
#include <cstddef>
#include <cstdint>

namespace vxcloud {

class QuickXorHash {
public:
    static constexpr std::size_t kDigestBytes = 20;

    // Bytes in stream order; may be called any number of times.
    void update(const std::uint8_t* data, std::size_t size);
    std::array<std::uint8_t, kDigestBytes> finish() const;

private:
    static constexpr std::size_t kLanes = 160;
    alignas(8) std::array<std::uint8_t, kLanes> lanes_{};
    std::uint64_t length_ = 0;
};

}  // namespace vxcloud
