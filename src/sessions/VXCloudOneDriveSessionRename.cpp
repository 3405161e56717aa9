// Rename: the found file gets the new name; with overwriting, a file already holding the
// new name is deleted first. A document that has gone from the folder is stored again from
// the host's regenerated PDF under its old name and then renamed; one changed elsewhere is,
// with overwriting, written over the found file and renamed. Either way the outcome comes
// through the rename callbacks.
#include "sessions/OneDriveSession.h"
#include "sessions/SessionSupport.h"
#include "vxcloud/model/VXCloudFile.h"

namespace vxcloud {

using namespace sessions;
using namespace onedrive_session;
using onedrive::ConflictBehavior;

void OneDriveSession::renameWithCloudFile(std::shared_ptr<VXCloudFile> file, std::string newFileName,
                                          std::shared_ptr<VXCloudFile> inParentFolder, bool overwriteExistingFile,
                                          CreatePDFBlock createPDFBlock) {
    auto ifItThrows = report::renameFails(self(), file);
    runInBackground(std::move(ifItThrows), [this, file, newName = std::move(newFileName), parent = std::move(inParentFolder),
                     overwriteExistingFile, createPDFBlock = std::move(createPDFBlock)] {
        if (!file || !hasSendableNames(*file) || !isSendableName(newName)) return report::renameFailed(self(), file, makeError(ErrorCode::fileUpload));
        const std::string folderId = parentId(parent);
        const StoredCopyLookup found = findFile(*file, parent, true);

        if (found.copy && !found.error) {
            if (!found.copy->id) return report::renameFailed(self(), file, makeError(ErrorCode::fileUpload));
            if (overwriteExistingFile) {
                VXCloudFile named(newName, false, false);
                const StoredCopyLookup clash = findFile(named, parent, false);
                if (clash.error) return report::renameFailed(self(), file, clash.error);
                if (clash.copy && clash.copy->id && *clash.copy->id != *found.copy->id) {
                    auto deleted = client_->deleteItem(*clash.copy->id);
                    if (!deleted.ok()) return report::renameFailed(self(), file, mappedError(deleted.error()));
                }
            }
            return _rename(file, *found.copy->id, newName);
        }

        // Gone from the folder, or changed elsewhere and to be overwritten: stored again from
        // the host's document, under the name the stored copy has (or the record's, when
        // there is none), then renamed.
        const bool gone = !found.copy && !found.error;
        const bool changedElsewhere = found.error && found.error->errorCode == ErrorCode::fileConflict;
        if (!gone && !(changedElsewhere && overwriteExistingFile)) {
            return report::renameFailed(self(), file, found.error);
        }
        if (changedElsewhere && !found.copy) return report::renameFailed(self(), file, makeError(ErrorCode::fileUpload));
        if (!takeRebuiltDocument(*file, createPDFBlock, kCategory)) {
            return report::renameFailed(self(), file, makeError(ErrorCode::fileUpload));
        }
        const std::string storedName = gone ? file->name : found.copy->name;
        auto stored = store(*file, folderId, storedName, gone ? ConflictBehavior::fail : ConflictBehavior::replace);
        if (!stored.ok()) return report::renameFailed(self(), file, mappedError(stored.error()));
        _rename(file, stored.value().id, newName);
    });
}

void OneDriveSession::_rename(const std::shared_ptr<VXCloudFile>& cloudFile, const std::string& itemId,
                              const std::string& newName) {
    auto renamed = client_->update(itemId, newName, std::nullopt);
    if (!renamed.ok()) return report::renameFailed(self(), cloudFile, mappedError(renamed.error()));
    auto record = VXCloudFile::initWithOneDriveItem(renamed.value());
    if (!record) return report::renameFailed(self(), cloudFile, makeError(ErrorCode::fileUpload));
    adoptServiceFields(*cloudFile, *record);
    report::renamed(self(), cloudFile);
}

}  // namespace vxcloud
