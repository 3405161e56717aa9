#include "framework/Hashes.h"

#include <openssl/evp.h>
#include <openssl/hmac.h>

#include <memory>

#include "framework/Text.h"

namespace vxcloud::sandbox {
namespace {

std::string digest(const EVP_MD* md, std::string_view bytes) {
    std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> ctx(EVP_MD_CTX_new(), EVP_MD_CTX_free);
    unsigned char out[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    if (!ctx || EVP_DigestInit_ex(ctx.get(), md, nullptr) != 1 ||
        EVP_DigestUpdate(ctx.get(), bytes.data(), bytes.size()) != 1 ||
        EVP_DigestFinal_ex(ctx.get(), out, &length) != 1) {
        return {};
    }
    return std::string(reinterpret_cast<const char*>(out), length);
}

}  // namespace

std::string sha256Raw(std::string_view bytes) { return digest(EVP_sha256(), bytes); }
std::string sha256Hex(std::string_view bytes) { return hexEncode(sha256Raw(bytes)); }
std::string sha1Hex(std::string_view bytes) { return hexEncode(digest(EVP_sha1(), bytes)); }
std::string md5Hex(std::string_view bytes) { return hexEncode(digest(EVP_md5(), bytes)); }
std::string md5Raw(std::string_view bytes) { return digest(EVP_md5(), bytes); }

std::string hmacSha1Raw(std::string_view key, std::string_view message) {
    unsigned char out[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    if (!HMAC(EVP_sha1(), key.data(), static_cast<int>(key.size()), reinterpret_cast<const unsigned char*>(message.data()),
              message.size(), out, &length)) {
        return {};
    }
    return std::string(reinterpret_cast<const char*>(out), length);
}

}  // namespace vxcloud::sandbox
