#include "OneNoteWire.h"

namespace vxcloud::onenote {

using nlohmann::json;

namespace {

json parseBody(std::string_view body) { return json::parse(body.begin(), body.end(), nullptr, false); }

std::optional<std::string> stringOf(const json& entry, const char* key) {
    const auto value = entry.find(key);
    if (value == entry.end() || !value->is_string()) return std::nullopt;
    return value->get<std::string>();
}

// The name of a notebook or section: "name" on the older base, "displayName" on Graph.
std::optional<std::string> nameOf(const json& entry) {
    for (const char* key : {"name", "displayName"}) {
        if (auto name = stringOf(entry, key)) return name;
    }
    return std::nullopt;
}

}  // namespace

std::shared_ptr<VXCloudFile> parseFolder(const json& entry, bool notebook) {
    if (!entry.is_object()) return nullptr;
    auto name = nameOf(entry);
    auto id = stringOf(entry, "id");
    if (!name || !id) return nullptr;
    auto folder = std::make_shared<VXCloudFile>(std::move(*name), true, false);
    folder->id = std::move(id);
    folder->isOneNoteNotebook = notebook;
    return folder;
}

VXCloudFileList parseFolderList(std::string_view body, bool notebooks) {
    VXCloudFileList folders;
    const json page = parseBody(body);
    const auto value = page.is_object() ? page.find("value") : page.end();
    if (value == page.end() || !value->is_array()) return folders;
    for (const auto& entry : *value) {
        if (auto record = parseFolder(entry, notebooks)) folders.push_back(std::move(record));
    }
    return folders;
}

std::shared_ptr<VXCloudFile> parseCreatedFolder(std::string_view body, bool notebook) {
    return parseFolder(parseBody(body), notebook);
}

std::optional<CreatedPage> parseCreatedPage(std::string_view body) {
    const json page = parseBody(body);
    if (!page.is_object()) return std::nullopt;
    auto title = stringOf(page, "title");
    auto id = stringOf(page, "id");
    if (!title || !id) return std::nullopt;
    return CreatedPage{std::move(*title), std::move(*id)};
}

}  // namespace vxcloud::onenote
