#include "dropbox/DropboxPaths.h"

#include <algorithm>

#include "framework/Text.h"

namespace vxcloud::sandbox::dropbox {

Located locate(Tree& tree, const std::string& path) {
    Located out;
    std::string rest = path;
    Node* start = &tree.root();
    if (path.rfind("id:", 0) == 0) {
        const auto slash = path.find('/');
        const std::string id = path.substr(0, slash);
        rest = slash == std::string::npos ? std::string() : path.substr(slash);
        start = tree.find(id);
        if (!start) {
            out.status = Located::Status::unknownId;
            return out;
        }
    } else if (path.rfind("ns:", 0) == 0) {
        out.status = Located::Status::unknownId;  // team namespaces are not emulated
        return out;
    }
    // Components must be non-empty and not "." or "..": no "//", no trailing "/".
    if (!rest.empty()) {
        if (rest.back() == '/' || rest.front() != '/') {
            out.status = Located::Status::malformed;
            return out;
        }
        for (std::size_t pos = 1; pos <= rest.size();) {
            std::size_t slash = rest.find('/', pos);
            if (slash == std::string::npos) slash = rest.size();
            const std::string part = rest.substr(pos, slash - pos);
            if (part.empty() || part == "." || part == "..") {
                out.status = Located::Status::malformed;
                return out;
            }
            pos = slash + 1;
        }
    }
    Node* current = start;
    const auto parts = splitPath(rest);
    for (std::size_t i = 0; i < parts.size(); ++i) {
        if (!current->isFolder) {
            out.fileAncestor = true;
            out.missing.assign(parts.begin() + static_cast<std::ptrdiff_t>(i), parts.end());
            out.parent = current;
            return out;
        }
        Node* next = tree.child(*current, parts[i]);
        if (!next) {
            out.parent = current;
            out.missing.assign(parts.begin() + static_cast<std::ptrdiff_t>(i), parts.end());
            return out;
        }
        current = next;
    }
    out.node = current;
    out.parent = current->id == tree.root().id ? nullptr : tree.find(current->parentId);
    return out;
}

bool disallowedName(const std::string& name) {
    static const char* names[] = {"desktop.ini", "thumbs.db", ".ds_store", "icon\r", ".dropbox", ".dropbox.attr"};
    const std::string lower = asciiLower(name);
    return std::any_of(std::begin(names), std::end(names), [&](const char* n) { return lower == n; });
}

std::string freeName(Tree& tree, const Node& parent, const std::string& name, bool conflictedCopy) {
    const auto dot = name.rfind('.');
    const bool hasExtension = dot != std::string::npos && dot > 0;
    const std::string stem = hasExtension ? name.substr(0, dot) : name;
    const std::string extension = hasExtension ? name.substr(dot) : std::string();
    for (int n = 1; n < 100000; ++n) {
        std::string candidate;
        if (conflictedCopy) {
            candidate = stem + (n == 1 ? " (conflicted copy)" : " (conflicted copy " + std::to_string(n) + ")") + extension;
        } else {
            candidate = stem + " (" + std::to_string(n) + ")" + extension;
        }
        if (!tree.child(parent, candidate)) return candidate;
    }
    return stem + " (" + randomHex(8) + ")" + extension;
}

json lookupError(const Located& located) {
    if (located.status == Located::Status::malformed) return tag("malformed_path");
    if (located.node) return located.node->isFolder ? tag("not_file") : tag("not_folder");
    return tag("not_found");
}

Node* lookupOrThrow(Tree& tree, const std::string& path, const std::string& wrapTag) {
    const Located located = locate(tree, path);
    if (located.status == Located::Status::ok && located.node) return located.node;
    routeError(tagWith(wrapTag, lookupError(located)));
}

WriteTarget writeTarget(Tree& tree, const std::string& path) {
    const Located located = locate(tree, path);
    if (located.status != Located::Status::ok) throw WriteFailure{tag("malformed_path")};
    if (located.fileAncestor) throw WriteFailure{tagWith("conflict", tag("file_ancestor"))};
    WriteTarget target;
    if (located.node) {
        if (located.node->id == tree.root().id) throw WriteFailure{tag("malformed_path")};
        target.existing = located.node;
        target.parent = tree.find(located.node->parentId);
        return target;
    }
    for (const auto& name : located.missing) {
        if (disallowedName(name)) throw WriteFailure{tag("disallowed_name")};
    }
    target.parent = located.parent;
    target.missing = located.missing;
    return target;
}

Node& createParents(Tree& tree, WriteTarget& target) {
    Node* folder = target.parent;
    for (std::size_t i = 0; i + 1 < target.missing.size(); ++i) folder = &tree.createFolder(*folder, target.missing[i]);
    target.parent = folder;
    if (!target.missing.empty()) target.missing.erase(target.missing.begin(), target.missing.end() - 1);
    return *folder;
}

std::string targetName(const WriteTarget& target) {
    return target.existing ? target.existing->name : target.missing.back();
}

}  // namespace vxcloud::sandbox::dropbox
