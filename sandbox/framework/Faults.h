#pragma once
// Queued faults per route: each is taken by exactly one request, in the order queued.
#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <optional>
#include <random>
#include <string>

#include "vxcloud_sandbox/Sandbox.h"

namespace vxcloud::sandbox {

class FaultInjector {
public:
    void enqueue(const std::string& route, const FaultSpec& fault, int times);
    // The fault for a request of `route` (queued for the route itself, else for
    // "<provider>/*", else for "*"), removed from its queue; else, with random faults on,
    // one drawn at random (never an expired token for a provider whose tokens cannot be
    // refreshed: there it would end the account's session for good, not for one request).
    std::optional<FaultSpec> take(const std::string& route, const std::string& provider, bool tokensRefresh = true);
    // Faults for `rate` of the requests that have none queued, drawn in an order fixed by
    // `seed` from what real networks and services do: 429 and 503 with and without
    // Retry-After, connections dropped before the request is read, during its body or
    // during the answer's, delays, and access tokens that expire. A rate of 0 turns it off.
    void setRandom(double rate, std::uint64_t seed);
    std::int64_t randomDrawn() const;
    void clear(const std::string& route);  // empty: every queue
    std::int64_t pending(const std::string& route) const;
    std::map<std::string, std::int64_t> pendingByRoute() const;

private:
    std::optional<FaultSpec> takeFrom(const std::string& queueKey);

    std::optional<FaultSpec> drawRandom(bool tokensRefresh);

    mutable std::mutex mutex_;
    std::map<std::string, std::deque<FaultSpec>> queues_;
    double randomRate_ = 0;
    std::mt19937_64 random_;
    std::int64_t randomDrawn_ = 0;
};

}  // namespace vxcloud::sandbox
