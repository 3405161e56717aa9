#pragma once
// Readers of Box's JSON answers. Only the Box client's sources include this.
#include <nlohmann/json.hpp>
#include <optional>
#include <vector>

#include "BoxItem.h"

namespace vxcloud::box {

// A file, folder or web link; nothing when it has no id or a field has the wrong type.
std::optional<Item> parseItem(const nlohmann::json& value);
// One page of folder items, offset-paged.
struct ItemsPage {
    std::vector<Item> entries;
    std::int64_t totalCount = 0;
    std::int64_t offset = 0;
    std::int64_t limit = 0;
};
std::optional<ItemsPage> parseItemsPage(const nlohmann::json& value);
// The file of an upload answer: {"total_count": 1, "entries": [file]}.
std::optional<Item> parseUploadedFile(const nlohmann::json& value);
std::optional<User> parseUser(const nlohmann::json& value);

// An upload session: where its parts go and how large each is.
struct UploadSession {
    std::string id;
    std::int64_t partSize = 0;
    std::string uploadPartUrl;
    std::string listPartsUrl;
    std::string commitUrl;
    std::string abortUrl;
};
std::optional<UploadSession> parseUploadSession(const nlohmann::json& value);

// A stored part, as the session lists it and the commit wants it back.
struct Part {
    std::string partId;
    std::int64_t offset = 0;
    std::int64_t size = 0;
    std::string sha1;
};
// A part answer ({"part": {...}} or the part's fields bare, both seen).
std::optional<Part> parsePart(const nlohmann::json& value);
nlohmann::json partJson(const Part& part);
// A list of parts: entries with paging fields.
struct PartsPage {
    std::vector<Part> entries;
    std::int64_t totalCount = 0;
};
std::optional<PartsPage> parsePartsPage(const nlohmann::json& value);

}  // namespace vxcloud::box
