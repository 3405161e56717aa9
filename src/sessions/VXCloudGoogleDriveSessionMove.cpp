// Move: the source folder's documents are paired with the records by their stored
// checksum, then each file's parents are changed in its own request, side by side on
// global queues and at most four at a time. One report follows when all have answered.
#include "sessions/ConcurrentMoves.h"
#include "sessions/GoogleDriveSession.h"
#include "sessions/SessionSupport.h"
#include "vxcloud/model/VXCloudFile.h"

namespace vxcloud {

using namespace sessions;
using namespace google_session;

std::optional<std::vector<MovePair>> GoogleDriveSession::findFiles(const VXCloudFileList& cloudFiles,
                                                                   const std::shared_ptr<VXCloudFile>& inFolder) {
    auto listed = client_->listFiles(folderContentsQuery(folderId(inFolder, true)), kLookupFields);
    if (!listed.ok()) return std::nullopt;
    VXCloudFileList stored;
    for (const auto& file : listed.value()) stored.push_back(VXCloudFile::initWithFile(file));
    return pairByRecordedVersion(cloudFiles, stored, [](const std::string& version, const VXCloudFile& copy) {
        return copy.version && equalsIgnoringCase(*copy.version, version);
    });
}

void GoogleDriveSession::moveWithCloudFiles(VXCloudFileList files, std::shared_ptr<VXCloudFile> fromFolder,
                                            std::shared_ptr<VXCloudFile> toFolder) {
    auto ifItThrows = report::moveFails(self(), files);
    runInBackground(std::move(ifItThrows), [this, files = std::move(files), from = std::move(fromFolder), to = std::move(toFolder)] {
        // A target without an id would leave each file with no parent at all: nothing moves.
        const std::string toId = folderId(to, false);
        if (toId.empty()) return report::moved(self(), {}, files);
        const auto pairs = findFiles(files, from);
        if (!pairs) return report::moved(self(), {}, files);
        // The parent to give up is the folder the files were found in (an empty id there
        // stands for the top folder); Drive refuses a second parent.
        const std::string fromId = folderId(from, true);
        moveConcurrently(self(), *pairs, moveSemaphore_, kMoveQueueLabel, kCategory,
                         [this, fromId, toId](const MovePair& pair) {
                             return client_->updateMetadata(*pair.stored->id, {}, toId, fromId, kMoveFields).ok();
                         });
    });
}

}  // namespace vxcloud
