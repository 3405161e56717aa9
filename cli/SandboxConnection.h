#pragma once
// Pointing the component at a running vxcloud-sandbox (or the demo's embedded one): the
// sandbox describes its emulated providers' endpoints and seeded accounts, and every
// service it emulates is then reached there instead of at the provider.
#include <optional>
#include <string>
#include <vector>

#include "vxcloud/model/VXCloudService.h"
#include <nlohmann/json.hpp>

#include "vxcloud/platform/Json.h"

namespace vxcloud::cli {

class HostCredentials;

struct SandboxConnection {
    std::string baseUrl;  // "http://127.0.0.1:PORT"
    Json description;     // the sandbox's own description (providers, accounts)

    // The services the sandbox emulates, in service order.
    std::vector<VXCloudService> services() const;
    // The sandbox's provider name for a service ("dropbox"), or nothing.
    std::optional<std::string> providerName(VXCloudService service) const;
    // The provider's first seeded account, or the one with that e-mail / user id.
    std::optional<Json> seededAccount(VXCloudService service, const std::string& wanted = {}) const;
};

// "127.0.0.1:53682", "http://127.0.0.1:53682/", ".../admin" all become "http://127.0.0.1:53682".
std::string normaliseSandboxUrl(const std::string& url);

// Asks the sandbox at `url` for its description; throws CliError when it does not answer.
SandboxConnection connectSandbox(const std::string& url);

// Points each emulated service's endpoints at the sandbox. Services without credentials
// of the host's own get the sandbox's stand-in client id, so token refreshes work.
void applySandbox(const SandboxConnection& sandbox, const HostCredentials& credentials);

// The service a sandbox provider name stands for ("dropbox", "google_drive", ...).
std::optional<VXCloudService> serviceForSandboxProvider(const std::string& name);

// The URL remembered by `vxcloud sandbox-connect`, from the file; empty when none.
std::string savedSandboxUrl(const std::string& sandboxFile);
void saveSandboxUrl(const std::string& sandboxFile, const std::string& url);
bool forgetSandboxUrl(const std::string& sandboxFile);

}  // namespace vxcloud::cli
