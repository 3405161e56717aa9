// Move: the source folder's files are paired with the records by the SHA-1 recorded at
// upload, then each file's parent is changed in its own request, at most four at a time. A
// pair whose request fails, however it fails, is reported not moved: a move always reports.
#include "sessions/BoxSession.h"
#include "sessions/SessionSupport.h"
#include "vxcloud/model/VXCloudFile.h"

namespace vxcloud {

using namespace sessions;
using namespace box_session;

std::optional<std::vector<MovePair>> BoxSession::findFiles(const VXCloudFileList& cloudFiles,
                                                           const std::string& inFolderId) {
    auto listed = client_->listFolder(inFolderId);
    if (!listed.ok()) return std::nullopt;
    VXCloudFileList stored;
    for (const auto& item : listed.value()) {
        if (item.isFile()) stored.push_back(VXCloudFile::initWithBoxItem(item));
    }
    return pairByRecordedVersion(cloudFiles, stored, [](const std::string& version, const VXCloudFile& copy) {
        return copy.version && equalsIgnoringCase(*copy.version, version);
    });
}

void BoxSession::moveWithCloudFiles(VXCloudFileList files, std::shared_ptr<VXCloudFile> fromFolder,
                                    std::shared_ptr<VXCloudFile> toFolder) {
    auto ifItThrows = report::moveFails(self(), files);
    runInBackground(std::move(ifItThrows), [this, files = std::move(files), fromId = folderId(fromFolder),
                                            toId = folderId(toFolder)] {
        const auto pairs = findFiles(files, fromId);
        if (!pairs) return report::moved(self(), {}, files);
        moveConcurrently(self(), *pairs, moveSemaphore_, kMoveQueueLabel, kCategory, [this, toId](const MovePair& pair) {
            return client_->updateFile(*pair.stored->id, std::nullopt, toId).ok();
        });
    });
}

}  // namespace vxcloud
