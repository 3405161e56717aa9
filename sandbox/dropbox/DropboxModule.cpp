#include "dropbox/DropboxModule.h"

#include <atomic>

#include "dropbox/ContentHash.h"
#include "framework/Hashes.h"
#include "framework/Text.h"

namespace vxcloud::sandbox::dropbox {
namespace {

const char* kAllScopes = "account_info.read files.content.read files.content.write files.metadata.read";

IdScheme idScheme() {
    // Ids and revs are unique within the process and look like the service's.
    static std::atomic<std::uint64_t> counter{0};
    const std::string prefix = randomHex(6);
    IdScheme scheme;
    scheme.rootId = "";
    scheme.newId = [] {
        const std::uint64_t n = ++counter;
        std::string raw(16, '\0');
        const std::uint64_t salt = randomNumber();
        for (int i = 0; i < 8; ++i) {
            raw[i] = static_cast<char>(salt >> (8 * i));
            raw[8 + i] = static_cast<char>(n >> (8 * (7 - i)));
        }
        return "id:" + base64UrlEncode(raw);
    };
    scheme.newRev = [prefix] {
        char digits[24];
        std::snprintf(digits, sizeof digits, "%015llx", static_cast<unsigned long long>(++counter));
        return prefix + digits;
    };
    return scheme;
}

TokenPolicy tokenPolicy() {
    TokenPolicy policy;
    policy.accessPrefix = "sl.";
    policy.accessLifetime = 14400;
    policy.codeLifetime = 600;
    return policy;
}

std::string accountIdFor(const std::string& email) {
    return "dbid:AA" + base64UrlEncode(sha256Raw("vxcloud-sandbox/dropbox/" + email)).substr(0, 33);
}

std::string plainStatusText(int status) {
    switch (status) {
        case 500: return "Internal Server Error";
        case 502: return "Bad Gateway";
        case 503: return "Service Unavailable";
        case 504: return "Gateway Timeout";
        default: return "Error";
    }
}

// "path/conflict/file" -> {".tag": "path", "path": {".tag": "conflict", "conflict": {".tag": "file"}}}
json nestedTags(const std::string& tags) {
    const auto slash = tags.find('/');
    if (slash == std::string::npos) return tag(tags);
    return tagWith(tags.substr(0, slash), nestedTags(tags.substr(slash + 1)));
}

}  // namespace

DropboxModule::DropboxModule(ProviderContext& context)
    : ProviderModule("dropbox", context, tokenPolicy(), idScheme()),
      oauth_(*this, [this] {
          OAuthHooks hooks;
          hooks.providerTitle = "Dropbox";
          hooks.wantsRefreshToken = [](const Request& q) { return q.queryParam("token_access_type") == "offline"; };
          hooks.decorateToken = [this](json& body, const IssuedTokens& t, bool refreshGrant) {
              if (refreshGrant) {
                  body.erase("scope");  // the service answers a refresh with the token alone
                  return;
              }
              if (!body.contains("scope")) body["scope"] = kAllScopes;
              body["account_id"] = t.accountId;
              body["uid"] = std::to_string(std::hash<std::string>{}(t.accountId) % 100000000);
          };
          hooks.denyDescription = "The user chose not to give your app access to their Dropbox account.";
          hooks.tokenParamsInQuery = true;
          return hooks;
      }()) {
    bindSettings(settings_, "Dropbox",
                 {setting("max_upload_request_bytes", &Settings::maxUploadRequestBytes, 1),
                  setting("max_file_size", &Settings::maxFileSize, 1),
                  setting("concurrent_chunk_multiple", &Settings::concurrentChunkMultiple, 1),
                  setting("upload_session_lifetime", &Settings::uploadSessionLifetime, 1),
                  setting("list_folder_page_size", &Settings::listFolderPageSize, 1, 2000, AboveMax::clamp),
                  setting("move_batch_async", &Settings::moveBatchAsync),
                  setting("move_batch_in_progress_checks", &Settings::moveBatchInProgressChecks, 0, 1000000,
                          AboveMax::clamp),
                  setting("reject_non_ascii_arg", &Settings::rejectNonAsciiArg)});
    const std::pair<std::string, std::string> people[] = {{"Ada", "Lovelace"}, {"Grace", "Hopper"}};
    for (const auto& [given, surname] : people) {
        AccountInfo account;
        account.email = asciiLower(given) + "@example.com";
        account.id = accountIdFor(account.email);
        account.givenName = given;
        account.surname = surname;
        const AccountInfo added = addAccount(account, kAllScopes);
        std::lock_guard lock(store().mutex());
        store().tree(added.id).setQuota(static_cast<std::uint64_t>(settings_.defaultQuota));
    }
}

std::map<std::string, std::string> DropboxModule::endpoints(const std::string& baseUrl) const {
    return {{"api", baseUrl + "/dropbox/api"},
            {"content", baseUrl + "/dropbox/content"},
            {"authorize", baseUrl + "/dropbox/oauth2/authorize"},
            {"token", baseUrl + "/dropbox/api/oauth2/token"}};
}

void DropboxModule::registerRoutes(Router& router) {
    oauth_.registerAuthorize(router, "/dropbox/oauth2/authorize", "dropbox/oauth2/authorize");
    oauth_.registerToken(router, "/dropbox/api/oauth2/token", "dropbox/oauth2/token");
    registerAccountRoutes(router);
    registerFileRoutes(router);
    registerMoveRoutes(router);
    registerUploadRoutes(router);
}

void DropboxModule::registerAccountRoutes(Router& router) {
    route(router, Style::rpc, "users/get_current_account", "account_info.read", true, [](Call& call) {
        const AccountInfo& a = call.account;
        call.ok({{"account_id", a.id},
                 {"name",
                  {{"given_name", a.givenName},
                   {"surname", a.surname},
                   {"familiar_name", a.givenName},
                   {"display_name", a.displayName()},
                   {"abbreviated_name", a.givenName.substr(0, 1) + a.surname.substr(0, 1)}}},
                 {"email", a.email},
                 {"email_verified", true},
                 {"disabled", false},
                 {"locale", a.locale},
                 {"country", a.country},
                 {"referral_link", "https://db.tt/sandbox"},
                 {"is_paired", false},
                 {"account_type", tag("basic")},
                 {"root_info",
                  {{".tag", "user"}, {"root_namespace_id", "3235641"}, {"home_namespace_id", "3235641"}}}});
    });

    route(router, Style::rpc, "users/get_space_usage", "account_info.read", true, [this](Call& call) {
        std::lock_guard lock(store().mutex());
        Tree& tree = store().tree(call.account.id);
        const std::uint64_t allocated = tree.quota().value_or(static_cast<std::uint64_t>(settings_.defaultQuota));
        call.ok({{"used", tree.usedBytes()}, {"allocation", {{".tag", "individual"}, {"allocated", allocated}}}});
    });

    // Revoking the access token also ends its refresh token and its siblings.
    route(router, Style::rpc, "auth/token/revoke", "", true, [this](Call& call) {
        tokens().revokeAccessToken(call.request.bearerToken().value_or(""));
        call.response.json(200, nullptr);
    });
}

void DropboxModule::faultResponse(const FaultSpec& fault, const Request& request, Response& response) const {
    const std::string route = request.routeKey.substr(request.routeKey.find('/') + 1);
    switch (fault.status) {
        case 400:
            response.text(400, "Error in call to API function \"" + route + "\": " +
                                   (fault.error.empty() ? "Injected bad request" : fault.error));
            return;
        case 401:
            response.json(401, envelope(tag(fault.error.empty() ? "invalid_access_token" : fault.error)));
            return;
        case 403:
            response.json(403, envelope(tag(fault.error.empty() ? "no_permission" : fault.error)));
            return;
        case 409:
            response.json(409, envelope(nestedTags(fault.error.empty() ? "too_many_write_operations" : fault.error)));
            return;
        case 429: {
            const int retryAfter = fault.retryAfterSeconds >= 0 ? fault.retryAfterSeconds : 1;
            const json error = {{"reason", tag(fault.error.empty() ? "too_many_requests" : fault.error)},
                                {"retry_after", retryAfter}};
            const std::string summary = error["reason"][".tag"].get<std::string>() + "/..";
            response.json(429, {{"error_summary", summary}, {"error", error}});
            response.setHeader("Retry-After", std::to_string(retryAfter));
            return;
        }
        default:
            if (fault.status >= 500) {
                response.text(fault.status, fault.error.empty() ? plainStatusText(fault.status) : fault.error);
            } else if (!fault.error.empty()) {
                response.json(fault.status, envelope(nestedTags(fault.error)));
            } else {
                response.text(fault.status, plainStatusText(fault.status));
            }
    }
}

void DropboxModule::decorateResponse(const Request&, Response& response) const {
    response.setHeader("X-Dropbox-Request-Id", randomHex(32));
}

std::string DropboxModule::contentHash(const Node& node) const {
    return node.cachedHash("dropbox", [](std::string_view bytes) { return dropboxContentHash(bytes); });
}

json DropboxModule::metadata(Tree& tree, const Node& node, bool tagged) const {
    const std::string display = tree.displayPath(node);
    json out = json::object();
    if (tagged) out[".tag"] = node.isFolder ? "folder" : "file";
    out["name"] = node.name;
    out["path_lower"] = foldCase(display);
    out["path_display"] = display;
    out["id"] = node.id;
    if (!node.isFolder) {
        out["client_modified"] = formatUtc(node.clientModified);
        out["server_modified"] = formatUtc(node.serverModified);
        out["rev"] = node.rev;
        out["size"] = node.size();
        out["is_downloadable"] = true;
        out["content_hash"] = contentHash(node);
    }
    return out;
}

json DropboxModule::revisionMetadata(Tree& tree, const Node& node, const Revision& revision, bool tagged) const {
    json out = metadata(tree, node, tagged);
    if (revision.rev != node.rev) {
        out["rev"] = revision.rev;
        out["size"] = revision.content.size();
        out["client_modified"] = formatUtc(revision.clientModified);
        out["server_modified"] = formatUtc(revision.serverModified);
        out["content_hash"] = dropboxContentHash(revision.content.view());
    }
    return out;
}

json DropboxModule::renderNode(Tree& tree, const Node& node) const {
    if (node.id == tree.root().id) return {{".tag", "folder"}, {"name", ""}, {"path_lower", ""}, {"path_display", ""}};
    return metadata(tree, node, true);
}

Settings DropboxModule::currentSettings() const {
    std::lock_guard lock(store_.mutex());
    return settings_;
}

}  // namespace vxcloud::sandbox::dropbox
