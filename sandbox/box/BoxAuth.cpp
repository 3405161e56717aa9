// Box's OAuth 2 on the framework's endpoints: a client secret on every token request,
// refresh tokens that rotate and are single-use, Box's words for refused grants, and the
// revoke endpoint.
#include "box/BoxModule.h"
#include "framework/Text.h"

namespace vxcloud::sandbox::box {
namespace {

const char* kBadClient = "The client credentials are not valid";

// Box's descriptions for what the token authority refuses.
std::string boxDescription(const OAuthError& error) {
    const std::string& said = error.description;
    if (error.error == "invalid_grant") {
        if (said.find("refresh token has expired") != std::string::npos) return "Refresh token has expired";
        if (said.rfind("refresh token", 0) == 0) return "Invalid refresh token";
        if (said.find("verifier") != std::string::npos) return "Invalid code verifier";
        return "Auth code doesn't exist or is invalid for the client";
    }
    if (error.error == "unsupported_grant_type") return "Invalid grant_type parameter or parameter missing";
    return said;
}

}  // namespace

OAuthHooks BoxModule::oauthHooks() {
    OAuthHooks hooks;
    hooks.providerTitle = "Box";
    hooks.tokenType = "bearer";
    hooks.decorateToken = [](json& body, const IssuedTokens&, bool) {
        body.erase("scope");
        body["restricted_to"] = json::array();
    };
    hooks.decorateError = [](json& body, const OAuthError& error) { body["error_description"] = boxDescription(error); };
    hooks.checkClient = [this](const std::map<std::string, std::string>& form) { return checkClient(form); };
    hooks.denyDescription = "The user denied access to your application";
    hooks.redirectUriOptional = true;
    return hooks;
}

std::optional<OAuthError> BoxModule::checkClient(const std::map<std::string, std::string>& form) {
    const auto id = form.find("client_id");
    const auto secret = form.find("client_secret");
    if (id == form.end() || id->second.empty() || secret == form.end() || secret->second.empty()) {
        return OAuthError{400, "invalid_client", kBadClient};
    }
    std::lock_guard lock(clientsMutex_);
    const auto [known, first] = clientSecrets_.emplace(id->second, secret->second);
    if (!first && known->second != secret->second) return OAuthError{401, "invalid_client", kBadClient};
    return std::nullopt;
}

void BoxModule::registerAuthRoutes(Router& router) {
    oauth_.registerAuthorize(router, "/box/api/oauth2/authorize", "box/oauth2/authorize");
    oauth_.registerToken(router, "/box/oauth2/token", "box/oauth2/token");

    router.exact("POST", "/box/oauth2/revoke", "box/oauth2/revoke", [this](Request& request, Response& response) {
        if (request.mediaType() != "application/x-www-form-urlencoded") {
            return oauth_.oauthError(response, {400, "invalid_request", "Invalid request"});
        }
        const auto form = parseForm(request.body.view());
        if (const auto refused = checkClient(form)) return oauth_.oauthError(response, *refused);
        const auto token = form.find("token");
        if (token == form.end() || token->second.empty()) {
            return oauth_.oauthError(response, {400, "invalid_request", "Missing token parameter"});
        }
        // Either kind of token; revoking one kills the pair it belongs to. Unknown ones are no error.
        if (!tokens().revokeAccessToken(token->second)) tokens().revokeRefreshToken(token->second);
        response.empty(200);
    });
}

}  // namespace vxcloud::sandbox::box
