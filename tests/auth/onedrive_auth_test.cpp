// Microsoft's sign-in for OneDrive against the sandbox: what the person is asked for, the
// account named by the drive's owner, a denial, a forged redirect, the token endpoint's
// refusals, and the refresh that rotates the refresh token, where only a refused grant asks
// for a new sign-in.
#include <ctime>

#include "../../src/providers/onedrive/GraphClient.h"
#include "auth/AuthTestSupport.h"
#include "vxcloud/auth/VXCloudTokenStore.h"
#include "vxcloud/model/VXCloudUserDefaults.h"

namespace vxcloud::testing {
namespace {

using Action = SandboxBrowser::Action;
constexpr VXCloudService kService = VXCloudService::oneDrive;
constexpr const char* kProvider = "onedrive";

sandbox::FaultSpec jsonAnswer(int status, std::string body) {
    sandbox::FaultSpec fault;
    fault.status = status;
    fault.body = std::move(body);
    fault.contentType = "application/json";
    return fault;
}

// A token endpoint error the way Microsoft words it.
sandbox::FaultSpec microsoftError(int status, const std::string& error, int aadsts) {
    const json body = {{"error", error},
                       {"error_description", "AADSTS" + std::to_string(aadsts) + ": sandbox"},
                       {"error_codes", {aadsts}},
                       {"trace_id", "t"},
                       {"correlation_id", "c"}};
    return jsonAnswer(status, body.dump());
}

class OneDriveLink : public AuthTest {
protected:
    void SetUp() override {
        AuthTest::SetUp();
        if (HasFatalFailure()) return;
        // Without the sandbox's Microsoft endpoints a sign-in would go to the real ones.
        ASSERT_TRUE(fx_.pointAt(kService)) << "the sandbox does not emulate OneDrive";
    }

    // The sandbox's route whose key holds `fragment` ("token").
    std::string route(const std::string& fragment) const {
        for (const std::string& key : sandbox_->routes(kProvider)) {
            if (key.find(fragment) != std::string::npos) return key;
        }
        ADD_FAILURE() << "the sandbox has no OneDrive route like " << fragment;
        return {};
    }
    std::string tokenRoute() const { return route("token"); }

    std::vector<std::shared_ptr<VXCloudAccount>> stored() const {
        const auto accounts = VXCloudUserDefaults::loadAccounts({kService});
        return accounts ? *accounts : std::vector<std::shared_ptr<VXCloudAccount>>{};
    }

    // What the sandbox's Graph says of the drive of the account holding `accessToken`.
    json driveOf(const std::string& accessToken) const {
        auto client = fx_.wireClient();
        const std::string base = sandbox_->endpoint(kProvider, "api");
        const auto path = base.substr(sandbox_->baseUrl().size()) + "/me/drive";
        auto answer = client->Get(path, {{"Authorization", "Bearer " + accessToken}});
        if (!answer || answer->status != 200) {
            ADD_FAILURE() << "the sandbox's /me/drive did not answer";
            return json::object();
        }
        return json::parse(answer->body, nullptr, false);
    }

    // Makes the stored access token of the account look expired, so the next call refreshes.
    static void expireStoredToken(const VXCloudAccount& account) {
        auto token = VXCloudTokenStore::load(kService, account.key());
        ASSERT_TRUE(token.has_value());
        token->expiresAt = static_cast<std::int64_t>(std::time(nullptr)) - 60;
        ASSERT_TRUE(VXCloudTokenStore::save(kService, account.key(), *token));
    }

    // The code a call of the account's Graph client ends with (none: it succeeded).
    static std::optional<ErrorCode> driveReadError(const VXCloudAccount& account) {
        auto client = onedrive::GraphClient::forStorageName(account.key());
        if (!client) return ErrorCode::authentication;
        const auto drive = client->getDrive();
        if (drive.ok()) return std::nullopt;
        return VXCloudError::initWithError(drive.error(), kService)->errorCode;
    }
};

TEST_F(OneDriveLink, ApprovedSignInAsksForOfflineAccessAndNamesTheAccountByTheDriveOwner) {
    auto browser = std::make_shared<SandboxBrowser>(Action::approve);
    manager().authorize(browser, kService);
    const PostedResult posted = expectOneResult();
    ASSERT_EQ(posted.dict.value("status", ""), "success") << posted.dict.dump();
    EXPECT_TRUE(posted.onMainQueue);

    // A public client (PKCE, no secret) redirected to 127.0.0.1; the default scopes with
    // offline_access, and the person picks the account.
    const std::string url = browser->lastUrl();
    EXPECT_EQ(url.rfind(sandbox_->endpoint(kProvider, "authorize") + "?", 0), 0u) << url;
    EXPECT_EQ(queryParam(url, "client_id"), kOneDriveApplicationId);
    EXPECT_EQ(queryParam(url, "code_challenge_method"), "S256");
    EXPECT_EQ(queryParam(url, "scope"), "Files.ReadWrite User.Read offline_access");
    EXPECT_EQ(queryParam(url, "prompt"), "select_account");
    EXPECT_EQ(queryParam(url, "redirect_uri").rfind("http://127.0.0.1:", 0), 0u) << url;

    // The account is the drive owner's id and name, of the service asked for; its tokens
    // are kept under its key, with a refresh token.
    const auto account = posted.result->account();
    const auto token = VXCloudTokenStore::load(kService, account->key());
    ASSERT_TRUE(token.has_value());
    EXPECT_FALSE(token->refreshToken.empty());
    EXPECT_TRUE(token->expiresAt.has_value());
    const json drive = driveOf(token->accessToken);
    EXPECT_EQ(account->userId, drive["owner"]["user"].value("id", "?"));
    EXPECT_EQ(account->email, drive["owner"]["user"].value("displayName", "?"));
    EXPECT_EQ(account->userId, sandbox_->account(kProvider).userId);
    EXPECT_EQ(account->cloudService, kService);
    EXPECT_EQ(posted.dict["account"], account->toDict());
    ASSERT_EQ(stored().size(), 1u);
    EXPECT_TRUE(manager().hasOneDriveAccountLinked());
    EXPECT_TRUE(sessionIsAuthorized(account)) << "the session finds the token where it looks";
    EXPECT_EQ(requests(tokenRoute()), 1);

    // The host's own scopes replace the defaults; offline_access is added once.
    setUpManager("http://127.0.0.1/", {"offline_access", "Files.Read"});
    manager().authorize(browser, kService);
    EXPECT_EQ(expectOneResult().dict.value("status", ""), "success");
    EXPECT_EQ(queryParam(browser->lastUrl(), "scope"), "offline_access Files.Read");
    EXPECT_EQ(stored().size(), 1u) << "the same account linked again";

    // Without the app's registration nothing is opened.
    manager().setup(nullptr, nullptr);
    auto unseen = std::make_shared<SandboxBrowser>(Action::approve);
    manager().authorize(unseen, kService);
    const PostedResult refused = expectOneResult();
    EXPECT_EQ(refused.dict, json({{"status", "error"}}));
    EXPECT_TRUE(unseen->openedUrls().empty());
}

TEST_F(OneDriveLink, DeniedAccessPostsCanceledAndStoresNothing) {
    auto browser = std::make_shared<SandboxBrowser>(Action::deny);
    manager().authorize(browser, kService);
    const PostedResult posted = expectOneResult();
    EXPECT_EQ(posted.dict, json({{"status", "canceled"}}));
    ASSERT_TRUE(posted.result.has_value());
    EXPECT_EQ(posted.result->kind(), VXCloudAuthResult::Kind::cancel);
    EXPECT_EQ(browser->lastAnswer().status, 200);

    EXPECT_TRUE(stored().empty());
    EXPECT_FALSE(manager().hasOneDriveAccountLinked());
    EXPECT_TRUE(VXCloudTokenStore::storageNames(kService).empty());
    EXPECT_EQ(requests(tokenRoute()), 0);
}

TEST_F(OneDriveLink, ARedirectWithAnotherStateIsRefusedAndTheRealOneStillCompletes) {
    auto browser = std::make_shared<SandboxBrowser>(Action::wait);
    manager().authorize(browser, kService);
    const std::string url = browser->lastUrl();
    const std::string redirect = queryParam(url, "redirect_uri");
    const std::string state = queryParam(url, "state");
    ASSERT_FALSE(redirect.empty());
    ASSERT_FALSE(state.empty());
    std::string otherState = state;
    otherState.back() = otherState.back() == 'a' ? 'b' : 'a';

    EXPECT_EQ(SandboxBrowser::get(redirect + "?code=forged&state=" + otherState).status, 400);
    EXPECT_EQ(SandboxBrowser::get(redirect + "?code=forged").status, 400);
    EXPECT_FALSE(manager().handleRedirectURL(redirect + "?error=access_denied&state=" + otherState))
        << "a forged denial ends nothing either";
    EXPECT_EQ(requests(tokenRoute()), 0);
    EXPECT_FALSE(waitForResults(1, 300ms));
    EXPECT_TRUE(manager().isAuthorizing(kService));

    EXPECT_EQ(SandboxBrowser::decide(url, true).status, 200);
    const PostedResult posted = expectOneResult();
    EXPECT_EQ(posted.dict.value("status", ""), "success") << posted.dict.dump();
    EXPECT_EQ(stored().size(), 1u);
}

TEST_F(OneDriveLink, RefusalsOfTheTokenEndpointAndTheRedirectPostTheirCode) {
    struct Case {
        const char* what;
        sandbox::FaultSpec fault;
        ErrorCode code;
    };
    sandbox::FaultSpec unavailable;
    unavailable.status = 503;
    unavailable.body = "Service Unavailable";
    unavailable.contentType = "text/plain";
    for (const Case& c : {Case{"code expired", microsoftError(400, "invalid_grant", 70008), ErrorCode::authentication},
                          Case{"unknown app", microsoftError(401, "invalid_client", 700016), ErrorCode::authentication},
                          Case{"must sign in", microsoftError(400, "interaction_required", 50076),
                               ErrorCode::authentication},
                          Case{"throttled", microsoftError(429, "temporarily_unavailable", 50196), ErrorCode::connection},
                          Case{"503", unavailable, ErrorCode::connection},
                          Case{"bad scope", microsoftError(400, "invalid_scope", 70011), ErrorCode::fileUpload},
                          Case{"not JSON", jsonAnswer(200, "{not json"), ErrorCode::fileUpload}}) {
        SCOPED_TRACE(c.what);
        std::string error;
        ASSERT_TRUE(sandbox_->enqueueFault(tokenRoute(), c.fault, 1, &error)) << error;
        manager().authorize(std::make_shared<SandboxBrowser>(Action::approve), kService);
        const PostedResult posted = expectOneResult();
        EXPECT_EQ(posted.dict, json({{"status", "error"}})) << "the code travels only in the typed result";
        EXPECT_EQ(codeOf(posted), c.code) << (posted.result ? posted.result->message() : "");
        EXPECT_TRUE(stored().empty());
        EXPECT_TRUE(VXCloudTokenStore::storageNames(kService).empty());
    }

    // Microsoft's redirect can say it is in trouble instead of denying.
    auto browser = std::make_shared<SandboxBrowser>(Action::wait);
    manager().authorize(browser, kService);
    const std::string url = browser->lastUrl();
    EXPECT_TRUE(manager().handleRedirectURL(queryParam(url, "redirect_uri") +
                                            "?error=temporarily_unavailable&error_description=AADSTS90033&state=" +
                                            queryParam(url, "state")));
    const PostedResult busy = expectOneResult();
    EXPECT_EQ(busy.dict, json({{"status", "error"}}));
    EXPECT_EQ(codeOf(busy), ErrorCode::connection);
}

TEST_F(OneDriveLink, ARefreshStoresTheRotatedRefreshTokenAndNeverUsesTheOldOneAgain) {
    const auto account = link(kService);
    ASSERT_TRUE(account);
    const auto first = VXCloudTokenStore::load(kService, account->key());
    ASSERT_TRUE(first && !first->refreshToken.empty());

    expireStoredToken(*account);
    EXPECT_FALSE(driveReadError(*account));
    const auto second = VXCloudTokenStore::load(kService, account->key());
    ASSERT_TRUE(second.has_value());
    EXPECT_NE(second->accessToken, first->accessToken);
    EXPECT_NE(second->refreshToken, first->refreshToken) << "Microsoft answers a new refresh token";
    EXPECT_FALSE(second->refreshToken.empty());
    EXPECT_EQ(requests(tokenRoute()), 2);

    // Microsoft does not revoke the old one; the sandbox does here, so a refresh that used
    // it would fail.
    ASSERT_TRUE(sandbox_->revokeRefreshToken(kProvider, first->refreshToken));
    expireStoredToken(*account);
    EXPECT_FALSE(driveReadError(*account));
    const auto third = VXCloudTokenStore::load(kService, account->key());
    ASSERT_TRUE(third.has_value());
    EXPECT_NE(third->refreshToken, second->refreshToken);
    EXPECT_EQ(requests(tokenRoute()), 3);

    // A token the service refuses before its time is refreshed once and the call repeated.
    ASSERT_GE(sandbox_->expireAccessTokens(kProvider), 1);
    EXPECT_FALSE(driveReadError(*account));
    EXPECT_EQ(requests(tokenRoute()), 4);
    EXPECT_NE(VXCloudTokenStore::load(kService, account->key())->refreshToken, third->refreshToken);
}

TEST_F(OneDriveLink, OnlyARefusedGrantAsksForANewSignInWhenARefreshFails) {
    const auto account = link(kService);
    ASSERT_TRUE(account);
    const auto before = VXCloudTokenStore::load(kService, account->key());
    ASSERT_TRUE(before.has_value());

    sandbox::FaultSpec dropped;
    dropped.drop = true;
    struct Case {
        const char* what;
        sandbox::FaultSpec fault;
    };
    for (const Case& c : {Case{"connection cut", dropped}, Case{"503", microsoftError(503, "server_error", 0)},
                          Case{"429", microsoftError(429, "temporarily_unavailable", 50196)}}) {
        SCOPED_TRACE(c.what);
        std::string error;
        // More failures than the request's attempts: the refresh is tried again like any
        // request, and the last failure decides.
        ASSERT_TRUE(sandbox_->enqueueFault(tokenRoute(), c.fault, 12, &error)) << error;
        expireStoredToken(*account);
        EXPECT_EQ(driveReadError(*account), ErrorCode::connection);
        sandbox_->clearFaults();
        const auto kept = VXCloudTokenStore::load(kService, account->key());
        ASSERT_TRUE(kept.has_value());
        EXPECT_EQ(kept->refreshToken, before->refreshToken) << "a failed refresh keeps the grant";
    }

    // One failure only: the next try refreshes, and the request goes through.
    std::string error;
    ASSERT_TRUE(sandbox_->enqueueFault(tokenRoute(), microsoftError(503, "server_error", 0), 1, &error)) << error;
    expireStoredToken(*account);
    EXPECT_FALSE(driveReadError(*account));
    EXPECT_NE(VXCloudTokenStore::load(kService, account->key())->refreshToken, before->refreshToken);

    // A token endpoint nobody answers at.
    VXCloudServiceEndpoints endpoints = VXCloudServiceConfig::endpoints(kService);
    const std::string tokenUrl = endpoints.tokenUrl;
    endpoints.tokenUrl = "http://127.0.0.1:1/common/oauth2/v2.0/token";
    VXCloudServiceConfig::setEndpoints(kService, endpoints);
    expireStoredToken(*account);
    EXPECT_EQ(driveReadError(*account), ErrorCode::connection);
    endpoints.tokenUrl = tokenUrl;
    VXCloudServiceConfig::setEndpoints(kService, endpoints);
    EXPECT_FALSE(driveReadError(*account)) << "the grant survived every failure";

    // The person revoked the app: sign in again.
    ASSERT_TRUE(sandbox_->revokeRefreshToken(kProvider, VXCloudTokenStore::load(kService, account->key())->refreshToken));
    expireStoredToken(*account);
    EXPECT_EQ(driveReadError(*account), ErrorCode::authentication);
}

}  // namespace
}  // namespace vxcloud::testing
