#pragma once
// Every failure reported to the host, reduced to one of eight codes. The code's string
// form is stored with the account ("error") and in upload status records.
#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "vxcloud/model/ProviderError.h"
#include "vxcloud/model/VXCloudService.h"

namespace vxcloud {

class VXCloudError {
public:
    enum class ErrorCode {
        authentication,       // "authentication": the account needs to be authorised again
        connection,           // "connection": network or server trouble; a retry may help
        fileConflict,         // "file_conflict": the remote file was changed elsewhere
        fileUpload,           // "file_upload": any other failure (the catch-all)
        monthlyQuotaReached,  // "monthly_quota_reached"
        missingFolder,        // "missing_folder": the upload folder no longer exists
        renameFailed,         // "rename_failed": a file with the target name exists
        storageQuotaReached,  // "storage_quota_reached": storage (or a global rate limit)
    };
    static constexpr std::array<ErrorCode, 8> allErrorCodes = {
        ErrorCode::authentication,      ErrorCode::connection,    ErrorCode::fileConflict,
        ErrorCode::fileUpload,          ErrorCode::monthlyQuotaReached,
        ErrorCode::missingFolder,       ErrorCode::renameFailed,  ErrorCode::storageQuotaReached,
    };

    explicit VXCloudError(ErrorCode code) noexcept : errorCode(code) {}
    VXCloudError() = delete;

    ErrorCode errorCode;
    // The seconds the service asked to wait before asking again, when it said (a rate limit).
    std::optional<std::int64_t> retryAfterSeconds;

    // The string form of errorCode, as stored and shown to the host.
    std::string getErrorCode() const { return std::string(rawValue(errorCode)); }

    static std::string_view rawValue(ErrorCode code) noexcept;
    // Exactly the eight string forms; anything else is nothing.
    static std::optional<ErrorCode> fromString(std::string_view raw) noexcept;

    // Classifies a provider's error by the account's service. Dropbox, OneNote and WebDAV
    // errors are `fileUpload` here: Dropbox's are classified from their typed route
    // errors, OneNote's session picks its own codes.
    static std::shared_ptr<VXCloudError> initWithError(const ProviderError& error,
                                                       VXCloudService cloudService);

    // Google's structured reason, else the OAuth error response's "error".
    static std::optional<std::string> getErrorReason(const ProviderError& error);

    static ErrorCode errorCodeFromGoogleDriveError(const ProviderError& error);
    static ErrorCode errorCodeFromOneDriveError(const ProviderError& error);
    static ErrorCode errorCodeFromBoxError(const ProviderError& error);
    static ErrorCode errorCodeFromEvernoteError(const ProviderError& error);

    // Dropbox's typed route errors of an upload, and of a move or rename.
    static ErrorCode handleRouteUploadError(const DropboxUploadError& error);
    static ErrorCode handleRouteRelocationError(const DropboxRelocationError& error);
    // The same over a provider error; one without that route error is `fileUpload`.
    static ErrorCode handleRouteUploadError(const ProviderError& error);
    static ErrorCode handleRouteRelocationError(const ProviderError& error);
};

using ErrorCode = VXCloudError::ErrorCode;

// OneDrive's error code strings, under the names the classifier's rules use.
namespace onedrive {
inline constexpr std::string_view ODAccessDeniedError = "accessDenied";
inline constexpr std::string_view ODNotAllowedError = "notAllowed";
inline constexpr std::string_view ODUnAuthenticatedError = "unauthenticated";
inline constexpr std::string_view ODResyncRequiredError = "resyncRequired";
inline constexpr std::string_view ODItemNotFoundError = "itemNotFound";
inline constexpr std::string_view ODNameAlreadyExistsError = "nameAlreadyExists";
inline constexpr std::string_view ODResourceModifiedError = "resourceModified";
inline constexpr std::string_view ODQuotaLimitReacherError = "quotaLimitReached";
}  // namespace onedrive

}  // namespace vxcloud
