#pragma once
// An account's Evernote data on the framework's tree: notebooks are the top folders, notes
// the files in them, named by title, with the first resource's body as the file's bytes (so
// the admin API reads and writes what a note carries). What EDAM adds lives in each node's
// attributes:
//   notebook  {"usn", "created", "updated", "default", "stack"?}
//   note      {"usn", "created", "updated", "deleted"?, "active", "content" (ENML),
//              "attributes" {...}, "tagNames" [...], "resources" [{"guid", "mime", "hash" (hex),
//              "size", "usn", "width"?, "height"?, "attributes" {...}}]}
//   root      {"usn" (the account's update count), "uploaded", "uploadMonth"}
// Resource bodies are kept by resource GUID beside the tree (NoteBodies). All of it under the
// store lock.
#include <cstdint>
#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "framework/Store.h"

namespace vxcloud::sandbox::evernote {

using nlohmann::json;
using NoteBodies = std::map<std::string, ByteBuffer>;  // resource GUID -> bytes

// The next update sequence number of the account (each change takes one), and the last.
std::int32_t nextUsn(Tree& tree);
std::int32_t currentUsn(Tree& tree);

std::vector<Node*> notebooksOf(Tree& tree);
std::vector<Node*> notesOf(Tree& tree);
bool isNotebook(Tree& tree, const Node& node);
Node* notebookByGuid(Tree& tree, const std::string& guid);
Node* noteByGuid(Tree& tree, const std::string& guid);
// The notebook that takes notes made without one: the one marked default, else the oldest.
Node* defaultNotebook(Tree& tree);
// Gives a new notebook node its EDAM fields; `isDefault` moves the default flag to it.
void initNotebook(Tree& tree, Node& notebook, std::int64_t nowMs, bool isDefault);
void makeDefault(Tree& tree, Node& notebook, std::int64_t nowMs);

// The ENML of a note that shows its resources, one en-media each.
std::string enmlShowing(const json& resources);
// A stored resource's fields.
json storedResource(const std::string& guid, const std::string& mime, const ByteBuffer& body, std::int32_t usn,
                    const std::string& fileName);
// Bytes of the note: its content and every resource.
std::int64_t noteSize(const json& note);

// This month's uploads (new content and resource bytes), on the sandbox clock in UTC.
std::int64_t uploadedThisMonth(Tree& tree, std::int64_t nowMs);
void countUpload(Tree& tree, std::int64_t bytes, std::int64_t nowMs);

// Milliseconds with only whole seconds, as the service keeps times.
inline std::int64_t wholeSeconds(std::int64_t ms) { return ms - ((ms % 1000) + 1000) % 1000; }

}  // namespace vxcloud::sandbox::evernote
