// The main queue: blocks wait in a list until the thread driving the queue (the host's
// main thread, or a thread of the library's own) takes them.
#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>
#include <utility>

#include "platform/ThreadPool.h"
#include "vxcloud/platform/Dispatch.h"

namespace vxcloud {

struct MainQueue::State {
    std::mutex mutex;
    std::condition_variable changed;
    std::deque<Block> blocks;
    std::thread::id driver;      // the thread inside run/runUntil/drain, if any
    int driveDepth = 0;          // nested run calls from blocks on the driving thread
    bool stopRequested = false;  // ends the current (or next) run/runUntil
    std::thread ownThread;
    unsigned ownThreadGeneration = 0;  // bumped to tell the library's own thread to stop
};

namespace {

using State = MainQueue::State;

// How often runUntil re-checks its predicate while no block arrives: the predicate
// may depend on work done on other threads.
constexpr auto kPredicatePoll = std::chrono::milliseconds(5);

// Makes the calling thread the driver for its lifetime.
class DriverScope {
public:
    explicit DriverScope(State& state) : state_(state) {
        std::lock_guard lock(state_.mutex);
        const auto self = std::this_thread::get_id();
        if (state_.driveDepth > 0 && state_.driver != self) {
            detail::fatal("MainQueue is already driven by another thread");
        }
        state_.driver = self;
        ++state_.driveDepth;
    }
    ~DriverScope() {
        std::lock_guard lock(state_.mutex);
        if (--state_.driveDepth == 0) {
            state_.driver = std::thread::id();
            state_.changed.notify_all();  // the library's own thread may be waiting to drive
        }
    }
    DriverScope(const DriverScope&) = delete;
    DriverScope& operator=(const DriverScope&) = delete;

private:
    State& state_;
};

void runOne(MainQueue* queue, Block& block) {
    detail::CurrentQueueScope scope(queue);
    detail::runBlock(block, "main queue block");
    block = nullptr;
}

}  // namespace

MainQueue::MainQueue() : DispatchQueue("main"), state_(std::make_shared<State>()) {}

MainQueue::~MainQueue() { stopOwnThread(); }

std::shared_ptr<MainQueue> DispatchQueue::main() {
    // Never destroyed (blocks may be queued until the very end); the library's own
    // driving thread, if any, is stopped at exit.
    static auto* const instance = new std::shared_ptr<MainQueue>(new MainQueue());
    static struct Stopper {
        ~Stopper() { (*instance)->stopOwnThread(); }
    } stopper;
    return *instance;
}

void MainQueue::async(Block block) {
    if (!block) return;
    std::lock_guard lock(state_->mutex);
    state_->blocks.push_back(std::move(block));
    state_->changed.notify_all();
}

void MainQueue::sync(Block block) {
    if (!block) return;
    if (isCurrentThread()) {
        detail::CurrentQueueScope scope(this);
        detail::runBlock(block, "main queue block");
        return;
    }
    detail::Completion done;
    async([&block, &done] {
        detail::runBlock(block, "main queue block");
        done.signal();
    });
    done.wait();
}

void MainQueue::run() {
    DriverScope driving(*state_);
    for (;;) {
        Block block;
        {
            std::unique_lock lock(state_->mutex);
            state_->changed.wait(lock, [this] {
                return state_->stopRequested || !state_->blocks.empty();
            });
            if (state_->stopRequested) {
                state_->stopRequested = false;
                return;
            }
            block = std::move(state_->blocks.front());
            state_->blocks.pop_front();
        }
        runOne(this, block);
    }
}

bool MainQueue::runUntil(const std::function<bool()>& predicate,
                         std::chrono::steady_clock::time_point deadline) {
    DriverScope driving(*state_);
    const auto holds = [&predicate] { return predicate ? predicate() : false; };
    for (;;) {
        if (holds()) return true;
        Block block;
        {
            std::unique_lock lock(state_->mutex);
            if (state_->blocks.empty() && !state_->stopRequested) {
                const auto now = std::chrono::steady_clock::now();
                if (now >= deadline) break;
                const auto wakeAt = deadline - now > kPredicatePoll ? now + kPredicatePoll : deadline;
                state_->changed.wait_until(lock, wakeAt, [this] {
                    return state_->stopRequested || !state_->blocks.empty();
                });
            }
            if (state_->stopRequested) {
                state_->stopRequested = false;
                break;
            }
            if (state_->blocks.empty()) continue;
            block = std::move(state_->blocks.front());
            state_->blocks.pop_front();
        }
        runOne(this, block);
    }
    return holds();
}

bool MainQueue::runUntil(const std::function<bool()>& predicate,
                         std::chrono::milliseconds timeout) {
    return runUntil(predicate, detail::deadlineAfter(timeout));
}

std::size_t MainQueue::drain() {
    DriverScope driving(*state_);
    std::size_t ran = 0;
    for (;;) {
        Block block;
        {
            std::lock_guard lock(state_->mutex);
            if (state_->blocks.empty()) return ran;
            block = std::move(state_->blocks.front());
            state_->blocks.pop_front();
        }
        runOne(this, block);
        ++ran;
    }
}

void MainQueue::stop() {
    std::lock_guard lock(state_->mutex);
    state_->stopRequested = true;
    state_->changed.notify_all();
}

void MainQueue::startOwnThread() {
    std::lock_guard lock(state_->mutex);
    if (state_->ownThread.joinable()) return;
    const unsigned generation = ++state_->ownThreadGeneration;
    // The thread holds the state; `this` is only used to mark blocks as running on
    // the main queue, and the queue cannot go away before stopOwnThread has joined.
    state_->ownThread = std::thread([this, state = state_, generation] {
        std::unique_lock lock(state->mutex);
        const auto stopped = [&] { return state->ownThreadGeneration != generation; };
        // If the host is driving the queue right now, take over when it stops.
        state->changed.wait(lock, [&] { return stopped() || state->driveDepth == 0; });
        if (stopped()) return;
        state->driver = std::this_thread::get_id();
        ++state->driveDepth;
        for (;;) {
            state->changed.wait(lock, [&] { return stopped() || !state->blocks.empty(); });
            if (stopped()) break;
            Block block = std::move(state->blocks.front());
            state->blocks.pop_front();
            lock.unlock();
            runOne(this, block);
            lock.lock();
        }
        if (--state->driveDepth == 0) {
            state->driver = std::thread::id();
            state->changed.notify_all();
        }
    });
}

void MainQueue::stopOwnThread() {
    std::thread thread;
    {
        std::lock_guard lock(state_->mutex);
        if (!state_->ownThread.joinable()) return;
        ++state_->ownThreadGeneration;
        state_->changed.notify_all();
        thread = std::move(state_->ownThread);
    }
    if (thread.get_id() == std::this_thread::get_id()) {
        thread.detach();  // called from one of its own blocks: it ends after this block
    } else {
        thread.join();
    }
}

bool MainQueue::isDrivenByOwnThread() const {
    std::lock_guard lock(state_->mutex);
    return state_->ownThread.joinable();
}

bool MainQueue::isCurrentThread() const {
    std::lock_guard lock(state_->mutex);
    return state_->driveDepth > 0 && state_->driver == std::this_thread::get_id();
}

}  // namespace vxcloud
