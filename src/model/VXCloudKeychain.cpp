#include "vxcloud/model/VXCloudKeychain.h"

#include <nlohmann/json.hpp>

#include "model/KeychainSearch.h"
#include "vxcloud/platform/Log.h"
#include "vxcloud/platform/SecureStore.h"

namespace vxcloud {
namespace keychain {
namespace {

// The attributes of a found item, as a keychain search returns them with attributes
// and data asked for.
Json attributesOf(const SecureItem& item) {
    Json attributes = {
        {"class", item.key.itemClass},
        {"type", item.key.type},
        {"acct", item.key.account},
    };
    if (!item.key.service.empty()) attributes["svce"] = item.key.service;
    if (item.data) attributes["v_Data"] = *item.data;
    return attributes;
}

}  // namespace

std::optional<Json> search(const SecureStore& store, const SecureQuery& query) {
    const std::vector<SecureItem> items = store.find(query);
    if (items.empty()) return std::nullopt;
    if (query.limit == 1) return attributesOf(items.front());
    Json list = Json::array();
    for (const SecureItem& item : items) list.push_back(attributesOf(item));
    return list;
}

std::vector<std::shared_ptr<VXCloudAccount>> accountsFromSearchResult(
    const std::optional<Json>& result) {
    std::vector<std::shared_ptr<VXCloudAccount>> accounts;
    if (!result || !result->is_array()) return accounts;
    for (const Json& dictionary : *result) {
        if (!dictionary.is_object()) continue;
        if (auto account = VXCloudAccount::initWithDictionary(dictionary))
            accounts.push_back(std::move(account));
    }
    return accounts;
}

}  // namespace keychain

VXCloudKeychain& VXCloudKeychain::sharedInstance() {
    static VXCloudKeychain instance;
    return instance;
}

bool VXCloudKeychain::set(const VXCloudAccount& cloudAccount) {
    try {
        auto store = SecureStore::shared();
        if (!store) return false;
        SecureItem item;
        item.key = {kItemClass, rawValue(cloudAccount.cloudService), cloudAccount.email, {}};
        const SecureStatus status = store->add(item);
        return status == SecureStatus::success || status == SecureStatus::duplicateItem;
    } catch (const std::exception& e) {
        log::error("keychain", std::string("the account item could not be added: ") + e.what());
        return false;
    }
}

std::vector<std::shared_ptr<VXCloudAccount>> VXCloudKeychain::getCloudAccounts(
    VXCloudService cloudService, const std::optional<std::string>& accountName) {
    std::vector<std::shared_ptr<VXCloudAccount>> accounts;
    try {
        auto store = SecureStore::shared();
        if (!store) return accounts;
        SecureQuery query;
        query.itemClass = kItemClass;
        query.type = rawValue(cloudService);
        query.account = accountName;
        query.limit = accountName ? 1 : 0;
        accounts = keychain::accountsFromSearchResult(keychain::search(*store, query));
    } catch (const std::exception& e) {
        log::error("keychain", std::string("the account items could not be read: ") + e.what());
        accounts.clear();
    }
    return accounts;
}

}  // namespace vxcloud
