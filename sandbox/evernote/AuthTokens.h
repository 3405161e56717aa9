#pragma once
// Evernote's authentication tokens as the service spells them:
//   S=s1:U=4a535ee:E=15430d11503:C=14cd91fe768:P=1cd:A=<consumer key>:V=2:H=<hex>
// (shard, hex user id, hex expiry and creation ms, permissions, the app's consumer key, a
// version and a keyed hash of the rest). The hash tells a token the sandbox issued from a
// made-up one; whether an issued token still works is the token authority's to say.
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace vxcloud::sandbox::evernote {

struct AuthToken {
    std::string shard;  // "s1"
    std::int64_t userId = 0;
    std::int64_t expiresMs = 0;
    std::int64_t createdMs = 0;
    std::string consumerKey;
};

// The token's text, its hash keyed with `secret`.
std::string formatAuthToken(const AuthToken& token, std::string_view secret);

struct ParsedAuthToken {
    enum class Shape { wellFormed, malformed, forged } shape = Shape::malformed;
    AuthToken token;  // when well-formed
};
// `forged`: shaped right, but its hash is not the one `secret` gives.
ParsedAuthToken parseAuthToken(std::string_view text, std::string_view secret);

}  // namespace vxcloud::sandbox::evernote
