// Linking Dropbox accounts end to end: the manager's flow against the sandbox's authorize
// page and token endpoint, through the loopback redirect listener.
#include <future>

#include "auth/AuthTestSupport.h"
#include "vxcloud/auth/VXCloudTokenStore.h"
#include "vxcloud/engine/VXCloudSessionFactory.h"
#include "vxcloud/model/VXCloudConstants.h"
#include "vxcloud/model/VXCloudUserDefaults.h"
#include "vxcloud/platform/Log.h"
#include "vxcloud/sessions/VXCloudSession.h"

namespace vxcloud::testing {
namespace {

using Action = SandboxBrowser::Action;
constexpr const char* kTokenRoute = "dropbox/oauth2/token";

std::vector<std::shared_ptr<VXCloudAccount>> storedDropboxAccounts() {
    return VXCloudUserDefaults::loadAccounts({VXCloudService::dropbox}).value_or(VXCloudUserDefaults::AccountList{});
}

bool sessionIsAuthorized(const std::shared_ptr<VXCloudAccount>& account) {
    auto session = initCloudSession(account);
    if (!session) return false;
    auto answer = std::make_shared<std::promise<bool>>();
    auto future = answer->get_future();
    session->isAuthorizedWithCompletion([answer](bool authorized) { answer->set_value(authorized); });
    return future.wait_for(20s) == std::future_status::ready && future.get();
}

ErrorCode codeOf(const PostedResult& posted) {
    return posted.result && posted.result->cloudError() ? posted.result->cloudError()->errorCode
                                                         : ErrorCode::fileUpload;
}

class DropboxLink : public AuthTest {};

TEST_F(DropboxLink, ApprovedSignInStoresTheAccountAndTokenAndPostsSuccessOnTheMainQueue) {
    const sandbox::SandboxAccount expected = sandbox_->account("dropbox");
    auto browser = std::make_shared<SandboxBrowser>(Action::approve);
    manager().authorize(browser, VXCloudService::dropbox);
    const PostedResult posted = expectOneResult();

    EXPECT_TRUE(posted.onMainQueue);
    ASSERT_EQ(posted.dict.value("status", ""), "success") << posted.dict.dump();
    EXPECT_EQ(posted.dict["account"]["userid"], expected.userId);
    EXPECT_EQ(posted.dict["account"]["accountname"], expected.email);
    EXPECT_EQ(posted.dict["account"]["cloudservicerawvalue"], 1);
    ASSERT_TRUE(posted.result.has_value());
    ASSERT_EQ(posted.result->kind(), VXCloudAuthResult::Kind::success);
    EXPECT_EQ(posted.result->account()->key(), "VX_Dropbox_" + expected.userId);
    EXPECT_EQ(posted.dict["account"], posted.result->account()->toDict());

    // What the person was shown: PKCE S256, a state, offline access, a loopback redirect.
    const std::string url = browser->lastUrl();
    EXPECT_EQ(url.rfind(sandbox_->endpoint("dropbox", "authorize") + "?", 0), 0u) << url;
    EXPECT_EQ(queryParam(url, "client_id"), kDropboxAppKey);
    EXPECT_EQ(queryParam(url, "response_type"), "code");
    EXPECT_EQ(queryParam(url, "code_challenge_method"), "S256");
    EXPECT_EQ(queryParam(url, "code_challenge").size(), 43u);
    EXPECT_GE(queryParam(url, "state").size(), 32u);
    EXPECT_EQ(queryParam(url, "token_access_type"), "offline");
    const std::string redirect = queryParam(url, "redirect_uri");
    EXPECT_EQ(redirect.rfind("http://127.0.0.1:", 0), 0u) << redirect;
    EXPECT_EQ(browser->lastAnswer().status, 200);
    EXPECT_NE(browser->lastAnswer().body.find("You can close this window"), std::string::npos);

    // The account is stored, and the token where the Dropbox client reads it; it works.
    const auto stored = storedDropboxAccounts();
    ASSERT_EQ(stored.size(), 1u);
    EXPECT_EQ(stored[0]->email, expected.email);
    EXPECT_EQ(stored[0]->displayName, expected.email);
    EXPECT_FALSE(stored[0]->error);
    const auto token = VXCloudTokenStore::load(VXCloudService::dropbox, expected.userId);
    ASSERT_TRUE(token.has_value());
    EXPECT_FALSE(token->refreshToken.empty());
    EXPECT_TRUE(token->expiresAt.has_value());
    EXPECT_TRUE(sessionIsAuthorized(stored[0]));

    // The flow is over and its listener closed.
    EXPECT_FALSE(manager().isAuthorizing(VXCloudService::dropbox));
    EXPECT_TRUE(SandboxBrowser::get(redirect).transportFailed());
    EXPECT_EQ(requests(kTokenRoute), 1);
}

TEST_F(DropboxLink, LinkingTheSameAccountTwiceLeavesOneEntry) {
    auto first = linkDropbox();
    ASSERT_TRUE(first);
    first->displayName = "Renamed";
    first->error = std::make_shared<VXCloudError>(ErrorCode::authentication);
    ASSERT_TRUE(VXCloudUserDefaults::saveCloudAccount(*first));

    auto again = linkDropbox();
    ASSERT_TRUE(again);
    auto stored = storedDropboxAccounts();
    ASSERT_EQ(stored.size(), 1u);
    EXPECT_EQ(stored[0]->key(), first->key());
    // A new link replaces the entry: the error that asked for it is gone.
    EXPECT_FALSE(stored[0]->error);
    EXPECT_EQ(stored[0]->displayName, stored[0]->email);

    auto grace = linkDropbox("grace@example.com");
    ASSERT_TRUE(grace);
    EXPECT_NE(grace->userId, first->userId);
    stored = storedDropboxAccounts();
    ASSERT_EQ(stored.size(), 2u);
    EXPECT_EQ(stored[0]->email, "ada@example.com");
    EXPECT_EQ(stored[1]->email, "grace@example.com");
    EXPECT_EQ(VXCloudTokenStore::storageNames(VXCloudService::dropbox).size(), 2u);
}

TEST_F(DropboxLink, DeniedAccessPostsCanceledAndStoresNothing) {
    auto browser = std::make_shared<SandboxBrowser>(Action::deny);
    manager().authorize(browser, VXCloudService::dropbox);
    const PostedResult posted = expectOneResult();
    EXPECT_EQ(posted.dict, json({{"status", "canceled"}}));
    ASSERT_TRUE(posted.result.has_value());
    EXPECT_EQ(posted.result->kind(), VXCloudAuthResult::Kind::cancel);
    EXPECT_EQ(browser->lastAnswer().status, 200);
    EXPECT_NE(browser->lastAnswer().body.find("cancelled"), std::string::npos);

    EXPECT_TRUE(storedDropboxAccounts().empty());
    EXPECT_TRUE(VXCloudTokenStore::storageNames(VXCloudService::dropbox).empty());
    EXPECT_EQ(requests(kTokenRoute), 0);
}

TEST_F(DropboxLink, RedirectWithAnotherStateIsRejectedAndTheRealOneStillCompletes) {
    auto browser = std::make_shared<SandboxBrowser>(Action::wait);
    manager().authorize(browser, VXCloudService::dropbox);
    const std::string url = browser->lastUrl();
    const std::string redirect = queryParam(url, "redirect_uri");
    const std::string state = queryParam(url, "state");
    ASSERT_FALSE(redirect.empty());
    std::string otherState = state;
    otherState.back() = otherState.back() == 'a' ? 'b' : 'a';

    // Forged redirects to the listener: refused, and no code is exchanged.
    const HttpResponse forged = SandboxBrowser::get(redirect + "?code=forged&state=" + otherState);
    EXPECT_EQ(forged.status, 400);
    EXPECT_EQ(SandboxBrowser::get(redirect + "?code=forged").status, 400);
    EXPECT_EQ(SandboxBrowser::get(redirect + "?code=forged&state=" + state + "&state=" + state).status, 400)
        << "a repeated parameter is not trusted";
    EXPECT_EQ(SandboxBrowser::get(redirect + "favicon.ico").status, 404);
    EXPECT_FALSE(manager().handleRedirectURL(redirect + "?code=forged&state=" + otherState));
    EXPECT_FALSE(manager().handleRedirectURL("not a redirect at all"));
    EXPECT_EQ(requests(kTokenRoute), 0);
    EXPECT_FALSE(waitForResults(1, 300ms)) << "a rejected redirect ends nothing";
    EXPECT_TRUE(manager().isAuthorizing(VXCloudService::dropbox));

    const HttpResponse answer = SandboxBrowser::decide(url, true);
    EXPECT_EQ(answer.status, 200);
    const PostedResult posted = expectOneResult();
    EXPECT_EQ(posted.dict.value("status", ""), "success") << posted.dict.dump();
    EXPECT_EQ(storedDropboxAccounts().size(), 1u);
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

TEST_F(DropboxLink, TokenEndpointErrorsPostAnErrorWithTheirCode) {
    struct Case {
        sandbox::FaultSpec fault;
        ErrorCode code;
    };
    sandbox::FaultSpec invalidGrant;
    invalidGrant.status = 400;
    invalidGrant.body = R"({"error": "invalid_grant", "error_description": "code doesn't exist or has expired"})";
    invalidGrant.contentType = "application/json";
    sandbox::FaultSpec unavailable;
    unavailable.status = 503;
    unavailable.body = "Service Unavailable";
    unavailable.contentType = "text/plain";
    sandbox::FaultSpec garbage;
    garbage.status = 200;
    garbage.body = "{not json";
    garbage.contentType = "application/json";
    // The answer is cut after the code was spent: a code is never sent twice.
    sandbox::FaultSpec dropped;
    dropped.dropResponseAfterBytes = 10;

    for (const Case& c : {Case{invalidGrant, ErrorCode::authentication}, Case{unavailable, ErrorCode::connection},
                          Case{garbage, ErrorCode::fileUpload}, Case{dropped, ErrorCode::connection}}) {
        SCOPED_TRACE(c.fault.toString());
        std::string error;
        ASSERT_TRUE(sandbox_->enqueueFault(kTokenRoute, c.fault, 1, &error)) << error;
        auto browser = std::make_shared<SandboxBrowser>(Action::approve);
        manager().authorize(browser, VXCloudService::dropbox);
        const PostedResult posted = expectOneResult();
        EXPECT_EQ(posted.dict, json({{"status", "error"}})) << "the code travels only in the typed result";
        ASSERT_TRUE(posted.result.has_value());
        EXPECT_EQ(posted.result->kind(), VXCloudAuthResult::Kind::error);
        EXPECT_EQ(codeOf(posted), c.code) << posted.result->message();
        EXPECT_FALSE(posted.result->message().empty());
        EXPECT_TRUE(storedDropboxAccounts().empty());
        EXPECT_TRUE(VXCloudTokenStore::storageNames(VXCloudService::dropbox).empty());
    }
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
