// Dispatch groups: a counter of outstanding work with waiters and notify blocks.
#include <condition_variable>
#include <mutex>
#include <utility>
#include <vector>

#include "platform/ThreadPool.h"
#include "vxcloud/platform/Dispatch.h"

namespace vxcloud {

struct DispatchGroup::State {
    mutable std::mutex mutex;
    std::condition_variable empty;
    long count = 0;
    std::vector<std::pair<std::shared_ptr<DispatchQueue>, Block>> notifications;

    void enter() {
        std::lock_guard lock(mutex);
        ++count;
    }

    void leave() {
        std::vector<std::pair<std::shared_ptr<DispatchQueue>, Block>> due;
        {
            std::lock_guard lock(mutex);
            if (count <= 0) detail::fatal("DispatchGroup::leave called more often than enter");
            if (--count > 0) return;
            due.swap(notifications);
            empty.notify_all();
        }
        for (auto& [queue, block] : due) queue->async(std::move(block));
    }
};

DispatchGroup::DispatchGroup() : state_(std::make_shared<State>()) {}

DispatchGroup::~DispatchGroup() = default;

void DispatchGroup::enter() { state_->enter(); }

void DispatchGroup::leave() { state_->leave(); }

void DispatchGroup::notify(std::shared_ptr<DispatchQueue> queue, Block block) {
    if (!block) return;
    if (!queue) queue = DispatchQueue::global();
    {
        std::lock_guard lock(state_->mutex);
        if (state_->count > 0) {
            state_->notifications.emplace_back(std::move(queue), std::move(block));
            return;
        }
    }
    queue->async(std::move(block));
}

bool DispatchGroup::wait(std::chrono::nanoseconds timeout) {
    std::unique_lock lock(state_->mutex);
    const auto isEmpty = [this] { return state_->count == 0; };
    const auto deadline = detail::deadlineAfter(timeout);
    if (deadline == std::chrono::steady_clock::time_point::max()) {
        state_->empty.wait(lock, isEmpty);
        return true;
    }
    return state_->empty.wait_until(lock, deadline, isEmpty);
}

void DispatchGroup::async(const std::shared_ptr<DispatchQueue>& queue, Block block) {
    if (!block) return;
    const auto& target = queue ? queue : DispatchQueue::global();
    state_->enter();
    // The block holds the group's state, so the group object itself may go first.
    target->async([state = state_, block = std::move(block)]() mutable {
        detail::runBlock(block, "group block");
        block = nullptr;  // what the block holds is released before the group empties
        state->leave();
    });
}

long DispatchGroup::count() const {
    std::lock_guard lock(state_->mutex);
    return state_->count;
}

}  // namespace vxcloud
