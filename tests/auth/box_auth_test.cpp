// Box's sign-in against the sandbox: the app's client id and secret, the account named by
// /users/me, a denial, the token endpoint's refusals, and refreshes of single-use refresh
// tokens: each answer is stored before it is used, and refreshes of one account take turns.
#include <ctime>
#include <future>

#include "../../src/providers/box/BoxClient.h"
#include "auth/AuthTestSupport.h"
#include "vxcloud/auth/VXCloudTokenStore.h"
#include "vxcloud/model/VXCloudUserDefaults.h"
#include "vxcloud/sessions/VXCloudBoxSession.h"

namespace vxcloud::testing {
namespace {

using Action = SandboxBrowser::Action;
constexpr VXCloudService kService = VXCloudService::box;
constexpr const char* kProvider = "box";
constexpr const char* kTokenRoute = "box/oauth2/token";

class BoxLink : public AuthTest {
protected:
    void SetUp() override {
        AuthTest::SetUp();
        if (HasFatalFailure()) return;
        ASSERT_TRUE(fx_.pointAt(kService)) << "the sandbox does not emulate Box";
    }
    std::vector<std::shared_ptr<VXCloudAccount>> stored() const {
        const auto accounts = VXCloudUserDefaults::loadAccounts({kService});
        return accounts ? *accounts : std::vector<std::shared_ptr<VXCloudAccount>>{};
    }
    static void expireStoredToken(const VXCloudAccount& account) {
        auto token = VXCloudTokenStore::load(kService, VXCloudBoxSession::storageName(account));
        ASSERT_TRUE(token.has_value());
        token->expiresAt = static_cast<std::int64_t>(std::time(nullptr)) - 60;
        ASSERT_TRUE(VXCloudTokenStore::save(kService, VXCloudBoxSession::storageName(account), *token));
    }
    // Whether a call of the account's Box client succeeds.
    static bool userReadable(const VXCloudAccount& account) {
        auto client = box::BoxClient::forStorageName(VXCloudBoxSession::storageName(account));
        return client && client->currentUser().ok();
    }
};

TEST_F(BoxLink, ApprovedSignInNamesTheAccountByTheBoxUserAndKeepsItsTokens) {
    auto browser = std::make_shared<SandboxBrowser>(Action::approve);
    manager().authorize(browser, kService);
    const PostedResult posted = expectOneResult();
    ASSERT_EQ(posted.dict.value("status", ""), "success") << posted.dict.dump()
                                                           << (posted.result ? posted.result->message() : "");
    const std::string url = browser->lastUrl();
    EXPECT_EQ(url.rfind(sandbox_->endpoint(kProvider, "authorize") + "?", 0), 0u) << url;
    EXPECT_EQ(queryParam(url, "client_id"), kBoxClientId);
    EXPECT_EQ(queryParam(url, "response_type"), "code");
    EXPECT_FALSE(queryParam(url, "state").empty());
    EXPECT_EQ(queryParam(url, "redirect_uri").rfind("http://127.0.0.1:", 0), 0u) << url;

    const auto account = posted.result->account();
    const auto seeded = sandbox_->account(kProvider);
    EXPECT_EQ(account->userId, seeded.userId);
    EXPECT_EQ(account->email, seeded.email) << "the login names the account";
    EXPECT_EQ(account->key(), "VX_Box_" + seeded.userId);
    const auto token = VXCloudTokenStore::load(kService, VXCloudBoxSession::storageName(*account));
    ASSERT_TRUE(token.has_value());
    EXPECT_FALSE(token->refreshToken.empty());
    ASSERT_EQ(stored().size(), 1u);
    EXPECT_TRUE(sessionIsAuthorized(account));

    // Without the app's secret nothing is opened.
    manager().setup(nullptr, nullptr, nullptr, std::make_shared<VXCloudBoxInfo>(kBoxClientId, ""));
    auto unseen = std::make_shared<SandboxBrowser>(Action::approve);
    manager().authorize(unseen, kService);
    EXPECT_EQ(expectOneResult().dict, json({{"status", "error"}}));
    EXPECT_TRUE(unseen->openedUrls().empty());
}

TEST_F(BoxLink, DenialsAndTokenEndpointRefusalsStoreNothing) {
    manager().authorize(std::make_shared<SandboxBrowser>(Action::deny), kService);
    EXPECT_EQ(expectOneResult().dict, json({{"status", "canceled"}}));
    EXPECT_EQ(requests(kTokenRoute), 0);

    std::string error;
    ASSERT_TRUE(sandbox_->enqueueFault(kTokenRoute, *sandbox::FaultSpec::parse("status=401;error=invalid_client"), 1,
                                       &error))
        << error;
    manager().authorize(std::make_shared<SandboxBrowser>(Action::approve), kService);
    const PostedResult refused = expectOneResult();
    EXPECT_EQ(refused.dict, json({{"status", "error"}}));
    EXPECT_EQ(codeOf(refused), ErrorCode::authentication);
    EXPECT_TRUE(stored().empty());
    EXPECT_TRUE(VXCloudTokenStore::storageNames(kService).empty());
}

TEST_F(BoxLink, SingleUseRefreshTokensAreSpentOnceAndTheNewPairStoredFirst) {
    const auto account = link(kService);
    ASSERT_TRUE(account);
    const std::string storageName = VXCloudBoxSession::storageName(*account);
    const auto first = VXCloudTokenStore::load(kService, storageName);
    ASSERT_TRUE(first.has_value());

    // Eight callers find the token expired at once: one refresh, and all of them go on.
    expireStoredToken(*account);
    const auto before = requests(kTokenRoute);
    std::vector<std::future<bool>> callers;
    for (int i = 0; i < 8; ++i) callers.push_back(std::async(std::launch::async, [&] { return userReadable(*account); }));
    for (auto& caller : callers) EXPECT_TRUE(caller.get());
    EXPECT_EQ(requests(kTokenRoute) - before, 1);
    const auto second = VXCloudTokenStore::load(kService, storageName);
    ASSERT_TRUE(second.has_value());
    EXPECT_NE(second->refreshToken, first->refreshToken);

    // The spent refresh token is dead at Box: a refresh with it would lose the account.
    std::string error;
    auto client = fx_.wireClient();
    const std::string tokenPath = sandbox_->endpoint(kProvider, "token").substr(sandbox_->baseUrl().size());
    auto reused = client->Post(tokenPath, "grant_type=refresh_token&refresh_token=" + first->refreshToken +
                                              "&client_id=" + kBoxClientId + "&client_secret=" + kBoxClientSecret,
                               "application/x-www-form-urlencoded");
    ASSERT_TRUE(reused);
    EXPECT_EQ(reused->status, 400);

    // The start-up check is a refresh; one the endpoint refuses says "not authorised" and
    // leaves the stored pair alone.
    EXPECT_TRUE(sessionIsAuthorized(account));
    const auto third = VXCloudTokenStore::load(kService, storageName);
    ASSERT_TRUE(sandbox_->enqueueFault(kTokenRoute, *sandbox::FaultSpec::parse("status=503"), 3, &error)) << error;
    EXPECT_FALSE(sessionIsAuthorized(account));
    EXPECT_EQ(VXCloudTokenStore::load(kService, storageName), third);
    sandbox_->clearFaults();
    EXPECT_TRUE(sessionIsAuthorized(account));
}

}  // namespace
}  // namespace vxcloud::testing
