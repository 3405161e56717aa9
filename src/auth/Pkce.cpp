#include "auth/Pkce.h"

#include <openssl/evp.h>
#include <openssl/rand.h>

#include <array>

namespace vxcloud::auth {
namespace {

constexpr std::string_view kUnreserved =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-._~";
constexpr std::string_view kBase64Url =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";

int base64Value(char c) {
    if (c >= 'A' && c <= 'Z') return c - 'A';
    if (c >= 'a' && c <= 'z') return c - 'a' + 26;
    if (c >= '0' && c <= '9') return c - '0' + 52;
    if (c == '-' || c == '+') return 62;
    if (c == '_' || c == '/') return 63;
    return -1;
}

}  // namespace

std::string randomUnreserved(std::size_t length) {
    std::string out;
    out.reserve(length);
    // Rejection sampling keeps every character equally likely (66 symbols, 256 byte values).
    constexpr unsigned kLimit = 256 - 256 % kUnreserved.size();
    std::array<unsigned char, 64> pool{};
    while (out.size() < length) {
        if (RAND_bytes(pool.data(), static_cast<int>(pool.size())) != 1) return {};
        for (unsigned char byte : pool) {
            if (byte >= kLimit) continue;
            out.push_back(kUnreserved[byte % kUnreserved.size()]);
            if (out.size() == length) break;
        }
    }
    return out;
}

std::string makeCodeVerifier() { return randomUnreserved(128); }

std::string codeChallengeS256(std::string_view verifier) {
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
    unsigned int size = 0;
    if (EVP_Digest(verifier.data(), verifier.size(), digest.data(), &size, EVP_sha256(), nullptr) != 1) {
        return {};
    }
    return base64UrlEncode(std::string_view(reinterpret_cast<const char*>(digest.data()), size));
}

std::string base64UrlEncode(std::string_view bytes) {
    std::string out;
    out.reserve((bytes.size() + 2) / 3 * 4);
    std::size_t i = 0;
    const auto byteAt = [&](std::size_t k) { return static_cast<unsigned char>(bytes[k]); };
    for (; i + 2 < bytes.size(); i += 3) {
        const unsigned v = (byteAt(i) << 16) | (byteAt(i + 1) << 8) | byteAt(i + 2);
        out.push_back(kBase64Url[(v >> 18) & 63]);
        out.push_back(kBase64Url[(v >> 12) & 63]);
        out.push_back(kBase64Url[(v >> 6) & 63]);
        out.push_back(kBase64Url[v & 63]);
    }
    const std::size_t rest = bytes.size() - i;
    if (rest == 1) {
        const unsigned v = byteAt(i) << 16;
        out.push_back(kBase64Url[(v >> 18) & 63]);
        out.push_back(kBase64Url[(v >> 12) & 63]);
    } else if (rest == 2) {
        const unsigned v = (byteAt(i) << 16) | (byteAt(i + 1) << 8);
        out.push_back(kBase64Url[(v >> 18) & 63]);
        out.push_back(kBase64Url[(v >> 12) & 63]);
        out.push_back(kBase64Url[(v >> 6) & 63]);
    }
    return out;
}

std::optional<std::string> base64UrlDecode(std::string_view text) {
    while (!text.empty() && text.back() == '=') text.remove_suffix(1);
    if (text.size() % 4 == 1) return std::nullopt;
    std::string out;
    out.reserve(text.size() * 3 / 4);
    unsigned buffer = 0;
    int bits = 0;
    for (char c : text) {
        const int value = base64Value(c);
        if (value < 0) return std::nullopt;
        buffer = (buffer << 6) | static_cast<unsigned>(value);
        bits += 6;
        if (bits >= 8) {
            bits -= 8;
            out.push_back(static_cast<char>((buffer >> bits) & 0xFF));
        }
    }
    return out;
}

bool constantTimeEquals(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) return false;
    unsigned char diff = 0;
    for (std::size_t i = 0; i < a.size(); ++i) {
        diff |= static_cast<unsigned char>(a[i] ^ b[i]);
    }
    return diff == 0;
}

}  // namespace vxcloud::auth
