#pragma once
// Hands a provider client a usable access token for one account: the stored one while it
// is fresh, otherwise a new one from the refresh grant. A refreshed token is saved before
// it is handed out, so a crash right after a rotation never leaves the store holding a
// dead refresh token. Refreshes of one account are serialised across the process: one
// caller refreshes, the others wait and take its result; other processes wait on the secure
// store's lock of the token, so a rotating refresh token is spent once.
#include <chrono>
#include <memory>
#include <optional>
#include <string>

#include "vxcloud/auth/VXCloudTokenStore.h"
#include "vxcloud/model/ProviderError.h"
#include "vxcloud/model/VXCloudService.h"

namespace vxcloud {
class HttpClient;
}

namespace vxcloud::oauth {

struct TokenFailure {
    enum class Kind {
        authentication,  // no token, no refresh token, or the grant was refused
        connection,      // the token endpoint could not be reached
        server,          // the token endpoint failed (5xx)
        malformed,       // the token endpoint answered something unreadable
    };
    Kind kind = Kind::authentication;
    ProviderError error;

    // Whether asking again later may succeed (the network or the endpoint failed, the grant
    // stands).
    bool passing() const { return kind == Kind::connection || kind == Kind::server; }
};

struct TokenResult {
    std::optional<std::string> accessToken;
    std::optional<TokenFailure> failure;  // set exactly when accessToken is not
};

class TokenProvider {
public:
    // Refresh this long before the stored expiry, so a token never dies mid-request.
    static constexpr std::chrono::seconds kDefaultSkew{300};

    TokenProvider(VXCloudService service, std::string storageName,
                  std::shared_ptr<HttpClient> http = nullptr,
                  std::chrono::seconds skew = kDefaultSkew);
    // A token just granted and not stored yet, as a sign-in uses it to name the user before
    // it knows where to store it: handed out as it is, never refreshed.
    static std::shared_ptr<TokenProvider> forGrantedToken(VXCloudService service, std::string accessToken);

    VXCloudService service() const { return service_; }
    const std::string& storageName() const { return storageName_; }

    // A token for the next request, refreshed first when it has expired.
    TokenResult accessToken();
    // The service refused `rejected` (401): the stored token when another caller has
    // already replaced it, else a refreshed one.
    TokenResult refreshAfterRejection(const std::string& rejected);

    // A new token from the refresh grant now, whatever the stored one's age (a start-up
    // check that the grant still stands).
    TokenResult refreshNow();

private:
    // With the account's refresh lock held. A refused grant is looked up again once when
    // `rereadOnRefusal`: another process may have rotated it.
    TokenResult refresh(const VXCloudOAuthToken& current, bool rereadOnRefusal = true);

    VXCloudService service_;
    std::string storageName_;
    std::shared_ptr<HttpClient> http_;
    std::chrono::seconds skew_;
    std::optional<std::string> granted_;
};

}  // namespace vxcloud::oauth
