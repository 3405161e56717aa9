#pragma once
// What one provider emulator adds to the sandbox. A module owns its accounts, its OAuth
// state and its store, registers its routes under "/<name>/", and says how its provider
// words injected errors. Everything else (serving, faults, counters, admin, the authorize
// page and token endpoint mechanics) is the framework's.
//
// Adding a provider: a folder sandbox/<provider>/ with a ProviderModule subclass, and one
// line in sandbox/Modules.cpp. What every module needs beyond its wire format is here: the
// bearer-token gate (caller()), settings bound to its own struct (bindSettings), and
// expiring sessions (framework/ExpiringSessions.h).
#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "framework/Clock.h"
#include "framework/Http.h"
#include "framework/Settings.h"
#include "framework/Store.h"
#include "framework/TokenAuthority.h"
#include "vxcloud_sandbox/Sandbox.h"

namespace vxcloud::sandbox {

// Shared by all modules of one sandbox.
struct ProviderContext {
    Clock& clock;
    std::atomic<bool>& autoApprove;
    std::function<std::string()> baseUrl;  // "http://127.0.0.1:PORT" once started
};

struct AccountInfo {
    std::string id;
    std::string email;
    std::string givenName;
    std::string surname;
    std::string displayName() const { return givenName + " " + surname; }
    std::string locale = "en";
    std::string country = "US";
    std::string seededAccessToken;
    std::string seededRefreshToken;
};

// Who a request's "Authorization: Bearer" token speaks for, and with which scopes.
struct Caller {
    enum class Status {
        missing,    // no Authorization header
        malformed,  // a header that is not "Bearer <token>"
        expired,
        invalid,    // unknown, revoked, or for an account that is gone
        valid,
    };
    Status status = Status::missing;
    std::string token;
    AccountInfo account;  // when valid
    std::string scope;    // the token's scopes, space-separated

    bool valid() const { return status == Status::valid; }
    // Whether the token carries `wanted` among its scopes.
    bool granted(const std::string& wanted) const;
};

class ProviderModule {
public:
    ProviderModule(std::string name, ProviderContext& context, TokenPolicy tokenPolicy, IdScheme ids);
    virtual ~ProviderModule() = default;
    ProviderModule(const ProviderModule&) = delete;
    ProviderModule& operator=(const ProviderModule&) = delete;

    const std::string& name() const { return name_; }
    // Routes are registered once, before the server starts.
    virtual void registerRoutes(Router& router) = 0;
    // The provider's endpoints by role ("api", "content", "authorize", "token", ...).
    virtual std::map<std::string, std::string> endpoints(const std::string& baseUrl) const = 0;
    // The provider's own answer for an injected status (its error JSON, Retry-After, ...).
    // `fault.body`, when given, has already been handled by the framework.
    virtual void faultResponse(const FaultSpec& fault, const Request& request, Response& response) const;
    // Why a fault cannot be injected on `route` of this provider, or nothing when it can.
    // By default a fault that names an error must also give a status; a provider that words
    // errors without one (Evernote's EDAM exceptions in 200 answers) says so here, and its
    // faultResponse() then sets the status.
    virtual std::optional<std::string> refuseFault(const std::string& route, const FaultSpec& fault) const;
    // The access token a request carries, for the expire-token fault: the bearer token by
    // default (Evernote's is the first argument of the Thrift call).
    virtual std::optional<std::string> requestToken(const Request& request) const;
    // Whether an expired access token is refreshed by the client (OAuth 2) or ends the
    // sign-in (Evernote's year-long tokens); random faults expire only the former.
    virtual bool accessTokensRefresh() const { return true; }
    // Headers every answer of this provider carries (request ids, ...).
    virtual void decorateResponse(const Request& request, Response& response) const;
    // The provider's metadata JSON for a stored node, as its API would show it.
    virtual nlohmann::json renderNode(Tree& tree, const Node& node) const = 0;
    // What the admin API's writes did, for a provider whose items are more than folders and
    // files (Evernote's notebooks and notes): called under the store lock right after the
    // framework made or changed `node`, or right before it removes it.
    enum class AdminChange { folderMade, fileMade, fileChanged, removing };
    virtual void adminChanged(Tree& tree, Node& node, AdminChange change);
    // Why the admin API may not put a folder or file at `parts` (Evernote: notebooks hold
    // notes, nothing deeper), or nothing when it may.
    virtual std::optional<std::string> refuseAdminPath(const std::vector<std::string>& parts, bool folder) const;
    // Fields the ready line and /admin/<p>/accounts add to an account (Evernote's
    // note_store_url).
    virtual std::map<std::string, std::string> accountDetails(const AccountInfo& account,
                                                              const std::string& baseUrl) const;
    // Provider-specific settings; configure() changes only the keys given. The settings a
    // module binds (bindSettings) are served without overriding these.
    virtual bool configure(const nlohmann::json& settings, std::string& error);
    virtual nlohmann::json settings() const;

    // The gate in front of a provider's API routes: checks the request's bearer token.
    Caller caller(const Request& request) const;

    TokenAuthority& tokens() { return tokens_; }
    const TokenAuthority& tokens() const { return tokens_; }
    Store& store() { return store_; }
    ProviderContext& context() { return context_; }

    std::vector<AccountInfo> accounts() const;
    // By id or e-mail (case-insensitive); empty selects the first account.
    std::optional<AccountInfo> findAccount(const std::string& idOrEmail) const;

protected:
    // Seeds an account with a fresh access token, and a refresh token unless the provider
    // has none (Evernote).
    AccountInfo addAccount(AccountInfo account, const std::string& scope, bool withRefreshToken = true);
    // Serves `settings` (guarded by the store lock) as the provider's settings under the
    // keys `fields` name; `title` names the provider in errors ("unknown Dropbox setting").
    template <class S>
    void bindSettings(S& settings, std::string title, std::vector<SettingField<S>> fields) {
        boundSettings_ = std::make_unique<BoundSettingsOf<S>>(settings, store_.mutex(), std::move(title), std::move(fields));
    }

    std::string name_;
    ProviderContext& context_;
    TokenAuthority tokens_;
    Store store_;

private:
    std::unique_ptr<BoundSettings> boundSettings_;
    mutable std::mutex accountsMutex_;
    std::vector<AccountInfo> accounts_;
};

// The modules this sandbox serves (sandbox/Modules.cpp).
std::vector<std::unique_ptr<ProviderModule>> createProviderModules(ProviderContext& context);

}  // namespace vxcloud::sandbox
