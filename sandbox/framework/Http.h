#pragma once
// The request and response as provider modules see them: plain values, independent of the
// HTTP server underneath, so modules only deal with the wire format of their provider.
#include <cstdint>
#include <functional>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "vxcloud/platform/ByteBuffer.h"

namespace vxcloud::sandbox {

class ProviderModule;

struct CaseInsensitiveLess {
    bool operator()(const std::string& a, const std::string& b) const;
};
using HeaderMap = std::multimap<std::string, std::string, CaseInsensitiveLess>;

struct Request {
    std::string method;                  // "GET", "POST", ...
    std::string path;                    // without the query
    std::string target;                  // as sent, with the query
    std::vector<std::string> captures;   // the route pattern's groups
    HeaderMap headers;
    std::multimap<std::string, std::string> query;  // decoded
    ByteBuffer body;                     // as sent, multipart bodies too (framework/Multipart.h)
    std::string routeKey;
    // Set by an injected fault: the account's storage counts as full for this request.
    bool quotaFull = false;

    std::optional<std::string> header(std::string_view name) const;
    std::string headerOr(std::string_view name, std::string fallback = {}) const;
    std::optional<std::string> queryParam(std::string_view name) const;
    // The token of "Authorization: Bearer <token>", if that is the header's form.
    std::optional<std::string> bearerToken() const;
    // The media type without parameters, lower-cased ("application/json").
    std::string mediaType() const;
};

struct Response {
    int status = 200;
    std::vector<std::pair<std::string, std::string>> headers;
    std::string contentType;
    ByteBuffer body;

    void setHeader(const std::string& name, const std::string& value);
    std::optional<std::string> header(std::string_view name) const;
    void json(int status, const nlohmann::json& value);
    void text(int status, std::string body, std::string contentType = "text/plain; charset=utf-8");
    void html(int status, std::string body);
    void bytes(int status, ByteBuffer body, std::string contentType = "application/octet-stream");
    void redirect(const std::string& location, int status = 302);
    void empty(int status);
    // Serves `content` honouring a single "Range: bytes=..." of the request: 206 with
    // Content-Range, 416 when unsatisfiable, 200 otherwise.
    void serveContent(const Request& request, const ByteBuffer& content,
                      std::string contentType = "application/octet-stream");
};

using Handler = std::function<void(Request&, Response&)>;

// Names the route of a request whose path does not say it (Evernote's Thrift methods share
// one URL; the method is named at the start of the body). Sees the request's headers and
// query and the body read so far; answers a key once it can tell, at the latest when
// `complete` (the whole body is in).
using RouteKeyOf = std::function<std::optional<std::string>(const Request&, std::string_view bodySoFar, bool complete)>;

// What a provider module uses to publish its routes. `pattern` is an ECMAScript regular
// expression matched against the whole path; `key` names the route for faults and counters.
class Router {
public:
    virtual ~Router() = default;
    virtual void add(const std::string& method, const std::string& pattern, const std::string& key,
                     Handler handler) = 0;
    // A route whose key `keyOf` names from the request before its fault is taken and it is
    // counted; `keys` lists every key it may name (for faults queued ahead and the routes list).
    virtual void addKeyed(const std::string& method, const std::string& pattern, std::vector<std::string> keys,
                          RouteKeyOf keyOf, Handler handler) = 0;
    // A literal path (regex characters are escaped).
    void exact(const std::string& method, const std::string& path, const std::string& key,
               Handler handler);
    static std::string escape(std::string_view literal);
};

// Wraps every handler a registration adds, so a module can look at a request before the
// framework's own handler does (OAuthEndpoints' routes, for a provider's extra checks).
class WrappingRouter : public Router {
public:
    WrappingRouter(Router& inner, std::function<Handler(Handler)> wrap) : inner_(inner), wrap_(std::move(wrap)) {}
    void add(const std::string& method, const std::string& pattern, const std::string& key, Handler handler) override {
        inner_.add(method, pattern, key, wrap_(std::move(handler)));
    }
    void addKeyed(const std::string& method, const std::string& pattern, std::vector<std::string> keys,
                  RouteKeyOf keyOf, Handler handler) override {
        inner_.addKeyed(method, pattern, std::move(keys), std::move(keyOf), wrap_(std::move(handler)));
    }

private:
    Router& inner_;
    std::function<Handler(Handler)> wrap_;
};

}  // namespace vxcloud::sandbox
