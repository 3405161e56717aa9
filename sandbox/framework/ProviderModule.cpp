#include "framework/ProviderModule.h"

#include "framework/Text.h"

namespace vxcloud::sandbox {

ProviderModule::ProviderModule(std::string name, ProviderContext& context, TokenPolicy tokenPolicy,
                               IdScheme ids)
    : name_(std::move(name)),
      context_(context),
      tokens_(context.clock, std::move(tokenPolicy)),
      store_(std::move(ids), context.clock) {}

void ProviderModule::faultResponse(const FaultSpec& fault, const Request&, Response& response) const {
    const std::string message = fault.error.empty() ? "Injected failure" : fault.error;
    response.text(fault.status, message + "\n");
}

std::optional<std::string> ProviderModule::refuseFault(const std::string&, const FaultSpec& fault) const {
    if (fault.status == 0 && !fault.error.empty()) return "the " + name_ + " emulator needs a status with error=";
    return std::nullopt;
}

std::optional<std::string> ProviderModule::requestToken(const Request& request) const { return request.bearerToken(); }

void ProviderModule::decorateResponse(const Request&, Response&) const {}

void ProviderModule::adminChanged(Tree&, Node&, AdminChange) {}

std::optional<std::string> ProviderModule::refuseAdminPath(const std::vector<std::string>&, bool) const {
    return std::nullopt;
}

std::map<std::string, std::string> ProviderModule::accountDetails(const AccountInfo&, const std::string&) const {
    return {};
}

bool ProviderModule::configure(const nlohmann::json& settings, std::string& error) {
    if (boundSettings_) return boundSettings_->configure(settings, error);
    if (settings.is_object() && settings.empty()) return true;
    error = "the " + name_ + " emulator has no settings";
    return false;
}

nlohmann::json ProviderModule::settings() const {
    return boundSettings_ ? boundSettings_->current() : nlohmann::json::object();
}

bool Caller::granted(const std::string& wanted) const {
    return (" " + scope + " ").find(" " + wanted + " ") != std::string::npos;
}

Caller ProviderModule::caller(const Request& request) const {
    Caller out;
    if (!request.header("Authorization")) return out;
    const auto token = request.bearerToken();
    if (!token) {
        out.status = Caller::Status::malformed;
        return out;
    }
    out.token = *token;
    const auto check = tokens_.check(*token);
    out.scope = check.scope;
    if (check.status != TokenAuthority::Status::valid) {
        out.status = check.status == TokenAuthority::Status::expired ? Caller::Status::expired : Caller::Status::invalid;
        return out;
    }
    const auto account = findAccount(check.accountId);
    out.status = account ? Caller::Status::valid : Caller::Status::invalid;
    if (account) out.account = *account;
    return out;
}

std::vector<AccountInfo> ProviderModule::accounts() const {
    std::lock_guard lock(accountsMutex_);
    return accounts_;
}

std::optional<AccountInfo> ProviderModule::findAccount(const std::string& idOrEmail) const {
    std::lock_guard lock(accountsMutex_);
    if (accounts_.empty()) return std::nullopt;
    if (idOrEmail.empty()) return accounts_.front();
    for (const auto& account : accounts_) {
        if (account.id == idOrEmail || asciiLower(account.email) == asciiLower(idOrEmail)) return account;
    }
    return std::nullopt;
}

AccountInfo ProviderModule::addAccount(AccountInfo account, const std::string& scope, bool withRefreshToken) {
    const IssuedTokens seeded = tokens_.issue(account.id, scope, withRefreshToken);
    account.seededAccessToken = seeded.accessToken;
    account.seededRefreshToken = seeded.refreshToken;
    {
        std::lock_guard storeLock(store_.mutex());
        store_.tree(account.id);
    }
    std::lock_guard lock(accountsMutex_);
    accounts_.push_back(account);
    return account;
}

}  // namespace vxcloud::sandbox
