#include "DropboxWire.h"

namespace vxcloud::dropbox {
namespace {

std::optional<std::string> optionalString(const json& object, const char* key) {
    auto it = object.find(key);
    if (it != object.end() && it->is_string()) return it->get<std::string>();
    return std::nullopt;
}

}  // namespace

std::string headerSafeJson(const json& value) {
    // ensure_ascii escapes everything above 0x7F; DEL itself is left alone by the encoder.
    std::string text = value.dump(-1, ' ', /*ensure_ascii=*/true, json::error_handler_t::replace);
    std::string out;
    out.reserve(text.size());
    for (char c : text) {
        if (c == '\x7f') out += "\\u007f";
        else out += c;
    }
    return out;
}

std::string tagOf(const json& value) {
    if (value.is_object()) {
        auto it = value.find(".tag");
        if (it != value.end() && it->is_string()) return it->get<std::string>();
    }
    if (value.is_string()) return value.get<std::string>();  // the request shorthand
    return {};
}

std::string routeTags(const json& error) {
    std::string tags;
    const json* current = &error;
    for (int depth = 0; depth < 8; ++depth) {
        const std::string tag = tagOf(*current);
        if (tag.empty()) break;
        if (!tags.empty()) tags += '/';
        tags += tag;
        if (!current->is_object()) break;
        // Nested unions sit under their tag; files/upload inlines its write failure as "reason".
        auto nested = current->find(tag);
        if (nested != current->end() && nested->is_object()) {
            current = &*nested;
            continue;
        }
        auto reason = current->find("reason");
        if (reason != current->end() && reason->is_object()) {
            current = &*reason;
            continue;
        }
        break;
    }
    return tags;
}

std::string innermostTag(const json& error) {
    const std::string tags = routeTags(error);
    const auto slash = tags.rfind('/');
    return slash == std::string::npos ? tags : tags.substr(slash + 1);
}

ParseStatus parseMetadata(const json& value, std::optional<Metadata::Tag> implicitTag, Metadata& out) {
    if (!value.is_object()) return ParseStatus::malformed;
    Metadata m;
    const std::string tag = tagOf(value);
    if (tag == "file") m.tag = Metadata::Tag::file;
    else if (tag == "folder") m.tag = Metadata::Tag::folder;
    else if (tag == "deleted") m.tag = Metadata::Tag::deleted;
    else if (tag.empty() && implicitTag) m.tag = *implicitTag;
    else if (tag.empty()) return ParseStatus::malformed;
    else return ParseStatus::unknownTag;  // unions are open: a newer subtype

    auto name = optionalString(value, "name");
    if (!name) return ParseStatus::malformed;
    m.name = std::move(*name);
    m.id = optionalString(value, "id");
    m.pathLower = optionalString(value, "path_lower");
    m.pathDisplay = optionalString(value, "path_display");
    if (m.tag == Metadata::Tag::file) {
        m.rev = optionalString(value, "rev");
        m.contentHash = optionalString(value, "content_hash");
        auto size = value.find("size");
        if (size != value.end()) {
            if (!size->is_number_integer()) return ParseStatus::malformed;
            m.size = size->get<std::int64_t>();
        }
    }
    out = std::move(m);
    return ParseStatus::ok;
}

bool parseBatchEntry(const json& value, RelocationBatchEntry& out) {
    RelocationBatchEntry entry;
    const std::string tag = tagOf(value);
    if (tag == "success") {
        auto it = value.find("success");
        if (it == value.end()) return false;
        Metadata m;
        const ParseStatus status = parseMetadata(*it, std::nullopt, m);
        if (status == ParseStatus::malformed) return false;
        if (status == ParseStatus::ok) entry.success = std::move(m);
    } else if (tag == "failure") {
        auto it = value.find("failure");
        if (it == value.end()) return false;
        entry.failureTag = tagOf(*it);
        if (entry.failureTag == "relocation_error") {
            auto inner = it->find("relocation_error");
            entry.failure = DropboxRelocationError::fromJson(inner != it->end() ? *inner : json());
        }
    } else {
        entry.failureTag = tag.empty() ? "unknown" : tag;
    }
    out = std::move(entry);
    return true;
}

json commitArg(const CommitInfo& commit) {
    return json{
        {"path", commit.path},
        {"mode", commit.mode == WriteMode::overwrite ? "overwrite" : "add"},
        {"autorename", commit.autorename},
        {"mute", commit.mute},
        {"strict_conflict", commit.strictConflict},
    };
}

ProviderError malformedAnswer(const std::string& route, const std::string& what) {
    return ProviderError::transportFailure(TransportErrorKind::malformedResponse, "Dropbox " + route + ": " + what);
}

}  // namespace vxcloud::dropbox
