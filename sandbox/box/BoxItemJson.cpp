// Files and folders as Box's API shows them, and the order listings hand them out in.
#include <algorithm>

#include "box/BoxItems.h"
#include "framework/Hashes.h"
#include "framework/Text.h"

namespace vxcloud::sandbox::box {
namespace {

using nlohmann::json;

// Box answers in its own zone; a fixed offset is enough to make clients parse offsets.
constexpr std::int64_t kZoneOffset = -8 * 3600;

const std::string& sha1Of(const Node& file) {
    return file.cachedHash("sha1", [](std::string_view bytes) { return sha1Hex(bytes); });
}

json timeOrNull(const Node& node, std::int64_t seconds) { return isRoot(node) ? json(nullptr) : json(boxTime(seconds)); }

json pathCollection(Tree& tree, const Node& node) {
    std::vector<const Node*> chain;
    for (const Node* up = isRoot(node) ? nullptr : tree.find(node.parentId); up;
         up = isRoot(*up) ? nullptr : tree.find(up->parentId)) {
        chain.push_back(up);
    }
    json entries = json::array();
    for (auto it = chain.rbegin(); it != chain.rend(); ++it) entries.push_back(miniJson(**it));
    return {{"total_count", entries.size()}, {"entries", entries}};
}

std::uint64_t folderSize(Tree& tree, const Node& folder) {
    std::uint64_t size = 0;
    for (const Node* below : tree.descendants(folder)) size += below->isFolder ? 0 : below->size();
    return size;
}

std::string sortOf(const Request& request) {
    const std::string sort = asciiLower(request.queryParam("sort").value_or("name"));
    return sort == "id" || sort == "date" || sort == "size" ? sort : "name";
}

bool descending(const Request& request) { return asciiLower(request.queryParam("direction").value_or("")) == "desc"; }

// Ids are decimal: a shorter one is a smaller number.
bool idLess(const std::string& a, const std::string& b) { return a.size() != b.size() ? a.size() < b.size() : a < b; }

}  // namespace

std::string boxTime(std::int64_t seconds) {
    std::string text = formatUtc(seconds + kZoneOffset);
    if (!text.empty() && text.back() == 'Z') text.pop_back();
    return text + "-08:00";
}

std::string etagOf(const Node& node) { return std::to_string(node.changeSeq); }

bool isRoot(const Node& node) { return node.parentId.empty(); }

json miniJson(const Node& node) {
    const bool root = isRoot(node);
    json out = {{"type", node.isFolder ? "folder" : "file"},
                {"id", node.id},
                {"sequence_id", root ? json(nullptr) : json(etagOf(node))},
                {"etag", root ? json(nullptr) : json(etagOf(node))},
                {"name", root ? std::string("All Files") : node.name}};
    if (!node.isFolder) {
        out["sha1"] = sha1Of(node);
        out["file_version"] = {{"type", "file_version"}, {"id", node.rev}, {"sha1", sha1Of(node)}};
    }
    return out;
}

json fullJson(Tree& tree, const Node& node) {
    json out = miniJson(node);
    const Node* parent = isRoot(node) ? nullptr : tree.find(node.parentId);
    const auto created = node.attributes.find("content_created_at");
    out["description"] = "";
    out["size"] = node.isFolder ? folderSize(tree, node) : node.size();
    out["path_collection"] = pathCollection(tree, node);
    out["created_at"] = timeOrNull(node, node.created);
    out["modified_at"] = timeOrNull(node, node.serverModified);
    out["trashed_at"] = nullptr;
    out["purged_at"] = nullptr;
    out["content_created_at"] =
        timeOrNull(node, created != node.attributes.end() && created->is_number_integer() ? created->get<std::int64_t>()
                                                                                          : node.created);
    out["content_modified_at"] = timeOrNull(node, node.clientModified ? node.clientModified : node.serverModified);
    out["shared_link"] = nullptr;
    out["parent"] = parent ? miniJson(*parent) : json(nullptr);
    out["item_status"] = "active";
    return out;
}

json itemCollection(Tree& tree, const Node& folder) {
    constexpr std::size_t kFirst = 100;
    Request plain;
    const auto children = listingOrder(tree, folder, plain);
    json entries = json::array();
    for (std::size_t i = 0; i < children.size() && i < kFirst; ++i) entries.push_back(miniJson(*children[i]));
    return {{"total_count", children.size()},
            {"entries", entries},
            {"offset", 0},
            {"limit", kFirst},
            {"order", listingOrderJson(plain)}};
}

json projected(const json& full, const std::string& fields) {
    json out = {{"type", full["type"]}, {"id", full["id"]}, {"etag", full["etag"]}};
    std::size_t pos = 0;
    while (pos <= fields.size()) {
        std::size_t end = fields.find(',', pos);
        if (end == std::string::npos) end = fields.size();
        std::string field = fields.substr(pos, end - pos);
        field.erase(0, field.find_first_not_of(' '));
        field.erase(field.find_last_not_of(' ') + 1);
        if (full.contains(field)) out[field] = full[field];
        pos = end + 1;
    }
    return out;
}

std::vector<Node*> listingOrder(Tree& tree, const Node& folder, const Request& request) {
    auto children = tree.children(folder);
    const std::string sort = sortOf(request);
    const bool desc = descending(request);
    std::stable_sort(children.begin(), children.end(), [&](const Node* a, const Node* b) {
        if (a->isFolder != b->isFolder) return a->isFolder;  // folders first, whatever the direction
        const Node* x = desc ? b : a;
        const Node* y = desc ? a : b;
        if (sort == "date" && x->serverModified != y->serverModified) return x->serverModified < y->serverModified;
        if (sort == "size" && x->size() != y->size()) return x->size() < y->size();
        if (sort == "name") {
            const std::string fx = foldCase(x->name), fy = foldCase(y->name);
            if (fx != fy) return fx < fy;
        }
        return idLess(x->id, y->id);
    });
    return children;
}

json listingOrderJson(const Request& request) {
    return json::array({{{"by", "type"}, {"direction", "ASC"}},
                        {{"by", sortOf(request)}, {"direction", descending(request) ? "DESC" : "ASC"}}});
}

}  // namespace vxcloud::sandbox::box
