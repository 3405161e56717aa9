#include "dropbox/DropboxCall.h"

#include <algorithm>
#include <regex>

#include "dropbox/DropboxModule.h"
#include "framework/Text.h"

namespace vxcloud::sandbox::dropbox {
namespace {

const char* patternFor(PathKind kind) {
    switch (kind) {
        case PathKind::write: return R"((/(.|[\r\n])*)|(ns:[0-9]+(/.*)?)|(id:.*))";
        case PathKind::list: return R"((/(.|[\r\n])*)?|id:.*|(ns:[0-9]+(/.*)?))";
        case PathKind::readOrRev: return R"((/(.|[\r\n])*|id:.*)|(rev:[0-9a-f]{9,})|(ns:[0-9]+(/.*)?))";
    }
    return "";
}

bool matchesPattern(const std::string& path, PathKind kind) {
    switch (kind) {
        case PathKind::write:
            return path.rfind("/", 0) == 0 || path.rfind("id:", 0) == 0 || path.rfind("ns:", 0) == 0;
        case PathKind::list:
            return path.empty() || path.rfind("/", 0) == 0 || path.rfind("id:", 0) == 0 ||
                   path.rfind("ns:", 0) == 0;
        case PathKind::readOrRev:
            if (path.rfind("rev:", 0) == 0) {
                static const std::regex rev("rev:[0-9a-f]{9,}");
                return std::regex_match(path, rev);
            }
            return path.rfind("/", 0) == 0 || path.rfind("id:", 0) == 0 || path.rfind("ns:", 0) == 0;
    }
    return false;
}

std::string typeName(const json& v) {
    if (v.is_null()) return "null";
    if (v.is_boolean()) return "boolean";
    if (v.is_number()) return "number";
    if (v.is_string()) return "string";
    if (v.is_array()) return "list";
    return "object";
}

}  // namespace

void badRequest(const std::string& route, const std::string& message) {
    throw Failure{400, nullptr, "Error in call to API function \"" + route + "\": " + message};
}

void routeError(const json& error) { throw Failure{409, envelope(error), {}}; }

std::string errorSummary(const json& error) {
    std::string out;
    const json* current = &error;
    for (int depth = 0; depth < 8 && current && current->is_object(); ++depth) {
        const auto t = current->find(".tag");
        if (t == current->end() || !t->is_string()) break;
        const std::string name = t->get<std::string>();
        out += name + "/";
        const auto nested = current->find(name);
        const auto reason = current->find("reason");
        if (nested != current->end() && nested->is_object()) {
            current = &*nested;
        } else if (reason != current->end() && reason->is_object()) {
            current = &*reason;  // an inlined struct member (UploadWriteFailed)
        } else {
            break;
        }
    }
    // The service appends a varying number of dots so that nobody parses the summary.
    return out + std::string(std::hash<std::string>{}(out) % 3, '.');
}

json envelope(const json& error) { return {{"error_summary", errorSummary(error)}, {"error", error}}; }

json tag(const std::string& name) { return {{".tag", name}}; }

json tagWith(const std::string& name, const json& payload) { return {{".tag", name}, {name, payload}}; }

Args::Args(const json& value, std::string route, std::string where)
    : value_(value), route_(std::move(route)), where_(std::move(where)) {}

void Args::fail(const std::string& message) const { badRequest(route_, where_ + ": " + message); }

bool Args::has(const char* key) const { return value_.is_object() && value_.contains(key) && !value_[key].is_null(); }

const json& Args::field(const char* key) const {
    static const json null;
    if (!value_.is_object()) return null;
    const auto it = value_.find(key);
    return it == value_.end() ? null : *it;
}

std::string Args::string(const char* key) const {
    const json& v = field(key);
    if (v.is_null()) fail("missing required field '" + std::string(key) + "'");
    if (!v.is_string()) fail(std::string(key) + ": expected string, got " + typeName(v));
    return v.get<std::string>();
}

std::optional<std::string> Args::optionalString(const char* key) const {
    if (!has(key)) return std::nullopt;
    return string(key);
}

bool Args::flag(const char* key, bool fallback) const {
    const json& v = field(key);
    if (v.is_null()) return fallback;
    if (!v.is_boolean()) fail(std::string(key) + ": expected boolean, got " + typeName(v));
    return v.get<bool>();
}

std::optional<std::int64_t> Args::optionalInteger(const char* key, std::int64_t min, std::int64_t max) const {
    const json& v = field(key);
    if (v.is_null()) return std::nullopt;
    if (!v.is_number_integer()) fail(std::string(key) + ": expected integer, got " + typeName(v));
    const auto n = v.get<std::int64_t>();
    if (n < min || n > max) {
        fail(std::string(key) + ": " + std::to_string(n) + " is not within range [" + std::to_string(min) + ", " +
             std::to_string(max) + "]");
    }
    return n;
}

std::int64_t Args::integer(const char* key, std::int64_t fallback, std::int64_t min, std::int64_t max) const {
    return optionalInteger(key, min, max).value_or(fallback);
}

Args Args::object(const char* key) const {
    const json& v = field(key);
    if (v.is_null()) fail("missing required field '" + std::string(key) + "'");
    if (!v.is_object()) fail(std::string(key) + ": expected object, got " + typeName(v));
    return Args(v, route_, where_ + ": " + key);
}

const json& Args::array(const char* key) const {
    const json& v = field(key);
    if (v.is_null()) fail("missing required field '" + std::string(key) + "'");
    if (!v.is_array()) fail(std::string(key) + ": expected list, got " + typeName(v));
    return v;
}

std::string Args::unionTag(const char* key, const std::string& fallback) const {
    const json& v = field(key);
    if (v.is_null()) return fallback;
    if (v.is_string()) return v.get<std::string>();
    if (v.is_object() && v.contains(".tag") && v[".tag"].is_string()) return v[".tag"].get<std::string>();
    fail(std::string(key) + ": expected union, got " + typeName(v));
}

std::string Args::path(const char* key, PathKind kind) const {
    const std::string value = string(key);
    if (!matchesPattern(value, kind)) {
        fail(std::string(key) + ": '" + value + "' did not match pattern '" + patternFor(kind) + "'");
    }
    if (value == "/" && kind == PathKind::list) {
        fail(std::string(key) + ": Specify the root folder as an empty string rather than as \"/\".");
    }
    if (kind == PathKind::readOrRev && (value == "/" || value.empty())) {
        fail(std::string(key) + ": The root folder is unsupported.");
    }
    return value;
}

std::int64_t Args::timestamp(const char* key) const {
    const auto text = optionalString(key);
    if (!text) return 0;
    const std::int64_t seconds = parseUtc(*text);
    if (seconds < 0) fail(std::string(key) + ": timestamp '" + *text + "' does not match format '%Y-%m-%dT%H:%M:%SZ'");
    return seconds;
}

void DropboxModule::route(Router& router, Style style, const std::string& name, const std::string& scope,
                          bool voidArg, std::function<void(Call&)> handler) {
    const std::string base = style == Style::rpc ? "/dropbox/api/2/" : "/dropbox/content/2/";
    auto run = [this, style, name, scope, voidArg, handler](Request& q, Response& r) {
        dispatch(style, name, scope, voidArg, handler, q, r);
    };
    router.exact("POST", base + name, "dropbox/" + name, run);
    if (style == Style::download) router.exact("GET", base + name, "dropbox/" + name, run);
}

void DropboxModule::dispatch(Style style, const std::string& name, const std::string& scope, bool voidArg,
                             const std::function<void(Call&)>& handler, Request& request, Response& response) {
    try {
        // Authorization first, as the service does.
        const Caller who = caller(request);
        switch (who.status) {
            case Caller::Status::missing:
                badRequest(name, "Must provide HTTP header \"Authorization\" or URL parameter \"authorization\".");
            case Caller::Status::malformed:
                badRequest(name, "Invalid authorization value in HTTP header \"Authorization\": \"" +
                                     request.headerOr("Authorization") +
                                     "\".  Expecting \"Bearer <oauth2-access-token>\".");
            case Caller::Status::expired: throw Failure{401, envelope(tag("expired_access_token")), {}};
            case Caller::Status::invalid: throw Failure{401, envelope(tag("invalid_access_token")), {}};
            case Caller::Status::valid: break;
        }
        if (!scope.empty() && !who.scope.empty() && !who.granted(scope)) {
            throw Failure{401, envelope({{".tag", "missing_scope"}, {"required_scope", scope}}), {}};
        }
        const AccountInfo* account = &who.account;

        // The argument, in the place and encoding the endpoint style prescribes.
        const bool rejectNonAscii = currentSettings().rejectNonAsciiArg;
        const std::string contentType = request.headerOr("Content-Type");
        const std::string media = request.mediaType();
        auto badContentType = [&](const std::string& expected) {
            badRequest(name, "Bad HTTP \"Content-Type\" header: \"" + contentType + "\".  Expecting one of " +
                                 expected + ".");
        };
        const bool corsHack = asciiLower(contentType) == "text/plain; charset=dropbox-cors-hack";
        json arg;
        std::string where;
        if (style == Style::rpc) {
            where = "request body";
            const bool emptyBody = request.body.empty();
            if (!(voidArg && emptyBody && contentType.empty()) && media != "application/json" && !corsHack) {
                badContentType("\"application/json\", \"text/plain; charset=dropbox-cors-hack\"");
            }
            if (!emptyBody) {
                arg = json::parse(request.body.view(), nullptr, false);
                if (arg.is_discarded()) badRequest(name, "request body: could not decode input as JSON");
            }
            if (!voidArg && !arg.is_object()) badRequest(name, "request body: expected object, got " +
                                                                   std::string(arg.is_null() ? "null" : arg.type_name()));
            if (voidArg && !arg.is_null()) badRequest(name, "request body: expected null, got " + std::string(arg.type_name()));
        } else {
            if (style == Style::upload && media != "application/octet-stream" && !corsHack) {
                badContentType("\"application/octet-stream\", \"text/plain; charset=dropbox-cors-hack\"");
            }
            if (style == Style::download) {
                if (!contentType.empty() && !corsHack && media != "text/plain" && media != "application/octet-stream") {
                    badContentType("\"text/plain; charset=dropbox-cors-hack\"");
                }
                if (!request.body.empty()) badRequest(name, "request body: must be empty for download-style routes");
            }
            std::string text;
            if (const auto header = request.header("Dropbox-API-Arg")) {
                where = "HTTP header \"Dropbox-API-Arg\"";
                text = *header;
                const bool nonAscii = std::any_of(text.begin(), text.end(),
                                                  [](char c) { return static_cast<unsigned char>(c) >= 0x7F; });
                if (nonAscii && rejectNonAscii) badRequest(name, where + ": could not decode input as JSON");
            } else if (const auto query = request.queryParam("arg")) {
                where = "URL parameter \"arg\"";
                text = *query;
            } else {
                badRequest(name, "Must provide HTTP header \"Dropbox-API-Arg\" or URL parameter \"arg\".");
            }
            arg = json::parse(text, nullptr, false);
            if (arg.is_discarded()) badRequest(name, where + ": could not decode input as JSON");
            if (!arg.is_object()) badRequest(name, where + ": expected object, got " + std::string(arg.type_name()));
        }

        Call call{request, response, *account, name, std::move(arg), where};
        handler(call);
    } catch (const Failure& failure) {
        if (failure.status == 400 || failure.body.is_null()) {
            response.text(failure.status, failure.text);
        } else {
            response.json(failure.status, failure.body);
        }
    }
}

}  // namespace vxcloud::sandbox::dropbox
