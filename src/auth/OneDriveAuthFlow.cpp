// Microsoft's sign-in (identity platform v2), shared by the Microsoft services: a public
// client (PKCE, no secret) on the `common` tenant, so personal and work accounts both sign
// in, redirected to a loopback listener on 127.0.0.1 (Microsoft ignores the port of a
// loopback redirect, so any free one will do). The services differ only in their default
// scopes. The user is named by the drive's owner (GET /me/drive on Graph's root; a OneNote
// notebook lives in the person's drive), and the tokens are stored under the account's key,
// where the service's client reads and refreshes them.
#include <algorithm>

#include "auth/SignIn.h"
#include "providers/onedrive/GraphClient.h"
#include "vxcloud/model/VXCloudAccount.h"
#include "vxcloud/model/VXCloudServiceRegistry.h"

namespace vxcloud::auth {
namespace {

// Without offline_access Microsoft issues no refresh token, and the account would need a
// new sign-in every hour.
constexpr const char* kOfflineAccess = "offline_access";

// What a service asks for when the host names no scopes. OneDrive writes anywhere in the
// drive (the person picks the upload folder); User.Read is the basic sign-in permission
// Microsoft's consent screen expects of every app. Notes.Create is the least that lists
// notebooks and sections and creates them and pages; Files.Read reads the drive that names
// the account.
std::vector<std::string> defaultScopes(VXCloudService service) {
    if (service == VXCloudService::oneNote) return {"Notes.Create", "Files.Read", "User.Read"};
    return {"Files.ReadWrite", "User.Read"};
}

std::vector<std::string> microsoftScopes(VXCloudService service, const std::vector<std::string>& requested) {
    std::vector<std::string> scopes = requested.empty() ? defaultScopes(service) : requested;
    if (std::find(scopes.begin(), scopes.end(), kOfflineAccess) == scopes.end()) scopes.emplace_back(kOfflineAccess);
    return scopes;
}

// Microsoft Graph's root for a service: OneDrive's base is the root itself; OneNote's base is
// its notes service below it, so the root is an endpoint of its own ("" when none is set).
std::string graphRoot(VXCloudService service) {
    const VXCloudServiceEndpoints endpoints = VXCloudServiceConfig::endpoints(service);
    if (service != VXCloudService::oneNote) return endpoints.apiBase;
    const auto configured = endpoints.extra.find(kGraphRootEndpointKey);
    return configured == endpoints.extra.end() ? std::string() : configured->second;
}

VXCloudAuthResult finishMicrosoft(VXCloudService service, const GrantedTokens& granted) {
    const std::string name(serviceDescriptor(service).displayName);
    // The token is not stored until the user is known: the account's key names its place.
    const std::string root = graphRoot(service);
    if (root.empty()) {
        return signInError(ErrorCode::fileUpload, "No Microsoft Graph endpoint is configured to name the " + name + " account.");
    }
    const auto drive = onedrive::GraphClient::withGrantedToken(service, root, granted.token.accessToken)->getDrive();
    if (!drive.ok()) {
        return signInError(classifySignInError(service, drive.error()),
                           name + " did not name the signed-in account: " + drive.error().message);
    }
    const onedrive::Drive& owner = drive.value();
    if (owner.ownerId.empty()) return signInError(ErrorCode::fileUpload, name + "'s drive names no owner.");
    // Some work accounts' drives carry no display name; the id still tells the account apart.
    const std::string shownName = owner.ownerName.empty() ? owner.ownerId : owner.ownerName;
    auto account = std::make_shared<VXCloudAccount>(owner.ownerId, shownName, service);
    if (!saveGrantedToken(service, account->key(), granted.token)) {
        return signInError(ErrorCode::fileUpload, "The " + name + " token could not be stored in the secure store.");
    }
    return linkedAccount(std::move(account));
}

template <VXCloudService kService>
SignInStart startMicrosoft(const VXCloudAuthManager& manager, const std::shared_ptr<VXCloudUserAgent>&,
                           std::chrono::milliseconds timeLimit, RedirectFlow::Completion completion) {
    const auto info = manager.oneDriveInfo();
    if (!info || info->applicationId.empty()) {
        return signInRefused(ErrorCode::fileUpload, std::string(serviceDescriptor(kService).displayName) +
                                                        " is not set up: pass the application id to "
                                                        "VXCloudAuthManager::setup().");
    }
    OAuth2Request request = OAuth2Request::forService(kService, info->applicationId, std::string(), timeLimit);
    // A public client: a secret would be refused.
    request.clientSecret.reset();
    request.scopes = microsoftScopes(kService, info->scopes);
    // The person chooses the account rather than being signed in silently as the one the
    // browser remembers: linking is how another account replaces the linked one.
    request.extraParameters = {{"response_mode", "query"}, {"prompt", "select_account"}};
    return {OAuth2Flow::create(std::move(request),
                               [](const GrantedTokens& granted) { return finishMicrosoft(kService, granted); },
                               std::move(completion)),
            std::nullopt};
}

}  // namespace

const SignIn kOneDriveSignIn{startMicrosoft<VXCloudService::oneDrive>, classifyTokenEndpointError};
const SignIn kOneNoteSignIn{startMicrosoft<VXCloudService::oneNote>, classifyTokenEndpointError};

}  // namespace vxcloud::auth
