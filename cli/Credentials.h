#pragma once
// The host's own registrations at the providers (app keys, client ids and secrets): read
// from $XDG_CONFIG_HOME/vxcloud/credentials.json, overridden by environment variables, and
// handed to the component at start-up.
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "vxcloud/model/VXCloudService.h"
#include "vxcloud/sessions/VXCloudServiceConfig.h"

namespace vxcloud::cli {

struct CredentialField {
    std::string key;          // in the service's section of credentials.json
    std::string environment;  // the variable that overrides it
    std::string label;        // for messages: "app key"
    bool required = true;
    std::string hint;         // where the person finds the value, when that is not obvious
};

struct ServiceCredentialLayout {
    std::string section;  // "dropbox", "google_drive", ... (OneNote shares "one_drive")
    std::vector<CredentialField> fields;
    std::string idKey;      // the field that identifies the app (app key, client id, ...)
    std::string secretKey;  // the field with its secret, when it has one
};

// The credentials a service's sign-in needs, as its registry entry lists them, with the
// environment variables that override them; nothing for WebDAV, which signs in nowhere.
std::optional<ServiceCredentialLayout> credentialLayout(VXCloudService service);

class HostCredentials {
public:
    // Reads the file (when present) and the environment. A file that cannot be read or is
    // not a JSON object is reported in `problems` and ignored.
    static HostCredentials load(const std::string& credentialsPath);

    std::optional<std::string> value(VXCloudService service, const std::string& key) const;
    // The required fields that are not set for the service.
    std::vector<CredentialField> missing(VXCloudService service) const;
    // What exactly is missing and where to put it; empty when nothing is.
    std::string missingMessage(VXCloudService service) const;
    // The service's app credentials when complete.
    std::optional<VXCloudAppCredentials> appCredentials(VXCloudService service) const;
    // Hands every service's credentials that are complete to the component's configuration.
    void apply() const;
    bool complete(VXCloudService service) const { return missing(service).empty(); }

    const std::string& path() const { return path_; }
    const std::vector<std::string>& problems() const { return problems_; }

private:
    std::string path_;
    // section -> key -> value
    std::map<std::string, std::map<std::string, std::string>> values_;
    std::vector<std::string> problems_;
};

}  // namespace vxcloud::cli
