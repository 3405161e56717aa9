#pragma once
// One Dropbox API call as the route handlers see it (authenticated account, decoded
// argument), the argument validation with the service's 400 texts, and the error values
// the handlers throw to answer in Dropbox's words.
#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "framework/Http.h"
#include "framework/ProviderModule.h"
#include "framework/Store.h"

namespace vxcloud::sandbox::dropbox {

using nlohmann::json;

enum class Style { rpc, upload, download };

// An answer other than success, thrown by handlers and caught by the route wrapper.
struct Failure {
    int status = 400;
    json body;         // JSON answers (401, 409, ...)
    std::string text;  // plain-text answers (400)
};
[[noreturn]] void badRequest(const std::string& route, const std::string& message);
[[noreturn]] void routeError(const json& error);  // 409 with the error envelope
json envelope(const json& error);
// "path/conflict/file/..": the tags from the outside in, then some dots (never match on it).
std::string errorSummary(const json& error);

json tag(const std::string& name);
json tagWith(const std::string& name, const json& payload);  // {".tag": name, name: payload}

// Failures of the shared error unions, mapped to a route's union by the caller.
struct WriteFailure {
    json error;  // WriteError
};
struct RelocationFailure {
    json error;  // RelocationError
};

enum class PathKind {
    write,       // "/..." or "id:..."
    list,        // also "" for the root
    readOrRev,   // also "rev:<hex>", not the root
};

class Args {
public:
    Args(const json& value, std::string route, std::string where);

    const json& raw() const { return value_; }
    bool has(const char* key) const;
    std::string string(const char* key) const;
    std::optional<std::string> optionalString(const char* key) const;
    bool flag(const char* key, bool fallback) const;
    std::int64_t integer(const char* key, std::int64_t fallback, std::int64_t min, std::int64_t max) const;
    std::optional<std::int64_t> optionalInteger(const char* key, std::int64_t min, std::int64_t max) const;
    Args object(const char* key) const;
    const json& array(const char* key) const;
    // A union member given as "add" or {".tag": "add", ...}.
    std::string unionTag(const char* key, const std::string& fallback) const;
    // A path field checked against the route's path pattern.
    std::string path(const char* key, PathKind kind) const;
    // A "%Y-%m-%dT%H:%M:%SZ" timestamp; 0 when absent.
    std::int64_t timestamp(const char* key) const;
    [[noreturn]] void fail(const std::string& message) const;

private:
    const json& field(const char* key) const;
    json value_;
    std::string route_;
    std::string where_;
};

struct Call {
    Request& request;
    Response& response;
    AccountInfo account;
    std::string route;
    json arg;
    std::string where;  // "request body", "HTTP header \"Dropbox-API-Arg\"", ...

    Args args() const { return Args(arg, route, where); }
    void ok(const json& result) { response.json(200, result); }
};

}  // namespace vxcloud::sandbox::dropbox
