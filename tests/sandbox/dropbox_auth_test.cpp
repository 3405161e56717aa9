// Dropbox auth and request validation: expired and invalid tokens, refresh, the PKCE code
// flow through the authorize page, and the 400s for malformed requests.
#include "sandbox/WireTest.h"

namespace vxcloud::sandbox::test {
namespace {

class DropboxAuth : public WireTest {
protected:
    httplib::Result token(const std::string& form) {
        return client->Post("/dropbox/api/oauth2/token", form, "application/x-www-form-urlencoded");
    }
    // The query parameters of a redirect's Location.
    static std::multimap<std::string, std::string> redirectParams(const httplib::Result& res) {
        httplib::Params params;
        const std::string location = res->get_header_value("Location");
        httplib::detail::parse_query_text(location.substr(location.find('?') + 1), params);
        return {params.begin(), params.end()};
    }
    static std::string param(const std::multimap<std::string, std::string>& params, const std::string& key) {
        const auto it = params.find(key);
        return it == params.end() ? std::string() : it->second;
    }
};

TEST_F(DropboxAuth, ExpiredTokenIsRefreshedThroughTheTokenEndpoint) {
    ASSERT_EQ(rpc("users/get_current_account", nullptr)->status, 200);
    // The fault expires the token just before this request uses it.
    client->set_default_headers({{"X-Sandbox-Fault", "expire-token"}});
    const auto expired = rpc("users/get_current_account", nullptr);
    client->set_default_headers({});
    ASSERT_EQ(expired->status, 401);
    EXPECT_EQ(parse(expired)["error"], json({{".tag", "expired_access_token"}}));
    EXPECT_EQ(rpc("users/get_current_account", nullptr)->status, 401) << "expired stays expired";

    const auto refreshed = token("grant_type=refresh_token&client_id=app&refresh_token=" + account.refreshToken);
    ASSERT_EQ(refreshed->status, 200) << refreshed->body;
    const json grant = parse(refreshed);
    EXPECT_EQ(grant["token_type"], "bearer");
    EXPECT_EQ(grant["expires_in"], 14400);
    EXPECT_FALSE(grant.contains("refresh_token")) << "Dropbox does not rotate refresh tokens";
    const auto me = rpc("users/get_current_account", nullptr, grant["access_token"]);
    ASSERT_EQ(me->status, 200);
    EXPECT_EQ(parse(me)["email"], account.email);

    // Lifetimes follow the sandbox clock.
    sandbox.advanceClock(14400);
    EXPECT_EQ(parse(rpc("users/get_current_account", nullptr, grant["access_token"]))["error"][".tag"],
              "expired_access_token");
    EXPECT_EQ(parse(rpc("users/get_current_account", nullptr, "sl.unknown"))["error"][".tag"], "invalid_access_token");

    ASSERT_TRUE(sandbox.revokeRefreshToken("dropbox", account.refreshToken));
    const auto revoked = token("grant_type=refresh_token&client_id=app&refresh_token=" + account.refreshToken);
    EXPECT_EQ(revoked->status, 400);
    EXPECT_EQ(parse(revoked)["error"], "invalid_grant");
}

TEST_F(DropboxAuth, PkceCodeFlowApprovedAndDenied) {
    const std::string verifier(64, 'v');
    // BASE64URL(SHA256("vvvv...")) for the 64-character verifier above.
    const std::string challenge = "w1TpKUdYE9hUAcNSeeSRFioHDxfUxuHho_JHAfZ_vDM";
    const std::string redirect = "http://127.0.0.1:9/callback";
    const std::string authorize = "/dropbox/oauth2/authorize?client_id=app&response_type=code&token_access_type=offline"
                                  "&redirect_uri=" + httplib::detail::encode_query_param(redirect) +
                                  "&state=s%20t&code_challenge=" + challenge + "&code_challenge_method=S256";
    const auto page = client->Get(authorize.c_str());
    ASSERT_EQ(page->status, 200) << page->body;
    const json pending = sandbox.pendingAuthorizations("dropbox");
    ASSERT_EQ(pending.size(), 1u);
    const std::string request = pending[0]["request"];
    EXPECT_NE(page->body.find(request), std::string::npos);

    const auto approved = client->Get(("/dropbox/oauth2/authorize/decision?approve=1&request=" + request).c_str());
    ASSERT_EQ(approved->status, 302);
    const auto params = redirectParams(approved);
    EXPECT_EQ(approved->get_header_value("Location").rfind(redirect + "?", 0), 0u);
    EXPECT_EQ(param(params, "state"), "s t");
    const std::string code = param(params, "code");
    ASSERT_FALSE(code.empty());

    const std::string exchange = "grant_type=authorization_code&client_id=app&code=" + code +
                                 "&redirect_uri=" + httplib::detail::encode_query_param(redirect) + "&code_verifier=";
    const auto wrong = token(exchange + std::string(64, 'w'));
    EXPECT_EQ(wrong->status, 400);
    EXPECT_EQ(parse(wrong)["error"], "invalid_grant");
    const auto granted = token(exchange + verifier);
    ASSERT_EQ(granted->status, 200) << granted->body;
    const json tokens = parse(granted);
    EXPECT_EQ(tokens["account_id"], account.userId);
    EXPECT_FALSE(tokens["refresh_token"].get<std::string>().empty());
    EXPECT_EQ(rpc("users/get_current_account", nullptr, tokens["access_token"])->status, 200);
    EXPECT_EQ(parse(token(exchange + verifier))["error"], "invalid_grant") << "a code works once";

    // Denied: back to the app with access_denied and the state.
    ASSERT_EQ(client->Get(authorize.c_str())->status, 200);
    const std::string second = sandbox.pendingAuthorizations("dropbox")[0]["request"];
    const auto denied = client->Get(("/dropbox/oauth2/authorize/decision?approve=0&request=" + second).c_str());
    ASSERT_EQ(denied->status, 302);
    EXPECT_EQ(param(redirectParams(denied), "error"), "access_denied");
    EXPECT_EQ(param(redirectParams(denied), "state"), "s t");

    // Non-interactive: decided at once.
    const auto automatic = client->Get((authorize + "&sandbox_auto_approve=1").c_str());
    ASSERT_EQ(automatic->status, 302);
    EXPECT_FALSE(param(redirectParams(automatic), "code").empty());
}

// Dropbox takes the token request's parameters in the query string as well as in a form
// body; its own SDKs send them in the URL with an empty body.
TEST_F(DropboxAuth, TokenParametersMayComeInTheQueryString) {
    const std::string query = "/dropbox/api/oauth2/token?grant_type=refresh_token&client_id=app&refresh_token=" +
                              httplib::detail::encode_query_param(account.refreshToken);
    const auto bare = client->Post(query.c_str(), "", "");
    ASSERT_TRUE(bare);
    ASSERT_EQ(bare->status, 200) << bare->body;
    EXPECT_EQ(rpc("users/get_current_account", nullptr, parse(bare)["access_token"])->status, 200);
    const auto labelled = client->Post(query.c_str(), "", "application/x-www-form-urlencoded");
    ASSERT_TRUE(labelled);
    EXPECT_EQ(labelled->status, 200) << labelled->body;

    // Body fields win over the query's, and a bad grant is still refused.
    const auto overridden = client->Post(query.c_str(), "refresh_token=unknown", "application/x-www-form-urlencoded");
    ASSERT_TRUE(overridden);
    EXPECT_EQ(overridden->status, 400);
    EXPECT_EQ(parse(overridden)["error"], "invalid_grant");
    const auto nothing = client->Post("/dropbox/api/oauth2/token", "", "");
    ASSERT_TRUE(nothing);
    EXPECT_EQ(nothing->status, 400) << "no parameters anywhere";
}

TEST_F(DropboxAuth, MalformedRequestsAreRefusedWithPlainText400) {
    auto post = [&](const std::string& path, httplib::Headers headers, const std::string& body,
                    const std::string& type) {
        return client->Post(path.c_str(), headers, body, type.c_str());
    };
    auto withArg = [&](const std::string& arg) {
        httplib::Headers h = auth();
        h.emplace("Dropbox-API-Arg", arg);
        return h;
    };
    const auto garbled = post("/dropbox/content/2/files/upload", withArg("{\"path\": \"/a"), "x", "application/octet-stream");
    ASSERT_EQ(garbled->status, 400);
    EXPECT_NE(garbled->body.find("could not decode input as JSON"), std::string::npos) << garbled->body;
    const auto rawUtf8 = post("/dropbox/content/2/files/upload", withArg("{\"path\": \"/R\xc3\xa9sum\xc3\xa9.pdf\"}"), "x",
                              "application/octet-stream");
    EXPECT_EQ(rawUtf8->status, 400);
    const auto escaped = post("/dropbox/content/2/files/upload", withArg(R"({"path": "/R\u00e9sum\u00e9 \ud83d\udcc4.pdf"})"),
                              "x", "application/octet-stream");
    ASSERT_EQ(escaped->status, 200) << escaped->body;
    EXPECT_EQ(parse(escaped)["name"], "R\xc3\xa9sum\xc3\xa9 \xf0\x9f\x93\x84.pdf");

    const auto jsonUpload = post("/dropbox/content/2/files/upload", withArg(R"({"path": "/a"})"), "x",
                                 "application/json; charset=UTF-8");
    EXPECT_EQ(jsonUpload->status, 400);
    EXPECT_NE(jsonUpload->body.find("Bad HTTP \"Content-Type\" header"), std::string::npos);
    EXPECT_EQ(post("/dropbox/content/2/files/download", withArg(R"({"path": "/a.pdf"})"), "",
                   "application/x-www-form-urlencoded")
                  ->status,
              400);
    EXPECT_EQ(rpc("files/get_metadata", json::object())->status, 400) << "missing path";
    EXPECT_EQ(rpc("files/get_metadata", {{"path", 7}})->status, 400);
    EXPECT_EQ(rpc("files/get_metadata", {{"path", "relative"}})->status, 400);
    EXPECT_EQ(rpc("files/upload", {{"path", "/a"}})->status, 404) << "content routes live on the content host";
    EXPECT_EQ(client->Post("/dropbox/api/2/files/get_metadata", R"({"path": "/a"})", "application/json")->status, 400)
        << "no Authorization header";
    const auto timestamp = upload("files/upload", {{"path", "/t.pdf"}, {"client_modified", "2024-05-01T09:30:00.5Z"}}, "x");
    EXPECT_EQ(timestamp->status, 400);
}

}  // namespace
}  // namespace vxcloud::sandbox::test
