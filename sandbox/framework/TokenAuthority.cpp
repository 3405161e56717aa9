#include "framework/TokenAuthority.h"

#include <algorithm>

#include "framework/Hashes.h"
#include "framework/Text.h"

namespace vxcloud::sandbox {
namespace {

TokenGrant grantError(std::string error, std::string description, int status = 400) {
    TokenGrant grant;
    grant.error = OAuthError{status, std::move(error), std::move(description)};
    return grant;
}

bool validVerifier(const std::string& verifier) {
    if (verifier.size() < 43 || verifier.size() > 128) return false;
    return std::all_of(verifier.begin(), verifier.end(), [](char c) {
        return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') ||
               c == '-' || c == '.' || c == '_' || c == '~';
    });
}

}  // namespace

std::string pkceChallenge(const std::string& verifier) { return base64UrlEncode(sha256Raw(verifier)); }

TokenAuthority::TokenAuthority(const Clock& clock, TokenPolicy policy)
    : clock_(clock), policy_(std::move(policy)) {}

TokenPolicy TokenAuthority::policy() const {
    std::lock_guard lock(mutex_);
    return policy_;
}

void TokenAuthority::setAccessLifetime(std::int64_t seconds) {
    std::lock_guard lock(mutex_);
    policy_.accessLifetime = seconds;
}

void TokenAuthority::setReplayUntilSuccessorUsed(bool enabled) {
    std::lock_guard lock(mutex_);
    policy_.replayUntilSuccessorUsed = enabled;
}

IssuedTokens TokenAuthority::issueLocked(const std::string& accountId, const std::string& scope,
                                         const std::string& clientId, bool withRefreshToken,
                                         const std::string& existingRefresh) {
    const std::int64_t now = clock_.nowSeconds();
    IssuedTokens out;
    out.accountId = accountId;
    out.scope = scope;
    out.expiresIn = policy_.accessLifetime;
    std::string family = existingRefresh;
    if (withRefreshToken) {
        out.refreshToken = policy_.refreshPrefix + randomToken(48);
        RefreshRecord record;
        record.accountId = accountId;
        record.scope = scope;
        record.clientId = clientId;
        record.expiresAt = policy_.refreshLifetime > 0 ? now + policy_.refreshLifetime : 0;
        refresh_[out.refreshToken] = record;
        family = out.refreshToken;
    }
    out.accessToken = format_ ? format_(accountId, clientId, now, now + policy_.accessLifetime)
                              : policy_.accessPrefix + randomToken(64);
    access_[out.accessToken] = AccessRecord{accountId, scope, family, now + policy_.accessLifetime, false};
    return out;
}

void TokenAuthority::setAccessTokenFormat(AccessTokenFormat format) {
    std::lock_guard lock(mutex_);
    format_ = std::move(format);
}

IssuedTokens TokenAuthority::issue(const std::string& accountId, const std::string& scope,
                                   bool withRefreshToken, const std::string& clientId) {
    std::lock_guard lock(mutex_);
    return issueLocked(accountId, scope, clientId, withRefreshToken, "");
}

TokenAuthority::Check TokenAuthority::check(const std::string& accessToken) const {
    std::lock_guard lock(mutex_);
    Check result;
    const auto it = access_.find(accessToken);
    if (it == access_.end() || it->second.revoked) return result;
    result.accountId = it->second.accountId;
    result.scope = it->second.scope;
    result.status = clock_.nowSeconds() >= it->second.expiresAt ? Status::expired : Status::valid;
    if (result.status == Status::valid) it->second.used = true;
    return result;
}

std::string TokenAuthority::addAuthorizationRequest(AuthorizationRequest request) {
    std::lock_guard lock(mutex_);
    request.id = randomToken(24);
    request.created = clock_.nowSeconds();
    const std::string id = request.id;
    pending_[id] = std::move(request);
    return id;
}

std::optional<AuthorizationRequest> TokenAuthority::authorizationRequest(const std::string& id) const {
    std::lock_guard lock(mutex_);
    const auto it = pending_.find(id);
    if (it == pending_.end()) return std::nullopt;
    return it->second;
}

std::vector<AuthorizationRequest> TokenAuthority::pendingAuthorizations() const {
    std::lock_guard lock(mutex_);
    std::vector<AuthorizationRequest> out;
    for (const auto& [id, request] : pending_) out.push_back(request);
    std::sort(out.begin(), out.end(), [](const auto& a, const auto& b) { return a.created < b.created; });
    return out;
}

std::optional<std::string> TokenAuthority::approve(const std::string& requestId,
                                                   const std::string& accountId) {
    std::lock_guard lock(mutex_);
    const auto it = pending_.find(requestId);
    if (it == pending_.end()) return std::nullopt;
    const std::string code = randomToken(43);
    codes_[code] = CodeRecord{it->second, accountId, clock_.nowSeconds() + policy_.codeLifetime, false, {}, {}};
    pending_.erase(it);
    return code;
}

bool TokenAuthority::deny(const std::string& requestId) {
    std::lock_guard lock(mutex_);
    return pending_.erase(requestId) > 0;
}

TokenGrant TokenAuthority::exchangeCode(const std::string& code, const std::string& clientId,
                                        const std::optional<std::string>& redirectUri,
                                        const std::optional<std::string>& verifier, bool redirectUriOptional) {
    std::lock_guard lock(mutex_);
    const auto it = codes_.find(code);
    if (it == codes_.end()) return grantError("invalid_grant", "code doesn't exist or has expired");
    CodeRecord& record = it->second;
    if (record.used) {
        // A replayed code also kills what the first exchange issued.
        if (auto a = access_.find(record.issuedAccess); a != access_.end()) a->second.revoked = true;
        if (!record.issuedRefresh.empty()) revokeFamilyLocked(record.issuedRefresh);
        return grantError("invalid_grant", "code has already been used");
    }
    if (clock_.nowSeconds() >= record.expiresAt) return grantError("invalid_grant", "code has expired");
    if (clientId != record.request.clientId) {
        return grantError("invalid_grant", "code was issued to another client_id");
    }
    const std::string expectedRedirect = record.request.redirectUri;
    if (redirectUriOptional && !redirectUri) {
        // Left out: the provider does not ask for it again.
    } else if (expectedRedirect.empty() ? redirectUri.has_value() && !redirectUri->empty()
                                        : (!redirectUri || *redirectUri != expectedRedirect)) {
        return grantError("invalid_grant", "redirect_uri mismatch");
    }
    const auto& challenge = record.request.codeChallenge;
    if (!challenge.empty()) {
        if (!verifier) return grantError("invalid_request", "code_verifier is missing");
        if (!validVerifier(*verifier)) return grantError("invalid_request", "code_verifier is malformed");
        const bool plain = record.request.codeChallengeMethod == "plain";
        if ((plain ? *verifier : pkceChallenge(*verifier)) != challenge) {
            return grantError("invalid_grant", "invalid code verifier");
        }
    }
    record.used = true;
    TokenGrant grant;
    grant.tokens = issueLocked(record.accountId, record.request.scope, clientId,
                               record.request.wantsRefreshToken, "");
    record.issuedAccess = grant.tokens->accessToken;
    record.issuedRefresh = grant.tokens->refreshToken;
    return grant;
}

TokenGrant TokenAuthority::refresh(const std::string& refreshToken, const std::string& clientId) {
    std::lock_guard lock(mutex_);
    const auto it = refresh_.find(refreshToken);
    if (it == refresh_.end() || it->second.revoked) {
        return grantError("invalid_grant", "refresh token is invalid or revoked");
    }
    RefreshRecord record = it->second;
    if (record.expiresAt != 0 && clock_.nowSeconds() >= record.expiresAt) {
        return grantError("invalid_grant", "refresh token has expired");
    }
    if (!record.clientId.empty() && !clientId.empty() && clientId != record.clientId) {
        return grantError("invalid_grant", "refresh token was issued to another client_id");
    }
    if (record.spent) {
        TokenGrant grant;
        grant.tokens = replayLocked(record);
        if (!grant.tokens) return grantError("invalid_grant", "refresh token is invalid or revoked");
        return grant;
    }
    TokenGrant grant;
    if (policy_.rotateRefreshTokens) {
        const bool grace = policy_.refreshTokensSingleUse && policy_.replayUntilSuccessorUsed;
        if (policy_.refreshTokensSingleUse) revokeFamilyLocked(refreshToken);
        grant.tokens = issueLocked(record.accountId, record.scope, record.clientId, true, "");
        if (grace) {
            // Dead as before, but kept able to answer the same pair while that is unused.
            RefreshRecord& spent = refresh_[refreshToken];
            spent.revoked = false;
            spent.spent = true;
            spent.successorAccess = grant.tokens->accessToken;
            spent.successorRefresh = grant.tokens->refreshToken;
        }
    } else {
        grant.tokens = issueLocked(record.accountId, record.scope, record.clientId, false, refreshToken);
    }
    return grant;
}

std::optional<IssuedTokens> TokenAuthority::replayLocked(const RefreshRecord& spent) const {
    if (!policy_.replayUntilSuccessorUsed) return std::nullopt;
    const auto access = access_.find(spent.successorAccess);
    const auto next = refresh_.find(spent.successorRefresh);
    if (access == access_.end() || next == refresh_.end()) return std::nullopt;
    const std::int64_t left = access->second.expiresAt - clock_.nowSeconds();
    if (access->second.used || access->second.revoked || left <= 0 || next->second.revoked || next->second.spent) {
        return std::nullopt;
    }
    IssuedTokens out;
    out.accessToken = spent.successorAccess;
    out.refreshToken = spent.successorRefresh;
    out.expiresIn = left;
    out.accountId = spent.accountId;
    out.scope = spent.scope;
    return out;
}

void TokenAuthority::revokeFamilyLocked(const std::string& refreshToken) {
    if (auto it = refresh_.find(refreshToken); it != refresh_.end()) it->second.revoked = true;
    for (auto& [token, access] : access_) {
        if (access.refreshToken == refreshToken) access.revoked = true;
    }
}

bool TokenAuthority::revokeAccessToken(const std::string& accessToken) {
    std::lock_guard lock(mutex_);
    const auto it = access_.find(accessToken);
    if (it == access_.end()) return false;
    it->second.revoked = true;
    if (!it->second.refreshToken.empty()) revokeFamilyLocked(it->second.refreshToken);
    return true;
}

bool TokenAuthority::revokeRefreshToken(const std::string& refreshToken) {
    std::lock_guard lock(mutex_);
    if (!refresh_.count(refreshToken)) return false;
    revokeFamilyLocked(refreshToken);
    return true;
}

bool TokenAuthority::expireRefreshToken(const std::string& refreshToken) {
    std::lock_guard lock(mutex_);
    const auto it = refresh_.find(refreshToken);
    if (it == refresh_.end()) return false;
    it->second.expiresAt = clock_.nowSeconds() - 1;
    return true;
}

int TokenAuthority::expireAccessTokens(const std::string& accountId, const std::string& accessToken) {
    std::lock_guard lock(mutex_);
    const std::int64_t past = clock_.nowSeconds() - 1;
    int count = 0;
    for (auto& [token, record] : access_) {
        const bool selected = !accessToken.empty() ? token == accessToken
                                                   : accountId.empty() || record.accountId == accountId;
        if (selected && record.expiresAt > past) {
            record.expiresAt = past;
            ++count;
        }
    }
    return count;
}

}  // namespace vxcloud::sandbox
