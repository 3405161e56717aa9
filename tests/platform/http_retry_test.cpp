#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <ctime>
#include <functional>
#include <mutex>
#include <thread>

#include "support/LoopbackServer.h"
#include "vxcloud/platform/Http.h"

using namespace vxcloud;
using namespace std::chrono_literals;
using std::chrono::milliseconds;
using vxcloud::test::LoopbackServer;

namespace {

HttpResponse answer(int status, std::optional<std::string> retryAfter = std::nullopt) {
    HttpResponse response;
    response.status = status;
    if (retryAfter) response.headers.add("Retry-After", *retryAfter);
    return response;
}

HttpResponse failure(TransportError error) {
    HttpResponse response;
    response.error = error;
    return response;
}

std::string httpDate(std::chrono::system_clock::time_point when) {
    const std::time_t t = std::chrono::system_clock::to_time_t(when);
    std::tm tm{};
    gmtime_r(&t, &tm);
    char text[64];
    std::strftime(text, sizeof(text), "%a, %d %b %Y %H:%M:%S GMT", &tm);
    return text;
}

// A raw TCP server for what httplib cannot do: it reads each request in full, then
// either closes the connection without a word or writes the given answer. It counts
// the requests it read.
class ScriptedSocketServer {
public:
    // Called with the 0-based request number; an empty answer drops the connection.
    explicit ScriptedSocketServer(std::function<std::string(int)> script)
        : script_(std::move(script)) {
        listener_ = ::socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof(address);
        if (listener_ < 0 || ::bind(listener_, reinterpret_cast<sockaddr*>(&address), length) != 0 ||
            ::listen(listener_, 16) != 0 ||
            ::getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &length) != 0)
            return;
        port_ = ntohs(address.sin_port);
        thread_ = std::thread([this] { serve(); });
    }
    ~ScriptedSocketServer() {
        stop_ = true;
        if (thread_.joinable()) thread_.join();
        if (listener_ >= 0) ::close(listener_);
    }
    std::string url(const std::string& path) const {
        return "http://127.0.0.1:" + std::to_string(port_) + path;
    }
    int requests() const { return requests_; }
    bool listening() const { return port_ > 0; }

private:
    void serve() {
        while (!stop_) {
            pollfd waiting{listener_, POLLIN, 0};
            if (::poll(&waiting, 1, 50) <= 0) continue;
            const int connection = ::accept(listener_, nullptr, nullptr);
            if (connection < 0) continue;
            if (readRequest(connection)) {
                const std::string reply = script_(requests_++);
                std::size_t sent = 0;
                while (sent < reply.size()) {
                    const ssize_t n = ::send(connection, reply.data() + sent, reply.size() - sent,
                                             MSG_NOSIGNAL);
                    if (n <= 0) break;
                    sent += static_cast<std::size_t>(n);
                }
            }
            ::close(connection);
        }
    }

    // Reads the head and a Content-Length body, for at most 10 s.
    bool readRequest(int connection) {
        std::string data;
        const auto deadline = std::chrono::steady_clock::now() + 10s;
        std::size_t needed = std::string::npos;
        while (std::chrono::steady_clock::now() < deadline && !stop_) {
            if (needed == std::string::npos) {
                const auto end = data.find("\r\n\r\n");
                if (end != std::string::npos) {
                    std::size_t length = 0;
                    const auto header = data.find("Content-Length: ");
                    if (header != std::string::npos && header < end)
                        length = std::stoul(data.substr(header + 16));
                    needed = end + 4 + length;
                }
            }
            if (needed != std::string::npos && data.size() >= needed) return true;
            pollfd readable{connection, POLLIN, 0};
            if (::poll(&readable, 1, 50) <= 0) continue;
            char buffer[4096];
            const ssize_t n = ::recv(connection, buffer, sizeof(buffer), 0);
            if (n <= 0) return false;
            data.append(buffer, static_cast<std::size_t>(n));
        }
        return false;
    }

    std::function<std::string(int)> script_;
    int listener_ = -1;
    int port_ = -1;
    std::atomic<bool> stop_{false};
    std::atomic<int> requests_{0};
    std::thread thread_;
};

const std::string okAnswer =
    "HTTP/1.1 200 OK\r\nContent-Length: 2\r\nConnection: close\r\n\r\nok";

}  // namespace

TEST(RetryPolicyTest, DecidesWhatToRepeat) {
    const RetryPolicy policy = RetryPolicy::standard(3);
    // Attempts run out.
    EXPECT_TRUE(policy.shouldRetry(answer(503), 2, true));
    EXPECT_FALSE(policy.shouldRetry(answer(503), 3, true));
    EXPECT_FALSE(RetryPolicy::none().shouldRetry(answer(503), 1, true));
    // Statuses.
    for (int status : {429, 500, 502, 503, 504}) EXPECT_TRUE(policy.shouldRetry(answer(status), 1, true));
    for (int status : {200, 301, 400, 401, 403, 404, 409, 501}) EXPECT_FALSE(policy.shouldRetry(answer(status), 1, true));
    // Transport failures, with their flags.
    EXPECT_TRUE(policy.shouldRetry(failure(TransportError::couldNotConnect), 1, true));
    EXPECT_TRUE(policy.shouldRetry(failure(TransportError::connectionLost), 1, true));
    EXPECT_TRUE(policy.shouldRetry(failure(TransportError::timedOut), 1, true));
    for (auto error : {TransportError::couldNotResolve, TransportError::tls,
                       TransportError::tooManyRedirects, TransportError::aborted,
                       TransportError::other})
        EXPECT_FALSE(policy.shouldRetry(failure(error), 1, true));
    RetryPolicy strict = policy;
    strict.retryOnConnectionLost = false;
    strict.retryOnTimeout = false;
    EXPECT_FALSE(strict.shouldRetry(failure(TransportError::connectionLost), 1, true));
    EXPECT_FALSE(strict.shouldRetry(failure(TransportError::timedOut), 1, true));
    EXPECT_TRUE(strict.shouldRetry(failure(TransportError::couldNotConnect), 1, true));

    // Not idempotent: only when the server cannot have acted on it.
    EXPECT_TRUE(policy.shouldRetry(failure(TransportError::couldNotConnect), 1, false));
    EXPECT_FALSE(policy.shouldRetry(failure(TransportError::connectionLost), 1, false));
    EXPECT_FALSE(policy.shouldRetry(failure(TransportError::timedOut), 1, false));
    EXPECT_FALSE(policy.shouldRetry(answer(500), 1, false));
    EXPECT_FALSE(policy.shouldRetry(answer(503), 1, false));
    EXPECT_FALSE(policy.shouldRetry(answer(429), 1, false));
    EXPECT_TRUE(policy.shouldRetry(answer(429, "2"), 1, false));
    EXPECT_TRUE(policy.shouldRetry(answer(503, "0"), 1, false));
    EXPECT_FALSE(policy.shouldRetry(answer(500, "2"), 1, false));
    EXPECT_FALSE(policy.shouldRetry(answer(429, "soon"), 1, false));

    // A wait above the cap is not taken.
    EXPECT_TRUE(policy.shouldRetry(answer(429, "60"), 1, true));
    EXPECT_FALSE(policy.shouldRetry(answer(429, "61"), 1, true));
    EXPECT_FALSE(policy.shouldRetry(answer(503, "99999999999999999999"), 1, true));
}

TEST(RetryPolicyTest, BacksOffExponentiallyWithJitterBetweenFloorAndCeiling) {
    RetryPolicy policy = RetryPolicy::standard(10);
    policy.baseDelay = 100ms;
    policy.maxDelay = 1000ms;
    const HttpResponse last = answer(503);
    for (int next = 2; next <= 8; ++next) {
        const milliseconds ceiling = std::min(milliseconds(100 << (next - 2)), milliseconds(1000));
        milliseconds lowest = ceiling, highest{0};
        for (int i = 0; i < 300; ++i) {
            const milliseconds delay = policy.delayBefore(next, last);
            lowest = std::min(lowest, delay);
            highest = std::max(highest, delay);
        }
        SCOPED_TRACE(next);
        EXPECT_GE(lowest, 10ms);
        EXPECT_LE(highest, ceiling);
        EXPECT_LT(lowest, ceiling / 2);   // jitter spreads the waits ...
        EXPECT_GT(highest, ceiling / 2);  // ... over the whole range
    }
    // Large attempt numbers neither overflow nor exceed the cap.
    EXPECT_LE(policy.delayBefore(1000, last), 1000ms);
    EXPECT_GE(policy.delayBefore(1000, last), 10ms);
}

TEST(RetryPolicyTest, DelayHonoursRetryAfterInSecondsOrAsADate) {
    const RetryPolicy policy = RetryPolicy::standard();
    EXPECT_EQ(policy.delayBefore(2, answer(429, "3")), 3000ms);
    EXPECT_EQ(policy.delayBefore(2, answer(429, " 0 ")), 0ms);
    const auto soon = policy.delayBefore(2, answer(503, httpDate(std::chrono::system_clock::now() + 10s)));
    EXPECT_GE(soon, 8000ms);
    EXPECT_LE(soon, 10000ms);
    EXPECT_EQ(policy.delayBefore(2, answer(503, httpDate(std::chrono::system_clock::now() - 1h))), 0ms);
    EXPECT_TRUE(policy.shouldRetry(answer(503, httpDate(std::chrono::system_clock::now() + 10s)), 1, false));
    EXPECT_FALSE(policy.shouldRetry(answer(503, httpDate(std::chrono::system_clock::now() + 2h)), 1, true));
    // Unreadable values fall back to backoff.
    EXPECT_LE(policy.delayBefore(2, answer(503, "tomorrow-ish")), policy.baseDelay);
}

TEST(HttpRetryTest, RepeatsServerErrorsAndCountsAttempts) {
    std::atomic<int> calls{0};
    LoopbackServer server([&](httplib::Server& s) {
        s.Get("/flaky", [&](const httplib::Request&, httplib::Response& res) {
            if (++calls <= 2) {
                res.status = 503;
                res.set_content("busy", "text/plain");
            } else {
                res.set_content("done", "text/plain");
            }
        });
    });
    ASSERT_TRUE(server.running());
    HttpClient client;
    std::vector<int> logged;
    client.setRequestLogger([&](const std::string&, const std::string& url, int status, TransportError) {
        EXPECT_EQ(url.find("SECRET"), std::string::npos);
        logged.push_back(status);
    });
    RetryPolicy policy = RetryPolicy::standard(4);
    policy.baseDelay = 20ms;
    HttpRequest request;
    request.url = server.url("/flaky?access_token=SECRET");
    const HttpResponse response = client.perform(request, policy);
    ASSERT_TRUE(response.ok()) << response.errorMessage;
    EXPECT_EQ(response.body, "done");
    EXPECT_EQ(response.attempts, 3);
    EXPECT_EQ(logged, (std::vector<int>{503, 503, 200}));

    // Out of attempts: the last answer comes back.
    calls = 0;
    policy.maxAttempts = 2;
    const HttpResponse exhausted = client.perform(request, policy);
    EXPECT_EQ(exhausted.status, 503);
    EXPECT_EQ(exhausted.body, "busy");
    EXPECT_EQ(exhausted.attempts, 2);
}

TEST(HttpRetryTest, WaitsForRetryAfterUnlessItIsTooLong) {
    std::atomic<int> calls{0};
    std::atomic<int> wait{1};
    LoopbackServer server([&](httplib::Server& s) {
        s.Post("/limited", [&](const httplib::Request&, httplib::Response& res) {
            if (++calls == 1) {
                res.status = 429;
                res.set_header("Retry-After", std::to_string(wait.load()));
            } else {
                res.set_content("accepted", "text/plain");
            }
        });
    });
    ASSERT_TRUE(server.running());
    HttpClient client;
    HttpRequest request;
    request.method = "POST";
    request.url = server.url("/limited");
    request.body = ByteBuffer::copyOf(std::string_view("note"));
    request.idempotent = false;  // a 429 with Retry-After was refused up front

    auto started = std::chrono::steady_clock::now();
    HttpResponse response = client.perform(request, RetryPolicy::standard());
    ASSERT_TRUE(response.ok()) << response.errorMessage;
    EXPECT_EQ(response.attempts, 2);
    EXPECT_GE(std::chrono::steady_clock::now() - started, 900ms);

    calls = 0;
    wait = 120;
    RetryPolicy capped = RetryPolicy::standard();
    capped.maxRetryAfter = 30s;
    started = std::chrono::steady_clock::now();
    response = client.perform(request, capped);
    EXPECT_EQ(response.status, 429);
    EXPECT_EQ(response.attempts, 1);
    EXPECT_EQ(response.headers.get("Retry-After"), "120");
    EXPECT_LT(std::chrono::steady_clock::now() - started, 20s);
}

TEST(HttpRetryTest, DroppedConnectionRepeatsOnlyIdempotentRequests) {
    // Every request but the third is dropped after it was read.
    ScriptedSocketServer server([](int n) { return n == 2 ? okAnswer : std::string(); });
    ASSERT_TRUE(server.listening());
    HttpClient client;
    RetryPolicy policy = RetryPolicy::standard(3);
    policy.baseDelay = 10ms;

    HttpRequest create;
    create.method = "POST";
    create.url = server.url("/notes");
    create.body = ByteBuffer::copyOf(std::string_view("{\"title\":\"scan\"}"));
    create.idempotent = false;
    HttpResponse response = client.perform(create, policy);
    EXPECT_EQ(response.error, TransportError::connectionLost) << response.errorMessage;
    EXPECT_EQ(response.attempts, 1);
    EXPECT_EQ(server.requests(), 1);

    HttpRequest read;
    read.url = server.url("/notes");
    response = client.perform(read, policy);
    ASSERT_TRUE(response.ok()) << response.errorMessage;
    EXPECT_EQ(response.body, "ok");
    EXPECT_EQ(response.attempts, 2);
    EXPECT_EQ(server.requests(), 3);

    response = client.perform(read, policy);  // all dropped: attempts run out
    EXPECT_EQ(response.error, TransportError::connectionLost);
    EXPECT_EQ(response.attempts, 3);
    EXPECT_EQ(server.requests(), 6);
}

TEST(HttpRetryTest, RefusedConnectionIsRepeatedEvenWhenNotIdempotent) {
    const int port = vxcloud::test::closedLoopbackPort();
    ASSERT_GT(port, 0);
    HttpRequest request;
    request.method = "POST";
    request.url = "http://127.0.0.1:" + std::to_string(port) + "/files";
    request.idempotent = false;
    RetryPolicy policy = RetryPolicy::standard(3);
    policy.baseDelay = 10ms;
    const HttpResponse response = HttpClient().perform(request, policy);
    EXPECT_EQ(response.error, TransportError::couldNotConnect);
    EXPECT_EQ(response.attempts, 3);
}
