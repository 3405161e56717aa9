#include "sessions/DropboxFixture.h"

#include <nlohmann/json.hpp>

#include "vxcloud/auth/VXCloudTokenStore.h"
#include "vxcloud/model/VXCloudUserDefaults.h"
#include "vxcloud/sessions/VXCloudServiceConfig.h"

namespace vxcloud::testing {

namespace {
constexpr const char* kProvider = "dropbox";

std::int64_t nowSeconds() {
    return std::chrono::duration_cast<std::chrono::seconds>(std::chrono::system_clock::now().time_since_epoch())
        .count();
}
}  // namespace

std::shared_ptr<VXCloudFile> folderRecord(const std::string& name, const std::string& path) {
    auto folder = std::make_shared<VXCloudFile>(name, true, false);
    folder->path = path;
    folder->id = "id:" + name;
    return folder;
}

DropboxFixture::DropboxFixture() = default;
DropboxFixture::~DropboxFixture() { tearDown(); }

bool DropboxFixture::setUp(std::string& error) {
    stores_ = std::make_unique<IsolatedStores>();
    sandbox_ = std::make_unique<sandbox::Sandbox>();
    if (!sandbox_->start(0, "127.0.0.1", &error)) return false;
    sandboxAccount_ = sandbox_->account(kProvider);
    if (sandboxAccount_.userId.empty()) {
        error = "the sandbox has no Dropbox account";
        return false;
    }

    VXCloudServiceEndpoints endpoints;
    endpoints.apiBase = sandbox_->endpoint(kProvider, "api");
    endpoints.contentBase = sandbox_->endpoint(kProvider, "content");
    endpoints.authorizeUrl = sandbox_->endpoint(kProvider, "authorize");
    endpoints.tokenUrl = sandbox_->endpoint(kProvider, "token");
    VXCloudServiceConfig::setEndpoints(VXCloudService::dropbox, endpoints);
    VXCloudServiceConfig::setCredentials(VXCloudService::dropbox, {"sandbox-app-key", std::nullopt});
    VXCloudServiceConfig::setUploadLimits(VXCloudService::dropbox, {});

    account_ = linkAccount(sandboxAccount_, error);
    return account_ != nullptr;
}

std::shared_ptr<VXCloudAccount> DropboxFixture::linkAccount(const sandbox::SandboxAccount& linked, std::string& error) {
    VXCloudOAuthToken token;
    token.accessToken = linked.accessToken;
    token.refreshToken = linked.refreshToken;
    token.expiresAt = nowSeconds() + 3600;
    if (!VXCloudTokenStore::save(VXCloudService::dropbox, linked.userId, token)) {
        error = "the token could not be stored";
        return nullptr;
    }
    auto account = std::make_shared<VXCloudAccount>(linked.userId, linked.email, VXCloudService::dropbox);
    account->shouldAutoUpload = true;
    account->onlyWifiUpload = false;
    account->uploadFolderInfo = Json{{VXCloudFile::kUploadFolderIdKey, "id:scans"},
                                     {VXCloudFile::kUploadFolderNameKey, "Scans"},
                                     {VXCloudFile::kUploadFolderPathKey, "/Scans"}};
    if (!VXCloudUserDefaults::saveCloudAccount(*account)) {
        error = "the account could not be stored";
        return nullptr;
    }
    return account;
}

void DropboxFixture::tearDown() {
    if (sandbox_) retireInBackground(std::shared_ptr<sandbox::Sandbox>(std::move(sandbox_)));
    VXCloudServiceConfig::reset(VXCloudService::dropbox);
    stores_.reset();
}

std::shared_ptr<VXCloudDropboxSession> DropboxFixture::makeDropboxSession(std::chrono::milliseconds poll) {
    return VXCloudDropboxSession::initWithCloudAccount(account_, poll);
}

std::string DropboxFixture::pathIn(const VXCloudFile& folder, const std::string& name) {
    const std::string base = folder.path.value_or("");
    return (base == "/" ? "" : base) + "/" + name;
}

std::shared_ptr<VXCloudFile> DropboxFixture::makeFolder(const std::string& name,
                                                        const std::shared_ptr<VXCloudFile>& parent) {
    const std::string path = parent ? pathIn(*parent, name) : "/" + name;
    const Json made = sandbox_->putFolder(kProvider, path);
    auto folder = std::make_shared<VXCloudFile>(name, true, false);
    folder->path = made.is_object() && made.contains("path_display") ? made["path_display"].get<std::string>() : path;
    if (made.is_object() && made.contains("id")) folder->id = made["id"].get<std::string>();
    return folder;
}

std::optional<std::string> DropboxFixture::remoteContent(const VXCloudFile& folder, const std::string& name) {
    return sandbox_->fileContent(kProvider, pathIn(folder, name));
}

bool DropboxFixture::changeRemote(const VXCloudFile& folder, const std::string& name, const std::string& bytes) {
    std::string error;
    const Json changed = sandbox_->changeFile(kProvider, pathIn(folder, name), bytes, {}, &error);
    return !changed.is_null();
}

bool DropboxFixture::storeSettings(const VXCloudFile& folder) {
    const Json settings = {{VXCloudFile::kUploadFolderIdKey, folder.id.value_or("")},
                           {VXCloudFile::kUploadFolderNameKey, folder.name},
                           {VXCloudFile::kUploadFolderPathKey, folder.path.value_or("")}};
    return !sandbox_->putFile(kProvider, std::string("/") + VXCloudDropboxSession::kSettingsFileName, settings.dump())
                .is_null();
}

void DropboxFixture::limitUploadRequests(std::int64_t bytes) {
    sandbox_->configure(kProvider, Json{{"max_upload_request_bytes", bytes}});
    VXCloudServiceConfig::setUploadLimits(VXCloudService::dropbox, {bytes, 0});
}

std::int64_t DropboxFixture::requests(const std::string& route) const {
    return sandbox_->stats(std::string(kProvider) + "/" + route).requests;
}

std::int64_t DropboxFixture::bytesReceived(const std::string& route) const {
    return sandbox_->stats(std::string(kProvider) + "/" + route).bytesReceived;
}

}  // namespace vxcloud::testing
