// Google's sign-in beyond what every service shares: the scopes and consent it asks for,
// how the signed-in user is named (id_token, else userinfo), a redirect URI the host
// receives itself, and a re-consent that issues no refresh token.
#include "../../src/auth/Pkce.h"
#include "auth/AuthTestSupport.h"
#include "vxcloud/auth/VXCloudTokenStore.h"
#include "vxcloud/model/VXCloudUserDefaults.h"

namespace vxcloud::testing {
namespace {

using Action = SandboxBrowser::Action;
constexpr const char* kTokenRoute = "google/oauth2/token";

// A token endpoint answer as Google sends it, with an id_token for `claims`.
std::string tokenAnswer(const std::string& accessToken, const std::string& refreshToken, const json& claims,
                        const std::string& scope = "openid https://www.googleapis.com/auth/drive.file "
                                                   "https://www.googleapis.com/auth/userinfo.email") {
    json answer = {{"access_token", accessToken}, {"expires_in", 3599}, {"token_type", "Bearer"}, {"scope", scope}};
    if (!refreshToken.empty()) answer["refresh_token"] = refreshToken;
    if (!claims.is_null()) {
        answer["id_token"] = auth::base64UrlEncode(R"({"alg":"RS256","typ":"JWT"})") + "." +
                             auth::base64UrlEncode(claims.dump()) + ".c2lnbmF0dXJl";
    }
    return answer.dump();
}

sandbox::FaultSpec answerWith(std::string body) {
    sandbox::FaultSpec fault;
    fault.status = 200;
    fault.body = std::move(body);
    fault.contentType = "application/json";
    return fault;
}

class GoogleLink : public AuthTest {
protected:
    PostedResult signIn() {
        manager().authorize(std::make_shared<SandboxBrowser>(Action::approve), VXCloudService::googleDrive);
        return expectOneResult();
    }
};

TEST_F(GoogleLink, AsksForTheIdentityScopesOfflineAccessAndAFreshConsent) {
    setUpManager("http://127.0.0.1/oauth2redirect");
    auto browser = std::make_shared<SandboxBrowser>(Action::approve);
    manager().authorize(browser, VXCloudService::googleDrive);
    const PostedResult posted = expectOneResult();
    ASSERT_EQ(posted.dict.value("status", ""), "success") << posted.dict.dump();

    const std::string url = browser->lastUrl();
    EXPECT_EQ(queryParam(url, "scope"), "openid email https://www.googleapis.com/auth/drive.file");
    EXPECT_EQ(queryParam(url, "access_type"), "offline");
    EXPECT_EQ(queryParam(url, "prompt"), "consent");
    const std::string redirect = queryParam(url, "redirect_uri");
    EXPECT_EQ(redirect.rfind("http://127.0.0.1:", 0), 0u);
    EXPECT_EQ(redirect.substr(redirect.rfind('/')), "/oauth2redirect") << "the registered path is kept";

    // Named by the id_token's subject; the authorisation kept under the account's key.
    const sandbox::SandboxAccount expected = sandbox_->account("google");
    const auto account = posted.result->account();
    EXPECT_EQ(account->userId, expected.userId);
    EXPECT_EQ(account->email, expected.email);
    EXPECT_TRUE(VXCloudTokenStore::load(VXCloudService::googleDrive, "VX_Google_Drive_" + expected.userId));

    // The host's own scopes replace the default; identity is still asked for.
    manager().setup(nullptr, std::make_shared<VXCloudGoogleDriveInfo>(
                                 kGoogleClientId, "http://127.0.0.1/",
                                 std::vector<std::string>{"email", "https://www.googleapis.com/auth/drive"},
                                 kGoogleClientSecret));
    manager().authorize(browser, VXCloudService::googleDrive);
    EXPECT_EQ(expectOneResult().dict.value("status", ""), "success");
    EXPECT_EQ(queryParam(browser->lastUrl(), "scope"), "openid email https://www.googleapis.com/auth/drive");
}

TEST_F(GoogleLink, WithoutAnIdTokenTheUserinfoEndpointNamesTheUser) {
    const auto seeded = sandbox_->accounts("google");
    ASSERT_GE(seeded.size(), 2u);
    // The token endpoint answers with Grace's tokens and no id_token.
    ASSERT_TRUE(sandbox_->enqueueFault(kTokenRoute,
                                       answerWith(tokenAnswer(seeded[1].accessToken, seeded[1].refreshToken, nullptr))));
    const PostedResult posted = signIn();
    ASSERT_EQ(posted.dict.value("status", ""), "success") << posted.dict.dump();
    EXPECT_EQ(posted.result->account()->userId, seeded[1].userId);
    EXPECT_EQ(posted.result->account()->email, seeded[1].email);
    EXPECT_EQ(requests("google/oauth2/userinfo"), 1);

    // A userinfo endpoint that refuses the token fails the sign-in.
    ASSERT_TRUE(sandbox_->enqueueFault(kTokenRoute, answerWith(tokenAnswer("not-a-token", "", nullptr))));
    const PostedResult refused = signIn();
    EXPECT_EQ(refused.dict, json({{"status", "error"}}));
    ASSERT_TRUE(refused.result.has_value());
    EXPECT_EQ(refused.result->cloudError()->errorCode, ErrorCode::fileUpload) << refused.result->message();
}

TEST_F(GoogleLink, AGrantForAnotherAppWithoutAUserOrWithoutDriveAccessIsRefused) {
    const sandbox::SandboxAccount ada = sandbox_->account("google");
    ASSERT_TRUE(sandbox_->enqueueFault(
        kTokenRoute, answerWith(tokenAnswer(ada.accessToken, ada.refreshToken,
                                            {{"aud", "someone-else.apps"}, {"sub", ada.userId}, {"email", ada.email}}))));
    PostedResult posted = signIn();
    EXPECT_EQ(posted.dict, json({{"status", "error"}}));
    ASSERT_TRUE(posted.result.has_value());
    EXPECT_EQ(posted.result->cloudError()->errorCode, ErrorCode::authentication);

    ASSERT_TRUE(sandbox_->enqueueFault(
        kTokenRoute, answerWith(tokenAnswer(ada.accessToken, ada.refreshToken, {{"aud", kGoogleClientId}}))));
    posted = signIn();
    EXPECT_EQ(posted.dict, json({{"status", "error"}}));

    json answer = json::parse(tokenAnswer(ada.accessToken, ada.refreshToken, nullptr));
    answer["id_token"] = "no-dots-here";
    ASSERT_TRUE(sandbox_->enqueueFault(kTokenRoute, answerWith(answer.dump())));
    posted = signIn();
    EXPECT_EQ(posted.dict, json({{"status", "error"}}));

    // The person unticked Drive access on the consent screen: identity alone links nothing.
    const json claims = {{"aud", kGoogleClientId}, {"sub", ada.userId}, {"email", ada.email}};
    ASSERT_TRUE(sandbox_->enqueueFault(
        kTokenRoute, answerWith(tokenAnswer(ada.accessToken, ada.refreshToken, claims,
                                            "openid https://www.googleapis.com/auth/userinfo.email"))));
    posted = signIn();
    EXPECT_EQ(posted.dict, json({{"status", "error"}}));
    ASSERT_TRUE(posted.result.has_value());
    EXPECT_EQ(posted.result->cloudError()->errorCode, ErrorCode::authentication);
    EXPECT_NE(posted.result->message().find("Google Drive access was not granted"), std::string::npos);

    EXPECT_FALSE(VXCloudUserDefaults::loadAccounts({VXCloudService::googleDrive}).has_value());
    EXPECT_TRUE(VXCloudTokenStore::storageNames(VXCloudService::googleDrive).empty());
}

TEST_F(GoogleLink, AReconsentWithoutARefreshTokenKeepsTheStoredOne) {
    auto first = link(VXCloudService::googleDrive);
    ASSERT_TRUE(first);
    const auto before = VXCloudTokenStore::load(VXCloudService::googleDrive, first->key());
    ASSERT_TRUE(before && !before->refreshToken.empty());

    const sandbox::SandboxAccount ada = sandbox_->account("google");
    ASSERT_TRUE(sandbox_->enqueueFault(
        kTokenRoute, answerWith(tokenAnswer(ada.accessToken, "",
                                            {{"aud", kGoogleClientId}, {"sub", ada.userId}, {"email", ada.email}}))));
    const PostedResult posted = signIn();
    ASSERT_EQ(posted.dict.value("status", ""), "success") << posted.dict.dump();
    const auto after = VXCloudTokenStore::load(VXCloudService::googleDrive, first->key());
    ASSERT_TRUE(after.has_value());
    EXPECT_EQ(after->accessToken, ada.accessToken);
    EXPECT_EQ(after->refreshToken, before->refreshToken);
}

TEST_F(GoogleLink, ARedirectUriTheHostReceivesIsCompletedThroughTheManager) {
    const std::string appRedirect = "https://app.example.com/oauth2redirect";
    setUpManager(appRedirect);
    auto browser = std::make_shared<SandboxBrowser>(Action::wait);
    manager().authorize(browser, VXCloudService::googleDrive);
    EXPECT_EQ(queryParam(browser->lastUrl(), "redirect_uri"), appRedirect);

    const HttpResponse decision = SandboxBrowser::decide(browser->lastUrl(), true, {}, false);
    const std::string location = decision.headers.get("Location").value_or("");
    ASSERT_EQ(location.rfind(appRedirect + "?", 0), 0u) << location;
    EXPECT_FALSE(manager().handleDropboxRedirect(location)) << "not Dropbox's sign-in";
    EXPECT_TRUE(manager().handleRedirectURL(location));
    const PostedResult posted = expectOneResult();
    EXPECT_EQ(posted.dict.value("status", ""), "success") << posted.dict.dump();
}

}  // namespace
}  // namespace vxcloud::testing
