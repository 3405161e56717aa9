#pragma once
// Dispatch queues in the style the component was designed around: serial queues,
// concurrent queues with barrier blocks, groups, global queues on one shared thread
// pool, and a main queue driven by the host (or by a thread of the library's own).
#include <chrono>
#include <functional>
#include <memory>
#include <string>

namespace vxcloud {

using Block = std::function<void()>;

// Priority of a global queue. All global queues share one thread pool; the pool grows
// when every worker is blocked (sessions wait on the network on pool threads) and
// shrinks again when workers stay idle.
enum class QoS { userInteractive, userInitiated, defaultQoS, utility, background };

class DispatchQueue : public std::enable_shared_from_this<DispatchQueue> {
public:
    virtual ~DispatchQueue();
    DispatchQueue(const DispatchQueue&) = delete;
    DispatchQueue& operator=(const DispatchQueue&) = delete;

    const std::string& label() const noexcept { return label_; }
    // Schedules the block and returns at once.
    virtual void async(Block block) = 0;
    // Runs the block on the queue and waits for it. Calling it from a block already
    // running on the same serial queue deadlocks, exactly as with any serial queue.
    virtual void sync(Block block) = 0;
    // Runs the block on the queue after a delay.
    void asyncAfter(std::chrono::nanoseconds delay, Block block);

    // The queue whose block the calling thread is running, or null.
    static DispatchQueue* current() noexcept;

    static std::shared_ptr<DispatchQueue> global(QoS qos = QoS::defaultQoS);
    static std::shared_ptr<class MainQueue> main();

protected:
    explicit DispatchQueue(std::string label);

private:
    std::string label_;
};

// Runs one block at a time, first in, first out, on the shared pool.
class SerialQueue : public DispatchQueue {
public:
    static std::shared_ptr<SerialQueue> create(std::string label);
    void async(Block block) override;
    void sync(Block block) override;
    ~SerialQueue() override;

    struct State;

private:
    explicit SerialQueue(std::string label);
    std::shared_ptr<State> state_;
};

// Runs blocks side by side on the shared pool; a barrier block waits for the blocks
// before it, runs alone, and holds back the blocks after it.
class ConcurrentQueue : public DispatchQueue {
public:
    static std::shared_ptr<ConcurrentQueue> create(std::string label);
    void async(Block block) override;
    void sync(Block block) override;
    void asyncBarrier(Block block);
    void syncBarrier(Block block);
    ~ConcurrentQueue() override;

    struct State;

private:
    explicit ConcurrentQueue(std::string label);
    std::shared_ptr<State> state_;
};

// The host's main queue. Blocks run only on the thread that drives it: the host calls
// run/runUntil/drain from its main thread, or asks the library to start a thread of
// its own for it.
class MainQueue : public DispatchQueue {
public:
    void async(Block block) override;
    void sync(Block block) override;  // runs inline when called on the driving thread

    // Runs blocks until stop() is called.
    void run();
    // Runs blocks until the predicate holds (checked after every block) or the
    // deadline passes; returns whether the predicate held.
    bool runUntil(const std::function<bool()>& predicate,
                  std::chrono::steady_clock::time_point deadline);
    bool runUntil(const std::function<bool()>& predicate, std::chrono::milliseconds timeout);
    // Runs the blocks queued now (and those they queue) until the queue is empty.
    // Returns how many ran.
    std::size_t drain();
    void stop();
    // Lets a library thread drive the queue; idempotent. stopOwnThread joins it.
    void startOwnThread();
    void stopOwnThread();
    bool isDrivenByOwnThread() const;
    // Whether the calling thread is the one currently driving the main queue.
    bool isCurrentThread() const;

    ~MainQueue() override;
    struct State;

private:
    friend class DispatchQueue;
    MainQueue();
    std::shared_ptr<State> state_;
};

// Counts outstanding work: enter before, leave after; notify blocks run (once each)
// when the count drops to zero.
class DispatchGroup {
public:
    DispatchGroup();
    ~DispatchGroup();
    DispatchGroup(const DispatchGroup&) = delete;
    DispatchGroup& operator=(const DispatchGroup&) = delete;

    void enter();
    // Leaving more often than entering is a programming error and aborts.
    void leave();
    // Runs the block on the queue when the group is (or becomes) empty.
    void notify(std::shared_ptr<DispatchQueue> queue, Block block);
    // Waits until the group is empty; false on timeout.
    bool wait(std::chrono::nanoseconds timeout = std::chrono::nanoseconds::max());
    // Schedules the block on the queue as part of the group.
    void async(const std::shared_ptr<DispatchQueue>& queue, Block block);
    long count() const;

    struct State;

private:
    std::shared_ptr<State> state_;
};

}  // namespace vxcloud
