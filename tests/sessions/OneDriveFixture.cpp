#include "sessions/OneDriveFixture.h"

#include <cctype>
#include <nlohmann/json.hpp>

#include "vxcloud/model/VXCloudFileHasher.h"

#include "vxcloud/sessions/VXCloudServiceConfig.h"

namespace vxcloud::testing {

namespace {

std::string idOf(const Json& item) {
    return item.is_object() && item.contains("id") && item["id"].is_string() ? item["id"].get<std::string>() : "";
}

}  // namespace

OneDriveFixture::OneDriveFixture(bool reportsSha1)
    : SandboxProviderFixture({VXCloudService::oneDrive, kProvider, "sandbox-onedrive-client",
                              "Files.ReadWrite offline_access"}),
      reportsSha1_(reportsSha1) {}

bool OneDriveFixture::prepare(std::string& error) {
    // Both drive kinds' SHA-1 setting follows the fixture's choice, whatever the kind of
    // the sandbox's accounts.
    return sandbox().configure(kProvider, Json{{"sha1_personal", reportsSha1_}, {"sha1_business", reportsSha1_}},
                               &error);
}

std::string OneDriveFixture::storageName(const VXCloudAccount& account) const {
    return VXCloudOneDriveSession::storageName(account);
}

std::string OneDriveFixture::uploadFolderId(const sandbox::SandboxAccount& account, std::string& error) {
    return idOf(sandbox().putFolder(kProvider, "/Scans", account.userId, &error));
}

std::shared_ptr<VXCloudOneDriveSession> OneDriveFixture::makeOneDriveSession() {
    return VXCloudOneDriveSession::initWithCloudAccount(account());
}

std::string OneDriveFixture::pathIn(const VXCloudFile& folder, const std::string& name) {
    const std::string base = folder.path.value_or("");
    return (base == "/" ? "" : base) + "/" + name;
}

std::shared_ptr<VXCloudFile> OneDriveFixture::makeFolder(const std::string& name,
                                                         const std::shared_ptr<VXCloudFile>& parent) {
    const std::string path = parent ? pathIn(*parent, name) : "/" + name;
    auto folder = std::make_shared<VXCloudFile>(name, true, false);
    folder->path = path;
    const std::string id = idOf(sandbox().putFolder(kProvider, path, sandboxAccount().userId));
    if (!id.empty()) folder->id = id;
    return folder;
}

Json OneDriveFixture::item(const std::string& path) {
    return sandbox().metadata(kProvider, path, sandboxAccount().userId);
}

std::optional<std::string> OneDriveFixture::remoteContent(const VXCloudFile& folder, const std::string& name) {
    return sandbox().fileContent(kProvider, pathIn(folder, name), sandboxAccount().userId);
}

bool OneDriveFixture::changeRemote(const VXCloudFile& folder, const std::string& name, const std::string& bytes) {
    std::string error;
    return !sandbox().changeFile(kProvider, pathIn(folder, name), bytes, sandboxAccount().userId, &error).is_null();
}

bool OneDriveFixture::storeSettings(const VXCloudFile& folder) {
    const Json settings = {{VXCloudFile::kUploadFolderIdKey, folder.id.value_or("")},
                           {VXCloudFile::kUploadFolderNameKey, folder.name},
                           {VXCloudFile::kUploadFolderPathKey, folder.path.value_or("")}};
    return !sandbox()
                .putFile(kProvider, std::string("/") + VXCloudOneDriveSession::kSettingsFileName, settings.dump(),
                         sandboxAccount().userId)
                .is_null();
}

std::optional<std::string> OneDriveFixture::reportedVersion(const std::string& bytes) {
    const auto data = ByteBuffer::copyOf(bytes);
    if (!reportsSha1_) return VXCloudFileHasher::quickXorHash(data);
    std::string sha1 = VXCloudFileHasher::sha1Hash(data);
    for (char& c : sha1) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return sha1;
}

void OneDriveFixture::limitUploads(std::int64_t simpleLimit, std::int64_t fragmentBytes) {
    sandbox().configure(kProvider, Json{{"simple_upload_max_bytes", simpleLimit}});
    VXCloudServiceConfig::setUploadLimits(VXCloudService::oneDrive, {simpleLimit, fragmentBytes});
}

}  // namespace vxcloud::testing
