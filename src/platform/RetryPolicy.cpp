// When and how long to wait before repeating a request.
#include <curl/curl.h>

#include <algorithm>
#include <cctype>
#include <random>

#include "vxcloud/platform/Http.h"

namespace vxcloud {
namespace {

using std::chrono::milliseconds;

std::string_view trim(std::string_view text) {
    while (!text.empty() && std::isspace(static_cast<unsigned char>(text.front())))
        text.remove_prefix(1);
    while (!text.empty() && std::isspace(static_cast<unsigned char>(text.back())))
        text.remove_suffix(1);
    return text;
}

// Retry-After is either delta-seconds or an HTTP-date. A date in the past means "now";
// an unreadable value counts as absent.
std::optional<milliseconds> retryAfter(const HttpResponse& response) {
    auto header = response.headers.get("Retry-After");
    if (!header) return std::nullopt;
    std::string_view value = trim(*header);
    if (value.empty()) return std::nullopt;
    if (std::all_of(value.begin(), value.end(),
                    [](unsigned char c) { return std::isdigit(c) != 0; })) {
        constexpr std::int64_t maxSeconds = 365LL * 24 * 3600;
        std::int64_t seconds = 0;
        for (char c : value) {
            seconds = seconds * 10 + (c - '0');
            if (seconds > maxSeconds) {
                seconds = maxSeconds;
                break;
            }
        }
        return milliseconds(seconds * 1000);
    }
    const std::string date(value);
    const time_t when = curl_getdate(date.c_str(), nullptr);
    if (when == static_cast<time_t>(-1)) return std::nullopt;
    const auto target = std::chrono::system_clock::from_time_t(when);
    const auto now = std::chrono::system_clock::now();
    if (target <= now) return milliseconds(0);
    return std::chrono::duration_cast<milliseconds>(target - now);
}

double uniformUnit() {
    thread_local std::mt19937_64 engine{std::random_device{}()};
    return std::uniform_real_distribution<double>(0.0, 1.0)(engine);
}

bool contains(const std::vector<int>& values, int value) {
    return std::find(values.begin(), values.end(), value) != values.end();
}

}  // namespace

bool RetryPolicy::shouldRetry(const HttpResponse& response, int attempt, bool idempotent) const {
    if (attempt >= maxAttempts) return false;

    switch (response.error) {
        case TransportError::none: break;
        case TransportError::couldNotConnect: return true;  // never reached the server
        case TransportError::connectionLost: return idempotent && retryOnConnectionLost;
        case TransportError::timedOut: return idempotent && retryOnTimeout;
        default: return false;
    }

    const bool refused = refusedBeforeActing && refusedBeforeActing(response);
    if (!refused && !contains(retryStatuses, response.status)) return false;
    const auto wait = retryAfter(response);
    if (wait && *wait > maxRetryAfter) return false;
    if (idempotent || refused) return true;
    // The server turned the request away before acting on it only when it says when to
    // come back; a bare 5xx may come after the work was done.
    return wait.has_value() && (response.status == 429 || response.status == 503);
}

bool RetryPolicy::isTransient(const HttpResponse& response) const {
    switch (response.error) {
        case TransportError::none: break;
        case TransportError::couldNotResolve:
        case TransportError::couldNotConnect:
        case TransportError::connectionLost:
        case TransportError::timedOut: return true;
        default: return false;
    }
    return contains(retryStatuses, response.status) || (refusedBeforeActing && refusedBeforeActing(response));
}

milliseconds RetryPolicy::delayBefore(int nextAttempt, const HttpResponse& last) const {
    if (auto wait = retryAfter(last)) return std::min(*wait, maxRetryAfter);

    // Full jitter: a random point below an exponentially growing ceiling, so that many
    // clients hit by the same outage do not come back in step. The floor keeps a retry
    // from following its failure immediately.
    const int retry = std::max(1, nextAttempt - 1);
    const auto base = std::max(baseDelay, milliseconds(1));
    milliseconds ceiling = base;
    for (int i = 1; i < retry && ceiling < maxDelay; ++i) ceiling *= 2;
    ceiling = std::min(ceiling, maxDelay);
    const milliseconds floor = std::min(ceiling, base / 10);
    const auto jittered = milliseconds(static_cast<std::int64_t>(
        static_cast<double>(ceiling.count()) * uniformUnit()));
    return std::max(floor, jittered);
}

}  // namespace vxcloud
