#pragma once
// Receives the browser's redirect at the end of a sign-in (RFC 8252 §7.3): a listener on
// 127.0.0.1 that answers plain HTTP GET requests with a short page until one of them
// completes the sign-in, then closes. Only loopback clients can reach it; nothing but
// the request line is read.
#include <functional>
#include <memory>
#include <string>

namespace vxcloud::auth {

class LoopbackRedirectListener {
public:
    struct Reply {
        int status = 200;
        std::string title;
        std::string message;  // plain text; escaped into the page
        bool done = false;    // the sign-in is complete: stop listening after this answer
    };
    // Gets each request's target ("/?code=...&state=..."); runs on the listener's thread.
    using Handler = std::function<Reply(const std::string& target)>;

    // Binds 127.0.0.1:`port` (0: a free port) and starts serving on a thread of its own.
    // Null, with `error` set, when the port cannot be had.
    static std::unique_ptr<LoopbackRedirectListener> start(int port, Handler handler, std::string* error = nullptr);

    ~LoopbackRedirectListener();
    LoopbackRedirectListener(const LoopbackRedirectListener&) = delete;
    LoopbackRedirectListener& operator=(const LoopbackRedirectListener&) = delete;

    int port() const { return port_; }
    // Closes the listening socket; callable from any thread, also from the handler.
    void stop();

    struct State;

private:
    LoopbackRedirectListener(std::shared_ptr<State> state, int port);

    std::shared_ptr<State> state_;
    int port_ = 0;
};

}  // namespace vxcloud::auth
