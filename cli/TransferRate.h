#pragma once
// How fast a transfer goes and how long it still takes, from the bytes it reported over the
// last few seconds: a rate that follows the transfer as it speeds up or slows down, without
// jumping at every report.
#include <chrono>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>

namespace vxcloud::cli {

class TransferRate {
public:
    using Clock = std::chrono::steady_clock;

    // Starts over: nothing sent at `at`.
    void start(Clock::time_point at);
    // `sent` bytes in all by `at`.
    void add(Clock::time_point at, std::int64_t sent);
    // Bytes per second over the last few seconds; nothing until it has seen enough to tell.
    std::optional<double> bytesPerSecond() const;
    // Seconds until `total` bytes are sent at that rate; nothing while the rate is unknown.
    std::optional<std::int64_t> secondsLeft(std::int64_t total) const;

private:
    struct Sample {
        Clock::time_point at;
        std::int64_t sent;
    };
    std::deque<Sample> samples_;
};

// "12.3 MiB/s", "800 B/s".
std::string rateText(double bytesPerSecond);
// "8 s", "2 min 05 s", "1 h 20 min".
std::string durationText(std::int64_t seconds);

}  // namespace vxcloud::cli
