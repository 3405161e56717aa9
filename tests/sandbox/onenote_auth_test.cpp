// OneNote's sign-in through the shared identity platform endpoints, the Notes scopes on the
// API, and throttling in OneNote's words.
#include "sandbox/OneNoteWireTest.h"

namespace vxcloud::sandbox::test {
namespace {

class OneNoteAuth : public OneNoteWireTest {
protected:
    static std::string enc(const std::string& text) { return HttpClient::urlEncode(text); }
    httplib::Result token(const std::string& form) {
        return client->Post("/onenote/common/oauth2/v2.0/token", form, "application/x-www-form-urlencoded");
    }
    // A granted token answer for `scope`, signed in and approved at once.
    json signIn(const std::string& scope) {
        const std::string redirect = "http://127.0.0.1:8400/callback";
        auto approved = client->Get(("/onenote/common/oauth2/v2.0/authorize?client_id=app-id&response_type=code"
                                     "&state=s1&redirect_uri=" + enc(redirect) + "&code_challenge=" + kChallenge +
                                     "&code_challenge_method=S256&sandbox_decision=approve&scope=" + enc(scope))
                                        .c_str());
        if (!approved || approved->status != 302) return json();
        httplib::Params params;
        const std::string location = approved->get_header_value("Location");
        httplib::detail::parse_query_text(location.substr(location.find('?') + 1), params);
        auto granted = token("grant_type=authorization_code&client_id=app-id&code=" + enc(params.find("code")->second) +
                             "&redirect_uri=" + enc(redirect) + "&code_verifier=" + std::string(50, 'g'));
        return parse(granted);
    }
    static constexpr const char* kChallenge = "Otzm3Ipup5JgxDB2eNfbJMxjKRCBJOkmG6cjDAftWG4";  // S256 of 50 'g'
};

TEST_F(OneNoteAuth, SignInGivesTokensForNotesAndRefreshes) {
    const json tokens = signIn("Notes.Create offline_access");
    ASSERT_TRUE(tokens.contains("access_token")) << tokens.dump();
    EXPECT_EQ(tokens["token_type"], "Bearer");
    EXPECT_EQ(tokens["scope"], "Notes.Create offline_access");
    auto listed = client->Get((std::string(kGraph) + "notebooks").c_str(), bearer(tokens["access_token"]));
    EXPECT_EQ(listed->status, 200);
    auto made = client->Post((std::string(kGraph) + "notebooks").c_str(), bearer(tokens["access_token"]),
                             R"({"displayName": "Mine"})", "application/json");
    EXPECT_EQ(made->status, 201) << "Notes.Create may make notebooks";

    auto refreshed = token("grant_type=refresh_token&client_id=app-id&scope=Notes.Create&refresh_token=" +
                           enc(tokens["refresh_token"]));
    ASSERT_EQ(refreshed->status, 200) << refreshed->body;
    EXPECT_NE(parse(refreshed)["refresh_token"], tokens["refresh_token"]);
    EXPECT_EQ(client->Get((std::string(kGraph) + "notebooks").c_str(), bearer(parse(refreshed)["access_token"]))->status,
              200);

    const json profileOnly = signIn("User.Read");
    EXPECT_FALSE(profileOnly.contains("refresh_token")) << "no offline_access, no refresh token";
    auto denied = client->Get((std::string(kGraph) + "notebooks").c_str(), bearer(profileOnly["access_token"]));
    EXPECT_EQ(denied->status, 403);
    EXPECT_EQ(codeOf(denied), "40004");
    auto graphAnonymous = client->Get((std::string(kGraph) + "notebooks").c_str());
    EXPECT_EQ(graphAnonymous->status, 401);
    EXPECT_EQ(codeOf(graphAnonymous), "InvalidAuthenticationToken") << "Graph's gateway answers before OneNote";
    auto legacyAnonymous = client->Get((std::string(kLegacy) + "notebooks").c_str());
    EXPECT_EQ(legacyAnonymous->status, 401);
    EXPECT_EQ(codeOf(legacyAnonymous), "40001");
}

TEST_F(OneNoteAuth, ThrottlingAnswers429WithCode20166) {
    ASSERT_TRUE(sandbox.enqueueFault("onenote/notebooks/list", *FaultSpec::parse("status=429")));
    auto plain = get("notebooks");
    ASSERT_TRUE(plain);
    EXPECT_EQ(plain->status, 429);
    EXPECT_EQ(codeOf(plain), "20166");
    EXPECT_FALSE(plain->has_header("Retry-After")) << "OneNote's 429s carry none of their own";
    EXPECT_TRUE(parse(plain)["error"]["innerError"].contains("date"));
    EXPECT_FALSE(plain->get_header_value("request-id").empty());

    ASSERT_TRUE(sandbox.enqueueFault("onenote/*", *FaultSpec::parse("status=429;retry-after=7")));
    auto told = get("notebooks", kLegacy);
    EXPECT_EQ(told->status, 429);
    EXPECT_EQ(told->get_header_value("Retry-After"), "7");
    EXPECT_EQ(parse(told)["error"]["@api.url"], "http://aka.ms/onenote-errors#C20166");
    EXPECT_EQ(sandbox.stats("onenote/notebooks/list").faultsHit, 2);
    EXPECT_EQ(get("notebooks")->status, 200);
}

}  // namespace
}  // namespace vxcloud::sandbox::test
