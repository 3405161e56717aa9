#include "vxcloud/model/VXCloudUserDefaults.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "vxcloud/model/VXCloudWebDAVAccount.h"
#include "vxcloud/platform/Log.h"
#include "vxcloud/platform/PreferencesStore.h"

namespace vxcloud {
namespace {

constexpr const char* kLogCategory = "accounts";

bool isWebDAVEntry(const Json& entry) {
    auto raw = entry.find(VXCloudAccount::kCloudServiceKey);
    return raw != entry.end() && raw->is_number_integer() &&
           raw->get<long long>() == rawValue(VXCloudService::webDAV);
}

// The account an entry's dictionary makes, of its own class; null when it makes none.
std::shared_ptr<VXCloudAccount> accountFrom(const Json& value) {
    if (!value.is_object()) return nullptr;
    if (isWebDAVEntry(value)) return VXCloudWebDAVAccount::initWithDictionary(value);
    return VXCloudAccount::initWithDictionary(value);
}

bool update(const std::function<void(JsonBox&)>& change) {
    try {
        if (PreferencesStore::standard()->update(VXCloudUserDefaults::kAccountsKey, change))
            return true;
        log::error(kLogCategory, "the accounts could not be written to the preferences file");
    } catch (const std::exception& e) {
        log::error(kLogCategory, std::string("the accounts could not be written: ") + e.what());
    }
    return false;
}

}  // namespace

bool VXCloudUserDefaults::saveCloudAccount(const VXCloudAccount& account) {
    Json dictionary;
    try {
        dictionary = account.toDict();
    } catch (...) {
        return false;
    }
    const std::string key = account.key();
    return update([&](JsonBox& entry) {
        if (entry && entry->is_object()) {
            (*entry)[key] = dictionary;
        } else {
            entry = Json::object({{key, dictionary}});
        }
    });
}

std::shared_ptr<VXCloudAccount> VXCloudUserDefaults::updateCloudAccount(
    const std::string& key, const std::function<void(VXCloudAccount&)>& change) {
    std::shared_ptr<VXCloudAccount> updated;
    const bool written = update([&](JsonBox& entry) {
        updated.reset();
        if (!entry || !entry->is_object()) return;
        const auto stored = entry->find(key);
        if (stored == entry->end()) return;
        auto account = accountFrom(*stored);
        if (!account) return;
        change(*account);
        if (account->key() != key) {
            log::error(kLogCategory, "an account change may not change the account's key; nothing was written");
            return;
        }
        *stored = account->toDict();
        updated = std::move(account);
    });
    return written ? updated : nullptr;
}

bool VXCloudUserDefaults::removeCloudAccount(const std::shared_ptr<const VXCloudAccount>& account) {
    if (!account) return true;
    const std::string key = account->key();
    return update([&](JsonBox& entry) {
        if (entry && entry->is_object()) entry->erase(key);
    });
}

std::optional<VXCloudUserDefaults::AccountList> VXCloudUserDefaults::loadAccounts(
    const std::vector<VXCloudService>& cloudServices) {
    try {
        const JsonBox entry = PreferencesStore::standard()->get(kAccountsKey);
        if (!entry || !entry->is_object()) return std::nullopt;

        AccountList accounts;
        for (const Json& value : *entry) {
            auto account = accountFrom(value);
            if (!account) continue;
            // WebDAV accounts join every list, whatever services were asked for.
            if (account->cloudService == VXCloudService::webDAV ||
                std::find(cloudServices.begin(), cloudServices.end(), account->cloudService) != cloudServices.end())
                accounts.push_back(std::move(account));
        }
        std::stable_sort(accounts.begin(), accounts.end(), [](const auto& a, const auto& b) {
            if (a->cloudService != b->cloudService)
                return rawValue(a->cloudService) < rawValue(b->cloudService);
            return a->email < b->email;
        });
        return accounts;
    } catch (const std::exception& e) {
        log::error(kLogCategory, std::string("the accounts could not be read: ") + e.what());
        return std::nullopt;
    }
}

VXCloudUserDefaults::AccountList VXCloudUserDefaults::loadAllAccounts(bool autoUploadEnabled) {
    AccountList accounts =
        loadAccounts({allCloudServices.begin(), allCloudServices.end()}).value_or(AccountList{});
    if (autoUploadEnabled) {
        std::erase_if(accounts, [](const auto& account) { return !account->shouldAutoUpload; });
    }
    return accounts;
}

bool VXCloudUserDefaults::hasAccountsWithAutoUpload() {
    const AccountList accounts = loadAllAccounts(false);
    return std::any_of(accounts.begin(), accounts.end(),
                       [](const auto& account) { return account->shouldAutoUpload; });
}

}  // namespace vxcloud
