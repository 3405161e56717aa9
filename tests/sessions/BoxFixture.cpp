#include "sessions/BoxFixture.h"

#include <nlohmann/json.hpp>

namespace vxcloud::testing {

namespace {

std::string idOf(const Json& item) {
    return item.is_object() && item.contains("id") && item["id"].is_string() ? item["id"].get<std::string>() : "";
}

}  // namespace

BoxFixture::BoxFixture() : SandboxProviderFixture({VXCloudService::box, kProvider, "sandbox-box-client", ""}) {}

std::string BoxFixture::storageName(const VXCloudAccount& account) const {
    return VXCloudBoxSession::storageName(account);
}

std::string BoxFixture::uploadFolderId(const sandbox::SandboxAccount& account, std::string& error) {
    return idOf(sandbox().putFolder(kProvider, "/Scans", account.userId, &error));
}

std::shared_ptr<VXCloudBoxSession> BoxFixture::makeBoxSession() { return VXCloudBoxSession::initWithCloudAccount(account()); }

std::string BoxFixture::pathIn(const VXCloudFile& folder, const std::string& name) {
    const std::string base = folder.path.value_or("");
    return (base == "/" ? "" : base) + "/" + name;
}

std::shared_ptr<VXCloudFile> BoxFixture::makeFolder(const std::string& name, const std::shared_ptr<VXCloudFile>& parent) {
    const std::string path = parent ? pathIn(*parent, name) : "/" + name;
    auto folder = std::make_shared<VXCloudFile>(name, true, false);
    folder->path = path;
    const std::string id = idOf(sandbox().putFolder(kProvider, path, sandboxAccount().userId));
    if (!id.empty()) folder->id = id;
    return folder;
}

Json BoxFixture::item(const std::string& path) { return sandbox().metadata(kProvider, path, sandboxAccount().userId); }

std::optional<std::string> BoxFixture::remoteContent(const VXCloudFile& folder, const std::string& name) {
    return sandbox().fileContent(kProvider, pathIn(folder, name), sandboxAccount().userId);
}

bool BoxFixture::changeRemote(const VXCloudFile& folder, const std::string& name, const std::string& bytes) {
    std::string error;
    return !sandbox().changeFile(kProvider, pathIn(folder, name), bytes, sandboxAccount().userId, &error).is_null();
}

bool BoxFixture::storeSettings(const VXCloudFile& folder) {
    const Json settings = {{VXCloudFile::kUploadFolderIdKey, folder.id.value_or("")},
                           {VXCloudFile::kUploadFolderNameKey, folder.name},
                           {VXCloudFile::kUploadFolderPathKey, folder.path.value_or("")}};
    return !sandbox()
                .putFile(kProvider, std::string("/") + VXCloudBoxSession::kSettingsFileName, settings.dump(),
                         sandboxAccount().userId)
                .is_null();
}

}  // namespace vxcloud::testing
