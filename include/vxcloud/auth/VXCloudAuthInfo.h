#pragma once
// The app's registration at each service, as the host hands it to
// VXCloudAuthManager::setup. The component ships no credentials of its own.
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace vxcloud {

// Dropbox: the app key. Dropbox accepts only redirect URIs registered in the App Console,
// loopback ones included, so a desktop host registers "http://127.0.0.1:<port>/" and
// passes it here; empty means a free port at sign-in time (fine for the sandbox).
class VXCloudDropboxInfo {
public:
    explicit VXCloudDropboxInfo(std::string appKey, std::string redirectURL = {})
        : appKey(std::move(appKey)), redirectURL(std::move(redirectURL)) {}

    std::string appKey;
    std::string redirectURL;
};

// Google: an OAuth client of type "Desktop app". A loopback redirectURL
// ("http://127.0.0.1/", any port) is served by the component itself; any other URL (a
// custom scheme) must be routed by the host to VXCloudAuthManager::handleRedirectURL.
// Scopes default to per-file Drive access; "openid" and "email" are always added, since
// they name the signed-in user. Desktop clients have a (non-confidential) secret that
// Google's token endpoint expects.
class VXCloudGoogleDriveInfo {
public:
    VXCloudGoogleDriveInfo(std::string clientId, std::string redirectURL,
                           std::vector<std::string> scopes = {},
                           std::optional<std::string> clientSecret = std::nullopt)
        : clientId(std::move(clientId)),
          redirectURL(std::move(redirectURL)),
          scopes(std::move(scopes)),
          clientSecret(std::move(clientSecret)) {}

    std::string clientId;
    std::string redirectURL;
    std::vector<std::string> scopes;
    std::optional<std::string> clientSecret;
};

class VXCloudOneDriveInfo {
public:
    explicit VXCloudOneDriveInfo(std::string applicationId, std::vector<std::string> scopes = {})
        : applicationId(std::move(applicationId)), scopes(std::move(scopes)) {}

    std::string applicationId;
    std::vector<std::string> scopes;
};

class VXCloudBoxInfo {
public:
    VXCloudBoxInfo(std::string clientId, std::string clientSecret)
        : clientId(std::move(clientId)), clientSecret(std::move(clientSecret)) {}

    std::string clientId;
    std::string clientSecret;
};

class VXCloudEvernoteInfo {
public:
    VXCloudEvernoteInfo(std::string consumerKey, std::string consumerSecret)
        : consumerKey(std::move(consumerKey)), consumerSecret(std::move(consumerSecret)) {}

    std::string consumerKey;
    std::string consumerSecret;
};

}  // namespace vxcloud
