#pragma once
// One OAuth 2 sign-in, the mechanism every service's flow shares: an authorisation code
// request with PKCE (S256) and a checked `state`, shown to the person through a user
// agent; the redirect received on a loopback listener (or handed over by the host); the
// code exchanged at the token endpoint; then the service's own step that names the user,
// stores the tokens and the account. Each flow ends exactly once, through its completion.
//
// A flow waits for the person for a limited time. Cancelling ends a flow only while it
// waits for the redirect; once a code has been accepted the flow runs to its end.
#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "vxcloud/auth/VXCloudAuthManager.h"
#include "vxcloud/auth/VXCloudTokenStore.h"
#include "vxcloud/model/ProviderError.h"
#include "vxcloud/model/VXCloudError.h"
#include <nlohmann/json.hpp>

namespace vxcloud {
class HttpClient;
}

namespace vxcloud::auth {

class LoopbackRedirectListener;

struct OAuth2Request {
    VXCloudService service = VXCloudService::dropbox;
    std::string serviceName;  // for messages: "Dropbox"
    std::string authorizeUrl;
    std::string tokenUrl;
    std::string clientId;
    std::optional<std::string> clientSecret;
    std::vector<std::string> scopes;  // sent space-separated; none: the app's defaults
    std::vector<std::pair<std::string, std::string>> extraParameters;
    // The registered redirect URI. Empty or http://127.0.0.1|localhost[:port][/path]: a
    // loopback listener serves it (port 0 or none: a free port). Anything else is sent as
    // it is, and the host hands the redirect over.
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

class OAuth2Flow : public std::enable_shared_from_this<OAuth2Flow> {
public:
    // Names the user, stores the tokens and the account; runs on a background thread.
    using Finisher = std::function<VXCloudAuthResult(const GrantedTokens&)>;
    using Completion = std::function<void(const std::shared_ptr<OAuth2Flow>&, const VXCloudAuthResult&)>;

    static std::shared_ptr<OAuth2Flow> create(OAuth2Request request, Finisher finisher, Completion completion,
                                              std::shared_ptr<HttpClient> http = nullptr);
    ~OAuth2Flow();
    OAuth2Flow(const OAuth2Flow&) = delete;
    OAuth2Flow& operator=(const OAuth2Flow&) = delete;

    // Prepares the request, starts listening and shows the address through the agent.
    // A flow that cannot start ends at once with an error.
    void start(const std::shared_ptr<VXCloudUserAgent>& userAgent);
    // A redirect handed over by the host. False when it does not carry this flow's state
    // or the flow no longer waits for one.
    bool handleRedirect(const std::string& redirect);
    bool cancel();

    VXCloudService service() const { return request_.service; }
    bool waitingForRedirect() const;
    // Known once started.
    std::string authorizationUrl() const;
    std::string redirectUri() const;

    struct Private;
    OAuth2Flow(const Private&, OAuth2Request request, Finisher finisher, Completion completion,
               std::shared_ptr<HttpClient> http);

private:
    enum class Phase { created, waiting, exchanging, done };
    enum class Verdict { foreign, cancelled, failed, accepted };

    // Whether a listener request or a handed-over redirect completes the flow.
    Verdict evaluate(const std::map<std::string, std::string>& params);
    // Ends the flow with `result` if it has not been claimed by a redirect yet.
    bool endWhileWaiting(VXCloudAuthResult result);
    void complete(VXCloudAuthResult result);
    void exchange(std::string code);
    void stopListening();

    const OAuth2Request request_;
    const Finisher finisher_;
    const Completion completion_;
    const std::shared_ptr<HttpClient> http_;

    mutable std::mutex mutex_;
    Phase phase_ = Phase::created;
    std::string state_;
    std::string verifier_;
    std::string redirectUri_;
    std::string redirectPath_;
    std::string authorizationUrl_;
    std::unique_ptr<LoopbackRedirectListener> listener_;
};

// The error code of a failed sign-in step: no connection is `connection`, an unreadable
// answer `fileUpload`, else what the service's sign-in makes of it.
ErrorCode classifySignInError(VXCloudService service, const ProviderError& error);
VXCloudAuthResult signInError(ErrorCode code, const std::string& message);

// Stores a freshly granted token for the account. A grant without a refresh token (a
// repeated consent may issue none) keeps the refresh token stored before.
bool saveGrantedToken(VXCloudService service, const std::string& storageName, VXCloudOAuthToken token);

// Saves the linked account, replacing a stored one with the same key: the success result,
// or an error when the preferences cannot be written.
VXCloudAuthResult linkedAccount(std::shared_ptr<VXCloudAccount> account);

}  // namespace vxcloud::auth
