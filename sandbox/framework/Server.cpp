#include "framework/Server.h"

#include <httplib.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <thread>

#include "framework/Certificates.h"
#include "framework/Connection.h"
#include "framework/ProviderModule.h"
#include "framework/Text.h"

namespace vxcloud::sandbox {
namespace {

constexpr const char* kFaultHeader = "X-Sandbox-Fault";
// Where a multipart/form-data Content-Type waits while the library reads the body (below).
constexpr const char* kHeldContentType = "X-Sandbox-Held-Content-Type";
// Where the method of an OPTIONS request with a body waits while the library reads it as a POST.
constexpr const char* kHeldMethod = "X-Sandbox-Held-Method";

struct Route {
    ProviderModule* module = nullptr;
    std::string method;
    std::regex pattern;
    std::string key;                 // the route's key, or for a keyed route the first of its keys
    std::vector<std::string> keys;   // a keyed route: every key it may name
    RouteKeyOf keyOf;                // a keyed route: names the key from the request
    Handler handler;
};

ConnectionAddress addressOf(const httplib::Request& r) {
    return ConnectionAddress{r.local_addr, r.local_port, r.remote_addr, r.remote_port};
}

bool requestHasBody(const httplib::Request& r) {
    if (r.has_header("Transfer-Encoding")) return true;
    const auto length = r.get_header_value("Content-Length");
    return !length.empty() && length != "0";
}

std::string guessContentType(const std::string& body) {
    const auto first = body.find_first_not_of(" \r\n\t");
    if (first != std::string::npos && (body[first] == '{' || body[first] == '[')) return "application/json";
    return "text/plain; charset=utf-8";
}

class ModuleRouter : public Router {
public:
    ModuleRouter(Server& server, ProviderModule* module) : server_(server), module_(module) {}
    void add(const std::string& method, const std::string& pattern, const std::string& key,
             Handler handler) override {
        server_.addRoute(module_, method, pattern, key, std::move(handler));
    }
    void addKeyed(const std::string& method, const std::string& pattern, std::vector<std::string> keys,
                  RouteKeyOf keyOf, Handler handler) override {
        server_.addKeyedRoute(module_, method, pattern, std::move(keys), std::move(keyOf), std::move(handler));
    }

private:
    Server& server_;
    ProviderModule* module_;
};

}  // namespace

struct Server::Impl {
    Counters& counters;
    FaultInjector& faults;
    std::vector<Route> routes;
    std::unique_ptr<httplib::Server> http;
    std::thread thread;
    std::atomic<bool> stopping{false};
    std::mutex waitMutex;
    std::condition_variable waitCondition;

    Impl(Counters& c, FaultInjector& f) : counters(c), faults(f) {}

    const Route* match(const std::string& method, const std::string& path,
                       std::vector<std::string>& captures) const {
        const std::string wanted = method == "HEAD" ? "GET" : method;
        for (const auto& route : routes) {
            if (route.method != wanted) continue;
            std::smatch m;
            if (std::regex_match(path, m, route.pattern)) {
                captures.clear();
                for (std::size_t i = 1; i < m.size(); ++i) captures.push_back(m[i].str());
                return &route;
            }
        }
        return nullptr;
    }

    // Waits `ms`, or less when the server stops meanwhile.
    void pause(int ms) {
        std::unique_lock lock(waitMutex);
        waitCondition.wait_for(lock, std::chrono::milliseconds(ms), [this] { return stopping.load(); });
    }

    enum class BodyRead { complete, cut, failed, dropped };

    // Where a request's body is cut and how fast it is read: its fault's doing.
    struct BodyLimits {
        std::int64_t cutAt = -1;          // bytes kept before the connection is cut; < 0: never
        std::int64_t bytesPerSecond = 0;  // > 0: a slow uplink
    };
    // Names a keyed route's key from the body so far (settling its fault, which may change
    // the limits): nothing while it cannot tell; false when the fault drops the connection.
    using Settle = std::function<std::optional<bool>(std::string_view soFar, bool complete)>;

    // Reads the request body into `request`, counting bytes under `key` (which `settle` may
    // still name), within `limits`.
    BodyRead readBody(const httplib::Request& raw, const httplib::ContentReader* reader, Request& request,
                      BodyLimits& limits, const std::string& key, const std::string& provider,
                      const Settle& settle = nullptr) {
        std::int64_t received = 0;
        bool cut = false;
        bool ok = true;
        bool settled = !settle;
        bool dropped = false;
        const auto started = std::chrono::steady_clock::now();
        // Lets `settle` name the key; false when the connection is to be dropped.
        auto trySettle = [&](std::string& into, bool complete) {
            if (settled) return true;
            const auto verdict = settle(into, complete);
            if (!verdict) return true;
            settled = true;
            if (!*verdict) {
                dropped = true;
                return false;
            }
            // A cut the fault asks for below what is already in.
            if (limits.cutAt >= 0 && received >= limits.cutAt) {
                into.resize(static_cast<std::size_t>(limits.cutAt));
                received = limits.cutAt;
                cut = true;
            }
            return true;
        };
        auto take = [&](const char* data, std::size_t length, std::string& into) {
            std::size_t keep = length;
            if (limits.cutAt >= 0 && received + static_cast<std::int64_t>(length) >= limits.cutAt) {
                keep = static_cast<std::size_t>(limits.cutAt - received);
                cut = true;
            }
            into.append(data, keep);
            received += static_cast<std::int64_t>(keep);
            if (!cut && !trySettle(into, false)) return false;
            // A slow uplink: what has arrived may not have taken less than the rate allows.
            if (limits.bytesPerSecond > 0) {
                std::this_thread::sleep_until(started +
                                              std::chrono::microseconds(received * 1000000 / limits.bytesPerSecond));
            }
            return !cut;
        };
        std::string body;
        if (reader && !requestHasBody(raw)) {
            // No Content-Length and not chunked: no body (curl -X POST sends such requests).
        } else if (!reader) {
            take(raw.body.data(), raw.body.size(), body);
        } else {
            const auto declared = raw.get_header_value("Content-Length");
            if (!declared.empty() && declared.size() < 12) {
                body.reserve(std::min<std::size_t>(std::stoull(declared), std::size_t{256} << 20));
            }
            ok = (*reader)([&](const char* data, std::size_t length) { return take(data, length, body); });
        }
        if (ok && !cut && !dropped) trySettle(body, true);
        request.body = ByteBuffer::adopt(std::move(body));
        counters.received(key, provider, received);
        if (dropped) return BodyRead::dropped;
        if (cut) return BodyRead::cut;
        return ok ? BodyRead::complete : BodyRead::failed;
    }

    void write(const Response& response, httplib::Response& raw, std::int64_t cutAt, const std::string& key,
               const std::string& provider) {
        raw.status = response.status;
        for (const auto& [name, value] : response.headers) raw.set_header(name.c_str(), value.c_str());
        if (response.body.empty()) {
            if (!response.contentType.empty()) raw.set_header("Content-Type", response.contentType.c_str());
            return;
        }
        // Streamed from the shared buffer: no copy, and a place to cut the answer short.
        const ByteBuffer body = response.body;
        Counters* stats = &counters;
        raw.set_content_provider(
            body.size(), response.contentType.empty() ? "application/octet-stream" : response.contentType,
            [body, cutAt, stats, key, provider](std::size_t offset, std::size_t length, httplib::DataSink& sink) {
                std::size_t end = std::min(offset + std::min<std::size_t>(length, 1 << 16), body.size());
                if (cutAt >= 0 && end > static_cast<std::size_t>(cutAt)) end = static_cast<std::size_t>(cutAt);
                if (end <= offset) return false;  // the cut: the library closes the connection
                const auto* data = reinterpret_cast<const char*>(body.data()) + offset;
                if (!sink.write(data, end - offset)) return false;
                stats->sent(key, provider, static_cast<std::int64_t>(end - offset));
                return true;
            });
    }

    void injected(const FaultSpec& fault, ProviderModule* module, const Request& request, Response& response) {
        if (!fault.body.empty()) {
            response.text(fault.status, fault.body,
                          fault.contentType.empty() ? guessContentType(fault.body) : fault.contentType);
        } else if (module) {
            module->faultResponse(fault, request, response);
        } else {
            response.text(fault.status, "Injected failure\n");
        }
        // A fault that names only an error leaves the status to the module (Evernote's 200).
        if (fault.status) response.status = fault.status;
        if (fault.retryAfterSeconds >= 0) response.setHeader("Retry-After", std::to_string(fault.retryAfterSeconds));
        // Appended as written: some hosts send lower-case names a client must still read.
        for (const auto& [name, value] : fault.headers) response.headers.emplace_back(name, value);
    }

    void handle(const httplib::Request& raw, httplib::Response& rawResponse, const httplib::ContentReader* reader) {
        // Ranges are answered by the routes themselves.
        const_cast<httplib::Request&>(raw).ranges.clear();

        Request request;
        request.method = raw.has_header(kHeldMethod) ? raw.get_header_value(kHeldMethod) : raw.method;
        request.path = raw.path;
        request.target = raw.target;
        const bool held = raw.has_header(kHeldContentType);
        for (const auto& [name, value] : raw.headers) {
            if (asciiLower(name) == asciiLower(kHeldMethod)) continue;
            if (held && asciiLower(name) == "content-type") continue;
            if (held && asciiLower(name) == asciiLower(kHeldContentType)) {
                request.headers.emplace("Content-Type", value);
            } else {
                request.headers.emplace(name, value);
            }
        }
        for (const auto& [name, value] : raw.params) request.query.emplace(name, value);

        const Route* route = match(request.method, raw.path, request.captures);
        std::string key = route ? route->key : "unmatched";
        ProviderModule* module = route ? route->module : nullptr;
        const std::string provider = module ? module->name() : std::string();
        request.routeKey = key;

        bool counted = false;
        int finalStatus = 0;
        struct End {
            Impl& self;
            const std::string& key;
            const std::string& provider;
            int& status;
            bool& counted;
            ~End() {
                if (counted) self.counters.end(key, provider, status);
            }
        } end{*this, key, provider, finalStatus, counted};

        Response response;
        std::optional<FaultSpec> fault;
        std::string badFaultHeader;
        BodyLimits limits;
        std::int64_t cutResponseAt = -1;
        const bool hasBody = requestHasBody(raw);
        // Names the request's route, counts it and takes its fault: at once, or for a keyed
        // route once its body names the key. False when the fault drops the connection.
        auto settle = [&](const std::string& named) {
            key = named;
            request.routeKey = key;
            counters.begin(key, provider);
            counted = true;
            if (module) {
                if (raw.has_header(kFaultHeader)) {
                    fault = FaultSpec::parse(raw.get_header_value(kFaultHeader), &badFaultHeader);
                    if (fault) {
                        if (auto refused = module->refuseFault(key, *fault)) {
                            badFaultHeader = *refused;
                            fault.reset();
                        }
                    }
                } else {
                    fault = faults.take(key, provider, module->accessTokensRefresh());
                }
                if (fault) counters.faultHit(key, provider);
            }
            if (!fault) return true;
            if (fault->delayMs > 0) pause(fault->delayMs);
            if (fault->drop) {
                dropConnection(addressOf(raw));
                return false;
            }
            if (fault->dropAfterBytes >= 0) (hasBody ? limits.cutAt : cutResponseAt) = fault->dropAfterBytes;
            if (fault->dropResponseAfterBytes >= 0) cutResponseAt = fault->dropResponseAfterBytes;
            limits.bytesPerSecond = fault->readBytesPerSecond;
            return true;
        };

        BodyRead read;
        if (route && route->keyOf) {
            read = readBody(raw, reader, request, limits, key, provider,
                            [&](std::string_view soFar, bool complete) -> std::optional<bool> {
                                auto named = route->keyOf(request, soFar, complete);
                                if (!named && complete) named = route->key;
                                if (!named) return std::nullopt;
                                return settle(*named);
                            });
        } else {
            if (!settle(key)) return;
            read = readBody(raw, reader, request, limits, key, provider);
        }
        if (!counted) {
            // The client went away before a keyed route could be named.
            counters.begin(key, provider);
            counted = true;
        }
        switch (read) {
            case BodyRead::complete: break;
            case BodyRead::cut: dropConnection(addressOf(raw)); return;
            case BodyRead::dropped: return;
            case BodyRead::failed: return;  // the client went away mid-body: nothing is processed
        }
        if (!badFaultHeader.empty()) {
            response.text(400, std::string("Bad ") + kFaultHeader + " header: " + badFaultHeader + "\n");
            finalStatus = response.status;
            return write(response, rawResponse, -1, key, provider);
        }

        if (!route) {
            response.text(404, "No sandbox route for " + request.method + " " + raw.path + "\n");
        } else {
            if (fault && fault->expireToken) {
                if (const auto token = module->requestToken(request)) module->tokens().expireAccessTokens({}, *token);
            }
            if (fault && fault->quotaFull) request.quotaFull = true;
            // A status, or for modules that take them an error alone, makes an injected answer.
            const bool answers = fault && (fault->status || !fault->error.empty());
            if (answers && !fault->processed) {
                injected(*fault, module, request, response);
            } else {
                try {
                    route->handler(request, response);
                } catch (const std::exception& e) {
                    response = Response{};
                    response.text(500, std::string("Sandbox failure: ") + e.what() + "\n");
                } catch (...) {
                    response = Response{};
                    response.text(500, "Sandbox failure\n");
                }
                // The work is done, but the answer says otherwise.
                if (answers) {
                    response = Response{};
                    injected(*fault, module, request, response);
                }
            }
            if (module) module->decorateResponse(request, response);
        }
        finalStatus = response.status;
        write(response, rawResponse, cutResponseAt, key, provider);
    }
};

Server::Server(Counters& counters, FaultInjector& faults) : impl_(std::make_unique<Impl>(counters, faults)) {}

Server::~Server() { stop(); }

void Server::addRoute(ProviderModule* module, const std::string& method, const std::string& pattern,
                      const std::string& key, Handler handler) {
    impl_->routes.push_back(Route{module, method, std::regex(pattern), key, {key}, nullptr, std::move(handler)});
}

void Server::addKeyedRoute(ProviderModule* module, const std::string& method, const std::string& pattern,
                           std::vector<std::string> keys, RouteKeyOf keyOf, Handler handler) {
    const std::string first = keys.empty() ? std::string("unmatched") : keys.front();
    impl_->routes.push_back(
        Route{module, method, std::regex(pattern), first, std::move(keys), std::move(keyOf), std::move(handler)});
}

std::unique_ptr<Router> Server::routerFor(ProviderModule* module) {
    return std::make_unique<ModuleRouter>(*this, module);
}

std::vector<std::string> Server::routeKeys(const std::string& provider) const {
    std::vector<std::string> out;
    for (const auto& route : impl_->routes) {
        if (!route.module) continue;
        if (!provider.empty() && route.module->name() != provider) continue;
        for (const auto& key : route.keys) {
            if (std::find(out.begin(), out.end(), key) == out.end()) out.push_back(key);
        }
    }
    return out;
}

bool Server::start(const std::string& host, int port, std::string& error, const ServerCertificate* certificate) {
    if (impl_->http) {
        error = "the sandbox is already running";
        return false;
    }
    std::unique_ptr<httplib::Server> http;
    if (certificate) {
        auto secure = std::make_unique<httplib::SSLServer>(certificate->certificate(), certificate->key());
        if (!secure->is_valid()) {
            error = "cannot set up TLS with the sandbox's certificate";
            return false;
        }
        http = std::move(secure);
    } else {
        http = std::make_unique<httplib::Server>();
    }
    // Idle keep-alive connections hold a worker each; leave room for many clients.
    http->new_task_queue = [] { return new httplib::ThreadPool(48); };
    http->set_keep_alive_max_count(1000);
    http->set_keep_alive_timeout(5);
    http->set_read_timeout(30);
    http->set_write_timeout(30);
    // Address reuse only: the library's default also sets SO_REUSEPORT, which would let a
    // second sandbox share the port and split the traffic silently.
    http->set_socket_options([](socket_t sock) {
        int yes = 1;
        setsockopt(sock, SOL_SOCKET, SO_REUSEADDR, reinterpret_cast<const char*>(&yes), sizeof yes);
    });
    Impl* impl = impl_.get();
    auto plain = [impl](const httplib::Request& q, httplib::Response& r) { impl->handle(q, r, nullptr); };
    auto streamed = [impl](const httplib::Request& q, httplib::Response& r, const httplib::ContentReader& c) {
        impl->handle(q, r, &c);
    };
    // The library would parse multipart/form-data bodies itself, leniently, and answer a
    // malformed one with a bare 400; modules get such bodies whole instead, to check them and
    // word refusals as their provider does (framework/Multipart.h). The Content-Type is held
    // aside while the body is read, then restored for the module.
    http->set_pre_routing_handler([](const httplib::Request& q, httplib::Response&) {
        auto& headers = const_cast<httplib::Request&>(q).headers;
        const auto type = headers.find("Content-Type");
        if (type != headers.end() && asciiLower(type->second).rfind("multipart/form-data", 0) == 0) {
            headers.emplace(kHeldContentType, type->second);
            type->second = "application/octet-stream";
        }
        // The library reads no body of an OPTIONS request (Box's preflight check has one, and
        // left unread it would spoil the connection): read as a POST, handled as OPTIONS.
        if (q.method == "OPTIONS" && requestHasBody(q)) {
            headers.emplace(kHeldMethod, "OPTIONS");
            const_cast<httplib::Request&>(q).method = "POST";
        }
        return httplib::Server::HandlerResponse::Unhandled;
    });
    http->Get(".*", plain);
    http->Options(".*", plain);
    http->Post(".*", streamed);
    http->Put(".*", streamed);
    http->Patch(".*", streamed);
    http->Delete(".*", streamed);

    int bound = port;
    if (port == 0) {
        bound = http->bind_to_any_port(host);
        if (bound <= 0) {
            error = "cannot listen on " + host + " (no free port?)";
            return false;
        }
    } else if (!http->bind_to_port(host, port)) {
        error = "cannot listen on " + host + ":" + std::to_string(port) + " (in use, or not a local address)";
        return false;
    }
    port_ = bound;
    impl_->stopping = false;
    httplib::Server* raw = http.get();
    impl_->http = std::move(http);
    impl_->thread = std::thread([raw] { raw->listen_after_bind(); });
    // The library ignores stop() until its loop runs; wait for that, so a quick stop works.
    for (int i = 0; i < 10000 && !raw->is_running(); ++i) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    return true;
}

void Server::stop() {
    if (!impl_->http) return;
    {
        std::lock_guard lock(impl_->waitMutex);
        impl_->stopping = true;
    }
    impl_->waitCondition.notify_all();
    impl_->http->stop();
    // Idle keep-alive connections would otherwise hold the workers until their timeout.
    shutdownAcceptedConnections(port_);
    if (impl_->thread.joinable()) impl_->thread.join();
    impl_->http.reset();
}

bool Server::running() const { return impl_->http != nullptr; }

}  // namespace vxcloud::sandbox
