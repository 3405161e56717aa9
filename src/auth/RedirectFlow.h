#pragma once
// One browser sign-in, the part every protocol shares: a redirect listener on loopback (or a
// redirect the host hands over), an authorisation page shown to the person through a user
// agent, a time limit, the check that a redirect belongs to this sign-in, the exchange that
// follows it on a background thread, and exactly one completion. The protocols (OAuth 2 with
// PKCE, OAuth 1.0a) say how the page's address is made, which redirect parameter ties it to
// this sign-in, what a redirect means and how it is exchanged for tokens.
//
// Cancelling ends a flow only while it waits for the redirect; once a redirect has been
// accepted the flow runs to its end.
#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <variant>

#include "vxcloud/auth/VXCloudAuthManager.h"
#include "vxcloud/model/ProviderError.h"
#include "vxcloud/model/VXCloudError.h"

namespace vxcloud::auth {

class LoopbackRedirectListener;

class RedirectFlow : public std::enable_shared_from_this<RedirectFlow> {
public:
    using Completion = std::function<void(const std::shared_ptr<RedirectFlow>&, const VXCloudAuthResult&)>;

    virtual ~RedirectFlow();
    RedirectFlow(const RedirectFlow&) = delete;
    RedirectFlow& operator=(const RedirectFlow&) = delete;

    // Listens for the redirect, prepares the page's address and shows it through the agent.
    // A flow that cannot start ends at once with an error.
    void start(const std::shared_ptr<VXCloudUserAgent>& userAgent);
    // A redirect handed over by the host. False when it does not belong to this flow or the
    // flow no longer waits for one.
    bool handleRedirect(const std::string& redirect);
    bool cancel();

    VXCloudService service() const { return service_; }
    bool waitingForRedirect() const;
    // Known once started.
    std::string authorizationUrl() const;
    std::string redirectUri() const;

protected:
    // `redirectUrl`: the registered redirect URI; empty or http://127.0.0.1|localhost[:port]
    // [/path]: a loopback listener serves it (port 0 or none: a free port); anything else is
    // sent as it is and the host hands the redirect over.
    RedirectFlow(VXCloudService service, std::string serviceName, std::string redirectUrl,
                 std::chrono::milliseconds timeLimit, Completion completion);

    // What a prepared sign-in shows: the page's address, and the value of the redirect
    // parameter that ties a redirect to this sign-in.
    struct Prepared {
        std::string authorizationUrl;
        std::string correlation;
    };
    // Makes the page's address for a redirect to `redirectUri`, or the result that ends the
    // sign-in. Runs on a background thread when `preparesOverTheNetwork`.
    virtual std::variant<Prepared, VXCloudAuthResult> prepare(const std::string& redirectUri) = 0;
    virtual bool preparesOverTheNetwork() const { return false; }
    // The redirect parameter that carries the correlation ("state", "oauth_token").
    virtual const char* correlationParameter() const = 0;

    // What a redirect of this sign-in means: a result that ends it now (a denial, an error),
    // or nothing, and the parameters are exchanged on a background thread.
    virtual std::optional<VXCloudAuthResult> interpret(const std::map<std::string, std::string>& params) = 0;
    virtual VXCloudAuthResult exchange(const std::map<std::string, std::string>& params) = 0;

    const std::string& serviceName() const { return serviceName_; }

private:
    enum class Phase { created, waiting, exchanging, done };
    enum class Verdict { foreign, cancelled, failed, accepted };

    void show(const std::shared_ptr<VXCloudUserAgent>& userAgent, const std::string& redirectUri, bool loopback);
    Verdict evaluate(const std::map<std::string, std::string>& params);
    bool endWhileWaiting(VXCloudAuthResult result);
    void complete(VXCloudAuthResult result);
    void stopListening();

    const VXCloudService service_;
    const std::string serviceName_;
    const std::string redirectUrl_;
    const std::chrono::milliseconds timeLimit_;
    const Completion completion_;

    mutable std::mutex mutex_;
    Phase phase_ = Phase::created;
    std::string correlation_;
    std::string redirectUri_;
    std::string authorizationUrl_;
    std::unique_ptr<LoopbackRedirectListener> listener_;
};

// The error code of a failed sign-in step: no connection is `connection`, an unreadable
// answer `fileUpload`, else what the service's sign-in makes of it.
ErrorCode classifySignInError(VXCloudService service, const ProviderError& error);
VXCloudAuthResult signInError(ErrorCode code, const std::string& message);

// Saves the linked account: the success result, or an error when the preferences cannot be
// written. An account linked before (the same key) keeps what the person set for it (name,
// automatic upload, Wi-Fi only, upload folder); it takes the e-mail from the sign-in and
// loses the error that asked for the sign-in.
VXCloudAuthResult linkedAccount(std::shared_ptr<VXCloudAccount> account);

}  // namespace vxcloud::auth
