// Google's OAuth endpoints on the sandbox: the authorize page (scope required), the PKCE
// code exchange with an id_token naming the user, userinfo, refresh, invalid_grant, and
// revocation.
#include "sandbox/GoogleWireTest.h"

namespace vxcloud::sandbox::test {
namespace {

class GoogleAuth : public GoogleWireTest {
protected:
    httplib::Result token(const std::string& form) {
        return client->Post("/google/token", form, "application/x-www-form-urlencoded");
    }
    static std::string redirectParam(const httplib::Result& result, const std::string& key) {
        httplib::Params params;
        const std::string location = result->get_header_value("Location");
        httplib::detail::parse_query_text(location.substr(location.find('?') + 1), params);
        const auto it = params.find(key);
        return it == params.end() ? std::string() : it->second;
    }
    // The claims of a JWT, read without checking its signature.
    static json claimsOf(const std::string& jwt) {
        const auto first = jwt.find('.');
        const auto second = jwt.find('.', first + 1);
        const std::string payload = jwt.substr(first + 1, second - first - 1);
        static const std::string alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";
        std::string decoded;
        unsigned buffer = 0;
        int bits = 0;
        for (const char c : payload) {
            const auto value = alphabet.find(c);
            if (value == std::string::npos) return json();
            buffer = (buffer << 6) | static_cast<unsigned>(value);
            bits += 6;
            if (bits >= 8) {
                bits -= 8;
                decoded += static_cast<char>((buffer >> bits) & 0xFF);
            }
        }
        return json::parse(decoded, nullptr, false);
    }

    const std::string redirect = "http://127.0.0.1:9/callback";
    const std::string verifier = std::string(50, 'g');
    // BASE64URL(SHA256(verifier)) for the 50-character verifier above.
    const std::string challenge = "Otzm3Ipup5JgxDB2eNfbJMxjKRCBJOkmG6cjDAftWG4";

    std::string authorizePath(const std::string& scope) const {
        return "/google/o/oauth2/v2/auth?client_id=desktop-app&response_type=code&access_type=offline"
               "&prompt=consent&state=xyz&redirect_uri=" + enc(redirect) + "&code_challenge=" + challenge +
               "&code_challenge_method=S256" + (scope.empty() ? "" : "&scope=" + enc(scope));
    }
};

TEST_F(GoogleAuth, SignInNamesTheUserThroughIdTokenAndUserinfo) {
    auto missingScope = client->Get(authorizePath("").c_str());
    ASSERT_TRUE(missingScope);
    EXPECT_EQ(missingScope->status, 400);
    EXPECT_NE(missingScope->body.find("Missing required parameter: scope"), std::string::npos);

    auto page = client->Get(authorizePath("openid email https://www.googleapis.com/auth/drive.file").c_str());
    ASSERT_TRUE(page);
    ASSERT_EQ(page->status, 200);
    const json pending = sandbox.pendingAuthorizations("google");
    ASSERT_EQ(pending.size(), 1u);
    auto approved = client->Get(("/google/o/oauth2/v2/auth/decision?approve=1&request=" +
                                 pending[0]["request"].get<std::string>()).c_str());
    ASSERT_TRUE(approved);
    ASSERT_EQ(approved->status, 302);
    EXPECT_EQ(redirectParam(approved, "state"), "xyz");
    const std::string code = redirectParam(approved, "code");

    const std::string exchange = "grant_type=authorization_code&client_id=desktop-app&client_secret=not-secret&code=" +
                                 enc(code) + "&redirect_uri=" + enc(redirect) + "&code_verifier=";
    auto wrong = token(exchange + std::string(50, 'h'));
    ASSERT_TRUE(wrong);
    EXPECT_EQ(wrong->status, 400);
    EXPECT_EQ(parse(wrong)["error"], "invalid_grant");

    auto granted = token(exchange + verifier);
    ASSERT_TRUE(granted);
    ASSERT_EQ(granted->status, 200) << granted->body;
    const json tokens = parse(granted);
    EXPECT_EQ(tokens["token_type"], "Bearer");
    EXPECT_EQ(tokens["expires_in"], 3599);
    EXPECT_EQ(tokens["scope"],
              "openid https://www.googleapis.com/auth/userinfo.email https://www.googleapis.com/auth/drive.file");
    EXPECT_FALSE(tokens["refresh_token"].get<std::string>().empty());
    const json claims = claimsOf(tokens["id_token"]);
    EXPECT_EQ(claims["sub"], google.userId);
    EXPECT_EQ(claims["email"], google.email);
    EXPECT_EQ(claims["email_verified"], true);
    EXPECT_EQ(claims["aud"], "desktop-app");
    EXPECT_EQ(claims["iss"], "https://accounts.google.com");

    const std::string access = tokens["access_token"];
    const json me = parse(get("/v1/userinfo", access));
    EXPECT_EQ(me, (json{{"sub", google.userId}, {"email", google.email}, {"email_verified", true}}));
    EXPECT_EQ(parse(get("/oauth2/v3/userinfo", access))["sub"], google.userId);
    auto stranger = get("/v1/userinfo", "ya29.unknown");
    ASSERT_TRUE(stranger);
    EXPECT_EQ(stranger->status, 401);

    // drive.file is enough for Drive itself.
    EXPECT_EQ(get("/drive/v3/about?fields=user", access)->status, 200);
}

// A drive.file token reaches only what the app made: a folder the person made in Drive's
// web page is neither listed nor found by id, while the app's own folder is.
TEST_F(GoogleAuth, DriveFileTokensSeeOnlyWhatTheAppMade) {
    std::string error;
    const json byPerson = sandbox.putFolder("google", "/Made in the web page", {}, &error);
    ASSERT_TRUE(byPerson.is_object()) << error;
    const std::string personal = byPerson["id"];

    auto approved = client->Get((authorizePath("https://www.googleapis.com/auth/drive.file") +
                                 "&sandbox_decision=approve").c_str());
    ASSERT_TRUE(approved);
    ASSERT_EQ(approved->status, 302);
    auto granted = token("grant_type=authorization_code&client_id=desktop-app&code=" +
                         enc(redirectParam(approved, "code")) + "&redirect_uri=" + enc(redirect) +
                         "&code_verifier=" + verifier);
    ASSERT_TRUE(granted);
    ASSERT_EQ(granted->status, 200) << granted->body;
    const std::string perFile = parse(granted)["access_token"];

    auto made = client->Post("/google/drive/v3/files?fields=id", bearer(perFile),
                             json{{"name", "Made by the app"}, {"mimeType", kFolderType}}.dump(), "application/json");
    ASSERT_TRUE(made);
    ASSERT_EQ(made->status, 200) << made->body;
    const std::string own = parse(made)["id"];

    auto namesIn = [&](const std::string& token) {
        std::vector<std::string> names;
        const json listed = parse(get("/drive/v3/files?q=" + enc("'root' in parents") + "&fields=files(name)", token));
        for (const auto& file : listed.value("files", json::array())) names.push_back(file["name"]);
        return names;
    };
    EXPECT_EQ(namesIn(perFile), std::vector<std::string>{"Made by the app"});
    auto hidden = get("/drive/v3/files/" + personal, perFile);
    ASSERT_TRUE(hidden);
    EXPECT_EQ(hidden->status, 404);
    EXPECT_EQ(reasonOf(hidden), "notFound");
    EXPECT_EQ(get("/drive/v3/files/" + own, perFile)->status, 200);
    EXPECT_EQ(get("/drive/v3/files/root?fields=id", perFile)->status, 200) << "the top folder is always there";

    // The full drive scope sees both.
    EXPECT_EQ(namesIn(google.accessToken), (std::vector<std::string>{"Made in the web page", "Made by the app"}));
}

TEST_F(GoogleAuth, RefreshKeepsTheRefreshTokenUntilItIsRevoked) {
    auto refreshed = token("grant_type=refresh_token&client_id=app&refresh_token=" + enc(google.refreshToken));
    ASSERT_TRUE(refreshed);
    ASSERT_EQ(refreshed->status, 200) << refreshed->body;
    const json grant = parse(refreshed);
    EXPECT_FALSE(grant.contains("refresh_token")) << "Google keeps the refresh token it issued";
    EXPECT_TRUE(grant.contains("id_token"));
    EXPECT_EQ(get("/drive/v3/files", grant["access_token"])->status, 200);

    ASSERT_TRUE(sandbox.revokeRefreshToken("google", google.refreshToken));
    auto revoked = token("grant_type=refresh_token&client_id=app&refresh_token=" + enc(google.refreshToken));
    ASSERT_TRUE(revoked);
    EXPECT_EQ(revoked->status, 400);
    EXPECT_EQ(parse(revoked), (json{{"error", "invalid_grant"}, {"error_description", "Token has been expired or revoked."}}));
    EXPECT_EQ(get("/drive/v3/files", grant["access_token"])->status, 401) << "its access tokens die with it";
}

TEST_F(GoogleAuth, DeniedConsentAndRevocation) {
    auto denied = client->Get((authorizePath("openid") + "&sandbox_decision=deny").c_str());
    ASSERT_TRUE(denied);
    ASSERT_EQ(denied->status, 302);
    EXPECT_EQ(redirectParam(denied, "error"), "access_denied");

    auto revoke = client->Post("/google/revoke", "token=" + enc(google.accessToken), "application/x-www-form-urlencoded");
    ASSERT_TRUE(revoke);
    EXPECT_EQ(revoke->status, 200);
    EXPECT_EQ(get("/drive/v3/files")->status, 401);
    auto again = client->Post("/google/revoke", "token=" + enc(google.accessToken), "application/x-www-form-urlencoded");
    ASSERT_TRUE(again);
    EXPECT_EQ(again->status, 400) << "a revoked token is unknown";
    auto unknown = client->Post("/google/revoke", "token=nonsense", "application/x-www-form-urlencoded");
    ASSERT_TRUE(unknown);
    EXPECT_EQ(unknown->status, 400);
    EXPECT_EQ(parse(unknown)["error"], "invalid_token");
}

}  // namespace
}  // namespace vxcloud::sandbox::test
