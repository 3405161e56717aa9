// Drive items by id or path: get, children (paged), create folder, rename and move (PATCH),
// delete, and downloads (a 302 to a pre-authenticated URL, or the bytes at once).
#include <algorithm>

#include "framework/Text.h"
#include "onedrive/OneDriveModule.h"

namespace vxcloud::sandbox::onedrive {
namespace {

const std::string kDrive = "/onedrive/v1\\.0/me/drive/";
// An item, then optionally ":/path" and, before a sub-resource, the closing ":".
const std::string kItem = kDrive + "(root|items/[^/:]+)(?::([^:]*):?)?";
std::string itemThen(const std::string& what) { return kDrive + "(root|items/[^/:]+)(?::([^:]*):)?/" + what; }

void checkName(const std::string& name) {
    if (name.empty() || name == "." || name == ".." ||
        name.find_first_of("/\\*<>?:|\"") != std::string::npos || name.back() == '.' || name.back() == ' ') {
        fail(400, "invalidRequest", "The name \"" + name + "\" is not allowed.", "invalidPath");
    }
}

// "report.pdf" -> "report 1.pdf", "report 2.pdf", ...
std::string numbered(const std::string& name, int n) {
    const auto dot = name.rfind('.');
    if (dot == std::string::npos || dot == 0) return name + " " + std::to_string(n);
    return name.substr(0, dot) + " " + std::to_string(n) + name.substr(dot);
}

json bodyObject(const Request& request) {
    const json body = json::parse(request.body.view(), nullptr, false);
    if (!body.is_object()) fail(400, "invalidRequest", "The request body is not a JSON object.");
    return body;
}

// `$select=id,name` keeps those properties only.
json selected(json item, const Request& request) {
    const auto select = request.queryParam("$select");
    if (!select || select->empty()) return item;
    json out = json::object();
    std::size_t pos = 0;
    while (pos <= select->size()) {
        std::size_t end = select->find(',', pos);
        if (end == std::string::npos) end = select->size();
        const std::string key = select->substr(pos, end - pos);
        if (item.contains(key)) out[key] = item[key];
        pos = end + 1;
    }
    return out;
}

std::string unquoted(std::string tag) {
    if (tag.rfind("W/", 0) == 0) tag = tag.substr(2);
    if (tag.size() >= 2 && tag.front() == '"' && tag.back() == '"') tag = tag.substr(1, tag.size() - 2);
    return tag;
}

bool tagMatches(const std::string& header, const Node& node) {
    const std::string tag = unquoted(header);
    return header == "*" || tag == unquoted(eTagOf(node)) || tag == unquoted(cTagOf(node));
}

}  // namespace

Node& OneDriveModule::resolve(Tree& tree, const ItemAddress& address) {
    Node* base = address.base == "root" ? &tree.root() : tree.find(address.base);
    if (!base) fail(404, "itemNotFound", "Item not found");
    if (address.path.empty() || address.path == "/") return *base;
    Node* node = base;
    for (const auto& name : splitPath(address.path)) {
        node = node->isFolder ? tree.child(*node, name) : nullptr;
        if (!node) fail(404, "itemNotFound", "Item not found");
    }
    return *node;
}

std::pair<Node*, std::string> OneDriveModule::placement(Tree& tree, const ItemAddress& address) {
    const auto parts = splitPath(address.path);
    if (parts.empty()) fail(400, "invalidRequest", "A name is needed after the item: \":/name:\".");
    ItemAddress folder = address;
    folder.path.clear();
    for (std::size_t i = 0; i + 1 < parts.size(); ++i) folder.path += "/" + parts[i];
    Node& parent = resolve(tree, folder);
    if (!parent.isFolder) fail(400, "invalidRequest", "The parent is not a folder.");
    return {&parent, parts.back()};
}

std::string OneDriveModule::settleName(Tree& tree, Node& folder, const std::string& wanted, Conflict conflict,
                                       const Node* moving, Node** existing) {
    checkName(wanted);
    *existing = nullptr;
    Node* clash = tree.child(folder, wanted);
    if (!clash || clash == moving) return wanted;
    switch (conflict) {
        case Conflict::fail: fail(409, "nameAlreadyExists", "The specified item name already exists.");
        case Conflict::replace: *existing = clash; return wanted;
        case Conflict::rename: break;
    }
    for (int n = 1;; ++n) {
        const std::string candidate = numbered(wanted, n);
        if (!tree.child(folder, candidate)) return candidate;
    }
}

Node& OneDriveModule::storeFile(Tree& tree, Node& folder, const std::string& name, Node* existing,
                                const ByteBuffer& content, bool quotaFull, int& status) {
    if (existing && existing->isFolder) fail(409, "nameAlreadyExists", "A folder has that name.");
    const std::int64_t growth = static_cast<std::int64_t>(content.size()) -
                                static_cast<std::int64_t>(existing ? existing->size() : 0);
    if (quotaFull || !tree.fits(growth)) fail(507, "quotaLimitReached", "Insufficient Space Available");
    // SharePoint rewrites some files after upload: what it keeps differs from what was sent.
    ByteBuffer kept = content;
    if (settings_.driveType == "business" && settings_.businessAltersUploads) {
        kept = ByteBuffer::adopt(std::string(content.view()) + "\n% rewritten by the service\n");
    }
    if (existing) {
        tree.setContent(*existing, kept);
        status = 200;
        return *existing;
    }
    status = 201;
    return tree.createFile(folder, name, kept);
}

void OneDriveModule::answerItem(Tree& tree, const Node& node, GraphCall& call, int status) {
    call.response.json(status, selected(itemJson(tree, node, settings_, call.account.id), call.request));
}

void OneDriveModule::checkIfMatch(Tree&, const Node& node, const Request& request) const {
    const auto ifMatch = request.header("If-Match");
    if (ifMatch && !tagMatches(*ifMatch, node)) {
        fail(412, "resourceModified", "ETag does not match current item's value", "entityTagDoesNotMatch");
    }
}

std::string OneDriveModule::downloadUrl(const std::string& accountId, const std::string& itemId) {
    const std::string grant = downloads_.add(DownloadGrant{accountId, itemId}, 3600, "", 64);
    return context().baseUrl() + "/onedrive/download/" + grant;
}

void OneDriveModule::registerItemRoutes(Router& router) {
    graphRoute(router, "GET", kItem, "onedrive/items/get", Access::read, [this](GraphCall& call) {
        std::lock_guard lock(store().mutex());
        Tree& tree = store().tree(call.account.id);
        const Node& node = resolve(tree, addressOf(call.request));
        json item = itemJson(tree, node, settings_, call.account.id);
        if (!node.isFolder) item["@microsoft.graph.downloadUrl"] = downloadUrl(call.account.id, node.id);
        call.response.json(200, selected(item, call.request));
    });

    graphRoute(router, "GET", itemThen("children"), "onedrive/items/children", Access::read, [this](GraphCall& call) {
        const Request& request = call.request;
        std::lock_guard lock(store().mutex());
        Tree& tree = store().tree(call.account.id);
        const Node& folder = resolve(tree, addressOf(request));
        if (!folder.isFolder) fail(400, "invalidRequest", "The item is not a folder.");
        std::size_t pageSize = static_cast<std::size_t>(settings_.childrenPageSize);
        if (const auto top = request.queryParam("$top")) {
            const bool digits = !top->empty() && top->size() < 7 &&
                                std::all_of(top->begin(), top->end(), [](char c) { return c >= '0' && c <= '9'; });
            if (!digits || std::stoi(*top) < 1) fail(400, "invalidRequest", "Invalid $top value.", "invalidQueryOption");
            pageSize = std::min(pageSize, static_cast<std::size_t>(std::stoi(*top)));
        }
        std::size_t position = 0;
        if (const auto token = request.queryParam("$skiptoken")) {
            const std::string decoded = base64Decode(*token);
            const bool ok = decoded.rfind("skip=", 0) == 0 && decoded.size() > 5 && decoded.size() < 15 &&
                            decoded.find_first_not_of("0123456789", 5) == std::string::npos;
            if (!ok) fail(400, "invalidRequest", "Invalid $skiptoken.", "invalidQueryOption");
            position = std::stoul(decoded.substr(5));
        }
        const auto children = tree.children(folder);
        json value = json::array();
        for (std::size_t i = position; i < children.size() && i < position + pageSize; ++i) {
            value.push_back(selected(itemJson(tree, *children[i], settings_, call.account.id), request));
        }
        json page = {{"@odata.context", "https://graph.microsoft.com/v1.0/$metadata#users('" + call.account.id +
                                            "')/drive/items('" + folder.id + "')/children"},
                     {"value", value}};
        if (position + pageSize < children.size()) {
            // Absolute and opaque; by id, whatever the request's address was. The option names
            // keep their "$", as the service writes them.
            std::string link = context().baseUrl() + "/onedrive/v1.0/me/drive/items/" + folder.id + "/children?";
            if (const auto top = request.queryParam("$top")) link += "$top=" + urlEncode(*top) + "&";
            if (const auto select = request.queryParam("$select")) link += "$select=" + urlEncode(*select) + "&";
            page["@odata.nextLink"] = link + "$skiptoken=" + base64UrlEncode("skip=" + std::to_string(position + pageSize));
        }
        call.response.json(200, page);
    });

    graphRoute(router, "POST", itemThen("children"), "onedrive/items/create", Access::write, [this](GraphCall& call) {
        const json body = bodyObject(call.request);
        std::lock_guard lock(store().mutex());
        Tree& tree = store().tree(call.account.id);
        Node& parent = resolve(tree, addressOf(call.request));
        if (!parent.isFolder) fail(400, "invalidRequest", "The parent is not a folder.");
        if (!body.contains("name") || !body["name"].is_string()) fail(400, "invalidRequest", "A name is required.");
        if (!body.contains("folder") || !body["folder"].is_object()) {
            fail(400, "invalidRequest", "A new item here needs a folder facet.");
        }
        // The annotation may come in the body (the folder page) or the URL (the general rule).
        const auto query = call.request.queryParam(kConflictAnnotation);
        const Conflict conflict =
            conflictOf(body.contains(kConflictAnnotation) ? body[kConflictAnnotation] : json(query.value_or("fail")),
                       Conflict::fail);
        Node* existing = nullptr;
        const std::string name = settleName(tree, parent, body["name"].get<std::string>(), conflict, nullptr, &existing);
        if (existing) tree.remove(*existing);
        answerItem(tree, tree.createFolder(parent, name), call, 201);
    });

    graphRoute(router, "PATCH", kItem, "onedrive/items/update", Access::write, [this](GraphCall& call) {
        const json body = bodyObject(call.request);
        std::lock_guard lock(store().mutex());
        Tree& tree = store().tree(call.account.id);
        Node& node = resolve(tree, addressOf(call.request));
        if (node.parentId.empty()) fail(400, "invalidRequest", "The root cannot be renamed or moved.");
        checkIfMatch(tree, node, call.request);
        Node* target = tree.find(node.parentId);
        if (body.contains("parentReference")) {
            const json& ref = body["parentReference"];
            if (!ref.is_object()) fail(400, "invalidRequest", "parentReference must be an object.");
            if (ref.contains("id") && ref["id"].is_string()) {
                target = &resolve(tree, ItemAddress{ref["id"].get<std::string>(), {}});
            } else if (ref.contains("path") && ref["path"].is_string()) {
                // "/drive/root:/Docs": the part after the first ":" is below the root.
                const std::string path = ref["path"].get<std::string>();
                const auto colon = path.find(':');
                if (colon == std::string::npos) fail(400, "invalidRequest", "Invalid parentReference path.");
                target = &resolve(tree, ItemAddress{"root", path.substr(colon + 1)});
            }
            if (!target->isFolder) fail(400, "invalidRequest", "The new parent is not a folder.");
            if (target == &node || tree.isAncestor(node, *target)) {
                fail(400, "invalidRequest", "An item cannot be moved into itself.");
            }
        }
        std::string name = node.name;
        if (body.contains("name")) {
            if (!body["name"].is_string()) fail(400, "invalidRequest", "name must be a string.");
            name = body["name"].get<std::string>();
        }
        const Conflict conflict = conflictOf(json(call.request.queryParam(kConflictAnnotation).value_or("fail")),
                                             Conflict::fail);
        Node* existing = nullptr;
        name = settleName(tree, *target, name, conflict, &node, &existing);
        if (existing && tree.isAncestor(*existing, node)) {
            fail(400, "invalidRequest", "The item in the way holds the item being moved.");
        }
        if (existing) tree.remove(*existing);
        if (target->id != node.parentId || name != node.name) tree.move(node, *target, name);
        answerItem(tree, node, call);
    });

    graphRoute(router, "DELETE", kItem, "onedrive/items/delete", Access::write, [this](GraphCall& call) {
        std::lock_guard lock(store().mutex());
        Tree& tree = store().tree(call.account.id);
        Node& node = resolve(tree, addressOf(call.request));
        if (node.parentId.empty()) fail(403, "notAllowed", "The root cannot be deleted.");
        checkIfMatch(tree, node, call.request);
        tree.remove(node);
        call.response.empty(204);
    });

    graphRoute(router, "GET", itemThen("content"), "onedrive/items/content", Access::read, [this](GraphCall& call) {
        std::lock_guard lock(store().mutex());
        Tree& tree = store().tree(call.account.id);
        const Node& node = resolve(tree, addressOf(call.request));
        if (node.isFolder) fail(400, "invalidRequest", "Only files have content.");
        if (const auto tag = call.request.header("If-None-Match"); tag && tagMatches(*tag, node)) {
            return call.response.empty(304);
        }
        if (settings_.downloadRedirect) return call.response.redirect(downloadUrl(call.account.id, node.id));
        call.response.serveContent(call.request, node.content, mimeTypeForName(node.name));
    });

    preauthenticatedRoute(router, "GET", "/onedrive/download/([A-Za-z0-9_-]+)", "onedrive/download",
                          [this](Request& request, Response& response) {
                              std::lock_guard lock(store().mutex());
                              const DownloadGrant* grant = downloads_.find(request.captures.at(0));
                              const Node* node = grant ? store().tree(grant->accountId).find(grant->itemId) : nullptr;
                              if (!node || node->isFolder) fail(404, "itemNotFound", "Item not found");
                              response.serveContent(request, node->content, mimeTypeForName(node->name));
                          });
}

}  // namespace vxcloud::sandbox::onedrive
