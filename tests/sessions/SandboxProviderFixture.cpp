#include "sessions/SandboxProviderFixture.h"

#include <chrono>
#include <nlohmann/json.hpp>

#include "vxcloud/auth/VXCloudTokenStore.h"
#include "vxcloud/model/VXCloudUserDefaults.h"
#include "vxcloud/sessions/VXCloudServiceConfig.h"

namespace vxcloud::testing {

namespace {

std::int64_t nowSeconds() {
    return std::chrono::duration_cast<std::chrono::seconds>(std::chrono::system_clock::now().time_since_epoch())
        .count();
}

}  // namespace

SandboxProviderFixture::SandboxProviderFixture(SandboxProvider provider, sandbox::Sandbox::Options options)
    : SandboxFixture(options), provider_(std::move(provider)) {}

bool SandboxProviderFixture::setUp(std::string& error) {
    return SandboxFixture::setUp(error) && linkFirstAccount(error);
}

bool SandboxProviderFixture::setUpBeside(SandboxProviderFixture& host, std::string& error) {
    return joinSandboxOf(host, error) && linkFirstAccount(error);
}

bool SandboxProviderFixture::linkFirstAccount(std::string& error) {
    sandboxAccount_ = sandbox().account(provider_.name);
    if (sandboxAccount_.userId.empty()) {
        error = "the sandbox has no " + provider_.name + " account";
        return false;
    }
    pointAt(provider_.service);
    VXCloudServiceConfig::setCredentials(provider_.service, {provider_.clientId, clientSecret()});
    VXCloudServiceConfig::setUploadLimits(provider_.service, {});
    if (!prepare(error)) return false;
    account_ = linkAccount(sandboxAccount_, error);
    return account_ != nullptr;
}

std::shared_ptr<VXCloudAccount> SandboxProviderFixture::linkAccount(const sandbox::SandboxAccount& linked, std::string& error) {
    auto account = std::make_shared<VXCloudAccount>(linked.userId, linked.email, provider_.service);
    VXCloudOAuthToken token;
    token.accessToken = linked.accessToken;
    token.refreshToken = linked.refreshToken;
    token.expiresAt = nowSeconds() + 3600;
    token.scope = provider_.scope;
    completeToken(token, linked);
    if (!VXCloudTokenStore::save(provider_.service, storageName(*account), token)) {
        error = "the token could not be stored";
        return nullptr;
    }
    const std::string folderId = uploadFolderId(linked, error);
    if (folderId.empty()) return nullptr;
    account->shouldAutoUpload = true;
    account->onlyWifiUpload = false;
    account->uploadFolderInfo = Json{{VXCloudFile::kUploadFolderIdKey, folderId},
                                     {VXCloudFile::kUploadFolderNameKey, "Scans"},
                                     {VXCloudFile::kUploadFolderPathKey, "/Scans"}};
    if (!VXCloudUserDefaults::saveCloudAccount(*account)) {
        error = "the account could not be stored";
        return nullptr;
    }
    return account;
}

std::size_t SandboxProviderFixture::documentsNamedFor(const std::string& name, const std::string& userId) {
    const Json state = sandbox().listState(provider_.name, userId);
    std::size_t count = 0;
    if (!state.is_object() || !state.contains("items")) return count;
    for (const Json& item : state["items"]) {
        const bool trashed = item.value("trashed", false);
        // A note (Evernote) is named by its title.
        const std::string itemName = item.contains("title") ? item.value("title", "") : item.value("name", "");
        if (itemName == name && !trashed && item.value(".tag", "file") == "file") ++count;
    }
    return count;
}

}  // namespace vxcloud::testing
