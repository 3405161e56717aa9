// Dropbox's sign-in beyond what every service shares: offline access, the account look-up
// after the exchange, a pasted redirect, the ways a sign-in ends without a redirect, and
// secrets kept out of logs and results.
#include "auth/AuthTestSupport.h"
#include "vxcloud/auth/VXCloudTokenStore.h"
#include "vxcloud/model/VXCloudConstants.h"
#include "vxcloud/model/VXCloudUserDefaults.h"
#include "vxcloud/platform/Log.h"

namespace vxcloud::testing {
namespace {

using Action = SandboxBrowser::Action;
constexpr const char* kTokenRoute = "dropbox/oauth2/token";

class DropboxLink : public AuthTest {};

TEST_F(DropboxLink, AsksForOfflineAccessAndNamesTheAccountByItsId) {
    auto browser = std::make_shared<SandboxBrowser>(Action::approve);
    manager().authorize(browser, VXCloudService::dropbox);
    const PostedResult posted = expectOneResult();
    ASSERT_EQ(posted.dict.value("status", ""), "success") << posted.dict.dump();
    EXPECT_EQ(queryParam(browser->lastUrl(), "token_access_type"), "offline");
    EXPECT_EQ(queryParam(browser->lastUrl(), "scope"), "") << "the app's own scopes";
    const auto account = posted.result->account();
    EXPECT_EQ(account->key(), "VX_Dropbox_" + sandbox_->account("dropbox").userId);
    EXPECT_TRUE(VXCloudTokenStore::load(VXCloudService::dropbox, account->userId).has_value());
}

TEST_F(DropboxLink, PastedRedirectCompletesTheSignInOnce) {
    auto browser = std::make_shared<SandboxBrowser>(Action::wait);
    manager().authorize(browser, VXCloudService::dropbox);
    const std::string url = browser->lastUrl();

    // The browser could not reach this machine; the person copies the address it shows.
    const HttpResponse decision = SandboxBrowser::decide(url, true, {}, false);
    ASSERT_EQ(decision.status, 302);
    const std::string location = decision.headers.get("Location").value_or("");
    ASSERT_FALSE(location.empty());
    EXPECT_TRUE(manager().handleRedirectURL("  " + location + "\n"));
    const PostedResult posted = expectOneResult();
    EXPECT_EQ(posted.dict.value("status", ""), "success") << posted.dict.dump();

    EXPECT_FALSE(manager().handleRedirectURL(location)) << "a redirect is used once";
    EXPECT_TRUE(SandboxBrowser::get(queryParam(url, "redirect_uri")).transportFailed());
    EXPECT_EQ(requests(kTokenRoute), 1);
    EXPECT_FALSE(waitForResults(2, 200ms));
}

TEST_F(DropboxLink, AFailedAccountLookUpKeepsTheEarlierToken) {
    auto linked = linkDropbox();
    ASSERT_TRUE(linked);
    const auto before = VXCloudTokenStore::load(VXCloudService::dropbox, linked->userId);
    ASSERT_TRUE(before.has_value());

    sandbox::FaultSpec down;
    down.status = 500;
    std::string error;
    ASSERT_TRUE(sandbox_->enqueueFault("dropbox/users/get_current_account", down, 10, &error)) << error;
    manager().authorize(std::make_shared<SandboxBrowser>(Action::approve), VXCloudService::dropbox);
    const PostedResult posted = expectOneResult();
    EXPECT_EQ(posted.dict, json({{"status", "error"}}));
    EXPECT_EQ(codeOf(posted), ErrorCode::connection);
    EXPECT_EQ(VXCloudTokenStore::load(VXCloudService::dropbox, linked->userId), before);
    sandbox_->clearFaults();
    EXPECT_TRUE(sessionIsAuthorized(linked));
}

TEST_F(DropboxLink, CancelTimeLimitAndAnUnopenableBrowserEndTheSignIn) {
    {
        SCOPED_TRACE("cancelled by the person");
        auto browser = std::make_shared<SandboxBrowser>(Action::wait);
        manager().authorize(browser, VXCloudService::dropbox);
        EXPECT_TRUE(manager().isAuthorizing(VXCloudService::dropbox));
        EXPECT_TRUE(manager().cancelAuthorization(VXCloudService::dropbox));
        EXPECT_EQ(expectOneResult().dict, json({{"status", "canceled"}}));
        EXPECT_FALSE(manager().cancelAuthorization(VXCloudService::dropbox));
        EXPECT_TRUE(SandboxBrowser::get(queryParam(browser->lastUrl(), "redirect_uri")).transportFailed());
        // The sandbox still offers the page, but its redirect finds nobody listening.
        EXPECT_FALSE(manager().handleRedirectURL(SandboxBrowser::decide(browser->lastUrl(), true, {}, false)
                                                     .headers.get("Location")
                                                     .value_or("")));
    }
    {
        SCOPED_TRACE("started over");
        manager().authorize(std::make_shared<SandboxBrowser>(Action::wait), VXCloudService::dropbox);
        manager().authorize(std::make_shared<SandboxBrowser>(Action::approve), VXCloudService::dropbox);
        ASSERT_TRUE(waitForResults(3));
        const auto all = results();
        EXPECT_EQ(all[1].dict, json({{"status", "canceled"}}));
        EXPECT_EQ(all[2].dict.value("status", ""), "success");
        consumeResults();
    }
    {
        SCOPED_TRACE("time limit");
        manager().setAuthorizationTimeLimit(300ms);
        manager().authorize(std::make_shared<SandboxBrowser>(Action::wait), VXCloudService::dropbox);
        const PostedResult posted = expectOneResult();
        EXPECT_EQ(posted.dict, json({{"status", "error"}}));
        EXPECT_EQ(codeOf(posted), ErrorCode::authentication);
        EXPECT_FALSE(manager().isAuthorizing(VXCloudService::dropbox));
        manager().setAuthorizationTimeLimit(60s);
    }
    {
        SCOPED_TRACE("no browser");
        manager().authorize(std::make_shared<SandboxBrowser>(Action::refuse), VXCloudService::dropbox);
        const PostedResult posted = expectOneResult();
        EXPECT_EQ(posted.dict, json({{"status", "error"}}));
        EXPECT_EQ(codeOf(posted), ErrorCode::connection);
        ASSERT_TRUE(posted.result.has_value());
        EXPECT_EQ(posted.result->message(), VXCloudString::GENERIC_ERROR());
        manager().authorize(nullptr, VXCloudService::dropbox);
        EXPECT_EQ(codeOf(expectOneResult()), ErrorCode::connection);
    }
    EXPECT_EQ(requests(kTokenRoute), 1);
}

TEST_F(DropboxLink, TokensAndCodesNeverReachTheLogsOrTheResults) {
    std::mutex mutex;
    std::string logged;
    const log::Level level = log::level();
    log::setLevel(log::Level::debug);
    log::setSink([&](log::Level, std::string_view category, std::string_view message) {
        std::lock_guard lock(mutex);
        logged.append(category).append(": ").append(message).append("\n");
    });
    auto browser = std::make_shared<SandboxBrowser>(Action::wait);
    manager().authorize(browser, VXCloudService::dropbox);
    const HttpResponse decision = SandboxBrowser::decide(browser->lastUrl(), true, {}, false);
    const std::string location = decision.headers.get("Location").value_or("");
    const std::string code = queryParam(location, "code");
    ASSERT_FALSE(code.empty());
    EXPECT_TRUE(manager().handleRedirectURL(location));
    const PostedResult posted = expectOneResult();
    ASSERT_EQ(posted.dict.value("status", ""), "success");
    // The same code again is refused by Dropbox; that error must not show it either.
    sandbox::FaultSpec refused;
    refused.status = 400;
    refused.body = R"({"error": "invalid_grant", "error_description": "code has already been used"})";
    refused.contentType = "application/json";
    ASSERT_TRUE(sandbox_->enqueueFault(kTokenRoute, refused));
    manager().authorize(std::make_shared<SandboxBrowser>(Action::approve), VXCloudService::dropbox);
    const PostedResult failed = expectOneResult();
    log::setSink(nullptr);
    log::setLevel(level);

    const auto token = VXCloudTokenStore::load(VXCloudService::dropbox, posted.result->account()->userId);
    ASSERT_TRUE(token.has_value());
    std::lock_guard lock(mutex);
    EXPECT_FALSE(logged.empty());
    for (const std::string& secret : {token->accessToken, token->refreshToken, code}) {
        EXPECT_EQ(logged.find(secret), std::string::npos);
        EXPECT_EQ(posted.dict.dump().find(secret), std::string::npos);
        ASSERT_TRUE(failed.result.has_value());
        EXPECT_EQ(failed.result->message().find(secret), std::string::npos);
    }
}

}  // namespace
}  // namespace vxcloud::testing
