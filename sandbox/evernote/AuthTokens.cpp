#include "evernote/AuthTokens.h"

#include <vector>

#include "framework/Hashes.h"
#include "framework/Text.h"

namespace vxcloud::sandbox::evernote {
namespace {

std::string hex(std::int64_t value) {
    static const char* digits = "0123456789abcdef";
    if (value <= 0) return "0";
    std::string out;
    for (auto v = static_cast<std::uint64_t>(value); v; v >>= 4) out.insert(out.begin(), digits[v & 15]);
    return out;
}

std::optional<std::int64_t> fromHex(std::string_view text) {
    if (text.empty() || text.size() > 15) return std::nullopt;
    std::int64_t value = 0;
    for (const char c : text) {
        const int digit = c >= '0' && c <= '9' ? c - '0' : c >= 'a' && c <= 'f' ? c - 'a' + 10 : -1;
        if (digit < 0) return std::nullopt;
        value = value * 16 + digit;
    }
    return value;
}

std::string unsignedPart(const AuthToken& token) {
    return "S=" + token.shard + ":U=" + hex(token.userId) + ":E=" + hex(token.expiresMs) +
           ":C=" + hex(token.createdMs) + ":P=1cd:A=" + token.consumerKey + ":V=2";
}

std::string keyedHash(std::string_view secret, std::string_view text) {
    return hexEncode(hmacSha1Raw(secret, text)).substr(0, 32);
}

}  // namespace

std::string formatAuthToken(const AuthToken& token, std::string_view secret) {
    const std::string body = unsignedPart(token);
    return body + ":H=" + keyedHash(secret, body);
}

ParsedAuthToken parseAuthToken(std::string_view text, std::string_view secret) {
    ParsedAuthToken out;
    static const char* const keys[] = {"S", "U", "E", "C", "P", "A", "V", "H"};
    std::vector<std::string_view> values;
    std::size_t pos = 0;
    for (const char* key : keys) {
        const std::string prefix = std::string(key) + "=";
        if (text.compare(pos, prefix.size(), prefix) != 0) return out;
        pos += prefix.size();
        const auto colon = text.find(':', pos);
        const bool last = std::string_view(key) == "H";
        if (last != (colon == std::string_view::npos)) return out;
        values.push_back(text.substr(pos, last ? std::string_view::npos : colon - pos));
        pos = last ? text.size() : colon + 1;
    }
    const auto user = fromHex(values[1]), expires = fromHex(values[2]), created = fromHex(values[3]);
    if (values[0].empty() || !user || !expires || !created || values[4] != "1cd" || values[6] != "2" ||
        values[7].size() != 32) {
        return out;
    }
    out.token = AuthToken{std::string(values[0]), *user, *expires, *created, std::string(values[5])};
    const std::string_view signedPart = text.substr(0, text.rfind(":H="));
    out.shape = keyedHash(secret, signedPart) == values[7] ? ParsedAuthToken::Shape::wellFormed
                                                           : ParsedAuthToken::Shape::forged;
    return out;
}

}  // namespace vxcloud::sandbox::evernote
