#include "vxcloud/platform/SecureStore.h"

#include <mutex>
#include <utility>

#include "platform/SecureStoreBackends.h"
#include "platform/Xdg.h"

namespace vxcloud {
namespace {

struct SharedStore {
    std::mutex mutex;
    std::shared_ptr<SecureStore> store;
};

SharedStore& sharedStore() {
    static SharedStore instance;
    return instance;
}

}  // namespace

SecureStore::~SecureStore() = default;

std::shared_ptr<SecureStore> SecureStore::shared() {
    SharedStore& s = sharedStore();
    std::lock_guard lock(s.mutex);
    if (!s.store) {
        s.store = openSecretService();
        if (!s.store) s.store = openFile(defaultFilePath());
    }
    return s.store;
}

void SecureStore::setShared(std::shared_ptr<SecureStore> store) {
    SharedStore& s = sharedStore();
    std::lock_guard lock(s.mutex);
    s.store = std::move(store);
}

std::shared_ptr<SecureStore> SecureStore::openFile(std::string path) {
    return detail::makeFileSecureStore(std::move(path));
}

std::shared_ptr<SecureStore> SecureStore::openSecretService() {
    return detail::connectSecretService();
}

std::string SecureStore::defaultFilePath() {
    return xdg::dataHome() + "/vxcloud/secure-store.json";
}

std::optional<std::string> SecureStore::secret(const SecureItemKey& key) const {
    SecureQuery query{.itemClass = key.itemClass,
                      .type = key.type,
                      .account = key.account,
                      .service = key.service,
                      .limit = 1};
    std::vector<SecureItem> items = find(query);
    if (items.empty()) return std::nullopt;
    return std::move(items.front().data);
}

}  // namespace vxcloud
