#pragma once
// What a dry run (--dry-run) says an account would get: where the document would go and
// what would become of the copy stored there, from the host's records and the document on
// disk. Nothing here asks a service anything.
#include <string>

#include "DocumentJobs.h"
#include "vxcloud/model/VXCloudAccount.h"
#include "vxcloud/platform/Json.h"

namespace vxcloud::cli {

// An upload of `documentPath` (stored as `name`) to the account, whose upload folder is where
// its copy is; `record` is its stored record of the document (null when none).
AccountOutcome plannedUpload(const VXCloudAccount& account, const Json& record, const std::string& documentPath,
                             const std::string& name, bool overwrite);
AccountOutcome plannedRename(const VXCloudAccount& account, const std::string& newName);
AccountOutcome plannedMove(const VXCloudAccount& account, const std::string& fromPath, const std::string& toPath);

// The plan as people read it: per document what would happen on each account, then that
// nothing was done.
std::string dryRunText(const JobReport& report);

}  // namespace vxcloud::cli
