#pragma once
// A service's sign-in, as its registry entry names it: how the authorisation manager starts
// it and how its failed steps are classified.
#include <chrono>
#include <memory>
#include <optional>

#include "auth/OAuth2Flow.h"

namespace vxcloud::auth {

// A flow to run, or the result that ends the attempt at once (the service is not set up).
struct SignInStart {
    std::shared_ptr<RedirectFlow> flow;
    std::optional<VXCloudAuthResult> result;
};

struct SignIn {
    // Reads the service's registration from the manager and prepares the flow.
    SignInStart (*start)(const VXCloudAuthManager& manager, const std::shared_ptr<VXCloudUserAgent>& userAgent,
                         std::chrono::milliseconds timeLimit, RedirectFlow::Completion completion) = nullptr;
    // The code of a provider error from one of the sign-in's requests, once transport
    // failures are set aside.
    ErrorCode (*classify)(VXCloudService service, const ProviderError& error) = nullptr;
};

// The usual reading of a token endpoint's (and a redirect's) errors: 429, 5xx and the
// server-trouble words are `connection`; a refused grant, an interaction the person must
// make, or 401 `authentication`; anything else the service's classifier.
ErrorCode classifyTokenEndpointError(VXCloudService service, const ProviderError& error);

// A sign-in result that ends the attempt at once with an error.
SignInStart signInRefused(ErrorCode code, const std::string& message);

extern const SignIn kDropboxSignIn;
extern const SignIn kGoogleSignIn;
// Microsoft's identity platform, for OneDrive and for OneNote (its own account and scopes).
extern const SignIn kOneDriveSignIn;
extern const SignIn kOneNoteSignIn;
extern const SignIn kBoxSignIn;
extern const SignIn kEvernoteSignIn;
// The endpoint naming Microsoft Graph's root for OneNote, whose base is the notes service.
inline constexpr const char* kGraphRootEndpointKey = "graph";

}  // namespace vxcloud::auth
