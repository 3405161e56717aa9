#pragma once
// One OAuth 2 sign-in, the protocol most services share: an authorisation code request with
// PKCE (S256) and a checked `state` on the shared redirect mechanism (RedirectFlow); the code
// exchanged at the token endpoint; then the service's own step that names the user, stores
// the tokens and the account.
#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "RedirectFlow.h"
#include "vxcloud/auth/VXCloudAuthManager.h"
#include "vxcloud/auth/VXCloudTokenStore.h"
#include "vxcloud/model/ProviderError.h"
#include "vxcloud/model/VXCloudError.h"
#include <nlohmann/json.hpp>

namespace vxcloud {
class HttpClient;
}

namespace vxcloud::auth {

struct OAuth2Request {
    VXCloudService service = VXCloudService::dropbox;
    std::string serviceName;  // for messages: "Dropbox"
    std::string authorizeUrl;
    std::string tokenUrl;
    std::string clientId;
    std::optional<std::string> clientSecret;
    std::vector<std::string> scopes;  // sent space-separated; none: the app's defaults
    std::vector<std::pair<std::string, std::string>> extraParameters;
    // The registered redirect URI (see RedirectFlow).
    std::string redirectUrl;
    std::chrono::milliseconds timeLimit{std::chrono::minutes(10)};

    // A request to the service's configured endpoints, named by its display name, with the
    // configured client secret (if any); the service's flow adds its scopes and parameters.
    static OAuth2Request forService(VXCloudService service, std::string clientId, std::string redirectUrl,
                                    std::chrono::milliseconds timeLimit);
};

// What the token endpoint granted.
struct GrantedTokens {
    VXCloudOAuthToken token;
    Json answer;  // the whole JSON answer (account_id, id_token, ...)
};

class OAuth2Flow final : public RedirectFlow {
public:
    // Names the user, stores the tokens and the account; runs on a background thread.
    using Finisher = std::function<VXCloudAuthResult(const GrantedTokens&)>;

    static std::shared_ptr<OAuth2Flow> create(OAuth2Request request, Finisher finisher, Completion completion,
                                              std::shared_ptr<HttpClient> http = nullptr);

    struct Private;
    OAuth2Flow(const Private&, OAuth2Request request, Finisher finisher, Completion completion,
               std::shared_ptr<HttpClient> http);

private:
    std::variant<Prepared, VXCloudAuthResult> prepare(const std::string& redirectUri) override;
    const char* correlationParameter() const override { return "state"; }
    std::optional<VXCloudAuthResult> interpret(const std::map<std::string, std::string>& params) override;
    VXCloudAuthResult exchange(const std::map<std::string, std::string>& params) override;

    const OAuth2Request request_;
    const Finisher finisher_;
    const std::shared_ptr<HttpClient> http_;
    // Set by prepare, before the redirect can arrive.
    std::string verifier_;
    std::string redirectUri_;
};

// Stores a freshly granted token for the account. A grant without a refresh token (a
// repeated consent may issue none) keeps the refresh token stored before.
bool saveGrantedToken(VXCloudService service, const std::string& storageName, VXCloudOAuthToken token);

}  // namespace vxcloud::auth
