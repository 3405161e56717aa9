#pragma once
// Box's view of stored items: the mini and full JSON of files and folders, `fields`
// projections, listing order, and the rules every write follows (names, clashes, If-Match,
// the quota). All of it runs under the store lock; the rules throw BoxError.
#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "framework/Http.h"
#include "framework/Store.h"

namespace vxcloud::sandbox::box {

// Box's times: RFC 3339 with the offset of Box's own (Pacific) zone, "2024-05-01T01:00:00-08:00".
std::string boxTime(std::int64_t seconds);
// etag and sequence_id: the same string, changed by every change of the item.
std::string etagOf(const Node& node);
// The root folder, "All Files".
bool isRoot(const Node& node);

// Folders: type, id, sequence_id, etag, name. Files add sha1 and file_version.
nlohmann::json miniJson(const Node& node);
// Everything a GET of the item answers, without a folder's item_collection.
nlohmann::json fullJson(Tree& tree, const Node& node);
// A folder's first entries, as its GET carries them.
nlohmann::json itemCollection(Tree& tree, const Node& folder);
// `fields=a,b`: only those fields (the ones the item has) and type, id, etag.
nlohmann::json projected(const nlohmann::json& full, const std::string& fields);
// A folder's entries in listing order: folders before files, then by `sort` (name, id,
// date, size; name when absent) in `direction` (ASC or DESC).
std::vector<Node*> listingOrder(Tree& tree, const Node& folder, const Request& request);
// The "order" a listing reports.
nlohmann::json listingOrderJson(const Request& request);

// 400 item_name_invalid / item_name_too_long unless Box would take the name.
void checkName(const std::string& name);
// The item with that id, of that kind; 404 naming `parameter` otherwise.
Node& folderById(Tree& tree, const std::string& id, const std::string& parameter);
Node& fileById(Tree& tree, const std::string& id, const std::string& parameter);
// An item in `folder` named `name` (ignoring case), other than `self`; null when free.
Node* nameClash(Tree& tree, const Node& folder, const std::string& name, const Node* self = nullptr);
// 409 item_name_in_use with the item in the way in context_info.conflicts.
[[noreturn]] void failNameInUse(const Node& existing, bool asArray);
// 412 precondition_failed when If-Match names another etag.
void checkIfMatch(const Node& node, const Request& request);
// Whether If-None-Match names the item's etag (304).
bool notModified(const Node& node, const Request& request);
// 403 storage_limit_exceeded unless `growth` more bytes fit.
void checkRoom(const Tree& tree, std::int64_t growth, bool quotaFull);

}  // namespace vxcloud::sandbox::box
