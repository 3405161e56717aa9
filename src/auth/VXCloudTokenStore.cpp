#include "vxcloud/auth/VXCloudTokenStore.h"

#include <limits>
#include <nlohmann/json.hpp>

#include "vxcloud/platform/Log.h"
#include "vxcloud/platform/SecureStore.h"

namespace vxcloud {
namespace {

using nlohmann::json;

SecureItemKey keyFor(VXCloudService service, const std::string& storageName) {
    return SecureItemKey{VXCloudTokenStore::kItemClass, rawValue(service), storageName, {}};
}

std::optional<std::string> stringField(const json& object, const char* key) {
    auto it = object.find(key);
    if (it != object.end() && it->is_string()) return it->get<std::string>();
    return std::nullopt;
}

// A number of seconds; nothing for one no int64 holds (a float such as 1e300 included).
std::optional<std::int64_t> integerField(const json& object, const char* key) {
    auto it = object.find(key);
    if (it == object.end()) return std::nullopt;
    if (it->is_number_unsigned()) {
        const auto value = it->get<std::uint64_t>();
        if (value > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) return std::nullopt;
        return static_cast<std::int64_t>(value);
    }
    if (it->is_number_integer()) return it->get<std::int64_t>();
    if (it->is_number_float()) {
        const double value = it->get<double>();
        // -2^63 <= value < 2^63: the doubles a cast to int64 is defined for.
        if (!(value >= -0x1p63 && value < 0x1p63)) return std::nullopt;
        return static_cast<std::int64_t>(value);
    }
    // Some token endpoints send expires_in as text.
    if (it->is_string()) {
        try {
            std::size_t used = 0;
            const std::string text = it->get<std::string>();
            const long long value = std::stoll(text, &used);
            if (used == text.size()) return value;
        } catch (...) {
        }
    }
    return std::nullopt;
}

}  // namespace

bool VXCloudOAuthToken::expiresWithin(std::int64_t now, std::int64_t skewSeconds) const {
    if (!expiresAt) return false;
    // expiresAt - skew <= now, for any stored time: one so far back that the subtraction
    // leaves the range has long expired (and, with a negative skew, one so far ahead has not).
    std::int64_t deadline = 0;
    if (__builtin_sub_overflow(*expiresAt, skewSeconds, &deadline)) return skewSeconds > 0;
    return deadline <= now;
}

std::optional<VXCloudOAuthToken> VXCloudOAuthToken::fromTokenResponse(std::string_view body, std::int64_t now,
                                                                      const VXCloudOAuthToken* previous) {
    const json answer = json::parse(body.begin(), body.end(), nullptr, false);
    if (!answer.is_object()) return std::nullopt;
    auto access = stringField(answer, "access_token");
    if (!access || access->empty()) return std::nullopt;
    VXCloudOAuthToken token;
    token.accessToken = std::move(*access);
    if (auto refresh = stringField(answer, "refresh_token"); refresh && !refresh->empty()) {
        token.refreshToken = std::move(*refresh);
    } else if (previous) {
        // Services that do not rotate refresh tokens leave it out of refresh answers.
        token.refreshToken = previous->refreshToken;
    }
    if (auto expiresIn = integerField(answer, "expires_in"); expiresIn && *expiresIn > 0) {
        // A lifetime past the end of the clock is the end of the clock.
        std::int64_t at = 0;
        token.expiresAt = __builtin_add_overflow(now, *expiresIn, &at) ? std::numeric_limits<std::int64_t>::max() : at;
    }
    if (auto scope = stringField(answer, "scope")) token.scope = std::move(*scope);
    else if (previous) token.scope = previous->scope;
    if (auto type = stringField(answer, "token_type")) token.tokenType = std::move(*type);
    if (previous) token.extra = previous->extra;
    return token;
}

std::string VXCloudOAuthToken::toStoredText() const {
    json stored = {{"access_token", accessToken}, {"token_type", tokenType}};
    if (!refreshToken.empty()) stored["refresh_token"] = refreshToken;
    if (expiresAt) stored["expires_at"] = *expiresAt;
    if (!scope.empty()) stored["scope"] = scope;
    if (!extra.empty()) stored["extra"] = extra;
    return stored.dump();
}

std::optional<VXCloudOAuthToken> VXCloudOAuthToken::fromStoredText(std::string_view text) {
    const json stored = json::parse(text.begin(), text.end(), nullptr, false);
    if (!stored.is_object()) return std::nullopt;
    auto access = stringField(stored, "access_token");
    if (!access) return std::nullopt;
    VXCloudOAuthToken token;
    token.accessToken = std::move(*access);
    token.refreshToken = stringField(stored, "refresh_token").value_or("");
    token.expiresAt = integerField(stored, "expires_at");
    token.scope = stringField(stored, "scope").value_or("");
    token.tokenType = stringField(stored, "token_type").value_or("bearer");
    if (const auto extra = stored.find("extra"); extra != stored.end() && extra->is_object()) {
        for (const auto& [key, value] : extra->items()) {
            if (value.is_string()) token.extra[key] = value.get<std::string>();
        }
    }
    return token;
}

bool VXCloudTokenStore::save(VXCloudService service, const std::string& storageName,
                             const VXCloudOAuthToken& token) {
    try {
        auto store = SecureStore::shared();
        if (!store) return false;
        const SecureStatus status = store->put(SecureItem{keyFor(service, storageName), token.toStoredText()});
        if (status != SecureStatus::success) {
            log::warning("oauth", "the secure store refused to save a token (status " +
                                      std::to_string(static_cast<int>(status)) + ")");
            return false;
        }
        return true;
    } catch (const std::exception& e) {
        log::warning("oauth", std::string("saving a token failed: ") + e.what());
        return false;
    }
}

std::optional<VXCloudOAuthToken> VXCloudTokenStore::load(VXCloudService service, const std::string& storageName) {
    try {
        auto store = SecureStore::shared();
        if (!store) return std::nullopt;
        auto text = store->secret(keyFor(service, storageName));
        if (!text) return std::nullopt;
        auto token = VXCloudOAuthToken::fromStoredText(*text);
        if (!token) log::warning("oauth", "a stored token of " + std::string(accountType(service)) + " is unreadable");
        return token;
    } catch (const std::exception& e) {
        log::warning("oauth", std::string("reading a token failed: ") + e.what());
        return std::nullopt;
    }
}

bool VXCloudTokenStore::contains(VXCloudService service, const std::string& storageName) {
    try {
        auto store = SecureStore::shared();
        return store && store->secret(keyFor(service, storageName)).has_value();
    } catch (...) {
        return false;
    }
}

bool VXCloudTokenStore::remove(VXCloudService service, const std::string& storageName) {
    try {
        auto store = SecureStore::shared();
        return store && store->remove(keyFor(service, storageName)) == SecureStatus::success;
    } catch (...) {
        return false;
    }
}

std::unique_ptr<SecureItemLock> VXCloudTokenStore::lock(VXCloudService service, const std::string& storageName) {
    try {
        auto store = SecureStore::shared();
        return store ? store->lockItem(keyFor(service, storageName)) : nullptr;
    } catch (...) {
        return nullptr;
    }
}

std::vector<std::string> VXCloudTokenStore::storageNames(VXCloudService service) {
    std::vector<std::string> names;
    try {
        auto store = SecureStore::shared();
        if (!store) return names;
        SecureQuery query;
        query.itemClass = kItemClass;
        query.type = rawValue(service);
        for (const SecureItem& item : store->find(query)) names.push_back(item.key.account);
    } catch (...) {
    }
    return names;
}

}  // namespace vxcloud
