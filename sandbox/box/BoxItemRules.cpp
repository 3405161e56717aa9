// What every write at Box is checked against: names, clashes, If-Match and the quota.
#include <algorithm>

#include "box/BoxErrors.h"
#include "box/BoxItems.h"
#include "framework/Text.h"

namespace vxcloud::sandbox::box {
namespace {

constexpr std::size_t kMaxNameCharacters = 255;

std::size_t characters(const std::string& utf8) {
    std::size_t count = 0;
    for (const unsigned char c : utf8) count += (c & 0xC0) != 0x80;
    return count;
}

std::string unquoted(std::string tag) {
    if (tag.rfind("W/", 0) == 0) tag = tag.substr(2);
    if (tag.size() >= 2 && tag.front() == '"' && tag.back() == '"') tag = tag.substr(1, tag.size() - 2);
    return tag;
}

}  // namespace

void checkName(const std::string& name) {
    const bool controls =
        std::any_of(name.begin(), name.end(), [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; });
    if (name.empty() || name == "." || name == ".." || name.find_first_of("/\\") != std::string::npos || controls ||
        name.front() == ' ' || name.back() == ' ') {
        fail(400, "item_name_invalid", "Item name invalid");
    }
    if (characters(name) > kMaxNameCharacters) fail(400, "item_name_too_long", "Item name too long");
}

Node& folderById(Tree& tree, const std::string& id, const std::string& parameter) {
    Node* node = tree.find(id);
    if (!node || !node->isFolder) failNotFound(parameter, id, true);
    return *node;
}

Node& fileById(Tree& tree, const std::string& id, const std::string& parameter) {
    Node* node = tree.find(id);
    if (!node || node->isFolder) failNotFound(parameter, id, false);
    return *node;
}

Node* nameClash(Tree& tree, const Node& folder, const std::string& name, const Node* self) {
    // Files and folders share one set of names.
    for (Node* child : tree.children(folder)) {
        if (child != self && equalsFolded(child->name, name)) return child;
    }
    return nullptr;
}

void failNameInUse(const Node& existing, bool asArray) {
    const nlohmann::json conflict = miniJson(existing);
    fail(409, "item_name_in_use", "Item with the same name already exists",
         {{"conflicts", asArray ? nlohmann::json::array({conflict}) : conflict}});
}

void checkIfMatch(const Node& node, const Request& request) {
    const auto tag = request.header("If-Match");
    if (tag && *tag != "*" && unquoted(*tag) != etagOf(node)) {
        fail(412, "precondition_failed", "The resource has been modified. Please retrieve the resource again and retry");
    }
}

bool notModified(const Node& node, const Request& request) {
    const auto tag = request.header("If-None-Match");
    return tag && unquoted(*tag) == etagOf(node);
}

void checkRoom(const Tree& tree, std::int64_t growth, bool quotaFull) {
    if (quotaFull || !tree.fits(growth)) fail(403, "storage_limit_exceeded", "Account storage limit reached");
}

}  // namespace vxcloud::sandbox::box
