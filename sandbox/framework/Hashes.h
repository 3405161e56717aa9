#pragma once
// Digests the emulators report for stored bytes, computed here independently of the
// client library so that a client bug in hashing shows up as a mismatch.
#include <string>
#include <string_view>

namespace vxcloud::sandbox {

std::string sha256Raw(std::string_view bytes);
std::string sha256Hex(std::string_view bytes);
std::string sha1Hex(std::string_view bytes);
std::string md5Hex(std::string_view bytes);
std::string md5Raw(std::string_view bytes);
// HMAC-SHA1 of `message` under `key`, raw (OAuth 1.0a signatures).
std::string hmacSha1Raw(std::string_view key, std::string_view message);

}  // namespace vxcloud::sandbox
