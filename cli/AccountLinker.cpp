#include "AccountLinker.h"

#include <nlohmann/json.hpp>

#include "Accounts.h"
#include "CliError.h"
#include "HostContext.h"
#include "Output.h"
#include "Prompts.h"
#include "UploadFolder.h"
#include "vxcloud/auth/VXCloudTokenStore.h"
#include "vxcloud/engine/VXCloudSessionFactory.h"
#include "vxcloud/engine/VXCloudUtils.h"
#include "vxcloud/model/VXCloudConstants.h"

namespace vxcloud::cli {

namespace {

bool singleAccountService(VXCloudService service) {
    return service == VXCloudService::oneDrive || service == VXCloudService::evernote;
}

// A sandbox's sign-in for one of its seeded accounts: its tokens are stored as a finished
// sign-in would store them.
std::shared_ptr<VXCloudAccount> signInAtSandbox(const SandboxConnection& sandbox, const LinkRequest& request) {
    const std::string name = displayName(request.service);
    const auto seeded = sandbox.seededAccount(request.service, request.as);
    if (!seeded) {
        if (!sandbox.providerName(request.service))
            throw CliError("the sandbox at " + sandbox.baseUrl + " does not emulate " + name);
        throw CliError("the sandbox has no " + name + " account called \"" + request.as + "\"", kExitUsage);
    }
    const std::string userId = seeded->value("user_id", "");
    const std::string email = seeded->value("email", "");
    if (userId.empty() || email.empty()) throw CliError("the sandbox described a " + name + " account without an id");

    VXCloudOAuthToken token;
    token.accessToken = seeded->value("access_token", "");
    token.refreshToken = seeded->value("refresh_token", "");
    if (!VXCloudTokenStore::save(request.service, tokenStorageName(request.service, userId), token))
        throw CliError("the " + name + " sign-in could not be stored in the secure store");

    auto account = std::make_shared<VXCloudAccount>(userId, email, request.service);
    const std::string shown = seeded->value("display_name", "");
    if (!shown.empty()) account->displayName = shown;
    return account;
}

}  // namespace

std::string tokenStorageName(VXCloudService service, const std::string& userId) {
    // Google keeps its sign-in under the account key; the other services under the user id.
    if (service == VXCloudService::googleDrive) return std::string(keyPrefix(service)) + userId;
    return userId;
}

LinkResult linkAccount(HostContext& context, Prompter& prompter, const LinkRequest& request) {
    const std::string name = displayName(request.service);
    if (request.service == VXCloudService::webDAV)
        throw CliError("WebDAV accounts are not signed in to; add one with: vxcloud webdav add", kExitUsage);

    // OneDrive and Evernote allow one account each: a new one replaces the old.
    AccountList replaced;
    if (singleAccountService(request.service)) {
        for (const auto& account : linkedAccounts())
            if (account->cloudService == request.service) replaced.push_back(account);
        if (!replaced.empty()) {
            say(VXCloudString::MAX_ACCOUNTS_FOR_SERVICE_ERROR());
            if (!request.replace && !prompter.confirm("Replace " + accountLabel(*replaced.front()) + "?", false))
                throw CliError("nothing was linked (say --replace to replace the linked account)", kExitFailed);
        }
    }

    std::shared_ptr<VXCloudAccount> account;
    if (context.sandbox()) {
        account = signInAtSandbox(*context.sandbox(), request);
    } else {
        const std::string missing = context.credentials().missingMessage(request.service);
        if (!missing.empty()) throw CliError(missing, kExitUsage);
        // The browser sign-in belongs to the authorisation manager, which this build
        // does not have yet.
        throw CliError("signing in to " + name + " through the browser is not available in this build yet; "
                       "link against the sandbox instead: vxcloud link " + std::string(accountType(request.service)) +
                       " --sandbox URL");
    }

    // A service this build has no session for cannot use the account: undo the sign-in.
    auto session = initCloudSession(account);
    if (!session) {
        VXCloudTokenStore::remove(request.service, tokenStorageName(request.service, account->userId));
        throw CliError("this build of vxcloud cannot work with " + name + " accounts yet");
    }

    LinkResult result;
    result.relinked = static_cast<bool>(reloadAccount(account->key()));
    saveAccount(*account);
    for (const auto& old : replaced) {
        if (old->key() == account->key()) continue;
        VXCloudUserDefaults::removeCloudAccount(old);
    }

    // An account used before names its upload folder in its settings document.
    const Json folder = folderFromSettingsDocument(session);
    if (folder.is_object()) {
        account->uploadFolderInfo = folder;
        saveAccount(*account);
        result.folderFromSettings = true;
    }
    result.account = account;
    return result;
}

}  // namespace vxcloud::cli
