#include "sessions/GoogleDriveFixture.h"

#include <nlohmann/json.hpp>

#include "support/SandboxSupport.h"
#include "vxcloud/platform/Http.h"
#include "vxcloud/sessions/VXCloudServiceConfig.h"

namespace vxcloud::testing {

namespace {

constexpr const char* kDriveScope = "https://www.googleapis.com/auth/drive";

std::string enc(const std::string& text) { return HttpClient::urlEncode(text); }

Json parse(const httplib::Result& result) {
    if (!result) return Json();
    return Json::parse(result->body, nullptr, false);
}

}  // namespace

GoogleDriveFixture::GoogleDriveFixture()
    : SandboxProviderFixture(
          {VXCloudService::googleDrive, kProvider, "sandbox-client.apps.googleusercontent.com", kDriveScope}) {}

std::unique_ptr<httplib::Client> GoogleDriveFixture::client() { return wireClient(); }

httplib::Headers GoogleDriveFixture::auth() const { return {{"Authorization", "Bearer " + fixtureToken_}}; }

bool GoogleDriveFixture::prepare(std::string& error) {
    auto c = client();
    const std::string redirect = "http://127.0.0.1:9/fixture";
    auto authorized = c->Get("/google/o/oauth2/v2/auth?client_id=fixture&response_type=code&state=s&scope=" +
                             enc(kDriveScope) + "&redirect_uri=" + enc(redirect) +
                             "&sandbox_auto_approve=1&sandbox_account=" + enc(sandboxAccount().userId));
    const std::string code = authorized ? queryParam(authorized->get_header_value("Location"), "code") : "";
    if (code.empty()) {
        error = "the fixture's sign-in was not approved";
        return false;
    }
    const Json token = parse(c->Post("/google/token",
                                      "grant_type=authorization_code&client_id=fixture&code=" + enc(code) +
                                          "&redirect_uri=" + enc(redirect),
                                      "application/x-www-form-urlencoded"));
    if (!token.is_object() || !token.contains("access_token")) {
        error = "the fixture's code was not exchanged";
        return false;
    }
    fixtureToken_ = token["access_token"].get<std::string>();
    return true;
}

std::string GoogleDriveFixture::storageName(const VXCloudAccount& account) const {
    return VXCloudGoogleDriveSession::storageName(account);
}

std::string GoogleDriveFixture::uploadFolderId(const sandbox::SandboxAccount& account, std::string& error) {
    const Json scans = sandbox().putFolder(kProvider, "/Scans", account.userId, &error);
    return scans.is_object() && scans.contains("id") ? scans["id"].get<std::string>() : std::string();
}

std::shared_ptr<VXCloudGoogleDriveSession> GoogleDriveFixture::makeDriveSession() {
    return VXCloudGoogleDriveSession::initWithCloudAccount(account());
}

std::shared_ptr<VXCloudFile> GoogleDriveFixture::makeFolder(const std::string& name,
                                                            const std::shared_ptr<VXCloudFile>& parent) {
    const std::string parentId = parent && parent->id ? *parent->id : "root";
    const Json body = {{"name", name}, {"mimeType", drive::kFolderMimeType}, {"parents", {parentId}}};
    const Json made = parse(client()->Post("/google/drive/v3/files?fields=id", auth(), body.dump(), "application/json"));
    auto folder = std::make_shared<VXCloudFile>(name, true, false);
    if (made.is_object() && made.contains("id")) folder->id = made["id"].get<std::string>();
    return folder;
}

Json GoogleDriveFixture::liveFiles(const std::string& folderId, const std::string& name) {
    const std::string q = VXCloudGoogleDriveSession::documentQuery(folderId, name);
    const Json listed = parse(client()->Get("/google/drive/v3/files?fields=" + enc("files(id,name,md5Checksum)") +
                                                "&q=" + enc(q),
                                            auth()));
    return listed.is_object() && listed.contains("files") ? listed["files"] : Json::array();
}

Json GoogleDriveFixture::fileById(const std::string& id) {
    auto answer = client()->Get("/google/drive/v3/files/" + enc(id) + "?fields=*", auth());
    if (!answer || answer->status != 200) return nullptr;
    return parse(answer);
}

std::optional<std::string> GoogleDriveFixture::contentById(const std::string& id) {
    auto answer = client()->Get("/google/drive/v3/files/" + enc(id) + "?alt=media", auth());
    if (!answer || answer->status != 200) return std::nullopt;
    return answer->body;
}

std::string GoogleDriveFixture::createFile(const std::string& folderId, const std::string& name,
                                           const std::string& bytes) {
    const std::string boundary = "fixture-boundary-7f3a";
    const Json metadata = {{"name", name}, {"parents", {folderId}}};
    const std::string body = "--" + boundary + "\r\nContent-Type: application/json; charset=UTF-8\r\n\r\n" +
                             metadata.dump() + "\r\n--" + boundary + "\r\nContent-Type: application/pdf\r\n\r\n" +
                             bytes + "\r\n--" + boundary + "--";
    const Json made = parse(client()->Post("/google/upload/drive/v3/files?uploadType=multipart&fields=id", auth(), body,
                                           ("multipart/related; boundary=" + boundary).c_str()));
    return made.is_object() && made.contains("id") ? made["id"].get<std::string>() : std::string();
}

bool GoogleDriveFixture::trash(const std::string& id) {
    auto answer = client()->Patch("/google/drive/v3/files/" + enc(id), auth(), R"({"trashed": true})",
                                  "application/json");
    return answer && answer->status == 200;
}

bool GoogleDriveFixture::replaceContent(const std::string& id, const std::string& bytes) {
    auto answer = client()->Patch("/google/upload/drive/v3/files/" + enc(id) + "?uploadType=media", auth(), bytes,
                                  "application/pdf");
    return answer && answer->status == 200;
}

bool GoogleDriveFixture::setModifiedTime(const std::string& id, const std::string& time) {
    auto answer = client()->Patch("/google/drive/v3/files/" + enc(id), auth(), Json{{"modifiedTime", time}}.dump(),
                                  "application/json");
    return answer && answer->status == 200;
}

std::optional<std::string> GoogleDriveFixture::remoteContent(const VXCloudFile& folder, const std::string& name) {
    const Json files = liveFiles(folder.id.value_or("root"), name);
    if (files.empty()) return std::nullopt;
    if (files.size() > 1) {
        ADD_FAILURE() << files.size() << " live files are named \"" << name << "\"";
        return std::nullopt;
    }
    return contentById(files[0]["id"].get<std::string>());
}

bool GoogleDriveFixture::changeRemote(const VXCloudFile& folder, const std::string& name, const std::string& bytes) {
    const Json files = liveFiles(folder.id.value_or("root"), name);
    return files.size() == 1 && replaceContent(files[0]["id"].get<std::string>(), bytes);
}

bool GoogleDriveFixture::storeSettings(const VXCloudFile& folder) {
    const Json settings = {{VXCloudFile::kUploadFolderIdKey, folder.id.value_or("")},
                           {VXCloudFile::kUploadFolderNameKey, folder.name},
                           {VXCloudFile::kUploadFolderPathKey, "/" + folder.name}};
    const Json existing = liveFiles("root", VXCloudGoogleDriveSession::kSettingsFileName);
    if (!existing.empty()) return replaceContent(existing[0]["id"].get<std::string>(), settings.dump());
    return !createFile("root", VXCloudGoogleDriveSession::kSettingsFileName, settings.dump()).empty();
}

void GoogleDriveFixture::limitUploads(std::int64_t multipartLimit, std::int64_t chunkBytes) {
    VXCloudServiceConfig::setUploadLimits(VXCloudService::googleDrive, {multipartLimit, chunkBytes});
}

}  // namespace vxcloud::testing
