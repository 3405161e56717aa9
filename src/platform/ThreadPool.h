#pragma once
// The one thread pool behind every dispatch queue, plus the small pieces the queue
// implementations share. Private to the library.
#include <array>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <thread>
#include <vector>

#include "vxcloud/platform/Dispatch.h"

namespace vxcloud::detail {

// A pool that grows when every worker is busy: blocks may wait on the network or on
// other blocks, so a fixed-size pool could starve itself. It starts from nothing,
// keeps up to `baseWorkers` threads for good, adds threads up to `maxWorkers` while
// blocks are waiting and no worker is idle, and lets the extra threads go after they
// have idled for a while.
class ThreadPool {
public:
    static constexpr std::size_t kMaxWorkers = 128;
    static constexpr std::chrono::seconds kIdleTimeout{5};

    // The process-wide pool. It is never destroyed; its workers are stopped and joined
    // during static destruction, after which blocks run on the submitting thread.
    static ThreadPool& shared();

    ThreadPool(std::size_t baseWorkers, std::size_t maxWorkers,
               std::chrono::milliseconds idleTimeout);
    ~ThreadPool();
    ThreadPool(const ThreadPool&) = delete;
    ThreadPool& operator=(const ThreadPool&) = delete;

    // Queues the block; blocks of a higher QoS are taken first.
    void submit(Block block, QoS qos = QoS::defaultQoS);
    // Calls `fire` on the timer thread at `when`; `fire` must be quick (it normally
    // just queues the real block somewhere).
    void submitAfter(std::chrono::steady_clock::time_point when, Block fire);

    std::size_t workerCount() const;
    // Stops the timer and the workers. Workers finish the queued blocks first; those
    // still busy after `grace` are left to finish on their own.
    void shutdown(std::chrono::milliseconds grace = std::chrono::milliseconds(5000));

private:
    static constexpr std::size_t kLevels = 5;

    void workerLoop(std::uint64_t id);
    void timerLoop();
    bool hasQueuedLocked() const;
    Block popLocked();
    void spawnLocked();
    std::vector<std::thread> takeExitedLocked();

    const std::size_t baseWorkers_;
    const std::size_t maxWorkers_;
    const std::chrono::milliseconds idleTimeout_;

    mutable std::mutex mutex_;
    std::condition_variable workAvailable_;
    std::condition_variable workerExited_;
    std::array<std::deque<Block>, kLevels> queues_;
    std::size_t queued_ = 0;
    std::size_t idle_ = 0;
    std::size_t total_ = 0;
    std::uint64_t nextWorkerId_ = 0;
    std::map<std::uint64_t, std::thread> workers_;
    std::vector<std::thread> exited_;  // finished workers waiting to be joined
    bool stopping_ = false;
    bool stopped_ = false;

    std::condition_variable timerChanged_;
    std::multimap<std::chrono::steady_clock::time_point, Block> timers_;
    std::thread timerThread_;
};

// Runs a block, keeping exceptions from escaping into a pool thread (they are logged).
void runBlock(const Block& block, const char* where) noexcept;

// Stops the process with a message: for programming errors such as an unbalanced
// DispatchGroup::leave.
[[noreturn]] void fatal(const char* message) noexcept;

// now + delay, saturating instead of overflowing for "wait forever" delays.
std::chrono::steady_clock::time_point deadlineAfter(std::chrono::nanoseconds delay);

// Marks the calling thread as running blocks of `queue` for the scope's lifetime.
class CurrentQueueScope {
public:
    explicit CurrentQueueScope(DispatchQueue* queue) noexcept;
    ~CurrentQueueScope();
    CurrentQueueScope(const CurrentQueueScope&) = delete;
    CurrentQueueScope& operator=(const CurrentQueueScope&) = delete;

private:
    DispatchQueue* previous_;
};

// Waits for a block handed to another thread (the sync() of the queues).
class Completion {
public:
    void signal();
    void wait();

private:
    std::mutex mutex_;
    std::condition_variable cv_;
    bool done_ = false;
};

}  // namespace vxcloud::detail
