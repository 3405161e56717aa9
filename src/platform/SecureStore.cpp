#include "vxcloud/platform/SecureStore.h"

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <mutex>
#include <utility>

#include "platform/FileLock.h"
#include "platform/SecureStoreBackends.h"
#include "vxcloud/platform/Log.h"
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
SecureItemLock::~SecureItemLock() = default;

namespace {

class FileItemLock final : public SecureItemLock {
public:
    detail::FileLock lock;
};

}  // namespace

std::string SecureStore::lockFolder() const { return xdg::dataHome() + "/vxcloud/locks"; }

std::unique_ptr<SecureItemLock> SecureStore::lockItem(const SecureItemKey& key) const {
    const std::string folder = lockFolder();
    std::error_code error;
    std::filesystem::create_directories(folder, error);
    // Named by a hash of the key (FNV-1a): accounts may hold any character, and two keys
    // that happen to share a name only wait for each other.
    std::uint64_t hash = 14695981039346656037ULL;
    for (const std::string& part : {key.itemClass, std::to_string(key.type), key.account, key.service}) {
        for (const char c : part + '\n') hash = (hash ^ static_cast<unsigned char>(c)) * 1099511628211ULL;
    }
    char name[17];
    std::snprintf(name, sizeof name, "%016llx", static_cast<unsigned long long>(hash));
    auto held = std::make_unique<FileItemLock>();
    if (const int failed = held->lock.acquire(folder + "/" + std::string(name) + ".lock")) {
        log::warning("secure-store", "cannot lock an item: " + std::string(std::strerror(failed)));
        return nullptr;
    }
    return held;
}

std::shared_ptr<SecureStore> SecureStore::shared() {
    SharedStore& s = sharedStore();
    std::lock_guard lock(s.mutex);
    if (!s.store) {
        s.store = openSecretService();
        if (!s.store) {
            s.store = openFile(defaultFilePath());
        } else if (std::filesystem::exists(defaultFilePath())) {
            // Secrets saved while no keyring answered would otherwise look like signed-out accounts.
            auto file = openFile(defaultFilePath());
            const std::size_t moved = moveItems(*file, *s.store);
            if (moved > 0) log::info("secure-store", "moved " + std::to_string(moved) + " secrets from the file into the keyring");
        }
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

std::size_t SecureStore::moveItems(SecureStore& from, SecureStore& to) {
    std::size_t moved = 0;
    for (const SecureItem& item : from.find(SecureQuery{})) {
        const SecureStatus status = to.add(item);
        if (status == SecureStatus::success) ++moved;
        if (status == SecureStatus::success || status == SecureStatus::duplicateItem) from.remove(item.key);
    }
    return moved;
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
