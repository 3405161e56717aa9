// The notification centre. Each observer is an entry that counts the threads inside
// its handler, so that removal can wait for deliveries already under way.
#include "vxcloud/platform/NotificationCenter.h"

#include <algorithm>
#include <condition_variable>
#include <exception>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

#include "platform/ThreadPool.h"
#include "vxcloud/platform/Dispatch.h"
#include "vxcloud/platform/Log.h"

namespace vxcloud {

namespace {

struct Entry {
    Entry(std::string observedName, std::shared_ptr<DispatchQueue> deliveryQueue,
          NotificationCenter::Handler observerHandler)
        : name(std::move(observedName)),
          queue(std::move(deliveryQueue)),
          handler(std::move(observerHandler)) {}

    const std::string name;  // empty: every notification
    const std::shared_ptr<DispatchQueue> queue;
    // Called without the lock; only released once removed and no call is running.
    NotificationCenter::Handler handler;

    std::mutex mutex;
    std::condition_variable idle;
    bool removed = false;
    std::vector<std::thread::id> callers;  // one element per call in progress

    bool onlyCalledFrom(std::thread::id thread) const {
        return std::all_of(callers.begin(), callers.end(),
                           [thread](std::thread::id id) { return id == thread; });
    }
};

void deliver(Entry& entry, const Notification& notification) {
    const auto self = std::this_thread::get_id();
    {
        std::lock_guard lock(entry.mutex);
        if (entry.removed) return;
        entry.callers.push_back(self);
    }
    try {
        entry.handler(notification);
    } catch (const std::exception& e) {
        log::error("notifications",
                   "observer of \"" + notification.name + "\" threw: " + e.what());
    } catch (...) {
        log::error("notifications", "observer of \"" + notification.name + "\" threw");
    }
    NotificationCenter::Handler released;
    {
        std::lock_guard lock(entry.mutex);
        entry.callers.erase(std::find(entry.callers.begin(), entry.callers.end(), self));
        if (entry.removed && entry.callers.empty()) released = std::move(entry.handler);
        entry.idle.notify_all();
    }
    // `released` (and whatever the handler captured) goes here, outside the lock.
}

}  // namespace

struct NotificationCenter::State {
    std::mutex mutex;
    std::vector<std::shared_ptr<Entry>> entries;  // in registration order

    void erase(const Entry* entry) {
        std::lock_guard lock(mutex);
        std::erase_if(entries, [entry](const auto& e) { return e.get() == entry; });
    }
};

class NotificationCenter::Token {
public:
    Token(std::weak_ptr<Entry> entry, std::weak_ptr<NotificationCenter::State> center)
        : entry_(std::move(entry)), center_(std::move(center)) {}

    std::weak_ptr<Entry> entry_;
    std::weak_ptr<NotificationCenter::State> center_;
};

NotificationCenter& NotificationCenter::defaultCenter() {
    // Never destroyed: observers may post and remove until the very end of the process.
    static NotificationCenter* const center = new NotificationCenter();
    return *center;
}

NotificationCenter::NotificationCenter() : state_(std::make_shared<State>()) {}

NotificationCenter::~NotificationCenter() = default;

NotificationCenter::ObserverToken NotificationCenter::addObserver(
    std::string name, std::shared_ptr<DispatchQueue> queue, Handler handler) {
    auto entry = std::make_shared<Entry>(std::move(name), std::move(queue), std::move(handler));
    auto token = std::make_shared<Token>(entry, state_);
    if (!entry->handler) return token;  // nothing to call: a token that removes nothing
    std::lock_guard lock(state_->mutex);
    state_->entries.push_back(std::move(entry));
    return token;
}

void NotificationCenter::removeObserver(const ObserverToken& token) {
    if (!token) return;
    auto entry = token->entry_.lock();
    if (!entry) return;
    if (auto center = token->center_.lock()) center->erase(entry.get());

    Handler released;
    {
        std::unique_lock lock(entry->mutex);
        entry->removed = true;
        // Wait for calls running on other threads; a handler removing itself is the
        // one call left, and its delivery releases the handler when it returns.
        const auto self = std::this_thread::get_id();
        entry->idle.wait(lock, [&] { return entry->onlyCalledFrom(self); });
        if (entry->callers.empty()) released = std::move(entry->handler);
    }
}

void NotificationCenter::post(Notification notification) {
    std::vector<std::shared_ptr<Entry>> targets;
    {
        std::lock_guard lock(state_->mutex);
        for (const auto& entry : state_->entries) {
            if (entry->name.empty() || entry->name == notification.name) targets.push_back(entry);
        }
    }
    if (targets.empty()) return;
    // One shared copy serves every queued delivery.
    auto shared = std::make_shared<const Notification>(std::move(notification));
    for (auto& entry : targets) {
        if (!entry->queue) {
            deliver(*entry, *shared);
        } else {
            entry->queue->async([entry, shared] { deliver(*entry, *shared); });
        }
    }
}

void NotificationCenter::post(std::string name, std::shared_ptr<void> sender, JsonBox userInfo) {
    Notification notification;
    notification.name = std::move(name);
    notification.sender = std::move(sender);
    notification.userInfo = std::move(userInfo);
    post(std::move(notification));
}

}  // namespace vxcloud
