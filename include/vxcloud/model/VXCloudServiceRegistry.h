#pragma once
// One entry per service: what sets the services apart, outside their own session, client
// and error classifier. The entry says how the service's sessions are made, where it is
// reached, how it is signed in to, which app credentials a host passes for it, and the
// words it is known by. Code that treats services alike asks here instead of switching on
// the service, so adding a provider fills in its entry and its own folders
// (docs/ADDING_A_PROVIDER.md).
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>

#include "vxcloud/model/VXCloudService.h"

namespace vxcloud {

class VXCloudAccount;
class VXCloudSession;

namespace auth {
struct SignIn;  // the service's sign-in flow; private to the library
}

// Makes the service's session for an account, or none (the session declines the account).
using VXCloudSessionMaker = std::shared_ptr<VXCloudSession> (*)(const std::shared_ptr<VXCloudAccount>&);

// The real service's URLs (VXCloudServiceEndpoints' fields); empty where it has none.
struct VXCloudEndpointDefaults {
    std::string_view apiBase{};
    std::string_view contentBase{};
    std::string_view authorizeUrl{};
    std::string_view tokenUrl{};
    std::span<const std::pair<std::string_view, std::string_view>> extra{};
};

// One value of the app's registration at the service that a host passes on.
struct VXCloudCredentialField {
    enum class Role { clientId, clientSecret, redirectUrl };

    std::string_view key{};    // its name in the host's configuration: "app_key"
    std::string_view label{};  // for messages: "app key"
    Role role = Role::clientId;
    bool required = true;
    std::string_view hint{};   // where the person finds the value, when that is not obvious
};

// How a person adds an account of the service.
enum class VXCloudLinking {
    signIn,       // a sign-in at the service (when the entry names one)
    accountForm,  // the host's form creates the account (WebDAV)
};

struct VXCloudServiceDescriptor {
    VXCloudService service = VXCloudService::googleDrive;

    // Words. The type word is stored in records, the key prefix in account keys, the icon
    // name finds the image in the bundle; the display name is the English key of the
    // localised name. `names` are further spellings a person may type ("gdrive").
    std::string_view typeWord{};
    std::string_view keyPrefix{};
    std::string_view iconName{};
    std::string_view displayName{};
    std::span<const std::string_view> names{};

    // Null while the service has no session in this build: its accounts get none, and the
    // engine reports them as needing authentication.
    VXCloudSessionMaker makeSession = nullptr;
    VXCloudEndpointDefaults endpoints{};

    VXCloudLinking linking = VXCloudLinking::signIn;
    // Null while the service has no sign-in in this build.
    const auth::SignIn* signIn = nullptr;

    // The host's app credentials for the service, in a section of its configuration that
    // services sharing one registration share (OneNote uses OneDrive's). `environmentName`
    // names the section in environment variables ("GOOGLE").
    std::string_view credentialsSection{};
    std::string_view environmentName{};
    std::span<const VXCloudCredentialField> credentials{};

    // The service allows one linked account at a time; linking another replaces it.
    bool singleAccount = false;
    // Whether overwriting a copy changed elsewhere replaces it. OneDrive's session stores the
    // document anew under its name instead, and the service refuses the clash.
    bool overwritesChangedCopy = true;
    // Whether the service keeps the per-account settings document. OneNote's session drops
    // it without an answer, and WebDAV's sends nothing, so nobody waits for one there.
    bool keepsSettingsDocument = true;
    // Why the service's accounts never upload automatically (English key of the localised
    // text), or empty when they can.
    std::string_view noAutoUploadReason{};
};

// The entry of a service; every service has exactly one. A value cast from an unchecked
// integer gets an empty entry (no names, no session, no sign-in).
const VXCloudServiceDescriptor& serviceDescriptor(VXCloudService service) noexcept;

// Whether the service can be signed in to in this build.
bool offersSignIn(VXCloudService service) noexcept;

// A service from what a person typed: its type word, display name or one of its names,
// ignoring case and punctuation ("Google Drive", "google-drive", "gdrive", "one_drive").
std::optional<VXCloudService> serviceFromName(std::string_view name);

// The localised reason why the service's accounts never upload automatically, or nothing.
std::optional<std::string> noAutoUploadReason(VXCloudService service);

}  // namespace vxcloud
