#include "GraphWire.h"

#include "../JsonFields.h"

namespace vxcloud::onedrive {

using nlohmann::json;
using providers::objectMember;
using providers::readInt64;
using providers::readString;

std::optional<Item> parseItem(const json& value) {
    if (!value.is_object()) return std::nullopt;
    Item item;
    std::optional<std::string> id, name;
    bool ok = readString(value, "id", id) && readString(value, "name", name) && readInt64(value, "size", item.size) &&
              readString(value, "lastModifiedDateTime", item.lastModifiedDateTime);
    if (!ok || !id || id->empty()) return std::nullopt;
    item.id = std::move(*id);
    item.name = name.value_or("");
    const json* file = objectMember(value, "file", ok);
    const json* folder = objectMember(value, "folder", ok);
    const json* root = objectMember(value, "root", ok);
    const json* parent = objectMember(value, "parentReference", ok);
    if (!ok) return std::nullopt;
    item.isFile = file != nullptr;
    item.isFolder = folder != nullptr;
    item.isRoot = root != nullptr;
    if (file) {
        ok = readString(*file, "mimeType", item.mimeType);
        if (const json* hashes = objectMember(*file, "hashes", ok)) {
            ok = ok && readString(*hashes, "sha1Hash", item.sha1Hash) &&
                 readString(*hashes, "quickXorHash", item.quickXorHash);
        }
    }
    if (parent) {
        ok = ok && readString(*parent, "id", item.parentId) && readString(*parent, "path", item.parentPath) &&
             readString(*parent, "driveType", item.driveType);
    }
    if (!ok) return std::nullopt;
    return item;
}

std::optional<ChildrenPage> parsePage(const json& value) {
    if (!value.is_object()) return std::nullopt;
    const auto list = value.find("value");
    if (list == value.end() || !list->is_array()) return std::nullopt;
    ChildrenPage page;
    for (const json& entry : *list) {
        auto item = parseItem(entry);
        if (!item) return std::nullopt;
        page.items.push_back(std::move(*item));
    }
    if (!readString(value, "@odata.nextLink", page.nextLink)) return std::nullopt;
    if (page.nextLink && page.nextLink->empty()) page.nextLink.reset();
    return page;
}

std::optional<Drive> parseDrive(const json& value) {
    if (!value.is_object()) return std::nullopt;
    std::optional<std::string> id, type, ownerId, ownerName;
    bool ok = readString(value, "id", id) && readString(value, "driveType", type);
    if (const json* owner = objectMember(value, "owner", ok)) {
        if (const json* user = objectMember(*owner, "user", ok)) {
            ok = ok && readString(*user, "id", ownerId) && readString(*user, "displayName", ownerName);
        }
    }
    if (!ok || !id) return std::nullopt;
    return Drive{*id, type.value_or(""), ownerId.value_or(""), ownerName.value_or("")};
}

const char* conflictBehaviorName(ConflictBehavior behavior) {
    switch (behavior) {
        case ConflictBehavior::fail: return "fail";
        case ConflictBehavior::replace: return "replace";
        case ConflictBehavior::rename: return "rename";
    }
    return "fail";
}

}  // namespace vxcloud::onedrive
