#include "onedrive/OneDriveModule.h"

#include <cctype>
#include <ctime>

#include "framework/Hashes.h"
#include "framework/Text.h"
#include "microsoft/Identity.h"
#include "onedrive/QuickXorHash.h"

namespace vxcloud::sandbox::onedrive {
namespace {

const char* kSeededScope = "Files.ReadWrite User.Read offline_access";

std::string base32Id(std::size_t length) {
    static const char alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZ234567";
    std::string out;
    for (std::size_t i = 0; i < length; ++i) out += alphabet[randomNumber() % 32];
    return out;
}

IdScheme idScheme() {
    // Item ids shaped like business drives' ("01" and 32 base32 characters); personal ones
    // differ, but ids are opaque to clients either way.
    IdScheme scheme;
    scheme.rootId = "01" + base32Id(32);
    scheme.newId = [] { return "01" + base32Id(32); };
    scheme.newRev = [] { return randomHex(12); };
    return scheme;
}

std::string defaultCode(int status, bool throttled) {
    switch (status) {
        case 400: return "invalidRequest";
        case 401: return "InvalidAuthenticationToken";
        case 403: return "accessDenied";
        case 404: return "itemNotFound";
        case 409: return "nameAlreadyExists";
        case 412: return "resourceModified";
        case 416: return "invalidRange";
        case 423: return "resourceLocked";
        case 429: return "activityLimitReached";
        case 501: return "notSupported";
        case 503: return throttled ? "activityLimitReached" : "serviceNotAvailable";
        case 507: return "quotaLimitReached";
        default: return status >= 500 ? "generalException" : "invalidRequest";
    }
}

std::string defaultMessage(const std::string& code) {
    static const std::map<std::string, std::string> texts = {
        {"invalidRequest", "Invalid request"},
        {"InvalidAuthenticationToken", "Access token has expired or is not yet valid."},
        {"accessDenied", "Access denied"},
        {"itemNotFound", "Item not found"},
        {"nameAlreadyExists", "Name already exists"},
        {"resourceModified", "ETag does not match current item's value"},
        {"invalidRange", "Invalid range"},
        {"activityLimitReached", "The request has been throttled"},
        {"serviceNotAvailable", "Service unavailable"},
        {"quotaLimitReached", "Insufficient Space Available"},
        {"generalException", "An unspecified error has occurred."},
    };
    const auto it = texts.find(code);
    return it != texts.end() ? it->second : code;
}

}  // namespace

std::string eTagOf(const Node& node) { return "\"{" + node.id + "}," + std::to_string(node.changeSeq + 1) + "\""; }
std::string cTagOf(const Node& node) { return "\"c:{" + node.id + "}," + node.rev + "\""; }

void answerError(const Request& request, Response& response, const GraphError& error) {
    GraphError worded = error;
    if (worded.message.empty()) worded.message = defaultMessage(error.code);
    microsoft::answerGraphError(request, response, worded);
}

ItemAddress addressOf(const Request& request) {
    ItemAddress address;
    const std::string base = request.captures.empty() ? std::string("root") : request.captures[0];
    address.base = base.rfind("items/", 0) == 0 ? base.substr(6) : base;
    if (request.captures.size() > 1) address.path = request.captures[1];
    return address;
}

Conflict conflictOf(const json& value, Conflict fallback) {
    if (!value.is_string()) return fallback;
    const std::string word = value.get<std::string>();
    if (word == "fail") return Conflict::fail;
    if (word == "replace") return Conflict::replace;
    if (word == "rename") return Conflict::rename;
    fail(400, "invalidRequest", "Invalid value for " + std::string(kConflictAnnotation) + ": " + word);
}

OneDriveModule::OneDriveModule(ProviderContext& context)
    : ProviderModule("onedrive", context, microsoft::tokenPolicy(), idScheme()), oauth_(*this, microsoft::oauthHooks()) {
    bindSettings(settings_, "OneDrive",
                 {setting("drive_type", &Settings::driveType, {"personal", "business"}),
                  setting("sha1_personal", &Settings::sha1Personal),
                  setting("sha1_business", &Settings::sha1Business),
                  setting("children_page_size", &Settings::childrenPageSize, 1, 1000, AboveMax::clamp),
                  setting("simple_upload_max_bytes", &Settings::simpleUploadMaxBytes, 0),
                  setting("upload_session_lifetime", &Settings::uploadSessionLifetime, 1),
                  setting("fragment_keep_max_bytes", &Settings::fragmentKeepMaxBytes, 0),
                  setting("download_redirect", &Settings::downloadRedirect),
                  setting("preauthenticated_reject_authorization", &Settings::preauthenticatedRejectAuthorization),
                  setting("business_alters_uploads", &Settings::businessAltersUploads)});
    const std::pair<std::string, std::string> people[] = {{"Ada", "Lovelace"}, {"Grace", "Hopper"}};
    for (const auto& [given, surname] : people) {
        AccountInfo account;
        account.email = asciiLower(given) + "@example.com";
        // Personal accounts' ids are 16 hex digits.
        account.id = sha256Hex("vxcloud-sandbox/onedrive/" + account.email).substr(0, 16);
        account.givenName = given;
        account.surname = surname;
        const AccountInfo added = addAccount(account, kSeededScope);
        std::lock_guard lock(store().mutex());
        store().tree(added.id).setQuota(static_cast<std::uint64_t>(settings_.defaultQuota));
    }
}

std::map<std::string, std::string> OneDriveModule::endpoints(const std::string& baseUrl) const {
    const std::string base = baseUrl + "/onedrive";
    return {{"api", base + "/v1.0"},
            {"authorize", microsoft::authorizeUrl(baseUrl, name())},
            {"token", microsoft::tokenUrl(baseUrl, name())}};
}

void OneDriveModule::registerRoutes(Router& router) {
    microsoft::registerSignIn(router, oauth_, name());
    registerDriveRoutes(router);
    registerItemRoutes(router);
    registerUploadRoutes(router);
}

Settings OneDriveModule::currentSettings() const {
    std::lock_guard lock(store_.mutex());
    return settings_;
}

std::string OneDriveModule::driveIdOf(const std::string& accountId, const Settings& settings) {
    if (settings.driveType == "personal") return accountId;
    return "b!" + base64UrlEncode(sha256Raw("vxcloud-sandbox/onedrive/drive/" + accountId)) +
           base64UrlEncode(sha256Raw(accountId)).substr(0, 21);
}

void OneDriveModule::faultResponse(const FaultSpec& fault, const Request& request, Response& response) const {
    if (microsoft::isSignInRoute(request.routeKey, name())) return microsoft::answerSignInFault(fault, response);
    const bool throttled = fault.retryAfterSeconds >= 0;
    GraphError error{fault.status, fault.error.empty() ? defaultCode(fault.status, throttled) : fault.error, {}, {}};
    if (error.code == "activityLimitReached") error.innerCode = "throttledRequest";
    answerError(request, response, error);
}

void OneDriveModule::decorateResponse(const Request& request, Response& response) const {
    microsoft::addRequestIds(request, response);
}

json OneDriveModule::itemJson(Tree& tree, const Node& node, const Settings& settings,
                              const std::string& accountId) const {
    const bool isRoot = node.parentId.empty();
    const std::string driveId = driveIdOf(accountId, settings);
    const bool business = settings.driveType == "business";
    std::uint64_t size = node.size();
    if (node.isFolder) {
        for (const Node* below : tree.descendants(node)) size += below->isFolder ? 0 : below->size();
    }
    const std::int64_t clientModified = node.clientModified ? node.clientModified : node.serverModified;
    json out = {{"id", node.id},
                {"name", isRoot ? std::string("root") : node.name},
                {"size", size},
                {"eTag", eTagOf(node)},
                {"createdDateTime", graphTime(node.created)},
                {"lastModifiedDateTime", graphTime(node.serverModified)},
                {"webUrl", (business ? "https://contoso-my.sharepoint.com/personal/" : "https://onedrive.live.com/?id=") +
                               node.id},
                {"fileSystemInfo",
                 {{"createdDateTime", graphTime(node.created)}, {"lastModifiedDateTime", graphTime(clientModified)}}}};
    if (!node.isFolder || !business) out["cTag"] = cTagOf(node);
    json parent = {{"driveId", driveId}, {"driveType", settings.driveType}};
    if (!isRoot) {
        const Node* folder = tree.find(node.parentId);
        parent["id"] = node.parentId;
        parent["path"] = "/drive/root:" + (folder ? tree.displayPath(*folder) : std::string());
    }
    out["parentReference"] = parent;
    if (node.isFolder) {
        out["folder"] = {{"childCount", node.children.size()}};
        if (isRoot) out["root"] = json::object();
    } else {
        json hashes = {{"quickXorHash", node.cachedHash("quickXorHash", [](std::string_view b) { return quickXorHash(b); })}};
        if (business ? settings.sha1Business : settings.sha1Personal) {
            hashes["sha1Hash"] = node.cachedHash("SHA1", [](std::string_view b) {
                std::string hex = sha1Hex(b);
                for (char& c : hex) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
                return hex;
            });
        }
        out["file"] = {{"mimeType", mimeTypeForName(node.name)}, {"hashes", hashes}};
    }
    return out;
}

json OneDriveModule::renderNode(Tree& tree, const Node& node) const {
    return itemJson(tree, node, settings_, store_.ownerOf(tree));
}

void OneDriveModule::graphRoute(Router& router, const std::string& method, const std::string& pattern,
                                const std::string& key, Access access, std::function<void(GraphCall&)> handler) {
    router.add(method, pattern, key, [this, access, handler = std::move(handler)](Request& request, Response& response) {
        try {
            const Caller who = caller(request);
            microsoft::requireValidToken(who);
            const bool writes = microsoft::hasScope(who.scope, "Files.ReadWrite") || microsoft::hasScope(who.scope, "Files.ReadWrite.All");
            const bool reads = writes || microsoft::hasScope(who.scope, "Files.Read") || microsoft::hasScope(who.scope, "Files.Read.All");
            if (!(access == Access::write ? writes : reads)) fail(403, "accessDenied", "Access denied");
            GraphCall call{request, response, who.account};
            handler(call);
        } catch (const GraphError& error) {
            answerError(request, response, error);
        }
    });
}

void OneDriveModule::preauthenticatedRoute(Router& router, const std::string& method, const std::string& pattern,
                                           const std::string& key, std::function<void(Request&, Response&)> handler) {
    router.add(method, pattern, key, [this, handler = std::move(handler)](Request& request, Response& response) {
        try {
            // The URL is the credential; a bearer token sent along is refused, as upload hosts do.
            if (request.header("Authorization") && currentSettings().preauthenticatedRejectAuthorization) {
                fail(401, "unauthenticated", "An Authorization header is not accepted on a pre-authenticated URL.");
            }
            handler(request, response);
        } catch (const GraphError& error) {
            answerError(request, response, error);
        }
    });
}

void OneDriveModule::registerDriveRoutes(Router& router) {
    graphRoute(router, "GET", "/onedrive/v1\\.0/me", "onedrive/me/get", Access::read, [](GraphCall& call) {
        const AccountInfo& a = call.account;
        call.response.json(200, {{"@odata.context", "https://graph.microsoft.com/v1.0/$metadata#users/$entity"},
                                 {"id", a.id},
                                 {"displayName", a.displayName()},
                                 {"givenName", a.givenName},
                                 {"surname", a.surname},
                                 {"mail", a.email},
                                 {"userPrincipalName", a.email}});
    });
    graphRoute(router, "GET", "/onedrive/v1\\.0/me/drive", "onedrive/drive/get", Access::read, [this](GraphCall& call) {
        std::lock_guard lock(store().mutex());
        Tree& tree = store().tree(call.account.id);
        const auto total = static_cast<std::int64_t>(tree.quota().value_or(settings_.defaultQuota));
        const auto used = static_cast<std::int64_t>(tree.usedBytes());
        const std::int64_t remaining = std::max<std::int64_t>(0, total - used);
        const std::string state = remaining == 0              ? "exceeded"
                                  : remaining * 100 < total     ? "critical"
                                  : remaining * 10 < total      ? "nearing"
                                                                : "normal";
        json quota = {{"total", total}, {"used", used}, {"remaining", remaining}, {"deleted", 0}, {"state", state}};
        if (settings_.driveType != "personal") quota["fileCount"] = tree.descendants(tree.root()).size();
        call.response.json(200, {{"@odata.context", "https://graph.microsoft.com/v1.0/$metadata#drives/$entity"},
                                 {"id", driveIdOf(call.account.id, settings_)},
                                 {"driveType", settings_.driveType},
                                 {"name", "OneDrive"},
                                 {"owner", {{"user", {{"id", call.account.id},
                                                      {"displayName", call.account.displayName()},
                                                      {"email", call.account.email}}}}},
                                 {"quota", quota}});
    });
}

}  // namespace vxcloud::sandbox::onedrive
