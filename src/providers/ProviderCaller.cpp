#include "providers/ProviderCaller.h"

#include <algorithm>
#include <thread>
#include <utility>

#include "vxcloud/platform/Log.h"
#include "vxcloud/sessions/VXCloudServiceConfig.h"

namespace vxcloud::providers {

ProviderCaller::ProviderCaller(std::shared_ptr<oauth::TokenProvider> tokens, std::shared_ptr<HttpClient> http,
                               RetryPolicy policy, ProviderHooks hooks)
    : tokens_(std::move(tokens)),
      http_(http ? std::move(http) : HttpClient::shared()),
      policy_(std::move(policy)),
      hooks_(std::move(hooks)) {
    if (hooks_.refusedBeforeActing && !policy_.refusedBeforeActing) policy_.refusedBeforeActing = hooks_.refusedBeforeActing;
}

ProviderError ProviderCaller::malformed(const std::string& what, const std::string& detail) const {
    return ProviderError::transportFailure(TransportErrorKind::malformedResponse,
                                           hooks_.serviceName + " " + what + ": " + detail);
}

ProviderError ProviderCaller::failure(const ApiRequest& request, const HttpResponse& response) const {
    ProviderError error;
    if (response.transportFailed()) {
        error = ProviderError::transportFailure(transportErrorKind(response.error), response.errorMessage);
    } else if (request.readError) {
        error = request.readError(response);
    } else {
        error = hooks_.readError(response);
    }
    error.transient = policy_.isTransient(response);
    error.message = hooks_.serviceName + " " + request.what + ": " + error.message;
    return error;
}

CallResult<HttpResponse> ProviderCaller::send(const ApiRequest& request) const {
    HttpRequest http;
    http.method = request.method;
    http.url = request.url;
    http.headers = request.headers;
    http.body = request.body;
    http.idempotent = request.idempotent;
    http.followRedirects = request.followRedirects;
    http.onUploadProgress = request.onSent;
    http.onBodyChunk = request.onBodyChunk;
    const VXCloudNetworkTimeouts timeouts = VXCloudServiceConfig::networkTimeouts();
    http.connectTimeout = timeouts.connect;
    http.idleTimeout = timeouts.stall;

    // One budget for the whole request: the transport's repeats and the resend after a
    // refresh all draw on it, so no loop multiplies another's attempts.
    RetryPolicy policy = policy_;
    int attemptsLeft = std::max(1, request.maxAttempts.value_or(policy_.maxAttempts));
    bool refreshed = false;
    std::optional<oauth::TokenResult> token;
    if (request.authorized) token = tokens_->accessToken();
    std::optional<std::string> rejected;  // the token a 401 refused, while its refresh is tried
    int tokenAttempts = 0;
    for (;;) {
        if (token) {
            // A refresh that met the network or a failing token endpoint is tried again like
            // any request, within the same budget; only a refused grant ends at once.
            while (!token->accessToken && token->failure->passing() && attemptsLeft > 1) {
                --attemptsLeft;
                std::this_thread::sleep_for(policy.delayBefore(++tokenAttempts + 1, HttpResponse{}));
                token = rejected ? tokens_->refreshAfterRejection(*rejected) : tokens_->accessToken();
            }
            if (!token->accessToken) {
                ProviderError error =
                    hooks_.tokenFailure ? hooks_.tokenFailure(*token->failure) : token->failure->error;
                return CallResult<HttpResponse>::failure(std::move(error));
            }
            http.headers.set("Authorization", "Bearer " + *token->accessToken);
        }
        policy.maxAttempts = attemptsLeft;
        HttpResponse response = http_->perform(http, policy);
        attemptsLeft -= std::max(1, response.attempts);
        if (hooks_.onAnswer) hooks_.onAnswer(request, response);
        const bool accepted = std::find(request.alsoAccepted.begin(), request.alsoAccepted.end(),
                                        response.status) != request.alsoAccepted.end();
        if (response.ok() || (!response.transportFailed() && accepted)) {
            return CallResult<HttpResponse>::success(std::move(response));
        }
        if (token && !response.transportFailed() && response.status == 401 && !refreshed &&
            (!hooks_.refreshable || hooks_.refreshable(response))) {
            // The resend with a new token is the one attempt the budget always grants.
            refreshed = true;
            attemptsLeft = std::max(attemptsLeft, 1);
            rejected = *token->accessToken;
            token = tokens_->refreshAfterRejection(*rejected);
            continue;
        }
        ProviderError error = failure(request, response);
        log::info(hooks_.logTag, error.message);
        return CallResult<HttpResponse>::failure(std::move(error));
    }
}

}  // namespace vxcloud::providers
