#pragma once
// Linking an account of a service: the sign-in, the stored token, the saved account, and
// the upload folder named by the settings document the account may already have.
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
    std::string as;        // against a sandbox: which seeded account (e-mail or user id)
    bool replace = false;  // allowed to replace the one account of a single-account service
};

struct LinkResult {
    std::shared_ptr<VXCloudAccount> account;
    bool relinked = false;  // an account with the same key was linked before
    bool folderFromSettings = false;
};

// Throws CliError saying what is missing (credentials, a sandbox account, a session for
// the service in this build) or what the sign-in answered.
LinkResult linkAccount(HostContext& context, Prompter& prompter, const LinkRequest& request);

// The secure-store name of an account's OAuth token at its service.
std::string tokenStorageName(VXCloudService service, const std::string& userId);

}  // namespace vxcloud::cli
