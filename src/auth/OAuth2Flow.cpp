#include "auth/OAuth2Flow.h"

#include <nlohmann/json.hpp>

#include "auth/Pkce.h"
#include "auth/RedirectUrl.h"
#include "auth/SignIn.h"
#include "providers/ProviderSupport.h"
#include "providers/oauth/TokenRequest.h"
#include "vxcloud/model/VXCloudServiceRegistry.h"
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

}  // namespace

struct OAuth2Flow::Private {};

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

bool saveGrantedToken(VXCloudService service, const std::string& storageName, VXCloudOAuthToken token) {
    if (token.refreshToken.empty()) {
        if (auto previous = VXCloudTokenStore::load(service, storageName)) token.refreshToken = previous->refreshToken;
    }
    return VXCloudTokenStore::save(service, storageName, token);
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
    : RedirectFlow(request.service, request.serviceName, request.redirectUrl, request.timeLimit, std::move(completion)),
      request_(std::move(request)),
      finisher_(std::move(finisher)),
      http_(std::move(http)) {}

std::variant<RedirectFlow::Prepared, VXCloudAuthResult> OAuth2Flow::prepare(const std::string& redirectUri) {
    const std::string& name = request_.serviceName;
    if (request_.authorizeUrl.empty() || request_.tokenUrl.empty() || request_.clientId.empty()) {
        return signInError(ErrorCode::fileUpload, name + " sign-in is not configured (endpoints or client id missing).");
    }
    std::string verifier = makeCodeVerifier();
    std::string state = randomUnreserved(kStateLength);
    if (verifier.empty() || state.empty()) {
        return signInError(ErrorCode::fileUpload, name + " sign-in: no random numbers available.");
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
    verifier_ = std::move(verifier);
    redirectUri_ = redirectUri;
    return Prepared{withQuery(request_.authorizeUrl, params), std::move(state)};
}

std::optional<VXCloudAuthResult> OAuth2Flow::interpret(const std::map<std::string, std::string>& params) {
    const std::string& name = request_.serviceName;
    if (const auto error = params.find("error"); error != params.end()) {
        if (error->second == "access_denied") {
            log::info("auth", name + " sign-in: the person denied access");
            return VXCloudAuthResult::cancel();
        }
        ProviderError refused;
        refused.oauthError = error->second;
        refused.message = error->second;
        return signInError(classifySignInError(request_.service, refused), name + " refused the sign-in: " + error->second);
    }
    const auto code = params.find("code");
    if (code == params.end() || code->second.empty()) {
        return signInError(ErrorCode::fileUpload, name + " sign-in: the redirect carries no authorization code.");
    }
    return std::nullopt;
}

VXCloudAuthResult OAuth2Flow::exchange(const std::map<std::string, std::string>& params) {
    const std::string& name = request_.serviceName;
    std::vector<std::pair<std::string, std::string>> form = {
        {"grant_type", "authorization_code"},
        {"code", params.at("code")},
        {"redirect_uri", redirectUri_},
        {"client_id", request_.clientId},
        {"code_verifier", verifier_},
    };
    if (request_.clientSecret) form.emplace_back("client_secret", *request_.clientSecret);

    // A code is good for one exchange: the request is only repeated when it never left.
    const HttpRequest http = oauth::tokenRequest(request_.tokenUrl, form);
    const std::int64_t requestedAt = nowSeconds();
    const HttpResponse response = http_->perform(http, RetryPolicy::standard(3));
    if (response.transportFailed()) {
        const ProviderError error =
            ProviderError::transportFailure(providers::transportErrorKind(response.error), response.errorMessage);
        return signInError(classifySignInError(request_.service, error),
                           name + " could not be reached: " + response.errorMessage);
    }
    if (!response.ok()) {
        const ProviderError error = ProviderError::fromGoogleResponse(response.status, response.body);
        return signInError(classifySignInError(request_.service, error),
                           name + " refused the authorization code: " + error.message);
    }
    auto token = VXCloudOAuthToken::fromTokenResponse(response.body, requestedAt);
    Json answer = Json::parse(response.body, nullptr, false);
    if (!token || !answer.is_object()) return signInError(ErrorCode::fileUpload, name + " sent an unreadable token answer.");
    return finisher_(GrantedTokens{std::move(*token), std::move(answer)});
}

}  // namespace vxcloud::auth
