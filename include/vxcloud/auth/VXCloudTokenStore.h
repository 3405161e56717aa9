#pragma once
// OAuth 2 tokens of the linked accounts, kept in the secure store as one JSON item per
// account: class "oauth2-token", type = the service's raw value, account = the provider's
// storage name (Dropbox: the user id; Google: "VX_Google_Drive_" + user id). The sign-in
// flow saves them; the provider clients read them and save refreshed ones. Nothing here
// ever writes a token to a log.
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "vxcloud/model/VXCloudService.h"
#include "vxcloud/platform/SecureStore.h"

namespace vxcloud {

struct VXCloudOAuthToken {
    std::string accessToken;
    std::string refreshToken;           // empty when the service issued none
    std::optional<std::int64_t> expiresAt;  // seconds since the epoch; none: does not expire
    std::string scope;
    std::string tokenType = "bearer";
    // What the service granted beside the token that its client needs (Evernote's NoteStore
    // URL and shard).
    std::map<std::string, std::string> extra;

    // Whether the access token is expired, or will be within `skewSeconds` of `now`.
    bool expiresWithin(std::int64_t now, std::int64_t skewSeconds) const;

    // From a token endpoint's JSON answer ("access_token", "expires_in", "refresh_token",
    // "scope", "token_type"). A refresh answer without a refresh token or scope keeps those
    // of `previous`. Nothing when the answer is not JSON or has no access token.
    static std::optional<VXCloudOAuthToken> fromTokenResponse(std::string_view body, std::int64_t now,
                                                               const VXCloudOAuthToken* previous = nullptr);
    // The stored form and back; nothing for text that is not a stored token.
    std::string toStoredText() const;
    static std::optional<VXCloudOAuthToken> fromStoredText(std::string_view text);

    friend bool operator==(const VXCloudOAuthToken&, const VXCloudOAuthToken&) = default;
};

class VXCloudTokenStore {
public:
    VXCloudTokenStore() = delete;

    static constexpr const char* kItemClass = "oauth2-token";

    // Adds or replaces the account's token. False when the store refused it.
    static bool save(VXCloudService service, const std::string& storageName,
                     const VXCloudOAuthToken& token);
    // Nothing when no token is stored or the stored item is unreadable.
    static std::optional<VXCloudOAuthToken> load(VXCloudService service, const std::string& storageName);
    // Whether an item is stored for the account (readable or not).
    static bool contains(VXCloudService service, const std::string& storageName);
    // False when nothing was stored or the store refused to remove it.
    static bool remove(VXCloudService service, const std::string& storageName);
    // Holds the account's token against other processes and threads until destroyed, so a
    // refresh (which rotates the refresh token at some services) is made once. Null when no
    // lock can be had.
    static std::unique_ptr<SecureItemLock> lock(VXCloudService service, const std::string& storageName);
    // The storage names of every token stored for the service.
    static std::vector<std::string> storageNames(VXCloudService service);
};

}  // namespace vxcloud
