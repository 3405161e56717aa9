// Serial queues: one drain at a time runs the queued blocks in order on the pool.
#include <deque>
#include <mutex>
#include <utility>

#include "platform/ThreadPool.h"
#include "vxcloud/platform/Dispatch.h"

namespace vxcloud {

struct SerialQueue::State {
    std::mutex mutex;
    std::deque<Block> blocks;
    bool draining = false;  // a drain is queued on the pool or running
};

namespace {

// Blocks run per visit to the pool before the drain steps aside for other work.
constexpr int kBlocksPerDrain = 32;

void scheduleDrain(std::shared_ptr<SerialQueue> queue, std::shared_ptr<SerialQueue::State> state);

void drain(const std::shared_ptr<SerialQueue>& queue,
           const std::shared_ptr<SerialQueue::State>& state) {
    detail::CurrentQueueScope scope(queue.get());
    for (int ran = 0;; ++ran) {
        Block block;
        {
            std::lock_guard lock(state->mutex);
            if (state->blocks.empty()) {
                state->draining = false;
                return;
            }
            if (ran == kBlocksPerDrain) break;  // still draining: the next visit goes on
            block = std::move(state->blocks.front());
            state->blocks.pop_front();
        }
        detail::runBlock(block, "serial queue block");
    }
    scheduleDrain(queue, state);
}

void scheduleDrain(std::shared_ptr<SerialQueue> queue, std::shared_ptr<SerialQueue::State> state) {
    // The drain holds the queue, so a queue lives until its blocks have run.
    detail::ThreadPool::shared().submit(
        [queue = std::move(queue), state = std::move(state)] { drain(queue, state); });
}

}  // namespace

SerialQueue::SerialQueue(std::string label)
    : DispatchQueue(std::move(label)), state_(std::make_shared<State>()) {}

SerialQueue::~SerialQueue() = default;

std::shared_ptr<SerialQueue> SerialQueue::create(std::string label) {
    return std::shared_ptr<SerialQueue>(new SerialQueue(std::move(label)));
}

void SerialQueue::async(Block block) {
    if (!block) return;
    bool startDrain = false;
    {
        std::lock_guard lock(state_->mutex);
        state_->blocks.push_back(std::move(block));
        if (!state_->draining) {
            state_->draining = true;
            startDrain = true;
        }
    }
    if (startDrain) {
        scheduleDrain(std::static_pointer_cast<SerialQueue>(shared_from_this()), state_);
    }
}

void SerialQueue::sync(Block block) {
    if (!block) return;
    if (DispatchQueue::current() == this) {
        detail::fatal("SerialQueue::sync called from a block of the same queue (deadlock)");
    }
    detail::Completion done;
    async([&block, &done] {
        detail::runBlock(block, "serial queue block");
        done.signal();
    });
    done.wait();
}

}  // namespace vxcloud
