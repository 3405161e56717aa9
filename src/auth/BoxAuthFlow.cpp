// Box's sign-in: OAuth 2 authorisation code with `state`, the app's client id and secret
// (Box's token endpoint wants the secret; PKCE is sent too and does no harm), redirected to
// a loopback listener (Box lets a loopback redirect use any port). The user is named by
// GET /users/me: the id, with the login (an e-mail address) as the account's e-mail. The
// tokens are stored under the account's key, where the Box client reads and rotates them.
#include "auth/SignIn.h"
#include "providers/box/BoxClient.h"
#include "vxcloud/model/VXCloudAccount.h"
#include "vxcloud/sessions/VXCloudBoxSession.h"

namespace vxcloud::auth {
namespace {

VXCloudAuthResult finishBox(const GrantedTokens& granted) {
    // The token is not stored until the user is known: the account's key names its place.
    const auto user = box::BoxClient::withGrantedToken(granted.token.accessToken)->currentUser();
    if (!user.ok()) {
        return signInError(classifySignInError(VXCloudService::box, user.error()),
                           "Box did not name the signed-in user: " + user.error().message);
    }
    const box::User& me = user.value();
    auto account = std::make_shared<VXCloudAccount>(me.id, me.login.empty() ? me.name : me.login, VXCloudService::box);
    if (!saveGrantedToken(VXCloudService::box, VXCloudBoxSession::storageName(*account), granted.token)) {
        return signInError(ErrorCode::fileUpload, "The Box token could not be stored in the secure store.");
    }
    return linkedAccount(std::move(account));
}

SignInStart startBox(const VXCloudAuthManager& manager, const std::shared_ptr<VXCloudUserAgent>&,
                     std::chrono::milliseconds timeLimit, RedirectFlow::Completion completion) {
    const auto info = manager.boxInfo();
    if (!info || info->clientId.empty() || info->clientSecret.empty()) {
        return signInRefused(ErrorCode::fileUpload,
                             "Box is not set up: pass the client id and secret to VXCloudAuthManager::setup().");
    }
    OAuth2Request request = OAuth2Request::forService(VXCloudService::box, info->clientId, std::string(), timeLimit);
    request.clientSecret = info->clientSecret;
    // No scopes: Box grants the ones configured for the app.
    return {OAuth2Flow::create(std::move(request), finishBox, std::move(completion)), std::nullopt};
}

}  // namespace

const SignIn kBoxSignIn{startBox, classifyTokenEndpointError};

}  // namespace vxcloud::auth
