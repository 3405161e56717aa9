// The secure store in the Secret Service (GNOME Keyring, KWallet, KeePassXC) through
// libsecret. Items use the schema "com.vxcloud.SecureItem" with the attributes class,
// type (integer), account and service, which together are the item's identity, plus
// "hasdata", which tells an item without data from one whose data is empty.
#include "platform/SecureStoreBackends.h"

#ifndef VXCLOUD_HAVE_LIBSECRET

namespace vxcloud::detail {
std::shared_ptr<SecureStore> connectSecretService() { return nullptr; }
}  // namespace vxcloud::detail

#else

#include <libsecret/secret.h>
#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <system_error>
#include <cstdlib>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "vxcloud/platform/Log.h"

namespace vxcloud::detail {
namespace {

using namespace std::chrono_literals;

// How long the first use may wait for the keyring before falling back to the file.
// The attempt runs on a thread of its own, so no GLib or D-Bus timeout can stretch it.
constexpr auto kConnectTimeout = 5s;
constexpr int kBusCallTimeoutMs = 2000;

const SecretSchema* schema() {
    static const SecretSchema instance = [] {
        SecretSchema s{};
        s.name = "com.vxcloud.SecureItem";
        s.flags = SECRET_SCHEMA_NONE;
        s.attributes[0] = {"class", SECRET_SCHEMA_ATTRIBUTE_STRING};
        s.attributes[1] = {"type", SECRET_SCHEMA_ATTRIBUTE_INTEGER};
        s.attributes[2] = {"account", SECRET_SCHEMA_ATTRIBUTE_STRING};
        s.attributes[3] = {"service", SECRET_SCHEMA_ATTRIBUTE_STRING};
        s.attributes[4] = {"hasdata", SECRET_SCHEMA_ATTRIBUTE_BOOLEAN};
        return s;
    }();
    return &instance;
}

struct GObjectDeleter {
    void operator()(gpointer object) const { g_object_unref(object); }
};
template <typename T>
using GRef = std::unique_ptr<T, GObjectDeleter>;

struct HashTableDeleter {
    void operator()(GHashTable* table) const { g_hash_table_unref(table); }
};
using Attributes = std::unique_ptr<GHashTable, HashTableDeleter>;

// Takes ownership of a GError and returns its message.
std::string takeError(GError*& error) {
    std::string message = error && error->message ? error->message : "unknown error";
    g_clear_error(&error);
    return message;
}

// The session bus the library would use, without letting GLib autolaunch a bus
// (which spawns programs and prints about a missing X display) when there is none.
std::string sessionBusAddress() {
    const char* address = std::getenv("DBUS_SESSION_BUS_ADDRESS");
    if (address && *address) return address;
    const char* runtime = std::getenv("XDG_RUNTIME_DIR");
    if (!runtime || runtime[0] != '/') return {};
    std::string socket = std::string(runtime) + "/bus";
    struct stat st{};
    if (::stat(socket.c_str(), &st) != 0 || !S_ISSOCK(st.st_mode)) return {};
    gchar* escaped = g_dbus_address_escape_value(socket.c_str());
    std::string result = std::string("unix:path=") + escaped;
    g_free(escaped);
    return result;
}

bool busCallAnswers(GDBusConnection* bus, const char* method, GVariant* arguments,
                    const GVariantType* replyType, bool (*accept)(GVariant*)) {
    GError* error = nullptr;
    GVariant* reply = g_dbus_connection_call_sync(
        bus, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", method,
        arguments, replyType, G_DBUS_CALL_FLAGS_NONE, kBusCallTimeoutMs, nullptr, &error);
    if (!reply) {
        g_clear_error(&error);
        return false;
    }
    bool accepted = accept(reply);
    g_variant_unref(reply);
    return accepted;
}

// Whether a Secret Service runs on the bus or can be started by it; asked on a
// private connection with short call timeouts, so a dead bus cannot stall the attempt.
bool secretServiceOnBus(const std::string& address) {
    GError* error = nullptr;
    // Not a "message bus connection": GLib would say Hello with its 25 s timeout.
    GDBusConnection* raw = g_dbus_connection_new_for_address_sync(
        address.c_str(), G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT, nullptr, nullptr, &error);
    if (!raw) {
        log::debug("secure-store", "no session bus: " + takeError(error));
        return false;
    }
    GRef<GDBusConnection> bus(raw);
    auto anyReply = [](GVariant*) { return true; };
    const bool available =
        busCallAnswers(bus.get(), "Hello", nullptr, G_VARIANT_TYPE("(s)"), anyReply) &&
        (busCallAnswers(bus.get(), "NameHasOwner", g_variant_new("(s)", "org.freedesktop.secrets"),
                        G_VARIANT_TYPE("(b)"),
                        [](GVariant* reply) {
                            gboolean has = FALSE;
                            g_variant_get(reply, "(b)", &has);
                            return has != FALSE;
                        }) ||
         busCallAnswers(bus.get(), "ListActivatableNames", nullptr, G_VARIANT_TYPE("(as)"),
                        [](GVariant* reply) {
                            GVariantIter* names = nullptr;
                            const gchar* name = nullptr;
                            bool found = false;
                            g_variant_get(reply, "(as)", &names);
                            while (!found && g_variant_iter_next(names, "&s", &name)) {
                                found = g_strcmp0(name, "org.freedesktop.secrets") == 0;
                            }
                            g_variant_iter_free(names);
                            return found;
                        }));
    if (!available) log::debug("secure-store", "no Secret Service on the session bus");
    g_dbus_connection_close_sync(bus.get(), nullptr, nullptr);
    return available;
}

// Runs on the attempt's thread.
SecretService* reachSecretService(const std::string& address) {
    if (!secretServiceOnBus(address)) return nullptr;
    GError* error = nullptr;
    // libsecret uses GLib's shared session connection, which by default ends the
    // process when the bus goes away; a library must not, so take it first and say so.
    GDBusConnection* shared = g_bus_get_sync(G_BUS_TYPE_SESSION, nullptr, &error);
    if (!shared) {
        log::debug("secure-store", "no session bus: " + takeError(error));
        return nullptr;
    }
    g_dbus_connection_set_exit_on_close(shared, FALSE);
    g_object_unref(shared);
    SecretService* service = secret_service_get_sync(SECRET_SERVICE_OPEN_SESSION, nullptr, &error);
    if (!service) log::debug("secure-store", "no Secret Service: " + takeError(error));
    return service;
}

// The outcome of one connection attempt, shared with its thread, which may outlive
// the caller's wait.
struct Attempt {
    std::mutex mutex;
    std::condition_variable finished;
    bool done = false;
    bool abandoned = false;
    SecretService* service = nullptr;
};

Attributes newAttributes() {
    return Attributes(g_hash_table_new_full(g_str_hash, g_str_equal, g_free, g_free));
}

void setAttribute(GHashTable* table, const char* name, const std::string& value) {
    g_hash_table_insert(table, g_strdup(name), g_strdup(value.c_str()));
}

Attributes keyAttributes(const SecureItemKey& key) {
    Attributes table = newAttributes();
    setAttribute(table.get(), "class", key.itemClass);
    setAttribute(table.get(), "type", std::to_string(key.type));
    setAttribute(table.get(), "account", key.account);
    setAttribute(table.get(), "service", key.service);
    return table;
}

std::string attribute(GHashTable* table, const char* name) {
    auto* value = static_cast<const char*>(g_hash_table_lookup(table, name));
    return value ? value : "";
}

class SecretServiceStore final : public SecureStore {
public:
    explicit SecretServiceStore(SecretService* service) : service_(service) {}

    SecureStatus add(const SecureItem& item) override {
        std::lock_guard lock(mutex_);
        std::vector<Found> existing;
        if (!search(keyAttributes(item.key), existing)) return SecureStatus::failure;
        if (!existing.empty()) return SecureStatus::duplicateItem;
        return store(item) ? SecureStatus::success : SecureStatus::failure;
    }

    SecureStatus put(const SecureItem& item) override {
        std::lock_guard lock(mutex_);
        // Storing replaces an item with exactly these attributes; one that differs only
        // in "hasdata" is the same identity and goes after the new one is safely stored.
        if (!store(item)) return SecureStatus::failure;
        Attributes other = keyAttributes(item.key);
        setAttribute(other.get(), "hasdata", item.data ? "false" : "true");
        clear(other.get());
        return SecureStatus::success;
    }

    std::vector<SecureItem> find(const SecureQuery& query) const override {
        std::lock_guard lock(mutex_);
        Attributes filter = newAttributes();
        if (!query.itemClass.empty()) setAttribute(filter.get(), "class", query.itemClass);
        if (query.type) setAttribute(filter.get(), "type", std::to_string(*query.type));
        if (query.account) setAttribute(filter.get(), "account", *query.account);
        if (query.service) setAttribute(filter.get(), "service", *query.service);
        std::vector<Found> found;
        std::vector<SecureItem> items;
        if (!search(std::move(filter), found)) return items;
        // The keyring has no order of its own; oldest first comes closest to insertion order.
        std::stable_sort(found.begin(), found.end(),
                         [](const Found& a, const Found& b) { return a.created < b.created; });
        for (Found& f : found) {
            if (!queryMatches(query, f.item.key)) continue;
            items.push_back(std::move(f.item));
            if (query.limit != 0 && items.size() >= query.limit) break;
        }
        return items;
    }

    SecureStatus remove(const SecureItemKey& key) override {
        std::lock_guard lock(mutex_);
        Attributes attributes = keyAttributes(key);
        GError* error = nullptr;
        gboolean removed = secret_service_clear_sync(service_.get(), schema(), attributes.get(),
                                                     nullptr, &error);
        if (error) {
            log::warning("secure-store", "cannot remove a keyring item: " + takeError(error));
            return SecureStatus::failure;
        }
        return removed ? SecureStatus::success : SecureStatus::itemNotFound;
    }

private:
    struct Found {
        SecureItem item;
        guint64 created = 0;
    };

    bool search(Attributes attributes, std::vector<Found>& found) const {
        GError* error = nullptr;
        GList* list = secret_service_search_sync(
            service_.get(), schema(), attributes.get(),
            static_cast<SecretSearchFlags>(SECRET_SEARCH_ALL | SECRET_SEARCH_UNLOCK |
                                           SECRET_SEARCH_LOAD_SECRETS),
            nullptr, &error);
        if (error) {
            log::warning("secure-store", "cannot search the keyring: " + takeError(error));
            g_list_free_full(list, g_object_unref);
            return false;
        }
        for (GList* node = list; node; node = node->next) {
            auto* item = static_cast<SecretItem*>(node->data);
            Attributes attrs(secret_item_get_attributes(item));
            if (!attrs) continue;
            Found f;
            f.item.key.itemClass = attribute(attrs.get(), "class");
            f.item.key.type = std::atoi(attribute(attrs.get(), "type").c_str());
            f.item.key.account = attribute(attrs.get(), "account");
            f.item.key.service = attribute(attrs.get(), "service");
            f.created = secret_item_get_created(item);
            if (attribute(attrs.get(), "hasdata") == "true") {
                if (SecretValue* value = secret_item_get_secret(item)) {
                    gsize length = 0;
                    const gchar* bytes = secret_value_get(value, &length);
                    f.item.data = std::string(bytes, length);
                    secret_value_unref(value);
                }
            }
            found.push_back(std::move(f));
        }
        g_list_free_full(list, g_object_unref);
        return true;
    }

    bool store(const SecureItem& item) {
        Attributes attributes = keyAttributes(item.key);
        setAttribute(attributes.get(), "hasdata", item.data ? "true" : "false");
        const std::string data = item.data.value_or(std::string());
        SecretValue* value = secret_value_new(data.data(), static_cast<gssize>(data.size()),
                                              "application/octet-stream");
        const std::string label = "VXCloud " + item.key.itemClass + " " + item.key.account;
        GError* error = nullptr;
        gboolean stored =
            secret_service_store_sync(service_.get(), schema(), attributes.get(),
                                      SECRET_COLLECTION_DEFAULT, label.c_str(), value, nullptr,
                                      &error);
        secret_value_unref(value);
        if (!stored) {
            log::warning("secure-store", "cannot store a keyring item: " + takeError(error));
            return false;
        }
        return true;
    }

    void clear(GHashTable* attributes) {
        GError* error = nullptr;
        secret_service_clear_sync(service_.get(), schema(), attributes, nullptr, &error);
        if (error) log::warning("secure-store", "cannot remove a keyring item: " + takeError(error));
    }

    GRef<SecretService> service_;
    mutable std::mutex mutex_;
};

}  // namespace

std::shared_ptr<SecureStore> connectSecretService() {
    const std::string address = sessionBusAddress();
    if (address.empty()) return nullptr;

    auto attempt = std::make_shared<Attempt>();
    try {
        std::thread([attempt, address] {
            SecretService* service = reachSecretService(address);
            std::lock_guard lock(attempt->mutex);
            if (attempt->abandoned) {
                if (service) g_object_unref(service);
            } else {
                attempt->service = service;
            }
            attempt->done = true;
            attempt->finished.notify_all();
        }).detach();
    } catch (const std::system_error&) {
        return nullptr;
    }
    std::unique_lock lock(attempt->mutex);
    if (!attempt->finished.wait_for(lock, kConnectTimeout, [&] { return attempt->done; })) {
        attempt->abandoned = true;
        log::debug("secure-store", "the Secret Service did not answer in time");
        return nullptr;
    }
    if (!attempt->service) return nullptr;
    return std::make_shared<SecretServiceStore>(std::exchange(attempt->service, nullptr));
}

}  // namespace vxcloud::detail

#endif
