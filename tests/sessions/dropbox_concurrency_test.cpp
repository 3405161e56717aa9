// Several sessions of one account at once: one token refresh serves them all, and parallel
// uploads each get their own outcome.
#include <gtest/gtest.h>

#include <thread>

#include "../../src/providers/oauth/TokenProvider.h"
#include "sessions/DropboxFixture.h"
#include "vxcloud/auth/VXCloudTokenStore.h"

namespace vxcloud::testing {
namespace {

class DropboxTokenConcurrency : public SandboxTest<DropboxFixture> {};

TEST_F(DropboxTokenConcurrency, RejectedTokenIsRefreshedOnceForAllCallers) {
    ASSERT_EQ(fx_.sandbox().expireAccessTokens("dropbox", fx_.sandboxAccount().userId), 1);
    constexpr int kSessions = 4;
    std::vector<std::shared_ptr<VXCloudDropboxSession>> sessions;
    std::vector<std::unique_ptr<CompletionProbe<bool>>> probes;
    for (int i = 0; i < kSessions; ++i) {
        sessions.push_back(fx_.makeDropboxSession());
        probes.push_back(std::make_unique<CompletionProbe<bool>>());
    }
    for (int i = 0; i < kSessions; ++i) sessions[i]->isAuthorizedWithCompletion(probes[i]->handler());
    for (auto& probe : probes) {
        ASSERT_TRUE(probe->wait());
        EXPECT_TRUE(std::get<0>(probe->first()));
    }
    EXPECT_EQ(fx_.requests("oauth2/token"), 1);
}

TEST_F(DropboxTokenConcurrency, ExpiredStoredTokenIsRefreshedOnceAcrossThreads) {
    auto token = VXCloudTokenStore::load(VXCloudService::dropbox, fx_.sandboxAccount().userId);
    ASSERT_TRUE(token);
    token->expiresAt = 1;
    ASSERT_TRUE(VXCloudTokenStore::save(VXCloudService::dropbox, fx_.sandboxAccount().userId, *token));

    std::vector<std::string> tokens(4);
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < tokens.size(); ++i) {
        threads.emplace_back([&, i] {
            oauth::TokenProvider provider(VXCloudService::dropbox, fx_.sandboxAccount().userId);
            tokens[i] = provider.accessToken().accessToken.value_or("");
        });
    }
    for (auto& t : threads) t.join();
    EXPECT_EQ(fx_.requests("oauth2/token"), 1);
    for (const auto& t : tokens) {
        EXPECT_FALSE(t.empty());
        EXPECT_EQ(t, tokens.front());
        EXPECT_NE(t, token->accessToken);
    }
}

TEST_F(DropboxTokenConcurrency, ParallelUploadsEachReportOnce) {
    constexpr int kUploads = 4;
    std::vector<std::shared_ptr<VXCloudDropboxSession>> sessions;
    std::vector<std::shared_ptr<RecordingDelegate>> delegates;
    auto folder = fx_.makeFolder("Parallel");
    for (int i = 0; i < kUploads; ++i) {
        sessions.push_back(fx_.makeDropboxSession());
        delegates.push_back(std::make_shared<RecordingDelegate>());
        sessions[i]->setCloudSessionDelegate(delegates[i]);
        sessions[i]->setCloudSessionProgressDelegate(delegates[i]);
    }
    for (int i = 0; i < kUploads; ++i) {
        sessions[i]->uploadWithCloudFile(makeDocument("doc" + std::to_string(i) + ".pdf", documentBytes(20000, i)),
                                         folder, false);
    }
    // The engine lets go of its sessions once started; they keep themselves alive.
    sessions.clear();
    for (int i = 0; i < kUploads; ++i) {
        auto event = delegates[i]->expectOneOutcome();
        EXPECT_EQ(event.kind, SessionEvent::Kind::didUpload) << describe(event);
        EXPECT_EQ(delegates[i]->progressSum(), 20000);
        EXPECT_TRUE(sameBytes(fx_.remoteContent(*folder, "doc" + std::to_string(i) + ".pdf"), documentBytes(20000, i)));
    }
}

}  // namespace
}  // namespace vxcloud::testing
