#pragma once
// The random values of an OAuth 2 authorisation request: the PKCE code verifier and its
// S256 challenge (RFC 7636), and the state that ties the redirect to the request.
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace vxcloud::auth {

// `length` characters from the unreserved set [A-Za-z0-9-._~], from the system's CSPRNG.
// Empty when no random bytes could be had.
std::string randomUnreserved(std::size_t length);

// A fresh verifier of the maximum length, 128 characters.
std::string makeCodeVerifier();
// BASE64URL(SHA256(verifier)) without padding.
std::string codeChallengeS256(std::string_view verifier);

std::string base64UrlEncode(std::string_view bytes);
// Accepts both alphabets, with or without padding; nothing for anything else.
std::optional<std::string> base64UrlDecode(std::string_view text);

// Compares in time independent of where the texts differ.
bool constantTimeEquals(std::string_view a, std::string_view b);

}  // namespace vxcloud::auth
