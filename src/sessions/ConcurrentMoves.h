#pragma once
// How sessions that move documents one request each do it: the records are paired with
// the stored copies found in the source folder by the version recorded at upload, then
// every pair is moved on a global queue, at most as many at once as the session's limit
// allows, and one report follows when all have answered. Services differ only in how one
// copy is moved and how a recorded version is compared.
#include <functional>
#include <memory>
#include <semaphore>
#include <string>
#include <string_view>
#include <vector>

#include "vxcloud/model/VXCloudFile.h"
#include "vxcloud/sessions/VXCloudSession.h"

namespace vxcloud::sessions {

struct MovePair {
    std::shared_ptr<VXCloudFile> record;  // the caller's
    std::shared_ptr<VXCloudFile> stored;  // the stored copy, as a record with its id; null when none
};

// Whether a stored copy holds the version a record was stored with.
using VersionMatch = std::function<bool(const std::string& recordedVersion, const VXCloudFile& stored)>;

// Pairs each record that has a recorded version with a stored copy of that version. The
// same content may be stored twice: a copy of the record's stored name is preferred, and
// no copy is paired with two records.
std::vector<MovePair> pairByRecordedVersion(const VXCloudFileList& records, const VXCloudFileList& stored,
                                            const VersionMatch& matches);

// Moves every pair with `moveOne` (true when moved), each on a global queue after taking
// `limit`. Records without a stored copy are not moved and marked `missingFolder`. The
// report is made once, from the queue `queueLabel`, with the moved records in the order
// they were moved. `session` is kept alive until then, and with it `limit`.
void moveConcurrently(const std::shared_ptr<VXCloudSession>& session, const std::vector<MovePair>& pairs,
                      std::counting_semaphore<>& limit, const std::string& queueLabel, std::string_view category,
                      std::function<bool(const MovePair&)> moveOne);

}  // namespace vxcloud::sessions
