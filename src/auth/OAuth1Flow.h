#pragma once
// One OAuth 1.0a sign-in (RFC 5849) on the shared redirect mechanism: temporary credentials
// asked for with the loopback callback, the person sent to the service's authorisation page
// with the temporary token (which the callback carries back, tying it to this sign-in), and
// the verifier exchanged for the token. Every request is signed with HMAC-SHA1. A callback
// without a verifier is the person's refusal.
#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <string>

#include "RedirectFlow.h"

namespace vxcloud {
class HttpClient;
}

namespace vxcloud::auth {

struct OAuth1Request {
    VXCloudService service = VXCloudService::evernote;
    std::string serviceName;
    std::string temporaryCredentialsUrl;
    std::string authorizeUrl;
    std::string tokenUrl;
    std::string consumerKey;
    std::string consumerSecret;
    std::string callbackUrl;  // as RedirectFlow's redirect URL; empty: a free loopback port
    std::chrono::milliseconds timeLimit{std::chrono::minutes(10)};
};

class OAuth1Flow final : public RedirectFlow {
public:
    // Names the user and stores the token and the account from the token answer's fields;
    // runs on a background thread.
    using Finisher = std::function<VXCloudAuthResult(const std::map<std::string, std::string>& answer)>;

    static std::shared_ptr<OAuth1Flow> create(OAuth1Request request, Finisher finisher, Completion completion,
                                              std::shared_ptr<HttpClient> http = nullptr);

    struct Private;
    OAuth1Flow(const Private&, OAuth1Request request, Finisher finisher, Completion completion,
               std::shared_ptr<HttpClient> http);

private:
    std::variant<Prepared, VXCloudAuthResult> prepare(const std::string& redirectUri) override;
    bool preparesOverTheNetwork() const override { return true; }
    const char* correlationParameter() const override { return "oauth_token"; }
    std::optional<VXCloudAuthResult> interpret(const std::map<std::string, std::string>& params) override;
    VXCloudAuthResult exchange(const std::map<std::string, std::string>& params) override;

    // A signed POST of the protocol parameters; the answer's form fields, or the result that
    // ends the sign-in.
    std::variant<std::map<std::string, std::string>, VXCloudAuthResult> post(const std::string& what,
                                                                             const std::string& url,
                                                                             const std::string& token,
                                                                             const std::string& tokenSecret,
                                                                             const std::vector<std::pair<std::string, std::string>>& extra);

    const OAuth1Request request_;
    const Finisher finisher_;
    const std::shared_ptr<HttpClient> http_;
    std::string temporarySecret_;  // set by prepare, before the callback can arrive
};

}  // namespace vxcloud::auth
