#include "framework/Clock.h"

#include <chrono>

namespace vxcloud::sandbox {

std::int64_t Clock::nowSeconds() const {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::seconds>(now).count() + offset_.load();
}

}  // namespace vxcloud::sandbox
