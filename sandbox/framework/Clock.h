#pragma once
// The sandbox's notion of "now": wall-clock time plus an offset that tests can advance,
// so token, code and upload-session expiry can be exercised without waiting.
#include <atomic>
#include <cstdint>

namespace vxcloud::sandbox {

class Clock {
public:
    std::int64_t nowSeconds() const;
    void advance(std::int64_t seconds) { offset_ += seconds; }
    std::int64_t offset() const { return offset_; }

private:
    std::atomic<std::int64_t> offset_{0};
};

}  // namespace vxcloud::sandbox
