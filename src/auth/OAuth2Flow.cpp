#include "auth/OAuth2Flow.h"

#include <nlohmann/json.hpp>

#include "auth/LoopbackRedirectListener.h"
#include "auth/Pkce.h"
#include "auth/RedirectUrl.h"
#include "auth/SignIn.h"
#include "providers/ProviderSupport.h"
#include "providers/oauth/TokenRequest.h"
#include "vxcloud/model/VXCloudAccount.h"
#include "vxcloud/model/VXCloudConstants.h"
#include "vxcloud/model/VXCloudServiceRegistry.h"
#include "vxcloud/model/VXCloudUserDefaults.h"
#include "vxcloud/platform/Dispatch.h"
#include "vxcloud/platform/Http.h"
#include "vxcloud/platform/Log.h"
#include "vxcloud/sessions/VXCloudServiceConfig.h"

namespace vxcloud::auth {
namespace {

constexpr std::size_t kStateLength = 43;

std::int64_t nowSeconds() {
    return std::chrono::duration_cast<std::chrono::seconds>(std::chrono::system_clock::now().time_since_epoch())
        .count();
}

std::string joined(const std::vector<std::string>& words) {
    std::string out;
    for (const auto& word : words) {
        if (word.empty()) continue;
        if (!out.empty()) out += ' ';
        out += word;
    }
    return out;
}

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

struct OAuth2Flow::Private {};

ErrorCode classifySignInError(VXCloudService service, const ProviderError& error) {
    if (error.transport != TransportErrorKind::none) {
        return error.transport == TransportErrorKind::malformedResponse ? ErrorCode::fileUpload
                                                                        : ErrorCode::connection;
    }
    const SignIn* signIn = serviceDescriptor(service).signIn;
    return signIn && signIn->classify ? signIn->classify(service, error) : classifyTokenEndpointError(service, error);
}

ErrorCode classifyTokenEndpointError(VXCloudService service, const ProviderError& error) {
    const int status = error.httpStatus.value_or(0);
    const std::string oauthError = error.oauthError.value_or("");
    // RFC 6749's words for server trouble, which a redirect can carry too.
    if (status == 429 || status >= 500 || oauthError == "server_error" || oauthError == "temporarily_unavailable") {
        return ErrorCode::connection;
    }
    // OpenID Connect's words for "only the person can go on": sign in again.
    if (oauthError == "invalid_grant" || oauthError == "interaction_required" || oauthError == "login_required" ||
        oauthError == "consent_required" || status == 401) {
        return ErrorCode::authentication;
    }
    return VXCloudError::initWithError(error, service)->errorCode;
}

SignInStart signInRefused(ErrorCode code, const std::string& message) {
    return {nullptr, signInError(code, message)};
}

VXCloudAuthResult signInError(ErrorCode code, const std::string& message) {
    return VXCloudAuthResult::error(std::make_shared<VXCloudError>(code), log::redact(message));
}

bool saveGrantedToken(VXCloudService service, const std::string& storageName, VXCloudOAuthToken token) {
    if (token.refreshToken.empty()) {
        if (auto previous = VXCloudTokenStore::load(service, storageName)) token.refreshToken = previous->refreshToken;
    }
    return VXCloudTokenStore::save(service, storageName, token);
}

VXCloudAuthResult linkedAccount(std::shared_ptr<VXCloudAccount> account) {
    if (!VXCloudUserDefaults::saveCloudAccount(*account)) {
        return signInError(ErrorCode::fileUpload, "The linked account could not be saved in the preferences.");
    }
    return VXCloudAuthResult::success(std::move(account));
}

OAuth2Request OAuth2Request::forService(VXCloudService service, std::string clientId, std::string redirectUrl,
                                        std::chrono::milliseconds timeLimit) {
    const VXCloudServiceEndpoints endpoints = VXCloudServiceConfig::endpoints(service);
    OAuth2Request request;
    request.service = service;
    request.serviceName = serviceDescriptor(service).displayName;
    request.authorizeUrl = endpoints.authorizeUrl;
    request.tokenUrl = endpoints.tokenUrl;
    request.clientId = std::move(clientId);
    request.clientSecret = VXCloudServiceConfig::credentials(service).clientSecret;
    request.redirectUrl = std::move(redirectUrl);
    request.timeLimit = timeLimit;
    return request;
}

std::shared_ptr<OAuth2Flow> OAuth2Flow::create(OAuth2Request request, Finisher finisher, Completion completion,
                                               std::shared_ptr<HttpClient> http) {
    return std::make_shared<OAuth2Flow>(Private{}, std::move(request), std::move(finisher), std::move(completion),
                                        http ? std::move(http) : HttpClient::shared());
}

OAuth2Flow::OAuth2Flow(const Private&, OAuth2Request request, Finisher finisher, Completion completion,
                       std::shared_ptr<HttpClient> http)
    : request_(std::move(request)),
      finisher_(std::move(finisher)),
      completion_(std::move(completion)),
      http_(std::move(http)) {}

OAuth2Flow::~OAuth2Flow() { stopListening(); }

bool OAuth2Flow::waitingForRedirect() const {
    std::lock_guard lock(mutex_);
    return phase_ == Phase::waiting;
}

std::string OAuth2Flow::authorizationUrl() const {
    std::lock_guard lock(mutex_);
    return authorizationUrl_;
}

std::string OAuth2Flow::redirectUri() const {
    std::lock_guard lock(mutex_);
    return redirectUri_;
}

void OAuth2Flow::start(const std::shared_ptr<VXCloudUserAgent>& userAgent) {
    const std::string& name = request_.serviceName;
    if (request_.authorizeUrl.empty() || request_.tokenUrl.empty() || request_.clientId.empty()) {
        return complete(signInError(ErrorCode::fileUpload,
                                    name + " sign-in is not configured (endpoints or client id missing)."));
    }
    const auto plan = planRedirect(request_.redirectUrl);
    if (!plan) {
        return complete(signInError(ErrorCode::fileUpload, name + " sign-in: the redirect URL \"" +
                                                               request_.redirectUrl + "\" cannot be used."));
    }
    std::string verifier = makeCodeVerifier();
    std::string state = randomUnreserved(kStateLength);
    if (verifier.empty() || state.empty()) {
        return complete(signInError(ErrorCode::fileUpload, name + " sign-in: no random numbers available."));
    }

    std::unique_ptr<LoopbackRedirectListener> listener;
    std::string redirectUri = plan->external;
    if (plan->loopback) {
        std::weak_ptr<OAuth2Flow> weak = weak_from_this();
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
        if (!listener) {
            return complete(signInError(ErrorCode::fileUpload, name + " sign-in: " + error));
        }
        redirectUri = "http://" + plan->host + ":" + std::to_string(listener->port()) + plan->path;
    }

    std::vector<std::pair<std::string, std::string>> params = {
        {"client_id", request_.clientId},
        {"response_type", "code"},
        {"redirect_uri", redirectUri},
        {"state", state},
        {"code_challenge", codeChallengeS256(verifier)},
        {"code_challenge_method", "S256"},
    };
    if (const std::string scope = joined(request_.scopes); !scope.empty()) params.emplace_back("scope", scope);
    for (const auto& extra : request_.extraParameters) params.push_back(extra);
    const std::string url = withQuery(request_.authorizeUrl, params);

    {
        std::lock_guard lock(mutex_);
        if (phase_ != Phase::created) return;
        phase_ = Phase::waiting;
        state_ = std::move(state);
        verifier_ = std::move(verifier);
        redirectUri_ = redirectUri;
        redirectPath_ = plan->path;
        authorizationUrl_ = url;
        listener_ = std::move(listener);
    }
    log::info("auth", name + " sign-in started; waiting for the redirect to " +
                          (plan->loopback ? redirectUri : std::string("the host")));

    std::weak_ptr<OAuth2Flow> weak = weak_from_this();
    DispatchQueue::global()->asyncAfter(request_.timeLimit, [weak, name] {
        if (auto flow = weak.lock()) {
            flow->endWhileWaiting(signInError(ErrorCode::authentication,
                                              name + " sign-in was not completed in time."));
        }
    });

    bool opened = false;
    if (userAgent) {
        try {
            opened = userAgent->open(url);
        } catch (const std::exception& e) {
            log::error("auth", std::string("the user agent threw: ") + e.what());
        } catch (...) {
            log::error("auth", "the user agent threw");
        }
    }
    if (!opened) endWhileWaiting(signInError(ErrorCode::connection, VXCloudString::GENERIC_ERROR()));
}

bool OAuth2Flow::handleRedirect(const std::string& redirect) {
    const Verdict verdict = evaluate(redirectParameters(redirect));
    if (verdict == Verdict::foreign) return false;
    stopListening();
    return true;
}

bool OAuth2Flow::cancel() { return endWhileWaiting(VXCloudAuthResult::cancel()); }

OAuth2Flow::Verdict OAuth2Flow::evaluate(const std::map<std::string, std::string>& params) {
    const auto stateParam = params.find("state");
    {
        std::lock_guard lock(mutex_);
        // Single use: once a redirect has been taken, every later one is foreign.
        if (phase_ != Phase::waiting) return Verdict::foreign;
        if (stateParam == params.end() || !constantTimeEquals(stateParam->second, state_)) {
            log::warning("auth", request_.serviceName + " sign-in: ignored a redirect with an unknown state");
            return Verdict::foreign;
        }
        phase_ = Phase::exchanging;
    }
    const std::string& name = request_.serviceName;
    if (const auto error = params.find("error"); error != params.end()) {
        if (error->second == "access_denied") {
            log::info("auth", name + " sign-in: the person denied access");
            complete(VXCloudAuthResult::cancel());
            return Verdict::cancelled;
        }
        ProviderError refused;
        refused.oauthError = error->second;
        refused.message = error->second;
        complete(signInError(classifySignInError(request_.service, refused),
                             name + " refused the sign-in: " + error->second));
        return Verdict::failed;
    }
    const auto code = params.find("code");
    if (code == params.end() || code->second.empty()) {
        complete(signInError(ErrorCode::fileUpload, name + " sign-in: the redirect carries no authorization code."));
        return Verdict::failed;
    }
    auto self = shared_from_this();
    DispatchQueue::global(QoS::userInitiated)->async([self, code = code->second]() mutable {
        self->exchange(std::move(code));
    });
    return Verdict::accepted;
}

void OAuth2Flow::exchange(std::string code) {
    const std::string& name = request_.serviceName;
    std::string verifier, redirectUri;
    {
        std::lock_guard lock(mutex_);
        verifier = verifier_;
        redirectUri = redirectUri_;
    }
    std::vector<std::pair<std::string, std::string>> form = {
        {"grant_type", "authorization_code"},
        {"code", std::move(code)},
        {"redirect_uri", redirectUri},
        {"client_id", request_.clientId},
        {"code_verifier", verifier},
    };
    if (request_.clientSecret) form.emplace_back("client_secret", *request_.clientSecret);

    // A code is good for one exchange: the request is only repeated when it never left.
    const HttpRequest http = oauth::tokenRequest(request_.tokenUrl, form);

    VXCloudAuthResult result = VXCloudAuthResult::cancel();
    try {
        const std::int64_t requestedAt = nowSeconds();
        const HttpResponse response = http_->perform(http, RetryPolicy::standard(3));
        if (response.transportFailed()) {
            const ProviderError error =
                ProviderError::transportFailure(providers::transportErrorKind(response.error), response.errorMessage);
            result = signInError(classifySignInError(request_.service, error),
                                 name + " could not be reached: " + response.errorMessage);
        } else if (!response.ok()) {
            const ProviderError error = ProviderError::fromGoogleResponse(response.status, response.body);
            result = signInError(classifySignInError(request_.service, error),
                                 name + " refused the authorization code: " + error.message);
        } else {
            auto token = VXCloudOAuthToken::fromTokenResponse(response.body, requestedAt);
            Json answer = Json::parse(response.body, nullptr, false);
            if (!token || !answer.is_object()) {
                result = signInError(ErrorCode::fileUpload, name + " sent an unreadable token answer.");
            } else {
                result = finisher_(GrantedTokens{std::move(*token), std::move(answer)});
            }
        }
    } catch (const std::exception& e) {
        result = signInError(ErrorCode::fileUpload, name + " sign-in failed: " + e.what());
    }
    complete(std::move(result));
}

bool OAuth2Flow::endWhileWaiting(VXCloudAuthResult result) {
    {
        std::lock_guard lock(mutex_);
        if (phase_ != Phase::waiting && phase_ != Phase::created) return false;
        phase_ = Phase::exchanging;
    }
    complete(std::move(result));
    return true;
}

void OAuth2Flow::complete(VXCloudAuthResult result) {
    {
        std::lock_guard lock(mutex_);
        if (phase_ == Phase::done) return;
        phase_ = Phase::done;
    }
    stopListening();
    switch (result.kind()) {
        case VXCloudAuthResult::Kind::success:
            log::info("auth", request_.serviceName + " account linked");
            break;
        case VXCloudAuthResult::Kind::cancel: log::info("auth", request_.serviceName + " sign-in cancelled"); break;
        case VXCloudAuthResult::Kind::error:
            log::warning("auth", request_.serviceName + " sign-in failed: " + result.message());
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

void OAuth2Flow::stopListening() {
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
