#include "framework/Counters.h"

#include <algorithm>

namespace vxcloud::sandbox {

template <class F>
void Counters::update(const std::string& route, const std::string& provider, F&& f) {
    std::lock_guard lock(mutex_);
    auto& exact = stats_[route];
    exact.route = route;
    f(exact);
    if (!provider.empty()) {
        auto& any = stats_[provider + "/*"];
        any.route = provider + "/*";
        f(any);
    }
}

void Counters::begin(const std::string& route, const std::string& provider) {
    update(route, provider, [](RouteStats& s) {
        ++s.requests;
        ++s.inFlight;
        s.maxInFlight = std::max(s.maxInFlight, s.inFlight);
    });
}

void Counters::end(const std::string& route, const std::string& provider, int status) {
    update(route, provider, [status](RouteStats& s) {
        --s.inFlight;
        ++s.statuses[status];
    });
}

void Counters::faultHit(const std::string& route, const std::string& provider) {
    update(route, provider, [](RouteStats& s) { ++s.faultsHit; });
}

void Counters::received(const std::string& route, const std::string& provider, std::int64_t bytes) {
    update(route, provider, [bytes](RouteStats& s) { s.bytesReceived += bytes; });
}

void Counters::sent(const std::string& route, const std::string& provider, std::int64_t bytes) {
    update(route, provider, [bytes](RouteStats& s) { s.bytesSent += bytes; });
}

RouteStats Counters::get(const std::string& route) const {
    std::lock_guard lock(mutex_);
    const auto it = stats_.find(route);
    if (it != stats_.end()) return it->second;
    RouteStats empty;
    empty.route = route;
    return empty;
}

std::vector<RouteStats> Counters::all() const {
    std::lock_guard lock(mutex_);
    std::vector<RouteStats> out;
    for (const auto& [route, s] : stats_) out.push_back(s);
    return out;
}

void Counters::reset() {
    std::lock_guard lock(mutex_);
    // Requests still being handled keep their in-flight count, so a later end() balances.
    for (auto it = stats_.begin(); it != stats_.end();) {
        RouteStats& s = it->second;
        if (s.inFlight == 0) {
            it = stats_.erase(it);
            continue;
        }
        const int inFlight = s.inFlight;
        s = RouteStats{};
        s.route = it->first;
        s.inFlight = inFlight;
        s.maxInFlight = inFlight;
        ++it;
    }
}

}  // namespace vxcloud::sandbox
