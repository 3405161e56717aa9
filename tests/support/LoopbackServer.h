#pragma once
// An httplib::Server on 127.0.0.1 with an ephemeral port, running on a background
// thread for one test and stopped (thread joined) when the object goes away.
//
//   vxcloud::test::LoopbackServer server([](httplib::Server& s) {
//       s.Get("/hello", [](const httplib::Request&, httplib::Response& res) {
//           res.set_content("hi", "text/plain");
//       });
//   });
//   ASSERT_TRUE(server.running());
//   client.perform({.url = server.url("/hello")});
#include <httplib.h>

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <thread>

namespace vxcloud::test {

class LoopbackServer {
public:
    // Registers nothing and does not start: add routes through server(), then start().
    LoopbackServer();
    // Registers the routes and starts at once.
    explicit LoopbackServer(const std::function<void(httplib::Server&)>& routes);
    ~LoopbackServer();
    LoopbackServer(const LoopbackServer&) = delete;
    LoopbackServer& operator=(const LoopbackServer&) = delete;

    httplib::Server& server() { return *server_; }

    // Binds 127.0.0.1 on a free port and waits (up to 10 s) until requests are served.
    bool start();
    // Stops accepting, lets running handlers finish and joins the thread. Idempotent.
    void stop();

    bool running() const { return running_; }
    int port() const { return port_; }
    std::string baseUrl() const;                // "http://127.0.0.1:<port>"
    std::string url(std::string_view path) const;  // baseUrl() + path

private:
    bool waitUntilListening() const;

    std::unique_ptr<httplib::Server> server_;
    std::atomic<bool> finished_{false};
    std::thread thread_;
    int port_ = -1;
    bool running_ = false;
};

// A 127.0.0.1 port that was free a moment ago and has nothing listening on it now:
// connecting to it is refused.
int closedLoopbackPort();

}  // namespace vxcloud::test
