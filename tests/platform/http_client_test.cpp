#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>

#include "support/LoopbackServer.h"
#include "vxcloud/platform/Http.h"

using namespace vxcloud;
using vxcloud::test::LoopbackServer;

namespace {

std::string binaryPayload(std::size_t size) {
    std::string data(size, '\0');
    for (std::size_t i = 0; i < size; ++i) data[i] = static_cast<char>((i * 131 + 7) % 256);
    return data;
}

// Answers with the request's body and, in headers, what the server saw.
void echo(const httplib::Request& req, httplib::Response& res) {
    res.set_header("X-Method", req.method);
    res.set_header("X-Seen-Custom", req.get_header_value("X-Custom"));
    res.set_header("X-Seen-Length", req.get_header_value("Content-Length"));
    res.set_header("X-Seen-Type", req.has_header("Content-Type")
                                      ? req.get_header_value("Content-Type")
                                      : "<none>");
    res.set_header("X-Seen-Expect", req.has_header("Expect") ? "yes" : "no");
    res.set_header("X-Twice", "first");
    res.set_header("X-Twice", "second");
    res.set_content(req.body, "application/octet-stream");
}

}  // namespace

TEST(HttpClientTest, RoundTripsBodiesAndHeadersForEachMethod) {
    LoopbackServer server([](httplib::Server& s) {
        s.Get("/echo", echo);
        s.Post("/echo", echo);
        s.Put("/echo", echo);
        s.Patch("/echo", echo);
        s.Delete("/echo", echo);
    });
    ASSERT_TRUE(server.running());
    HttpClient client;

    const std::string payload = binaryPayload(70000);  // above libcurl's in-header limit
    for (const char* method : {"POST", "PUT", "PATCH"}) {
        SCOPED_TRACE(method);
        HttpRequest request;
        request.method = method;
        request.url = server.url("/echo");
        request.headers.add("X-Custom", "value with spaces");
        request.headers.add("Content-Type", "application/pdf");
        request.body = ByteBuffer::copyOf(std::string_view(payload));
        const HttpResponse response = client.perform(request);
        ASSERT_TRUE(response.ok()) << response.errorMessage;
        EXPECT_EQ(response.status, 200);
        EXPECT_EQ(response.attempts, 1);
        EXPECT_EQ(response.body, payload);
        EXPECT_EQ(response.headers.get("x-method"), method);
        EXPECT_EQ(response.headers.get("X-SEEN-CUSTOM"), "value with spaces");
        EXPECT_EQ(response.headers.get("X-Seen-Length"), std::to_string(payload.size()));
        EXPECT_EQ(response.headers.get("X-Seen-Type"), "application/pdf");
        EXPECT_EQ(response.headers.get("X-Seen-Expect"), "no");
        int twice = 0;
        for (const auto& [name, value] : response.headers.all()) twice += name == "X-Twice";
        EXPECT_EQ(twice, 2);
    }

    // A body without a type goes out without one, and an empty POST says length 0.
    HttpRequest post;
    post.method = "POST";
    post.url = server.url("/echo");
    HttpResponse response = client.perform(post);
    ASSERT_TRUE(response.ok()) << response.errorMessage;
    EXPECT_EQ(response.headers.get("X-Seen-Type"), "<none>");
    EXPECT_EQ(response.headers.get("X-Seen-Length"), "0");

    for (const char* method : {"GET", "DELETE"}) {
        HttpRequest request;
        request.method = method;
        request.url = server.url("/echo");
        response = client.perform(request);
        ASSERT_TRUE(response.ok()) << method << ": " << response.errorMessage;
        EXPECT_EQ(response.headers.get("X-Method"), method);
        EXPECT_EQ(response.body, "");
    }
}

TEST(HttpClientTest, ReportsUploadProgressUpToTheTotal) {
    LoopbackServer server([](httplib::Server& s) { s.Put("/upload", echo); });
    ASSERT_TRUE(server.running());
    const std::string payload = binaryPayload(3 * 1024 * 1024 + 17);
    std::vector<std::pair<std::int64_t, std::int64_t>> calls;
    HttpRequest request;
    request.method = "PUT";
    request.url = server.url("/upload");
    request.body = ByteBuffer::copyOf(std::string_view(payload));
    request.onUploadProgress = [&](std::int64_t sent, std::int64_t total) {
        calls.emplace_back(sent, total);
    };
    const HttpResponse response = HttpClient().perform(request);
    ASSERT_TRUE(response.ok()) << response.errorMessage;
    EXPECT_EQ(response.body.size(), payload.size());
    ASSERT_FALSE(calls.empty());
    const auto total = static_cast<std::int64_t>(payload.size());
    EXPECT_EQ(calls.back(), std::make_pair(total, total));
    for (std::size_t i = 0; i < calls.size(); ++i) {
        EXPECT_EQ(calls[i].second, total);
        if (i > 0) {
            EXPECT_GT(calls[i].first, calls[i - 1].first);
        }
    }
}

TEST(HttpClientTest, StreamsSuccessfulDownloadsAndCollectsErrorBodies) {
    const std::string document = binaryPayload(2 * 1024 * 1024 + 5);
    LoopbackServer server([&](httplib::Server& s) {
        s.Get("/file", [&](const httplib::Request&, httplib::Response& res) {
            res.set_content(document, "application/pdf");
        });
        s.Get("/missing", [](const httplib::Request&, httplib::Response& res) {
            res.status = 404;
            res.set_content(R"({"error":"not_found"})", "application/json");
        });
    });
    ASSERT_TRUE(server.running());
    HttpClient client;

    std::string received;
    int chunks = 0;
    HttpRequest request;
    request.url = server.url("/file");
    request.onBodyChunk = [&](const char* data, std::size_t size) {
        received.append(data, size);
        ++chunks;
        return true;
    };
    HttpResponse response = client.perform(request);
    ASSERT_TRUE(response.ok()) << response.errorMessage;
    EXPECT_TRUE(response.body.empty());
    EXPECT_GT(chunks, 1);
    EXPECT_EQ(received.size(), document.size());
    EXPECT_TRUE(received == document);

    received.clear();
    request.url = server.url("/missing");
    response = client.perform(request);
    EXPECT_EQ(response.status, 404);
    EXPECT_FALSE(response.transportFailed());
    EXPECT_EQ(response.body, R"({"error":"not_found"})");
    EXPECT_TRUE(received.empty());

    // The receiver can stop the transfer; a throwing receiver stops it the same way.
    request.url = server.url("/file");
    request.onBodyChunk = [](const char*, std::size_t) { return false; };
    response = client.perform(request, RetryPolicy::standard());
    EXPECT_EQ(response.error, TransportError::aborted);
    EXPECT_EQ(response.attempts, 1);
    request.onBodyChunk = [](const char*, std::size_t) -> bool { throw std::runtime_error("disk full"); };
    response = client.perform(request);
    EXPECT_EQ(response.error, TransportError::aborted);
    EXPECT_NE(response.errorMessage.find("disk full"), std::string::npos);
}

TEST(HttpClientTest, FollowsRedirectsOnlyWhenAsked) {
    LoopbackServer server([](httplib::Server& s) {
        s.Get("/from", [](const httplib::Request&, httplib::Response& res) {
            res.set_redirect("/to", 302);
        });
        s.Get("/to", [](const httplib::Request&, httplib::Response& res) {
            res.set_content("arrived", "text/plain");
        });
        s.Get("/loop", [](const httplib::Request&, httplib::Response& res) {
            res.set_redirect("/loop", 302);
        });
    });
    ASSERT_TRUE(server.running());
    HttpClient client;
    HttpRequest request;
    request.url = server.url("/from");
    HttpResponse response = client.perform(request);
    EXPECT_FALSE(response.transportFailed()) << response.errorMessage;
    EXPECT_EQ(response.status, 302);
    EXPECT_EQ(response.headers.get("Location"), "/to");

    request.followRedirects = true;
    response = client.perform(request);
    ASSERT_TRUE(response.ok()) << response.errorMessage;
    EXPECT_EQ(response.body, "arrived");
    EXPECT_FALSE(response.headers.has("Location"));  // headers of the final answer only

    request.url = server.url("/loop");
    response = client.perform(request);
    EXPECT_EQ(response.error, TransportError::tooManyRedirects);
}

TEST(HttpClientTest, RefusedConnectionIsCouldNotConnectWithoutLeakingTokens) {
    const int port = vxcloud::test::closedLoopbackPort();
    ASSERT_GT(port, 0);
    HttpRequest request;
    request.url = "http://127.0.0.1:" + std::to_string(port) + "/x?access_token=SECRET123";
    request.headers.add("Authorization", "Bearer SECRET456");
    std::vector<std::string> logged;
    HttpClient client;
    client.setRequestLogger([&](const std::string& method, const std::string& url, int status,
                                TransportError error) {
        logged.push_back(method + " " + url + " " + std::to_string(status));
        EXPECT_EQ(error, TransportError::couldNotConnect);
    });
    const HttpResponse response = client.perform(request);
    EXPECT_EQ(response.error, TransportError::couldNotConnect);
    EXPECT_EQ(response.status, 0);
    EXPECT_FALSE(response.errorMessage.empty());
    EXPECT_EQ(response.errorMessage.find("SECRET"), std::string::npos);
    ASSERT_EQ(logged.size(), 1u);
    EXPECT_EQ(logged[0].find("SECRET"), std::string::npos) << logged[0];
    EXPECT_NE(logged[0].find("GET http://127.0.0.1:"), std::string::npos) << logged[0];
}

TEST(HttpClientTest, StalledServerTimesOutAfterIdleTimeout) {
    std::mutex mutex;
    std::condition_variable released;
    bool release = false;
    LoopbackServer server([&](httplib::Server& s) {
        s.Get("/stall", [&](const httplib::Request&, httplib::Response& res) {
            std::unique_lock lock(mutex);
            released.wait_for(lock, std::chrono::seconds(20), [&] { return release; });
            res.set_content("late", "text/plain");
        });
    });
    ASSERT_TRUE(server.running());
    HttpRequest request;
    request.url = server.url("/stall");
    request.idleTimeout = std::chrono::milliseconds(500);
    const auto started = std::chrono::steady_clock::now();
    const HttpResponse response = HttpClient().perform(request);
    const auto elapsed = std::chrono::steady_clock::now() - started;
    {
        std::lock_guard lock(mutex);
        release = true;
    }
    released.notify_all();
    EXPECT_EQ(response.error, TransportError::timedOut) << response.errorMessage;
    EXPECT_GE(elapsed, std::chrono::milliseconds(450));
    EXPECT_LT(elapsed, std::chrono::seconds(15));
}

TEST(HttpClientTest, RejectsMalformedRequestsWithoutSending) {
    std::atomic<int> hits{0};
    LoopbackServer server([&](httplib::Server& s) {
        s.Get("/x", [&](const httplib::Request&, httplib::Response&) { ++hits; });
    });
    ASSERT_TRUE(server.running());
    HttpClient client;
    HttpRequest request;
    request.url = server.url("/x");
    request.headers.add("X-Injected", "a\r\nEvil: yes");
    HttpResponse response = client.perform(request, RetryPolicy::standard());
    EXPECT_EQ(response.error, TransportError::other);
    EXPECT_EQ(response.attempts, 1);
    EXPECT_FALSE(response.errorMessage.empty());

    request = HttpRequest();
    request.url = "file:///etc/passwd";
    response = client.perform(request);
    EXPECT_EQ(response.error, TransportError::other);
    request.url = "not a url";
    response = client.perform(request);
    EXPECT_TRUE(response.transportFailed());
    EXPECT_EQ(hits.load(), 0);
}
