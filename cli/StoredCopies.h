#pragma once
// What the host's records say about a document's stored copies, for the next request: where
// each copy is (a document moved to another folder is updated there, not stored again in the
// upload folder), and whether the local document changed since it was stored (then the
// stored copy is replaced when the service still holds the recorded version, and only a copy
// changed elsewhere is a conflict).
#include <memory>
#include <string>
#include <vector>

#include "RecordStore.h"
#include "vxcloud/model/VXCloudAccount.h"
#include "vxcloud/platform/ByteBuffer.h"

namespace vxcloud::cli {

// The accounts, each one whose copy is recorded in another folder than its upload folder
// replaced by a copy of it whose upload folder is that folder (when the folder can still be
// found at the service).
std::vector<std::shared_ptr<VXCloudAccount>> atStoredFolders(const std::vector<std::shared_ptr<VXCloudAccount>>& accounts,
                                                             const std::vector<RecordRow>& rows);

// Whether `data` differs from what the account's successful record says was stored (by the
// service's digest). False without such a record.
bool changedSinceStored(const VXCloudAccount& account, const Json& record, const ByteBuffer& data);

}  // namespace vxcloud::cli
