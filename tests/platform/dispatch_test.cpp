#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <vector>

#include "support/Waiting.h"
#include "vxcloud/platform/Dispatch.h"

using namespace std::chrono_literals;
using vxcloud::ConcurrentQueue;
using vxcloud::DispatchGroup;
using vxcloud::DispatchQueue;
using vxcloud::MainQueue;
using vxcloud::SerialQueue;
using vxcloud::testing::kPatience;
using vxcloud::testing::waitUntil;

namespace {

void updateMax(std::atomic<int>& max, int value) {
    int seen = max.load();
    while (value > seen && !max.compare_exchange_weak(seen, value)) {
    }
}

}  // namespace

TEST(DispatchQueueTest, LabelsAndCurrentQueue) {
    auto serial = SerialQueue::create("com.example.serial");
    EXPECT_EQ(serial->label(), "com.example.serial");
    EXPECT_EQ(DispatchQueue::main()->label(), "main");
    EXPECT_EQ(DispatchQueue::current(), nullptr);

    DispatchQueue* seenOnSerial = nullptr;
    serial->sync([&] { seenOnSerial = DispatchQueue::current(); });
    EXPECT_EQ(seenOnSerial, serial.get());
    EXPECT_EQ(DispatchQueue::current(), nullptr);

    auto global = DispatchQueue::global(vxcloud::QoS::background);
    EXPECT_EQ(global, DispatchQueue::global(vxcloud::QoS::background));
    std::promise<DispatchQueue*> onGlobal;
    global->async([&] { onGlobal.set_value(DispatchQueue::current()); });
    EXPECT_EQ(onGlobal.get_future().get(), global.get());

    // A queue stays alive while blocks are queued on it.
    std::weak_ptr<SerialQueue> weak = serial;
    std::promise<void> gate;
    auto gateFuture = gate.get_future().share();
    std::atomic<bool> ran{false};
    serial->async([gateFuture] { gateFuture.wait(); });
    serial->async([&ran] { ran = true; });
    serial.reset();
    EXPECT_FALSE(weak.expired());
    gate.set_value();
    EXPECT_TRUE(waitUntil([&] { return ran.load() && weak.expired(); }));
}

TEST(DispatchQueueTest, ThrowingBlockDoesNotStopTheQueue) {
    auto serial = SerialQueue::create("throws");
    std::atomic<bool> after{false};
    serial->async([] { throw std::runtime_error("boom"); });
    serial->async([&] { after = true; });
    serial->sync([] {});
    EXPECT_TRUE(after);
}

TEST(DispatchGroupDeathTest, ExtraLeaveAborts) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
        {
            DispatchGroup group;
            group.enter();
            group.leave();
            group.leave();
        },
        "leave called more often than enter");
}

TEST(DispatchConcurrency, SerialQueueKeepsFifoUnderSeveralProducers) {
    auto queue = SerialQueue::create("fifo");
    constexpr int kProducers = 4;
    constexpr int kPerProducer = 400;
    std::vector<int> lastSeen(kProducers, -1);  // only touched by blocks of the queue
    std::atomic<int> inFlight{0};
    std::atomic<int> maxInFlight{0};
    std::atomic<int> outOfOrder{0};
    std::atomic<int> ran{0};

    std::vector<std::thread> producers;
    for (int p = 0; p < kProducers; ++p) {
        producers.emplace_back([&, p] {
            for (int i = 0; i < kPerProducer; ++i) {
                queue->async([&, p, i] {
                    updateMax(maxInFlight, ++inFlight);
                    const int before = lastSeen[p];
                    std::this_thread::yield();  // widen the window a second drain would hit
                    if (before != i - 1) ++outOfOrder;
                    lastSeen[p] = i;
                    --inFlight;
                    ++ran;
                });
                if (i % 100 == 99) {
                    // sync waits for everything this producer queued before it
                    int seen = -2;
                    queue->sync([&] { seen = lastSeen[p]; });
                    if (seen != i) ++outOfOrder;
                }
            }
        });
    }
    for (auto& t : producers) t.join();
    queue->sync([] {});
    EXPECT_EQ(ran.load(), kProducers * kPerProducer);
    EXPECT_EQ(outOfOrder.load(), 0);
    EXPECT_EQ(maxInFlight.load(), 1);
}

TEST(DispatchConcurrency, BarrierRunsAloneAndInOrder) {
    auto queue = ConcurrentQueue::create("barriers");
    constexpr int kRounds = 20;
    constexpr int kReadersPerRound = 8;
    std::atomic<int> readersRunning{0};
    std::atomic<bool> barrierRunning{false};
    std::atomic<int> barriersDone{0};
    std::atomic<int> readersDone{0};
    std::atomic<int> violations{0};

    for (int round = 0; round < kRounds; ++round) {
        for (int r = 0; r < kReadersPerRound; ++r) {
            queue->async([&, round] {
                ++readersRunning;
                if (barrierRunning) ++violations;
                // Readers queued after barrier k start only once it has run.
                if (barriersDone.load() != round) ++violations;
                std::this_thread::yield();
                ++readersDone;
                --readersRunning;
            });
        }
        queue->asyncBarrier([&, round] {
            barrierRunning = true;
            if (readersRunning.load() != 0) ++violations;
            // Every reader queued before this barrier has finished.
            if (readersDone.load() != (round + 1) * kReadersPerRound) ++violations;
            if (barriersDone.load() != round) ++violations;  // barriers keep their order
            std::this_thread::yield();
            barrierRunning = false;
            ++barriersDone;
        });
    }
    int lastSeen = -1;
    queue->syncBarrier([&] { lastSeen = barriersDone.load(); });
    EXPECT_EQ(lastSeen, kRounds);
    EXPECT_EQ(readersDone.load(), kRounds * kReadersPerRound);
    EXPECT_EQ(violations.load(), 0);

    // sync on a concurrent queue returns after its block ran there.
    DispatchQueue* where = nullptr;
    queue->sync([&] { where = DispatchQueue::current(); });
    EXPECT_EQ(where, queue.get());
}

TEST(DispatchConcurrency, GroupNotifiesOnceAfterLastLeave) {
    DispatchGroup group;
    auto target = SerialQueue::create("notify-target");
    std::atomic<int> notified{0};
    std::atomic<int> work{0};
    std::atomic<DispatchQueue*> notifyRanOn{nullptr};

    group.enter();  // held until every block is queued, so the count cannot drop early
    for (int i = 0; i < 50; ++i) {
        group.async(DispatchQueue::global(), [&] {
            std::this_thread::yield();
            ++work;
        });
    }
    group.notify(target, [&] {
        notifyRanOn = DispatchQueue::current();
        ++notified;
    });
    EXPECT_FALSE(group.wait(10ms));  // still entered
    EXPECT_EQ(notified.load(), 0);
    group.leave();
    EXPECT_TRUE(group.wait(kPatience));
    EXPECT_EQ(work.load(), 50);
    EXPECT_EQ(group.count(), 0);
    EXPECT_TRUE(waitUntil([&] { return notified.load() == 1; }));
    EXPECT_EQ(notifyRanOn.load(), target.get());

    // A notify registered on an empty group runs at once (on its queue) and only once.
    std::promise<void> immediate;
    group.notify(target, [&] { immediate.set_value(); });
    EXPECT_EQ(immediate.get_future().wait_for(kPatience), std::future_status::ready);
    target->sync([] {});
    EXPECT_EQ(notified.load(), 1);

    // Another round on the same group notifies the new block, not the old one again.
    group.enter();
    std::atomic<int> second{0};
    group.notify(target, [&] { ++second; });
    std::thread leaver([&] { group.leave(); });
    leaver.join();
    EXPECT_TRUE(waitUntil([&] { return second.load() == 1; }));
    target->sync([] {});
    EXPECT_EQ(notified.load(), 1);
}

TEST(DispatchConcurrency, PoolGrowsWhenBlocksWaitOnOtherBlocks) {
    // Each outer block occupies a pool thread until its inner block has run, so the
    // pool must add threads beyond the number of cores.
    constexpr int kOuter = 50;
    DispatchGroup group;
    std::atomic<int> inner{0};
    for (int i = 0; i < kOuter; ++i) {
        group.async(DispatchQueue::global(), [&] {
            auto done = std::make_shared<std::promise<void>>();
            auto future = done->get_future();
            DispatchQueue::global(vxcloud::QoS::utility)->async([&inner, done] {
                ++inner;
                done->set_value();
            });
            future.wait();
        });
    }
    ASSERT_TRUE(group.wait(kPatience));
    EXPECT_EQ(inner.load(), kOuter);

    // All outer blocks waiting on one gate at the same time also works.
    std::promise<void> gate;
    auto shared = gate.get_future().share();
    std::atomic<int> waiting{0};
    DispatchGroup blocked;
    for (int i = 0; i < kOuter; ++i) {
        blocked.async(DispatchQueue::global(), [&waiting, shared] {
            ++waiting;
            shared.wait();
        });
    }
    EXPECT_TRUE(waitUntil([&] { return waiting.load() == kOuter; }));
    gate.set_value();
    EXPECT_TRUE(blocked.wait(kPatience));
}

TEST(DispatchConcurrency, AsyncAfterRunsOnTheQueueAfterTheDelay) {
    auto queue = SerialQueue::create("later");
    const auto queuedAt = std::chrono::steady_clock::now();
    std::promise<std::pair<std::chrono::steady_clock::time_point, DispatchQueue*>> fired;
    queue->asyncAfter(50ms, [&] {
        fired.set_value({std::chrono::steady_clock::now(), DispatchQueue::current()});
    });
    auto future = fired.get_future();
    ASSERT_EQ(future.wait_for(kPatience), std::future_status::ready);
    const auto [when, where] = future.get();
    EXPECT_GE(when - queuedAt, 50ms);
    EXPECT_EQ(where, queue.get());

    // Delays keep their order (the serial queue keeps the order they fire in).
    std::vector<int> order;  // only touched on `queue`
    DispatchGroup group;
    for (int i : {3, 1, 2}) {
        group.enter();
        queue->asyncAfter(i * 20ms, [&, i] {
            order.push_back(i);
            group.leave();
        });
    }
    ASSERT_TRUE(group.wait(kPatience));
    queue->sync([&] { EXPECT_EQ(order, (std::vector<int>{1, 2, 3})); });
}

TEST(DispatchConcurrency, MainQueueRunsOnlyOnTheDrivingThread) {
    auto main = DispatchQueue::main();
    const auto self = std::this_thread::get_id();
    EXPECT_FALSE(main->isCurrentThread());

    std::atomic<int> ran{0};
    std::atomic<int> wrongThread{0};
    std::thread poster([&] {
        for (int i = 0; i < 20; ++i) {
            main->async([&] {
                if (std::this_thread::get_id() != self || !main->isCurrentThread()) ++wrongThread;
                if (DispatchQueue::current() != main.get()) ++wrongThread;
                ++ran;
            });
        }
        // From another thread, sync waits until the driver has run the block.
        bool ranThere = false;
        main->sync([&] { ranThere = std::this_thread::get_id() == self; });
        if (!ranThere) ++wrongThread;
    });
    EXPECT_TRUE(main->runUntil([&] { return ran.load() == 20; }, kPatience));
    // The poster's sync block may still be queued; keep driving until it is done.
    std::atomic<bool> posterDone{false};
    std::thread joiner([&] {
        poster.join();
        posterDone = true;
    });
    EXPECT_TRUE(main->runUntil([&] { return posterDone.load(); }, kPatience));
    joiner.join();
    EXPECT_EQ(wrongThread.load(), 0);

    // Nothing to run and a predicate that never holds: runUntil gives up at the deadline.
    EXPECT_FALSE(main->runUntil([] { return false; }, 20ms));

    // On the driving thread sync runs inline; drain runs what is queued and what that queues.
    main->async([&] {
        bool inline_ = false;
        main->sync([&] { inline_ = true; });
        if (!inline_) ++wrongThread;
        main->async([&] { ++ran; });
    });
    EXPECT_EQ(main->drain(), 2u);
    EXPECT_EQ(ran.load(), 21);

    // stop() ends run().
    main->async([&] { main->stop(); });
    main->run();
    EXPECT_FALSE(main->isCurrentThread());
    EXPECT_EQ(wrongThread.load(), 0);
}

TEST(DispatchConcurrency, MainQueueOnItsOwnThread) {
    auto main = DispatchQueue::main();
    main->startOwnThread();
    main->startOwnThread();  // idempotent
    EXPECT_TRUE(main->isDrivenByOwnThread());
    std::thread::id driver;
    main->sync([&] { driver = std::this_thread::get_id(); });
    EXPECT_NE(driver, std::this_thread::get_id());
    EXPECT_NE(driver, std::thread::id());
    main->stopOwnThread();
    EXPECT_FALSE(main->isDrivenByOwnThread());

    // Queued while nobody drives: runs when the host drives again.
    std::atomic<bool> ran{false};
    main->async([&] { ran = true; });
    EXPECT_TRUE(main->runUntil([&] { return ran.load(); }, kPatience));
}
