#include "sessions/SandboxFixture.h"

#include <chrono>
#include <nlohmann/json.hpp>

#include "support/SandboxSupport.h"
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

SandboxFixture::SandboxFixture(SandboxProvider provider) : provider_(std::move(provider)) {}

SandboxFixture::~SandboxFixture() { tearDown(); }

bool SandboxFixture::setUp(std::string& error) {
    stores_ = std::make_shared<IsolatedStores>();
    sandbox_ = std::make_shared<sandbox::Sandbox>();
    if (!sandbox_->start(0, "127.0.0.1", &error)) return false;
    return linkFirstAccount(error);
}

bool SandboxFixture::setUpBeside(SandboxFixture& host, std::string& error) {
    if (!host.sandbox_) {
        error = "the fixture to join is not set up";
        return false;
    }
    stores_ = host.stores_;
    sandbox_ = host.sandbox_;
    return linkFirstAccount(error);
}

bool SandboxFixture::linkFirstAccount(std::string& error) {
    sandboxAccount_ = sandbox_->account(provider_.name);
    if (sandboxAccount_.userId.empty()) {
        error = "the sandbox has no " + provider_.name + " account";
        return false;
    }
    pointAtSandbox(*sandbox_, provider_.name, provider_.service);
    VXCloudServiceConfig::setCredentials(provider_.service, {provider_.clientId, std::nullopt});
    VXCloudServiceConfig::setUploadLimits(provider_.service, {});
    if (!prepare(error)) return false;
    account_ = linkAccount(sandboxAccount_, error);
    return account_ != nullptr;
}

std::shared_ptr<VXCloudAccount> SandboxFixture::linkAccount(const sandbox::SandboxAccount& linked, std::string& error) {
    auto account = std::make_shared<VXCloudAccount>(linked.userId, linked.email, provider_.service);
    VXCloudOAuthToken token;
    token.accessToken = linked.accessToken;
    token.refreshToken = linked.refreshToken;
    token.expiresAt = nowSeconds() + 3600;
    token.scope = provider_.scope;
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

void SandboxFixture::tearDown() {
    if (sandbox_) retireInBackground(std::move(sandbox_));
    VXCloudServiceConfig::reset(provider_.service);
    stores_.reset();
}

sandbox::RouteStats SandboxFixture::stats(const std::string& route) const {
    return sandbox_->stats(provider_.name + "/" + route);
}

bool SandboxFixture::fault(const std::string& route, const std::string& instruction, int times) {
    const auto parsed = sandbox::FaultSpec::parse(instruction);
    return parsed && sandbox_->enqueueFault(provider_.name + "/" + route, *parsed, times);
}

}  // namespace vxcloud::testing
