#include "TokenProvider.h"

#include <map>
#include <mutex>
#include <nlohmann/json.hpp>

#include "providers/ProviderSupport.h"
#include "providers/oauth/TokenRequest.h"
#include "vxcloud/platform/Http.h"
#include "vxcloud/platform/Log.h"
#include "vxcloud/sessions/VXCloudServiceConfig.h"

namespace vxcloud::oauth {
namespace {

std::int64_t nowSeconds() {
    return std::chrono::duration_cast<std::chrono::seconds>(
               std::chrono::system_clock::now().time_since_epoch())
        .count();
}

// One lock per account for the whole process: sessions are made per operation, so the
// lock cannot live in a provider object.
std::mutex& refreshLock(VXCloudService service, const std::string& storageName) {
    static std::mutex registryMutex;
    static std::map<std::pair<int, std::string>, std::unique_ptr<std::mutex>> locks;
    std::lock_guard guard(registryMutex);
    auto& slot = locks[{rawValue(service), storageName}];
    if (!slot) slot = std::make_unique<std::mutex>();
    return *slot;
}

// Held while an account's token is refreshed: this process's threads wait on the mutex,
// other processes on the secure store's lock of the token. A service whose refresh tokens
// are single-use (Box) would otherwise see the second refresh spend a dead token.
class RefreshGuard {
public:
    RefreshGuard(VXCloudService service, const std::string& storageName)
        : local_(refreshLock(service, storageName)), shared_(VXCloudTokenStore::lock(service, storageName)) {}

private:
    std::lock_guard<std::mutex> local_;
    std::unique_ptr<SecureItemLock> shared_;
};

TokenResult failed(TokenFailure::Kind kind, ProviderError error) {
    TokenResult result;
    result.failure = TokenFailure{kind, std::move(error)};
    return result;
}

TokenResult failed(TokenFailure::Kind kind, std::string message) {
    ProviderError error;
    error.message = std::move(message);
    return failed(kind, std::move(error));
}

TokenResult granted(std::string accessToken) {
    TokenResult result;
    result.accessToken = std::move(accessToken);
    return result;
}

// The token endpoint's {"error": ..., "error_description": ...}, whatever the status.
ProviderError tokenEndpointError(const HttpResponse& response) {
    ProviderError error;
    error.httpStatus = response.status;
    const auto body = nlohmann::json::parse(response.body, nullptr, false);
    if (body.is_object()) {
        auto it = body.find("error");
        if (it != body.end() && it->is_string()) error.oauthError = it->get<std::string>();
    }
    error.message = "token refresh: HTTP " + std::to_string(response.status);
    if (error.oauthError) error.message += " " + *error.oauthError;
    return error;
}

}  // namespace

TokenProvider::TokenProvider(VXCloudService service, std::string storageName,
                             std::shared_ptr<HttpClient> http, std::chrono::seconds skew)
    : service_(service),
      storageName_(std::move(storageName)),
      http_(http ? std::move(http) : HttpClient::shared()),
      skew_(skew) {}

std::shared_ptr<TokenProvider> TokenProvider::forGrantedToken(VXCloudService service, std::string accessToken) {
    auto provider = std::make_shared<TokenProvider>(service, std::string());
    provider->granted_ = std::move(accessToken);
    return provider;
}

TokenResult TokenProvider::accessToken() {
    if (granted_) return granted(*granted_);
    auto token = VXCloudTokenStore::load(service_, storageName_);
    if (!token) return failed(TokenFailure::Kind::authentication, "no stored token for the account");
    if (!token->expiresWithin(nowSeconds(), skew_.count())) return granted(token->accessToken);

    RefreshGuard guard(service_, storageName_);
    // Someone may have refreshed while this caller waited for the lock.
    token = VXCloudTokenStore::load(service_, storageName_);
    if (!token) return failed(TokenFailure::Kind::authentication, "no stored token for the account");
    if (!token->expiresWithin(nowSeconds(), skew_.count())) return granted(token->accessToken);
    return refresh(*token);
}

TokenResult TokenProvider::refreshAfterRejection(const std::string& rejected) {
    // The service refused the token it has just granted: nothing better is to be had.
    if (granted_) return failed(TokenFailure::Kind::authentication, "the service refused the token it granted");
    RefreshGuard guard(service_, storageName_);
    auto token = VXCloudTokenStore::load(service_, storageName_);
    if (!token) return failed(TokenFailure::Kind::authentication, "no stored token for the account");
    if (token->accessToken != rejected && !token->expiresWithin(nowSeconds(), skew_.count())) {
        return granted(token->accessToken);
    }
    return refresh(*token);
}

TokenResult TokenProvider::refreshNow() {
    if (granted_) return granted(*granted_);
    RefreshGuard guard(service_, storageName_);
    auto token = VXCloudTokenStore::load(service_, storageName_);
    if (!token) return failed(TokenFailure::Kind::authentication, "no stored token for the account");
    return refresh(*token);
}

// Runs with the account's refresh lock held.
TokenResult TokenProvider::refresh(const VXCloudOAuthToken& current, bool rereadOnRefusal) {
    if (current.refreshToken.empty()) {
        return failed(TokenFailure::Kind::authentication, "the access token expired and there is no refresh token");
    }
    const VXCloudServiceEndpoints endpoints = VXCloudServiceConfig::endpoints(service_);
    const VXCloudAppCredentials credentials = VXCloudServiceConfig::credentials(service_);
    if (endpoints.tokenUrl.empty()) {
        return failed(TokenFailure::Kind::authentication, "the service has no token endpoint configured");
    }

    std::vector<std::pair<std::string, std::string>> form = {
        {"grant_type", "refresh_token"},
        {"refresh_token", current.refreshToken},
    };
    if (!credentials.clientId.empty()) form.emplace_back("client_id", credentials.clientId);
    if (credentials.clientSecret) form.emplace_back("client_secret", *credentials.clientSecret);

    // A refresh that reached the server may have rotated the refresh token: the request is
    // only repeated when the server provably did not act on it.
    const HttpRequest request = tokenRequest(endpoints.tokenUrl, form);

    const std::int64_t requestedAt = nowSeconds();
    const HttpResponse response = http_->perform(request, RetryPolicy::standard(3));
    if (response.transportFailed()) {
        return failed(TokenFailure::Kind::connection,
                      ProviderError::transportFailure(providers::transportErrorKind(response.error),
                                                      "token refresh: " + response.errorMessage));
    }
    if (response.status >= 500) return failed(TokenFailure::Kind::server, tokenEndpointError(response));
    if (response.status == 429) return failed(TokenFailure::Kind::server, tokenEndpointError(response));
    if (!response.ok()) {
        ProviderError error = tokenEndpointError(response);
        // A process that refreshes without our lock (an older version, another copy of the
        // store) may have spent this refresh token and stored the pair it got: that pair
        // is used rather than losing the account.
        if (rereadOnRefusal && error.oauthError == "invalid_grant") {
            auto stored = VXCloudTokenStore::load(service_, storageName_);
            if (stored && stored->refreshToken != current.refreshToken && !stored->refreshToken.empty()) {
                if (!stored->expiresWithin(nowSeconds(), skew_.count())) return granted(stored->accessToken);
                return refresh(*stored, false);
            }
        }
        // invalid_grant (revoked or expired refresh token), invalid_client and the like:
        // only a new sign-in helps.
        return failed(TokenFailure::Kind::authentication, std::move(error));
    }

    auto fresh = VXCloudOAuthToken::fromTokenResponse(response.body, requestedAt, &current);
    if (!fresh) {
        return failed(TokenFailure::Kind::malformed,
                      ProviderError::transportFailure(TransportErrorKind::malformedResponse,
                                                      "token refresh: the answer holds no access token"));
    }
    if (!VXCloudTokenStore::save(service_, storageName_, *fresh)) {
        // Still usable for this request; the next one refreshes again from the old record.
        log::warning("oauth", "a refreshed token of " + std::string(accountType(service_)) +
                                  " could not be saved");
    }
    log::debug("oauth", "refreshed the access token of a " + std::string(accountType(service_)) + " account");
    return granted(fresh->accessToken);
}

}  // namespace vxcloud::oauth
