#pragma once
// The one way every provider client sends a request: the account's bearer token, one
// refresh when the service rejects it, repeats of "try again" answers within a single
// attempt budget (Retry-After honoured), and a failed answer read into a ProviderError by
// the provider's own reader. A request that creates something is never blindly repeated
// (see RetryPolicy); the client looks before creating again.
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "ProviderSupport.h"
#include "oauth/TokenProvider.h"
#include "vxcloud/platform/Http.h"

namespace vxcloud::providers {

template <typename T>
using CallResult = Result<T, ProviderError>;

struct ApiRequest {
    std::string what;  // "files/upload", "files.list": names the request in messages
    std::string method = "GET";
    std::string url;
    HttpHeaders headers;
    ByteBuffer body;
    bool idempotent = true;  // see HttpRequest::idempotent
    // False for pre-authenticated URLs (upload sessions): no bearer token goes there.
    bool authorized = true;
    bool followRedirects = false;
    // Statuses other than 2xx that are answers rather than failures (308 of an upload).
    std::vector<int> alsoAccepted;
    // Attempts for this request instead of the client's budget (1: the caller resumes itself).
    std::optional<int> maxAttempts;
    std::function<void(std::int64_t sent, std::int64_t total)> onSent;
    std::function<bool(const char* data, std::size_t size)> onBodyChunk;
    // Reads this request's failed answer instead of the provider's reader (route-specific
    // error unions).
    std::function<ProviderError(const HttpResponse&)> readError;
};

// What differs between providers.
struct ProviderHooks {
    std::string serviceName;  // "Dropbox": starts every failure's message
    std::string logTag;       // "dropbox"
    // A failed answer in the provider's words. Required.
    std::function<ProviderError(const HttpResponse&)> readError;
    // Whether a new token could mend this 401; empty: every 401.
    std::function<bool(const HttpResponse&)> refreshable;
    // The provider's own "try again" answers beyond 429 and 5xx, given before acting.
    std::function<bool(const HttpResponse&)> refusedBeforeActing;
    // A token that could not be had, as the provider's error; empty: the failure's error.
    std::function<ProviderError(const oauth::TokenFailure&)> tokenFailure;
    // Sees every answer (request ids for the log).
    std::function<void(const ApiRequest&, const HttpResponse&)> onAnswer;
};

class ProviderCaller {
public:
    ProviderCaller(std::shared_ptr<oauth::TokenProvider> tokens, std::shared_ptr<HttpClient> http,
                   RetryPolicy policy, ProviderHooks hooks);

    // Blocking; safe from many threads at once.
    CallResult<HttpResponse> send(const ApiRequest& request) const;

    const RetryPolicy& policy() const { return policy_; }
    const std::string& storageName() const { return tokens_->storageName(); }
    // A failure the client finds itself in an answer (unreadable JSON, a missing field).
    ProviderError malformed(const std::string& what, const std::string& detail) const;

private:
    ProviderError failure(const ApiRequest& request, const HttpResponse& response) const;

    std::shared_ptr<oauth::TokenProvider> tokens_;
    std::shared_ptr<HttpClient> http_;
    RetryPolicy policy_;
    ProviderHooks hooks_;
};

}  // namespace vxcloud::providers
