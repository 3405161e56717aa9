// Operations and the bounded operation queue. The queue starts operations first in,
// first out, at most N at a time, on the shared pool, and learns that an operation has
// ended from its "isFinished" announcements.
#include "vxcloud/platform/OperationQueue.h"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <deque>
#include <exception>
#include <mutex>
#include <utility>
#include <vector>

#include "platform/ThreadPool.h"
#include "vxcloud/platform/Log.h"

namespace vxcloud {

namespace {
const std::string kIsExecuting = "isExecuting";
const std::string kIsFinished = "isFinished";
}  // namespace

// ---------------------------------------------------------------- Operation

struct Operation::State {
    // Flags are written on whatever thread the operation ends on and read by the queue.
    std::atomic<bool> executing{false};
    std::atomic<bool> finished{false};
    std::atomic<bool> enqueued{false};
    std::mutex observersMutex;
    std::vector<Observer> observers;

    void announce(const std::string& key, bool willChange) {
        std::vector<Observer> current;
        {
            std::lock_guard lock(observersMutex);
            current = observers;
        }
        for (const auto& observer : current) observer(key, willChange);
    }
};

Operation::Operation() : state_(std::make_shared<State>()) {}

Operation::~Operation() = default;

bool Operation::isExecuting() const { return state_->executing.load(); }

bool Operation::isFinished() const { return state_->finished.load(); }

void Operation::addObserver(Observer observer) {
    if (!observer) return;
    std::lock_guard lock(state_->observersMutex);
    state_->observers.push_back(std::move(observer));
}

void Operation::setExecuting(bool executing) {
    willChangeValueForKey(kIsExecuting);
    state_->executing.store(executing);
    didChangeValueForKey(kIsExecuting);
}

void Operation::setFinished(bool finished) {
    willChangeValueForKey(kIsFinished);
    state_->finished.store(finished);
    didChangeValueForKey(kIsFinished);
}

void Operation::willChangeValueForKey(const std::string& key) {
    auto keepAlive = weak_from_this().lock();
    auto state = state_;
    state->announce(key, true);
}

void Operation::didChangeValueForKey(const std::string& key) {
    // An observer (the queue) may drop the last other reference to this operation;
    // it must outlive the announcement.
    auto keepAlive = weak_from_this().lock();
    auto state = state_;
    state->announce(key, false);
}

BlockOperation::BlockOperation(std::function<void()> block) : block_(std::move(block)) {}

void BlockOperation::start() {
    if (block_) block_();
}

// ----------------------------------------------------------- OperationQueue

struct OperationQueue::State {
    explicit State(std::string queueName, std::size_t limit)
        : name(std::move(queueName)), maxCount(limit) {}

    const std::string name;
    mutable std::mutex mutex;
    std::condition_variable allFinished;
    std::size_t maxCount;
    std::deque<std::shared_ptr<Operation>> pending;
    std::vector<std::shared_ptr<Operation>> executing;
    // While operations are outstanding the state keeps itself alive, so that work
    // added to a queue goes on even if the queue object is destroyed first.
    std::shared_ptr<State> keepAlive;

    bool idleLocked() const { return pending.empty() && executing.empty(); }

    // Moves the operations that may start now into `executing` and returns them.
    std::vector<std::shared_ptr<Operation>> takeStartableLocked() {
        std::vector<std::shared_ptr<Operation>> ready;
        while (!pending.empty() && executing.size() < maxCount) {
            executing.push_back(pending.front());
            ready.push_back(std::move(pending.front()));
            pending.pop_front();
        }
        return ready;
    }

    static void finished(const std::shared_ptr<State>& state, const Operation* operation);
    static void start(const std::shared_ptr<State>& state,
                      std::vector<std::shared_ptr<Operation>> operations);
    static void run(const std::shared_ptr<State>& state, const std::shared_ptr<Operation>& op);
};

// Forgets an operation that has finished (whether it was running or still waiting)
// and starts the next ones. Repeated calls for the same operation do nothing.
void OperationQueue::State::finished(const std::shared_ptr<State>& state,
                                     const Operation* operation) {
    std::shared_ptr<Operation> released;
    std::shared_ptr<State> keepAlive;
    std::vector<std::shared_ptr<Operation>> ready;
    {
        std::lock_guard lock(state->mutex);
        const auto matches = [operation](const auto& op) { return op.get() == operation; };
        if (auto it = std::find_if(state->executing.begin(), state->executing.end(), matches);
            it != state->executing.end()) {
            released = std::move(*it);
            state->executing.erase(it);
        } else if (auto it = std::find_if(state->pending.begin(), state->pending.end(), matches);
                   it != state->pending.end()) {
            released = std::move(*it);
            state->pending.erase(it);
        } else {
            return;
        }
        ready = state->takeStartableLocked();
        if (state->idleLocked()) {
            keepAlive = std::move(state->keepAlive);
            state->allFinished.notify_all();
        }
    }
    start(state, std::move(ready));
    // `released` and `keepAlive` go here, outside the lock.
}

void OperationQueue::State::start(const std::shared_ptr<State>& state,
                                  std::vector<std::shared_ptr<Operation>> operations) {
    for (auto& op : operations) {
        detail::ThreadPool::shared().submit([state, op = std::move(op)] { run(state, op); });
    }
}

void OperationQueue::State::run(const std::shared_ptr<State>& state,
                                const std::shared_ptr<Operation>& op) {
    const bool asynchronous = op->isAsynchronous();
    bool failed = false;
    try {
        if (asynchronous) {
            op->start();
        } else {
            if (!op->isExecuting()) op->setExecuting(true);
            op->start();
            op->setExecuting(false);
            op->setFinished(true);
        }
    } catch (const std::exception& e) {
        failed = true;
        log::error("operations", "operation on queue \"" + state->name + "\" threw: " + e.what());
    } catch (...) {
        failed = true;
        log::error("operations", "operation on queue \"" + state->name + "\" threw");
    }
    // A synchronous operation is done now; an asynchronous one normally announces its
    // end later, but may already have finished inside start(). An operation that threw
    // will never report, so it gives its slot back too.
    if (!asynchronous || failed || op->isFinished()) finished(state, op.get());
}

OperationQueue::OperationQueue(std::string name, std::size_t maxConcurrentOperationCount)
    : state_(std::make_shared<State>(std::move(name), maxConcurrentOperationCount)) {}

OperationQueue::~OperationQueue() = default;

const std::string& OperationQueue::name() const { return state_->name; }

std::size_t OperationQueue::maxConcurrentOperationCount() const {
    std::lock_guard lock(state_->mutex);
    return state_->maxCount;
}

void OperationQueue::setMaxConcurrentOperationCount(std::size_t count) {
    std::vector<std::shared_ptr<Operation>> ready;
    {
        std::lock_guard lock(state_->mutex);
        state_->maxCount = count;
        ready = state_->takeStartableLocked();
    }
    State::start(state_, std::move(ready));
}

void OperationQueue::addOperation(std::shared_ptr<Operation> operation) {
    if (!operation) return;
    if (operation->state_->enqueued.exchange(true)) {
        log::error("operations", "an operation was added to a queue twice; ignored");
        return;
    }
    // The observer holds neither the queue nor the operation: the queue holds the
    // operation, and the operation is the one calling the observer.
    const Operation* raw = operation.get();
    operation->addObserver([weakState = std::weak_ptr<State>(state_), raw](
                               const std::string& key, bool willChange) {
        if (willChange || key != kIsFinished) return;
        auto state = weakState.lock();
        if (state && raw->isFinished()) State::finished(state, raw);
    });
    std::vector<std::shared_ptr<Operation>> ready;
    {
        std::lock_guard lock(state_->mutex);
        state_->pending.push_back(std::move(operation));
        if (!state_->keepAlive) state_->keepAlive = state_;
        ready = state_->takeStartableLocked();
    }
    State::start(state_, std::move(ready));
}

void OperationQueue::addOperation(std::function<void()> block) {
    addOperation(std::make_shared<BlockOperation>(std::move(block)));
}

std::size_t OperationQueue::operationCount() const {
    std::lock_guard lock(state_->mutex);
    return state_->pending.size() + state_->executing.size();
}

std::size_t OperationQueue::executingCount() const {
    std::lock_guard lock(state_->mutex);
    return state_->executing.size();
}

void OperationQueue::waitUntilAllOperationsAreFinished() {
    std::unique_lock lock(state_->mutex);
    state_->allFinished.wait(lock, [this] { return state_->idleLocked(); });
}

}  // namespace vxcloud
