// The Microsoft identity platform's v2 endpoints on the framework's token authority: the
// authorize page (scope required), the token endpoint for public clients (PKCE, no secret),
// refresh tokens only with offline_access, rotating on every refresh, and the platform's
// error body (AADSTS codes, trace and correlation ids).
#include "microsoft/Identity.h"

#include <ctime>

#include "framework/Text.h"

namespace vxcloud::sandbox::microsoft {
namespace {

using nlohmann::json;

struct AadError {
    const char* error;
    const char* fragment;  // of the framework's description; empty matches any
    int code;
    const char* text;
};

// The platform's codes and texts for what the token authority refuses.
constexpr AadError kAadErrors[] = {
    {"invalid_grant", "already been used", 54005,
     "OAuth2 Authorization code was already redeemed, please retry with a new valid code or use an existing "
     "refresh token."},
    {"invalid_grant", "code verifier", 501481,
     "The Code_Verifier does not match the code_challenge supplied in the authorization request."},
    {"invalid_grant", "refresh token has expired", 700082,
     "The refresh token has expired due to inactivity. The token was issued on a date and was inactive for 90 "
     "days."},
    {"invalid_grant", "redirect_uri", 70000,
     "Provided grant is invalid or malformed. The redirect URI does not match the one of the authorization."},
    {"invalid_grant", "code", 70008,
     "The provided authorization code or refresh token has expired due to inactivity. Send a new interactive "
     "authorization request for this user and resource."},
    {"invalid_grant", "", 70000, "Provided grant is invalid or malformed."},
    {"invalid_request", "code_verifier", 501481,
     "The Code_Verifier does not match the code_challenge supplied in the authorization request."},
    {"invalid_request", "", 900144, "The request body must contain the following parameter: "},
    {"invalid_client", "", 700025, "Client is public so neither 'client_assertion' nor 'client_secret' should be presented."},
    {"unsupported_grant_type", "", 70003, "The app requested an unsupported grant type."},
    {"temporarily_unavailable", "", 90033, "A transient error has occurred. Please try again."},
    {"", "", 50000, "There was an error issuing a token."},
};

bool asksFor(const std::string& scope, const std::string& wanted) {
    return (" " + scope + " ").find(" " + wanted + " ") != std::string::npos;
}

}  // namespace

void decorateTokenError(json& body, const OAuthError& error) {
    const AadError* match = &kAadErrors[std::size(kAadErrors) - 1];
    for (const AadError& entry : kAadErrors) {
        const bool sameError = std::string(entry.error) == error.error || entry.error[0] == '\0';
        if (sameError && error.description.find(entry.fragment) != std::string::npos) {
            match = &entry;
            break;
        }
    }
    const std::string traceId = randomGuid(), correlationId = randomGuid();
    std::string timestamp = formatUtc(std::time(nullptr));
    if (timestamp.size() > 10) timestamp[10] = ' ';
    std::string text = match->text;
    if (match->code == 900144) text += "'" + error.description + "'.";
    body["error_description"] = "AADSTS" + std::to_string(match->code) + ": " + text + "\r\nTrace ID: " + traceId +
                                "\r\nCorrelation ID: " + correlationId + "\r\nTimestamp: " + timestamp;
    body["error_codes"] = json::array({match->code});
    body["timestamp"] = timestamp;
    body["trace_id"] = traceId;
    body["correlation_id"] = correlationId;
}

TokenPolicy tokenPolicy() {
    TokenPolicy policy;
    policy.accessPrefix = "EwB";  // consumer access tokens are opaque and start so
    policy.refreshPrefix = "M.C5";
    policy.accessLifetime = 3599;
    policy.codeLifetime = 600;
    policy.refreshLifetime = 90LL * 24 * 3600;
    // Every refresh answers a new refresh token; the old one is not actively revoked.
    policy.rotateRefreshTokens = true;
    policy.refreshTokensSingleUse = false;
    return policy;
}

OAuthHooks oauthHooks() {
    OAuthHooks hooks;
    hooks.providerTitle = "Microsoft";
    hooks.tokenType = "Bearer";
    hooks.wantsRefreshToken = [](const Request& request) {
        return asksFor(request.queryParam("scope").value_or(""), "offline_access");
    };
    hooks.decorateToken = [](json& body, const IssuedTokens& tokens, bool) {
        body["ext_expires_in"] = tokens.expiresIn;
    };
    hooks.decorateError = decorateTokenError;
    // A native app is a public client: a secret sent along is refused.
    hooks.checkClient = [](const std::map<std::string, std::string>& form) -> std::optional<OAuthError> {
        const auto secret = form.find("client_secret");
        if (secret != form.end() && !secret->second.empty()) {
            return OAuthError{401, "invalid_client", "public client sent a secret"};
        }
        return std::nullopt;
    };
    hooks.denyDescription = "AADSTS65004: User declined to consent to access the app.";
    return hooks;
}

std::string authorizeUrl(const std::string& baseUrl, const std::string& provider) {
    return baseUrl + "/" + provider + "/common/oauth2/v2.0/authorize";
}

std::string tokenUrl(const std::string& baseUrl, const std::string& provider) {
    return baseUrl + "/" + provider + "/common/oauth2/v2.0/token";
}

void registerSignIn(Router& router, OAuthEndpoints& oauth, const std::string& provider) {
    // The platform refuses a request without a scope, back at the redirect URI.
    WrappingRouter authorize(router, [](Handler inner) -> Handler {
        return [inner = std::move(inner)](Request& request, Response& response) {
            const bool decision = request.path.size() >= 9 && request.path.substr(request.path.size() - 9) == "/decision";
            const std::string redirect = request.queryParam("redirect_uri").value_or("");
            if (decision || !request.queryParam("scope").value_or("").empty() || redirect.empty()) {
                return inner(request, response);
            }
            std::map<std::string, std::string> params = {
                {"error", "invalid_request"},
                {"error_description", "AADSTS900144: The request body must contain the following parameter: 'scope'."}};
            if (const auto state = request.queryParam("state")) params["state"] = *state;
            response.redirect(appendQuery(redirect, params));
        };
    });
    oauth.registerAuthorize(authorize, authorizeUrl("", provider), provider + "/oauth2/authorize");
    oauth.registerToken(router, tokenUrl("", provider), provider + "/oauth2/token");
}

bool isSignInRoute(const std::string& routeKey, const std::string& provider) {
    return routeKey.rfind(provider + "/oauth2/", 0) == 0;
}

void answerSignInFault(const FaultSpec& fault, Response& response) {
    std::string error = fault.error;
    if (error.empty()) {
        error = fault.status == 401                         ? "invalid_client"
                : fault.status == 429 || fault.status == 503 ? "temporarily_unavailable"
                : fault.status >= 500                        ? "server_error"
                                                             : "invalid_request";
    }
    json body = {{"error", error}, {"error_description", "Injected failure"}};
    decorateTokenError(body, OAuthError{fault.status, error, "Injected failure"});
    response.json(fault.status, body);
}

}  // namespace vxcloud::sandbox::microsoft
