#pragma once
// Google's sign-in for installed apps: loopback redirect, PKCE, the Desktop client's
// secret, offline access with a fresh consent (so a refresh token is issued again when an
// account is linked anew). A grant without any of the Drive scopes asked for (the person
// unticked it) fails. The user is named by the OpenID id_token (its "sub" and
// "email"), or by the userinfo endpoint when no id_token came; the tokens are stored under
// "VX_Google_Drive_" + that id, where the Drive client reads them.
#include <string>
#include <vector>

namespace vxcloud::auth {

inline constexpr const char* kGoogleDefaultScope = "https://www.googleapis.com/auth/drive.file";
// The endpoints' `extra` key of the userinfo endpoint.
inline constexpr const char* kUserInfoEndpointKey = "userinfo";

// The scopes asked for: the host's (or per-file Drive access), plus "openid" and "email".
std::vector<std::string> googleScopes(const std::vector<std::string>& requested);

}  // namespace vxcloud::auth
