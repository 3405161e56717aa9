#include "dropbox/ContentHash.h"

#include "framework/Hashes.h"

namespace vxcloud::sandbox::dropbox {

std::string dropboxContentHash(std::string_view bytes) {
    constexpr std::size_t blockSize = 4 * 1024 * 1024;
    std::string blockDigests;
    for (std::size_t offset = 0; offset < bytes.size(); offset += blockSize) {
        blockDigests += sha256Raw(bytes.substr(offset, blockSize));
    }
    return sha256Hex(blockDigests);
}

}  // namespace vxcloud::sandbox::dropbox
