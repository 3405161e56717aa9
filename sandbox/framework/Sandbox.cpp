#include "vxcloud_sandbox/Sandbox.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "framework/Admin.h"
#include "framework/Certificates.h"
#include "framework/ProviderModule.h"
#include "framework/Server.h"
#include "framework/StateOps.h"

namespace vxcloud::sandbox {
namespace {

bool isLoopback(const std::string& host) {
    return host == "127.0.0.1" || host == "localhost" || host == "::1" || host.rfind("127.", 0) == 0;
}

void setError(std::string* out, const std::string& message) {
    if (out) *out = message;
}

}  // namespace

struct Sandbox::Impl {
    Options options;
    Clock clock;
    std::atomic<bool> autoApprove{false};
    Counters counters;
    FaultInjector faults;
    Server server{counters, faults};
    std::string host = "127.0.0.1";
    ProviderContext context{clock, autoApprove, [this] { return base(); }};
    std::vector<std::unique_ptr<ProviderModule>> modules;
    std::unique_ptr<ServerCertificate> certificate;  // with TLS, made at the first start

    std::string base() const {
        const std::string shown = host.find(':') != std::string::npos ? "[" + host + "]" : host;
        return (options.tls ? "https://" : "http://") + shown + ":" + std::to_string(server.port());
    }

    ProviderModule* module(const std::string& name) const {
        for (const auto& m : modules) {
            if (m->name() == name) return m.get();
        }
        return nullptr;
    }
};

Sandbox::Sandbox() : Sandbox(Options{}) {}

Sandbox::Sandbox(Options options) : impl_(std::make_unique<Impl>()) {
    impl_->options = options;
    impl_->autoApprove = options.autoApprove;
    impl_->modules = createProviderModules(impl_->context);
    for (const auto& module : impl_->modules) {
        auto router = impl_->server.routerFor(module.get());
        module->registerRoutes(*router);
    }
    registerAdminRoutes(*impl_->server.routerFor(nullptr), *this);
}

Sandbox::~Sandbox() { stop(); }

bool Sandbox::start(int port, const std::string& host, std::string* error) {
    if (!impl_->options.allowRemote && !isLoopback(host)) {
        setError(error, "refusing to serve on " + host + ": the sandbox is for loopback only");
        return false;
    }
    if (port < 0 || port > 65535) {
        setError(error, "port " + std::to_string(port) + " is out of range");
        return false;
    }
    impl_->host = host == "localhost" ? "127.0.0.1" : host;
    std::string message;
    if (impl_->options.tls && !impl_->certificate) {
        std::vector<std::string> names = {"127.0.0.1", "::1", "localhost"};
        if (std::find(names.begin(), names.end(), impl_->host) == names.end()) names.push_back(impl_->host);
        impl_->certificate = ServerCertificate::create(names, message);
        if (!impl_->certificate) {
            setError(error, message);
            return false;
        }
    }
    if (!impl_->server.start(impl_->host, port, message, impl_->certificate.get())) {
        setError(error, message);
        return false;
    }
    return true;
}

void Sandbox::stop() { impl_->server.stop(); }
bool Sandbox::running() const { return impl_->server.running(); }
int Sandbox::port() const { return impl_->server.port(); }
std::string Sandbox::host() const { return impl_->host; }
std::string Sandbox::baseUrl() const { return impl_->base(); }
std::string Sandbox::adminUrl() const { return impl_->base() + "/admin"; }
std::string Sandbox::caFile() const { return impl_->certificate ? impl_->certificate->caFile() : std::string(); }

std::vector<std::string> Sandbox::providers() const {
    std::vector<std::string> out;
    for (const auto& m : impl_->modules) out.push_back(m->name());
    return out;
}

std::map<std::string, std::string> Sandbox::endpoints(const std::string& provider) const {
    const auto* m = impl_->module(provider);
    return m ? m->endpoints(baseUrl()) : std::map<std::string, std::string>{};
}

std::string Sandbox::endpoint(const std::string& provider, const std::string& role) const {
    const auto all = endpoints(provider);
    const auto it = all.find(role);
    return it == all.end() ? std::string() : it->second;
}

std::vector<SandboxAccount> Sandbox::accounts(const std::string& provider) const {
    std::vector<SandboxAccount> out;
    for (const auto& m : impl_->modules) {
        if (!provider.empty() && m->name() != provider) continue;
        for (const auto& a : m->accounts()) {
            out.push_back(SandboxAccount{m->name(), a.id, a.email, a.displayName(), a.seededAccessToken,
                                         a.seededRefreshToken, m->accountDetails(a, baseUrl())});
        }
    }
    return out;
}

SandboxAccount Sandbox::account(const std::string& provider) const {
    const auto all = accounts(provider);
    return all.empty() ? SandboxAccount{} : all.front();
}

Json Sandbox::describe() const {
    Json providers = Json::object();
    for (const auto& m : impl_->modules) providers[m->name()] = m->endpoints(baseUrl());
    Json accountList = Json::array();
    for (const auto& a : accounts()) {
        Json entry = {{"provider", a.provider},
                      {"user_id", a.userId},
                      {"email", a.email},
                      {"display_name", a.displayName},
                      {"access_token", a.accessToken},
                      {"refresh_token", a.refreshToken}};
        for (const auto& [name, value] : a.details) entry[name] = value;
        accountList.push_back(entry);
    }
    Json out = {{"sandbox", "vxcloud-sandbox"},
                {"base", baseUrl()},
                {"admin", adminUrl()},
                {"providers", providers},
                {"accounts", accountList}};
    if (!caFile().empty()) out["ca_file"] = caFile();
    return out;
}

std::string Sandbox::readyLine() const { return describe().dump(); }

std::vector<std::string> Sandbox::routes(const std::string& provider) const {
    return impl_->server.routeKeys(provider);
}

bool Sandbox::enqueueFault(const std::string& route, const FaultSpec& fault, int times, std::string* error) {
    if (route.empty()) {
        setError(error, "a fault needs a route (\"dropbox/files/upload\", \"dropbox/*\" or \"*\")");
        return false;
    }
    if (times < 1 || times > 100000) {
        setError(error, "times must be from 1 to 100000");
        return false;
    }
    const auto known = routes();
    const bool wildcard = route == "*" || (route.size() > 2 && route.compare(route.size() - 2, 2, "/*") == 0 &&
                                           impl_->module(route.substr(0, route.size() - 2)));
    if (!wildcard && std::find(known.begin(), known.end(), route) == known.end()) {
        setError(error, "unknown route \"" + route + "\"");
        return false;
    }
    // The provider decides whether it can word the fault (an error without a status, ...).
    const ProviderModule* owner = impl_->module(route.substr(0, route.find('/')));
    if (owner) {
        if (const auto refused = owner->refuseFault(route, fault)) {
            setError(error, *refused);
            return false;
        }
    } else if (fault.status == 0 && !fault.error.empty()) {
        setError(error, "a fault for every provider needs a status with error=");
        return false;
    }
    impl_->faults.enqueue(route, fault, times);
    return true;
}

void Sandbox::clearFaults(const std::string& route) { impl_->faults.clear(route); }

void Sandbox::setRandomFaults(double rate, std::uint64_t seed) { impl_->faults.setRandom(rate, seed); }

std::int64_t Sandbox::randomFaultsDrawn() const { return impl_->faults.randomDrawn(); }

RouteStats Sandbox::stats(const std::string& route) const {
    RouteStats s = impl_->counters.get(route);
    s.faultsPending = impl_->faults.pending(route);
    return s;
}

std::vector<RouteStats> Sandbox::allStats() const {
    auto all = impl_->counters.all();
    for (auto& s : all) s.faultsPending = impl_->faults.pending(s.route);
    for (const auto& [route, count] : impl_->faults.pendingByRoute()) {
        const bool seen = std::any_of(all.begin(), all.end(), [&](const RouteStats& s) { return s.route == route; });
        if (!seen) {
            RouteStats s;
            s.route = route;
            s.faultsPending = count;
            all.push_back(s);
        }
    }
    return all;
}

void Sandbox::resetStats() { impl_->counters.reset(); }

namespace {

template <class F>
auto onModule(const Sandbox::Impl& impl, const std::string& provider, std::string* error, F&& f)
    -> decltype(f(std::declval<ProviderModule&>())) {
    for (const auto& m : impl.modules) {
        if (m->name() == provider) return f(*m);
    }
    setError(error, "unknown provider \"" + provider + "\"");
    return {};
}

}  // namespace

Json Sandbox::putFile(const std::string& provider, const std::string& path, std::string_view bytes,
                      const std::string& account, std::string* error) {
    return onModule(*impl_, provider, error, [&](ProviderModule& m) {
        std::string message;
        Json out = state::putFile(m, account, path, ByteBuffer::copyOf(bytes), message);
        if (out.is_null()) setError(error, message);
        return out;
    });
}

Json Sandbox::putFolder(const std::string& provider, const std::string& path, const std::string& account,
                        std::string* error) {
    return onModule(*impl_, provider, error, [&](ProviderModule& m) {
        std::string message;
        Json out = state::putFolder(m, account, path, message);
        if (out.is_null()) setError(error, message);
        return out;
    });
}

Json Sandbox::changeFile(const std::string& provider, const std::string& path, std::string_view bytes,
                         const std::string& account, std::string* error) {
    return onModule(*impl_, provider, error, [&](ProviderModule& m) {
        std::string message;
        Json out = state::changeFile(m, account, path, ByteBuffer::copyOf(bytes), message);
        if (out.is_null()) setError(error, message);
        return out;
    });
}

bool Sandbox::removeItem(const std::string& provider, const std::string& path, const std::string& account,
                         std::string* error) {
    return onModule(*impl_, provider, error, [&](ProviderModule& m) {
        std::string message;
        const bool ok = state::remove(m, account, path, message);
        if (!ok) setError(error, message);
        return ok;
    });
}

std::optional<std::string> Sandbox::fileContent(const std::string& provider, const std::string& path,
                                                const std::string& account) const {
    return onModule(*impl_, provider, nullptr, [&](ProviderModule& m) -> std::optional<std::string> {
        auto bytes = state::content(m, account, path);
        if (!bytes) return std::nullopt;
        return bytes->toString();
    });
}

Json Sandbox::metadata(const std::string& provider, const std::string& path, const std::string& account) const {
    return onModule(*impl_, provider, nullptr, [&](ProviderModule& m) { return state::metadata(m, account, path); });
}

Json Sandbox::listState(const std::string& provider, const std::string& account) const {
    return onModule(*impl_, provider, nullptr, [&](ProviderModule& m) { return state::list(m, account); });
}

bool Sandbox::setQuota(const std::string& provider, std::int64_t bytes, const std::string& account) {
    return onModule(*impl_, provider, nullptr,
                    [&](ProviderModule& m) { return state::setQuota(m, account, bytes, false); });
}

bool Sandbox::fillQuota(const std::string& provider, const std::string& account) {
    return onModule(*impl_, provider, nullptr, [&](ProviderModule& m) { return state::setQuota(m, account, 0, true); });
}

bool Sandbox::setAccessTokenLifetime(const std::string& provider, std::int64_t seconds) {
    if (seconds < 0) return false;
    return onModule(*impl_, provider, nullptr, [&](ProviderModule& m) {
        m.tokens().setAccessLifetime(seconds);
        return true;
    });
}

int Sandbox::expireAccessTokens(const std::string& provider, const std::string& account,
                                const std::string& accessToken) {
    return onModule(*impl_, provider, nullptr, [&](ProviderModule& m) {
        std::string accountId;
        if (!account.empty()) {
            const auto info = m.findAccount(account);
            if (!info) return 0;
            accountId = info->id;
        }
        return m.tokens().expireAccessTokens(accountId, accessToken);
    });
}

bool Sandbox::revokeRefreshToken(const std::string& provider, const std::string& refreshToken) {
    return onModule(*impl_, provider, nullptr,
                    [&](ProviderModule& m) { return m.tokens().revokeRefreshToken(refreshToken); });
}

bool Sandbox::revokeAccessToken(const std::string& provider, const std::string& accessToken) {
    return onModule(*impl_, provider, nullptr,
                    [&](ProviderModule& m) { return m.tokens().revokeAccessToken(accessToken); });
}

bool Sandbox::expireRefreshToken(const std::string& provider, const std::string& refreshToken) {
    return onModule(*impl_, provider, nullptr,
                    [&](ProviderModule& m) { return m.tokens().expireRefreshToken(refreshToken); });
}

Json Sandbox::pendingAuthorizations(const std::string& provider) const {
    return onModule(*impl_, provider, nullptr, [&](ProviderModule& m) {
        Json out = Json::array();
        for (const auto& r : m.tokens().pendingAuthorizations()) {
            out.push_back({{"request", r.id},
                           {"client_id", r.clientId},
                           {"redirect_uri", r.redirectUri},
                           {"state", r.state},
                           {"scope", r.scope}});
        }
        return out;
    });
}

void Sandbox::setAutoApprove(bool enabled) { impl_->autoApprove = enabled; }

bool Sandbox::configure(const std::string& provider, const Json& settings, std::string* error) {
    return onModule(*impl_, provider, error, [&](ProviderModule& m) {
        std::string message;
        if (!settings.is_object()) {
            setError(error, "settings are a JSON object");
            return false;
        }
        const bool ok = m.configure(settings, message);
        if (!ok) setError(error, message);
        return ok;
    });
}

Json Sandbox::settings(const std::string& provider) const {
    return onModule(*impl_, provider, nullptr, [&](ProviderModule& m) { return m.settings(); });
}

void Sandbox::advanceClock(std::int64_t seconds) { impl_->clock.advance(seconds); }

}  // namespace vxcloud::sandbox
