// What every OAuth sign-in must do, run for each service against the sandbox: approve,
// deny, a forged redirect, token endpoint errors, linking twice, and a revoked refresh
// token found by the start-up check.
#include "auth/AuthTestSupport.h"
#include "vxcloud/auth/VXCloudTokenStore.h"
#include "vxcloud/model/VXCloudUserDefaults.h"

namespace vxcloud::testing {
namespace {

using Action = SandboxBrowser::Action;

struct LinkCase {
    const char* name;
    VXCloudService service;
    const char* provider;  // the sandbox's name for it
    const char* tokenRoute;
    const char* clientId;
};

std::ostream& operator<<(std::ostream& out, const LinkCase& c) { return out << c.name; }

class ProviderLink : public AuthTest, public ::testing::WithParamInterface<LinkCase> {
protected:
    VXCloudService service() const { return GetParam().service; }

    // Where the service's client reads the account's token.
    std::string storageName(const VXCloudAccount& account) const {
        return service() == VXCloudService::googleDrive ? account.key() : account.userId;
    }

    std::vector<std::shared_ptr<VXCloudAccount>> stored() const {
        std::vector<std::shared_ptr<VXCloudAccount>> out;
        for (const auto& account : VXCloudUserDefaults::loadAllAccounts(false)) {
            if (account->cloudService == service()) out.push_back(account);
        }
        return out;
    }
};

TEST_P(ProviderLink, ApprovedSignInStoresTheAccountAndTokenAndPostsSuccessOnTheMainQueue) {
    const sandbox::SandboxAccount expected = sandbox_->account(GetParam().provider);
    auto browser = std::make_shared<SandboxBrowser>(Action::approve);
    manager().authorize(browser, service());
    const PostedResult posted = expectOneResult();

    EXPECT_TRUE(posted.onMainQueue);
    ASSERT_EQ(posted.dict.value("status", ""), "success") << posted.dict.dump();
    EXPECT_EQ(posted.dict["account"]["userid"], expected.userId);
    EXPECT_EQ(posted.dict["account"]["accountname"], expected.email);
    EXPECT_EQ(posted.dict["account"]["cloudservicerawvalue"], rawValue(service()));
    ASSERT_TRUE(posted.result.has_value());
    ASSERT_EQ(posted.result->kind(), VXCloudAuthResult::Kind::success);
    EXPECT_EQ(posted.dict["account"], posted.result->account()->toDict());

    // What the person was shown: the app, PKCE S256, a state, a loopback redirect.
    const std::string url = browser->lastUrl();
    EXPECT_EQ(url.rfind(sandbox_->endpoint(GetParam().provider, "authorize") + "?", 0), 0u) << url;
    EXPECT_EQ(queryParam(url, "client_id"), GetParam().clientId);
    EXPECT_EQ(queryParam(url, "response_type"), "code");
    EXPECT_EQ(queryParam(url, "code_challenge_method"), "S256");
    EXPECT_EQ(queryParam(url, "code_challenge").size(), 43u);
    EXPECT_GE(queryParam(url, "state").size(), 32u);
    const std::string redirect = queryParam(url, "redirect_uri");
    EXPECT_EQ(redirect.rfind("http://127.0.0.1:", 0), 0u) << redirect;
    EXPECT_EQ(browser->lastAnswer().status, 200);
    EXPECT_NE(browser->lastAnswer().body.find("You can close this window"), std::string::npos);

    // The account is stored, and the token where the service's client reads it; it works.
    const auto accounts = stored();
    ASSERT_EQ(accounts.size(), 1u);
    EXPECT_EQ(accounts[0]->email, expected.email);
    EXPECT_EQ(accounts[0]->displayName, expected.email);
    EXPECT_FALSE(accounts[0]->error);
    const auto token = VXCloudTokenStore::load(service(), storageName(*accounts[0]));
    ASSERT_TRUE(token.has_value());
    EXPECT_FALSE(token->refreshToken.empty());
    EXPECT_TRUE(token->expiresAt.has_value());
    EXPECT_TRUE(sessionIsAuthorized(accounts[0]));

    // The flow is over and its listener closed.
    EXPECT_FALSE(manager().isAuthorizing(service()));
    EXPECT_TRUE(SandboxBrowser::get(redirect).transportFailed());
    EXPECT_EQ(requests(GetParam().tokenRoute), 1);
}

TEST_P(ProviderLink, DeniedAccessPostsCanceledAndStoresNothing) {
    auto browser = std::make_shared<SandboxBrowser>(Action::deny);
    manager().authorize(browser, service());
    const PostedResult posted = expectOneResult();
    EXPECT_EQ(posted.dict, json({{"status", "canceled"}}));
    ASSERT_TRUE(posted.result.has_value());
    EXPECT_EQ(posted.result->kind(), VXCloudAuthResult::Kind::cancel);
    EXPECT_EQ(browser->lastAnswer().status, 200);
    EXPECT_NE(browser->lastAnswer().body.find("cancelled"), std::string::npos);

    EXPECT_TRUE(stored().empty());
    EXPECT_TRUE(VXCloudTokenStore::storageNames(service()).empty());
    EXPECT_EQ(requests(GetParam().tokenRoute), 0);
}

TEST_P(ProviderLink, RedirectWithAnotherStateIsRejectedAndTheRealOneStillCompletes) {
    auto browser = std::make_shared<SandboxBrowser>(Action::wait);
    manager().authorize(browser, service());
    const std::string url = browser->lastUrl();
    const std::string redirect = queryParam(url, "redirect_uri");
    const std::string state = queryParam(url, "state");
    ASSERT_FALSE(redirect.empty());
    ASSERT_FALSE(state.empty());
    std::string otherState = state;
    otherState.back() = otherState.back() == 'a' ? 'b' : 'a';

    // Forged redirects to the listener: refused, and no code is exchanged.
    EXPECT_EQ(SandboxBrowser::get(redirect + "?code=forged&state=" + otherState).status, 400);
    EXPECT_EQ(SandboxBrowser::get(redirect + "?code=forged").status, 400);
    EXPECT_EQ(SandboxBrowser::get(redirect + "?code=forged&state=" + state + "&state=" + state).status, 400)
        << "a repeated parameter is not trusted";
    EXPECT_EQ(SandboxBrowser::get(redirect + "favicon.ico").status, 404);
    EXPECT_FALSE(manager().handleRedirectURL(redirect + "?code=forged&state=" + otherState));
    EXPECT_FALSE(manager().handleRedirectURL("not a redirect at all"));
    EXPECT_EQ(requests(GetParam().tokenRoute), 0);
    EXPECT_FALSE(waitForResults(1, 300ms)) << "a rejected redirect ends nothing";
    EXPECT_TRUE(manager().isAuthorizing(service()));

    EXPECT_EQ(SandboxBrowser::decide(url, true).status, 200);
    const PostedResult posted = expectOneResult();
    EXPECT_EQ(posted.dict.value("status", ""), "success") << posted.dict.dump();
    EXPECT_EQ(stored().size(), 1u);
}

TEST_P(ProviderLink, TokenEndpointErrorsPostAnErrorWithTheirCode) {
    struct Case {
        const char* what;
        sandbox::FaultSpec fault;
        ErrorCode code;
    };
    sandbox::FaultSpec invalidGrant;
    invalidGrant.status = 400;
    invalidGrant.body = R"({"error": "invalid_grant", "error_description": "Bad Request"})";
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
    sandbox::FaultSpec cut;
    cut.dropResponseAfterBytes = 10;

    for (const Case& c : {Case{"invalid_grant", invalidGrant, ErrorCode::authentication},
                          Case{"503", unavailable, ErrorCode::connection},
                          Case{"not JSON", garbage, ErrorCode::fileUpload},
                          Case{"cut answer", cut, ErrorCode::connection}}) {
        SCOPED_TRACE(c.what);
        std::string error;
        ASSERT_TRUE(sandbox_->enqueueFault(GetParam().tokenRoute, c.fault, 1, &error)) << error;
        manager().authorize(std::make_shared<SandboxBrowser>(Action::approve), service());
        const PostedResult posted = expectOneResult();
        EXPECT_EQ(posted.dict, json({{"status", "error"}})) << "the code travels only in the typed result";
        ASSERT_TRUE(posted.result.has_value());
        EXPECT_EQ(posted.result->kind(), VXCloudAuthResult::Kind::error);
        EXPECT_EQ(codeOf(posted), c.code) << posted.result->message();
        EXPECT_FALSE(posted.result->message().empty());
        EXPECT_TRUE(stored().empty());
        EXPECT_TRUE(VXCloudTokenStore::storageNames(service()).empty());
    }
}

TEST_P(ProviderLink, LinkingTheSameAccountTwiceLeavesOneEntry) {
    auto first = link(service());
    ASSERT_TRUE(first);
    first->displayName = "Renamed";
    first->error = std::make_shared<VXCloudError>(ErrorCode::authentication);
    ASSERT_TRUE(VXCloudUserDefaults::saveCloudAccount(*first));

    ASSERT_TRUE(link(service()));
    auto accounts = stored();
    ASSERT_EQ(accounts.size(), 1u);
    EXPECT_EQ(accounts[0]->key(), first->key());
    // A new link is a new sign-in for the stored account: the error that asked for it is
    // gone, and what the person set for the account stays.
    EXPECT_FALSE(accounts[0]->error);
    EXPECT_EQ(accounts[0]->displayName, "Renamed");
    EXPECT_EQ(VXCloudTokenStore::storageNames(service()).size(), 1u);

    auto grace = link(service(), "grace@example.com");
    ASSERT_TRUE(grace);
    EXPECT_NE(grace->userId, first->userId);
    accounts = stored();
    ASSERT_EQ(accounts.size(), 2u);
    EXPECT_EQ(accounts[0]->email, "ada@example.com");
    EXPECT_EQ(accounts[1]->email, "grace@example.com");
    EXPECT_EQ(VXCloudTokenStore::storageNames(service()).size(), 2u);
}

TEST_P(ProviderLink, RevokedRefreshTokenMarksTheAccountAfterTheStartUpCheck) {
    auto ada = link(service(), "ada@example.com");
    auto grace = link(service(), "grace@example.com");
    ASSERT_TRUE(ada && grace);
    // Grace revoked the app: her refresh token and every token minted from it die.
    const auto token = VXCloudTokenStore::load(service(), storageName(*grace));
    ASSERT_TRUE(token.has_value());
    ASSERT_TRUE(sandbox_->revokeRefreshToken(GetParam().provider, token->refreshToken));

    ASSERT_TRUE(runPostSetup());
    auto accounts = stored();
    ASSERT_EQ(accounts.size(), 2u);
    EXPECT_FALSE(accounts[0]->error) << "Ada's link still works";
    ASSERT_TRUE(accounts[1]->error);
    EXPECT_EQ(accounts[1]->error->errorCode, ErrorCode::authentication);
    EXPECT_TRUE(waitUntil([] { return manager().pendingSessionCount() == 0; }));

    // Linking Grace again clears the mark at the next check.
    ASSERT_TRUE(link(service(), "grace@example.com"));
    ASSERT_TRUE(runPostSetup());
    accounts = stored();
    ASSERT_EQ(accounts.size(), 2u);
    EXPECT_FALSE(accounts[1]->error);
}

INSTANTIATE_TEST_SUITE_P(
    Services, ProviderLink,
    ::testing::Values(LinkCase{"Dropbox", VXCloudService::dropbox, "dropbox", "dropbox/oauth2/token",
                               kDropboxAppKey},
                      LinkCase{"GoogleDrive", VXCloudService::googleDrive, "google", "google/oauth2/token",
                               kGoogleClientId}),
    [](const ::testing::TestParamInfo<LinkCase>& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace vxcloud::testing
