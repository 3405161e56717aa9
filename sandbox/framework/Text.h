#pragma once
// Small text helpers shared by the emulators: case folding for path lookups, URL and
// form encoding, base64url, hex, HTML escaping and random identifiers.
#include <cstdint>
#include <map>
#include <string>
#include <string_view>

namespace vxcloud::sandbox {

// Lower-cases ASCII and the common Latin, Greek and Cyrillic capitals in UTF-8 text, the
// way providers compare names case-insensitively. Invalid UTF-8 bytes are kept as they are.
std::string foldCase(std::string_view utf8);
bool equalsFolded(std::string_view a, std::string_view b);
std::string asciiLower(std::string_view text);

std::string urlDecode(std::string_view text, bool plusIsSpace = true);
std::string urlEncode(std::string_view text);
// application/x-www-form-urlencoded; later duplicates win.
std::map<std::string, std::string> parseForm(std::string_view body);

std::string base64UrlEncode(std::string_view bytes, bool pad = false);
std::string base64Encode(std::string_view bytes);  // the standard alphabet, padded
std::string base64Decode(std::string_view text, bool* ok = nullptr);  // standard or url alphabet
std::string hexEncode(std::string_view bytes);
std::string htmlEscape(std::string_view text);

// Appends query parameters to a URL that may already carry a query.
std::string appendQuery(const std::string& url, const std::map<std::string, std::string>& params);

// Thread-safe random helpers (not for real secrets, but unpredictable between runs).
std::string randomToken(std::size_t length);  // [A-Za-z0-9_-]
std::string randomHex(std::size_t length);
// "8-4-4-4-12" hex digits, the shape of request and trace ids.
std::string randomGuid();
std::uint64_t randomNumber();

// The media type a provider derives from a file name's extension (application/octet-stream
// when it knows none).
std::string mimeTypeForName(std::string_view name);

// "%Y-%m-%dT%H:%M:%SZ" in UTC, and its strict parser (-1 when the text does not match).
std::string formatUtc(std::int64_t secondsSinceEpoch);
std::int64_t parseUtc(std::string_view text);
// RFC 3339 ("2024-05-01T09:30:02.123Z", "2024-05-01T09:30:02+02:00", or without a zone,
// which is UTC) in seconds since the epoch; -1 when the text is not such a time.
std::int64_t parseRfc3339(std::string_view text);

}  // namespace vxcloud::sandbox
