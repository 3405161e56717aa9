// Folders: get (with the first entries), list items with offset or marker paging, create,
// rename and move, delete (recursively on request).
#include "box/BoxItems.h"
#include "box/BoxModule.h"

namespace vxcloud::sandbox::box {
namespace {

const std::string kFolder = std::string(kApiPattern) + "/folders/([^/]+)";

// A name clash on the folder endpoints lists the items in the way.
constexpr bool kFolderConflictsAsArray = true;

json folderAnswer(Tree& tree, const Node& folder) {
    json out = fullJson(tree, folder);
    out["item_collection"] = itemCollection(tree, folder);
    return out;
}

}  // namespace

void BoxModule::registerFolderRoutes(Router& router) {
    apiRoute(router, "GET", kFolder, "box/folders/get", [this](BoxCall& call) {
        std::lock_guard lock(store().mutex());
        Tree& tree = store().tree(call.account.id);
        const Node& folder = folderById(tree, call.request.captures.at(0), "folder");
        if (notModified(folder, call.request)) return call.response.empty(304);
        const auto fields = call.request.queryParam("fields");
        call.response.json(200, fields ? projected(folderAnswer(tree, folder), *fields) : folderAnswer(tree, folder));
    });

    apiRoute(router, "GET", kFolder + "/items", "box/folders/items", [this](BoxCall& call) {
        const Request& request = call.request;
        std::lock_guard lock(store().mutex());
        Tree& tree = store().tree(call.account.id);
        const Node& folder = folderById(tree, request.captures.at(0), "folder");
        const auto limit = static_cast<std::size_t>(limitOf(request, settings_));
        const bool markers = request.queryParam("usemarker") == "true";
        const std::string marker = request.queryParam("marker").value_or("");
        const std::size_t start = markers ? (marker.empty() ? 0 : markerPosition(marker, folder.id))
                                          : static_cast<std::size_t>(offsetOf(request));
        const auto children = listingOrder(tree, folder, request);
        const auto fields = request.queryParam("fields");
        json entries = json::array();
        for (std::size_t i = start; i < children.size() && i < start + limit; ++i) {
            entries.push_back(fields ? projected(fullJson(tree, *children[i]), *fields) : miniJson(*children[i]));
        }
        if (markers) {
            const bool more = start + limit < children.size();
            return call.response.json(200, {{"entries", entries},
                                            {"limit", limit},
                                            {"next_marker", more ? json(makeMarker(folder.id, start + limit)) : json()}});
        }
        call.response.json(200, {{"total_count", children.size()},
                                 {"entries", entries},
                                 {"offset", start},
                                 {"limit", limit},
                                 {"order", listingOrderJson(request)}});
    });

    apiRoute(router, "POST", std::string(kApiPattern) + "/folders", "box/folders/create", [this](BoxCall& call) {
        const Attributes wanted = readAttributes(bodyObject(call.request));
        const auto& name = wanted.name;
        if (!name) failParameter("name", true);
        const auto& parentId = wanted.parentId;
        if (!parentId) failParameter("parent", true);
        std::lock_guard lock(store().mutex());
        Tree& tree = store().tree(call.account.id);
        Node& parent = folderById(tree, *parentId, "parent");
        checkName(*name);
        if (const Node* clash = nameClash(tree, parent, *name)) failNameInUse(*clash, kFolderConflictsAsArray);
        call.response.json(201, folderAnswer(tree, tree.createFolder(parent, *name)));
    });

    apiRoute(router, "PUT", kFolder, "box/folders/update", [this](BoxCall& call) {
        const Attributes wanted = readAttributes(bodyObject(call.request));
        std::lock_guard lock(store().mutex());
        Tree& tree = store().tree(call.account.id);
        Node& folder = folderById(tree, call.request.captures.at(0), "folder");
        if (isRoot(folder)) fail(403, "access_denied_insufficient_permissions", "The root folder cannot be changed");
        checkIfMatch(folder, call.request);
        Node* target = tree.find(folder.parentId);
        if (wanted.parentId) {
            target = &folderById(tree, *wanted.parentId, "parent");
            if (target == &folder || tree.isAncestor(folder, *target)) {
                fail(400, "cyclical_folder_structure", "A folder cannot be moved into itself");
            }
        }
        const std::string newName = wanted.name.value_or(folder.name);
        checkName(newName);
        if (const Node* clash = nameClash(tree, *target, newName, &folder)) {
            failNameInUse(*clash, kFolderConflictsAsArray);
        }
        if (target->id != folder.parentId || newName != folder.name) tree.move(folder, *target, newName);
        call.response.json(200, folderAnswer(tree, folder));
    });

    apiRoute(router, "DELETE", kFolder, "box/folders/delete", [this](BoxCall& call) {
        std::lock_guard lock(store().mutex());
        Tree& tree = store().tree(call.account.id);
        Node& folder = folderById(tree, call.request.captures.at(0), "folder");
        if (isRoot(folder)) fail(403, "access_denied_insufficient_permissions", "The root folder cannot be deleted");
        checkIfMatch(folder, call.request);
        if (!folder.children.empty() && call.request.queryParam("recursive") != "true") {
            fail(400, "folder_not_empty", "Cannot delete - folder not empty");
        }
        tree.remove(folder);
        call.response.empty(204);
    });
}

}  // namespace vxcloud::sandbox::box
