#pragma once
// Pointing the component at a running vxcloud-sandbox (or the demo's embedded one): the
// sandbox describes its emulated providers' endpoints and seeded accounts, and every
// service it emulates is then reached there instead of at the provider. The mechanism is
// the sandbox client's (sandbox/client), shared with the tests; this adds the CLI's errors,
// its stand-in credentials and the remembered connection.
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "vxcloud/sessions/VXCloudServiceConfig.h"
#include "vxcloud_sandbox/SandboxClient.h"

namespace vxcloud::cli {

class HostCredentials;

using SandboxConnection = sandbox::SandboxDescription;
using sandbox::normaliseSandboxUrl;
using sandbox::serviceForSandboxProvider;

// Asks the sandbox at `url` for its description, trusting `caFile` (PEM) when it serves
// HTTPS; throws CliError when it does not answer.
SandboxConnection connectSandbox(const std::string& url, const std::string& caFile = {});

// The stand-in app registration the sandbox accepts for a service: a client id, and a
// secret where the service's sign-in needs one (Box).
VXCloudAppCredentials sandboxCredentials(VXCloudService service);

// Points each emulated service's endpoints at the sandbox. Services without credentials
// of the host's own get the sandbox's stand-in ones, so token refreshes work.
void applySandbox(const SandboxConnection& sandbox, const HostCredentials& credentials);

// The sandbox remembered by `vxcloud sandbox-connect`, from the file; an empty URL when none.
struct SavedSandbox {
    std::string url;
    std::string caFile;  // for a sandbox serving HTTPS
};
SavedSandbox savedSandbox(const std::string& sandboxFile);
void saveSandbox(const std::string& sandboxFile, const SavedSandbox& sandbox);
bool forgetSandboxUrl(const std::string& sandboxFile);

}  // namespace vxcloud::cli
