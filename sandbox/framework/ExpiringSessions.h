#pragma once
// What a provider keeps between requests for a while (upload sessions, ...): each entry
// under a fresh random id until its lifetime runs out on the sandbox clock, after which it
// is gone as if it never existed. Not synchronised: the module's store lock guards it.
#include <cstdint>
#include <map>
#include <set>
#include <string>

#include "framework/Clock.h"
#include "framework/Text.h"

namespace vxcloud::sandbox {

template <class T>
class ExpiringSessions {
public:
    explicit ExpiringSessions(const Clock& clock) : clock_(clock) {}

    // Keeps `session` for `lifetime` seconds under a new id: `prefix` and `tokenLength`
    // random characters, shaped like the provider's own.
    std::string add(T session, std::int64_t lifetime, const std::string& prefix, std::size_t tokenLength) {
        const std::string id = prefix + randomToken(tokenLength);
        entries_[id] = Entry{std::move(session), clock_.nowSeconds() + lifetime};
        return id;
    }
    // Keeps `session` under an id the provider made itself (its own alphabet or case).
    void insert(const std::string& id, T session, std::int64_t lifetime) {
        entries_[id] = Entry{std::move(session), clock_.nowSeconds() + lifetime};
    }
    // The live session with that id, or null; an expired one is forgotten on the way.
    T* find(const std::string& id) {
        const auto it = entries_.find(id);
        if (it == entries_.end()) return nullptr;
        if (clock_.nowSeconds() >= it->second.expiresAt) {
            entries_.erase(it);
            expired_.insert(id);
            return nullptr;
        }
        return &it->second.value;
    }
    // Whether `id` named a session that ran out, for providers that answer an expired
    // session otherwise than an unknown one.
    bool expired(const std::string& id) {
        find(id);
        return expired_.count(id) > 0;
    }
    void erase(const std::string& id) { entries_.erase(id); }
    // Keeps a live session `lifetime` more seconds from now (providers that extend a
    // session with every use); false when it is gone.
    bool renew(const std::string& id, std::int64_t lifetime) {
        if (!find(id)) return false;
        entries_[id].expiresAt = clock_.nowSeconds() + lifetime;
        return true;
    }
    // When a live session expires, in seconds since the epoch on the sandbox clock; 0 when gone.
    std::int64_t expiresAt(const std::string& id) {
        return find(id) ? entries_[id].expiresAt : 0;
    }

private:
    struct Entry {
        T value;
        std::int64_t expiresAt = 0;
    };
    const Clock& clock_;
    std::map<std::string, Entry> entries_;
    std::set<std::string> expired_;
};

}  // namespace vxcloud::sandbox
