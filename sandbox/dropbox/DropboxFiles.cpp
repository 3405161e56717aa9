// Reading and simple writes: list_folder (with paging cursors), get_metadata,
// create_folder_v2, delete_v2 and download.
#include <algorithm>

#include "dropbox/DropboxModule.h"
#include "dropbox/DropboxPaths.h"
#include "framework/Text.h"

namespace vxcloud::sandbox::dropbox {

std::vector<std::string> DropboxModule::collect(Tree& tree, const Node& folder, bool recursive,
                                                std::uint64_t sinceSeq) {
    std::vector<Node*> nodes = recursive ? tree.descendants(folder) : tree.children(folder);
    std::vector<std::string> ids;
    if (sinceSeq > 0) {
        // Changes since the cursor: the oldest change first.
        std::sort(nodes.begin(), nodes.end(), [](const Node* a, const Node* b) { return a->changeSeq < b->changeSeq; });
    } else if (recursive && folder.id != tree.root().id) {
        ids.push_back(folder.id);  // a recursive listing starts with the folder itself
    }
    for (const Node* node : nodes) {
        if (node->changeSeq > sinceSeq) ids.push_back(node->id);
    }
    return ids;
}

json DropboxModule::listPage(Tree& tree, const Cursor& cursor) {
    Node* folder = tree.find(cursor.folderId);
    if (!folder) routeError(tagWith("path", tag("not_found")));
    json entries = json::array();
    std::size_t position = cursor.position;
    const auto& ids = *cursor.snapshot;
    while (position < ids.size() && static_cast<int>(entries.size()) < cursor.pageSize) {
        const Node* node = tree.find(ids[position++]);
        // Items deleted or moved out since the snapshot are skipped.
        if (node && (node == folder || tree.isAncestor(*folder, *node))) entries.push_back(metadata(tree, *node, true));
    }
    Cursor next = cursor;
    next.position = position;
    const bool hasMore = position < ids.size();
    if (!hasMore) {
        next.snapshot.reset();  // a final cursor: continuing reports later changes
        next.position = 0;
    }
    // Cursors are immutable positions: repeating a call with the same cursor repeats the page.
    const std::string id = "AAG" + randomToken(61);
    cursors_[id] = next;
    return {{"entries", entries}, {"cursor", id}, {"has_more", hasMore}};
}

void DropboxModule::registerFileRoutes(Router& router) {
    route(router, Style::rpc, "files/list_folder", "files.metadata.read", false, [this](Call& call) {
        const Args a = call.args();
        const std::string path = a.path("path", PathKind::list);
        const bool recursive = a.flag("recursive", false);
        for (const char* flag : {"include_deleted", "include_has_explicit_shared_members", "include_mounted_folders",
                                 "include_non_downloadable_files", "include_media_info"}) {
            a.flag(flag, false);
        }
        const auto limit = a.optionalInteger("limit", 1, 2000);
        std::lock_guard lock(store().mutex());
        Tree& tree = store().tree(call.account.id);
        Node* folder = path.empty() ? &tree.root() : lookupOrThrow(tree, path, "path");
        if (!folder->isFolder) routeError(tagWith("path", tag("not_folder")));
        Cursor cursor;
        cursor.accountId = call.account.id;
        cursor.folderId = folder->id;
        cursor.recursive = recursive;
        cursor.snapshot = std::make_shared<const std::vector<std::string>>(collect(tree, *folder, recursive, 0));
        cursor.sinceSeq = tree.changeSeq();
        cursor.pageSize = static_cast<int>(std::min<std::int64_t>(limit.value_or(2000), settings_.listFolderPageSize));
        call.ok(listPage(tree, cursor));
    });

    route(router, Style::rpc, "files/list_folder/continue", "files.metadata.read", false, [this](Call& call) {
        const std::string id = call.args().string("cursor");
        std::lock_guard lock(store().mutex());
        const auto it = cursors_.find(id);
        if (it == cursors_.end() || it->second.accountId != call.account.id) routeError(tag("reset"));
        Tree& tree = store().tree(call.account.id);
        Cursor cursor = it->second;
        if (!cursor.snapshot) {
            Node* folder = tree.find(cursor.folderId);
            if (!folder) routeError(tagWith("path", tag("not_found")));
            cursor.snapshot = std::make_shared<const std::vector<std::string>>(
                collect(tree, *folder, cursor.recursive, cursor.sinceSeq));
            cursor.sinceSeq = tree.changeSeq();
        }
        call.ok(listPage(tree, cursor));
    });

    route(router, Style::rpc, "files/get_metadata", "files.metadata.read", false, [this](Call& call) {
        const Args a = call.args();
        const std::string path = a.path("path", PathKind::readOrRev);
        for (const char* flag : {"include_media_info", "include_deleted", "include_has_explicit_shared_members"}) {
            a.flag(flag, false);
        }
        std::lock_guard lock(store().mutex());
        Tree& tree = store().tree(call.account.id);
        if (path.rfind("rev:", 0) == 0) {
            const auto found = tree.findRevision(path.substr(4));
            if (!found) routeError(tagWith("path", tag("not_found")));
            return call.ok(revisionMetadata(tree, *found->first, found->second, true));
        }
        call.ok(metadata(tree, *lookupOrThrow(tree, path, "path"), true));
    });

    route(router, Style::rpc, "files/create_folder_v2", "files.content.write", false, [this](Call& call) {
        const Args a = call.args();
        const std::string path = a.path("path", PathKind::write);
        const bool autorename = a.flag("autorename", false);
        std::lock_guard lock(store().mutex());
        Tree& tree = store().tree(call.account.id);
        try {
            WriteTarget target = writeTarget(tree, path);
            std::string name;
            if (target.existing) {
                if (!autorename) {
                    throw WriteFailure{tagWith("conflict", tag(target.existing->isFolder ? "folder" : "file"))};
                }
                name = freeName(tree, *target.parent, target.existing->name, false);
            } else {
                name = targetName(target);
            }
            Node& parent = createParents(tree, target);
            Node& folder = tree.createFolder(parent, name);
            call.ok({{"metadata", metadata(tree, folder, false)}});
        } catch (const WriteFailure& failure) {
            routeError(tagWith("path", failure.error));
        }
    });

    route(router, Style::rpc, "files/delete_v2", "files.content.write", false, [this](Call& call) {
        const Args a = call.args();
        const std::string path = a.path("path", PathKind::write);
        const auto parentRev = a.optionalString("parent_rev");
        std::lock_guard lock(store().mutex());
        Tree& tree = store().tree(call.account.id);
        const Located located = locate(tree, path);
        if (located.status != Located::Status::ok || !located.node || located.node->id == tree.root().id) {
            routeError(tagWith("path_lookup", lookupError(located)));
        }
        Node& node = *located.node;
        if (parentRev) {
            if (node.isFolder) routeError(tagWith("path_lookup", tag("not_file")));
            if (node.rev != *parentRev) routeError(tagWith("path_write", tagWith("conflict", tag("file"))));
        }
        const json before = metadata(tree, node, true);
        tree.remove(node);
        call.ok({{"metadata", before}});
    });

    route(router, Style::download, "files/download", "files.content.read", false, [this](Call& call) {
        const Args a = call.args();
        std::string path = a.path("path", PathKind::readOrRev);
        if (const auto rev = a.optionalString("rev")) path = "rev:" + *rev;  // the deprecated field
        ByteBuffer content;
        json meta;
        {
            std::lock_guard lock(store().mutex());
            Tree& tree = store().tree(call.account.id);
            if (path.rfind("rev:", 0) == 0) {
                const auto found = tree.findRevision(path.substr(4));
                if (!found) routeError(tagWith("path", tag("not_found")));
                content = found->second.content;
                meta = revisionMetadata(tree, *found->first, found->second, false);
            } else {
                const Node* node = lookupOrThrow(tree, path, "path");
                if (node->isFolder) routeError(tagWith("path", tag("not_file")));
                content = node->content;
                meta = metadata(tree, *node, false);
            }
        }
        const std::string etag = "W/\"" + meta["rev"].get<std::string>() + "\"";
        if (call.request.headerOr("If-None-Match") == etag) {
            call.response.empty(304);
        } else {
            call.response.serveContent(call.request, content);
        }
        call.response.setHeader("ETag", etag);
        // Non-ASCII stays \u-escaped: header values are ASCII.
        call.response.setHeader("Dropbox-API-Result", meta.dump(-1, ' ', true));
    });
}

}  // namespace vxcloud::sandbox::dropbox
