#pragma once
// A bounded queue of operations: first in, first started, at most N running at once.
// An asynchronous operation keeps its slot after start() returns, until it reports
// itself finished.
#include <cstddef>
#include <functional>
#include <memory>
#include <string>

namespace vxcloud {

class OperationQueue;

class Operation : public std::enable_shared_from_this<Operation> {
public:
    Operation();
    virtual ~Operation();
    Operation(const Operation&) = delete;
    Operation& operator=(const Operation&) = delete;

    // Called by the queue on one of its worker threads.
    virtual void start() = 0;
    // A synchronous operation is finished when start() returns; an asynchronous one
    // when it sets itself finished.
    virtual bool isAsynchronous() const { return false; }
    virtual bool isExecuting() const;
    virtual bool isFinished() const;

    // Observers learn of changes to "isExecuting" and "isFinished": once before the
    // value changes (willChange = true) and once after (willChange = false).
    using Observer = std::function<void(const std::string& key, bool willChange)>;
    void addObserver(Observer observer);

protected:
    // Change the flags with announcements, as the queue relies on them.
    void setExecuting(bool executing);
    void setFinished(bool finished);
    void willChangeValueForKey(const std::string& key);
    void didChangeValueForKey(const std::string& key);

    struct State;
    std::shared_ptr<State> state_;

private:
    // The queue (its State) sets the flags of synchronous operations around start().
    friend class OperationQueue;
};

// An operation that runs a function (synchronous).
class BlockOperation : public Operation {
public:
    explicit BlockOperation(std::function<void()> block);
    void start() override;

private:
    std::function<void()> block_;
};

class OperationQueue {
public:
    OperationQueue(std::string name, std::size_t maxConcurrentOperationCount);
    ~OperationQueue();
    OperationQueue(const OperationQueue&) = delete;
    OperationQueue& operator=(const OperationQueue&) = delete;

    const std::string& name() const;
    std::size_t maxConcurrentOperationCount() const;
    void setMaxConcurrentOperationCount(std::size_t count);

    // The queue holds the operation until it has finished.
    void addOperation(std::shared_ptr<Operation> operation);
    void addOperation(std::function<void()> block);
    // Operations queued or running.
    std::size_t operationCount() const;
    std::size_t executingCount() const;
    // Waits until every operation added so far has finished.
    void waitUntilAllOperationsAreFinished();

    struct State;

private:
    std::shared_ptr<State> state_;
};

}  // namespace vxcloud
