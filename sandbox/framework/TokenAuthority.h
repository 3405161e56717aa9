#pragma once
// OAuth 2 state of one provider: pending authorization requests, authorization codes with
// PKCE, short-lived access tokens and refresh tokens. The HTTP side (authorize page, token
// endpoint) is OAuthEndpoints; this class only keeps and checks the state. Thread-safe.
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "framework/Clock.h"

namespace vxcloud::sandbox {

struct TokenPolicy {
    std::string accessPrefix = "sbx.";     // Dropbox tokens start with "sl."
    std::string refreshPrefix;
    std::int64_t accessLifetime = 3600;     // seconds
    std::int64_t codeLifetime = 600;
    std::int64_t refreshLifetime = 0;       // 0: refresh tokens do not expire on their own
    bool rotateRefreshTokens = false;       // every refresh answers a new refresh token
    bool refreshTokensSingleUse = false;    // ...and the old one dies at once,
    // unless this grace is on: sent again before the pair it got is used, a single-use
    // refresh token answers that same pair (Box's answer to concurrent refreshes).
    bool replayUntilSuccessorUsed = false;
};

// How a provider spells its access tokens when they are not opaque (Evernote's carry the
// shard, user, expiry and app): given the account, the client (app) id and the times in
// seconds. Called with the authority's lock held: it must not call back into the authority.
using AccessTokenFormat =
    std::function<std::string(const std::string& accountId, const std::string& clientId, std::int64_t issuedAt,
                              std::int64_t expiresAt)>;

struct IssuedTokens {
    std::string accessToken;
    std::string refreshToken;               // empty when none was issued
    std::int64_t expiresIn = 0;
    std::string accountId;
    std::string scope;
};

struct OAuthError {
    int status = 400;
    std::string error;                      // "invalid_grant", ...
    std::string description;
};

struct TokenGrant {
    std::optional<IssuedTokens> tokens;
    OAuthError error;                       // when there are no tokens
};

struct AuthorizationRequest {
    std::string id;
    std::string clientId;
    std::string redirectUri;                // empty: the "no redirect" flow shows the code
    std::string state;
    std::string codeChallenge;
    std::string codeChallengeMethod;        // "S256" or "plain"
    std::string scope;
    bool wantsRefreshToken = true;
    std::int64_t created = 0;
};

class TokenAuthority {
public:
    TokenAuthority(const Clock& clock, TokenPolicy policy);

    TokenPolicy policy() const;
    void setAccessLifetime(std::int64_t seconds);
    void setReplayUntilSuccessorUsed(bool enabled);
    // Access tokens from now on are spelled by `format` instead of prefix + random characters.
    void setAccessTokenFormat(AccessTokenFormat format);

    // `clientId`: the app the tokens are for, when the provider's tokens say it.
    IssuedTokens issue(const std::string& accountId, const std::string& scope, bool withRefreshToken,
                       const std::string& clientId = {});

    enum class Status { valid, expired, invalid };
    struct Check {
        Status status = Status::invalid;
        std::string accountId;
        std::string scope;
    };
    Check check(const std::string& accessToken) const;

    // Authorization requests waiting for the person's decision.
    std::string addAuthorizationRequest(AuthorizationRequest request);
    std::optional<AuthorizationRequest> authorizationRequest(const std::string& id) const;
    std::vector<AuthorizationRequest> pendingAuthorizations() const;
    // Approval turns the request into a one-time code for `accountId`; denial drops it.
    std::optional<std::string> approve(const std::string& requestId, const std::string& accountId);
    bool deny(const std::string& requestId);

    // The authorization_code grant. `redirectUri` must equal the one sent to authorize (and
    // be absent when none was sent; with `redirectUriOptional` it may be left out
    // altogether); `verifier` must match the PKCE challenge.
    TokenGrant exchangeCode(const std::string& code, const std::string& clientId,
                            const std::optional<std::string>& redirectUri,
                            const std::optional<std::string>& verifier, bool redirectUriOptional = false);
    TokenGrant refresh(const std::string& refreshToken, const std::string& clientId);

    // Revokes an access token together with its refresh token and every access token
    // minted from that refresh token.
    bool revokeAccessToken(const std::string& accessToken);
    bool revokeRefreshToken(const std::string& refreshToken);
    bool expireRefreshToken(const std::string& refreshToken);
    // Expires one token, or all tokens of an account, or all tokens (both empty).
    int expireAccessTokens(const std::string& accountId, const std::string& accessToken);

private:
    struct AccessRecord {
        std::string accountId;
        std::string scope;
        std::string refreshToken;
        std::int64_t expiresAt = 0;
        bool revoked = false;
        mutable bool used = false;          // a request has carried it
    };
    struct RefreshRecord {
        std::string accountId;
        std::string scope;
        std::string clientId;
        std::int64_t expiresAt = 0;         // 0: never
        bool revoked = false;
        // Single-use with the replay grace: spent, and the pair it was exchanged for.
        bool spent = false;
        std::string successorAccess;
        std::string successorRefresh;
    };
    struct CodeRecord {
        AuthorizationRequest request;
        std::string accountId;
        std::int64_t expiresAt = 0;
        bool used = false;
        std::string issuedAccess;
        std::string issuedRefresh;
    };

    IssuedTokens issueLocked(const std::string& accountId, const std::string& scope,
                             const std::string& clientId, bool withRefreshToken,
                             const std::string& existingRefresh);
    void revokeFamilyLocked(const std::string& refreshToken);
    // The pair a spent refresh token got, while the grace lets it answer that pair again.
    std::optional<IssuedTokens> replayLocked(const RefreshRecord& spent) const;

    const Clock& clock_;
    mutable std::mutex mutex_;
    TokenPolicy policy_;
    AccessTokenFormat format_;
    std::map<std::string, AccessRecord> access_;
    std::map<std::string, RefreshRecord> refresh_;
    std::map<std::string, CodeRecord> codes_;
    std::map<std::string, AuthorizationRequest> pending_;
};

// BASE64URL(SHA256(verifier)) without padding, as PKCE S256 defines it.
std::string pkceChallenge(const std::string& verifier);

}  // namespace vxcloud::sandbox
