#pragma once
// The per-document, per-account upload status record that the host keeps beside each
// document and passes in again on the next request, and the notification that carries
// a task's records to the host. Records are JSON objects; their keys and words are a
// stored format and never change.
#include <memory>

#include "vxcloud/platform/Json.h"

namespace vxcloud {

class VXCloudAccount;
class VXCloudError;

namespace uploadstatus {
// Record keys.
inline constexpr const char kAccountId[] = "accountId";
inline constexpr const char kAccountType[] = "accountType";
inline constexpr const char kStatus[] = "status";
inline constexpr const char kNeedsUpdate[] = "needsUpdate";
inline constexpr const char kError[] = "error";
inline constexpr const char kDocumentId[] = "documentId";
inline constexpr const char kVersion[] = "version";
inline constexpr const char kNeedsRenameUpdate[] = "needsRenameUpdate";
// On a failure only: the seconds the service asked to wait before the next try (Evernote's
// rate limit), when it named them.
inline constexpr const char kRetryAfter[] = "retryAfter";
// On a successful upload: true when the document's bytes were sent, false when its content
// was found stored already (nothing sent). Absent when the service's session cannot say.
inline constexpr const char kContentSent[] = "contentSent";

// "status" words.
inline constexpr const char kPending[] = "pending";
inline constexpr const char kSuccessful[] = "successful";
inline constexpr const char kStatusError[] = "error";

// Keys of a task's collection and of the notification's user-info.
inline constexpr const char kUploadStatusResponse[] = "uploadStatusResponse";
inline constexpr const char kFileIdentifier[] = "fileIdentifier";
inline constexpr const char kUploadStatus[] = "uploadStatus";
inline constexpr const char kMoveStatus[] = "moveStatus";
}  // namespace uploadstatus

// {"accountId": email, "accountType": type word, "needsRenameUpdate": false}.
Json configureUploadStatusDict(const VXCloudAccount& cloudAccount);

// A failure found before (or instead of) asking a session: "accountId", "accountType",
// "error" (the code's word), "status" "error", "needsUpdate" true, and
// "needsRenameUpdate" true exactly for "rename_failed".
Json getErrorStatus(const VXCloudAccount& account, const VXCloudError& cloudError);

// Posts "VXCloudUploadStatusNotification" on the default centre with user-info
// {"uploadStatus": uploadStatus}.
void postUploadStatusNotification(std::shared_ptr<void> sender, const Json& uploadStatus);

}  // namespace vxcloud
