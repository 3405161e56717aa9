// Many requests at once, with the sessions' answers arriving on many threads.
#include <gtest/gtest.h>

#include <map>
#include <random>
#include <set>

#include "EngineTestSupport.h"

namespace vxcloud::enginetest {
namespace {

// Answers each call on a thread of its own after a short random delay, so that outcomes
// of one task race one another and the host's next requests. Joins its threads at the end.
class ThreadedAnswerer {
public:
    explicit ThreadedAnswerer(std::function<void(const Call&)> answer) : answer_(std::move(answer)) {}
    ~ThreadedAnswerer() { join(); }

    void operator()(const Call& call) {
        std::lock_guard lock(mutex_);
        const auto delay = std::chrono::microseconds(random_() % 2000);
        threads_.emplace_back([this, call, delay] {
            std::this_thread::sleep_for(delay);
            answer_(call);
        });
    }
    void join() {
        std::vector<std::thread> threads;
        {
            std::lock_guard lock(mutex_);
            threads.swap(threads_);
        }
        for (auto& t : threads) t.join();
    }

private:
    std::function<void(const Call&)> answer_;
    std::mutex mutex_;
    std::minstd_rand random_{42};
    std::vector<std::thread> threads_;
};

using EngineConcurrencyTest = EngineTest;

TEST_F(EngineConcurrencyTest, OutcomesOnManyThreadsAreAllRecordedOnce) {
    constexpr int kDocuments = 12;
    constexpr int kAccounts = 6;
    VXCloudAccountList accounts;
    for (int i = 0; i < kAccounts; ++i)
        accounts.push_back(account("user" + std::to_string(i) + "@example.com"));

    // Track how many uploads are outstanding at once: never more than the queue's four.
    std::atomic<int> running{0}, mostRunning{0};
    ThreadedAnswerer answerer([&](const Call& call) {
        const int email = call.session->cloudAccount()->email[4] - '0';
        --running;
        if (email % 3 == 0) failUpload(call, ErrorCode::connection);
        else answerUpload(call, "v" + std::to_string(email));
    });
    ScopedAnswerer scoped(script, [&](const Call& call) {
        const int now = ++running;
        int seen = mostRunning.load();
        while (now > seen && !mostRunning.compare_exchange_weak(seen, now)) {}
        answerer(call);
    });

    // Requests come from several host threads at once.
    const std::string path = document();
    std::vector<std::thread> hosts;
    std::atomic<int> pendingReturned{0};
    for (int h = 0; h < 3; ++h) {
        hosts.emplace_back([&, h] {
            for (int d = h; d < kDocuments; d += 3) {
                const Json pending = manager()->uploadWithFilename(
                    "doc.pdf", path, {}, true, Json(d), accounts, d % 2 == 0);
                pendingReturned += static_cast<int>(pending.size());
            }
        });
    }
    for (auto& t : hosts) t.join();
    EXPECT_EQ(pendingReturned.load(), kDocuments * kAccounts);

    ASSERT_TRUE(notifications->waitFor(kDocuments));
    answerer.join();
    EXPECT_LE(mostRunning.load(), 4);
    EXPECT_EQ(script->count(), static_cast<std::size_t>(kDocuments * kAccounts));

    std::set<int> identifiers;
    for (std::size_t i = 0; i < kDocuments; ++i) {
        const Json collection = uploadStatusOf(i);
        identifiers.insert(collection["fileIdentifier"].get<int>());
        std::map<std::string, Json> byAccount;
        for (const Json& record : collection["uploadStatusResponse"])
            byAccount[record["accountId"].get<std::string>()] = record;
        ASSERT_EQ(byAccount.size(), static_cast<std::size_t>(kAccounts));
        EXPECT_EQ(byAccount["user0@example.com"]["error"], "connection");
        EXPECT_EQ(byAccount["user1@example.com"]["version"], "v1");
    }
    EXPECT_EQ(identifiers.size(), static_cast<std::size_t>(kDocuments));
    // Every task left the manager's list.
    EXPECT_TRUE(eventually([&] { return manager()->pendingTasks().size() == baselinePending; }));
}

TEST_F(EngineConcurrencyTest, RenamesAndMovesAnsweredConcurrently) {
    constexpr int kRequests = 8;
    const VXCloudAccountList accounts = {account("a@example.com"), account("b@example.com")};
    const Json earlier = Json::parse(R"([
        {"accountId": "a@example.com", "accountType": "dropbox", "documentId": "A.pdf"},
        {"accountId": "b@example.com", "accountType": "dropbox", "documentId": "B.pdf"}])");
    ThreadedAnswerer answerer([](const Call& call) {
        if (call.kind == Call::Kind::rename) answerRename(call, "r");
        else if (call.kind == Call::Kind::move) answerMove(call, call.files, {});
    });
    ScopedAnswerer scoped(script, [&](const Call& call) { answerer(call); });

    const auto folder = std::make_shared<VXCloudFile>("F", true, false);
    std::vector<std::thread> hosts;
    for (int h = 0; h < 2; ++h) {
        hosts.emplace_back([&, h] {
            for (int r = 0; r < kRequests; ++r) {
                if (h == 0) {
                    manager()->renameWithNewFilename("New.pdf", earlier, true, Json(r), accounts, nullptr);
                } else {
                    auto file = std::make_shared<VXCloudFile>("M.pdf", false, false);
                    file->fileIdentifier = Json(r);
                    manager()->moveWithCloudFiles({file}, folder, folder, accounts[0]);
                }
            }
        });
    }
    for (auto& t : hosts) t.join();
    ASSERT_TRUE(notifications->waitFor(2 * kRequests));
    answerer.join();
    int renames = 0, moves = 0;
    for (const auto& n : notifications->all()) {
        if (n.userInfo->contains("moveStatus")) {
            ++moves;
            EXPECT_EQ(n.userInfo->at("moveStatus").size(), 1u);
        } else {
            ++renames;
            EXPECT_EQ(n.userInfo->at("uploadStatus")["uploadStatusResponse"].size(), 2u);
        }
    }
    EXPECT_EQ(renames, kRequests);
    EXPECT_EQ(moves, kRequests);
    EXPECT_TRUE(eventually([&] { return manager()->pendingTasks().size() == baselinePending; }));
}

}  // namespace
}  // namespace vxcloud::enginetest
