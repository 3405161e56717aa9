// The request path every provider client shares, against a loopback server: one attempt
// budget for the transport's repeats and the resend after a refresh, the provider's own
// "try again" answers, and what is never repeated or never authorised.
#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include <atomic>
#include <stdexcept>

#include "../../src/providers/ProviderCaller.h"
#include "support/IsolatedStores.h"
#include "support/LoopbackServer.h"
#include "vxcloud/auth/VXCloudTokenStore.h"
#include "vxcloud/sessions/VXCloudServiceConfig.h"

namespace vxcloud {
namespace {

using providers::ApiRequest;
using providers::ProviderCaller;

constexpr auto kService = VXCloudService::dropbox;
constexpr const char* kStorage = "caller-test";

class ProviderCallerTest : public ::testing::Test {
protected:
    void SetUp() override {
        server_.server().Post("/token", [this](const httplib::Request&, httplib::Response& res) {
            ++refreshes_;
            if (tokenTrouble_ > 0) {
                --tokenTrouble_;
                res.status = 503;
                return;
            }
            if (grantRefused_) {
                res.status = 400;
                res.set_content(R"({"error":"invalid_grant"})", "application/json");
                return;
            }
            res.set_content(R"({"access_token":"fresh","expires_in":3600,"token_type":"bearer"})",
                            "application/json");
        });
        server_.server().Get("/silent", [](const httplib::Request&, httplib::Response& res) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1500));
            res.set_content("late", "text/plain");
        });
        server_.server().Get("/trickle", [](const httplib::Request&, httplib::Response& res) {
            // Ten bytes, one every 200 ms: never still for long, two seconds in all.
            res.set_chunked_content_provider("text/plain", [](std::size_t sent, httplib::DataSink& sink) {
                if (sent >= 10) {
                    sink.done();
                    return true;
                }
                std::this_thread::sleep_for(std::chrono::milliseconds(200));
                sink.write("x", 1);
                return true;
            });
        });
        server_.server().Get("/fresh-only", [this](const httplib::Request& req, httplib::Response& res) {
            ++requests_;
            res.status = req.get_header_value("Authorization") == "Bearer fresh" ? 200 : 401;
        });
        server_.server().Get("/always-busy", [this](const httplib::Request& req, httplib::Response& res) {
            ++requests_;
            if (req.get_header_value("Authorization") == "Bearer stale") {
                res.status = 401;
                return;
            }
            res.status = 503;
            res.set_header("Retry-After", "0");
        });
        server_.server().Post("/create", [this](const httplib::Request&, httplib::Response& res) {
            // First a provider's own "slow down", then done.
            res.status = requests_++ == 0 ? 403 : 200;
            res.set_content(res.status == 403 ? "rate" : "{}", "text/plain");
        });
        server_.server().Post("/create-bare-503", [this](const httplib::Request&, httplib::Response& res) {
            ++requests_;
            res.status = 503;
        });
        server_.server().Put("/session", [this](const httplib::Request& req, httplib::Response& res) {
            ++requests_;
            authorization_ = req.get_header_value("Authorization");
            res.status = 308;
        });
        ASSERT_TRUE(server_.start());
        VXCloudServiceEndpoints endpoints;
        endpoints.tokenUrl = server_.url("/token");
        VXCloudServiceConfig::setEndpoints(kService, endpoints);
        VXCloudOAuthToken token;
        token.accessToken = "stale";
        token.refreshToken = "refresh";
        token.expiresAt = 4102444800;  // 2100: only a rejection makes it refresh
        ASSERT_TRUE(VXCloudTokenStore::save(kService, kStorage, token));
    }
    void TearDown() override { VXCloudServiceConfig::reset(kService); }

    ProviderCaller caller() {
        RetryPolicy policy = RetryPolicy::standard(4);
        policy.baseDelay = std::chrono::milliseconds(1);
        providers::ProviderHooks hooks;
        hooks.serviceName = "Test";
        hooks.logTag = "test";
        hooks.readError = [](const HttpResponse& response) {
            ProviderError error;
            error.httpStatus = response.status;
            error.message = "HTTP " + std::to_string(response.status);
            return error;
        };
        hooks.refusedBeforeActing = [](const HttpResponse& response) {
            return response.status == 403 && response.body == "rate";
        };
        return ProviderCaller(std::make_shared<oauth::TokenProvider>(kService, kStorage), nullptr, policy, hooks);
    }

    ApiRequest request(const std::string& method, const std::string& path, bool idempotent = true) {
        ApiRequest r;
        r.what = path.substr(1);
        r.method = method;
        r.url = server_.url(path);
        r.idempotent = idempotent;
        return r;
    }

    testing::IsolatedStores stores_;
    test::LoopbackServer server_;
    std::atomic<int> refreshes_{0};
    std::atomic<int> requests_{0};
    std::atomic<int> tokenTrouble_{0};  // token answers that fail with 503 before one succeeds
    std::atomic<bool> grantRefused_{false};
    std::string authorization_;
};

TEST_F(ProviderCallerTest, OneAttemptBudgetCoversRepeatsAndTheResendAfterARefresh) {
    auto sent = caller().send(request("GET", "/always-busy"));
    ASSERT_FALSE(sent.ok());
    // 401, refresh, then 503 three times: four sendings in all, not four after the refresh
    // and not four per nested loop.
    EXPECT_EQ(requests_, 4);
    EXPECT_EQ(refreshes_, 1);
    EXPECT_EQ(sent.error().httpStatus, 503);
    EXPECT_TRUE(sent.error().transient);
    EXPECT_EQ(sent.error().message, "Test always-busy: HTTP 503");
    EXPECT_EQ(VXCloudTokenStore::load(kService, kStorage)->accessToken, "fresh");
    // Reading the value of a failure is a programming error, caught, not undefined.
    EXPECT_THROW((void)sent.value(), std::logic_error);
}

TEST_F(ProviderCallerTest, AFailingRefreshIsTriedAgainButARefusedGrantEndsAtOnce) {
    // The token endpoint fails twice: asked again within the budget, and the request is sent.
    tokenTrouble_ = 2;
    auto sent = caller().send(request("GET", "/fresh-only"));
    ASSERT_TRUE(sent.ok()) << sent.error().message;
    EXPECT_EQ(refreshes_, 3);
    EXPECT_EQ(requests_, 2) << "the 401 and the resend";

    // A refused grant is final: one refresh, and it reads as the refusal it is.
    ASSERT_TRUE(VXCloudTokenStore::save(kService, kStorage, [] {
        VXCloudOAuthToken token;
        token.accessToken = "stale";
        token.refreshToken = "revoked";
        token.expiresAt = 4102444800;
        return token;
    }()));
    refreshes_ = 0;
    grantRefused_ = true;
    auto refused = caller().send(request("GET", "/fresh-only"));
    ASSERT_FALSE(refused.ok());
    EXPECT_EQ(refreshes_, 1);
    EXPECT_EQ(refused.error().oauthError, "invalid_grant");
}

TEST_F(ProviderCallerTest, AStallEndsARequestButSteadyProgressNeverDoes) {
    VXCloudServiceConfig::setNetworkTimeouts({std::chrono::milliseconds(5000), std::chrono::milliseconds(700)});
    ASSERT_TRUE(VXCloudTokenStore::save(kService, kStorage, [] {
        VXCloudOAuthToken token;
        token.accessToken = "fresh";
        token.expiresAt = 4102444800;
        return token;
    }()));
    auto slow = request("GET", "/trickle");
    slow.maxAttempts = 1;
    auto sent = caller().send(slow);
    ASSERT_TRUE(sent.ok()) << sent.error().message;
    EXPECT_EQ(sent.value().body, "xxxxxxxxxx");

    auto silent = request("GET", "/silent");
    silent.maxAttempts = 1;
    auto stalled = caller().send(silent);
    VXCloudServiceConfig::setNetworkTimeouts({});
    ASSERT_FALSE(stalled.ok());
    EXPECT_TRUE(stalled.error().transient) << stalled.error().message;
}

TEST_F(ProviderCallerTest, OnlyRefusalsAreRepeatedForRequestsThatCreate) {
    // The provider's own "slow down" comes before it acts: repeated even for a create.
    auto created = caller().send(request("POST", "/create", false));
    ASSERT_TRUE(created.ok()) << created.error().message;
    EXPECT_EQ(requests_, 2);
    EXPECT_THROW((void)created.error(), std::logic_error);

    // A bare 503 may come after the work was done: a create is handed back at once.
    requests_ = 0;
    auto bare = caller().send(request("POST", "/create-bare-503", false));
    ASSERT_FALSE(bare.ok());
    EXPECT_EQ(requests_, 1);
    EXPECT_TRUE(bare.error().transient);
}

TEST_F(ProviderCallerTest, PreAuthenticatedUrlsGetNoTokenAndAcceptedStatusesAreAnswers) {
    auto put = request("PUT", "/session");
    put.authorized = false;
    put.alsoAccepted = {308};
    auto sent = caller().send(put);
    ASSERT_TRUE(sent.ok());
    EXPECT_EQ(sent.value().status, 308);
    EXPECT_EQ(authorization_, "");
    EXPECT_EQ(refreshes_, 0);
}

}  // namespace
}  // namespace vxcloud
