// Box's sign-in and the API's gate on the sandbox: codes exchanged with the client secret,
// single-use refresh tokens (and the optional replay grace), revoking, empty 401s with Box's
// challenge, box-version, and injected faults in Box's words.
#include "sandbox/BoxWireTest.h"

namespace vxcloud::sandbox::test {
namespace {

class BoxAuth : public BoxWireTest {
protected:
    httplib::Result token(const std::string& formBody) {
        return client->Post("/box/oauth2/token", formBody, "application/x-www-form-urlencoded");
    }
    httplib::Result refresh(const std::string& refreshToken, const std::string& secret = "s3cret") {
        return token("grant_type=refresh_token&client_id=app&client_secret=" + secret + "&refresh_token=" +
                     enc(refreshToken));
    }
    // A code from the authorize page, decided at once.
    std::string code(const std::string& extra = {}) {
        auto answer = client->Get(("/box/api/oauth2/authorize?response_type=code&client_id=app&state=s1"
                                   "&redirect_uri=" + enc(redirect) + extra + "&sandbox_decision=approve")
                                      .c_str());
        EXPECT_EQ(answer->status, 302);
        httplib::Params params;
        const std::string location = answer->get_header_value("Location");
        httplib::detail::parse_query_text(location.substr(location.find('?') + 1), params);
        EXPECT_EQ(params.find("state")->second, "s1");
        return params.find("code")->second;
    }

    const std::string redirect = "http://127.0.0.1:8400/callback";
};

TEST_F(BoxAuth, CodeExchangeWantsTheClientSecret) {
    const std::string first = code();
    auto noSecret = token("grant_type=authorization_code&client_id=app&code=" + first);
    ASSERT_EQ(noSecret->status, 400);
    EXPECT_EQ(parse(noSecret)["error"], "invalid_client");

    // No redirect_uri here: Box's token request has none.
    auto granted = token("grant_type=authorization_code&client_id=app&client_secret=s3cret&code=" + first);
    ASSERT_EQ(granted->status, 200) << granted->body;
    const json tokens = parse(granted);
    EXPECT_EQ(tokens["token_type"], "bearer");
    EXPECT_EQ(tokens["expires_in"], 3600);
    EXPECT_EQ(tokens["restricted_to"], json::array());
    EXPECT_FALSE(tokens.contains("scope"));
    EXPECT_EQ(client->Get(api("/users/me").c_str(), bearer(tokens["access_token"]))->status, 200);

    auto otherSecret = token("grant_type=authorization_code&client_id=app&client_secret=guess&code=" + code());
    EXPECT_EQ(otherSecret->status, 401);
    EXPECT_EQ(parse(otherSecret)["error"], "invalid_client");

    // PKCE is optional at Box, but checked when the app uses it.
    const std::string verifier(50, 'g');
    const std::string challenge = "Otzm3Ipup5JgxDB2eNfbJMxjKRCBJOkmG6cjDAftWG4";  // S256 of `verifier`
    const std::string pkce = code("&code_challenge=" + challenge + "&code_challenge_method=S256");
    EXPECT_EQ(token("grant_type=authorization_code&client_id=app&client_secret=s3cret&code_verifier=" +
                    std::string(50, 'h') + "&code=" + pkce)
                  ->status,
              400);
    EXPECT_EQ(token("grant_type=authorization_code&client_id=app&client_secret=s3cret&code_verifier=" + verifier +
                    "&code=" + pkce)
                  ->status,
              200);
}

TEST_F(BoxAuth, RefreshTokensAreSingleUse) {
    auto first = refresh(box.refreshToken);
    ASSERT_EQ(first->status, 200) << first->body;
    const json pair = parse(first);
    EXPECT_NE(pair["refresh_token"], box.refreshToken);
    auto reused = refresh(box.refreshToken);
    ASSERT_EQ(reused->status, 400);
    EXPECT_EQ(parse(reused), json({{"error", "invalid_grant"}, {"error_description", "Invalid refresh token"}}));
    EXPECT_EQ(refresh(pair["refresh_token"], "")->status, 400) << "every refresh needs the secret";

    // With the grace, the same token again answers the same pair until that pair is used.
    ASSERT_TRUE(sandbox.configure("box", {{"refresh_grace", true}}));
    const json second = parse(refresh(pair["refresh_token"]));
    const json replayed = parse(refresh(pair["refresh_token"]));
    EXPECT_EQ(replayed["access_token"], second["access_token"]);
    EXPECT_EQ(replayed["refresh_token"], second["refresh_token"]);
    EXPECT_EQ(client->Get(api("/users/me").c_str(), bearer(second["access_token"]))->status, 200);
    EXPECT_EQ(refresh(pair["refresh_token"])->status, 400) << "the new pair is in use";
    const json third = parse(refresh(second["refresh_token"]));
    ASSERT_TRUE(third.contains("refresh_token")) << third.dump();

    sandbox.advanceClock(61LL * 24 * 3600);
    EXPECT_EQ(parse(refresh(third["refresh_token"])),
              json({{"error", "invalid_grant"}, {"error_description", "Refresh token has expired"}}));
}

TEST_F(BoxAuth, TheGateAndInjectedFaultsSpeakBox) {
    for (const std::string header : {"", "Bearer nonsense"}) {
        httplib::Headers headers;
        if (!header.empty()) headers.emplace("Authorization", header);
        auto refused = client->Get(api("/folders/0").c_str(), headers);
        ASSERT_EQ(refused->status, 401);
        EXPECT_TRUE(refused->body.empty());
        EXPECT_EQ(refused->get_header_value("WWW-Authenticate"),
                  "Bearer realm=\"Service\", error=\"invalid_token\", error_description=\"The access token provided is "
                  "invalid.\"");
        EXPECT_FALSE(refused->get_header_value("box-request-id").empty());
    }
    ASSERT_TRUE(sandbox.enqueueFault("box/folders/get", *FaultSpec::parse("expire-token")));
    EXPECT_EQ(get("/folders/0")->status, 401);
    box.accessToken = parse(refresh(box.refreshToken))["access_token"];

    auto pinned = client->Get(api("/folders/0").c_str(), {{"Authorization", "Bearer " + box.accessToken},
                                                            {"box-version", "2024.0"}});
    EXPECT_EQ(pinned->status, 200);
    auto unknown = client->Get(api("/folders/0").c_str(), {{"Authorization", "Bearer " + box.accessToken},
                                                             {"box-version", "2031.7"}});
    EXPECT_EQ(unknown->status, 400);
    EXPECT_EQ(codeOf(unknown), "invalid_api_version");

    ASSERT_TRUE(sandbox.enqueueFault("box/*", *FaultSpec::parse("status=429;retry-after=3")));
    auto limited = get("/folders/0/items");
    ASSERT_EQ(limited->status, 429);
    EXPECT_EQ(codeOf(limited), "rate_limit_exceeded");
    EXPECT_EQ(limited->get_header_value("retry-after"), "3");
    const json body = parse(limited);
    EXPECT_EQ(body["type"], "error");
    EXPECT_EQ(body["status"], 429);
    EXPECT_EQ(body["request_id"], limited->get_header_value("box-request-id"));
    ASSERT_TRUE(sandbox.enqueueFault("box/upload/new", *FaultSpec::parse("status=409;error=name_temporarily_reserved")));
    EXPECT_EQ(codeOf(uploadNew("a.txt", "x")), "name_temporarily_reserved");
    ASSERT_TRUE(sandbox.enqueueFault("box/files/get", *FaultSpec::parse("status=401")));
    EXPECT_TRUE(get("/files/1")->body.empty());
    ASSERT_TRUE(sandbox.enqueueFault("box/oauth2/token", *FaultSpec::parse("status=503")));
    EXPECT_TRUE(parse(refresh(box.refreshToken)).contains("error")) << "OAuth's shape on the token endpoint";

    auto revoked = client->Post("/box/oauth2/revoke",
                                "client_id=app&client_secret=s3cret&token=" + enc(box.accessToken),
                                "application/x-www-form-urlencoded");
    EXPECT_EQ(revoked->status, 200);
    EXPECT_EQ(get("/folders/0")->status, 401);
}

}  // namespace
}  // namespace vxcloud::sandbox::test
