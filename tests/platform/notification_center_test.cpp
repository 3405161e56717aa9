#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "support/Waiting.h"
#include "vxcloud/platform/Dispatch.h"
#include "vxcloud/platform/NotificationCenter.h"

using namespace std::chrono_literals;
using vxcloud::DispatchQueue;
using vxcloud::Json;
using vxcloud::Notification;
using vxcloud::NotificationCenter;
using vxcloud::SerialQueue;
using vxcloud::testing::kPatience;
using vxcloud::testing::waitUntil;

TEST(NotificationCenterTest, SynchronousDeliveryByNameAndRemoval) {
    EXPECT_EQ(&NotificationCenter::defaultCenter(), &NotificationCenter::defaultCenter());
    NotificationCenter center;
    const auto self = std::this_thread::get_id();

    int aCalls = 0;
    int allCalls = 0;
    Notification lastA;
    auto tokenA = center.addObserver("A", nullptr, [&](const Notification& n) {
        EXPECT_EQ(std::this_thread::get_id(), self);
        lastA = n;
        ++aCalls;
    });
    auto tokenAll = center.addObserver("", nullptr, [&](const Notification&) { ++allCalls; });
    // A throwing observer neither escapes post nor keeps the others from their call.
    auto tokenThrows = center.addObserver("A", nullptr, [](const Notification&) {
        throw std::runtime_error("observer failure");
    });

    auto sender = std::make_shared<int>(7);
    center.post("A", sender, Json{{"status", "pending"}});
    center.post("B", nullptr);
    EXPECT_EQ(aCalls, 1);
    EXPECT_EQ(allCalls, 2);
    EXPECT_EQ(lastA.name, "A");
    EXPECT_EQ(lastA.sender, sender);
    ASSERT_TRUE(lastA.userInfo.has_value());
    EXPECT_EQ((*lastA.userInfo)["status"], "pending");

    Notification typed;
    typed.name = "A";
    typed.objects["result"] = 42;
    center.post(typed);
    EXPECT_EQ(aCalls, 2);
    EXPECT_EQ(std::any_cast<int>(lastA.objects.at("result")), 42);
    EXPECT_FALSE(lastA.userInfo.has_value());

    center.removeObserver(tokenA);
    center.removeObserver(tokenA);  // harmless
    center.removeObserver(nullptr);
    center.post("A", nullptr);
    EXPECT_EQ(aCalls, 2);
    EXPECT_EQ(allCalls, 4);

    // A handler removing itself from inside its own call neither deadlocks nor runs again.
    int selfRemoving = 0;
    NotificationCenter::ObserverToken token;
    token = center.addObserver("C", nullptr, [&](const Notification&) {
        ++selfRemoving;
        center.removeObserver(token);
    });
    center.post("C", nullptr);
    center.post("C", nullptr);
    EXPECT_EQ(selfRemoving, 1);
    center.removeObserver(tokenAll);
    center.removeObserver(tokenThrows);
}

TEST(NotificationCenterConcurrency, DeliversOnTheRequestedQueue) {
    NotificationCenter center;
    auto queue = SerialQueue::create("observer-queue");
    std::atomic<int> calls{0};
    std::atomic<int> wrongQueue{0};
    auto token = center.addObserver("Upload", queue, [&](const Notification&) {
        if (DispatchQueue::current() != queue.get()) ++wrongQueue;
        ++calls;
    });
    std::vector<std::thread> posters;
    for (int t = 0; t < 4; ++t) {
        posters.emplace_back([&] {
            for (int i = 0; i < 50; ++i) center.post("Upload", nullptr);
        });
    }
    for (auto& t : posters) t.join();
    EXPECT_TRUE(waitUntil([&] { return calls.load() == 200; }));
    EXPECT_EQ(wrongQueue.load(), 0);
    center.removeObserver(token);

    // On the main queue the handler runs on the thread that drives it.
    auto main = DispatchQueue::main();
    std::atomic<bool> onMain{false};
    std::atomic<bool> called{false};
    auto mainToken = center.addObserver("Auth", main, [&](const Notification&) {
        onMain = main->isCurrentThread();
        called = true;
    });
    std::thread([&] { center.post("Auth", nullptr); }).join();
    EXPECT_TRUE(main->runUntil([&] { return called.load(); }, kPatience));
    EXPECT_TRUE(onMain.load());
    center.removeObserver(mainToken);
}

TEST(NotificationCenterConcurrency, RemovalWaitsForTheRunningHandler) {
    NotificationCenter center;
    auto queue = SerialQueue::create("slow-observer");
    std::atomic<bool> entered{false};
    std::atomic<bool> handlerReturned{false};
    std::atomic<int> calls{0};
    std::promise<void> release;
    auto released = release.get_future().share();
    auto token = center.addObserver("Slow", queue, [&, released](const Notification&) {
        ++calls;
        entered = true;
        released.wait_for(kPatience);
        handlerReturned = true;
    });

    center.post("Slow", nullptr);
    ASSERT_TRUE(waitUntil([&] { return entered.load(); }));
    std::atomic<bool> removeReturned{false};
    std::atomic<bool> handlerDoneBeforeReturn{false};
    std::thread remover([&] {
        center.removeObserver(token);
        handlerDoneBeforeReturn = handlerReturned.load();
        removeReturned = true;
    });
    std::this_thread::sleep_for(50ms);
    EXPECT_FALSE(removeReturned.load());  // still waiting for the handler
    release.set_value();
    remover.join();
    EXPECT_TRUE(handlerDoneBeforeReturn.load());

    center.post("Slow", nullptr);
    queue->sync([] {});
    EXPECT_EQ(calls.load(), 1);
}

TEST(NotificationCenterConcurrency, NoCallAfterRemovalReturnsUnderLoad) {
    NotificationCenter center;
    auto queue = vxcloud::ConcurrentQueue::create("observers");
    std::atomic<bool> removalReturned{false};
    std::atomic<int> calls{0};
    std::atomic<int> lateCalls{0};
    const auto handler = [&](const Notification&) {
        if (removalReturned.load()) ++lateCalls;
        ++calls;
        std::this_thread::yield();
        if (removalReturned.load()) ++lateCalls;
    };
    auto onPoster = center.addObserver("Load", nullptr, handler);
    auto onQueue = center.addObserver("Load", queue, handler);

    std::atomic<bool> stop{false};
    std::vector<std::thread> posters;
    for (int t = 0; t < 3; ++t) {
        posters.emplace_back([&] {
            for (int i = 0; i < 2000 && !stop.load(); ++i) center.post("Load", nullptr);
        });
    }
    EXPECT_TRUE(waitUntil([&] { return calls.load() >= 50; }));
    center.removeObserver(onPoster);
    center.removeObserver(onQueue);
    removalReturned = true;
    std::this_thread::sleep_for(20ms);  // let posts made after the removal go through
    stop = true;
    for (auto& t : posters) t.join();
    queue->syncBarrier([] {});
    EXPECT_EQ(lateCalls.load(), 0);
}
