// Move: the source folder's files are paired with the records by the digest recorded at
// upload, then each file's parent is changed in its own PATCH, at most four at a time. A
// pair whose request fails, however it fails, is reported not moved: a move always reports.
#include <map>

#include "sessions/OneDriveSession.h"
#include "sessions/SessionSupport.h"
#include "vxcloud/model/VXCloudFile.h"
#include "vxcloud/model/VXCloudOneDriveVersion.h"

namespace vxcloud {

using namespace sessions;
using namespace onedrive_session;

std::optional<std::vector<MovePair>> OneDriveSession::findFiles(const VXCloudFileList& cloudFiles,
                                                                const std::shared_ptr<VXCloudFile>& inFolder) {
    auto listed = client_->listChildrenAtPath(lookupPath(inFolder));
    if (!listed.ok()) return std::nullopt;
    const auto& items = listed.value().items;
    VXCloudFileList stored;
    std::map<std::string, const onedrive::Item*> byId;
    for (const auto& item : items) {
        if (!item.isFile) continue;
        stored.push_back(VXCloudFile::initWithOneDriveItem(item));
        byId.emplace(item.id, &item);
    }
    // The recorded version is whichever digest the drive reported at upload.
    return pairByRecordedVersion(cloudFiles, stored, [&](const std::string& version, const VXCloudFile& copy) {
        const auto item = copy.id ? byId.find(*copy.id) : byId.end();
        return item != byId.end() && holdsContent(*item->second, VXCloudOneDriveVersion::parse(version));
    });
}

void OneDriveSession::moveWithCloudFiles(VXCloudFileList files, std::shared_ptr<VXCloudFile> fromFolder,
                                         std::shared_ptr<VXCloudFile> toFolder) {
    if (!toFolder || !toFolder->id) return report::moved(self(), {}, files);
    auto ifItThrows = report::moveFails(self(), files);
    runInBackground(std::move(ifItThrows), [this, files = std::move(files), from = std::move(fromFolder), toId = *toFolder->id] {
        const auto pairs = findFiles(files, from);
        if (!pairs) return report::moved(self(), {}, files);
        moveConcurrently(self(), *pairs, moveSemaphore_, kMoveQueueLabel, kCategory, [this, toId](const MovePair& pair) {
            return client_->update(*pair.stored->id, std::nullopt, toId).ok();
        });
    });
}

}  // namespace vxcloud
