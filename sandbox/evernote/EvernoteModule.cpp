#include "evernote/EvernoteModule.h"

#include "evernote/AuthTokens.h"
#include "evernote/EdamErrors.h"
#include "evernote/EdamFaults.h"
#include "evernote/ThriftCalls.h"
#include "framework/Hashes.h"
#include "framework/SignInPage.h"
#include "framework/Text.h"

namespace vxcloud::sandbox::evernote {
namespace {

IdScheme idScheme() {
    IdScheme scheme;
    scheme.rootId = "account";
    scheme.newId = [] { return randomGuid(); };
    scheme.newRev = [] { return randomHex(16); };
    return scheme;
}

TokenPolicy tokenPolicy(std::int64_t lifetime) {
    TokenPolicy policy;
    policy.accessPrefix = "";
    policy.accessLifetime = lifetime;
    return policy;
}

// Decimal ids that fit EDAM's i32 UserID, the same for an e-mail in every run.
std::string userIdFor(const std::string& email) {
    const std::uint64_t hash = std::stoull(sha256Hex("vxcloud-sandbox/evernote/" + email).substr(0, 12), nullptr, 16);
    return std::to_string(10000000 + hash % 90000000);
}

bool isThriftRoute(const std::string& route) {
    return route.rfind("evernote/userstore/", 0) == 0 || route.rfind("evernote/notestore/", 0) == 0;
}

}  // namespace

EvernoteModule::EvernoteModule(ProviderContext& context)
    : ProviderModule("evernote", context, tokenPolicy(Settings{}.tokenLifetime), idScheme()),
      tokenSecret_(randomToken(32)) {
    bindSettings(
        settings_, "Evernote",
        {setting("find_max_notes", &Settings::findMaxNotes, 1, 100000),
         setting("note_size_max", &Settings::noteSizeMax, 1),
         setting("resource_size_max", &Settings::resourceSizeMax, 1),
         setting("monthly_upload_limit", &Settings::monthlyUploadLimit, 0),
         setting("consumer_secret", &Settings::consumerSecret), setting("token_lifetime", &Settings::tokenLifetime, 1),
         setting("notebooks_max", &Settings::notebooksMax, 1, 100000)});
    // Auth tokens spelled as the service spells them; their hash is keyed with this
    // sandbox's secret, so a made-up token is told from a revoked one.
    tokens().setAccessTokenFormat([this](const std::string& accountId, const std::string& consumerKey,
                                         std::int64_t issuedAt, std::int64_t expiresAt) {
        std::string key = consumerKey.empty() ? std::string("vxcloud-sandbox") : consumerKey;
        for (char& c : key) {
            if (c == ':') c = '_';
        }
        const AuthToken token{shardOf(accountId), std::stoll(accountId), expiresAt * 1000, issuedAt * 1000, key};
        return formatAuthToken(token, tokenSecret_);
    });
    const struct {
        const char* given;
        const char* surname;
    } people[] = {{"Ada", "Lovelace"}, {"Grace", "Hopper"}};
    int shard = 0;
    for (const auto& person : people) {
        AccountInfo account;
        account.email = asciiLower(person.given) + std::string("@example.com");
        account.id = userIdFor(account.email);
        account.givenName = person.given;
        account.surname = person.surname;
        {
            std::lock_guard lock(peopleMutex_);
            people_[account.id] = {"s" + std::to_string(++shard), asciiLower(person.given)};
        }
        const AccountInfo added = addAccount(account, "", false);
        std::lock_guard lock(store().mutex());
        Tree& tree = store().tree(added.id);
        Node& notebook = tree.createFolder(tree.root(), added.givenName + "'s Notebook");
        initNotebook(tree, notebook, nowMs(), true);
    }
}

std::map<std::string, std::string> EvernoteModule::endpoints(const std::string& baseUrl) const {
    return {{"api", baseUrl + "/evernote"},
            {"authorize", baseUrl + "/evernote/OAuth.action"},
            {"token", baseUrl + "/evernote/oauth"},
            {"userstore", baseUrl + "/evernote/edam/user"}};
}

void EvernoteModule::registerRoutes(Router& router) {
    registerOAuthRoutes(router);
    registerEdamRoutes(router);
}

Settings EvernoteModule::currentSettings() const {
    std::lock_guard lock(store_.mutex());
    return settings_;
}

bool EvernoteModule::configure(const nlohmann::json& settings, std::string& error) {
    if (!ProviderModule::configure(settings, error)) return false;
    tokens().setAccessLifetime(currentSettings().tokenLifetime);
    return true;
}

std::int64_t EvernoteModule::nowMs() const { return context_.clock.nowSeconds() * 1000; }

std::string EvernoteModule::shardOf(const std::string& accountId) const {
    std::lock_guard lock(peopleMutex_);
    const auto it = people_.find(accountId);
    return it == people_.end() ? std::string() : it->second.first;
}

std::string EvernoteModule::usernameOf(const std::string& accountId) const {
    std::lock_guard lock(peopleMutex_);
    const auto it = people_.find(accountId);
    return it == people_.end() ? std::string() : it->second.second;
}

std::string EvernoteModule::userStoreUrl() const { return context_.baseUrl() + "/evernote/edam/user"; }

std::string EvernoteModule::noteStoreUrl(const std::string& shard) const {
    return webApiUrlPrefix(shard) + "notestore";
}

std::string EvernoteModule::webApiUrlPrefix(const std::string& shard) const {
    return context_.baseUrl() + "/evernote/shard/" + shard + "/";
}

std::map<std::string, std::string> EvernoteModule::accountDetails(const AccountInfo& account,
                                                                  const std::string& baseUrl) const {
    return {{"note_store_url", baseUrl + "/evernote/shard/" + shardOf(account.id) + "/notestore"}};
}

EdamCaller EvernoteModule::authenticate(const std::string& token) const {
    EdamCaller out;
    if (token.empty()) {
        out.errorCode = edam::EDAMErrorCode::DATA_REQUIRED;
        return out;
    }
    const ParsedAuthToken parsed = parseAuthToken(token, tokenSecret_);
    if (parsed.shape != ParsedAuthToken::Shape::wellFormed) {
        out.errorCode = parsed.shape == ParsedAuthToken::Shape::malformed ? edam::EDAMErrorCode::BAD_DATA_FORMAT
                                                                          : edam::EDAMErrorCode::INVALID_AUTH;
        return out;
    }
    const auto check = tokens().check(token);
    // The hash says this sandbox issued it: one the authority does not take was revoked.
    if (check.status != TokenAuthority::Status::valid) {
        out.errorCode = edam::EDAMErrorCode::AUTH_EXPIRED;
        return out;
    }
    const auto account = findAccount(check.accountId);
    if (!account) {
        out.errorCode = edam::EDAMErrorCode::INVALID_AUTH;
        return out;
    }
    out.account = *account;
    out.shard = shardOf(account->id);
    return out;
}

std::optional<std::string> EvernoteModule::ownerOf(const std::string& guid, const std::string& exceptAccount) {
    for (const auto& account : accounts()) {
        if (account.id != exceptAccount && store().tree(account.id).find(guid)) return account.id;
    }
    return std::nullopt;
}

std::optional<std::string> EvernoteModule::refuseFault(const std::string& route, const FaultSpec& fault) const {
    if (fault.error.empty()) return std::nullopt;
    // On the OAuth routes error= is the oauth_problem; on the Thrift routes an EDAM exception.
    if (isThriftRoute(route) || route == "evernote/*") {
        std::string error;
        if (!parseInjectedError(fault.error, error)) return error;
    }
    return std::nullopt;
}

void EvernoteModule::faultResponse(const FaultSpec& fault, const Request& request, Response& response) const {
    const std::string& route = request.routeKey;
    if (route.rfind("evernote/oauth/authorize", 0) == 0) {
        return signInErrorPage(response, "Evernote", fault.status ? fault.status : 400,
                               fault.error.empty() ? "Injected failure" : fault.error);
    }
    if (route.rfind("evernote/oauth/", 0) == 0) {
        const std::string problem = fault.error.empty() ? "service_unavailable" : fault.error;
        return response.text(fault.status ? fault.status : 401, "oauth_problem=" + urlEncode(problem),
                             "application/x-www-form-urlencoded");
    }
    if (!fault.error.empty()) return answerInjectedError(fault.error, request, response);
    // A plain status comes from the web front end, before any Thrift is spoken.
    response.html(fault.status, "<html><head><title>Error " + std::to_string(fault.status) +
                                    "</title></head><body><h1>HTTP Status " + std::to_string(fault.status) +
                                    "</h1></body></html>\n");
}

std::optional<std::string> EvernoteModule::requestToken(const Request& request) const {
    if (!isThriftRoute(request.routeKey) || request.routeKey == "evernote/userstore/checkVersion") return std::nullopt;
    return firstStringArgument(request.body.view());
}

}  // namespace vxcloud::sandbox::evernote
