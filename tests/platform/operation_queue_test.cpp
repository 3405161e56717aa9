#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "support/Waiting.h"
#include "vxcloud/platform/OperationQueue.h"

using namespace std::chrono_literals;
using vxcloud::BlockOperation;
using vxcloud::Operation;
using vxcloud::OperationQueue;
using vxcloud::testing::waitUntil;

namespace {

// Records which operations have started, in start order.
class StartLog {
public:
    void add(int id) {
        std::lock_guard lock(mutex_);
        ids_.push_back(id);
    }
    std::vector<int> ids() const {
        std::lock_guard lock(mutex_);
        return ids_;
    }

private:
    mutable std::mutex mutex_;
    std::vector<int> ids_;
};

// An asynchronous operation that stays executing until the test finishes it, the way
// an upload waits for its session's outcome.
class ManualOperation : public Operation {
public:
    ManualOperation(int id, StartLog& log, bool finishInsideStart = false)
        : id_(id), log_(log), finishInsideStart_(finishInsideStart) {}

    bool isAsynchronous() const override { return true; }
    void start() override {
        setExecuting(true);
        log_.add(id_);
        if (finishInsideStart_) finish();  // e.g. a session failing before it sent anything
    }
    void finish() {
        setExecuting(false);
        setFinished(true);
    }

private:
    int id_;
    StartLog& log_;
    bool finishInsideStart_;
};

// Finishes an operation from a thread of its own, as session callbacks arrive.
void finishElsewhere(const std::shared_ptr<ManualOperation>& op) {
    std::thread([op] { op->finish(); }).join();
}

}  // namespace

TEST(OperationQueueTest, NameLimitAndAnnouncements) {
    OperationQueue queue("Upload Task Queue", 4);
    EXPECT_EQ(queue.name(), "Upload Task Queue");
    EXPECT_EQ(queue.maxConcurrentOperationCount(), 4u);

    auto op = std::make_shared<BlockOperation>([] {});
    std::mutex mutex;
    std::vector<std::pair<std::string, bool>> seen;
    op->addObserver([&](const std::string& key, bool willChange) {
        std::lock_guard lock(mutex);
        seen.emplace_back(key, willChange);
    });
    EXPECT_FALSE(op->isFinished());
    queue.addOperation(op);
    queue.waitUntilAllOperationsAreFinished();
    EXPECT_TRUE(op->isFinished());
    EXPECT_FALSE(op->isExecuting());
    EXPECT_EQ(queue.operationCount(), 0u);

    std::lock_guard lock(mutex);
    const std::vector<std::pair<std::string, bool>> expected{
        {"isExecuting", true}, {"isExecuting", false},  // started
        {"isExecuting", true}, {"isExecuting", false},  // stopped
        {"isFinished", true},  {"isFinished", false}};
    EXPECT_EQ(seen, expected);
}

TEST(OperationQueueConcurrency, NeverExceedsLimitAndStartsInOrder) {
    OperationQueue queue("bounded", 3);
    std::atomic<int> running{0};
    std::atomic<int> maxRunning{0};
    std::atomic<int> done{0};
    for (int i = 0; i < 60; ++i) {
        queue.addOperation([&] {
            const int now = ++running;
            int seen = maxRunning.load();
            while (now > seen && !maxRunning.compare_exchange_weak(seen, now)) {
            }
            std::this_thread::sleep_for(200us);
            --running;
            ++done;
        });
    }
    queue.addOperation([] { throw std::runtime_error("a failing operation still ends"); });
    queue.waitUntilAllOperationsAreFinished();
    EXPECT_EQ(done.load(), 60);
    EXPECT_LE(maxRunning.load(), 3);
    EXPECT_GE(maxRunning.load(), 1);
    EXPECT_EQ(queue.operationCount(), 0u);

    // With one slot the start order is the order of adding, even from several threads.
    OperationQueue single("single", 1);
    StartLog log;
    std::vector<std::shared_ptr<ManualOperation>> ops;
    for (int i = 0; i < 30; ++i) {
        ops.push_back(std::make_shared<ManualOperation>(i, log, /*finishInsideStart=*/true));
    }
    for (auto& op : ops) single.addOperation(op);
    single.waitUntilAllOperationsAreFinished();
    std::vector<int> expected(30);
    for (int i = 0; i < 30; ++i) expected[i] = i;
    EXPECT_EQ(log.ids(), expected);
}

TEST(OperationQueueConcurrency, AsynchronousOperationsHoldTheirSlotsUntilFinished) {
    OperationQueue queue("Upload Task Queue", 4);
    StartLog log;
    std::vector<std::shared_ptr<ManualOperation>> ops;
    for (int i = 0; i < 6; ++i) {
        // The last one fails at once, inside start().
        ops.push_back(std::make_shared<ManualOperation>(i, log, /*finishInsideStart=*/i == 5));
        queue.addOperation(ops.back());
    }
    ASSERT_TRUE(waitUntil([&] { return log.ids().size() >= 4; }));
    // start() has returned for all four, yet none of them gave its slot back.
    std::this_thread::sleep_for(50ms);
    // The first four start side by side, so their start() calls may interleave.
    auto firstFour = log.ids();
    std::sort(firstFour.begin(), firstFour.end());
    EXPECT_EQ(firstFour, (std::vector<int>{0, 1, 2, 3}));
    EXPECT_EQ(queue.executingCount(), 4u);
    EXPECT_EQ(queue.operationCount(), 6u);
    EXPECT_TRUE(ops[0]->isExecuting());

    finishElsewhere(ops[0]);
    ASSERT_TRUE(waitUntil([&] { return log.ids().size() == 5; }));
    EXPECT_EQ(log.ids().back(), 4);

    // The early failure frees its slot as soon as it has started.
    finishElsewhere(ops[2]);
    ASSERT_TRUE(waitUntil([&] { return log.ids().size() == 6 && queue.operationCount() == 3; }));
    EXPECT_EQ(log.ids().back(), 5);
    EXPECT_EQ(queue.executingCount(), 3u);

    // The queue holds an operation until it has finished, not longer.
    std::weak_ptr<ManualOperation> weakOne = ops[1];
    ops[1].reset();
    EXPECT_FALSE(weakOne.expired());
    std::thread([weakOne] {
        if (auto op = weakOne.lock()) op->finish();
    }).join();
    EXPECT_TRUE(waitUntil([&] { return weakOne.expired(); }));
    EXPECT_EQ(queue.operationCount(), 2u);

    finishElsewhere(ops[3]);
    finishElsewhere(ops[4]);
    queue.waitUntilAllOperationsAreFinished();
    EXPECT_EQ(queue.operationCount(), 0u);
}

TEST(OperationQueueConcurrency, RaisingTheLimitStartsWaitingOperations) {
    OperationQueue queue("raise", 1);
    StartLog log;
    std::vector<std::shared_ptr<ManualOperation>> ops;
    for (int i = 0; i < 3; ++i) {
        ops.push_back(std::make_shared<ManualOperation>(i, log));
        queue.addOperation(ops.back());
    }
    ASSERT_TRUE(waitUntil([&] { return log.ids().size() == 1; }));
    queue.setMaxConcurrentOperationCount(3);
    EXPECT_EQ(queue.maxConcurrentOperationCount(), 3u);
    ASSERT_TRUE(waitUntil([&] { return log.ids().size() == 3; }));

    std::atomic<bool> waited{false};
    std::thread waiter([&] {
        queue.waitUntilAllOperationsAreFinished();
        waited = true;
    });
    for (auto& op : ops) {
        EXPECT_FALSE(waited.load());
        finishElsewhere(op);
    }
    waiter.join();
    EXPECT_TRUE(waited.load());
    EXPECT_EQ(queue.operationCount(), 0u);
}
