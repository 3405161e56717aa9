#include <gtest/gtest.h>

#include <openssl/evp.h>
#include <unistd.h>

#include <cctype>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <random>

#include "vxcloud/model/VXCloudFileHasher.h"
#include "vxcloud/model/VXCloudOneDriveVersion.h"

namespace vxcloud {
namespace {

constexpr std::size_t kBlock = VXCloudFileHasher::DROPBOX_BLOCK_SIZE;

ByteBuffer zeros(std::size_t size) { return ByteBuffer::adopt(std::vector<std::uint8_t>(size)); }

std::vector<std::uint8_t> randomBytes(std::size_t size) {
    std::mt19937 random(1234);
    std::vector<std::uint8_t> bytes(size);
    for (auto& byte : bytes) byte = static_cast<std::uint8_t>(random());
    return bytes;
}

// Dropbox's content hash written out the long way, to compare against.
std::string referenceDropboxHash(const ByteBuffer& data) {
    std::string digests;
    for (std::size_t offset = 0; offset < data.size(); offset += kBlock) {
        const auto block = data.slice(offset, std::min(kBlock, data.size() - offset));
        digests += VXCloudFileHasher::sha256(block).toString();
    }
    const auto digest = VXCloudFileHasher::sha256(ByteBuffer::copyOf(digests));
    return VXCloudFileHasher::hexString(digest.span());
}

TEST(FileHasher, KnownDigests) {
    const ByteBuffer empty;
    EXPECT_EQ(VXCloudFileHasher::md5Hash(empty), "d41d8cd98f00b204e9800998ecf8427e");
    EXPECT_EQ(VXCloudFileHasher::sha1Hash(empty), "da39a3ee5e6b4b0d3255bfef95601890afd80709");
    EXPECT_EQ(VXCloudFileHasher::dropboxHash(empty),
              "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");

    const auto abc = ByteBuffer::copyOf(std::string_view("abc"));
    EXPECT_EQ(VXCloudFileHasher::md5Hash(abc), "900150983cd24fb0d6963f7d28e17f72");
    EXPECT_EQ(VXCloudFileHasher::sha1Hash(abc), "a9993e364706816aba3e25717850c26c9cd0d89d");
    const ByteBuffer sha = VXCloudFileHasher::sha256(abc);
    ASSERT_EQ(sha.size(), 32u);
    EXPECT_EQ(VXCloudFileHasher::hexString(sha.span()),
              "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");

    EXPECT_EQ(VXCloudFileHasher::dropboxHash(ByteBuffer::copyOf(std::string_view("hello world"))),
              "bc62d4b80d9e36da29c16c5d4d9f11731f36052c72401a76c23c0fb5a9b74423");
    const std::uint8_t bytes[] = {0x0A, 0xFF, 0x00};
    EXPECT_EQ(VXCloudFileHasher::hexString(bytes), "0aff00");
}

TEST(FileHasher, DropboxBlockBoundaries) {
    // Exactly one block: the hash of that block's digest alone.
    EXPECT_EQ(VXCloudFileHasher::dropboxHash(zeros(kBlock)),
              "c7e946d101855255d919ef0c70718633adf77d3dfb3adeeecf5d0cb4e951be58");
    // One byte more: a second block over the single last byte.
    EXPECT_EQ(VXCloudFileHasher::dropboxHash(zeros(kBlock + 1)),
              "14a4d47f23a30177885d9820122f17d2d3a55fe63f7f5c27b95f689e0b2accd6");
    const auto data = ByteBuffer::adopt(randomBytes(2 * kBlock + 12345));
    EXPECT_EQ(VXCloudFileHasher::dropboxHash(data), referenceDropboxHash(data));
}

// The bit-by-bit definition, to check the folded implementation against.
std::string referenceQuickXor(const std::vector<std::uint8_t>& bytes) {
    std::array<std::uint8_t, 20> state{};
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        for (unsigned bit = 0; bit < 8; ++bit) {
            if (((bytes[i] >> bit) & 1U) == 0) continue;
            const std::size_t position = (11 * i + bit) % 160;
            state[position / 8] ^= static_cast<std::uint8_t>(1U << (position % 8));
        }
    }
    const std::uint64_t length = bytes.size();
    for (std::size_t i = 0; i < 8; ++i) state[12 + i] ^= static_cast<std::uint8_t>(length >> (8 * i));
    return VXCloudFileHasher::hexString(state);
}

std::string quickXorHex(const ByteBuffer& data) {
    // Back from base64 to compare with the reference in hex.
    const std::string text = VXCloudFileHasher::quickXorHash(data);
    std::vector<std::uint8_t> raw(21);
    const int n = EVP_DecodeBlock(raw.data(), reinterpret_cast<const unsigned char*>(text.data()),
                                  static_cast<int>(text.size()));
    if (n != 21) return "bad base64: " + text;
    raw.resize(20);
    return VXCloudFileHasher::hexString(raw);
}

TEST(FileHasher, QuickXorHashVectorsAndFolding) {
    const std::pair<std::string, std::string> vectors[] = {
        {"", "AAAAAAAAAAAAAAAAAAAAAAAAAAA="},
        {"J", "SgAAAAAAAAAAAAAAAQAAAAAAAAA="},
        {"\xb5\xb4", "taAFAAAAAAAAAAAAAgAAAAAAAAA="},
        {"quick_xor_hash_text_of_some_sort", "x26n1MWtON/m0nET1m1ygSm5BPs="},
        {"a", "YQAAAAAAAAAAAAAAAQAAAAAAAAA="},
        {"abc", "YRDDGAAAAAAAAAAAAwAAAAAAAAA="},
        {"Hello, World!", "SCgDG9jwBhaA4ApvnQMbyBACAAA="},
        {"The quick brown fox jumps over the lazy dog", "bMSlbysmxJL6S75XwfMcQZOpcr4="},
    };
    for (const auto& [input, digest] : vectors) {
        EXPECT_EQ(VXCloudFileHasher::quickXorHash(ByteBuffer::copyOf(std::string_view(input))), digest) << input;
    }

    // Lengths around the 160-byte rows, and a stream fed in uneven pieces (a mapped file
    // is hashed piece by piece), agree with the bit-by-bit definition.
    const auto bytes = randomBytes(3 * 1024 * 1024 + 321);
    for (std::size_t size : {159u, 160u, 161u, 320u, 1000u, 4096u + 7u}) {
        const std::vector<std::uint8_t> head(bytes.begin(), bytes.begin() + static_cast<long>(size));
        EXPECT_EQ(quickXorHex(ByteBuffer::copyOf(std::span<const std::uint8_t>(head))), referenceQuickXor(head))
            << size;
    }
    char pattern[] = "/tmp/vxcloud-quickxor-XXXXXX";
    const int fd = mkstemp(pattern);
    ASSERT_GE(fd, 0);
    ASSERT_EQ(write(fd, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    close(fd);
    auto mapped = ByteBuffer::mapFile(pattern);
    ASSERT_TRUE(mapped);
    EXPECT_EQ(quickXorHex(*mapped), referenceQuickXor(bytes));
    std::filesystem::remove(pattern);
}

TEST(FileHasher, PerServiceChoice) {
    const auto data = ByteBuffer::copyOf(std::string_view("%PDF-1.4 scan"));
    const std::string md5 = VXCloudFileHasher::md5Hash(data);
    const std::string sha1 = VXCloudFileHasher::sha1Hash(data);
    EXPECT_EQ(VXCloudFileHasher::hash(data, VXCloudService::googleDrive), md5);
    EXPECT_EQ(VXCloudFileHasher::hash(data, VXCloudService::evernote), md5);
    EXPECT_EQ(VXCloudFileHasher::hash(data, VXCloudService::dropbox), VXCloudFileHasher::dropboxHash(data));
    EXPECT_EQ(VXCloudFileHasher::hash(data, VXCloudService::oneDrive),
              "sha1Hash:" + sha1 + ";quickXorHash:" + VXCloudFileHasher::quickXorHash(data));
    EXPECT_EQ(VXCloudFileHasher::hash(data, VXCloudService::oneNote), sha1);
    EXPECT_EQ(VXCloudFileHasher::hash(data, VXCloudService::box), sha1);
    // WebDAV: the empty string, not "no value".
    EXPECT_EQ(VXCloudFileHasher::hash(data, VXCloudService::webDAV), std::optional<std::string>(""));
    EXPECT_EQ(md5.size(), 32u);
    EXPECT_EQ(sha1.size(), 40u);
    EXPECT_EQ(VXCloudFileHasher::dropboxHash(data)->size(), 64u);
}

TEST(FileHasher, MappedFileHashesLikeMemoryAndStaysReadable) {
    const auto bytes = randomBytes(2 * kBlock + 777);
    char pattern[] = "/tmp/vxcloud-hasher-XXXXXX";
    const int fd = mkstemp(pattern);
    ASSERT_GE(fd, 0);
    close(fd);
    const std::string path = pattern;
    {
        std::ofstream out(path, std::ios::binary);
        out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    }
    const auto memory = ByteBuffer::copyOf(std::span<const std::uint8_t>(bytes));
    {
        auto mapped = ByteBuffer::mapFile(path);
        ASSERT_TRUE(mapped);
        EXPECT_EQ(VXCloudFileHasher::dropboxHash(*mapped), VXCloudFileHasher::dropboxHash(memory));
        EXPECT_EQ(VXCloudFileHasher::md5Hash(*mapped), VXCloudFileHasher::md5Hash(memory));
        EXPECT_EQ(VXCloudFileHasher::sha1Hash(*mapped), VXCloudFileHasher::sha1Hash(memory));
        // A slice that starts and ends inside pages.
        const auto slice = mapped->slice(4097, kBlock + 3);
        EXPECT_EQ(VXCloudFileHasher::dropboxHash(slice),
                  VXCloudFileHasher::dropboxHash(memory.slice(4097, kBlock + 3)));
        // Hashing lets go of pages only; the content is still all there afterwards.
        EXPECT_TRUE(*mapped == memory);
    }
    std::filesystem::remove(path);
}


static std::string upperCaseHex(std::string text) {
    for (char& c : text) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return text;
}
TEST(OneDriveVersion, HoldsBothDigestsAndMatchesWhicheverTheDriveReports) {
    const auto data = ByteBuffer::copyOf(std::string_view("%PDF-1.4 scan"));
    const std::string sha1 = VXCloudFileHasher::sha1Hash(data);
    const std::string quickXor = VXCloudFileHasher::quickXorHash(data);
    const auto local = VXCloudOneDriveVersion::parse(*VXCloudFileHasher::hash(data, VXCloudService::oneDrive));
    EXPECT_EQ(local.sha1Hash, sha1);
    EXPECT_EQ(local.quickXorHash, quickXor);
    EXPECT_TRUE(local.matches(sha1));
    EXPECT_TRUE(local.matches(upperCaseHex(sha1))) << "SHA-1 is hex: letter case does not matter";
    EXPECT_TRUE(local.matches(quickXor));
    EXPECT_FALSE(local.matches(upperCaseHex(quickXor) == quickXor ? "x" : upperCaseHex(quickXor)))
        << "base64 is case-sensitive";
    EXPECT_FALSE(local.matches(""));
    EXPECT_FALSE(local.matches(VXCloudFileHasher::sha1Hash(ByteBuffer::copyOf(std::string_view("other")))));

    // A bare digest, as recorded before both were kept, is read for what it looks like.
    EXPECT_EQ(VXCloudOneDriveVersion::parse(upperCaseHex(sha1)).sha1Hash, sha1);
    EXPECT_EQ(VXCloudOneDriveVersion::parse(quickXor).quickXorHash, quickXor);
    EXPECT_TRUE(VXCloudOneDriveVersion::parse("").empty());
    EXPECT_FALSE(VXCloudOneDriveVersion::parse("").matches(""));
    // Only the known digest is written; what cannot be read leaves nothing known.
    EXPECT_EQ((VXCloudOneDriveVersion{"", quickXor}.text()), "quickXorHash:" + quickXor);
    EXPECT_TRUE(VXCloudOneDriveVersion::parse("size:12;etag:abc").empty());
}

}  // namespace
}  // namespace vxcloud
