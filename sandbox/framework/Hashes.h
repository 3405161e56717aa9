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

}  // namespace vxcloud::sandbox
