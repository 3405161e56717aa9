#pragma once
// The Dropbox wire format as the client speaks it: route requests, argument encoding,
// and readers of the JSON answers. Only the client's own sources include this header.
#include <functional>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "DropboxClient.h"

namespace vxcloud::dropbox {

using nlohmann::json;

enum class Style { rpc, upload, download };

// Which of ProviderError's typed unions a route's 409 answer fills.
enum class ErrorUnion { none, upload, relocation };

struct DropboxClient::Request {
    Style style = Style::rpc;
    std::string route;       // "files/list_folder"
    json arg;                // null for routes without an argument
    ByteBuffer body;         // upload style only
    bool idempotent = true;  // see HttpRequest::idempotent
    ErrorUnion errors = ErrorUnion::none;
    // The member of the route's error union that holds a WriteError ("path", "path_write").
    std::string writeErrorMember;
    std::function<void(std::int64_t sent, std::int64_t total)> onSent;
};

// Compact JSON with every character from 0x7F up written as a \u escape (UTF-16 units,
// surrogate pairs above the BMP), as the Dropbox-API-Arg header requires.
std::string headerSafeJson(const json& value);

// The ".tag" of a union value, or "" when it has none.
std::string tagOf(const json& value);
// The tags of a route error from the outside in, "/"-joined ("path/conflict/file").
std::string routeTags(const json& error);
// The last of those tags.
std::string innermostTag(const json& error);

enum class ParseStatus { ok, unknownTag, malformed };
// A Metadata value. `implicitTag` is the subtype of routes whose declared result is a leaf
// type and carries no ".tag" (upload, download: file; create_folder: folder).
ParseStatus parseMetadata(const json& value, std::optional<Metadata::Tag> implicitTag, Metadata& out);
// One entry of a finished move batch; false when it cannot be read.
bool parseBatchEntry(const json& value, RelocationBatchEntry& out);

json commitArg(const CommitInfo& commit);

// A client-side failure: an answer that is not what the route documents.
ProviderError malformedAnswer(const std::string& route, const std::string& what);

}  // namespace vxcloud::dropbox
