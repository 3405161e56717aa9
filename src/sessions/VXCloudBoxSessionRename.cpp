// Rename: the found file gets the new name. With overwriting, a file already holding the new
// name is deleted first. A document that has gone from the folder, or was changed elsewhere
// while overwriting is allowed, is stored again from the host's regenerated PDF and then
// renamed, so the outcome still arrives through the rename callbacks.
#include "sessions/BoxSession.h"
#include "sessions/SessionSupport.h"
#include "vxcloud/model/VXCloudFile.h"

namespace vxcloud {

using namespace sessions;
using namespace box_session;

void BoxSession::renameWithCloudFile(std::shared_ptr<VXCloudFile> file, std::string newFileName,
                                     std::shared_ptr<VXCloudFile> inParentFolder, bool overwriteExistingFile,
                                     CreatePDFBlock createPDFBlock) {
    auto ifItThrows = report::renameFails(self(), file);
    runInBackground(std::move(ifItThrows), [this, file, newName = std::move(newFileName), parent = std::move(inParentFolder),
                     overwriteExistingFile, createPDFBlock = std::move(createPDFBlock)] {
        if (!file || !hasSendableNames(*file) || !isSendableName(newName)) {
            return report::renameFailed(self(), file, makeError(ErrorCode::fileUpload));
        }
        const std::string parentId = folderId(parent);
        const StoredCopyLookup found = findFile(*file, parentId, true);

        if (found.copy && !found.error) {
            if (!found.copy->id) return report::renameFailed(self(), file, makeError(ErrorCode::fileUpload));
            if (overwriteExistingFile) {
                VXCloudFile fresh(newName, false, false);
                const StoredCopyLookup clash = findFile(fresh, parentId, false);
                if (clash.error) return report::renameFailed(self(), file, clash.error);
                // A clash that is the document itself (a change of letter case) stays.
                if (clash.copy && clash.copy->id && clash.copy->id != found.copy->id) {
                    auto deleted = client_->deleteFile(*clash.copy->id);
                    if (!deleted.ok()) return report::renameFailed(self(), file, mappedError(deleted.error()));
                }
            }
            return _rename(file, *found.copy->id, newName);
        }

        const bool changedElsewhere = found.error && found.error->errorCode == ErrorCode::fileConflict;
        const bool storeAgain = !found.error || (changedElsewhere && overwriteExistingFile);
        if (!storeAgain) return report::renameFailed(self(), file, found.error);
        if (!takeRebuiltDocument(*file, createPDFBlock, kCategory)) {
            return report::renameFailed(self(), file, makeError(ErrorCode::fileUpload));
        }
        auto stored = storeNew(*file, parentId, false);
        if (!stored.ok()) return report::renameFailed(self(), file, mappedError(stored.error()));
        _rename(file, stored.value().id, newName);
    });
}

void BoxSession::_rename(const std::shared_ptr<VXCloudFile>& cloudFile, const std::string& fileId,
                         const std::string& newName) {
    auto renamed = client_->updateFile(fileId, newName, std::nullopt);
    if (!renamed.ok()) return report::renameFailed(self(), cloudFile, mappedError(renamed.error()));
    auto record = VXCloudFile::initWithBoxItem(renamed.value());
    if (!record) return report::renameFailed(self(), cloudFile, makeError(ErrorCode::fileUpload));
    adoptServiceFields(*cloudFile, *record);
    report::renamed(self(), cloudFile);
}

}  // namespace vxcloud
