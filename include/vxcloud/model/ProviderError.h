#pragma once
// What a provider's failed call leaves behind, in one value for every service: the
// fields VXCloudError's classifiers read. Provider clients fill it from the HTTP answer
// (the from*Response builders parse the documented error bodies); each classifier reads
// only its own service's fields, so an unset field simply means "the provider said
// nothing about it".
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "vxcloud/platform/Json.h"

namespace vxcloud {

// How a request failed below HTTP, when it did.
enum class TransportErrorKind {
    none,               // an HTTP answer arrived
    cannotConnect,      // DNS, refused, unreachable
    timedOut,
    connectionLost,     // dropped mid-request
    tls,
    cancelled,
    malformedResponse,  // an answer that is not HTTP or whose body cannot be decoded
    other,
};

// Dropbox's WriteError union, by its wire tags.
struct DropboxWriteError {
    enum class Tag {
        malformedPath,           // "malformed_path"
        conflict,                // "conflict"
        noWritePermission,       // "no_write_permission"
        insufficientSpace,       // "insufficient_space"
        disallowedName,          // "disallowed_name"
        teamFolder,              // "team_folder"
        operationSuppressed,     // "operation_suppressed"
        tooManyWriteOperations,  // "too_many_write_operations"
        accessRestricted,        // "access_restricted"
        other,                   // "other" and any tag this client does not know
    };
    // WriteConflictError: what is in the way.
    enum class Conflict {
        file,          // "file"
        folder,        // "folder"
        fileAncestor,  // "file_ancestor"
        other,
    };

    Tag tag = Tag::other;
    Conflict conflict = Conflict::other;  // meaningful when tag == Tag::conflict

    static DropboxWriteError fromTags(std::string_view tag, std::string_view conflictTag = {});
    // From {".tag": "conflict", "conflict": {".tag": "file"}}; anything unreadable is `other`.
    static DropboxWriteError fromJson(const Json& value);
};

// The error union of files/upload (and of upload_session/finish, whose write failure
// sits under "path" instead of "reason").
struct DropboxUploadError {
    enum class Tag {
        path,                    // "path": a write failure, see `reason`
        propertiesError,         // "properties_error"
        payloadTooLarge,         // "payload_too_large"
        contentHashMismatch,     // "content_hash_mismatch"
        encryptionNotSupported,  // "encryption_not_supported"
        other,                   // "other" and any tag this client does not know
    };

    Tag tag = Tag::other;
    std::optional<DropboxWriteError> reason;  // set when tag == Tag::path

    // From the "error" member of a 409 answer.
    static DropboxUploadError fromJson(const Json& error);
};

// The error union of files/move_v2 and of failed move-batch entries.
struct DropboxRelocationError {
    enum class Tag {
        fromLookup,                // "from_lookup": the source was not found, see `lookup`
        fromWrite,                 // "from_write": see `write`
        to,                        // "to": see `write`
        cantCopySharedFolder,      // "cant_copy_shared_folder"
        cantNestSharedFolder,      // "cant_nest_shared_folder"
        cantMoveFolderIntoItself,  // "cant_move_folder_into_itself"
        tooManyFiles,              // "too_many_files"
        duplicatedOrNestedPaths,   // "duplicated_or_nested_paths"
        cantTransferOwnership,     // "cant_transfer_ownership"
        insufficientQuota,         // "insufficient_quota"
        internalError,             // "internal_error"
        cantMoveSharedFolder,      // "cant_move_shared_folder"
        cantMoveIntoVault,         // "cant_move_into_vault"
        cantMoveIntoFamily,        // "cant_move_into_family"
        other,                     // "other" and any tag this client does not know
    };

    Tag tag = Tag::other;
    std::optional<DropboxWriteError> write;  // set when tag is fromWrite or to
    std::string lookup;                      // the LookupError tag when tag is fromLookup

    // From the "error" member of a 409 answer, or a batch entry's "relocation_error".
    static DropboxRelocationError fromJson(const Json& error);
};

// Error codes the Box client raises itself, without an answer from Box, when the
// account's authorisation cannot be used (expired and not renewable, revoked, missing).
inline constexpr int kBoxClientAuthErrorFirst = 20001;
inline constexpr int kBoxClientAuthErrorLast = 20005;

struct ProviderError {
    // The numeric code of the failure: the HTTP status of the provider's answer, or a
    // client's own code where the provider never answered (Box 20001-20005).
    std::optional<int> httpStatus;

    // Google: the reason of the first item of the structured error's "errors" list.
    std::optional<std::string> googleReason;
    // An OAuth token endpoint's "error" ("invalid_grant", ...).
    std::optional<std::string> oauthError;
    // OneDrive: the "code" of the error body ("itemNotFound", "nameAlreadyExists", ...).
    std::optional<std::string> oneDriveCode;
    // Box: the whole JSON error body.
    JsonBox boxErrorBody;
    // Evernote: EDAMErrorCode of the user/system exception, and the user exception's
    // "parameter" (the offending field, e.g. "Notebook.guid").
    std::optional<int> evernoteCode;
    std::optional<std::string> evernoteParameter;
    // Dropbox: the route's typed error of an upload, or of a move or rename.
    std::optional<DropboxUploadError> dropboxUploadError;
    std::optional<DropboxRelocationError> dropboxRelocationError;
    // Dropbox: a 409 route error's tags from the outside in ("path/conflict/folder"), the
    // WriteError of a route whose error union wraps one (create_folder "path", delete
    // "path_write", upload_session/finish "path"), and an upload session's correct_offset.
    std::string dropboxRouteTags;
    std::optional<DropboxWriteError> dropboxWriteError;
    std::optional<std::int64_t> dropboxCorrectOffset;

    // How long the service asked the caller to wait before asking again (Evernote's
    // rateLimitDuration), in seconds.
    std::optional<std::int64_t> retryAfterSeconds;

    // The answer said "try again later" (a rate limit, server trouble, a lost connection)
    // and the client's repeats ran out; a caller may resume or repeat later.
    bool transient = false;

    TransportErrorKind transport = TransportErrorKind::none;
    // A short readable text for logs and diagnostics; never carries credentials.
    std::string message;

    static ProviderError transportFailure(TransportErrorKind kind, std::string message);

    // Builders from an HTTP answer. A body that is not the documented JSON leaves the
    // service fields unset and keeps a shortened copy of it in `message`.
    // Google APIs: {"error": {"errors": [{"reason": ...}], "message": ...}}, and token
    // endpoints' {"error": "invalid_grant", "error_description": ...}.
    static ProviderError fromGoogleResponse(int status, std::string_view body);
    // OneDrive / Microsoft Graph: {"error": {"code": ..., "message": ...}}.
    static ProviderError fromOneDriveResponse(int status, std::string_view body);
    // Box: {"type": "error", "status": ..., "code": ..., "context_info": ...}.
    static ProviderError fromBoxResponse(int status, std::string_view body);
    // Dropbox: {"error_summary": ..., "error": {...}}; the route error is read on 409 only.
    static ProviderError fromDropboxUploadResponse(int status, std::string_view body);
    static ProviderError fromDropboxRelocationResponse(int status, std::string_view body);
    // Evernote: an EDAMUserException / EDAMSystemException.
    static ProviderError fromEvernote(int errorCode, std::optional<std::string> parameter,
                                      std::string message = {});
};

}  // namespace vxcloud
