#include "vxcloud/platform/PreferencesStore.h"

#include <mutex>
#include <nlohmann/json.hpp>
#include <utility>

#include "platform/AtomicFile.h"
#include "platform/Xdg.h"
#include "vxcloud/platform/Log.h"

namespace vxcloud {

struct PreferencesStore::State {
    // Owner-only: the document lists the user's accounts and e-mail addresses.
    explicit State(std::string path)
        : file(std::move(path), {.logCategory = "preferences",
                                 .description = "preferences file",
                                 .fileMode = 0600,
                                 .folderMode = 0777,
                                 .isValid = {}}) {}
    detail::AtomicJsonFile file;
};

namespace {

struct StandardStore {
    std::mutex mutex;
    std::string path;  // empty: defaultPath()
    std::shared_ptr<PreferencesStore> store;
};

StandardStore& standardStore() {
    static StandardStore instance;
    return instance;
}

}  // namespace

PreferencesStore::PreferencesStore(std::string path)
    : state_(std::make_shared<State>(std::move(path))) {}

PreferencesStore::~PreferencesStore() = default;

std::shared_ptr<PreferencesStore> PreferencesStore::standard() {
    StandardStore& s = standardStore();
    std::lock_guard lock(s.mutex);
    if (!s.store) s.store = std::make_shared<PreferencesStore>(s.path.empty() ? defaultPath() : s.path);
    return s.store;
}

void PreferencesStore::setStandardPath(std::string path) {
    StandardStore& s = standardStore();
    std::lock_guard lock(s.mutex);
    s.path = std::move(path);
    // Holders of the previous store keep using it; later callers get the new location.
    if (s.store && s.store->path() != (s.path.empty() ? defaultPath() : s.path)) s.store.reset();
}

std::string PreferencesStore::defaultPath() {
    return xdg::configHome() + "/vxcloud/preferences.json";
}

const std::string& PreferencesStore::path() const { return state_->file.path(); }

JsonBox PreferencesStore::get(const std::string& key) const {
    try {
        std::optional<Json> document = state_->file.read();
        if (!document) return {};
        auto it = document->find(key);
        if (it == document->end()) return {};
        return JsonBox(std::move(*it));
    } catch (const std::exception& e) {
        log::warning("preferences", std::string("cannot read an entry: ") + e.what());
        return {};
    }
}

Json PreferencesStore::snapshot() const {
    std::optional<Json> document = state_->file.read();
    return document ? std::move(*document) : Json::object();
}

void PreferencesStore::set(const std::string& key, const Json& value) {
    update(key, [&value](JsonBox& entry) { entry = value; });
}

void PreferencesStore::remove(const std::string& key) {
    update(key, [](JsonBox& entry) { entry.reset(); });
}

bool PreferencesStore::update(const std::string& key,
                              const std::function<void(JsonBox&)>& change) {
    return state_->file.update([&](Json& document) {
        auto it = document.find(key);
        JsonBox before = it != document.end() ? JsonBox(*it) : JsonBox();
        JsonBox entry = before;
        change(entry);
        if (entry == before) return false;
        if (entry) {
            document[key] = std::move(*entry);
        } else {
            document.erase(key);
        }
        return true;
    });
}

std::optional<std::string> PreferencesStore::takeCorruptionReport() {
    return state_->file.takeCorruptionReport();
}

}  // namespace vxcloud
