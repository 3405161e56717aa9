#include "vxcloud/model/ProviderError.h"

#include <array>
#include <nlohmann/json.hpp>
#include <utility>

#include "vxcloud/platform/Log.h"

namespace vxcloud {
namespace {

constexpr std::size_t kMaxMessageLength = 300;

// The ".tag" of a union value, or "" when it has none.
std::string_view tagOf(const Json& value) {
    if (value.is_object()) {
        auto it = value.find(".tag");
        if (it != value.end() && it->is_string()) return it->get_ref<const std::string&>();
    }
    return {};
}

const Json* member(const Json& value, const char* key) {
    if (!value.is_object()) return nullptr;
    auto it = value.find(key);
    return it == value.end() ? nullptr : &*it;
}

std::optional<std::string> stringMember(const Json& value, const char* key) {
    const Json* m = member(value, key);
    if (m && m->is_string()) return m->get<std::string>();
    return std::nullopt;
}

template <typename Tag, std::size_t N>
Tag lookupTag(const std::array<std::pair<std::string_view, Tag>, N>& table, std::string_view tag,
              Tag fallback) {
    for (const auto& [name, value] : table) {
        if (name == tag) return value;
    }
    return fallback;
}

Json parseBody(std::string_view body) {
    return Json::parse(body.begin(), body.end(), nullptr, /*allow_exceptions=*/false);
}

std::string shortened(std::string_view text) {
    std::string out(text.substr(0, kMaxMessageLength));
    if (text.size() > kMaxMessageLength) out += "...";
    return log::redact(out);
}

// "HTTP 404: <detail>", where detail is the provider's message or the raw body.
std::string httpMessage(int status, const std::optional<std::string>& detail, std::string_view body) {
    std::string message = "HTTP " + std::to_string(status);
    std::string_view text = detail ? std::string_view(*detail) : body;
    if (!text.empty()) message += ": " + shortened(text);
    return message;
}

ProviderError withStatus(int status) {
    ProviderError error;
    error.httpStatus = status;
    return error;
}

// Shared by both Dropbox builders: the route error is decoded from "error" on 409 only.
template <typename RouteError>
ProviderError fromDropboxResponse(int status, std::string_view body,
                                  std::optional<RouteError> ProviderError::*field) {
    ProviderError error = withStatus(status);
    const Json json = parseBody(body);
    if (status == 409) {
        if (const Json* routeError = member(json, "error")) {
            error.*field = RouteError::fromJson(*routeError);
        }
    }
    error.message = httpMessage(status, stringMember(json, "error_summary"), body);
    return error;
}

}  // namespace

DropboxWriteError DropboxWriteError::fromTags(std::string_view tag, std::string_view conflictTag) {
    static constexpr std::array<std::pair<std::string_view, Tag>, 9> kTags = {{
        {"malformed_path", Tag::malformedPath},
        {"conflict", Tag::conflict},
        {"no_write_permission", Tag::noWritePermission},
        {"insufficient_space", Tag::insufficientSpace},
        {"disallowed_name", Tag::disallowedName},
        {"team_folder", Tag::teamFolder},
        {"operation_suppressed", Tag::operationSuppressed},
        {"too_many_write_operations", Tag::tooManyWriteOperations},
        {"access_restricted", Tag::accessRestricted},
    }};
    static constexpr std::array<std::pair<std::string_view, Conflict>, 3> kConflicts = {{
        {"file", Conflict::file},
        {"folder", Conflict::folder},
        {"file_ancestor", Conflict::fileAncestor},
    }};
    DropboxWriteError error;
    error.tag = lookupTag(kTags, tag, Tag::other);
    if (error.tag == Tag::conflict) error.conflict = lookupTag(kConflicts, conflictTag, Conflict::other);
    return error;
}

DropboxWriteError DropboxWriteError::fromJson(const Json& value) {
    const std::string_view tag = tagOf(value);
    std::string_view conflictTag;
    if (tag == "conflict") {
        if (const Json* conflict = member(value, "conflict")) conflictTag = tagOf(*conflict);
    }
    return fromTags(tag, conflictTag);
}

DropboxUploadError DropboxUploadError::fromJson(const Json& error) {
    static constexpr std::array<std::pair<std::string_view, Tag>, 5> kTags = {{
        {"path", Tag::path},
        {"properties_error", Tag::propertiesError},
        {"payload_too_large", Tag::payloadTooLarge},
        {"content_hash_mismatch", Tag::contentHashMismatch},
        {"encryption_not_supported", Tag::encryptionNotSupported},
    }};
    DropboxUploadError result;
    result.tag = lookupTag(kTags, tagOf(error), Tag::other);
    if (result.tag == Tag::path) {
        // files/upload inlines UploadWriteFailed ("reason"); upload_session/finish nests
        // the WriteError under "path".
        const Json* reason = member(error, "reason");
        if (!reason || !reason->is_object()) reason = member(error, "path");
        result.reason = reason ? DropboxWriteError::fromJson(*reason) : DropboxWriteError{};
    }
    return result;
}

DropboxRelocationError DropboxRelocationError::fromJson(const Json& error) {
    static constexpr std::array<std::pair<std::string_view, Tag>, 14> kTags = {{
        {"from_lookup", Tag::fromLookup},
        {"from_write", Tag::fromWrite},
        {"to", Tag::to},
        {"cant_copy_shared_folder", Tag::cantCopySharedFolder},
        {"cant_nest_shared_folder", Tag::cantNestSharedFolder},
        {"cant_move_folder_into_itself", Tag::cantMoveFolderIntoItself},
        {"too_many_files", Tag::tooManyFiles},
        {"duplicated_or_nested_paths", Tag::duplicatedOrNestedPaths},
        {"cant_transfer_ownership", Tag::cantTransferOwnership},
        {"insufficient_quota", Tag::insufficientQuota},
        {"internal_error", Tag::internalError},
        {"cant_move_shared_folder", Tag::cantMoveSharedFolder},
        {"cant_move_into_vault", Tag::cantMoveIntoVault},
        {"cant_move_into_family", Tag::cantMoveIntoFamily},
    }};
    DropboxRelocationError result;
    const std::string_view tag = tagOf(error);
    result.tag = lookupTag(kTags, tag, Tag::other);
    if (result.tag == Tag::fromWrite || result.tag == Tag::to) {
        const Json* write = member(error, std::string(tag).c_str());
        result.write = write ? DropboxWriteError::fromJson(*write) : DropboxWriteError{};
    } else if (result.tag == Tag::fromLookup) {
        if (const Json* lookup = member(error, "from_lookup")) result.lookup = tagOf(*lookup);
    }
    return result;
}

ProviderError ProviderError::transportFailure(TransportErrorKind kind, std::string message) {
    ProviderError error;
    error.transport = kind;
    error.message = shortened(message);
    return error;
}

ProviderError ProviderError::fromGoogleResponse(int status, std::string_view body) {
    ProviderError error = withStatus(status);
    const Json json = parseBody(body);
    std::optional<std::string> detail;
    if (const Json* inner = member(json, "error")) {
        if (inner->is_object()) {
            // The structured error of the Drive API.
            if (const Json* errors = member(*inner, "errors");
                errors && errors->is_array() && !errors->empty()) {
                error.googleReason = stringMember(errors->front(), "reason");
            }
            detail = stringMember(*inner, "message");
        } else if (inner->is_string()) {
            // An OAuth error response of the token endpoint.
            error.oauthError = inner->get<std::string>();
            detail = stringMember(json, "error_description");
            if (!detail) detail = error.oauthError;
        }
    }
    error.message = httpMessage(status, detail, body);
    return error;
}

ProviderError ProviderError::fromOneDriveResponse(int status, std::string_view body) {
    ProviderError error = withStatus(status);
    const Json json = parseBody(body);
    std::optional<std::string> detail;
    if (const Json* inner = member(json, "error")) {
        if (inner->is_object()) {
            error.oneDriveCode = stringMember(*inner, "code");
            detail = stringMember(*inner, "message");
        } else if (inner->is_string()) {
            error.oauthError = inner->get<std::string>();
            detail = stringMember(json, "error_description");
        }
    }
    if (!detail) detail = error.oneDriveCode;
    error.message = httpMessage(status, detail, body);
    return error;
}

ProviderError ProviderError::fromBoxResponse(int status, std::string_view body) {
    ProviderError error = withStatus(status);
    Json json = parseBody(body);
    std::optional<std::string> detail;
    if (json.is_object()) {
        detail = stringMember(json, "message");
        if (!detail) detail = stringMember(json, "code");
        if (auto oauth = stringMember(json, "error")) error.oauthError = std::move(oauth);
        error.boxErrorBody = std::move(json);
    }
    error.message = httpMessage(status, detail, body);
    return error;
}

ProviderError ProviderError::fromDropboxUploadResponse(int status, std::string_view body) {
    return fromDropboxResponse(status, body, &ProviderError::dropboxUploadError);
}

ProviderError ProviderError::fromDropboxRelocationResponse(int status, std::string_view body) {
    return fromDropboxResponse(status, body, &ProviderError::dropboxRelocationError);
}

ProviderError ProviderError::fromEvernote(int errorCode, std::optional<std::string> parameter,
                                          std::string message) {
    ProviderError error;
    error.evernoteCode = errorCode;
    error.message = "EDAM error " + std::to_string(errorCode);
    if (parameter) error.message += " (" + shortened(*parameter) + ")";
    if (!message.empty()) error.message += ": " + shortened(message);
    error.evernoteParameter = std::move(parameter);
    return error;
}

}  // namespace vxcloud
