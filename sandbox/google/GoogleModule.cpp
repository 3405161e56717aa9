#include "google/GoogleModule.h"

#include <atomic>

#include "framework/Hashes.h"
#include "framework/Text.h"
#include "google/DriveQuery.h"

namespace vxcloud::sandbox::google {
namespace {

const char* kSeededScope =
    "openid https://www.googleapis.com/auth/userinfo.email https://www.googleapis.com/auth/userinfo.profile "
    "https://www.googleapis.com/auth/drive";

IdScheme idScheme() {
    // Drive ids are 33 URL-safe characters starting with "1"; the top folder's id differs
    // and "root" is an alias for it.
    IdScheme scheme;
    scheme.rootId = "0A" + randomToken(17);
    scheme.newId = [] { return "1" + randomToken(32); };
    scheme.newRev = [] { return "0B" + randomToken(40); };
    return scheme;
}

TokenPolicy tokenPolicy() {
    TokenPolicy policy;
    policy.accessPrefix = "ya29.";
    policy.refreshPrefix = "1//0";
    policy.accessLifetime = 3599;
    policy.codeLifetime = 600;
    return policy;
}

// Google's subject ids are 21 digits.
std::string digitsFrom(const std::string& seed, std::size_t count) {
    const std::string digest = sha256Raw(seed);
    std::string out = "1";
    for (std::size_t i = 0; out.size() < count; ++i) {
        out += static_cast<char>('0' + static_cast<unsigned char>(digest[i % digest.size()]) % 10);
    }
    return out;
}

std::string grpcStatus(int status) {
    switch (status) {
        case 400: return "INVALID_ARGUMENT";
        case 401: return "UNAUTHENTICATED";
        case 403: return "PERMISSION_DENIED";
        case 404: return "NOT_FOUND";
        case 409: return "ALREADY_EXISTS";
        case 429: return "RESOURCE_EXHAUSTED";
        case 500: return "INTERNAL";
        case 501: return "UNIMPLEMENTED";
        case 503: return "UNAVAILABLE";
        case 504: return "DEADLINE_EXCEEDED";
        default: return status >= 500 ? "INTERNAL" : "FAILED_PRECONDITION";
    }
}

std::string domainOf(const std::string& reason) {
    if (reason == "userRateLimitExceeded" || reason == "rateLimitExceeded" || reason == "dailyLimitExceeded" ||
        reason == "storageQuotaExceeded" || reason == "quotaExceeded") {
        return "usageLimits";
    }
    return "global";
}

// The service's texts for the reasons a test is likely to inject.
std::string messageFor(const std::string& reason, int status) {
    static const std::map<std::string, std::string> texts = {
        {"badRequest", "Bad Request"},
        {"invalid", "Invalid Value"},
        {"required", "Required parameter missing"},
        {"invalidSharingRequest", "Bad Request. User message: \"Sharing is not allowed for this item.\""},
        {"authError", "Invalid Credentials"},
        {"insufficientPermissions", "Insufficient Permission: Request had insufficient authentication scopes."},
        {"insufficientFilePermissions", "The user does not have sufficient permissions for this file."},
        {"appNotAuthorizedToFile", "The user has not granted the app write access to the file."},
        {"fieldNotWritable", "The resource body includes fields which are not directly writable."},
        {"domainPolicy", "The domain administrators have disabled Drive apps."},
        {"storageQuotaExceeded", "The user's Drive storage quota has been exceeded."},
        {"userRateLimitExceeded", "User rate limit exceeded."},
        {"rateLimitExceeded", "Rate Limit Exceeded"},
        {"sharingRateLimitExceeded", "Rate limit exceeded. User message: \"Sorry, you have exceeded your sharing quota.\""},
        {"dailyLimitExceeded", "Daily Limit Exceeded"},
        {"notFound", "File not found: ."},
        {"backendError", "Backend Error"},
        {"internalError", "Internal Error"},
    };
    const auto it = texts.find(reason);
    if (it != texts.end()) return it->second;
    return status >= 500 ? "Backend Error" : "Request failed: " + reason;
}

std::string defaultReason(int status) {
    switch (status) {
        case 400: return "badRequest";
        case 401: return "authError";
        case 403: return "forbidden";
        case 404: return "notFound";
        case 429: return "rateLimitExceeded";
        default: return status >= 500 ? "backendError" : "badRequest";
    }
}

}  // namespace

void fail(int status, std::string reason, std::string message, std::string location, std::string locationType) {
    DriveError error{status, std::move(reason), std::move(message), std::move(location), {}};
    if (!error.location.empty()) error.locationType = std::move(locationType);
    throw error;
}

json errorBody(const DriveError& error) {
    json item = {{"domain", domainOf(error.reason)}, {"reason", error.reason}, {"message", error.message}};
    if (!error.location.empty()) {
        item["location"] = error.location;
        item["locationType"] = error.locationType;
    }
    return {{"error",
             {{"code", error.status},
              {"message", error.message},
              {"errors", json::array({item})},
              {"status", grpcStatus(error.status)}}}};
}

GoogleModule::GoogleModule(ProviderContext& context)
    : ProviderModule("google", context, tokenPolicy(), idScheme()), oauth_(*this, googleOAuthHooks(*this)) {
    bindSettings(settings_, "Google",
                 {setting("list_page_size", &Settings::listPageSizeCap, 1, 1000),
                  setting("enforce_drive_file_scope", &Settings::enforceDriveFileScope),
                  setting("resumable_keep_max_bytes", &Settings::resumableKeepMaxBytes, 0),
                  setting("resumable_session_lifetime", &Settings::resumableSessionLifetime, 1)});
    const std::pair<std::string, std::string> people[] = {{"Ada", "Lovelace"}, {"Grace", "Hopper"}};
    for (const auto& [given, surname] : people) {
        AccountInfo account;
        account.email = asciiLower(given) + "@example.com";
        account.id = digitsFrom("vxcloud-sandbox/google/" + account.email, 21);
        account.givenName = given;
        account.surname = surname;
        const AccountInfo added = addAccount(account, kSeededScope);
        std::lock_guard lock(store().mutex());
        store().tree(added.id).setQuota(static_cast<std::uint64_t>(settings_.defaultQuota));
    }
}

std::string GoogleModule::permissionIdFor(const std::string& accountId) {
    return digitsFrom("vxcloud-sandbox/google/permission/" + accountId, 20);
}

std::map<std::string, std::string> GoogleModule::endpoints(const std::string& baseUrl) const {
    const std::string base = baseUrl + "/google";
    return {{"api", base},
            {"upload", base + "/upload"},
            {"content", base + "/upload"},
            {"authorize", base + "/o/oauth2/v2/auth"},
            {"token", base + "/token"},
            {"revoke", base + "/revoke"},
            {"userinfo", base + "/v1/userinfo"}};
}

void GoogleModule::registerRoutes(Router& router) {
    registerAuthRoutes(router);
    registerFileRoutes(router);
    registerUploadRoutes(router);
}

void GoogleModule::faultResponse(const FaultSpec& fault, const Request& request, Response& response) const {
    if (request.routeKey.rfind("google/oauth2/", 0) == 0) {
        // The OAuth endpoints answer in OAuth's shape.
        std::string error = fault.error;
        if (error.empty()) error = fault.status == 401 ? "invalid_client" : fault.status >= 500 ? "internal_failure" : "invalid_request";
        const std::string description = error == "invalid_grant" ? "Token has been expired or revoked." : "Injected failure";
        oauth_.oauthError(response, OAuthError{fault.status, error, description});
        return;
    }
    const std::string reason = fault.error.empty() ? defaultReason(fault.status) : fault.error;
    DriveError error{fault.status, reason, messageFor(reason, fault.status), {}, {}};
    if (reason == "authError" || reason == "required") {
        error.location = "Authorization";
        error.locationType = "header";
    }
    response.json(fault.status, errorBody(error));
    if (fault.status == 401) response.setHeader("WWW-Authenticate", "Bearer realm=\"https://accounts.google.com/\"");
}

std::string GoogleModule::mimeTypeOf(const Node& node) {
    if (node.isFolder) return kFolderMimeType;
    const auto it = node.attributes.find("mimeType");
    if (it != node.attributes.end() && it->is_string()) return it->get<std::string>();
    return mimeTypeForName(node.name);
}

bool GoogleModule::isNativeDocument(const Node& node) {
    return !node.isFolder && mimeTypeOf(node).rfind("application/vnd.google-apps.", 0) == 0;
}

bool GoogleModule::isTrashed(Tree& tree, const Node& node) {
    for (const Node* n = &node; n; n = n->parentId.empty() ? nullptr : tree.find(n->parentId)) {
        if (n->attributes.value("trashed", false)) return true;
    }
    return false;
}

std::string GoogleModule::md5(const Node& node) const {
    return node.cachedHash("md5", [](std::string_view bytes) { return md5Hex(bytes); });
}

json GoogleModule::fileJson(Tree& tree, const Node& node, const FieldMask& mask) const {
    const bool isRoot = node.id == tree.root().id;
    json out = {{"kind", "drive#file"},
                {"id", node.id},
                {"name", isRoot ? std::string("My Drive") : node.name},
                {"mimeType", mimeTypeOf(node)},
                {"starred", node.attributes.value("starred", false)},
                {"trashed", isTrashed(tree, node)},
                {"explicitlyTrashed", node.attributes.value("trashed", false)},
                {"version", std::to_string(node.changeSeq + 1)},
                {"createdTime", formatRfc3339(node.created)},
                {"modifiedTime", formatRfc3339(node.clientModified ? node.clientModified : node.serverModified)},
                {"viewedByMe", true},
                {"ownedByMe", true}};
    if (!isRoot) out["parents"] = json::array({node.parentId});
    for (const char* key : {"description", "properties", "appProperties"}) {
        if (node.attributes.contains(key)) out[key] = node.attributes[key];
    }
    if (!node.isFolder && !isNativeDocument(node)) {
        out["size"] = std::to_string(node.size());
        out["quotaBytesUsed"] = std::to_string(node.size());
        out["headRevisionId"] = node.rev;
        out["originalFilename"] = node.attributes.value("originalFilename", node.name);
        const auto dot = node.name.rfind('.');
        if (dot != std::string::npos) out["fileExtension"] = node.name.substr(dot + 1);
        if (mask.wants("md5Checksum")) out["md5Checksum"] = md5(node);
        if (mask.wants("sha1Checksum")) out["sha1Checksum"] = node.cachedHash("sha1", [](std::string_view b) { return sha1Hex(b); });
        if (mask.wants("sha256Checksum")) {
            out["sha256Checksum"] = node.cachedHash("sha256", [](std::string_view b) { return sha256Hex(b); });
        }
        out["webContentLink"] = "https://drive.google.com/uc?id=" + node.id + "&export=download";
    }
    out["webViewLink"] = "https://drive.google.com/file/d/" + node.id + "/view?usp=drivesdk";
    return out;
}

json GoogleModule::renderNode(Tree& tree, const Node& node) const { return fileJson(tree, node, FieldMask::all()); }

Settings GoogleModule::currentSettings() const {
    std::lock_guard lock(store_.mutex());
    return settings_;
}

void GoogleModule::driveRoute(Router& router, const std::string& method, const std::string& pattern,
                              const std::string& key, Access access, std::function<void(DriveCall&)> handler) {
    router.add(method, pattern, key, [this, access, handler = std::move(handler)](Request& request, Response& response) {
        try {
            const Caller who = caller(request);
            if (who.status == Caller::Status::missing || who.status == Caller::Status::malformed) {
                response.setHeader("WWW-Authenticate", "Bearer realm=\"https://accounts.google.com/\"");
                fail(401, "required", "Login Required.", "Authorization", "header");
            }
            if (!who.valid()) {
                response.setHeader("WWW-Authenticate", "Bearer realm=\"https://accounts.google.com/\", error=invalid_token");
                fail(401, "authError", "Invalid Credentials", "Authorization", "header");
            }
            const bool full = who.granted(kDriveScope);
            const bool perFile = who.granted(kDriveFileScope) || who.granted(std::string(kDriveScope) + ".appdata");
            const bool reading = who.granted(std::string(kDriveScope) + ".readonly") ||
                                 who.granted(std::string(kDriveScope) + ".metadata.readonly");
            if (!full && !perFile && !(access == Access::read && reading)) {
                fail(403, "insufficientPermissions",
                     "Request had insufficient authentication scopes.");
            }
            DriveCall call{request, response, who.account, true};
            call.seesEverything = full || !perFile || !currentSettings().enforceDriveFileScope;
            handler(call);
        } catch (const DriveError& error) {
            response.json(error.status, errorBody(error));
        }
    });
}

}  // namespace vxcloud::sandbox::google
