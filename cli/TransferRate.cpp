#include "TransferRate.h"

#include <cmath>
#include <cstdio>

#include "Output.h"

namespace vxcloud::cli {

namespace {

// The rate is measured over this much of the recent past.
constexpr auto kWindow = std::chrono::seconds(5);
// Less than this tells nothing reliable.
constexpr auto kShortest = std::chrono::milliseconds(300);

}  // namespace

void TransferRate::start(Clock::time_point at) {
    samples_.clear();
    samples_.push_back({at, 0});
}

void TransferRate::add(Clock::time_point at, std::int64_t sent) {
    samples_.push_back({at, sent});
    // Keep one sample from before the window, so the window is always covered.
    while (samples_.size() > 2 && samples_[1].at < at - kWindow) samples_.pop_front();
}

std::optional<double> TransferRate::bytesPerSecond() const {
    if (samples_.size() < 2) return std::nullopt;
    const Sample& first = samples_.front();
    const Sample& last = samples_.back();
    const auto span = last.at - first.at;
    if (span < kShortest || last.sent <= first.sent) return std::nullopt;
    return static_cast<double>(last.sent - first.sent) / std::chrono::duration<double>(span).count();
}

std::optional<std::int64_t> TransferRate::secondsLeft(std::int64_t total) const {
    const auto rate = bytesPerSecond();
    if (!rate || samples_.empty()) return std::nullopt;
    const std::int64_t left = std::max<std::int64_t>(0, total - samples_.back().sent);
    return static_cast<std::int64_t>(std::ceil(static_cast<double>(left) / *rate));
}

std::string rateText(double bytesPerSecond) {
    return humanBytes(static_cast<std::int64_t>(bytesPerSecond)) + "/s";
}

std::string durationText(std::int64_t seconds) {
    char buffer[32];
    if (seconds < 60) {
        std::snprintf(buffer, sizeof buffer, "%lld s", static_cast<long long>(seconds));
    } else if (seconds < 3600) {
        std::snprintf(buffer, sizeof buffer, "%lld min %02lld s", static_cast<long long>(seconds / 60),
                      static_cast<long long>(seconds % 60));
    } else {
        std::snprintf(buffer, sizeof buffer, "%lld h %02lld min", static_cast<long long>(seconds / 3600),
                      static_cast<long long>(seconds % 3600 / 60));
    }
    return buffer;
}

}  // namespace vxcloud::cli
