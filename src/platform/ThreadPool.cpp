#include "platform/ThreadPool.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>
#include <system_error>
#include <utility>

#include "vxcloud/platform/Log.h"

namespace vxcloud::detail {

namespace {

thread_local DispatchQueue* tlsCurrentQueue = nullptr;

std::size_t defaultBaseWorkers() {
    const unsigned cores = std::thread::hardware_concurrency();
    return std::max<std::size_t>(2, cores);
}

void joinAll(std::vector<std::thread>& threads) {
    for (auto& t : threads) {
        if (t.joinable()) t.join();
    }
    threads.clear();
}

}  // namespace

ThreadPool& ThreadPool::shared() {
    // Deliberately never deleted, so that code running during static destruction can
    // still submit; the stopper below joins the workers at exit.
    static ThreadPool* const pool =
        new ThreadPool(defaultBaseWorkers(), kMaxWorkers,
                       std::chrono::duration_cast<std::chrono::milliseconds>(kIdleTimeout));
    static struct Stopper {
        ~Stopper() { pool->shutdown(); }
    } stopper;
    return *pool;
}

ThreadPool::ThreadPool(std::size_t baseWorkers, std::size_t maxWorkers,
                       std::chrono::milliseconds idleTimeout)
    : baseWorkers_(std::max<std::size_t>(1, baseWorkers)),
      maxWorkers_(std::max(maxWorkers, std::max<std::size_t>(1, baseWorkers))),
      idleTimeout_(idleTimeout) {}

ThreadPool::~ThreadPool() { shutdown(); }

std::size_t ThreadPool::workerCount() const {
    std::lock_guard lock(mutex_);
    return total_;
}

void ThreadPool::submit(Block block, QoS qos) {
    if (!block) return;
    std::vector<std::thread> exited;
    bool runHere = false;
    {
        std::lock_guard lock(mutex_);
        if (stopped_ || (stopping_ && total_ == 0)) {
            runHere = true;
        } else {
            queues_[static_cast<std::size_t>(qos) % kLevels].push_back(std::move(block));
            ++queued_;
            // Idle workers that were woken but have not yet taken a block still count
            // as idle, so this only grows the pool when the queued blocks outnumber
            // the workers able to take them.
            if (queued_ > idle_ && total_ < maxWorkers_ && !stopping_) spawnLocked();
            exited = takeExitedLocked();
            workAvailable_.notify_one();
        }
    }
    joinAll(exited);
    if (runHere) runBlock(block, "dispatch block");
}

void ThreadPool::submitAfter(std::chrono::steady_clock::time_point when, Block fire) {
    if (!fire) return;
    std::unique_lock lock(mutex_);
    if (stopping_) {
        lock.unlock();
        return;  // the process is exiting; the delayed block is dropped
    }
    timers_.emplace(when, std::move(fire));
    if (!timerThread_.joinable()) {
        try {
            timerThread_ = std::thread([this] { timerLoop(); });
        } catch (const std::system_error& e) {
            log::error("dispatch", std::string("cannot start the timer thread: ") + e.what());
        }
    }
    timerChanged_.notify_one();
}

void ThreadPool::spawnLocked() {
    const std::uint64_t id = nextWorkerId_++;
    try {
        workers_.emplace(id, std::thread([this, id] { workerLoop(id); }));
        ++total_;
    } catch (const std::system_error& e) {
        // The queued block stays queued for the workers that exist.
        log::error("dispatch", std::string("cannot start a pool thread: ") + e.what());
    }
}

std::vector<std::thread> ThreadPool::takeExitedLocked() {
    std::vector<std::thread> exited;
    exited.swap(exited_);
    return exited;
}

bool ThreadPool::hasQueuedLocked() const { return queued_ > 0; }

Block ThreadPool::popLocked() {
    for (auto& queue : queues_) {
        if (!queue.empty()) {
            Block block = std::move(queue.front());
            queue.pop_front();
            --queued_;
            return block;
        }
    }
    return {};
}

void ThreadPool::workerLoop(std::uint64_t id) {
    std::unique_lock lock(mutex_);
    for (;;) {
        if (hasQueuedLocked()) {
            Block block = popLocked();
            lock.unlock();
            runBlock(block, "dispatch block");
            block = nullptr;  // release captures before taking the lock again
            lock.lock();
            continue;
        }
        if (stopping_) break;
        ++idle_;
        bool timedOut = false;
        if (total_ > baseWorkers_) {
            timedOut = workAvailable_.wait_for(lock, idleTimeout_) == std::cv_status::timeout;
        } else {
            workAvailable_.wait(lock);
        }
        --idle_;
        if (timedOut && !hasQueuedLocked() && total_ > baseWorkers_) break;
    }
    --total_;
    auto self = workers_.find(id);
    if (self != workers_.end()) {
        exited_.push_back(std::move(self->second));
        workers_.erase(self);
    }
    workerExited_.notify_all();
}

void ThreadPool::timerLoop() {
    std::unique_lock lock(mutex_);
    while (!stopping_) {
        if (timers_.empty()) {
            timerChanged_.wait(lock);
            continue;
        }
        auto first = timers_.begin();
        if (first->first <= std::chrono::steady_clock::now()) {
            Block fire = std::move(first->second);
            timers_.erase(first);
            lock.unlock();
            runBlock(fire, "delayed block");
            fire = nullptr;
            lock.lock();
            continue;
        }
        timerChanged_.wait_until(lock, first->first);
    }
}

void ThreadPool::shutdown(std::chrono::milliseconds grace) {
    std::thread timer;
    std::multimap<std::chrono::steady_clock::time_point, Block> droppedTimers;
    {
        std::lock_guard lock(mutex_);
        if (stopping_) return;
        stopping_ = true;
        timer = std::move(timerThread_);
        droppedTimers.swap(timers_);
        workAvailable_.notify_all();
        timerChanged_.notify_all();
    }
    if (timer.joinable()) timer.join();
    droppedTimers.clear();

    std::vector<std::thread> exited;
    std::vector<std::thread> stragglers;
    std::array<std::deque<Block>, kLevels> leftover;
    {
        std::unique_lock lock(mutex_);
        workerExited_.wait_for(lock, grace, [this] { return total_ == 0; });
        exited = takeExitedLocked();
        for (auto& [id, thread] : workers_) stragglers.push_back(std::move(thread));
        workers_.clear();
        leftover.swap(queues_);
        queued_ = 0;
        stopped_ = true;
    }
    joinAll(exited);
    if (!stragglers.empty()) {
        // A block that never returns must not hang the process on its way out.
        log::warning("dispatch", std::to_string(stragglers.size()) +
                                     " pool thread(s) still busy at exit; leaving them");
        for (auto& t : stragglers) t.detach();
    }
}

void runBlock(const Block& block, const char* where) noexcept {
    if (!block) return;
    try {
        block();
    } catch (const std::exception& e) {
        log::error("dispatch", std::string(where) + " threw: " + e.what());
    } catch (...) {
        log::error("dispatch", std::string(where) + " threw a non-standard exception");
    }
}

void fatal(const char* message) noexcept {
    std::fprintf(stderr, "vxcloud: fatal: %s\n", message);
    std::fflush(stderr);
    std::abort();
}

std::chrono::steady_clock::time_point deadlineAfter(std::chrono::nanoseconds delay) {
    using Clock = std::chrono::steady_clock;
    const auto now = Clock::now();
    if (delay <= std::chrono::nanoseconds::zero()) return now;
    const auto room = Clock::time_point::max() - now;
    if (delay >= room) return Clock::time_point::max();
    return now + std::chrono::duration_cast<Clock::duration>(delay);
}

CurrentQueueScope::CurrentQueueScope(DispatchQueue* queue) noexcept
    : previous_(tlsCurrentQueue) {
    tlsCurrentQueue = queue;
}

CurrentQueueScope::~CurrentQueueScope() { tlsCurrentQueue = previous_; }

void Completion::signal() {
    std::lock_guard lock(mutex_);
    done_ = true;
    cv_.notify_all();
}

void Completion::wait() {
    std::unique_lock lock(mutex_);
    cv_.wait(lock, [this] { return done_; });
}

}  // namespace vxcloud::detail

namespace vxcloud {

DispatchQueue* DispatchQueue::current() noexcept { return detail::tlsCurrentQueue; }

}  // namespace vxcloud
