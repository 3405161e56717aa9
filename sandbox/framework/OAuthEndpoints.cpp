#include "framework/OAuthEndpoints.h"

#include "framework/ProviderModule.h"
#include "framework/SignInPage.h"
#include "framework/Text.h"

namespace vxcloud::sandbox {
namespace {

std::string param(const Request& request, const std::string& name) {
    auto value = request.queryParam(name);
    return value ? *value : std::string();
}

bool isAbsoluteHttpUrl(const std::string& url) {
    return url.rfind("http://", 0) == 0 || url.rfind("https://", 0) == 0;
}

}  // namespace

OAuthEndpoints::OAuthEndpoints(ProviderModule& module, OAuthHooks hooks)
    : module_(module), hooks_(std::move(hooks)) {}

void OAuthEndpoints::registerAuthorize(Router& router, const std::string& path, const std::string& routeKey) {
    authorizePath_ = path;
    router.exact("GET", path, routeKey, [this](Request& q, Response& r) { authorize(q, r); });
    router.exact("GET", path + "/decision", routeKey + "/decision",
                 [this](Request& q, Response& r) { decision(q, r); });
    router.exact("POST", path + "/decision", routeKey + "/decision",
                 [this](Request& q, Response& r) { decision(q, r); });
}

void OAuthEndpoints::registerToken(Router& router, const std::string& path, const std::string& routeKey) {
    router.exact("POST", path, routeKey, [this](Request& q, Response& r) { token(q, r); });
}

void OAuthEndpoints::errorPage(Response& response, int status, const std::string& message) const {
    signInErrorPage(response, hooks_.providerTitle, status, message);
}

void OAuthEndpoints::authorize(Request& request, Response& response) {
    AuthorizationRequest pending;
    pending.clientId = param(request, "client_id");
    pending.redirectUri = param(request, "redirect_uri");
    pending.state = param(request, "state");
    pending.codeChallenge = param(request, "code_challenge");
    pending.codeChallengeMethod = param(request, "code_challenge_method");
    pending.scope = param(request, "scope");
    const std::string responseType = param(request, "response_type");
    if (pending.clientId.empty()) return errorPage(response, 400, "client_id is missing");
    if (responseType != "code") {
        return errorPage(response, 400, "response_type must be \"code\", got \"" + responseType + "\"");
    }
    if (!pending.redirectUri.empty() && !isAbsoluteHttpUrl(pending.redirectUri)) {
        return errorPage(response, 400, "redirect_uri must be an absolute http(s) URL");
    }
    if (!pending.codeChallenge.empty()) {
        if (pending.codeChallengeMethod.empty()) pending.codeChallengeMethod = "plain";
        if (pending.codeChallengeMethod != "S256" && pending.codeChallengeMethod != "plain") {
            return errorPage(response, 400, "code_challenge_method must be S256 or plain");
        }
    } else if (!pending.codeChallengeMethod.empty()) {
        return errorPage(response, 400, "code_challenge_method without code_challenge");
    }
    if (pending.state.size() > 500) return errorPage(response, 400, "state is longer than 500 bytes");
    pending.wantsRefreshToken = hooks_.wantsRefreshToken ? hooks_.wantsRefreshToken(request) : true;

    const std::string id = module_.tokens().addAuthorizationRequest(pending);
    pending.id = id;

    const std::string decisionParam = immediateDecision(request, module_.context());
    if (!decisionParam.empty()) {
        return decide(pending, decisionParam == "approve", param(request, "sandbox_account"), response);
    }
    const std::string decisionUrl = authorizePath_ + "/decision?request=" + urlEncode(id);
    response.html(200, signInPage(hooks_.providerTitle, module_.accounts(), pending.clientId, pending.scope, id,
                                  decisionUrl));
}

void OAuthEndpoints::decision(Request& request, Response& response) {
    auto params = decisionParams(request);
    const auto pending = module_.tokens().authorizationRequest(params["request"]);
    if (!pending) return errorPage(response, 400, "unknown or already decided authorization request");
    const std::string approve = params["approve"];
    if (approve != "1" && approve != "0" && approve != "true" && approve != "false") {
        return errorPage(response, 400, "approve must be 1 or 0");
    }
    decide(*pending, approve == "1" || approve == "true", params["account"], response);
}

void OAuthEndpoints::decide(const AuthorizationRequest& pending, bool approve, const std::string& account,
                            Response& response) {
    std::map<std::string, std::string> params;
    if (!pending.state.empty()) params["state"] = pending.state;
    if (!approve) {
        module_.tokens().deny(pending.id);
        if (pending.redirectUri.empty()) return errorPage(response, 200, "Access was denied.");
        params["error"] = "access_denied";
        params["error_description"] = hooks_.denyDescription;
        return response.redirect(appendQuery(pending.redirectUri, params));
    }
    const auto chosen = module_.findAccount(account);
    if (!chosen) return errorPage(response, 400, "no such account: " + account);
    const auto code = module_.tokens().approve(pending.id, chosen->id);
    if (!code) return errorPage(response, 400, "unknown or already decided authorization request");
    if (pending.redirectUri.empty()) {
        return response.html(200, "<!doctype html><html><body><p>Enter this code into the app:</p>"
                                  "<p><code id=\"code\">" + htmlEscape(*code) + "</code></p></body></html>\n");
    }
    params["code"] = *code;
    response.redirect(appendQuery(pending.redirectUri, params));
}

void OAuthEndpoints::oauthError(Response& response, const OAuthError& error) const {
    nlohmann::json body = {{"error", error.error}, {"error_description", error.description}};
    if (hooks_.decorateError) hooks_.decorateError(body, error);
    response.json(error.status, body);
    response.setHeader("Cache-Control", "no-store");
}

void OAuthEndpoints::token(Request& request, Response& response) {
    std::map<std::string, std::string> form;
    if (hooks_.tokenParamsInQuery) {
        for (const auto& [k, v] : request.query) form[k] = v;
    }
    const bool queryOnly = !form.empty() && request.body.empty();
    if (!queryOnly && request.mediaType() != "application/x-www-form-urlencoded") {
        return oauthError(response, {400, "invalid_request",
                                     "the token request must be application/x-www-form-urlencoded"});
    }
    for (auto& [k, v] : parseForm(request.body.view())) form[k] = std::move(v);
    std::string clientId = form["client_id"];
    if (const auto auth = request.header("Authorization"); auth && auth->rfind("Basic ", 0) == 0) {
        const std::string decoded = base64Decode(auth->substr(6));
        const auto colon = decoded.find(':');
        clientId = urlDecode(decoded.substr(0, colon));
        if (colon != std::string::npos) form["client_secret"] = urlDecode(decoded.substr(colon + 1));
    }
    form["client_id"] = clientId;
    if (hooks_.checkClient) {
        if (const auto error = hooks_.checkClient(form)) return oauthError(response, *error);
    }
    const std::string grantType = form["grant_type"];
    TokenGrant grant;
    if (grantType == "authorization_code") {
        if (form["code"].empty()) return oauthError(response, {400, "invalid_request", "code is missing"});
        if (clientId.empty()) return oauthError(response, {400, "invalid_request", "client_id is missing"});
        std::optional<std::string> redirect, verifier;
        if (form.count("redirect_uri")) redirect = form["redirect_uri"];
        if (form.count("code_verifier")) verifier = form["code_verifier"];
        grant = module_.tokens().exchangeCode(form["code"], clientId, redirect, verifier, hooks_.redirectUriOptional);
    } else if (grantType == "refresh_token") {
        if (form["refresh_token"].empty()) {
            return oauthError(response, {400, "invalid_request", "refresh_token is missing"});
        }
        grant = module_.tokens().refresh(form["refresh_token"], clientId);
    } else {
        return oauthError(response, {400, "unsupported_grant_type",
                                     "grant_type \"" + grantType + "\" is not supported"});
    }
    if (!grant.tokens) return oauthError(response, grant.error);
    const IssuedTokens& t = *grant.tokens;
    nlohmann::json body = {{"access_token", t.accessToken},
                           {"token_type", hooks_.tokenType},
                           {"expires_in", t.expiresIn}};
    if (!t.refreshToken.empty()) body["refresh_token"] = t.refreshToken;
    if (!t.scope.empty()) body["scope"] = t.scope;
    if (hooks_.decorateToken) hooks_.decorateToken(body, t, grantType == "refresh_token");
    response.json(200, body);
    response.setHeader("Cache-Control", "no-store");
}

}  // namespace vxcloud::sandbox
