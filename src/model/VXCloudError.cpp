#include "vxcloud/model/VXCloudError.h"

#include <algorithm>
#include <initializer_list>
#include <nlohmann/json.hpp>

namespace vxcloud {
namespace {

using Code = VXCloudError::ErrorCode;

constexpr std::array<std::string_view, 8> kRawValues = {
    "authentication", "connection",     "file_conflict", "file_upload",
    "monthly_quota_reached", "missing_folder", "rename_failed", "storage_quota_reached",
};

template <typename T>
bool isOneOf(const T& value, std::initializer_list<T> candidates) {
    return std::find(candidates.begin(), candidates.end(), value) != candidates.end();
}

Code googleCodeForReason(std::string_view reason) {
    // The per-user rate limit is a plain upload failure; the daily, global and sharing
    // limits are reported as a quota error.
    using R = std::string_view;
    if (isOneOf<R>(reason, {"fieldNotWritable", "notFound", "badRequest", "invalidSharingRequest",
                            "userRateLimitExceeded"}))
        return Code::fileUpload;
    if (isOneOf<R>(reason, {"authError", "appNotAuthorizedToFile", "insufficientFilePermissions",
                            "domainPolicy"}))
        return Code::authentication;
    if (isOneOf<R>(reason, {"dailyLimitExceeded", "rateLimitExceeded", "sharingRateLimitExceeded"}))
        return Code::storageQuotaReached;
    if (reason == "backendError") return Code::connection;
    if (reason == "invalid_grant") return Code::authentication;
    return Code::fileUpload;
}

Code oneDriveCodeForErrorCode(std::string_view code) {
    using namespace onedrive;
    using R = std::string_view;
    if (isOneOf<R>(code, {ODAccessDeniedError, ODNotAllowedError, ODUnAuthenticatedError,
                          ODResyncRequiredError}))
        return Code::authentication;
    if (code == ODItemNotFoundError) return Code::missingFolder;
    if (code == ODNameAlreadyExistsError) return Code::renameFailed;
    if (code == ODResourceModifiedError) return Code::fileConflict;
    if (code == ODQuotaLimitReacherError) return Code::storageQuotaReached;
    return Code::fileUpload;
}

Code oneDriveCodeForStatus(int status) {
    switch (status) {
        case 401:
        case 403: return Code::authentication;
        case 404: return Code::missingFolder;
        case 409: return Code::renameFailed;
        case 413: return Code::storageQuotaReached;
        case 500:
        case 501:
        case 503: return Code::connection;
        case 507: return Code::storageQuotaReached;
        default: return Code::fileUpload;
    }
}

// context_info.errors[0].name of a Box error body, when every step is there.
std::optional<std::string> boxFirstErrorName(const Json& body) {
    auto info = body.find("context_info");
    if (info == body.end() || !info->is_object()) return std::nullopt;
    auto errors = info->find("errors");
    if (errors == info->end() || !errors->is_array() || errors->empty()) return std::nullopt;
    const Json& first = errors->front();
    if (!first.is_object()) return std::nullopt;
    auto name = first.find("name");
    if (name == first.end() || !name->is_string()) return std::nullopt;
    return name->get<std::string>();
}

Code boxCodeWithBody(int status, const Json& body) {
    switch (status) {
        case 401:
        case 403: return Code::authentication;
        case 404: return boxFirstErrorName(body) == "folder" ? Code::missingFolder : Code::fileUpload;
        case 409: {
            auto code = body.find("code");
            const bool nameInUse =
                code != body.end() && code->is_string() && *code == "item_name_in_use";
            return nameInUse ? Code::renameFailed : Code::fileConflict;
        }
        case 507: return Code::storageQuotaReached;
        case 997: return Code::authentication;
        default: return Code::fileUpload;  // 402, 405-408 and every other status
    }
}

// A write failure of an upload, or of a move's source or destination; in a move a
// conflict with a file means the target name is taken.
Code writeErrorCode(const DropboxWriteError& error, bool relocation) {
    using Tag = DropboxWriteError::Tag;
    switch (error.tag) {
        case Tag::conflict:
            if (relocation && error.conflict == DropboxWriteError::Conflict::file)
                return Code::renameFailed;
            return Code::fileConflict;
        case Tag::noWritePermission: return Code::authentication;
        case Tag::insufficientSpace: return Code::storageQuotaReached;
        case Tag::malformedPath:
        case Tag::disallowedName:
        case Tag::teamFolder:
        case Tag::operationSuppressed:
        case Tag::tooManyWriteOperations:
        case Tag::accessRestricted:
        case Tag::other: return Code::fileUpload;
    }
    return Code::fileUpload;
}

}  // namespace

std::string_view VXCloudError::rawValue(ErrorCode code) noexcept {
    const auto index = static_cast<std::size_t>(code);
    return index < kRawValues.size() ? kRawValues[index] : std::string_view("file_upload");
}

std::optional<VXCloudError::ErrorCode> VXCloudError::fromString(std::string_view raw) noexcept {
    for (ErrorCode code : allErrorCodes) {
        if (rawValue(code) == raw) return code;
    }
    return std::nullopt;
}

std::shared_ptr<VXCloudError> VXCloudError::initWithError(const ProviderError& error,
                                                          VXCloudService cloudService) {
    ErrorCode code = ErrorCode::fileUpload;
    switch (cloudService) {
        case VXCloudService::googleDrive: code = errorCodeFromGoogleDriveError(error); break;
        case VXCloudService::oneDrive: code = errorCodeFromOneDriveError(error); break;
        case VXCloudService::box: code = errorCodeFromBoxError(error); break;
        case VXCloudService::evernote: code = errorCodeFromEvernoteError(error); break;
        case VXCloudService::dropbox:
        case VXCloudService::oneNote:
        case VXCloudService::webDAV: break;
    }
    auto classified = std::make_shared<VXCloudError>(code);
    classified->retryAfterSeconds = error.retryAfterSeconds;
    return classified;
}

std::optional<std::string> VXCloudError::getErrorReason(const ProviderError& error) {
    if (error.googleReason) return error.googleReason;
    return error.oauthError;
}

VXCloudError::ErrorCode VXCloudError::errorCodeFromGoogleDriveError(const ProviderError& error) {
    if (auto reason = getErrorReason(error)) return googleCodeForReason(*reason);
    const int status = error.httpStatus.value_or(0);
    if (status >= 400 && status <= 499) return ErrorCode::fileUpload;
    if (status >= 500 && status <= 599) return ErrorCode::connection;
    return ErrorCode::fileUpload;
}

VXCloudError::ErrorCode VXCloudError::errorCodeFromOneDriveError(const ProviderError& error) {
    if (error.oneDriveCode) return oneDriveCodeForErrorCode(*error.oneDriveCode);
    return oneDriveCodeForStatus(error.httpStatus.value_or(0));
}

VXCloudError::ErrorCode VXCloudError::errorCodeFromBoxError(const ProviderError& error) {
    const int status = error.httpStatus.value_or(0);
    const Json* body = error.boxErrorBody.get();
    if (!body || !body->is_object()) {
        // Without an answer from Box only the client's own authorisation failures are known.
        const bool clientAuthError =
            status >= kBoxClientAuthErrorFirst && status <= kBoxClientAuthErrorLast;
        return clientAuthError ? ErrorCode::authentication : ErrorCode::fileUpload;
    }
    return boxCodeWithBody(status, *body);
}

VXCloudError::ErrorCode VXCloudError::errorCodeFromEvernoteError(const ProviderError& error) {
    if (!error.evernoteCode) return ErrorCode::fileUpload;
    switch (*error.evernoteCode) {
        case 3:
        case 8:
        case 9:
        case 20:
        case 24:
        case 25:
        case 26:
        case 27: return ErrorCode::authentication;
        case 4:
            return error.evernoteParameter == "Notebook.guid" ? ErrorCode::missingFolder
                                                               : ErrorCode::connection;
        case 6:
        case 19:
        case 21: return ErrorCode::storageQuotaReached;
        case 7: return ErrorCode::monthlyQuotaReached;
        case 10: return ErrorCode::fileConflict;
        default: return ErrorCode::fileUpload;
    }
}

VXCloudError::ErrorCode VXCloudError::handleRouteUploadError(const DropboxUploadError& error) {
    if (error.tag != DropboxUploadError::Tag::path || !error.reason) return ErrorCode::fileUpload;
    return writeErrorCode(*error.reason, /*relocation=*/false);
}

VXCloudError::ErrorCode VXCloudError::handleRouteRelocationError(const DropboxRelocationError& error) {
    using Tag = DropboxRelocationError::Tag;
    switch (error.tag) {
        case Tag::fromWrite:
        case Tag::to:
            return error.write ? writeErrorCode(*error.write, /*relocation=*/true)
                               : ErrorCode::fileUpload;
        case Tag::insufficientQuota: return ErrorCode::storageQuotaReached;
        case Tag::internalError: return ErrorCode::connection;
        default: return ErrorCode::fileUpload;  // from_lookup and the rest
    }
}

VXCloudError::ErrorCode VXCloudError::handleRouteUploadError(const ProviderError& error) {
    return error.dropboxUploadError ? handleRouteUploadError(*error.dropboxUploadError)
                                    : ErrorCode::fileUpload;
}

VXCloudError::ErrorCode VXCloudError::handleRouteRelocationError(const ProviderError& error) {
    return error.dropboxRelocationError ? handleRouteRelocationError(*error.dropboxRelocationError)
                                        : ErrorCode::fileUpload;
}

}  // namespace vxcloud
