#include "auth/DropboxAuthFlow.h"

#include <nlohmann/json.hpp>

#include "providers/dropbox/DropboxClient.h"
#include "vxcloud/model/VXCloudAccount.h"

namespace vxcloud::auth {
namespace {

constexpr VXCloudService kService = VXCloudService::dropbox;

ErrorCode codeFor(const ProviderError& error) {
    switch (dropbox::callErrorKind(error)) {
        case dropbox::CallErrorKind::auth: return ErrorCode::authentication;
        case dropbox::CallErrorKind::internalServer:
        case dropbox::CallErrorKind::rateLimit: return ErrorCode::connection;
        case dropbox::CallErrorKind::client: return classifySignInError(kService, error);
        default: return ErrorCode::fileUpload;
    }
}

// Puts back what was stored for the account before this sign-in.
void restore(const std::string& accountId, const std::optional<VXCloudOAuthToken>& previous) {
    if (previous) {
        VXCloudTokenStore::save(kService, accountId, *previous);
    } else {
        VXCloudTokenStore::remove(kService, accountId);
    }
}

VXCloudAuthResult finishDropbox(const GrantedTokens& granted) {
    const auto id = granted.answer.find("account_id");
    if (id == granted.answer.end() || !id->is_string() || id->get<std::string>().empty()) {
        return signInError(ErrorCode::fileUpload, "Dropbox's token answer names no account.");
    }
    const std::string accountId = id->get<std::string>();

    // The client reads its token from the store, so the token goes there first; a failed
    // look-up puts back the token of an earlier link of the same account.
    const auto previous = VXCloudTokenStore::load(kService, accountId);
    if (!saveGrantedToken(kService, accountId, granted.token)) {
        return signInError(ErrorCode::fileUpload, "The Dropbox token could not be stored in the secure store.");
    }
    auto client = dropbox::DropboxClient::forUser(accountId);
    if (!client) {
        restore(accountId, previous);
        return signInError(ErrorCode::fileUpload, "The stored Dropbox token could not be read back.");
    }
    const auto full = client->getFullAccount();
    if (!full.ok()) {
        restore(accountId, previous);
        return signInError(codeFor(full.error()), "Dropbox did not name the signed-in account: " +
                                                      full.error().message);
    }
    if (full.value().accountId != accountId) {
        restore(accountId, previous);
        return signInError(ErrorCode::authentication, "Dropbox named another account than the one signed in.");
    }
    return linkedAccount(std::make_shared<VXCloudAccount>(accountId, full.value().email, kService));
}

}  // namespace

std::shared_ptr<OAuth2Flow> makeDropboxFlow(const VXCloudDropboxInfo& info, std::chrono::milliseconds timeLimit,
                                            OAuth2Flow::Completion completion) {
    OAuth2Request request = OAuth2Request::forService(kService, "Dropbox", info.appKey, info.redirectURL, timeLimit);
    request.extraParameters = {{"token_access_type", "offline"}};
    return OAuth2Flow::create(std::move(request), finishDropbox, std::move(completion));
}

}  // namespace vxcloud::auth
