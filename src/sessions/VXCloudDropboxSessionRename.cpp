// Rename: a stored document is moved to its new name; one that has gone from the folder is
// stored again from the host's regenerated PDF and then moved.
#include "sessions/DropboxSession.h"
#include "vxcloud/model/VXCloudFile.h"
#include "vxcloud/platform/Log.h"

namespace vxcloud {

using namespace dropbox_session;
using dropbox::WriteMode;

void DropboxSession::renameWithCloudFile(std::shared_ptr<VXCloudFile> file, std::string newFileName,
                                         std::shared_ptr<VXCloudFile> inParentFolder,
                                         bool overwriteExistingFile, CreatePDFBlock createPDFBlock) {
    auto ifItThrows = sessions::report::renameFails(self(), file);
    runInBackground(std::move(ifItThrows), [this, file, newName = std::move(newFileName), parent = std::move(inParentFolder),
                     overwrite = overwriteExistingFile, createPDFBlock = std::move(createPDFBlock)] {
        if (!file || !sessions::hasSendableNames(*file) || !isSendableName(newName)) {
            return reportRenameFailed(file, makeError(ErrorCode::fileUpload));
        }
        if (!isStorableName(newName) || !isStorableName(file->getNameFromUploadStatus())) {
            // A "/" would move the document into a sub-folder instead of renaming it.
            log::warning("dropbox", "a name that is empty or holds \"/\" cannot be given on Dropbox");
            return reportRenameFailed(file, makeError(ErrorCode::fileUpload));
        }
        const std::string prefix = folderPrefix(parent);
        const std::string currentPath = prefix + file->getNameFromUploadStatus();
        const std::string newPath = prefix + newName;

        const sessions::StoredCopyLookup found = findFile(*file, parent, true);
        if (found.copy && !found.error) {
            if (!overwrite) return _rename(file, currentPath, newPath);
            // Make room: remove what carries the new name. When nothing does, the delete
            // fails and so does the rename; callers rely on that outcome.
            const VXCloudFile wanted(newName, false, false);
            const sessions::StoredCopyLookup occupant = findFile(wanted, parent, false);
            if (occupant.error) return reportRenameFailed(file, occupant.error);
            const std::string target = occupant.copy && occupant.copy->path ? *occupant.copy->path : newPath;
            if (!deleteFile(target)) return reportRenameFailed(file, makeError(ErrorCode::renameFailed));
            return _rename(file, currentPath, newPath);
        }
        if (!found.copy && !found.error) {
            return rebuildAndRename(file, parent, WriteMode::add, createPDFBlock, currentPath, newPath);
        }
        if (found.error && found.error->errorCode == ErrorCode::fileConflict && overwrite) {
            return rebuildAndRename(file, parent, WriteMode::overwrite, createPDFBlock, currentPath, newPath);
        }
        reportRenameFailed(file, found.error ? found.error : makeError(ErrorCode::fileUpload));
    });
}

void DropboxSession::rebuildAndRename(const std::shared_ptr<VXCloudFile>& file,
                                      const std::shared_ptr<VXCloudFile>& parent, WriteMode mode,
                                      const CreatePDFBlock& createPDFBlock, const std::string& currentPath,
                                      const std::string& newPath) {
    if (!sessions::takeRebuiltDocument(*file, createPDFBlock, "dropbox")) {
        return reportRenameFailed(file, makeError(ErrorCode::fileUpload));
    }
    // A failed store ends the rename, reported as a rename outcome.
    _upload(
        file, parent, mode,
        [this, currentPath, newPath](const std::shared_ptr<VXCloudFile>& stored) {
            _rename(stored, currentPath, newPath);
        },
        [this, file](const std::shared_ptr<VXCloudError>& error) { reportRenameFailed(file, error); });
}

void DropboxSession::_rename(const std::shared_ptr<VXCloudFile>& cloudFile, const std::string& currentPath,
                             const std::string& newPath) {
    auto moved = client_->moveV2(currentPath, newPath);
    if (!moved.ok()) {
        return reportRenameFailed(cloudFile,
                                  makeError(errorCodeFromCallError(moved.error(), RouteErrors::relocation)));
    }
    auto record = VXCloudFile::initWithMetadata(moved.value());
    if (!record) return reportRenameFailed(cloudFile, makeError(ErrorCode::fileUpload));
    adoptServiceFields(*cloudFile, *record);
    reportRenamed(cloudFile);
}

bool DropboxSession::deleteFile(const std::string& filePath) { return client_->deleteV2(filePath).ok(); }

}  // namespace vxcloud
