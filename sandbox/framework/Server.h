#pragma once
// The sandbox's HTTP server: one listener on its own thread pool, a route table filled by
// the provider modules and the admin API, and the per-request machinery every route gets
// for free: fault injection (queued or by the X-Sandbox-Fault header), counters, in-flight
// tracking, request-body reading with byte counts and dropped connections.
#include <condition_variable>
#include <memory>
#include <mutex>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "framework/Counters.h"
#include "framework/Faults.h"
#include "framework/Http.h"

namespace vxcloud::sandbox {

class ProviderModule;
class ServerCertificate;

class Server {
public:
    Server(Counters& counters, FaultInjector& faults);
    ~Server();
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    // Routes of `module` (null for the sandbox's own admin routes, which take no faults).
    void addRoute(ProviderModule* module, const std::string& method, const std::string& pattern,
                  const std::string& key, Handler handler);
    // A route whose key `keyOf` names from the request (Router::addKeyed).
    void addKeyedRoute(ProviderModule* module, const std::string& method, const std::string& pattern,
                       std::vector<std::string> keys, RouteKeyOf keyOf, Handler handler);
    // A Router that registers into this server on behalf of `module`.
    std::unique_ptr<Router> routerFor(ProviderModule* module);
    std::vector<std::string> routeKeys(const std::string& provider) const;

    // Serves HTTPS with `certificate` when one is given, plain HTTP otherwise.
    bool start(const std::string& host, int port, std::string& error, const ServerCertificate* certificate = nullptr);
    void stop();
    bool running() const;
    int port() const { return port_; }

    struct Impl;

private:
    std::unique_ptr<Impl> impl_;
    int port_ = 0;
};

}  // namespace vxcloud::sandbox
