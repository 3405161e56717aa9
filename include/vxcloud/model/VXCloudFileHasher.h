#pragma once
// Content fingerprints computed the way each service fingerprints stored files, so the
// remote `version` of a file can be compared with the local content. Digests are written
// as lower-case hexadecimal, two digits per byte.
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "vxcloud/model/VXCloudService.h"
#include "vxcloud/platform/ByteBuffer.h"

namespace vxcloud {

class VXCloudFileHasher {
public:
    VXCloudFileHasher() = delete;

    // The Dropbox content hash's block size.
    static constexpr std::size_t DROPBOX_BLOCK_SIZE = 4 * 1024 * 1024;

    // The service's digest: MD5 for Google Drive and Evernote, the content hash for
    // Dropbox, SHA-1 for OneNote and Box, SHA-1 and QuickXorHash together for OneDrive
    // (VXCloudOneDriveVersion's text); WebDAV computes none and answers the empty string.
    // Nothing only when the digest routines fail.
    static std::optional<std::string> hash(const ByteBuffer& fileData, VXCloudService cloudService);
    static std::string md5Hash(const ByteBuffer& fileData);
    static std::string sha1Hash(const ByteBuffer& fileData);
    // SHA-256 over the concatenated SHA-256 digests of 4 MiB blocks. Works through the
    // bytes block by block; a mapped document's hashed pages are let go as it goes, so
    // hashing a large file does not keep it all resident.
    static std::optional<std::string> dropboxHash(const ByteBuffer& fileData);
    // OneDrive's QuickXorHash, in the service's form: base64 of its 20 bytes. The only
    // digest OneDrive reports for every kind of drive.
    static std::string quickXorHash(const ByteBuffer& fileData);
    // The raw 32-byte SHA-256 digest.
    static ByteBuffer sha256(const ByteBuffer& data);

    static std::string hexString(std::span<const std::uint8_t> bytes);
};

}  // namespace vxcloud
