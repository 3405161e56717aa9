#pragma once
// The HTTP side of a provider's OAuth 2: the browser authorize page (a tiny HTML page a
// test or a person approves or denies over plain HTTP) and the token endpoint with the
// authorization_code (PKCE) and refresh_token grants. Providers differ only in details,
// given as hooks.
//
//   GET  <authorize>?client_id&redirect_uri&state&code_challenge&code_challenge_method&scope
//        -> 200 HTML listing the accounts, with approve and deny links
//        (sandbox_auto_approve=1 or sandbox_decision=approve|deny [&sandbox_account=...]
//        decide at once; so does the server-wide auto-approve setting)
//   GET|POST <authorize>/decision?request=ID&approve=1|0[&account=id-or-email]
//        -> 302 to redirect_uri with code&state, or error=access_denied&state;
//           without a redirect_uri, a page showing the code
//   POST <token> (application/x-www-form-urlencoded; where the provider allows it, the
//        parameters may come in the query string instead, with an empty body)
#include <functional>
#include <map>
#include <optional>
#include <nlohmann/json.hpp>
#include <string>

#include "framework/Http.h"
#include "framework/TokenAuthority.h"

namespace vxcloud::sandbox {

class ProviderModule;

struct OAuthHooks {
    std::string providerTitle;                 // shown on the authorize page
    std::string tokenType = "bearer";
    // Whether this authorize request gets a refresh token (Dropbox: token_access_type=offline).
    std::function<bool(const Request&)> wantsRefreshToken;
    // Adds the provider's fields to a token answer (account_id, uid, id_token, ...).
    std::function<void(nlohmann::json&, const IssuedTokens&, bool refreshGrant)> decorateToken;
    // Adds the provider's fields to a token error (error_codes, ...).
    std::function<void(nlohmann::json&, const OAuthError&)> decorateError;
    // Checks the client's credentials on the token endpoint (Box wants a client_secret);
    // `form` is the request's form, with a Basic-auth secret as "client_secret".
    std::function<std::optional<OAuthError>(const std::map<std::string, std::string>& form)> checkClient;
    std::string denyDescription = "The user denied access";
    // Whether the token endpoint also takes its parameters in the URL's query string (Dropbox
    // accepts either; its SDKs send them there with an empty body). Body fields win.
    bool tokenParamsInQuery = false;
    // Whether the code exchange may leave out the redirect_uri the authorize request named
    // (Box's token request has no such field); one that is sent must still match.
    bool redirectUriOptional = false;
};

class OAuthEndpoints {
public:
    OAuthEndpoints(ProviderModule& module, OAuthHooks hooks);

    void registerAuthorize(Router& router, const std::string& path, const std::string& routeKey);
    void registerToken(Router& router, const std::string& path, const std::string& routeKey);

    // An OAuth-style JSON error answer.
    void oauthError(Response& response, const OAuthError& error) const;

private:
    void authorize(Request& request, Response& response);
    void decision(Request& request, Response& response);
    void token(Request& request, Response& response);
    void decide(const AuthorizationRequest& pending, bool approve, const std::string& account,
                Response& response);
    void errorPage(Response& response, int status, const std::string& message) const;

    ProviderModule& module_;
    OAuthHooks hooks_;
    std::string authorizePath_;
};

}  // namespace vxcloud::sandbox
