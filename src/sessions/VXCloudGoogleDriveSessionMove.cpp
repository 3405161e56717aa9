// Move: the source folder's documents are paired with the records by their stored
// checksum, then each file's parents are changed in its own request, side by side on
// global queues and at most four at a time. One report follows when all have answered.
#include "sessions/SessionSupport.h"
#include "sessions/GoogleDriveSession.h"
#include "vxcloud/model/VXCloudFile.h"
#include "vxcloud/platform/Dispatch.h"

namespace vxcloud {

using namespace sessions;
using namespace google_session;

namespace {

// Gathered on the move queue; read once the group is empty.
struct MoveOutcome {
    VXCloudFileList moved;
    VXCloudFileList notMoved;
};

}  // namespace

std::optional<std::vector<GoogleDriveSession::Pair>> GoogleDriveSession::findFiles(
    const VXCloudFileList& cloudFiles, const std::shared_ptr<VXCloudFile>& inFolder) {
    auto listed = client_->listFiles(folderContentsQuery(folderId(inFolder, true)), kLookupFields);
    if (!listed.ok()) return std::nullopt;
    const std::vector<drive::File>& files = listed.value();
    std::vector<bool> taken(files.size(), false);
    std::vector<Pair> pairs;
    for (const auto& record : cloudFiles) {
        Pair pair{record, std::nullopt};
        const auto version = record ? record->getVersionFromUploadStatus() : std::nullopt;
        if (version) {
            // Same content may be stored twice: a file of the record's stored name is
            // preferred, and no file is paired with two records.
            std::optional<std::size_t> chosen;
            for (std::size_t i = 0; i < files.size(); ++i) {
                if (taken[i] || !files[i].md5Checksum || !equalsIgnoringCase(*files[i].md5Checksum, *version)) continue;
                if (!chosen) chosen = i;
                if (files[i].name == record->getNameFromUploadStatus()) {
                    chosen = i;
                    break;
                }
            }
            if (chosen) {
                taken[*chosen] = true;
                pair.file = files[*chosen];
            }
        }
        pairs.push_back(std::move(pair));
    }
    return pairs;
}

void GoogleDriveSession::moveWithCloudFiles(VXCloudFileList files, std::shared_ptr<VXCloudFile> fromFolder,
                                            std::shared_ptr<VXCloudFile> toFolder) {
    runInBackground([this, files = std::move(files), from = std::move(fromFolder), to = std::move(toFolder)] {
        // A target without an id would leave each file with no parent at all: nothing moves.
        const std::string toId = folderId(to, false);
        if (toId.empty()) return report::moved(self(), {}, files);
        const auto pairs = findFiles(files, from);
        if (!pairs) return report::moved(self(), {}, files);

        auto moveQueue = ConcurrentQueue::create(kMoveQueueLabel);
        auto group = std::make_shared<DispatchGroup>();
        auto outcome = std::make_shared<MoveOutcome>();
        // Records without a stored file are not moved; this happens before any move runs.
        for (const auto& pair : *pairs) {
            if (pair.file && pair.file->identifier) continue;
            if (pair.record) pair.record->error = VXCloudError(ErrorCode::missingFolder).getErrorCode();
            outcome->notMoved.push_back(pair.record);
        }
        // The parent to give up is the folder the files were found in (an empty id there
        // stands for the top folder); Drive refuses a second parent.
        const std::string fromId = folderId(from, true);
        for (const auto& pair : *pairs) {
            if (!pair.file || !pair.file->identifier) continue;
            group->enter();
            auto keepAlive = self();
            DispatchQueue::global()->async([this, keepAlive, pair, fromId, toId, moveQueue, group, outcome] {
                moveSemaphore_.acquire();
                bool moved = false;
                guarded(kCategory, "a move", [&] {
                    moved = client_->updateMetadata(*pair.file->identifier, {}, toId, fromId, kMoveFields).ok();
                });
                moveSemaphore_.release();
                moveQueue->asyncBarrier([pair, moved, outcome, group] {
                    (moved ? outcome->moved : outcome->notMoved).push_back(pair.record);
                    group->leave();
                });
            });
        }
        auto keepAlive = self();
        group->notify(moveQueue, [keepAlive, outcome] { report::moved(keepAlive, outcome->moved, outcome->notMoved); });
    });
}

}  // namespace vxcloud
