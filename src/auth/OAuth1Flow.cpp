#include "auth/OAuth1Flow.h"

#include "auth/OAuth1Signature.h"
#include "auth/RedirectUrl.h"
#include "providers/ProviderSupport.h"
#include "vxcloud/platform/Http.h"
#include "vxcloud/platform/Log.h"

namespace vxcloud::auth {

struct OAuth1Flow::Private {};

std::shared_ptr<OAuth1Flow> OAuth1Flow::create(OAuth1Request request, Finisher finisher, Completion completion,
                                               std::shared_ptr<HttpClient> http) {
    return std::make_shared<OAuth1Flow>(Private{}, std::move(request), std::move(finisher), std::move(completion),
                                        http ? std::move(http) : HttpClient::shared());
}

OAuth1Flow::OAuth1Flow(const Private&, OAuth1Request request, Finisher finisher, Completion completion,
                       std::shared_ptr<HttpClient> http)
    : RedirectFlow(request.service, request.serviceName, request.callbackUrl, request.timeLimit, std::move(completion)),
      request_(std::move(request)),
      finisher_(std::move(finisher)),
      http_(std::move(http)) {}

std::variant<std::map<std::string, std::string>, VXCloudAuthResult> OAuth1Flow::post(
    const std::string& what, const std::string& url, const std::string& token, const std::string& tokenSecret,
    const oauth1::Parameters& extra) {
    const std::string& name = request_.serviceName;
    HttpRequest http;
    http.method = "POST";
    http.url = url;
    const oauth1::Credentials credentials{request_.consumerKey, request_.consumerSecret, token, tokenSecret};
    http.headers.set("Authorization", oauth1::authorizationHeader(oauth1::signedParameters("POST", url, credentials, extra)));
    http.headers.set("Content-Type", "application/x-www-form-urlencoded");
    // Each request's nonce is spent once it reaches the service: only one that never left is
    // sent again.
    http.idempotent = false;
    const HttpResponse response = http_->perform(http, RetryPolicy::standard(3));
    if (response.transportFailed()) {
        const ProviderError error =
            ProviderError::transportFailure(providers::transportErrorKind(response.error), response.errorMessage);
        return signInError(classifySignInError(request_.service, error), name + " could not be reached: " +
                                                                              response.errorMessage);
    }
    if (!response.ok()) {
        // The protocol's refusals are 401s (a bad signature, a spent or unknown token), or
        // the service's trouble.
        ProviderError error;
        error.httpStatus = response.status;
        error.message = what + ": HTTP " + std::to_string(response.status);
        const ErrorCode code = response.status == 401 || response.status == 400 ? ErrorCode::authentication
                               : response.status >= 500 || response.status == 429 ? ErrorCode::connection
                                                                                   : ErrorCode::fileUpload;
        return signInError(code, name + " refused the " + what + " (HTTP " + std::to_string(response.status) + ").");
    }
    return parseQuery(response.body);
}

std::variant<RedirectFlow::Prepared, VXCloudAuthResult> OAuth1Flow::prepare(const std::string& redirectUri) {
    const std::string& name = request_.serviceName;
    if (request_.temporaryCredentialsUrl.empty() || request_.authorizeUrl.empty() || request_.tokenUrl.empty() ||
        request_.consumerKey.empty()) {
        return signInError(ErrorCode::fileUpload, name + " sign-in is not configured (endpoints or consumer key missing).");
    }
    auto answer = post("temporary credentials", request_.temporaryCredentialsUrl, {}, {}, {{"oauth_callback", redirectUri}});
    if (auto* ended = std::get_if<VXCloudAuthResult>(&answer)) return std::move(*ended);
    auto& fields = std::get<std::map<std::string, std::string>>(answer);
    const auto token = fields.find("oauth_token");
    if (token == fields.end() || token->second.empty()) {
        return signInError(ErrorCode::fileUpload, name + " answered no temporary token.");
    }
    // Without the confirmation the service would ignore our callback (OAuth 1.0 without "a").
    if (fields["oauth_callback_confirmed"] != "true") {
        return signInError(ErrorCode::fileUpload, name + " did not confirm the callback address.");
    }
    temporarySecret_ = fields["oauth_token_secret"];
    return Prepared{withQuery(request_.authorizeUrl, {{"oauth_token", token->second}}), token->second};
}

std::optional<VXCloudAuthResult> OAuth1Flow::interpret(const std::map<std::string, std::string>& params) {
    const auto verifier = params.find("oauth_verifier");
    if (verifier == params.end() || verifier->second.empty()) {
        log::info("auth", request_.serviceName + " sign-in: the person denied access");
        return VXCloudAuthResult::cancel();
    }
    return std::nullopt;
}

VXCloudAuthResult OAuth1Flow::exchange(const std::map<std::string, std::string>& params) {
    auto answer = post("authorisation", request_.tokenUrl, params.at("oauth_token"), temporarySecret_,
                       {{"oauth_verifier", params.at("oauth_verifier")}});
    if (auto* ended = std::get_if<VXCloudAuthResult>(&answer)) return std::move(*ended);
    auto& fields = std::get<std::map<std::string, std::string>>(answer);
    if (fields["oauth_token"].empty()) {
        return signInError(ErrorCode::fileUpload, request_.serviceName + " answered no token.");
    }
    return finisher_(fields);
}

}  // namespace vxcloud::auth
