#include "box/BoxModule.h"

#include <atomic>

#include "box/BoxItems.h"
#include "framework/Hashes.h"
#include "framework/Text.h"

namespace vxcloud::sandbox::box {
namespace {

const char* kSeededScope = "root_readwrite";
// What Box reports as the space of an account without a limit.
constexpr std::int64_t kUnlimitedSpace = 999999999999999;

IdScheme idScheme() {
    // Decimal ids of Box's length, counted up from a random start so they never repeat
    // within the process; files and their versions count separately, as at Box.
    static std::atomic<std::uint64_t> items{100000000000ULL + randomNumber() % 800000000000ULL};
    static std::atomic<std::uint64_t> versions{100000000000ULL + randomNumber() % 800000000000ULL};
    IdScheme scheme;
    scheme.rootId = "0";
    scheme.newId = [] { return std::to_string(++items); };
    scheme.newRev = [] { return std::to_string(++versions); };
    return scheme;
}

TokenPolicy tokenPolicy() {
    TokenPolicy policy;
    policy.accessPrefix = "";
    policy.refreshPrefix = "";
    policy.accessLifetime = 3600;
    policy.codeLifetime = 30;  // Box's codes are good for 30 seconds
    policy.refreshLifetime = 60LL * 24 * 3600;
    policy.rotateRefreshTokens = true;
    policy.refreshTokensSingleUse = true;
    return policy;
}

std::string userIdFor(const std::string& email) {
    const std::uint64_t hash = std::stoull(sha256Hex("vxcloud-sandbox/box/" + email).substr(0, 15), nullptr, 16);
    return std::to_string(1000000000ULL + hash % 9000000000ULL);
}

}  // namespace

BoxModule::BoxModule(ProviderContext& context)
    : ProviderModule("box", context, tokenPolicy(), idScheme()), oauth_(*this, oauthHooks()) {
    bindSettings(settings_, "Box",
                 {setting("page_limit_default", &Settings::pageLimitDefault, 1, 100000),
                  setting("page_limit_max", &Settings::pageLimitMax, 1, 100000),
                  setting("direct_upload_max_bytes", &Settings::directUploadMaxBytes, 0),
                  setting("chunked_min_bytes", &Settings::chunkedMinBytes, 0),
                  setting("part_size", &Settings::partSize, 1),
                  setting("upload_session_lifetime", &Settings::uploadSessionLifetime, 1),
                  setting("commit_accepted_first", &Settings::commitAcceptedFirst, 0, 1000000),
                  setting("conflicts_as_array", &Settings::conflictsAsArray),
                  setting("refresh_grace", &Settings::refreshGrace),
                  setting("download_redirect", &Settings::downloadRedirect)});
    const std::pair<std::string, std::string> people[] = {{"Ada", "Lovelace"}, {"Grace", "Hopper"}};
    for (const auto& [given, surname] : people) {
        AccountInfo account;
        account.email = asciiLower(given) + "@example.com";
        account.id = userIdFor(account.email);
        account.givenName = given;
        account.surname = surname;
        const AccountInfo added = addAccount(account, kSeededScope);
        std::lock_guard lock(store().mutex());
        store().tree(added.id).setQuota(static_cast<std::uint64_t>(settings_.defaultQuota));
    }
}

std::map<std::string, std::string> BoxModule::endpoints(const std::string& baseUrl) const {
    return {{"api", baseUrl + kApiPath},
            {"content", baseUrl + kUploadPath},
            {"authorize", baseUrl + "/box/api/oauth2/authorize"},
            {"token", baseUrl + "/box/oauth2/token"},
            {"revoke", baseUrl + "/box/oauth2/revoke"}};
}

void BoxModule::registerRoutes(Router& router) {
    registerAuthRoutes(router);
    registerAccountRoutes(router);
    registerFolderRoutes(router);
    registerFileRoutes(router);
    registerUploadRoutes(router);
    registerSessionRoutes(router);
}

Settings BoxModule::currentSettings() const {
    std::lock_guard lock(store_.mutex());
    return settings_;
}

bool BoxModule::configure(const json& settings, std::string& error) {
    if (!ProviderModule::configure(settings, error)) return false;
    tokens().setReplayUntilSuccessorUsed(currentSettings().refreshGrace);
    return true;
}

void BoxModule::apiRoute(Router& router, const std::string& method, const std::string& pattern, const std::string& key,
                         std::function<void(BoxCall&)> handler) {
    router.add(method, pattern, key, [this, handler = std::move(handler)](Request& request, Response& response) {
        try {
            if (const auto version = request.header("box-version"); version && *version != kApiVersion) {
                fail(400, "invalid_api_version",
                     "Invalid API version specified in 'box-version' header. Supported API versions: [" +
                         std::string(kApiVersion) + "].");
            }
            const Caller who = caller(request);
            if (!who.valid()) failUnauthorized();
            BoxCall call{request, response, who.account};
            handler(call);
        } catch (const BoxError& error) {
            answerError(response, error);
        }
    });
}

void BoxModule::registerAccountRoutes(Router& router) {
    apiRoute(router, "GET", std::string(kApiPattern) + "/users/me", "box/users/me", [this](BoxCall& call) {
        std::lock_guard lock(store().mutex());
        const Tree& tree = store().tree(call.account.id);
        const AccountInfo& a = call.account;
        const auto quota = tree.quota();
        call.response.json(200, {{"type", "user"},
                                 {"id", a.id},
                                 {"name", a.displayName()},
                                 {"login", a.email},
                                 {"created_at", boxTime(1262304000)},
                                 {"modified_at", boxTime(1262304000)},
                                 {"language", a.locale},
                                 {"timezone", "America/Los_Angeles"},
                                 {"space_amount", quota ? static_cast<std::int64_t>(*quota) : kUnlimitedSpace},
                                 {"space_used", tree.usedBytes()},
                                 {"status", "active"},
                                 {"job_title", ""},
                                 {"phone", ""},
                                 {"address", ""},
                                 {"avatar_url", ""}});
    });
}

void BoxModule::faultResponse(const FaultSpec& fault, const Request& request, Response& response) const {
    if (request.routeKey.rfind("box/oauth2/", 0) == 0) {
        std::string error = fault.error;
        if (error.empty()) {
            error = fault.status == 401 ? "invalid_client"
                    : fault.status == 429 || fault.status >= 500 ? "temporarily_unavailable"
                                                                  : "invalid_request";
        }
        return response.json(fault.status, {{"error", error}, {"error_description", "Injected failure"}});
    }
    answerError(response, BoxError{fault.status, fault.error, {}, nullptr});
    // Box writes the header in lower case; the framework then sets its value on this name.
    if (fault.retryAfterSeconds >= 0) response.setHeader("retry-after", std::to_string(fault.retryAfterSeconds));
}

void BoxModule::decorateResponse(const Request&, Response& response) const { addRequestId(response); }

json BoxModule::renderNode(Tree& tree, const Node& node) const { return fullJson(tree, node); }

}  // namespace vxcloud::sandbox::box
