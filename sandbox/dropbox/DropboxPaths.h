#pragma once
// Dropbox path semantics on a store tree: "/a/b" (case-insensitive), "id:..." optionally
// followed by a relative path, malformed paths, names the service refuses, and the free
// names autorename picks.
#include <string>
#include <vector>

#include "dropbox/DropboxCall.h"
#include "framework/Store.h"

namespace vxcloud::sandbox::dropbox {

// Where a path argument leads in a tree.
struct Located {
    enum class Status { ok, malformed, unknownId } status = Status::ok;
    Node* node = nullptr;                // the item, when it exists
    Node* parent = nullptr;              // the deepest existing node on the way
    std::vector<std::string> missing;    // names below `parent` that do not exist yet
    bool fileAncestor = false;           // a file sits where a folder is needed
};
Located locate(Tree& tree, const std::string& path);

// An existing item for a lookup, or the LookupError ("not_found", "malformed_path", ...).
Node* lookupOrThrow(Tree& tree, const std::string& path, const std::string& wrapTag);
json lookupError(const Located& located);

// The place a write goes to: an existing item there, or the folder and names to create.
// Throws WriteFailure (malformed_path, conflict/file_ancestor, disallowed_name).
struct WriteTarget {
    Node* existing = nullptr;
    Node* parent = nullptr;             // the folder that holds (or will hold) the item
    std::vector<std::string> missing;   // folders to create below `parent`, then the name
};
WriteTarget writeTarget(Tree& tree, const std::string& path);
// Creates the missing folders but the last name; returns the folder for the last name.
Node& createParents(Tree& tree, WriteTarget& target);
std::string targetName(const WriteTarget& target);

bool disallowedName(const std::string& name);
// "name (1).ext", "name (2).ext", ... or "name (conflicted copy).ext": the first free name.
std::string freeName(Tree& tree, const Node& parent, const std::string& name, bool conflictedCopy);

}  // namespace vxcloud::sandbox::dropbox
