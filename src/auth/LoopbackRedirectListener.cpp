#include "auth/LoopbackRedirectListener.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <mutex>
#include <thread>

#include "platform/HtmlText.h"
#include "vxcloud/platform/Log.h"

namespace vxcloud::auth {
namespace {

// A browser sends its request at once; a connection that stays silent this long (a
// speculative pre-connection) is dropped so the real one gets its turn.
constexpr int kRequestWaitMs = 2000;
constexpr std::size_t kMaxRequestHead = 16 * 1024;
constexpr int kPollTickMs = 100;

const char* reasonPhrase(int status) {
    switch (status) {
        case 200: return "OK";
        case 400: return "Bad Request";
        case 404: return "Not Found";
        case 405: return "Method Not Allowed";
        case 431: return "Request Header Fields Too Large";
        default: return "Error";
    }
}

void sendAll(int fd, const std::string& data) {
    std::size_t sent = 0;
    while (sent < data.size()) {
        const ssize_t n = ::send(fd, data.data() + sent, data.size() - sent, MSG_NOSIGNAL);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return;
        sent += static_cast<std::size_t>(n);
    }
}

void answer(int fd, const LoopbackRedirectListener::Reply& reply) {
    const std::string body = "<!doctype html>\n<html><head><meta charset=\"utf-8\"><title>" +
                             htmlEscape(reply.title) + "</title></head>\n<body><h1>" + htmlEscape(reply.title) +
                             "</h1><p>" + htmlEscape(reply.message) + "</p></body></html>\n";
    std::string head = "HTTP/1.1 " + std::to_string(reply.status) + " " + reasonPhrase(reply.status) + "\r\n";
    head += "Content-Type: text/html; charset=utf-8\r\n";
    head += "Content-Length: " + std::to_string(body.size()) + "\r\n";
    head += "Cache-Control: no-store\r\nReferrer-Policy: no-referrer\r\nConnection: close\r\n\r\n";
    sendAll(fd, head + body);
}

// Reads up to the end of the request head; false when the client went quiet or away.
bool readRequestHead(int fd, std::string& head, const std::atomic<bool>& stopping) {
    char buffer[2048];
    int waited = 0;
    while (head.find("\r\n\r\n") == std::string::npos && head.size() < kMaxRequestHead) {
        pollfd p{fd, POLLIN, 0};
        const int ready = ::poll(&p, 1, kPollTickMs);
        if (ready < 0 && errno == EINTR) continue;
        if (ready < 0 || stopping.load()) return false;
        if (ready == 0) {
            waited += kPollTickMs;
            if (waited >= kRequestWaitMs) return false;
            continue;
        }
        const ssize_t n = ::recv(fd, buffer, sizeof buffer, 0);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return !head.empty() && head.find("\r\n") != std::string::npos;
        head.append(buffer, static_cast<std::size_t>(n));
    }
    return true;
}

}  // namespace

struct LoopbackRedirectListener::State {
    int listenFd = -1;
    Handler handler;
    std::atomic<bool> stopping{false};
    std::thread thread;
    std::mutex joinMutex;

    // Serves one connection; true when the sign-in is complete.
    bool serve(int fd) {
        std::string head;
        if (!readRequestHead(fd, head, stopping)) return false;
        const auto lineEnd = head.find("\r\n");
        if (lineEnd == std::string::npos) {
            answer(fd, {431, "Request too large", "The request could not be read.", false});
            return false;
        }
        const std::string line = head.substr(0, lineEnd);
        const auto firstSpace = line.find(' ');
        const auto secondSpace = line.find(' ', firstSpace == std::string::npos ? 0 : firstSpace + 1);
        if (firstSpace == std::string::npos || secondSpace == std::string::npos) {
            answer(fd, {400, "Bad request", "The request could not be read.", false});
            return false;
        }
        const std::string method = line.substr(0, firstSpace);
        const std::string target = line.substr(firstSpace + 1, secondSpace - firstSpace - 1);
        if (method != "GET") {
            answer(fd, {405, "Not supported", "Only the browser's redirect is served here.", false});
            return false;
        }
        Reply reply;
        try {
            reply = handler(target);
        } catch (const std::exception& e) {
            log::error("auth", std::string("the redirect handler threw: ") + e.what());
            reply = Reply{400, "Sign-in failed", "The sign-in could not be completed.", false};
        }
        answer(fd, reply);
        return reply.done;
    }

    void run() {
        while (!stopping.load()) {
            pollfd p{listenFd, POLLIN, 0};
            const int ready = ::poll(&p, 1, kPollTickMs);
            if (ready < 0 && errno != EINTR) break;
            if (ready <= 0) continue;
            const int fd = ::accept4(listenFd, nullptr, nullptr, SOCK_CLOEXEC);
            if (fd < 0) continue;
            const bool done = serve(fd);
            ::close(fd);
            if (done) break;
        }
        ::close(listenFd);
        listenFd = -1;
    }
};

std::unique_ptr<LoopbackRedirectListener> LoopbackRedirectListener::start(int port, Handler handler,
                                                                          std::string* error) {
    auto fail = [&](const std::string& what) -> std::unique_ptr<LoopbackRedirectListener> {
        if (error) *error = what + ": " + std::strerror(errno);
        return nullptr;
    };
    if (port < 0 || port > 65535) {
        errno = EINVAL;
        return fail("invalid port " + std::to_string(port));
    }
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return fail("socket");
    const int on = 1;
    ::setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    if (::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 || ::listen(fd, 8) != 0) {
        auto result = fail("cannot listen on 127.0.0.1:" + std::to_string(port));
        ::close(fd);
        return result;
    }
    socklen_t length = sizeof address;
    if (::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
        auto result = fail("getsockname");
        ::close(fd);
        return result;
    }
    auto state = std::make_shared<State>();
    state->listenFd = fd;
    state->handler = std::move(handler);
    // The thread keeps the state, so stopping from inside the handler is safe.
    state->thread = std::thread([state] { state->run(); });
    return std::unique_ptr<LoopbackRedirectListener>(
        new LoopbackRedirectListener(std::move(state), ntohs(address.sin_port)));
}

LoopbackRedirectListener::LoopbackRedirectListener(std::shared_ptr<State> state, int port)
    : state_(std::move(state)), port_(port) {}

LoopbackRedirectListener::~LoopbackRedirectListener() { stop(); }

void LoopbackRedirectListener::stop() {
    state_->stopping.store(true);
    std::lock_guard lock(state_->joinMutex);
    if (!state_->thread.joinable()) return;
    if (state_->thread.get_id() == std::this_thread::get_id()) {
        state_->thread.detach();
    } else {
        state_->thread.join();
    }
}

}  // namespace vxcloud::auth
