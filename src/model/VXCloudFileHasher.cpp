#include "vxcloud/model/VXCloudFileHasher.h"

#include <openssl/evp.h>

#include <algorithm>
#include <array>
#include <memory>
#include <string>
#include <vector>

#include "model/QuickXorHash.h"
#include "vxcloud/model/VXCloudOneDriveVersion.h"

namespace vxcloud {
namespace {

using Digest = std::array<std::uint8_t, EVP_MAX_MD_SIZE>;

struct ContextDeleter {
    void operator()(EVP_MD_CTX* context) const noexcept { EVP_MD_CTX_free(context); }
};
using Context = std::unique_ptr<EVP_MD_CTX, ContextDeleter>;

// Feeds bytes [offset, offset + length) of the buffer to `update`. A mapped document is
// read from its file a piece at a time into one reused buffer: faulting the mapping's
// pages in costs about as much as hashing them, and reading keeps the hasher's memory at
// one piece whatever the document's size. False as soon as a read or `update` fails.
template <typename Update>
bool feedRange(const ByteBuffer& buffer, std::size_t offset, std::size_t length, Update& update) {
    if (!buffer.isMapped()) return length == 0 || update(buffer.data() + offset, length);
    constexpr std::size_t kPiece = 1024 * 1024;
    std::vector<std::uint8_t> piece(std::min(kPiece, length));
    for (std::size_t done = 0; done < length;) {
        const std::size_t size = std::min(kPiece, length - done);
        if (!buffer.copyOut(offset + done, size, piece.data()) || !update(piece.data(), size)) return false;
        done += size;
    }
    return true;
}

// Feeds the buffer block by block: `begin` before each block of `blockSize` bytes (the
// last may be shorter; an empty buffer has none), `update` with its bytes, `end` after.
template <typename Begin, typename Update, typename End>
bool forEachBlock(const ByteBuffer& buffer, std::size_t blockSize, Begin&& begin, Update&& update,
                  End&& end) {
    for (std::size_t offset = 0; offset < buffer.size(); offset += blockSize) {
        const std::size_t length = std::min(blockSize, buffer.size() - offset);
        if (!begin() || !feedRange(buffer, offset, length, update) || !end()) return false;
    }
    return true;
}

// One digest over all bytes; the digest's size, or 0 when the digest routines fail.
unsigned digestOf(const EVP_MD* md, const ByteBuffer& data, Digest& out) {
    Context context(EVP_MD_CTX_new());
    if (!context || EVP_DigestInit_ex(context.get(), md, nullptr) != 1) return 0;
    auto update = [&](const std::uint8_t* bytes, std::size_t length) {
        return EVP_DigestUpdate(context.get(), bytes, length) == 1;
    };
    unsigned size = 0;
    if (!feedRange(data, 0, data.size(), update) ||
        EVP_DigestFinal_ex(context.get(), out.data(), &size) != 1)
        return 0;
    return size;
}

std::optional<std::string> hexDigestOf(const EVP_MD* md, const ByteBuffer& data) {
    Digest digest{};
    const unsigned size = digestOf(md, data, digest);
    if (size == 0) return std::nullopt;
    return VXCloudFileHasher::hexString({digest.data(), size});
}

}  // namespace

std::string VXCloudFileHasher::hexString(std::span<const std::uint8_t> bytes) {
    static constexpr char kHex[] = "0123456789abcdef";
    std::string text;
    text.reserve(bytes.size() * 2);
    for (std::uint8_t byte : bytes) {
        text += kHex[byte >> 4];
        text += kHex[byte & 0x0F];
    }
    return text;
}

std::optional<std::string> VXCloudFileHasher::hash(const ByteBuffer& fileData,
                                                   VXCloudService cloudService) {
    switch (cloudService) {
        case VXCloudService::googleDrive:
        case VXCloudService::evernote: return hexDigestOf(EVP_md5(), fileData);
        case VXCloudService::dropbox: return dropboxHash(fileData);
        case VXCloudService::oneDrive: {
            auto sha1 = hexDigestOf(EVP_sha1(), fileData);
            if (!sha1) return std::nullopt;
            return VXCloudOneDriveVersion{std::move(*sha1), quickXorHash(fileData)}.text();
        }
        case VXCloudService::oneNote:
        case VXCloudService::box: return hexDigestOf(EVP_sha1(), fileData);
        case VXCloudService::webDAV: return std::string();
    }
    return std::nullopt;
}

std::string VXCloudFileHasher::md5Hash(const ByteBuffer& fileData) {
    return hexDigestOf(EVP_md5(), fileData).value_or(std::string());
}

std::string VXCloudFileHasher::sha1Hash(const ByteBuffer& fileData) {
    return hexDigestOf(EVP_sha1(), fileData).value_or(std::string());
}

std::optional<std::string> VXCloudFileHasher::dropboxHash(const ByteBuffer& fileData) {
    // Hashed straight from the buffer's own bytes, one block at a time: only the 32-byte
    // block digests are kept, never a second copy of the content.
    const EVP_MD* sha256 = EVP_sha256();
    Context block(EVP_MD_CTX_new());
    Context overall(EVP_MD_CTX_new());
    if (!block || !overall || EVP_DigestInit_ex(overall.get(), sha256, nullptr) != 1)
        return std::nullopt;
    const bool fed = forEachBlock(
        fileData, DROPBOX_BLOCK_SIZE,
        [&] { return EVP_DigestInit_ex(block.get(), sha256, nullptr) == 1; },
        [&](const std::uint8_t* bytes, std::size_t length) {
            return EVP_DigestUpdate(block.get(), bytes, length) == 1;
        },
        [&] {
            std::array<std::uint8_t, 32> digest{};
            unsigned size = 0;
            return EVP_DigestFinal_ex(block.get(), digest.data(), &size) == 1 &&
                   EVP_DigestUpdate(overall.get(), digest.data(), size) == 1;
        });
    Digest result{};
    unsigned size = 0;
    if (!fed || EVP_DigestFinal_ex(overall.get(), result.data(), &size) != 1) return std::nullopt;
    return hexString({result.data(), size});
}

std::string VXCloudFileHasher::quickXorHash(const ByteBuffer& fileData) {
    QuickXorHash hash;
    auto update = [&](const std::uint8_t* bytes, std::size_t length) {
        hash.update(bytes, length);
        return true;
    };
    feedRange(fileData, 0, fileData.size(), update);
    const auto digest = hash.finish();
    // 20 bytes make 28 base64 characters, and EVP_EncodeBlock adds a terminating NUL.
    std::array<unsigned char, 29> text{};
    const int length = EVP_EncodeBlock(text.data(), digest.data(), static_cast<int>(digest.size()));
    return std::string(reinterpret_cast<const char*>(text.data()), static_cast<std::size_t>(length));
}

ByteBuffer VXCloudFileHasher::sha256(const ByteBuffer& data) {
    Digest digest{};
    const unsigned size = digestOf(EVP_sha256(), data, digest);
    return ByteBuffer::copyOf(std::span<const std::uint8_t>(digest.data(), size));
}

}  // namespace vxcloud
