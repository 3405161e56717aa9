#pragma once
// Queued faults per route: each is taken by exactly one request, in the order queued.
#include <deque>
#include <map>
#include <mutex>
#include <optional>
#include <string>

#include "vxcloud_sandbox/Sandbox.h"

namespace vxcloud::sandbox {

class FaultInjector {
public:
    void enqueue(const std::string& route, const FaultSpec& fault, int times);
    // The fault for a request of `route` (queued for the route itself, else for
    // "<provider>/*", else for "*"), removed from its queue.
    std::optional<FaultSpec> take(const std::string& route, const std::string& provider);
    void clear(const std::string& route);  // empty: every queue
    std::int64_t pending(const std::string& route) const;
    std::map<std::string, std::int64_t> pendingByRoute() const;

private:
    std::optional<FaultSpec> takeFrom(const std::string& queueKey);

    mutable std::mutex mutex_;
    std::map<std::string, std::deque<FaultSpec>> queues_;
};

}  // namespace vxcloud::sandbox
