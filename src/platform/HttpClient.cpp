// Request attempts, retries and per-attempt logging over the libcurl transfer.
#include <atomic>
#include <mutex>
#include <thread>

#include "platform/CurlShare.h"
#include "platform/CurlTransfer.h"
#include "vxcloud/platform/Http.h"
#include "vxcloud/platform/Log.h"

namespace vxcloud {

struct HttpClient::State {
    std::shared_ptr<curl::Share> share = std::make_shared<curl::Share>();
    std::mutex loggerMutex;
    std::shared_ptr<const RequestLogger> logger;

    std::shared_ptr<const RequestLogger> currentLogger() {
        std::lock_guard lock(loggerMutex);
        return logger;
    }
};

namespace {

std::string errorName(TransportError error) {
    switch (error) {
        case TransportError::none: return "none";
        case TransportError::couldNotResolve: return "couldNotResolve";
        case TransportError::couldNotConnect: return "couldNotConnect";
        case TransportError::timedOut: return "timedOut";
        case TransportError::connectionLost: return "connectionLost";
        case TransportError::tls: return "tls";
        case TransportError::tooManyRedirects: return "tooManyRedirects";
        case TransportError::aborted: return "aborted";
        case TransportError::other: return "other";
    }
    return "other";
}

void reportAttempt(HttpClient::State& state, const HttpRequest& request,
                   const HttpResponse& response) {
    auto logger = state.currentLogger();
    if (!logger && !log::enabled(log::Level::debug)) return;
    try {
        const std::string url = log::redact(request.url);
        if (log::enabled(log::Level::debug)) {
            std::string line = request.method + " " + url + " -> ";
            line += response.transportFailed() ? errorName(response.error) + " (" +
                                                     response.errorMessage + ")"
                                               : std::to_string(response.status);
            line += " [attempt " + std::to_string(response.attempts) + "]";
            log::debug("http", line);
        }
        if (logger && *logger) (*logger)(request.method, url, response.status, response.error);
    } catch (const std::exception& e) {
        log::warning("http", std::string("request logger failed: ") + e.what());
    } catch (...) {
        log::warning("http", "request logger failed");
    }
}

}  // namespace

std::shared_ptr<HttpClient> HttpClient::shared() {
    // Deliberately never destroyed: requests may still run on other threads at exit.
    static auto* const client = new std::shared_ptr<HttpClient>(std::make_shared<HttpClient>());
    return *client;
}

namespace {
std::atomic<std::int64_t> performedCount{0};
std::atomic<std::int64_t> repeatedCount{0};
}  // namespace

HttpClient::Counters HttpClient::counters() { return {performedCount.load(), repeatedCount.load()}; }

HttpClient::HttpClient() : state_(std::make_shared<State>()) {}

HttpClient::~HttpClient() = default;

void HttpClient::setRequestLogger(RequestLogger logger) {
    auto shared = logger ? std::make_shared<const RequestLogger>(std::move(logger)) : nullptr;
    std::lock_guard lock(state_->loggerMutex);
    state_->logger = std::move(shared);
}

HttpResponse HttpClient::perform(const HttpRequest& request, const RetryPolicy& policy) {
    // Keeps the connection caches alive for this call even if the client goes away.
    const std::shared_ptr<State> state = state_;
    performedCount.fetch_add(1, std::memory_order_relaxed);
    for (int attempt = 1;; ++attempt) {
        if (attempt > 1) repeatedCount.fetch_add(1, std::memory_order_relaxed);
        curl::TransferResult result = curl::transfer(state->share, request);
        result.response.attempts = attempt;
        reportAttempt(*state, request, result.response);
        try {
            if (result.deliveredChunks ||
                !policy.shouldRetry(result.response, attempt, request.idempotent))
                return std::move(result.response);
            const auto delay = policy.delayBefore(attempt + 1, result.response);
            if (log::enabled(log::Level::debug))
                log::debug("http", "retrying in " + std::to_string(delay.count()) + " ms");
            std::this_thread::sleep_for(delay);
        } catch (...) {
            return std::move(result.response);
        }
    }
}

}  // namespace vxcloud
