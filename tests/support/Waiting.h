#pragma once
// Waiting in tests for what other threads bring about: a generous deadline that a loaded
// machine still meets, and a sandbox that finishes stopping without holding the test up.
#include <chrono>
#include <memory>
#include <thread>

namespace vxcloud::testing {

inline constexpr std::chrono::milliseconds kPatience{20000};

// Polls until the condition holds; false when it still does not after `timeout`.
template <typename Condition>
bool waitUntil(Condition condition, std::chrono::milliseconds timeout = kPatience,
               std::chrono::milliseconds poll = std::chrono::milliseconds(10)) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::sleep_for(poll);
    }
    return true;
}

// Destroys the object on a background thread. A stopping sandbox waits for its idle
// keep-alive connections to time out; tests need not wait with it. Everything retired is
// gone before the process exits.
void retireInBackground(std::shared_ptr<void> object);

}  // namespace vxcloud::testing
