#include "sessions/OneNoteFixture.h"

#include <nlohmann/json.hpp>

#include "vxcloud/sessions/VXCloudServiceConfig.h"

namespace vxcloud::testing {

namespace {

std::string idOf(const Json& item) {
    return item.is_object() && item.contains("id") && item["id"].is_string() ? item["id"].get<std::string>() : "";
}

}  // namespace

OneNoteFixture::OneNoteFixture(bool legacyBase)
    : SandboxProviderFixture({VXCloudService::oneNote, kProvider, "sandbox-onenote-client",
                              "Notes.Create Notes.ReadWrite User.Read offline_access"}),
      legacyBase_(legacyBase) {}

bool OneNoteFixture::prepare(std::string& error) {
    if (legacyBase_) {
        VXCloudServiceEndpoints endpoints = VXCloudServiceConfig::endpoints(VXCloudService::oneNote);
        const auto legacy = endpoints.extra.find("legacy");
        if (legacy == endpoints.extra.end()) {
            error = "the sandbox publishes no legacy OneNote base";
            return false;
        }
        endpoints.apiBase = legacy->second;
        VXCloudServiceConfig::setEndpoints(VXCloudService::oneNote, endpoints);
    }
    return true;
}

std::string OneNoteFixture::storageName(const VXCloudAccount& account) const {
    return VXCloudOneNoteSession::storageName(account);
}

std::string OneNoteFixture::uploadFolderId(const sandbox::SandboxAccount& account, std::string& error) {
    return idOf(sandbox().putFolder(kProvider, std::string("/") + kNotebook + "/Scans", account.userId, &error));
}

std::shared_ptr<VXCloudFile> OneNoteFixture::makeFolder(const std::string& name,
                                                        const std::shared_ptr<VXCloudFile>& parent) {
    const std::string notebook = parent ? parent->name : kNotebook;
    auto folder = std::make_shared<VXCloudFile>(name, true, false);
    folder->path = "/" + notebook + "/" + name;
    const std::string id = idOf(sandbox().putFolder(kProvider, *folder->path, sandboxAccount().userId));
    if (!id.empty()) folder->id = id;
    folder->isOneNoteNotebook = false;
    return folder;
}

std::shared_ptr<VXCloudFile> OneNoteFixture::makeParentFolder(const std::string& name) {
    auto notebook = std::make_shared<VXCloudFile>(name, true, false);
    notebook->path = "/" + name;
    const std::string id = idOf(sandbox().putFolder(kProvider, *notebook->path, sandboxAccount().userId));
    if (!id.empty()) notebook->id = id;
    notebook->isOneNoteNotebook = true;
    return notebook;
}

std::vector<Json> OneNoteFixture::pages(const std::string& title) {
    const Json state = sandbox().listState(kProvider, sandboxAccount().userId);
    const Json& items = state.is_object() && state.contains("items") ? state["items"] : state;
    std::vector<Json> out;
    if (!items.is_array()) return out;
    for (const Json& item : items) {
        if (item.value("kind", "") != "page") continue;
        const Json& resource = item.contains("json") ? item["json"] : item;
        if (resource.value("title", "") == title) out.push_back(item);
    }
    return out;
}

Json OneNoteFixture::page(const std::string& title) {
    auto found = pages(title);
    return found.empty() ? Json() : found.front();
}

std::optional<std::string> OneNoteFixture::pagePart(const Json& page, const std::string& part) {
    if (!page.is_object() || !page.contains("path")) return std::nullopt;
    return sandbox().fileContent(kProvider, page["path"].get<std::string>() + "/" + part, sandboxAccount().userId);
}

std::optional<std::string> OneNoteFixture::remoteContent(const VXCloudFile&, const std::string& name) {
    return pagePart(page(name), name);
}

std::size_t OneNoteFixture::documentsNamed(const std::string& name) {
    return pages(name).size();
}

}  // namespace vxcloud::testing
