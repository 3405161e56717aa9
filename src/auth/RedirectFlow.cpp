#include "auth/RedirectFlow.h"

#include "auth/LoopbackRedirectListener.h"
#include "auth/Pkce.h"
#include "auth/RedirectUrl.h"
#include "auth/SignIn.h"
#include "vxcloud/model/VXCloudAccount.h"
#include "vxcloud/model/VXCloudConstants.h"
#include "vxcloud/model/VXCloudServiceRegistry.h"
#include "vxcloud/model/VXCloudUserDefaults.h"
#include "vxcloud/platform/Dispatch.h"
#include "vxcloud/platform/Log.h"

namespace vxcloud::auth {
namespace {

// Where the redirect is received: a loopback listener (port, path), or the host.
struct RedirectPlan {
    bool loopback = true;
    int port = 0;
    std::string host = "127.0.0.1";
    std::string path = "/";
    std::string external;  // the URI sent as it is, when not loopback
};

std::optional<RedirectPlan> planRedirect(const std::string& configured) {
    RedirectPlan plan;
    if (configured.empty()) return plan;
    const auto parts = parseUrl(configured);
    if (!parts) return std::nullopt;
    if (parts->scheme == "http" && isLoopbackHost(parts->host)) {
        // [::1] would need an IPv6 listener; the address the RFC recommends is enough.
        if (parts->host == "[::1]") return std::nullopt;
        plan.host = parts->host;
        plan.port = parts->port.value_or(0);
        plan.path = parts->path;
        return plan;
    }
    plan.loopback = false;
    plan.external = configured;
    return plan;
}

std::string pathOf(const std::string& target) { return target.substr(0, target.find('?')); }

std::string queryOf(const std::string& target) {
    const auto question = target.find('?');
    return question == std::string::npos ? std::string() : target.substr(question + 1);
}

}  // namespace

ErrorCode classifySignInError(VXCloudService service, const ProviderError& error) {
    if (error.transport != TransportErrorKind::none) {
        return error.transport == TransportErrorKind::malformedResponse ? ErrorCode::fileUpload
                                                                        : ErrorCode::connection;
    }
    const SignIn* signIn = serviceDescriptor(service).signIn;
    return signIn && signIn->classify ? signIn->classify(service, error) : classifyTokenEndpointError(service, error);
}

VXCloudAuthResult signInError(ErrorCode code, const std::string& message) {
    return VXCloudAuthResult::error(std::make_shared<VXCloudError>(code), log::redact(message));
}

VXCloudAuthResult linkedAccount(std::shared_ptr<VXCloudAccount> account) {
    // Linking an account again is a new sign-in for it, not a new account: what the person set
    // for it stays, and a change made to it while the sign-in ran survives.
    const auto relinked = VXCloudUserDefaults::updateCloudAccount(account->key(), [&](VXCloudAccount& stored) {
        stored.email = account->email;
        stored.error.reset();
    });
    if (relinked) return VXCloudAuthResult::success(relinked);
    if (!VXCloudUserDefaults::saveCloudAccount(*account)) {
        return signInError(ErrorCode::fileUpload, "The linked account could not be saved in the preferences.");
    }
    return VXCloudAuthResult::success(std::move(account));
}

RedirectFlow::RedirectFlow(VXCloudService service, std::string serviceName, std::string redirectUrl,
                           std::chrono::milliseconds timeLimit, Completion completion)
    : service_(service),
      serviceName_(std::move(serviceName)),
      redirectUrl_(std::move(redirectUrl)),
      timeLimit_(timeLimit),
      completion_(std::move(completion)) {}

RedirectFlow::~RedirectFlow() { stopListening(); }

bool RedirectFlow::waitingForRedirect() const {
    std::lock_guard lock(mutex_);
    return phase_ == Phase::waiting;
}

std::string RedirectFlow::authorizationUrl() const {
    std::lock_guard lock(mutex_);
    return authorizationUrl_;
}

std::string RedirectFlow::redirectUri() const {
    std::lock_guard lock(mutex_);
    return redirectUri_;
}

void RedirectFlow::start(const std::shared_ptr<VXCloudUserAgent>& userAgent) {
    const std::string& name = serviceName_;
    const auto plan = planRedirect(redirectUrl_);
    if (!plan) {
        return complete(signInError(ErrorCode::fileUpload,
                                    name + " sign-in: the redirect URL \"" + redirectUrl_ + "\" cannot be used."));
    }
    std::unique_ptr<LoopbackRedirectListener> listener;
    std::string redirectUri = plan->external;
    if (plan->loopback) {
        std::weak_ptr<RedirectFlow> weak = weak_from_this();
        const std::string expectedPath = plan->path;
        std::string error;
        listener = LoopbackRedirectListener::start(
            plan->port,
            [weak, expectedPath](const std::string& target) -> LoopbackRedirectListener::Reply {
                auto flow = weak.lock();
                if (!flow) return {400, "Sign-in ended", "This sign-in is no longer in progress.", true};
                if (pathOf(target) != expectedPath) return {404, "Not found", "Nothing is served here.", false};
                switch (flow->evaluate(parseQuery(queryOf(target)))) {
                    case Verdict::foreign:
                        return {400, "Unknown sign-in",
                                "This address does not belong to the sign-in in progress.", false};
                    case Verdict::cancelled:
                        return {200, "Sign-in cancelled", "You can close this window.", true};
                    case Verdict::failed:
                        return {200, "Sign-in failed",
                                "The sign-in could not be completed. You can close this window.", true};
                    case Verdict::accepted: break;
                }
                return {200, "Signed in", "You can close this window and return to the application.", true};
            },
            &error);
        if (!listener) return complete(signInError(ErrorCode::fileUpload, name + " sign-in: " + error));
        redirectUri = "http://" + plan->host + ":" + std::to_string(listener->port()) + plan->path;
    }
    {
        std::lock_guard lock(mutex_);
        if (phase_ != Phase::created) return;
        redirectUri_ = redirectUri;
        listener_ = std::move(listener);
    }
    std::weak_ptr<RedirectFlow> weak = weak_from_this();
    DispatchQueue::global()->asyncAfter(timeLimit_, [weak, name] {
        if (auto flow = weak.lock()) {
            flow->endWhileWaiting(signInError(ErrorCode::authentication, name + " sign-in was not completed in time."));
        }
    });
    if (!preparesOverTheNetwork()) return show(userAgent, redirectUri, plan->loopback);
    auto self = shared_from_this();
    DispatchQueue::global(QoS::userInitiated)->async([self, userAgent, redirectUri, loopback = plan->loopback] {
        self->show(userAgent, redirectUri, loopback);
    });
}

void RedirectFlow::show(const std::shared_ptr<VXCloudUserAgent>& userAgent, const std::string& redirectUri,
                        bool loopback) {
    std::variant<Prepared, VXCloudAuthResult> prepared = signInError(ErrorCode::fileUpload, "");
    try {
        prepared = prepare(redirectUri);
    } catch (const std::exception& e) {
        prepared = signInError(ErrorCode::fileUpload, serviceName_ + " sign-in failed: " + e.what());
    }
    if (auto* ended = std::get_if<VXCloudAuthResult>(&prepared)) {
        endWhileWaiting(std::move(*ended));
        return;
    }
    auto& ready = std::get<Prepared>(prepared);
    {
        std::lock_guard lock(mutex_);
        if (phase_ != Phase::created) return;  // cancelled or out of time meanwhile
        phase_ = Phase::waiting;
        correlation_ = ready.correlation;
        authorizationUrl_ = ready.authorizationUrl;
    }
    log::info("auth", serviceName_ + " sign-in started; waiting for the redirect to " +
                          (loopback ? redirectUri : std::string("the host")));
    bool opened = false;
    if (userAgent) {
        try {
            opened = userAgent->open(ready.authorizationUrl);
        } catch (const std::exception& e) {
            log::error("auth", std::string("the user agent threw: ") + e.what());
        } catch (...) {
            log::error("auth", "the user agent threw");
        }
    }
    if (!opened) endWhileWaiting(signInError(ErrorCode::connection, VXCloudString::GENERIC_ERROR()));
}

bool RedirectFlow::handleRedirect(const std::string& redirect) {
    const Verdict verdict = evaluate(redirectParameters(redirect));
    if (verdict == Verdict::foreign) return false;
    stopListening();
    return true;
}

bool RedirectFlow::cancel() { return endWhileWaiting(VXCloudAuthResult::cancel()); }

RedirectFlow::Verdict RedirectFlow::evaluate(const std::map<std::string, std::string>& params) {
    const auto correlation = params.find(correlationParameter());
    {
        std::lock_guard lock(mutex_);
        // Single use: once a redirect has been taken, every later one is foreign.
        if (phase_ != Phase::waiting) return Verdict::foreign;
        if (correlation == params.end() || !constantTimeEquals(correlation->second, correlation_)) {
            log::warning("auth", serviceName_ + " sign-in: ignored a redirect that belongs to another sign-in");
            return Verdict::foreign;
        }
        phase_ = Phase::exchanging;
    }
    if (auto ended = interpret(params)) {
        const bool cancelled = ended->kind() == VXCloudAuthResult::Kind::cancel;
        complete(std::move(*ended));
        return cancelled ? Verdict::cancelled : Verdict::failed;
    }
    auto self = shared_from_this();
    DispatchQueue::global(QoS::userInitiated)->async([self, params] {
        VXCloudAuthResult result = VXCloudAuthResult::cancel();
        try {
            result = self->exchange(params);
        } catch (const std::exception& e) {
            result = signInError(ErrorCode::fileUpload, self->serviceName_ + " sign-in failed: " + e.what());
        }
        self->complete(std::move(result));
    });
    return Verdict::accepted;
}

bool RedirectFlow::endWhileWaiting(VXCloudAuthResult result) {
    {
        std::lock_guard lock(mutex_);
        if (phase_ != Phase::waiting && phase_ != Phase::created) return false;
        phase_ = Phase::exchanging;
    }
    complete(std::move(result));
    return true;
}

void RedirectFlow::complete(VXCloudAuthResult result) {
    {
        std::lock_guard lock(mutex_);
        if (phase_ == Phase::done) return;
        phase_ = Phase::done;
    }
    stopListening();
    switch (result.kind()) {
        case VXCloudAuthResult::Kind::success: log::info("auth", serviceName_ + " account linked"); break;
        case VXCloudAuthResult::Kind::cancel: log::info("auth", serviceName_ + " sign-in cancelled"); break;
        case VXCloudAuthResult::Kind::error:
            log::warning("auth", serviceName_ + " sign-in failed: " + result.message());
            break;
    }
    if (!completion_) return;
    try {
        completion_(shared_from_this(), result);
    } catch (const std::exception& e) {
        log::error("auth", std::string("a sign-in completion threw: ") + e.what());
    } catch (...) {
        log::error("auth", "a sign-in completion threw");
    }
}

void RedirectFlow::stopListening() {
    std::unique_ptr<LoopbackRedirectListener> listener;
    {
        std::lock_guard lock(mutex_);
        listener = std::move(listener_);
    }
    // Outside the lock: stopping waits for the listener's thread, which may be waiting
    // for this flow's lock.
    if (listener) listener->stop();
}

}  // namespace vxcloud::auth
