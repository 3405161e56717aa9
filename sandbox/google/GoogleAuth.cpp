// Google's OAuth 2 for installed apps on the framework's token authority: the authorize
// page (scope required), the token endpoint with PKCE and refresh (an id_token for openid),
// revocation, and the OpenID userinfo endpoint that tells who signed in.
#include <algorithm>

#include "framework/Hashes.h"
#include "framework/Text.h"
#include "google/GoogleModule.h"

namespace vxcloud::sandbox::google {
namespace {

// The client_id of the token request being answered, for the id_token's audience: the
// framework's token hooks see the tokens but not the request.
thread_local std::string tokenRequestClientId;

const char* kEmailScope = "https://www.googleapis.com/auth/userinfo.email";
const char* kProfileScope = "https://www.googleapis.com/auth/userinfo.profile";

std::vector<std::string> splitScopes(const std::string& scope) {
    std::vector<std::string> out;
    std::size_t pos = 0;
    while (pos < scope.size()) {
        std::size_t end = scope.find(' ', pos);
        if (end == std::string::npos) end = scope.size();
        if (end > pos) out.push_back(scope.substr(pos, end - pos));
        pos = end + 1;
    }
    return out;
}

// Google answers the short identity scopes with their full names.
std::vector<std::string> grantedScopes(const std::string& scope) {
    std::vector<std::string> out;
    for (const auto& s : splitScopes(scope)) {
        out.push_back(s == "email" ? kEmailScope : s == "profile" ? kProfileScope : s);
    }
    return out;
}

bool granted(const std::vector<std::string>& scopes, const std::string& wanted) {
    return std::find(scopes.begin(), scopes.end(), wanted) != scopes.end();
}

void addIdentity(json& claims, const AccountInfo& account, const std::vector<std::string>& scopes) {
    if (granted(scopes, kEmailScope)) {
        claims["email"] = account.email;
        claims["email_verified"] = true;
    }
    if (granted(scopes, kProfileScope)) {
        claims["name"] = account.displayName();
        claims["given_name"] = account.givenName;
        claims["family_name"] = account.surname;
        claims["picture"] = "https://lh3.googleusercontent.com/a/sandbox-" + account.id;
        claims["locale"] = account.locale;
    }
}

// A JWT shaped like Google's. Its signature is not verifiable: a client takes the token
// straight from the token endpoint and may skip the check (OpenID Connect Core 3.1.3.7).
std::string idToken(const AccountInfo& account, const std::vector<std::string>& scopes, const std::string& clientId,
                    const std::string& accessToken, std::int64_t now) {
    const json header = {{"alg", "RS256"}, {"kid", "vxcloud-sandbox"}, {"typ", "JWT"}};
    json claims = {{"iss", "https://accounts.google.com"},
                   {"azp", clientId},
                   {"aud", clientId},
                   {"sub", account.id},
                   {"at_hash", base64UrlEncode(sha256Raw(accessToken).substr(0, 16))},
                   {"iat", now},
                   {"exp", now + 3599}};
    addIdentity(claims, account, scopes);
    const std::string signingInput = base64UrlEncode(header.dump()) + "." + base64UrlEncode(claims.dump());
    return signingInput + "." + base64UrlEncode(sha256Raw(signingInput + "/vxcloud-sandbox"));
}

void oauthJsonError(Response& response, int status, const std::string& error, const std::string& description) {
    response.json(status, {{"error", error}, {"error_description", description}});
    response.setHeader("Cache-Control", "no-store");
}

}  // namespace

OAuthHooks googleOAuthHooks(GoogleModule& module) {
    OAuthHooks hooks;
    hooks.providerTitle = "Google";
    hooks.tokenType = "Bearer";
    // Installed apps get a refresh token on consent, with or without access_type=offline.
    hooks.wantsRefreshToken = [](const Request&) { return true; };
    hooks.decorateToken = [&module](json& body, const IssuedTokens& t, bool) {
        const auto scopes = grantedScopes(t.scope);
        std::string joined;
        for (const auto& s : scopes) joined += (joined.empty() ? "" : " ") + s;
        body["scope"] = joined;
        const auto account = module.findAccount(t.accountId);
        if (account && granted(scopes, "openid")) {
            body["id_token"] = idToken(*account, scopes, tokenRequestClientId, t.accessToken,
                                       module.context().clock.nowSeconds());
        }
    };
    hooks.decorateError = [](json& body, const OAuthError& error) {
        if (error.error == "invalid_grant" && error.description.find("refresh token") != std::string::npos) {
            body["error_description"] = "Token has been expired or revoked.";
        }
    };
    hooks.denyDescription = "The user denied access.";
    return hooks;
}

void GoogleModule::registerAuthRoutes(Router& router) {
    // Google refuses an authorization request without a scope before showing anything.
    WrappingRouter authorize(router, [](Handler inner) -> Handler {
        return [inner = std::move(inner)](Request& request, Response& response) {
            const bool decision = request.path.size() >= 9 && request.path.substr(request.path.size() - 9) == "/decision";
            if (!decision && request.queryParam("scope").value_or("").empty()) {
                response.html(400, "<!doctype html><html><body><h1>Error 400: invalid_request</h1>"
                                   "<p id=\"error\">Missing required parameter: scope</p></body></html>\n");
                return;
            }
            inner(request, response);
        };
    });
    oauth_.registerAuthorize(authorize, "/google/o/oauth2/v2/auth", "google/oauth2/authorize");

    WrappingRouter token(router, [](Handler inner) -> Handler {
        return [inner = std::move(inner)](Request& request, Response& response) {
            auto form = parseForm(request.body.view());
            tokenRequestClientId = form["client_id"];
            if (const auto auth = request.header("Authorization"); auth && auth->rfind("Basic ", 0) == 0) {
                const std::string decoded = base64Decode(auth->substr(6));
                tokenRequestClientId = decoded.substr(0, decoded.find(':'));
            }
            inner(request, response);
            tokenRequestClientId.clear();
        };
    });
    oauth_.registerToken(token, "/google/token", "google/oauth2/token");

    router.exact("POST", "/google/revoke", "google/oauth2/revoke", [this](Request& request, Response& response) {
        std::string token = request.queryParam("token").value_or("");
        if (token.empty() && request.mediaType() == "application/x-www-form-urlencoded") {
            token = parseForm(request.body.view())["token"];
        }
        if (token.empty()) return oauthJsonError(response, 400, "invalid_request", "Missing required parameter: token");
        // An access token that is revoked already counts as unknown, as at the service.
        const bool access = tokens().check(token).status != TokenAuthority::Status::invalid;
        if (access ? !tokens().revokeAccessToken(token) : !tokens().revokeRefreshToken(token)) {
            return oauthJsonError(response, 400, "invalid_token", "Token expired or revoked");
        }
        response.json(200, json::object());
    });

    auto userinfo = [this](Request& request, Response& response) {
        const Caller who = caller(request);
        if (!who.valid()) {
            response.setHeader("WWW-Authenticate", "Bearer realm=\"https://accounts.google.com/\", error=\"invalid_token\"");
            return oauthJsonError(response, 401, "invalid_request", "Invalid Credentials");
        }
        json claims = {{"sub", who.account.id}};
        addIdentity(claims, who.account, grantedScopes(who.scope));
        response.json(200, claims);
    };
    router.exact("GET", "/google/v1/userinfo", "google/oauth2/userinfo", userinfo);
    router.exact("GET", "/google/oauth2/v3/userinfo", "google/oauth2/userinfo", userinfo);
}

}  // namespace vxcloud::sandbox::google
