#include "sessions/EvernoteFixture.h"

#include <ctime>
#include <nlohmann/json.hpp>

namespace vxcloud::testing {

namespace {

std::string idOf(const Json& item) {
    return item.is_object() && item.contains("id") && item["id"].is_string() ? item["id"].get<std::string>() : "";
}

// Notebooks are one flat level: a folder's sandbox path is its name at the top.
std::string notebookPath(const VXCloudFile& folder) { return "/" + folder.name; }

}  // namespace

EvernoteFixture::EvernoteFixture() : SandboxProviderFixture({VXCloudService::evernote, kProvider, "sandbox-evernote-app", ""}) {}

std::string EvernoteFixture::storageName(const VXCloudAccount& account) const {
    return VXCloudEvernoteSession::storageName(account);
}

void EvernoteFixture::completeToken(VXCloudOAuthToken& token, const sandbox::SandboxAccount& account) {
    // The sandbox names each account's NoteStore, as the token answer would.
    const auto noteStore = account.details.find("note_store_url");
    if (noteStore != account.details.end()) token.extra["noteStoreUrl"] = noteStore->second;
    token.refreshToken.clear();
    token.expiresAt = static_cast<std::int64_t>(std::time(nullptr)) + 365 * 24 * 3600;
}

std::string EvernoteFixture::uploadFolderId(const sandbox::SandboxAccount& account, std::string& error) {
    return idOf(sandbox().putFolder(kProvider, "/Scans", account.userId, &error));
}

std::shared_ptr<VXCloudEvernoteSession> EvernoteFixture::makeEvernoteSession() {
    return VXCloudEvernoteSession::initWithCloudAccount(account());
}

std::shared_ptr<VXCloudFile> EvernoteFixture::makeFolder(const std::string& name, const std::shared_ptr<VXCloudFile>&) {
    auto folder = std::make_shared<VXCloudFile>(name, true, false);
    const std::string id = idOf(sandbox().putFolder(kProvider, "/" + name, sandboxAccount().userId));
    if (!id.empty()) folder->id = id;
    return folder;
}

Json EvernoteFixture::note(const std::string& notebook, const std::string& title) {
    return sandbox().metadata(kProvider, "/" + notebook + "/" + title, sandboxAccount().userId);
}

std::optional<std::string> EvernoteFixture::remoteContent(const VXCloudFile& folder, const std::string& name) {
    return sandbox().fileContent(kProvider, notebookPath(folder) + "/" + name, sandboxAccount().userId);
}

bool EvernoteFixture::changeRemote(const VXCloudFile& folder, const std::string& name, const std::string& bytes) {
    std::string error;
    return !sandbox()
                .changeFile(kProvider, notebookPath(folder) + "/" + name, bytes, sandboxAccount().userId, &error)
                .is_null();
}

bool EvernoteFixture::storeSettings(const VXCloudFile& folder) {
    const Json settings = {{VXCloudFile::kUploadFolderIdKey, folder.id.value_or("")},
                           {VXCloudFile::kUploadFolderNameKey, folder.name},
                           {VXCloudFile::kUploadFolderPathKey, "/" + folder.name}};
    // In the default notebook, where the session makes it.
    const Json state = sandbox().listState(kProvider, sandboxAccount().userId);
    std::string defaultNotebook;
    for (const Json& item : state.value("items", Json::array())) {
        if (item.value("defaultNotebook", false)) defaultNotebook = item.value("name", "");
    }
    if (defaultNotebook.empty()) return false;
    return !sandbox()
                .putFile(kProvider, "/" + defaultNotebook + "/" + VXCloudEvernoteSession::kSettingsFileName,
                         settings.dump(), sandboxAccount().userId)
                .is_null();
}

std::size_t EvernoteFixture::documentsNamed(const std::string& name) { return notesTitled(name); }

std::size_t EvernoteFixture::notesTitled(const std::string& title) {
    const Json state = sandbox().listState(kProvider, sandboxAccount().userId);
    std::size_t count = 0;
    for (const Json& item : state.value("items", Json::array())) {
        if (item.value("title", "") == title && item.value("active", true)) ++count;
    }
    return count;
}

}  // namespace vxcloud::testing
