#include "vxcloud/model/VXCloudAccount.h"

#include <nlohmann/json.hpp>

#include "vxcloud/engine/VXCloudSessionFactory.h"
#include "vxcloud/model/VXCloudUserDefaults.h"
#include "vxcloud/platform/ResourceBundle.h"

namespace vxcloud {
namespace {

const Json* member(const Json& dictionary, const char* key) {
    auto it = dictionary.find(key);
    return it == dictionary.end() ? nullptr : &*it;
}

std::optional<std::string> stringValue(const Json& dictionary, const char* key) {
    const Json* value = member(dictionary, key);
    if (value && value->is_string()) return value->get<std::string>();
    return std::nullopt;
}

std::optional<bool> boolValue(const Json& dictionary, const char* key) {
    const Json* value = member(dictionary, key);
    if (value && value->is_boolean()) return value->get<bool>();
    return std::nullopt;
}

// Integers only: "1", 1.0 and true are not service numbers.
std::optional<VXCloudService> serviceValue(const Json& dictionary, const char* key) {
    const Json* value = member(dictionary, key);
    if (!value || !value->is_number_integer()) return std::nullopt;
    if (value->is_number_unsigned()) {
        const auto raw = value->get<unsigned long long>();
        return raw > 6 ? std::nullopt : cloudServiceFromRawValue(static_cast<long long>(raw));
    }
    return cloudServiceFromRawValue(value->get<long long>());
}

}  // namespace

VXCloudAccount::VXCloudAccount(std::string userId, std::string email, VXCloudService cloudService)
    : userId(std::move(userId)), email(std::move(email)), displayName(this->email),
      cloudService(cloudService) {}

VXCloudAccount::VXCloudAccount(Unfilled) : cloudService(VXCloudService::googleDrive) {}

VXCloudAccount::~VXCloudAccount() = default;

bool VXCloudAccount::readDictionary(const Json& dictionary) {
    shouldAutoUpload = false;
    onlyWifiUpload = true;
    uploadFolderInfo.reset();
    error.reset();
    if (!dictionary.is_object()) return false;

    auto readUserId = stringValue(dictionary, kUserIdKey);
    if (!readUserId) return false;
    auto readEmail = stringValue(dictionary, kAccountNameKey);
    if (!readEmail) return false;
    auto readService = serviceValue(dictionary, kCloudServiceKey);
    if (!readService) return false;

    userId = std::move(*readUserId);
    email = std::move(*readEmail);
    cloudService = *readService;
    displayName = stringValue(dictionary, kDisplayNameKey).value_or(email);
    if (const Json* folder = member(dictionary, kUploadFolderInfoKey); folder && folder->is_object())
        uploadFolderInfo = *folder;
    if (auto wifi = boolValue(dictionary, kOnlyWifiKey)) onlyWifiUpload = *wifi;
    if (auto autoUpload = boolValue(dictionary, kShouldAutoUploadKey)) shouldAutoUpload = *autoUpload;
    if (auto word = stringValue(dictionary, kErrorKey)) {
        if (auto code = VXCloudError::fromString(*word)) error = std::make_shared<VXCloudError>(*code);
    }
    return true;
}

std::shared_ptr<VXCloudAccount> VXCloudAccount::initWithDictionary(const Json& dictionary) {
    try {
        std::shared_ptr<VXCloudAccount> account(new VXCloudAccount(Unfilled{}));
        return account->readDictionary(dictionary) ? account : nullptr;
    } catch (...) {
        return nullptr;
    }
}

std::shared_ptr<VXCloudAccount> VXCloudAccount::initWithEmail(const std::string& email,
                                                              const std::string& serviceType) {
    try {
        const auto service = cloudServiceFromType(serviceType);
        if (!service) return nullptr;
        const auto stored = VXCloudUserDefaults::loadAccounts({*service});
        if (!stored) return nullptr;
        // The stored list also carries every WebDAV account (the store never filters
        // them out), so a WebDAV account with this email can answer for another service.
        for (const auto& candidate : *stored) {
            if (candidate->email != email) continue;
            auto account = std::make_shared<VXCloudAccount>(candidate->userId, candidate->email,
                                                            candidate->cloudService);
            account->displayName = candidate->displayName;
            account->uploadFolderInfo = candidate->uploadFolderInfo;
            account->error = candidate->error;
            account->shouldAutoUpload = candidate->shouldAutoUpload;
            // onlyWifiUpload deliberately keeps its default (true).
            return account;
        }
        return nullptr;
    } catch (...) {
        return nullptr;
    }
}

Json VXCloudAccount::toDict() const {
    Json dictionary = Json::object();
    dictionary[kUserIdKey] = userId;
    dictionary[kAccountNameKey] = email;
    dictionary[kDisplayNameKey] = displayName;
    dictionary[kCloudServiceKey] = rawValue(cloudService);
    if (uploadFolderInfo) dictionary[kUploadFolderInfoKey] = *uploadFolderInfo;
    dictionary[kOnlyWifiKey] = onlyWifiUpload;
    dictionary[kShouldAutoUploadKey] = shouldAutoUpload;
    if (error) dictionary[kErrorKey] = error->getErrorCode();
    return dictionary;
}

std::string VXCloudAccount::key() const { return std::string(keyPrefix(cloudService)) + userId; }

std::string VXCloudAccount::accountType() const { return std::string(vxcloud::accountType(cloudService)); }

std::optional<std::string> VXCloudAccount::accountIcon() const {
    const ResourceBundle* bundle = ResourceBundle::vxcloud();
    if (!bundle) return std::nullopt;
    return bundle->imagePath(std::string(accountIconName(cloudService)));
}

std::shared_ptr<VXCloudSession> VXCloudAccount::sessionForAccount() {
    if (cloudService == VXCloudService::webDAV) return nullptr;
    // initCloudSession never throws, and makes sessions before anything else of the
    // component has run (a settings screen unlinking an account, say).
    auto self = weak_from_this().lock();
    return self ? initCloudSession(self) : nullptr;
}

}  // namespace vxcloud
