// Concurrent queues: blocks start in order and run side by side on the pool, except
// that a barrier waits for everything before it and holds back everything after it.
#include <deque>
#include <mutex>
#include <utility>
#include <vector>

#include "platform/ThreadPool.h"
#include "vxcloud/platform/Dispatch.h"

namespace vxcloud {

struct ConcurrentQueue::State {
    struct Item {
        Block block;
        bool barrier;
    };
    std::mutex mutex;
    std::deque<Item> items;  // not yet handed to the pool
    std::size_t running = 0;
    bool barrierRunning = false;
};

namespace {

using State = ConcurrentQueue::State;

void pump(const std::shared_ptr<ConcurrentQueue>& queue, const std::shared_ptr<State>& state);

void runItem(const std::shared_ptr<ConcurrentQueue>& queue, const std::shared_ptr<State>& state,
             Block& block, bool barrier) {
    {
        detail::CurrentQueueScope scope(queue.get());
        detail::runBlock(block, barrier ? "barrier block" : "concurrent queue block");
        block = nullptr;
    }
    {
        std::lock_guard lock(state->mutex);
        if (barrier) {
            state->barrierRunning = false;
        } else {
            --state->running;
        }
    }
    pump(queue, state);
}

// Hands to the pool every block that may start now.
void pump(const std::shared_ptr<ConcurrentQueue>& queue, const std::shared_ptr<State>& state) {
    std::vector<State::Item> ready;
    {
        std::lock_guard lock(state->mutex);
        while (!state->items.empty() && !state->barrierRunning) {
            auto& next = state->items.front();
            if (next.barrier) {
                if (state->running > 0) break;
                state->barrierRunning = true;
            } else {
                ++state->running;
            }
            ready.push_back(std::move(next));
            state->items.pop_front();
            if (ready.back().barrier) break;
        }
    }
    for (auto& item : ready) {
        detail::ThreadPool::shared().submit(
            [queue, state, block = std::move(item.block), barrier = item.barrier]() mutable {
                runItem(queue, state, block, barrier);
            });
    }
}

}  // namespace

ConcurrentQueue::ConcurrentQueue(std::string label)
    : DispatchQueue(std::move(label)), state_(std::make_shared<State>()) {}

ConcurrentQueue::~ConcurrentQueue() = default;

std::shared_ptr<ConcurrentQueue> ConcurrentQueue::create(std::string label) {
    return std::shared_ptr<ConcurrentQueue>(new ConcurrentQueue(std::move(label)));
}

void ConcurrentQueue::async(Block block) {
    if (!block) return;
    {
        std::lock_guard lock(state_->mutex);
        state_->items.push_back({std::move(block), false});
    }
    pump(std::static_pointer_cast<ConcurrentQueue>(shared_from_this()), state_);
}

void ConcurrentQueue::asyncBarrier(Block block) {
    if (!block) return;
    {
        std::lock_guard lock(state_->mutex);
        state_->items.push_back({std::move(block), true});
    }
    pump(std::static_pointer_cast<ConcurrentQueue>(shared_from_this()), state_);
}

void ConcurrentQueue::sync(Block block) {
    if (!block) return;
    detail::Completion done;
    async([&block, &done] {
        detail::runBlock(block, "concurrent queue block");
        done.signal();
    });
    done.wait();
}

void ConcurrentQueue::syncBarrier(Block block) {
    if (!block) return;
    if (DispatchQueue::current() == this) {
        // The barrier would wait for the very block that waits for it.
        detail::fatal("ConcurrentQueue::syncBarrier called from a block of the same queue (deadlock)");
    }
    detail::Completion done;
    asyncBarrier([&block, &done] {
        detail::runBlock(block, "barrier block");
        done.signal();
    });
    done.wait();
}

}  // namespace vxcloud
