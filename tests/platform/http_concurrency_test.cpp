#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "support/LoopbackServer.h"
#include "vxcloud/platform/Http.h"

using namespace vxcloud;
using vxcloud::test::LoopbackServer;

// Many threads share one client (and the process-wide one) at once; run under
// ThreadSanitizer in CI.
TEST(HttpConcurrencyTest, ManyThreadsPerformAtOnce) {
    LoopbackServer server([](httplib::Server& s) {
        s.Post("/echo", [](const httplib::Request& req, httplib::Response& res) {
            res.set_header("X-Echo-Id", req.get_header_value("X-Id"));
            res.set_content(req.body, "application/octet-stream");
        });
        s.Get("/ping", [](const httplib::Request&, httplib::Response& res) {
            res.set_content("pong", "text/plain");
        });
    });
    ASSERT_TRUE(server.running());

    auto client = std::make_shared<HttpClient>();
    std::atomic<int> logged{0};
    client->setRequestLogger([&](const std::string&, const std::string&, int, TransportError) { ++logged; });

    constexpr int threads = 8;
    constexpr int requestsPerThread = 20;
    std::atomic<int> succeeded{0};
    std::vector<std::thread> workers;
    for (int t = 0; t < threads; ++t) {
        workers.emplace_back([&, t] {
            for (int i = 0; i < requestsPerThread; ++i) {
                const std::string id = std::to_string(t) + "-" + std::to_string(i);
                HttpRequest request;
                if (i % 4 == 3) {
                    request.url = server.url("/ping");
                    const HttpResponse response = HttpClient::shared()->perform(request);
                    if (response.ok() && response.body == "pong") ++succeeded;
                    continue;
                }
                request.method = "POST";
                request.url = server.url("/echo");
                request.headers.add("X-Id", id);
                request.body = ByteBuffer::copyOf(std::string_view(std::string(1000 + i * 37, 'a' + t)) );
                const HttpResponse response = client->perform(request, RetryPolicy::standard(2));
                if (response.ok() && response.headers.get("X-Echo-Id") == id &&
                    response.body == request.body.view())
                    ++succeeded;
            }
        });
    }
    // Replacing the logger while requests run is safe.
    client->setRequestLogger([&](const std::string&, const std::string&, int, TransportError) { ++logged; });
    for (auto& worker : workers) worker.join();

    EXPECT_EQ(succeeded.load(), threads * requestsPerThread);
    EXPECT_EQ(logged.load(), threads * requestsPerThread * 3 / 4);
}
