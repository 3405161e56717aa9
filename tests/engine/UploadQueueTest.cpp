// The shared upload queue: at most four transfers at once, a slot freed by any outcome.
#include <gtest/gtest.h>

#include "EngineTestSupport.h"

namespace vxcloud::enginetest {
namespace {

using UploadQueueTest = EngineTest;

TEST_F(UploadQueueTest, QueueIsCreatedOnceWithTheLimitOfFour) {
    UploadOperations operations;
    const auto& queue = operations.uploadQueue();
    ASSERT_NE(queue, nullptr);
    EXPECT_EQ(queue, operations.uploadQueue());
    EXPECT_EQ(queue->name(), "Upload Task Queue");
    EXPECT_EQ(queue->maxConcurrentOperationCount(), 4u);
    EXPECT_EQ(UploadOperations::MAX_CONCURRENT_UPLOADS, 4);
    EXPECT_EQ(uploadQueue(), manager()->uploadOperations().uploadQueue());
}

TEST_F(UploadQueueTest, SixUploadsStartFourUntilOneReports) {
    VXCloudAccountList accounts;
    for (int i = 0; i < 6; ++i) accounts.push_back(account("user" + std::to_string(i) + "@example.com"));
    EXPECT_EQ(upload(document(), accounts).size(), 6u);

    ASSERT_TRUE(script->waitForCalls(4));
    EXPECT_TRUE(eventually([] { return uploadQueue()->operationCount() == 6; }));
    // Give a fifth start every chance to happen; it must not.
    std::this_thread::sleep_for(200ms);
    EXPECT_EQ(script->count(), 4u);
    EXPECT_EQ(uploadQueue()->executingCount(), 4u);

    // A failure frees its slot exactly like a success.
    failUpload(script->call(0), ErrorCode::connection);
    ASSERT_TRUE(script->waitForCalls(5));
    std::this_thread::sleep_for(100ms);
    EXPECT_EQ(script->count(), 5u);
    answerUpload(script->call(1));
    ASSERT_TRUE(script->waitForCalls(6));

    for (std::size_t i = 2; i < 6; ++i) answerUpload(script->call(i));
    ASSERT_TRUE(notifications->waitFor(1));
    const Json records = uploadStatusOf(0)["uploadStatusResponse"];
    ASSERT_EQ(records.size(), 6u);
    EXPECT_EQ(records[0]["error"], "connection");
    EXPECT_TRUE(eventually([] { return uploadQueue()->operationCount() == 0; }));
}

TEST_F(UploadQueueTest, OperationForwardsTheOutcomeBeforeFreeingItsSlot) {
    // A receiver that checks, while it is told, that the operation still holds its slot.
    struct Receiver : VXCloudSessionDelegate {
        std::weak_ptr<Operation> operation;
        std::atomic<int> uploads{0}, failures{0}, executingWhenTold{0};
        void note() {
            auto op = operation.lock();
            executingWhenTold += op && op->isExecuting() ? 1 : 0;
        }
        void cloudSessionDidLoadFolders(const std::shared_ptr<VXCloudSession>&, const VXCloudFileList&,
                                        const std::shared_ptr<VXCloudFile>&) override {}
        void cloudSessionLoadFoldersFailedWithError(const std::shared_ptr<VXCloudSession>&,
                                                    const std::shared_ptr<VXCloudError>&) override {}
        void cloudSessionDidUploadFile(const std::shared_ptr<VXCloudSession>&,
                                       const std::shared_ptr<VXCloudFile>&) override {
            note();
            ++uploads;
        }
        void cloudSessionUploadFailedForFile(const std::shared_ptr<VXCloudSession>&,
                                             const std::shared_ptr<VXCloudFile>&,
                                             const std::shared_ptr<VXCloudError>&) override {
            note();
            ++failures;
        }
        void cloudSessionDidRenameFile(const std::shared_ptr<VXCloudSession>&,
                                       const std::shared_ptr<VXCloudFile>&) override {}
        void cloudSessionRenameFailedForFile(const std::shared_ptr<VXCloudSession>&,
                                             const std::shared_ptr<VXCloudFile>&,
                                             const std::shared_ptr<VXCloudError>&) override {}
        void cloudSessionDidMoveFiles(const std::shared_ptr<VXCloudSession>&, const VXCloudFileList&,
                                      const VXCloudFileList&) override {}
    };
    auto receiver = std::make_shared<Receiver>();
    const auto acc = account("op@example.com");
    auto session = std::make_shared<ScriptedSession>(acc, script);
    auto file = std::make_shared<VXCloudFile>("a.pdf", false, false);
    auto folder = std::make_shared<VXCloudFile>("Scans", true, false);
    auto operation = std::make_shared<UploadOperation>(session, receiver, file, folder, true);
    receiver->operation = operation;
    EXPECT_TRUE(operation->isAsynchronous());

    // Shared with the observer: the queue's worker may hold the operation a little longer.
    struct Announcements {
        std::mutex mutex;
        std::vector<std::pair<std::string, bool>> list;
    };
    const auto announced = std::make_shared<Announcements>();
    operation->addObserver([announced](const std::string& key, bool willChange) {
        std::lock_guard lock(announced->mutex);
        announced->list.emplace_back(key, willChange);
    });
    OperationQueue queue("test", 4);
    queue.addOperation(operation);
    ASSERT_TRUE(script->waitForCalls(1));
    EXPECT_TRUE(operation->isExecuting());
    EXPECT_EQ(script->call(0).file, file);
    EXPECT_EQ(script->call(0).folder, folder);
    EXPECT_TRUE(script->call(0).overwrite);

    // Folder, rename and move answers are not an upload's outcome.
    session->cloudSessionDelegate()->cloudSessionDidRenameFile(session, file);
    session->cloudSessionDelegate()->cloudSessionDidMoveFiles(session, {}, {});
    EXPECT_TRUE(operation->isExecuting());

    failUpload(script->call(0), ErrorCode::fileUpload);
    EXPECT_EQ(receiver->failures.load(), 1);
    EXPECT_EQ(receiver->executingWhenTold.load(), 1);
    EXPECT_FALSE(operation->isExecuting());
    EXPECT_TRUE(operation->isFinished());
    EXPECT_EQ(operation->session(), nullptr);  // let go once answered
    queue.waitUntilAllOperationsAreFinished();
    std::lock_guard lock(announced->mutex);
    const std::vector<std::pair<std::string, bool>> expected = {
        {"isExecuting", true}, {"isExecuting", false}, {"isExecuting", true},
        {"isExecuting", false}, {"isFinished", true},  {"isFinished", false}};
    EXPECT_EQ(announced->list, expected);
}

TEST(UploadOperationDeathTest, AnOperationMissingAPartStopsTheProcess) {
    // The engine's worker threads may already run in this process.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    auto script = std::make_shared<Script>();
    const auto session = std::make_shared<ScriptedSession>(account("op@example.com"), script);
    const auto receiver = std::make_shared<CountingDelegate>();
    const auto file = std::make_shared<VXCloudFile>("a.pdf", false, false);
    const auto folder = std::make_shared<VXCloudFile>("Scans", true, false);
    EXPECT_DEATH(UploadOperation(nullptr, receiver, file, folder, true), "needs a session");
    EXPECT_DEATH(UploadOperation(session, nullptr, file, folder, true), "needs a session");
    EXPECT_DEATH(UploadOperation(session, receiver, nullptr, folder, true), "needs a session");
    EXPECT_DEATH(UploadOperation(session, receiver, file, nullptr, false), "needs a session");
    // With all of them it is built idle: nothing is asked of the session until started.
    const UploadOperation complete(session, receiver, file, folder, false);
    EXPECT_FALSE(complete.isExecuting());
    EXPECT_FALSE(complete.isFinished());
    EXPECT_EQ(script->count(), 0u);
}

}  // namespace
}  // namespace vxcloud::enginetest
