// Evernote's sign-in: OAuth 1.0a with HMAC-SHA1 signatures under the app's consumer key and
// secret, called back on a loopback listener. The answer carries the authentication token
// and the user's NoteStore address; the user is named by UserStore.getUser (id, e-mail,
// name). The token and the NoteStore address are stored under the account's key, where the
// Evernote client reads them. Evernote's tokens are not refreshed: they last until the
// answer's edam_expires.
#include <cstdlib>

#include "auth/OAuth1Flow.h"
#include "auth/SignIn.h"
#include "providers/evernote/EvernoteClient.h"
#include "vxcloud/auth/VXCloudTokenStore.h"
#include "vxcloud/model/VXCloudAccount.h"
#include "vxcloud/model/VXCloudServiceRegistry.h"
#include "vxcloud/sessions/VXCloudEvernoteSession.h"

namespace vxcloud::auth {
namespace {

std::string field(const std::map<std::string, std::string>& answer, const char* key) {
    const auto it = answer.find(key);
    return it == answer.end() ? std::string() : it->second;
}

VXCloudAuthResult finishEvernote(const std::map<std::string, std::string>& answer) {
    const std::string token = field(answer, "oauth_token");
    const std::string noteStoreUrl = field(answer, "edam_noteStoreUrl");
    if (noteStoreUrl.empty()) return signInError(ErrorCode::fileUpload, "Evernote's answer names no NoteStore.");
    // The token is not stored until the user is known: the account's key names its place.
    const auto user = evernote::EvernoteClient::withGrantedToken(token, noteStoreUrl)->getUser();
    if (!user.ok()) {
        return signInError(classifySignInError(VXCloudService::evernote, user.error()),
                           "Evernote did not name the signed-in user: " + user.error().message);
    }
    const evernote::User& me = user.value();
    if (me.id == 0) return signInError(ErrorCode::fileUpload, "Evernote named a user without an id.");
    auto account = std::make_shared<VXCloudAccount>(std::to_string(me.id), me.email.empty() ? me.username : me.email,
                                                    VXCloudService::evernote);
    if (!me.name.empty()) account->displayName = me.name;

    VXCloudOAuthToken stored;
    stored.accessToken = token;
    stored.tokenType = "edam";
    const std::string expires = field(answer, "edam_expires");
    if (!expires.empty()) stored.expiresAt = std::strtoll(expires.c_str(), nullptr, 10) / 1000;
    stored.extra[evernote::kNoteStoreUrlKey] = noteStoreUrl;
    if (auto prefix = field(answer, "edam_webApiUrlPrefix"); !prefix.empty()) stored.extra["webApiUrlPrefix"] = prefix;
    if (auto shard = field(answer, "edam_shard"); !shard.empty()) stored.extra["shard"] = shard;
    if (!VXCloudTokenStore::save(VXCloudService::evernote, VXCloudEvernoteSession::storageName(*account), stored)) {
        return signInError(ErrorCode::fileUpload, "The Evernote token could not be stored in the secure store.");
    }
    return linkedAccount(std::move(account));
}

SignInStart startEvernote(const VXCloudAuthManager& manager, const std::shared_ptr<VXCloudUserAgent>&,
                          std::chrono::milliseconds timeLimit, RedirectFlow::Completion completion) {
    const auto info = manager.evernoteInfo();
    if (!info || info->consumerKey.empty() || info->consumerSecret.empty()) {
        return signInRefused(ErrorCode::fileUpload, "Evernote is not set up: pass the consumer key and secret to "
                                                    "VXCloudAuthManager::setup().");
    }
    const VXCloudServiceEndpoints endpoints = VXCloudServiceConfig::endpoints(VXCloudService::evernote);
    OAuth1Request request;
    request.service = VXCloudService::evernote;
    request.serviceName = serviceDescriptor(VXCloudService::evernote).displayName;
    // Evernote asks for temporary credentials and exchanges the verifier at one address.
    request.temporaryCredentialsUrl = endpoints.tokenUrl;
    request.tokenUrl = endpoints.tokenUrl;
    request.authorizeUrl = endpoints.authorizeUrl;
    request.consumerKey = info->consumerKey;
    request.consumerSecret = info->consumerSecret;
    request.timeLimit = timeLimit;
    return {OAuth1Flow::create(std::move(request), finishEvernote, std::move(completion)), std::nullopt};
}

}  // namespace

const SignIn kEvernoteSignIn{startEvernote, classifyTokenEndpointError};

}  // namespace vxcloud::auth
