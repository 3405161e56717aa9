// The pieces under every sign-in: PKCE values, redirect parsing, the loopback listener
// and the code exchange.
#include <gtest/gtest.h>

#include <atomic>
#include <map>
#include <mutex>
#include <set>

#include "../../src/auth/LoopbackRedirectListener.h"
#include "../../src/auth/OAuth2Flow.h"
#include "../../src/auth/Pkce.h"
#include "../../src/auth/RedirectUrl.h"
#include "auth/AuthTestSupport.h"
#include "support/LoopbackServer.h"

namespace vxcloud::testing {
namespace {

using namespace vxcloud::auth;

TEST(Pkce, ChallengeVerifierAndStateFollowRfc7636) {
    // RFC 7636, Appendix B.
    EXPECT_EQ(codeChallengeS256("dBjftJeZ4CVP-mB92K27uhbUJU1p1r_wW1gFWFOEjXk"),
              "E9Melhoa2OwvFrEMTJguCHaoeK1t8URWbuGJSstw-cM");

    const std::string verifier = makeCodeVerifier();
    EXPECT_EQ(verifier.size(), 128u);
    EXPECT_EQ(verifier.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-._~"),
              std::string::npos);
    std::set<std::string> seen;
    for (int i = 0; i < 50; ++i) seen.insert(randomUnreserved(43));
    EXPECT_EQ(seen.size(), 50u);

    for (const std::string bytes : {"", "f", "fo", "foo", "foob", "fooba", "foobar", "\xff\xfe\x00\x01"}) {
        const std::string encoded = base64UrlEncode(bytes);
        EXPECT_EQ(encoded.find_first_of("+/="), std::string::npos);
        EXPECT_EQ(base64UrlDecode(encoded), bytes);
    }
    EXPECT_EQ(base64UrlDecode("Zm9vYg=="), "foob");
    EXPECT_EQ(base64UrlDecode("-_8"), std::string("\xfb\xff"));
    EXPECT_FALSE(base64UrlDecode("a"));
    EXPECT_FALSE(base64UrlDecode("ab$d"));

    EXPECT_TRUE(constantTimeEquals("state", "state"));
    EXPECT_FALSE(constantTimeEquals("state", "statf"));
    EXPECT_FALSE(constantTimeEquals("state", "stat"));
}

TEST(RedirectUrl, ParsesRedirectUrisAndTheirParameters) {
    auto parts = parseUrl("http://127.0.0.1:8080/callback?x=1#frag");
    ASSERT_TRUE(parts);
    EXPECT_EQ(parts->scheme, "http");
    EXPECT_EQ(parts->host, "127.0.0.1");
    EXPECT_EQ(parts->port, 8080);
    EXPECT_EQ(parts->path, "/callback");
    EXPECT_EQ(parts->query, "x=1");
    parts = parseUrl("HTTP://localhost");
    ASSERT_TRUE(parts);
    EXPECT_EQ(parts->path, "/");
    EXPECT_FALSE(parts->port);
    EXPECT_TRUE(isLoopbackHost(parts->host));
    parts = parseUrl("http://[::1]:9/");
    ASSERT_TRUE(parts);
    EXPECT_EQ(parts->host, "[::1]");
    EXPECT_EQ(parts->port, 9);
    EXPECT_TRUE(parseUrl("com.googleusercontent.apps.123://oauth2redirect"));
    EXPECT_FALSE(isLoopbackHost("127.0.0.1.example.com"));
    EXPECT_FALSE(parseUrl("no scheme"));
    EXPECT_FALSE(parseUrl("http://127.0.0.1:99999/"));
    EXPECT_FALSE(parseUrl("http://user@127.0.0.1/"));

    EXPECT_EQ(withQuery("https://a/b", {{"redirect_uri", "http://127.0.0.1:1/"}, {"scope", "a b"}}),
              "https://a/b?redirect_uri=http%3A%2F%2F127.0.0.1%3A1%2F&scope=a%20b");
    EXPECT_EQ(withQuery("https://a/b?x=1", {{"y", "2"}}), "https://a/b?x=1&y=2");

    const auto params = parseQuery("code=4%2F0A&state=s+t&empty=&flag&dup=1&dup=2&dup=3");
    EXPECT_EQ(params.at("code"), "4/0A");
    EXPECT_EQ(params.at("state"), "s t");
    EXPECT_EQ(params.at("empty"), "");
    EXPECT_EQ(params.at("flag"), "");
    EXPECT_FALSE(params.count("dup")) << "a repeated parameter is dropped";

    EXPECT_EQ(redirectParameters(" http://127.0.0.1:5/?code=c&state=s#x \n").at("code"), "c");
    EXPECT_EQ(redirectParameters("/?code=c&state=s").at("state"), "s");
    EXPECT_EQ(redirectParameters("code=c&state=s").at("code"), "c");
    EXPECT_TRUE(redirectParameters("http://127.0.0.1:5/").empty());
    EXPECT_TRUE(redirectParameters("").empty());
}

TEST(LoopbackRedirectListener, ServesUntilTheHandlerIsDoneThenCloses) {
    std::mutex mutex;
    std::vector<std::string> targets;
    std::string error;
    auto listener = LoopbackRedirectListener::start(
        0,
        [&](const std::string& target) -> LoopbackRedirectListener::Reply {
            {
                std::lock_guard lock(mutex);
                targets.push_back(target);
            }
            if (target.find("done") != std::string::npos) return {200, "Signed in", "You can close <this> window.", true};
            return {404, "Not found", "nothing", false};
        },
        &error);
    ASSERT_TRUE(listener) << error;
    ASSERT_GT(listener->port(), 0);
    const std::string base = "http://127.0.0.1:" + std::to_string(listener->port());

    EXPECT_EQ(SandboxBrowser::get(base + "/favicon.ico").status, 404);
    HttpRequest post;
    post.method = "POST";
    post.url = base + "/?done=1";
    post.body = ByteBuffer::adopt(std::string("x=1"));
    EXPECT_EQ(HttpClient::shared()->perform(post).status, 405) << "only GET is served";

    const HttpResponse done = SandboxBrowser::get(base + "/?state=a%20b&done=1");
    EXPECT_EQ(done.status, 200);
    EXPECT_NE(done.body.find("You can close &lt;this&gt; window."), std::string::npos) << "text is escaped";
    EXPECT_EQ(done.headers.get("Cache-Control"), "no-store");
    {
        std::lock_guard lock(mutex);
        EXPECT_EQ(targets, (std::vector<std::string>{"/favicon.ico", "/?state=a%20b&done=1"}));
    }
    EXPECT_TRUE(waitUntil([&] { return SandboxBrowser::get(base + "/").transportFailed(); }))
        << "the listener closes after the sign-in is complete";
}

TEST(LoopbackRedirectListener, StopsFromItsOwnHandlerAndFromOutside) {
    std::unique_ptr<LoopbackRedirectListener> listener;
    std::atomic<int> calls{0};
    listener = LoopbackRedirectListener::start(0, [&](const std::string&) -> LoopbackRedirectListener::Reply {
        ++calls;
        listener->stop();
        return {200, "ok", "ok", false};
    });
    ASSERT_TRUE(listener);
    const std::string base = "http://127.0.0.1:" + std::to_string(listener->port());
    EXPECT_EQ(SandboxBrowser::get(base + "/").status, 200);
    EXPECT_TRUE(waitUntil([&] { return SandboxBrowser::get(base + "/").transportFailed(); }));
    EXPECT_EQ(calls.load(), 1);
    listener.reset();

    // A stopped listener gives its port back.
    auto idle = LoopbackRedirectListener::start(0, [](const std::string&) -> LoopbackRedirectListener::Reply {
        return {200, "ok", "ok", true};
    });
    ASSERT_TRUE(idle);
    const int port = idle->port();
    idle->stop();
    std::string error;
    auto again = LoopbackRedirectListener::start(port, [](const std::string&) -> LoopbackRedirectListener::Reply {
        return {200, "ok", "ok", true};
    }, &error);
    EXPECT_TRUE(again) << error;
    EXPECT_FALSE(LoopbackRedirectListener::start(port, {}, &error)) << "the port is taken";
    EXPECT_FALSE(error.empty());
}

}  // namespace
}  // namespace vxcloud::testing

namespace vxcloud::testing {
namespace {

using namespace vxcloud::auth;

// Records each token request's form and answers with a token.
class TokenEndpoint {
public:
    TokenEndpoint()
        : server_([this](httplib::Server& s) {
              s.Post("/token", [this](const httplib::Request& request, httplib::Response& response) {
                  {
                      std::lock_guard lock(mutex_);
                      forms_.emplace_back(request.params.begin(), request.params.end());
                  }
                  response.set_content(R"({"access_token":"at","token_type":"bearer","expires_in":3600})",
                                       "application/json");
              });
          }) {}

    std::string url() const { return server_.url("/token"); }
    std::vector<std::map<std::string, std::string>> forms() const {
        std::lock_guard lock(mutex_);
        return forms_;
    }

private:
    mutable std::mutex mutex_;
    std::vector<std::map<std::string, std::string>> forms_;
    test::LoopbackServer server_;
};

// Shows nothing; keeps the authorisation URL it was given.
class RecordingAgent : public VXCloudUserAgent {
public:
    bool open(const std::string& url) override {
        std::lock_guard lock(mutex_);
        url_ = url;
        return true;
    }
    std::string url() const {
        std::lock_guard lock(mutex_);
        return url_;
    }

private:
    mutable std::mutex mutex_;
    std::string url_;
};

TEST(OAuth2Flow, ExchangesTheCodeWithItsVerifierTheSameRedirectUriAndTheSecretWhenThereIsOne) {
    TokenEndpoint endpoint;
    for (const std::optional<std::string>& secret : {std::optional<std::string>("desktop-secret"),
                                                    std::optional<std::string>()}) {
        SCOPED_TRACE(secret.value_or("no secret"));
        OAuth2Request request;
        request.serviceName = "Test";
        request.authorizeUrl = "http://127.0.0.1:1/authorize";
        request.tokenUrl = endpoint.url();
        request.clientId = "client";
        request.clientSecret = secret;
        std::mutex mutex;
        std::optional<VXCloudAuthResult> outcome;
        std::string grantedToken;
        auto flow = OAuth2Flow::create(
            request,
            [&](const GrantedTokens& granted) {
                std::lock_guard lock(mutex);
                grantedToken = granted.token.accessToken;
                return VXCloudAuthResult::cancel();
            },
            [&](const std::shared_ptr<RedirectFlow>&, const VXCloudAuthResult& result) {
                std::lock_guard lock(mutex);
                outcome = result;
            });
        auto agent = std::make_shared<RecordingAgent>();
        flow->start(agent);
        const auto sent = redirectParameters(agent->url());
        ASSERT_TRUE(sent.count("redirect_uri") && sent.count("state") && sent.count("code_challenge")) << agent->url();

        ASSERT_TRUE(flow->handleRedirect(sent.at("redirect_uri") + "?code=the-code&state=" + sent.at("state")));
        ASSERT_TRUE(waitUntil([&] {
            std::lock_guard lock(mutex);
            return outcome.has_value();
        }));
        EXPECT_EQ(grantedToken, "at");
        ASSERT_FALSE(endpoint.forms().empty());
        const auto form = endpoint.forms().back();
        EXPECT_EQ(form.at("grant_type"), "authorization_code");
        EXPECT_EQ(form.at("code"), "the-code");
        EXPECT_EQ(form.at("client_id"), "client");
        EXPECT_EQ(form.at("redirect_uri"), sent.at("redirect_uri")) << "the token request repeats it exactly";
        EXPECT_EQ(codeChallengeS256(form.at("code_verifier")), sent.at("code_challenge"));
        if (secret) {
            EXPECT_EQ(form.at("client_secret"), *secret);
        } else {
            EXPECT_EQ(form.count("client_secret"), 0u) << "a PKCE client without a secret sends none";
        }
        // Single use: the same redirect again finishes nothing.
        EXPECT_FALSE(flow->handleRedirect(sent.at("redirect_uri") + "?code=the-code&state=" + sent.at("state")));
    }
    EXPECT_EQ(endpoint.forms().size(), 2u);
}

}  // namespace
}  // namespace vxcloud::testing
