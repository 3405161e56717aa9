// files.list (the q language, fields, paging), files.create for metadata-only items,
// files.get with alt=media, files.update (metadata, addParents/removeParents),
// files.delete and about.get; and the item rules the upload routes share.
#include <algorithm>
#include <set>

#include "framework/Text.h"
#include "google/DriveQuery.h"
#include "google/GoogleModule.h"

namespace vxcloud::sandbox::google {
namespace {

const char* kDefaultFileFields = "kind,id,name,mimeType";
const char* kDefaultListFields = "kind,incompleteSearch,nextPageToken,files(kind,id,name,mimeType)";

// Body fields a client may set, on create and on update.
const std::set<std::string>& writableFields() {
    static const std::set<std::string> fields = {"name",       "mimeType",      "description", "properties",
                                                 "appProperties", "starred",    "trashed",     "modifiedTime",
                                                 "originalFilename"};
    return fields;
}

class NodeItem : public QueryItem {
public:
    NodeItem(Tree& tree, const Node& node) : tree_(tree), node_(node) {}
    std::string name() const override { return node_.name; }
    std::string mimeType() const override { return GoogleModule::mimeTypeOf(node_); }
    bool trashed() const override { return GoogleModule::isTrashed(tree_, node_); }
    bool starred() const override { return node_.attributes.value("starred", false); }
    bool hasParent(const std::string& id) const override {
        return node_.parentId == (id == "root" ? tree_.root().id : id);
    }
    std::int64_t modifiedTime() const override {
        return node_.clientModified ? node_.clientModified : node_.serverModified;
    }
    std::int64_t createdTime() const override { return node_.created; }
    bool fullTextContains(const std::string& needle) const override {
        const std::string folded = foldCase(needle);
        if (foldCase(node_.name).find(folded) != std::string::npos) return true;
        const std::string type = mimeType();
        const bool text = type.rfind("text/", 0) == 0 || type == "application/json";
        return text && foldCase(node_.content.view()).find(folded) != std::string::npos;
    }
    std::optional<std::string> property(bool app, const std::string& key) const override {
        const auto it = node_.attributes.find(app ? "appProperties" : "properties");
        if (it == node_.attributes.end() || !it->is_object() || !it->contains(key) || !(*it)[key].is_string()) {
            return std::nullopt;
        }
        return (*it)[key].get<std::string>();
    }

private:
    Tree& tree_;
    const Node& node_;
};

std::vector<std::string> commaList(const std::string& text) {
    std::vector<std::string> out;
    std::size_t pos = 0;
    while (pos <= text.size()) {
        std::size_t end = text.find(',', pos);
        if (end == std::string::npos) end = text.size();
        std::string item = text.substr(pos, end - pos);
        item.erase(0, item.find_first_not_of(' '));
        item.erase(item.find_last_not_of(' ') + 1);
        if (!item.empty()) out.push_back(item);
        pos = end + 1;
    }
    return out;
}

// The body's fields against what a client may write: read-only ones are the service's 403.
void checkWritable(const json& metadata, bool allowParents) {
    for (const auto& [key, value] : metadata.items()) {
        if (writableFields().count(key) || (allowParents && key == "parents")) continue;
        if (key == "parents" || fileSchema().fields.count(key)) {
            fail(403, "fieldNotWritable", "The resource body includes fields which are not directly writable.");
        }
        fail(400, "badRequest", "Invalid JSON payload received. Unknown name \"" + key + "\": Cannot find field.");
    }
}

std::string stringField(const json& metadata, const char* key) {
    const auto it = metadata.find(key);
    if (it == metadata.end() || it->is_null()) return {};
    if (!it->is_string()) fail(400, "badRequest", std::string("Invalid value for \"") + key + "\": expected a string.");
    return it->get<std::string>();
}

void applyAttributes(Node& node, const json& metadata) {
    for (const char* key : {"description", "originalFilename"}) {
        if (metadata.contains(key)) node.attributes[key] = stringField(metadata, key);
    }
    for (const char* key : {"starred", "trashed"}) {
        if (!metadata.contains(key)) continue;
        if (!metadata[key].is_boolean()) fail(400, "badRequest", std::string("Invalid value for \"") + key + "\".");
        node.attributes[key] = metadata[key].get<bool>();
    }
    for (const char* key : {"properties", "appProperties"}) {
        if (!metadata.contains(key)) continue;
        const json& changes = metadata[key];
        if (!changes.is_object()) fail(400, "badRequest", std::string("Invalid value for \"") + key + "\".");
        json merged = node.attributes.value(key, json::object());
        for (const auto& [k, v] : changes.items()) {
            if (v.is_null()) {
                merged.erase(k);
            } else if (v.is_string()) {
                merged[k] = v;
            } else {
                fail(400, "badRequest", std::string("Invalid value for \"") + key + "\": values are strings.");
            }
        }
        node.attributes[key] = merged;
    }
    if (metadata.contains("modifiedTime")) {
        const std::int64_t time = parseRfc3339(stringField(metadata, "modifiedTime"));
        if (time < 0) fail(400, "invalid", "Invalid value for modifiedTime.", "modifiedTime");
        node.clientModified = time;
    }
}

int parsePageSize(const Request& request) {
    const auto text = request.queryParam("pageSize");
    if (!text) return 100;
    const bool digits = !text->empty() && text->size() < 8 &&
                        std::all_of(text->begin(), text->end(), [](char c) { return c >= '0' && c <= '9'; });
    const int value = digits ? std::stoi(*text) : 0;
    if (value < 1 || value > 1000) {
        fail(400, "invalid", "Invalid value '" + *text + "'. Values must be within the range: [1, 1000]", "pageSize");
    }
    return value;
}

// orderBy: "folder,name_natural", "modifiedTime desc", ...
std::function<bool(const Node*, const Node*)> ordering(const std::string& orderBy) {
    struct Key {
        std::string name;
        bool descending = false;
    };
    std::vector<Key> keys;
    for (const auto& item : commaList(orderBy)) {
        Key key;
        const auto space = item.find(' ');
        key.name = item.substr(0, space);
        if (space != std::string::npos) {
            const std::string direction = asciiLower(item.substr(item.find_first_not_of(' ', space)));
            if (direction != "desc" && direction != "asc") fail(400, "invalid", "Invalid Value", "orderBy");
            key.descending = direction == "desc";
        }
        static const std::set<std::string> known = {"folder",        "name",          "name_natural", "createdTime",
                                                    "modifiedTime", "recency",       "starred",      "quotaBytesUsed"};
        if (!known.count(key.name)) fail(400, "invalid", "Invalid Value", "orderBy");
        keys.push_back(key);
    }
    return [keys](const Node* a, const Node* b) {
        for (const auto& key : keys) {
            int c = 0;
            if (key.name == "folder") {
                c = (a->isFolder == b->isFolder) ? 0 : a->isFolder ? -1 : 1;
            } else if (key.name == "name" || key.name == "name_natural") {
                const std::string x = foldCase(a->name), y = foldCase(b->name);
                c = x < y ? -1 : x > y ? 1 : 0;
            } else if (key.name == "createdTime") {
                c = a->created < b->created ? -1 : a->created > b->created ? 1 : 0;
            } else if (key.name == "modifiedTime" || key.name == "recency") {
                c = a->serverModified < b->serverModified ? -1 : a->serverModified > b->serverModified ? 1 : 0;
            } else if (key.name == "starred") {
                const bool x = a->attributes.value("starred", false), y = b->attributes.value("starred", false);
                c = x == y ? 0 : x ? -1 : 1;
            } else {
                c = a->size() < b->size() ? -1 : a->size() > b->size() ? 1 : 0;
            }
            if (c != 0) return key.descending ? c > 0 : c < 0;
        }
        return false;
    };
}

}  // namespace

bool DriveCall::sees(Tree& tree, const Node& node) const {
    return seesEverything || &node == &tree.root() || node.attributes.value("appCreated", false);
}

json metadataObject(std::string_view text) {
    if (text.find_first_not_of(" \t\r\n") == std::string_view::npos) return json::object();
    json body = json::parse(text, nullptr, false);
    if (body.is_discarded() || !body.is_object()) {
        fail(400, "badRequest", "Invalid JSON payload received. The metadata must be a JSON object.");
    }
    return body;
}

FieldMask GoogleModule::fieldsOf(const Request& request, const FieldSchema& schema, const char* fallback) const {
    const auto text = request.queryParam("fields");
    std::string error;
    auto mask = FieldMask::parse(text ? *text : fallback, schema, error);
    if (!mask) fail(400, "invalidParameter", error.rfind("Invalid field selection", 0) == 0 ? error : "Invalid field selection: " + error, "fields");
    return *mask;
}

void GoogleModule::answerItem(Tree& tree, const Node& node, const Request& request, Response& response) const {
    const FieldMask mask = fieldsOf(request, fileSchema(), kDefaultFileFields);
    response.json(200, mask.apply(fileJson(tree, node, mask)));
}

Node& GoogleModule::findItem(Tree& tree, const std::string& id, const DriveCall& call) {
    Node* node = id == "root" ? &tree.root() : tree.find(id);
    if (!node || !call.sees(tree, *node)) fail(404, "notFound", "File not found: " + id + ".", "fileId");
    return *node;
}

Node& GoogleModule::createItem(Tree& tree, const json& metadata, const ByteBuffer* content,
                               const std::string& contentType, const DriveCall& call) {
    checkWritable(metadata, true);
    Node* parent = &tree.root();
    if (metadata.contains("parents") && !metadata["parents"].is_null()) {
        const json& parents = metadata["parents"];
        if (!parents.is_array() || !std::all_of(parents.begin(), parents.end(), [](const json& p) { return p.is_string(); })) {
            fail(400, "badRequest", "Invalid value for \"parents\": expected a list of ids.");
        }
        if (parents.size() > 1) fail(403, "cannotAddParent", "Increasing the number of parents is not allowed.");
        if (parents.size() == 1) parent = &findItem(tree, parents[0].get<std::string>(), call);
    }
    if (!parent->isFolder) fail(400, "badRequest", "The parent " + parent->id + " is not a folder.");
    std::string mimeType = stringField(metadata, "mimeType");
    if (mimeType.empty()) mimeType = contentType;
    std::string name = stringField(metadata, "name");
    if (name.empty()) name = "Untitled";
    const bool folder = mimeType == kFolderMimeType;
    if (folder && content && !content->empty()) fail(400, "badRequest", "A folder has no content.");
    const std::int64_t growth = content ? static_cast<std::int64_t>(content->size()) : 0;
    if (call.request.quotaFull || !tree.fits(growth)) {
        fail(403, "storageQuotaExceeded", "The user's Drive storage quota has been exceeded.");
    }
    Node& node = folder ? tree.createFolder(*parent, name)
                        : tree.createFile(*parent, name, content ? *content : ByteBuffer());
    if (!folder) node.attributes["mimeType"] = mimeType.empty() ? "application/octet-stream" : mimeType;
    node.attributes["appCreated"] = true;
    applyAttributes(node, metadata);
    return node;
}

void GoogleModule::updateItem(Tree& tree, Node& node, const json& metadata, const DriveCall& call) {
    checkWritable(metadata, false);
    const std::vector<std::string> add = commaList(call.request.queryParam("addParents").value_or(""));
    const std::vector<std::string> remove = commaList(call.request.queryParam("removeParents").value_or(""));
    if (&node == &tree.root() && (!metadata.empty() || !add.empty() || !remove.empty())) {
        fail(403, "insufficientFilePermissions", "The user does not have sufficient permissions for this file.");
    }
    // Everything is checked before anything changes.
    if (metadata.contains("name") && stringField(metadata, "name").empty()) {
        fail(400, "badRequest", "The name of an item cannot be empty.");
    }
    const std::string mimeType = stringField(metadata, "mimeType");
    if (!mimeType.empty() && (mimeType == kFolderMimeType) != node.isFolder) {
        fail(400, "badRequest", "An item cannot change between folder and file.");
    }
    std::vector<std::string> parents = {node.parentId};
    for (const auto& id : remove) {
        const std::string resolved = id == "root" ? tree.root().id : id;
        parents.erase(std::remove(parents.begin(), parents.end(), resolved), parents.end());
    }
    for (const auto& id : add) {
        Node& target = findItem(tree, id, call);
        if (!target.isFolder) fail(400, "badRequest", "The parent " + id + " is not a folder.");
        if (&target == &node || tree.isAncestor(node, target)) {
            fail(400, "badRequest", "The parent " + id + " would create a cycle.");
        }
        if (std::find(parents.begin(), parents.end(), target.id) == parents.end()) parents.push_back(target.id);
    }
    if (parents.size() > 1) fail(403, "cannotAddParent", "Increasing the number of parents is not allowed.");
    if (parents.empty()) fail(400, "badRequest", "An item must keep one parent; add one when removing the last.");

    Node probe = node;  // attribute errors surface before the real item changes
    applyAttributes(probe, metadata);
    node.attributes = probe.attributes;
    node.clientModified = probe.clientModified;
    if (!mimeType.empty() && !node.isFolder) node.attributes["mimeType"] = mimeType;
    const std::string name = metadata.contains("name") ? stringField(metadata, "name") : node.name;
    if (parents.front() != node.parentId || name != node.name) {
        tree.move(node, *tree.find(parents.front()), name);
    } else {
        tree.touch(node);
    }
}

void GoogleModule::checkNewContent(Tree& tree, const Node& node, const ByteBuffer& content,
                                   const DriveCall& call) const {
    if (node.isFolder || isNativeDocument(node)) {
        fail(400, "badRequest", "Only files with binary content can be given new content.");
    }
    const std::int64_t growth = static_cast<std::int64_t>(content.size()) - static_cast<std::int64_t>(node.size());
    if (call.request.quotaFull || !tree.fits(growth)) {
        fail(403, "storageQuotaExceeded", "The user's Drive storage quota has been exceeded.");
    }
}

void GoogleModule::replaceContent(Tree& tree, Node& node, const ByteBuffer& content, const std::string& contentType,
                                  const DriveCall& call) {
    checkNewContent(tree, node, content, call);
    tree.setContent(node, content);
    // A file that had no type of its own takes the uploaded content's.
    if (!node.attributes.contains("mimeType") && !contentType.empty()) node.attributes["mimeType"] = contentType;
}

void GoogleModule::registerFileRoutes(Router& router) {
    const std::string file = "/google/drive/v3/files/([^/]+)";

    driveRoute(router, "GET", Router::escape("/google/drive/v3/files"), "google/files/list", Access::read,
               [this](DriveCall& call) {
                   const Request& request = call.request;
                   std::string error;
                   auto query = DriveQuery::parse(request.queryParam("q").value_or(""), error);
                   if (!query) fail(400, "invalid", "Invalid Value", "q");
                   const int pageSize = parsePageSize(request);
                   // The hidden per-app folder is always empty here.
                   bool driveSpace = false;
                   for (const auto& space : commaList(request.queryParam("spaces").value_or("drive"))) {
                       if (space == "drive") {
                           driveSpace = true;
                       } else if (space != "appDataFolder") {
                           fail(400, "invalid", "Invalid Value", "spaces");
                       }
                   }
                   const auto order = ordering(request.queryParam("orderBy").value_or(""));
                   const FieldMask mask = fieldsOf(request, fileListSchema(), kDefaultListFields);

                   std::lock_guard lock(store().mutex());
                   Tree& tree = store().tree(call.account.id);
                   ListCursor cursor;
                   if (const auto token = request.queryParam("pageToken")) {
                       const auto it = cursors_.find(*token);
                       if (it == cursors_.end() || it->second.accountId != call.account.id) {
                           fail(400, "invalid", "Invalid Value", "pageToken");
                       }
                       cursor = it->second;
                   } else {
                       cursor.accountId = call.account.id;
                       cursor.seesEverything = call.seesEverything;
                       std::vector<Node*> found;
                       if (driveSpace) {
                           for (Node* node : tree.descendants(tree.root())) {
                               if (call.sees(tree, *node) && query->matches(NodeItem(tree, *node))) found.push_back(node);
                           }
                       }
                       std::stable_sort(found.begin(), found.end(), order);
                       for (const Node* node : found) cursor.ids.push_back(node->id);
                   }
                   cursor.pageSize = std::min(pageSize, settings_.listPageSizeCap);

                   const FieldMask fileMask = mask.inside("files");
                   json files = json::array();
                   while (cursor.position < cursor.ids.size() && static_cast<int>(files.size()) < cursor.pageSize) {
                       const Node* node = tree.find(cursor.ids[cursor.position++]);
                       if (node) files.push_back(fileMask.apply(fileJson(tree, *node, fileMask)));  // gone since: skipped
                   }
                   json answer = {{"kind", "drive#fileList"}, {"incompleteSearch", false}, {"files", files}};
                   if (cursor.position < cursor.ids.size()) {
                       const std::string token = "~!!~" + randomToken(60);
                       cursors_[token] = cursor;
                       answer["nextPageToken"] = token;
                   }
                   call.response.json(200, mask.apply(answer));
               });

    driveRoute(router, "POST", Router::escape("/google/drive/v3/files"), "google/files/create", Access::write,
               [this](DriveCall& call) {
                   const json metadata = metadataObject(call.request.body.view());
                   std::lock_guard lock(store().mutex());
                   Tree& tree = store().tree(call.account.id);
                   Node& node = createItem(tree, metadata, nullptr, {}, call);
                   answerItem(tree, node, call.request, call.response);
               });

    driveRoute(router, "GET", file, "google/files/get", Access::read, [this](DriveCall& call) {
        const std::string alt = call.request.queryParam("alt").value_or("json");
        if (alt != "json" && alt != "media") fail(400, "invalid", "Invalid Value", "alt");
        std::lock_guard lock(store().mutex());
        Tree& tree = store().tree(call.account.id);
        Node& node = findItem(tree, call.request.captures.at(0), call);
        if (alt == "json") return answerItem(tree, node, call.request, call.response);
        if (node.isFolder || isNativeDocument(node)) {
            fail(403, "fileNotDownloadable",
                 "Only files with binary content can be downloaded. Use Export with Docs Editors files.",
                 "alt");
        }
        call.response.serveContent(call.request, node.content, mimeTypeOf(node));
    });

    driveRoute(router, "PATCH", file, "google/files/update", Access::write, [this](DriveCall& call) {
        const json metadata = metadataObject(call.request.body.view());
        std::lock_guard lock(store().mutex());
        Tree& tree = store().tree(call.account.id);
        Node& node = findItem(tree, call.request.captures.at(0), call);
        updateItem(tree, node, metadata, call);
        answerItem(tree, node, call.request, call.response);
    });

    driveRoute(router, "DELETE", file, "google/files/delete", Access::write, [this](DriveCall& call) {
        std::lock_guard lock(store().mutex());
        Tree& tree = store().tree(call.account.id);
        Node& node = findItem(tree, call.request.captures.at(0), call);
        if (&node == &tree.root()) {
            fail(403, "insufficientFilePermissions", "The user does not have sufficient permissions for this file.");
        }
        tree.remove(node);
        call.response.empty(204);
    });

    driveRoute(router, "GET", Router::escape("/google/drive/v3/about"), "google/about/get", Access::read,
               [this](DriveCall& call) {
                   if (!call.request.queryParam("fields")) {
                       fail(400, "required", "The 'fields' parameter is required for this method.", "fields");
                   }
                   const FieldMask mask = fieldsOf(call.request, aboutSchema(), "");
                   const AccountInfo& a = call.account;
                   std::lock_guard lock(store().mutex());
                   Tree& tree = store().tree(a.id);
                   std::uint64_t trashed = 0;
                   for (const Node* node : tree.descendants(tree.root())) {
                       if (!node->isFolder && isTrashed(tree, *node)) trashed += node->size();
                   }
                   json quota = {{"usage", std::to_string(tree.usedBytes())},
                                 {"usageInDrive", std::to_string(tree.usedBytes())},
                                 {"usageInDriveTrash", std::to_string(trashed)}};
                   if (tree.quota()) quota["limit"] = std::to_string(*tree.quota());
                   const json about = {{"kind", "drive#about"},
                                       {"user",
                                        {{"kind", "drive#user"},
                                         {"displayName", a.displayName()},
                                         {"emailAddress", a.email},
                                         {"me", true},
                                         {"permissionId", permissionIdFor(a.id)},
                                         {"photoLink", "https://lh3.googleusercontent.com/a/sandbox-" + a.id}}},
                                       {"storageQuota", quota},
                                       {"maxUploadSize", "5497558138880"},
                                       {"appInstalled", true}};
                   call.response.json(200, mask.apply(about));
               });
}

}  // namespace vxcloud::sandbox::google
