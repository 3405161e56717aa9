#include "framework/Admin.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "framework/Http.h"
#include "framework/Text.h"
#include "vxcloud_sandbox/Sandbox.h"

namespace vxcloud::sandbox {
namespace {

using nlohmann::json;

void fail(Response& response, int status, const std::string& message) {
    response.json(status, {{"error", message}});
}

// The JSON object of the request body ({} when empty); false after answering 400.
bool readJson(const Request& request, Response& response, json& out) {
    if (request.body.empty()) {
        out = json::object();
        return true;
    }
    out = json::parse(request.body.view(), nullptr, false);
    if (out.is_discarded() || !out.is_object()) {
        fail(response, 400, "the body must be a JSON object");
        return false;
    }
    return true;
}

std::string field(const json& body, const std::string& name) {
    const auto it = body.find(name);
    return it != body.end() && it->is_string() ? it->get<std::string>() : std::string();
}

std::string param(const Request& request, const json& body, const std::string& name) {
    if (auto value = request.queryParam(name)) return *value;
    return field(body, name);
}

json statsJson(const RouteStats& s) {
    json statuses = json::object();
    for (const auto& [status, count] : s.statuses) statuses[std::to_string(status)] = count;
    return {{"route", s.route},
            {"requests", s.requests},
            {"faults_hit", s.faultsHit},
            {"faults_pending", s.faultsPending},
            {"bytes_received", s.bytesReceived},
            {"bytes_sent", s.bytesSent},
            {"in_flight", s.inFlight},
            {"max_in_flight", s.maxInFlight},
            {"statuses", statuses}};
}

// The bytes of {"content": "text"} or {"content_base64": "..."}; false after answering 400.
bool contentOf(const json& body, Response& response, std::string& out) {
    if (body.contains("content_base64")) {
        bool ok = false;
        out = base64Decode(field(body, "content_base64"), &ok);
        if (!ok) fail(response, 400, "content_base64 is not base64");
        return ok;
    }
    if (body.contains("content") && !body["content"].is_string()) {
        fail(response, 400, "content must be a string");
        return false;
    }
    out = field(body, "content");
    return true;
}

}  // namespace

void registerAdminRoutes(Router& router, Sandbox& sandbox) {
    Sandbox* sb = &sandbox;
    const std::string provider = "/admin/([A-Za-z0-9_-]+)";

    router.exact("GET", "/admin", "admin", [sb](Request&, Response& r) { r.json(200, sb->describe()); });

    router.exact("GET", "/admin/routes", "admin/routes", [sb](Request& q, Response& r) {
        r.json(200, {{"routes", sb->routes(q.queryParam("provider").value_or(""))}});
    });

    router.exact("POST", "/admin/faults", "admin/faults", [sb](Request& q, Response& r) {
        json body;
        if (!readJson(q, r, body)) return;
        std::string error;
        const auto fault = FaultSpec::fromJson(body, &error);
        if (!fault) return fail(r, 400, error);
        int times = 1;
        if (body.contains("times")) {
            if (!body["times"].is_number_integer()) return fail(r, 400, "times must be a number");
            times = body["times"].get<int>();
        }
        const std::string route = field(body, "route");
        if (!sb->enqueueFault(route, *fault, times, &error)) return fail(r, 400, error);
        r.json(200, {{"route", route}, {"queued", times}, {"fault", fault->toJson()},
                     {"pending", sb->stats(route).faultsPending}});
    });

    router.exact("GET", "/admin/faults", "admin/faults", [sb](Request&, Response& r) {
        json pending = json::object();
        for (const auto& s : sb->allStats()) {
            if (s.faultsPending > 0) pending[s.route] = s.faultsPending;
        }
        r.json(200, {{"pending", pending}});
    });

    router.exact("DELETE", "/admin/faults", "admin/faults", [sb](Request& q, Response& r) {
        sb->clearFaults(q.queryParam("route").value_or(""));
        r.json(200, json::object());
    });

    router.exact("GET", "/admin/stats", "admin/stats", [sb](Request& q, Response& r) {
        if (const auto route = q.queryParam("route")) return r.json(200, statsJson(sb->stats(*route)));
        json all = json::array();
        for (const auto& s : sb->allStats()) all.push_back(statsJson(s));
        r.json(200, {{"routes", all}});
    });

    router.exact("POST", "/admin/stats/reset", "admin/stats", [sb](Request&, Response& r) {
        sb->resetStats();
        r.json(200, json::object());
    });

    router.exact("POST", "/admin/clock/advance", "admin/clock", [sb](Request& q, Response& r) {
        json body;
        if (!readJson(q, r, body)) return;
        if (!body.contains("seconds") || !body["seconds"].is_number_integer()) {
            return fail(r, 400, "seconds (a whole number) is required");
        }
        sb->advanceClock(body["seconds"].get<std::int64_t>());
        r.json(200, json::object());
    });

    router.exact("POST", "/admin/auto-approve", "admin/auto-approve", [sb](Request& q, Response& r) {
        json body;
        if (!readJson(q, r, body)) return;
        if (!body.contains("enabled") || !body["enabled"].is_boolean()) return fail(r, 400, "enabled (true/false) is required");
        sb->setAutoApprove(body["enabled"].get<bool>());
        r.json(200, json::object());
    });

    // Per provider.
    auto known = [sb](const Request& q, Response& r) {
        const auto all = sb->providers();
        if (std::find(all.begin(), all.end(), q.captures[0]) != all.end()) return true;
        fail(r, 404, "unknown provider \"" + q.captures[0] + "\"");
        return false;
    };

    router.add("GET", provider + "/accounts", "admin/accounts", [sb, known](Request& q, Response& r) {
        if (!known(q, r)) return;
        json out = json::array();
        for (const auto& a : sb->accounts(q.captures[0])) {
            json entry = {{"user_id", a.userId}, {"email", a.email}, {"display_name", a.displayName},
                          {"access_token", a.accessToken}, {"refresh_token", a.refreshToken}};
            for (const auto& [name, value] : a.details) entry[name] = value;
            out.push_back(entry);
        }
        r.json(200, {{"accounts", out}});
    });

    router.add("GET", provider + "/state", "admin/state", [sb, known](Request& q, Response& r) {
        if (!known(q, r)) return;
        const json state = sb->listState(q.captures[0], q.queryParam("account").value_or(""));
        if (state.is_null()) return fail(r, 404, "unknown account");
        r.json(200, state);
    });

    router.add("GET", provider + "/metadata", "admin/metadata", [sb, known](Request& q, Response& r) {
        if (!known(q, r)) return;
        const json meta = sb->metadata(q.captures[0], q.queryParam("path").value_or(""),
                                       q.queryParam("account").value_or(""));
        if (meta.is_null()) return fail(r, 404, "nothing at that path");
        r.json(200, meta);
    });

    router.add("GET", provider + "/content", "admin/content", [sb, known](Request& q, Response& r) {
        if (!known(q, r)) return;
        const auto bytes = sb->fileContent(q.captures[0], q.queryParam("path").value_or(""),
                                           q.queryParam("account").value_or(""));
        if (!bytes) return fail(r, 404, "no file at that path");
        r.bytes(200, ByteBuffer::copyOf(*bytes));
    });

    router.add("POST", provider + "/files", "admin/files", [sb, known](Request& q, Response& r) {
        if (!known(q, r)) return;
        json body;
        std::string bytes, error;
        if (!readJson(q, r, body)) return;
        const bool folder = body.value("folder", false);
        if (!folder && !contentOf(body, r, bytes)) return;
        const std::string path = field(body, "path"), account = field(body, "account");
        const json meta = folder ? sb->putFolder(q.captures[0], path, account, &error)
                                 : sb->putFile(q.captures[0], path, bytes, account, &error);
        if (meta.is_null()) return fail(r, 400, error);
        r.json(200, meta);
    });

    router.add("POST", provider + "/files/change", "admin/files", [sb, known](Request& q, Response& r) {
        if (!known(q, r)) return;
        json body;
        std::string bytes, error;
        if (!readJson(q, r, body) || !contentOf(body, r, bytes)) return;
        const json meta = sb->changeFile(q.captures[0], field(body, "path"), bytes, field(body, "account"), &error);
        if (meta.is_null()) return fail(r, 400, error);
        r.json(200, meta);
    });

    router.add("DELETE", provider + "/files", "admin/files", [sb, known](Request& q, Response& r) {
        if (!known(q, r)) return;
        std::string error;
        json body;
        if (!readJson(q, r, body)) return;
        if (!sb->removeItem(q.captures[0], param(q, body, "path"), param(q, body, "account"), &error)) {
            return fail(r, 404, error);
        }
        r.json(200, json::object());
    });

    router.add("POST", provider + "/quota", "admin/quota", [sb, known](Request& q, Response& r) {
        if (!known(q, r)) return;
        json body;
        if (!readJson(q, r, body)) return;
        const std::string account = field(body, "account");
        bool ok = false;
        if (body.value("full", false)) {
            ok = sb->fillQuota(q.captures[0], account);
        } else if (body.contains("bytes") && (body["bytes"].is_number_integer() || body["bytes"].is_null())) {
            ok = sb->setQuota(q.captures[0], body["bytes"].is_null() ? -1 : body["bytes"].get<std::int64_t>(), account);
        } else {
            return fail(r, 400, "give {\"full\": true} or {\"bytes\": N} (null: no quota)");
        }
        if (!ok) return fail(r, 404, "unknown account");
        r.json(200, json::object());
    });

    router.add("GET", provider + "/config", "admin/config", [sb, known](Request& q, Response& r) {
        if (!known(q, r)) return;
        r.json(200, sb->settings(q.captures[0]));
    });

    router.add("POST", provider + "/config", "admin/config", [sb, known](Request& q, Response& r) {
        if (!known(q, r)) return;
        json body;
        std::string error;
        if (!readJson(q, r, body)) return;
        if (!sb->configure(q.captures[0], body, &error)) return fail(r, 400, error);
        r.json(200, sb->settings(q.captures[0]));
    });

    router.add("POST", provider + "/tokens/lifetime", "admin/tokens", [sb, known](Request& q, Response& r) {
        if (!known(q, r)) return;
        json body;
        if (!readJson(q, r, body)) return;
        if (!body.contains("seconds") || !body["seconds"].is_number_integer() ||
            !sb->setAccessTokenLifetime(q.captures[0], body["seconds"].get<std::int64_t>())) {
            return fail(r, 400, "seconds (a whole number, 0 or more) is required");
        }
        r.json(200, json::object());
    });

    router.add("POST", provider + "/tokens/expire", "admin/tokens", [sb, known](Request& q, Response& r) {
        if (!known(q, r)) return;
        json body;
        if (!readJson(q, r, body)) return;
        const int count = sb->expireAccessTokens(q.captures[0], field(body, "account"), field(body, "access_token"));
        r.json(200, {{"expired", count}});
    });

    router.add("POST", provider + "/tokens/revoke", "admin/tokens", [sb, known](Request& q, Response& r) {
        if (!known(q, r)) return;
        json body;
        if (!readJson(q, r, body)) return;
        // An access token for providers without refresh tokens (Evernote's auth tokens).
        if (body.contains("access_token")) {
            if (!sb->revokeAccessToken(q.captures[0], field(body, "access_token"))) {
                return fail(r, 404, "unknown access_token");
            }
        } else if (!sb->revokeRefreshToken(q.captures[0], field(body, "refresh_token"))) {
            return fail(r, 404, "unknown refresh_token");
        }
        r.json(200, json::object());
    });

    router.add("POST", provider + "/tokens/expire-refresh", "admin/tokens", [sb, known](Request& q, Response& r) {
        if (!known(q, r)) return;
        json body;
        if (!readJson(q, r, body)) return;
        if (!sb->expireRefreshToken(q.captures[0], field(body, "refresh_token"))) {
            return fail(r, 404, "unknown refresh_token");
        }
        r.json(200, json::object());
    });

    router.add("GET", provider + "/authorizations", "admin/authorizations", [sb, known](Request& q, Response& r) {
        if (!known(q, r)) return;
        r.json(200, {{"pending", sb->pendingAuthorizations(q.captures[0])}});
    });
}

}  // namespace vxcloud::sandbox
