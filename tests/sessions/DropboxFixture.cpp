#include "sessions/DropboxFixture.h"

#include <nlohmann/json.hpp>

#include "vxcloud/sessions/VXCloudServiceConfig.h"

namespace vxcloud::testing {

namespace {
constexpr const char* kProvider = "dropbox";
}  // namespace

std::shared_ptr<VXCloudFile> folderRecord(const std::string& name, const std::string& path) {
    auto folder = std::make_shared<VXCloudFile>(name, true, false);
    folder->path = path;
    folder->id = "id:" + name;
    return folder;
}

DropboxFixture::DropboxFixture(sandbox::Sandbox::Options options)
    : SandboxProviderFixture({VXCloudService::dropbox, kProvider, "sandbox-app-key", {}}, options) {}

std::shared_ptr<VXCloudDropboxSession> DropboxFixture::makeDropboxSession(std::chrono::milliseconds poll) {
    return VXCloudDropboxSession::initWithCloudAccount(account(), poll);
}

std::string DropboxFixture::pathIn(const VXCloudFile& folder, const std::string& name) {
    const std::string base = folder.path.value_or("");
    return (base == "/" ? "" : base) + "/" + name;
}

std::shared_ptr<VXCloudFile> DropboxFixture::makeFolder(const std::string& name,
                                                        const std::shared_ptr<VXCloudFile>& parent) {
    const std::string path = parent ? pathIn(*parent, name) : "/" + name;
    const Json made = sandbox().putFolder(kProvider, path);
    auto folder = std::make_shared<VXCloudFile>(name, true, false);
    folder->path = made.is_object() && made.contains("path_display") ? made["path_display"].get<std::string>() : path;
    if (made.is_object() && made.contains("id")) folder->id = made["id"].get<std::string>();
    return folder;
}

std::optional<std::string> DropboxFixture::remoteContent(const VXCloudFile& folder, const std::string& name) {
    return sandbox().fileContent(kProvider, pathIn(folder, name));
}

bool DropboxFixture::changeRemote(const VXCloudFile& folder, const std::string& name, const std::string& bytes) {
    std::string error;
    const Json changed = sandbox().changeFile(kProvider, pathIn(folder, name), bytes, {}, &error);
    return !changed.is_null();
}

bool DropboxFixture::storeSettings(const VXCloudFile& folder) {
    const Json settings = {{VXCloudFile::kUploadFolderIdKey, folder.id.value_or("")},
                           {VXCloudFile::kUploadFolderNameKey, folder.name},
                           {VXCloudFile::kUploadFolderPathKey, folder.path.value_or("")}};
    return !sandbox().putFile(kProvider, std::string("/") + VXCloudDropboxSession::kSettingsFileName, settings.dump())
                .is_null();
}

void DropboxFixture::limitUploadRequests(std::int64_t bytes) {
    sandbox().configure(kProvider, Json{{"max_upload_request_bytes", bytes}});
    VXCloudServiceConfig::setUploadLimits(VXCloudService::dropbox, {bytes, 0});
}

}  // namespace vxcloud::testing
