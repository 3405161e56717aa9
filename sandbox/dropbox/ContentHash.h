#pragma once
// Dropbox's content_hash of stored bytes, computed here independently of the client so
// that a client bug in hashing shows up as a mismatch.
#include <string>
#include <string_view>

namespace vxcloud::sandbox::dropbox {

// SHA-256 over the concatenated SHA-256 digests of the 4 MiB blocks, in hex.
std::string dropboxContentHash(std::string_view bytes);

}  // namespace vxcloud::sandbox::dropbox
