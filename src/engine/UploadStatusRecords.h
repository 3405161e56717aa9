#pragma once
// Building, finding and merging upload status records, shared by the upload, rename and
// move flows. Everything here tolerates whatever the host passed in: lists that are not
// arrays and entries that are not objects are passed over, never thrown at.
#include <memory>
#include <nlohmann/json.hpp>

#include "vxcloud/platform/Json.h"

namespace vxcloud {

class VXCloudAccount;
class VXCloudError;
class VXCloudFile;

namespace records {

// An upload just started: "accountId", "accountType", "needsUpdate" true, "status" "pending".
Json pendingUpload(const VXCloudAccount& account);
// A rename just started: "accountType", "accountId", "needsRenameUpdate" true, "status" "pending".
Json pendingRename(const VXCloudAccount& account);
// No session could be made for the account: "authentication".
Json noSession(const VXCloudAccount& account);
// A session's outcome: the file's name and version on success, the error's word on failure.
Json outcome(const VXCloudAccount& account, const VXCloudFile* file, const VXCloudError* error);
// The per-file report of a move: "documentId", "needsUpdate", "status", "error", merged over
// the file's earlier record.
Json moveOutcome(const VXCloudFile& file, bool moved);

// The first record in `list` (a JSON array) for the account ("accountId" = its email,
// "accountType" = its type word); with `withDocumentId`, one whose "documentId" is text.
const Json* find(const JsonBox& list, const VXCloudAccount& account, bool withDocumentId = false);

// `older` with every key of `newer` written over it; a null value in `newer` removes the
// key. Keys only `older` has survive. When `older` is not an object, `newer` as it is.
Json merge(const Json& older, const Json& newer);

}  // namespace records
}  // namespace vxcloud
