#include "auth/GoogleAuthFlow.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <nlohmann/json.hpp>

#include "auth/Pkce.h"
#include "auth/SignIn.h"
#include "vxcloud/model/VXCloudConstants.h"
#include "vxcloud/model/VXCloudAccount.h"
#include "vxcloud/platform/Http.h"
#include "vxcloud/sessions/VXCloudServiceConfig.h"

namespace vxcloud::auth {
namespace {

constexpr VXCloudService kService = VXCloudService::googleDrive;

struct Identity {
    std::string userId;
    std::string email;
};

struct IdentityResult {
    std::optional<Identity> identity;
    std::optional<VXCloudAuthResult> failure;
};

IdentityResult failed(ErrorCode code, const std::string& message) {
    return IdentityResult{std::nullopt, signInError(code, message)};
}

std::optional<std::string> text(const Json& object, const char* key) {
    auto it = object.find(key);
    if (it == object.end() || !it->is_string() || it->get<std::string>().empty()) return std::nullopt;
    return it->get<std::string>();
}

IdentityResult fromClaims(const Json& claims, const char* source) {
    auto sub = text(claims, "sub");
    auto email = text(claims, "email");
    if (!sub || !email) {
        return failed(ErrorCode::fileUpload, std::string("Google's ") + source + " names no user id or e-mail.");
    }
    return IdentityResult{Identity{*sub, *email}, std::nullopt};
}

// The id_token came straight from the token endpoint, so its signature need not be
// checked (OpenID Connect Core §3.1.3.7); it must still have been issued to this app.
IdentityResult fromIdToken(const std::string& idToken, const std::string& clientId) {
    const auto first = idToken.find('.');
    const auto second = first == std::string::npos ? std::string::npos : idToken.find('.', first + 1);
    if (second == std::string::npos) return failed(ErrorCode::fileUpload, "Google's id_token is malformed.");
    const auto payload = base64UrlDecode(std::string_view(idToken).substr(first + 1, second - first - 1));
    const Json claims = payload ? Json::parse(*payload, nullptr, false) : Json();
    if (!claims.is_object()) return failed(ErrorCode::fileUpload, "Google's id_token is malformed.");
    if (auto aud = claims.find("aud"); aud != claims.end()) {
        const bool ours = aud->is_string() ? aud->get<std::string>() == clientId
                                           : aud->is_array() && std::find(aud->begin(), aud->end(), clientId) != aud->end();
        if (!ours) return failed(ErrorCode::authentication, "Google's id_token was issued to another app.");
    }
    return fromClaims(claims, "id_token");
}

IdentityResult fromUserInfo(const std::string& accessToken) {
    const VXCloudServiceEndpoints endpoints = VXCloudServiceConfig::endpoints(kService);
    const auto configured = endpoints.extra.find(kUserInfoEndpointKey);
    if (configured == endpoints.extra.end() || configured->second.empty()) {
        return failed(ErrorCode::fileUpload, "Google sent no id_token and no userinfo endpoint is configured.");
    }
    HttpRequest request;
    request.url = configured->second;
    request.headers.set("Authorization", "Bearer " + accessToken);
    request.headers.set("Accept", "application/json");
    const HttpResponse response = HttpClient::shared()->perform(request, RetryPolicy::standard(3));
    if (response.transportFailed()) {
        return failed(ErrorCode::connection, "Google's userinfo endpoint could not be reached: " + response.errorMessage);
    }
    if (!response.ok()) {
        const ProviderError error = ProviderError::fromGoogleResponse(response.status, response.body);
        return failed(classifySignInError(kService, error), "Google did not name the signed-in user: " + error.message);
    }
    const Json claims = Json::parse(response.body, nullptr, false);
    if (!claims.is_object()) return failed(ErrorCode::fileUpload, "Google's userinfo answer is not JSON.");
    return fromClaims(claims, "userinfo answer");
}

bool isIdentityScope(const std::string& scope) {
    return scope == "openid" || scope == "email" || scope == "profile" ||
           scope.rfind("https://www.googleapis.com/auth/userinfo.", 0) == 0;
}

// Google's consent screen lets the person untick scopes, and the token answer names what
// was granted. Without any of the Drive scopes asked for, nothing could be uploaded.
bool grantsDriveAccess(const std::string& granted, const std::vector<std::string>& requested) {
    if (granted.empty()) return true;  // the answer does not say: take the request as granted
    std::vector<std::string> words;
    for (std::size_t start = 0; start < granted.size();) {
        const auto end = std::min(granted.find(' ', start), granted.size());
        if (end > start) words.push_back(granted.substr(start, end - start));
        start = end + 1;
    }
    bool askedForDrive = false;
    for (const auto& scope : requested) {
        if (isIdentityScope(scope)) continue;
        askedForDrive = true;
        if (std::find(words.begin(), words.end(), scope) != words.end()) return true;
    }
    return !askedForDrive;
}

VXCloudAuthResult finishGoogle(const GrantedTokens& granted, const std::string& clientId,
                               const std::vector<std::string>& requestedScopes) {
    if (!grantsDriveAccess(granted.token.scope, requestedScopes)) {
        return signInError(ErrorCode::authentication,
                           "Google Drive access was not granted; sign in again and allow access to Google Drive.");
    }
    const auto idToken = text(granted.answer, "id_token");
    IdentityResult identified = idToken ? fromIdToken(*idToken, clientId) : fromUserInfo(granted.token.accessToken);
    if (!identified.identity) return *identified.failure;

    auto account = std::make_shared<VXCloudAccount>(identified.identity->userId, identified.identity->email, kService);
    // The Drive session reads the authorisation under the account's key.
    if (!saveGrantedToken(kService, account->key(), granted.token)) {
        return signInError(ErrorCode::fileUpload, "The Google token could not be stored in the secure store.");
    }
    return linkedAccount(std::move(account));
}

}  // namespace

std::vector<std::string> googleScopes(const std::vector<std::string>& requested) {
    std::vector<std::string> scopes;
    for (const char* identity : {"openid", "email"}) {
        if (std::find(requested.begin(), requested.end(), identity) == requested.end()) scopes.emplace_back(identity);
    }
    if (requested.empty()) {
        scopes.emplace_back(kGoogleDefaultScope);
    } else {
        scopes.insert(scopes.end(), requested.begin(), requested.end());
    }
    return scopes;
}

namespace {

constexpr const char* kGoogleSetupMissing =
    "Call VXCloudAuthManager.sharedInstance.setup() passing your apps Google Drive integration info (client id, "
    "redirectURL, and scopes (optional)).";

[[noreturn]] void fatal(const char* message) {
    std::fputs(message, stderr);
    std::fputc('\n', stderr);
    std::fflush(stderr);
    std::abort();
}

SignInStart startGoogle(const VXCloudAuthManager& manager, const std::shared_ptr<VXCloudUserAgent>& userAgent,
                        std::chrono::milliseconds timeLimit, RedirectFlow::Completion completion) {
    // The component shows no alerts of its own: a sign-in nobody can see ends at once.
    if (!userAgent) return signInRefused(ErrorCode::connection, VXCloudString::GENERIC_ERROR());
    const auto info = manager.googleDriveInfo();
    // Signing in to Google without the app's registration is a programming error.
    if (!info) fatal(kGoogleSetupMissing);
    OAuth2Request request = OAuth2Request::forService(kService, info->clientId, info->redirectURL, timeLimit);
    if (info->clientSecret) request.clientSecret = info->clientSecret;
    request.scopes = googleScopes(info->scopes);
    request.extraParameters = {{"access_type", "offline"}, {"prompt", "consent"}};
    const std::string clientId = info->clientId;
    const std::vector<std::string> scopes = request.scopes;
    return {OAuth2Flow::create(
                std::move(request),
                [clientId, scopes](const GrantedTokens& granted) { return finishGoogle(granted, clientId, scopes); },
                std::move(completion)),
            std::nullopt};
}

// Google's token and userinfo errors carry its structured reasons.
ErrorCode classifyGoogle(VXCloudService, const ProviderError& error) {
    return VXCloudError::errorCodeFromGoogleDriveError(error);
}

}  // namespace

const SignIn kGoogleSignIn{startGoogle, classifyGoogle};

}  // namespace vxcloud::auth
