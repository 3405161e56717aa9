#include "BoxWire.h"

#include "../JsonFields.h"

namespace vxcloud::box {

using nlohmann::json;
using providers::objectMember;
using providers::readInt64;
using providers::readString;

std::optional<Item> parseItem(const json& value) {
    if (!value.is_object()) return std::nullopt;
    Item item;
    std::optional<std::string> type, id, name;
    bool ok = readString(value, "type", type) && readString(value, "id", id) && readString(value, "name", name) &&
              readString(value, "sha1", item.sha1) && readInt64(value, "size", item.size) &&
              readString(value, "etag", item.etag);
    if (!ok || !id || id->empty() || !type) return std::nullopt;
    item.type = std::move(*type);
    item.id = std::move(*id);
    item.name = name.value_or("");
    const json* parent = objectMember(value, "parent", ok);
    const json* version = objectMember(value, "file_version", ok);
    if (parent) ok = ok && readString(*parent, "id", item.parentId);
    if (version) ok = ok && readString(*version, "id", item.fileVersionId);
    if (!ok) return std::nullopt;
    return item;
}

std::optional<ItemsPage> parseItemsPage(const json& value) {
    if (!value.is_object()) return std::nullopt;
    const auto entries = value.find("entries");
    if (entries == value.end() || !entries->is_array()) return std::nullopt;
    ItemsPage page;
    for (const json& entry : *entries) {
        auto item = parseItem(entry);
        if (!item) return std::nullopt;
        page.entries.push_back(std::move(*item));
    }
    std::optional<std::int64_t> total, offset, limit;
    if (!readInt64(value, "total_count", total) || !readInt64(value, "offset", offset) ||
        !readInt64(value, "limit", limit)) {
        return std::nullopt;
    }
    page.totalCount = total.value_or(static_cast<std::int64_t>(page.entries.size()));
    page.offset = offset.value_or(0);
    page.limit = limit.value_or(static_cast<std::int64_t>(page.entries.size()));
    return page;
}

std::optional<Item> parseUploadedFile(const json& value) {
    if (!value.is_object()) return std::nullopt;
    const auto entries = value.find("entries");
    // A bare file is read too: some answers are the file itself.
    if (entries == value.end()) return parseItem(value);
    if (!entries->is_array() || entries->empty()) return std::nullopt;
    return parseItem(entries->front());
}

std::optional<User> parseUser(const json& value) {
    if (!value.is_object()) return std::nullopt;
    std::optional<std::string> id, name, login;
    if (!readString(value, "id", id) || !readString(value, "name", name) || !readString(value, "login", login)) {
        return std::nullopt;
    }
    if (!id || id->empty()) return std::nullopt;
    return User{std::move(*id), name.value_or(""), login.value_or("")};
}

std::optional<UploadSession> parseUploadSession(const json& value) {
    if (!value.is_object()) return std::nullopt;
    UploadSession session;
    std::optional<std::string> id;
    std::optional<std::int64_t> partSize;
    bool ok = readString(value, "id", id) && readInt64(value, "part_size", partSize);
    const json* endpoints = objectMember(value, "session_endpoints", ok);
    if (!ok || !id || !partSize || *partSize <= 0 || !endpoints) return std::nullopt;
    std::optional<std::string> part, list, commit, abort;
    ok = readString(*endpoints, "upload_part", part) && readString(*endpoints, "list_parts", list) &&
         readString(*endpoints, "commit", commit) && readString(*endpoints, "abort", abort);
    if (!ok || !part || !list || !commit) return std::nullopt;
    session.id = std::move(*id);
    session.partSize = *partSize;
    session.uploadPartUrl = std::move(*part);
    session.listPartsUrl = std::move(*list);
    session.commitUrl = std::move(*commit);
    session.abortUrl = abort.value_or(session.uploadPartUrl);
    return session;
}

std::optional<Part> parsePart(const json& value) {
    if (!value.is_object()) return std::nullopt;
    const auto wrapped = value.find("part");
    const json& body = wrapped != value.end() && wrapped->is_object() ? *wrapped : value;
    std::optional<std::string> id, sha1;
    std::optional<std::int64_t> offset, size;
    if (!readString(body, "part_id", id) || !readString(body, "sha1", sha1) || !readInt64(body, "offset", offset) ||
        !readInt64(body, "size", size) || !id || !offset || !size) {
        return std::nullopt;
    }
    return Part{std::move(*id), *offset, *size, sha1.value_or("")};
}

json partJson(const Part& part) {
    return {{"part_id", part.partId}, {"offset", part.offset}, {"size", part.size}, {"sha1", part.sha1}};
}

std::optional<PartsPage> parsePartsPage(const json& value) {
    if (!value.is_object()) return std::nullopt;
    const auto entries = value.find("entries");
    if (entries == value.end() || !entries->is_array()) return std::nullopt;
    PartsPage page;
    for (const json& entry : *entries) {
        auto part = parsePart(entry);
        if (!part) return std::nullopt;
        page.entries.push_back(std::move(*part));
    }
    std::optional<std::int64_t> total;
    if (!readInt64(value, "total_count", total)) return std::nullopt;
    page.totalCount = total.value_or(static_cast<std::int64_t>(page.entries.size()));
    return page;
}

}  // namespace vxcloud::box
