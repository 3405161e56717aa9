#include "vxcloud/model/VXCloudWebDAVAccount.h"

#include <array>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <random>

namespace vxcloud {
namespace {

// A random (version 4) UUID in the usual upper-case text form.
std::string makeUUID() {
    std::random_device device;
    std::array<std::uint8_t, 16> bytes{};
    for (std::size_t i = 0; i < bytes.size(); i += 4) {
        const std::uint32_t word = device();
        for (std::size_t j = 0; j < 4; ++j) bytes[i + j] = static_cast<std::uint8_t>(word >> (8 * j));
    }
    bytes[6] = static_cast<std::uint8_t>((bytes[6] & 0x0F) | 0x40);
    bytes[8] = static_cast<std::uint8_t>((bytes[8] & 0x3F) | 0x80);
    static constexpr char kHex[] = "0123456789ABCDEF";
    std::string text;
    text.reserve(36);
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        if (i == 4 || i == 6 || i == 8 || i == 10) text += '-';
        text += kHex[bytes[i] >> 4];
        text += kHex[bytes[i] & 0x0F];
    }
    return text;
}

std::optional<std::string> stringValue(const Json& dictionary, const char* key) {
    auto it = dictionary.find(key);
    if (it != dictionary.end() && it->is_string()) return it->get<std::string>();
    return std::nullopt;
}

}  // namespace

VXCloudWebDAVAccount::VXCloudWebDAVAccount(std::string username, std::string url, std::string port)
    : VXCloudAccount(makeUUID(), username, VXCloudService::webDAV),
      username(std::move(username)), url(std::move(url)), port(std::move(port)) {}

VXCloudWebDAVAccount::VXCloudWebDAVAccount(Unfilled) : VXCloudAccount(Unfilled{}) {}

std::shared_ptr<VXCloudWebDAVAccount> VXCloudWebDAVAccount::initWithDictionary(const Json& dictionary) {
    try {
        if (!dictionary.is_object()) return nullptr;
        auto readUsername = stringValue(dictionary, kAccountNameKey);
        auto readUrl = stringValue(dictionary, kUrlKey);
        auto readPort = stringValue(dictionary, kPortKey);
        if (!readUsername || !readUrl || !readPort) return nullptr;

        std::shared_ptr<VXCloudWebDAVAccount> account(new VXCloudWebDAVAccount(Unfilled{}));
        account->username = std::move(*readUsername);
        account->url = std::move(*readUrl);
        account->port = std::move(*readPort);
        account->label = stringValue(dictionary, kLabelKey);
        return account->readDictionary(dictionary) ? account : nullptr;
    } catch (...) {
        return nullptr;
    }
}

Json VXCloudWebDAVAccount::toDict() const {
    Json dictionary = VXCloudAccount::toDict();
    dictionary[kAccountNameKey] = username;
    dictionary[kUrlKey] = url;
    dictionary[kPortKey] = port;
    if (label) dictionary[kLabelKey] = *label;
    return dictionary;
}

}  // namespace vxcloud
