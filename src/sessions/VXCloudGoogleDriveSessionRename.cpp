// Rename: the found file gets the new name. A document that has gone from the folder, or
// was changed elsewhere, is stored again from the host's regenerated PDF under the new name,
// and that store is reported with the upload callbacks, not the rename ones.
#include "sessions/SessionSupport.h"
#include "sessions/GoogleDriveSession.h"
#include "vxcloud/model/VXCloudFile.h"

namespace vxcloud {

using namespace sessions;
using namespace google_session;

void GoogleDriveSession::renameWithCloudFile(std::shared_ptr<VXCloudFile> file, std::string newFileName,
                                             std::shared_ptr<VXCloudFile> inParentFolder, bool,
                                             CreatePDFBlock createPDFBlock) {
    auto ifItThrows = report::renameFails(self(), file);
    runInBackground(std::move(ifItThrows), [this, file, newName = std::move(newFileName), parent = std::move(inParentFolder),
                     createPDFBlock = std::move(createPDFBlock)] {
        if (!file || !hasSendableNames(*file) || !isSendableName(newName)) return report::renameFailed(self(), file, makeError(ErrorCode::fileUpload));
        const StoredCopyLookup found = findFile(*file, parent, true);

        if (found.copy && !found.error) {
            if (!found.copy->id) return report::renameFailed(self(), file, makeError(ErrorCode::fileUpload));
            drive::FileMetadata metadata;
            metadata.name = newName;
            auto renamed = client_->updateMetadata(*found.copy->id, metadata, {}, {}, kUpdateFields);
            if (!renamed.ok()) {
                return report::renameFailed(self(), file, VXCloudError::initWithError(renamed.error(),
                                                                                      VXCloudService::googleDrive));
            }
            auto record = VXCloudFile::initWithFile(renamed.value());
            if (!record) return report::renameFailed(self(), file, makeError(ErrorCode::fileUpload));
            if (!record->id) record->id = found.copy->id;
            adoptServiceFields(*file, *record);
            return report::renamed(self(), file);
        }

        // Gone, or changed elsewhere (whatever the overwrite flag says): store it again.
        const bool rebuild = !found.error || found.error->errorCode == ErrorCode::fileConflict;
        if (!rebuild) return report::renameFailed(self(), file, found.error);
        if (!takeRebuiltDocument(*file, createPDFBlock, kCategory)) {
            return report::renameFailed(self(), file, makeError(ErrorCode::fileUpload));
        }
        _upload(file, parent, newName);
    });
}

}  // namespace vxcloud
