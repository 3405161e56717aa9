// The identity platform's endpoints on the sandbox: PKCE sign-in approved and denied, refresh
// tokens only with offline_access and a new one on every refresh, and invalid_grant in the
// platform's error body.
#include "sandbox/OneDriveWireTest.h"

namespace vxcloud::sandbox::test {
namespace {

class OneDriveAuth : public OneDriveWireTest {
protected:
    httplib::Result token(const std::string& form) {
        return client->Post("/onedrive/common/oauth2/v2.0/token", form, "application/x-www-form-urlencoded");
    }
    static std::string redirectParam(const httplib::Result& result, const std::string& key) {
        httplib::Params params;
        const std::string location = result->get_header_value("Location");
        httplib::detail::parse_query_text(location.substr(location.find('?') + 1), params);
        const auto it = params.find(key);
        return it == params.end() ? std::string() : it->second;
    }
    // A code for `scope`, decided at once.
    httplib::Result authorize(const std::string& scope, const std::string& decision = "approve") {
        std::string path = "/onedrive/common/oauth2/v2.0/authorize?client_id=app-id&response_type=code"
                           "&response_mode=query&state=s1&redirect_uri=" + enc(redirect) +
                           "&code_challenge=" + challenge + "&code_challenge_method=S256&sandbox_decision=" + decision;
        if (!scope.empty()) path += "&scope=" + enc(scope);
        return client->Get(path.c_str());
    }
    httplib::Result redeem(const std::string& code, const std::string& codeVerifier) {
        return token("grant_type=authorization_code&client_id=app-id&code=" + enc(code) + "&redirect_uri=" +
                     enc(redirect) + "&code_verifier=" + codeVerifier);
    }

    const std::string redirect = "http://127.0.0.1:8400/callback";
    const std::string verifier = std::string(50, 'g');
    const std::string challenge = "Otzm3Ipup5JgxDB2eNfbJMxjKRCBJOkmG6cjDAftWG4";  // S256 of `verifier`
};

TEST_F(OneDriveAuth, CodeWithPkceGivesTokensAndIsRedeemedOnce) {
    auto approved = authorize("offline_access Files.ReadWrite User.Read");
    ASSERT_TRUE(approved);
    ASSERT_EQ(approved->status, 302);
    EXPECT_EQ(redirectParam(approved, "state"), "s1");
    const std::string code = redirectParam(approved, "code");

    auto wrong = redeem(code, std::string(50, 'h'));
    ASSERT_TRUE(wrong);
    EXPECT_EQ(wrong->status, 400);
    EXPECT_EQ(parse(wrong)["error"], "invalid_grant");
    EXPECT_EQ(parse(wrong)["error_codes"], json::array({501481}));

    auto granted = redeem(code, verifier);
    ASSERT_TRUE(granted);
    ASSERT_EQ(granted->status, 200) << granted->body;
    const json tokens = parse(granted);
    EXPECT_EQ(tokens["token_type"], "Bearer");
    EXPECT_EQ(tokens["expires_in"], 3599);
    EXPECT_EQ(tokens["scope"], "offline_access Files.ReadWrite User.Read");
    EXPECT_FALSE(tokens["refresh_token"].get<std::string>().empty());
    EXPECT_EQ(client->Get("/onedrive/v1.0/me/drive", bearer(tokens["access_token"]))->status, 200);

    auto replay = redeem(code, verifier);
    ASSERT_TRUE(replay);
    EXPECT_EQ(replay->status, 400);
    const json error = parse(replay);
    EXPECT_EQ(error["error"], "invalid_grant");
    EXPECT_EQ(error["error_codes"], json::array({54005}));
    EXPECT_EQ(error["error_description"].get<std::string>().rfind("AADSTS54005:", 0), 0u);
    for (const char* field : {"timestamp", "trace_id", "correlation_id"}) EXPECT_TRUE(error.contains(field)) << field;

    auto readOnly = redeem(redirectParam(authorize("Files.Read"), "code"), verifier);
    ASSERT_TRUE(readOnly);
    const json limited = parse(readOnly);
    EXPECT_FALSE(limited.contains("refresh_token")) << "no offline_access, no refresh token";
    auto write = client->Put("/onedrive/v1.0/me/drive/root:/a.txt:/content", bearer(limited["access_token"]), "x",
                             "text/plain");
    ASSERT_TRUE(write);
    EXPECT_EQ(write->status, 403);
    EXPECT_EQ(codeOf(write), "accessDenied");

    auto denied = authorize("Files.ReadWrite", "deny");
    ASSERT_TRUE(denied);
    EXPECT_EQ(redirectParam(denied, "error"), "access_denied");
    auto unscoped = authorize("");
    ASSERT_TRUE(unscoped);
    EXPECT_EQ(unscoped->status, 302);
    EXPECT_EQ(redirectParam(unscoped, "error"), "invalid_request");
    auto secret = token("grant_type=refresh_token&client_id=app-id&client_secret=s&refresh_token=" +
                        enc(graph.refreshToken));
    ASSERT_TRUE(secret);
    EXPECT_EQ(secret->status, 401) << "a public client sends no secret";
    EXPECT_EQ(parse(secret)["error"], "invalid_client");
}

TEST_F(OneDriveAuth, EveryRefreshAnswersANewRefreshToken) {
    auto refresh = [&](const std::string& refreshToken) {
        return token("grant_type=refresh_token&client_id=app-id&scope=Files.ReadWrite&refresh_token=" +
                     enc(refreshToken));
    };
    auto first = refresh(graph.refreshToken);
    ASSERT_TRUE(first);
    ASSERT_EQ(first->status, 200) << first->body;
    const std::string rotated = parse(first)["refresh_token"];
    EXPECT_NE(rotated, graph.refreshToken);
    EXPECT_EQ(refresh(rotated)->status, 200);
    EXPECT_EQ(refresh(graph.refreshToken)->status, 200) << "the old one is not actively revoked";

    ASSERT_TRUE(sandbox.revokeRefreshToken("onedrive", rotated));
    auto revoked = refresh(rotated);
    ASSERT_TRUE(revoked);
    EXPECT_EQ(revoked->status, 400);
    EXPECT_EQ(parse(revoked)["error"], "invalid_grant");
    EXPECT_EQ(parse(revoked)["error_codes"], json::array({70000}));
}

}  // namespace
}  // namespace vxcloud::sandbox::test
