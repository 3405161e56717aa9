#pragma once
// Linking an account of a service through the component's authorisation manager: the
// sign-in (the browser, a printed address, a pasted redirect, or the sandbox's sign-in page
// answered by the host itself), the stored account, and the upload folder named by the
// settings document the account may already have.
#include <memory>
#include <optional>
#include <string>

#include "vxcloud/model/VXCloudAccount.h"
#include "vxcloud/model/VXCloudService.h"

namespace vxcloud::cli {

class HostContext;
class Prompter;

struct LinkRequest {
    VXCloudService service = VXCloudService::dropbox;
    std::string as;         // against a sandbox: which of its accounts (e-mail or user id)
    bool replace = false;   // allowed to replace the one account of a single-account service
    bool noBrowser = false; // print the sign-in address instead of opening the browser
    bool paste = false;     // read the address the browser ended on from stdin
    bool quiet = false;     // no progress lines (scripts, the demo)
};

struct LinkResult {
    std::shared_ptr<VXCloudAccount> account;
    bool relinked = false;  // an account with the same key was linked before; its settings are kept
    bool folderFromSettings = false;
    std::size_t number = 0;  // its number in `vxcloud accounts`
};

// Hands the host's credentials (or the sandbox's stand-ins) to the authorisation manager
// and waits for its start-up check of the stored accounts, so that the check's saves never
// cross the command's own.
void setUpAuthorization(HostContext& context);

// Throws CliError saying what is missing (credentials, a sign-in for the service in this
// build) or how the sign-in ended.
LinkResult linkAccount(HostContext& context, Prompter& prompter, const LinkRequest& request);

// The upload-folder info a settings document names, or null.
Json folderInfoFromSettings(const Json& settings);

}  // namespace vxcloud::cli
