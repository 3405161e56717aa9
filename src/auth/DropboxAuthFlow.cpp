// Dropbox's sign-in: offline access (a refresh token) with PKCE and no secret; the tokens
// are stored under the account id, where the Dropbox client reads them, and the account
// is built from users/get_current_account.
#include <nlohmann/json.hpp>

#include "auth/SignIn.h"

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

SignInStart startDropbox(const VXCloudAuthManager& manager, const std::shared_ptr<VXCloudUserAgent>&,
                         std::chrono::milliseconds timeLimit, RedirectFlow::Completion completion) {
    const auto info = manager.dropboxInfo();
    if (!info) {
        return signInRefused(ErrorCode::fileUpload,
                             "Dropbox is not set up: pass the app key to VXCloudAuthManager::setup().");
    }
    OAuth2Request request = OAuth2Request::forService(kService, info->appKey, info->redirectURL, timeLimit);
    request.extraParameters = {{"token_access_type", "offline"}};
    return {OAuth2Flow::create(std::move(request), finishDropbox, std::move(completion)), std::nullopt};
}

}  // namespace

const SignIn kDropboxSignIn{startDropbox, classifyTokenEndpointError};

}  // namespace vxcloud::auth
