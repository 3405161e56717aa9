#pragma once
// The Microsoft identity platform (v2 endpoints), shared by the emulators of Microsoft's
// services: OneDrive and OneNote accounts sign in the same way. Public clients with PKCE,
// scope required, refresh tokens only with offline_access and rotating on every refresh,
// errors with AADSTS codes, trace and correlation ids.
#include <nlohmann/json.hpp>
#include <string>

#include "framework/OAuthEndpoints.h"
#include "framework/TokenAuthority.h"
#include "vxcloud_sandbox/Sandbox.h"

namespace vxcloud::sandbox::microsoft {

// Token shapes and lifetimes of consumer accounts.
TokenPolicy tokenPolicy();
OAuthHooks oauthHooks();
// Adds error_codes, timestamp, trace_id and correlation_id, and an AADSTS description.
void decorateTokenError(nlohmann::json& body, const OAuthError& error);

// Registers <prefix>/common/oauth2/v2.0/authorize and .../token under the route keys
// "<provider>/oauth2/authorize" and "<provider>/oauth2/token"; `prefix` is "/<provider>".
void registerSignIn(Router& router, OAuthEndpoints& oauth, const std::string& provider);
// The role URLs "authorize" and "token" of a provider's sign-in.
std::string authorizeUrl(const std::string& baseUrl, const std::string& provider);
std::string tokenUrl(const std::string& baseUrl, const std::string& provider);

// Whether a route key is one of the sign-in routes, and an injected fault there, answered
// in the platform's shape.
bool isSignInRoute(const std::string& routeKey, const std::string& provider);
void answerSignInFault(const FaultSpec& fault, Response& response);

}  // namespace vxcloud::sandbox::microsoft
