#pragma once
// Per-route request statistics. Every request is also counted under "<provider>/*" so a
// test can check a provider-wide limit (at most N requests in flight, for instance).
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "vxcloud_sandbox/Sandbox.h"

namespace vxcloud::sandbox {

class Counters {
public:
    void begin(const std::string& route, const std::string& provider);
    void end(const std::string& route, const std::string& provider, int status);
    void faultHit(const std::string& route, const std::string& provider);
    void received(const std::string& route, const std::string& provider, std::int64_t bytes);
    void sent(const std::string& route, const std::string& provider, std::int64_t bytes);

    RouteStats get(const std::string& route) const;
    std::vector<RouteStats> all() const;
    void reset();

private:
    template <class F>
    void update(const std::string& route, const std::string& provider, F&& f);

    mutable std::mutex mutex_;
    std::map<std::string, RouteStats> stats_;
};

}  // namespace vxcloud::sandbox
