#include "support/LoopbackServer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>

namespace vxcloud::test {

LoopbackServer::LoopbackServer() : server_(std::make_unique<httplib::Server>()) {
    // Enough workers that kept-alive client connections cannot starve new ones.
    server_->new_task_queue = [] { return new httplib::ThreadPool(32); };
    // An idle kept-alive connection holds its worker, and stop() waits for it, this long.
    server_->set_keep_alive_timeout(1);
}

LoopbackServer::LoopbackServer(const std::function<void(httplib::Server&)>& routes)
    : LoopbackServer() {
    if (routes) routes(*server_);
    start();
}

LoopbackServer::~LoopbackServer() { stop(); }

bool LoopbackServer::start() {
    if (running_) return true;
    port_ = server_->bind_to_any_port("127.0.0.1");
    if (port_ <= 0) return false;
    finished_ = false;
    thread_ = std::thread([this] {
        server_->listen_after_bind();
        finished_ = true;
    });
    running_ = waitUntilListening();
    if (!running_) stop();
    return running_;
}

// A stop() issued before the accept loop runs would be lost and the loop would never
// end, so both start() and stop() wait for it to be up (or already over).
bool LoopbackServer::waitUntilListening() const {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!server_->is_running() && !finished_ && std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    return server_->is_running();
}

void LoopbackServer::stop() {
    if (!thread_.joinable()) return;
    waitUntilListening();
    server_->stop();
    thread_.join();
    running_ = false;
}

std::string LoopbackServer::baseUrl() const { return "http://127.0.0.1:" + std::to_string(port_); }

std::string LoopbackServer::url(std::string_view path) const {
    return baseUrl() + std::string(path);
}

int closedLoopbackPort() {
    const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    if (fd < 0) return -1;
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = 0;
    socklen_t length = sizeof(address);
    int port = -1;
    if (::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0 &&
        ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length) == 0)
        port = ntohs(address.sin_port);
    ::close(fd);
    return port;
}

}  // namespace vxcloud::test
