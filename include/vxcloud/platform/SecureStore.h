#pragma once
// Protected storage for item identities and secrets (OAuth tokens): the Secret Service
// through libsecret when a keyring answers, otherwise an owner-only (0600) file under
// $XDG_DATA_HOME/vxcloud written atomically. Secrets never reach logs or error texts.
#include <cstddef>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace vxcloud {

// Identity of an item: class ("internet-password", "oauth-token", ...), integer type
// (the service's raw value), account name, and a service-specific key.
struct SecureItemKey {
    std::string itemClass;
    int type = 0;
    std::string account;
    std::string service;  // may be empty

    friend bool operator==(const SecureItemKey&, const SecureItemKey&) = default;
    friend auto operator<=>(const SecureItemKey&, const SecureItemKey&) = default;
};

struct SecureItem {
    SecureItemKey key;
    std::optional<std::string> data;  // the secret, when the item has one
};

// Statuses mirror the keychain's: success 0, duplicate item -25299, item not found -25300.
enum class SecureStatus : int {
    success = 0,
    duplicateItem = -25299,
    itemNotFound = -25300,
    failure = -1,
};

struct SecureQuery {
    std::string itemClass;
    std::optional<int> type;
    std::optional<std::string> account;
    std::optional<std::string> service;
    std::size_t limit = 0;  // 0 = all
};

// Held while an item is changed by a read-modify-write that other processes may be doing
// too (a rotating refresh token: two refreshes of one grant would lose it). Released when
// destroyed.
class SecureItemLock {
public:
    virtual ~SecureItemLock();
};

class SecureStore {
public:
    virtual ~SecureStore();

    // The store the component uses: libsecret when a keyring answers, else the file.
    static std::shared_ptr<SecureStore> shared();
    // Hosts and tests may replace it (e.g. a file store in a temporary folder).
    static void setShared(std::shared_ptr<SecureStore> store);
    static std::shared_ptr<SecureStore> openFile(std::string path);
    // Null when no Secret Service keyring answers.
    static std::shared_ptr<SecureStore> openSecretService();
    static std::string defaultFilePath();
    // Moves every item of `from` into `to`; an item `to` already holds stays as it is there.
    // An item leaves `from` only once `to` has it. Returns how many `to` took. shared() uses
    // it when a keyring appears after secrets were kept in the file.
    static std::size_t moveItems(SecureStore& from, SecureStore& to);

    // Adds a new item; duplicateItem when one with the same key exists (left untouched).
    virtual SecureStatus add(const SecureItem& item) = 0;
    // Adds or replaces the item's data.
    virtual SecureStatus put(const SecureItem& item) = 0;
    virtual std::vector<SecureItem> find(const SecureQuery& query) const = 0;
    virtual SecureStatus remove(const SecureItemKey& key) = 0;

    // Waits until no other process or thread holds the item's lock, then holds it. Null
    // when the lock cannot be had (its folder cannot be made): callers go on unlocked.
    std::unique_ptr<SecureItemLock> lockItem(const SecureItemKey& key) const;
    // Where the item locks live: beside the store's file, or under the data folder.
    virtual std::string lockFolder() const;

    // Convenience for one secret by key.
    std::optional<std::string> secret(const SecureItemKey& key) const;
};

}  // namespace vxcloud
