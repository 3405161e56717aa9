// The queue base class and the global queues, which hand blocks straight to the pool.
#include <array>
#include <utility>

#include "platform/ThreadPool.h"
#include "vxcloud/platform/Dispatch.h"
#include "vxcloud/platform/Log.h"

namespace vxcloud {

namespace {

class GlobalQueue final : public DispatchQueue {
public:
    GlobalQueue(std::string label, QoS qos) : DispatchQueue(std::move(label)), qos_(qos) {}

    void async(Block block) override {
        if (!block) return;
        // Global queues live for the whole process, so `this` stays valid.
        detail::ThreadPool::shared().submit(
            [this, block = std::move(block)] {
                detail::CurrentQueueScope scope(this);
                detail::runBlock(block, "global queue block");
            },
            qos_);
    }

    // Nothing to wait for on a global queue, so the block runs on the caller's thread.
    void sync(Block block) override {
        detail::CurrentQueueScope scope(this);
        detail::runBlock(block, "global queue block");
    }

private:
    QoS qos_;
};

const char* globalLabel(QoS qos) {
    switch (qos) {
        case QoS::userInteractive: return "global.userInteractive";
        case QoS::userInitiated: return "global.userInitiated";
        case QoS::defaultQoS: return "global.default";
        case QoS::utility: return "global.utility";
        case QoS::background: return "global.background";
    }
    return "global.default";
}

}  // namespace

DispatchQueue::DispatchQueue(std::string label) : label_(std::move(label)) {}

DispatchQueue::~DispatchQueue() = default;

void DispatchQueue::asyncAfter(std::chrono::nanoseconds delay, Block block) {
    if (!block) return;
    if (delay <= std::chrono::nanoseconds::zero()) {
        async(std::move(block));
        return;
    }
    // The pending block keeps its queue alive, as any queued block does.
    auto self = weak_from_this().lock();
    if (!self) {
        log::error("dispatch", "asyncAfter on a queue not held by a shared_ptr; block dropped");
        return;
    }
    detail::ThreadPool::shared().submitAfter(
        detail::deadlineAfter(delay),
        [self = std::move(self), block = std::move(block)]() mutable {
            self->async(std::move(block));
        });
}

std::shared_ptr<DispatchQueue> DispatchQueue::global(QoS qos) {
    // Never destroyed: blocks may be queued on them until the very end of the process.
    static const auto* const queues = [] {
        auto* all = new std::array<std::shared_ptr<DispatchQueue>, 5>();
        for (std::size_t i = 0; i < all->size(); ++i) {
            const auto level = static_cast<QoS>(i);
            (*all)[i] = std::make_shared<GlobalQueue>(globalLabel(level), level);
        }
        return all;
    }();
    const auto index = static_cast<std::size_t>(qos);
    return index < queues->size() ? (*queues)[index]
                                  : (*queues)[static_cast<std::size_t>(QoS::defaultQoS)];
}

}  // namespace vxcloud
