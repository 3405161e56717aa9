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
    std::shared_ptr<OAuth2Flow> flow;
    std::optional<VXCloudAuthResult> result;
};

struct SignIn {
    // Reads the service's registration from the manager and prepares the flow.
    SignInStart (*start)(const VXCloudAuthManager& manager, const std::shared_ptr<VXCloudUserAgent>& userAgent,
                         std::chrono::milliseconds timeLimit, OAuth2Flow::Completion completion) = nullptr;
    // The code of a provider error from one of the sign-in's requests, once transport
    // failures are set aside.
    ErrorCode (*classify)(VXCloudService service, const ProviderError& error) = nullptr;
};

// The usual reading of a token endpoint's errors: 429 and 5xx are `connection`, a refused
// grant or 401 `authentication`, anything else the service's classifier.
ErrorCode classifyTokenEndpointError(VXCloudService service, const ProviderError& error);

// A sign-in result that ends the attempt at once with an error.
SignInStart signInRefused(ErrorCode code, const std::string& message);

extern const SignIn kDropboxSignIn;
extern const SignIn kGoogleSignIn;

}  // namespace vxcloud::auth
