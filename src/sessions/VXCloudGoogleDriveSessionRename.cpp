// Rename: the found file gets the new name. A document that has gone from the folder, or
// was changed elsewhere, is stored again from the host's regenerated PDF under the new name,
// and that store is reported with the upload callbacks, not the rename ones.
#include "providers/google/GoogleDriveClient.h"
#include "sessions/SessionSupport.h"
#include "sessions/VXCloudGoogleDriveSessionSupport.h"
#include "vxcloud/model/VXCloudFile.h"
#include "vxcloud/sessions/VXCloudGoogleDriveSession.h"

namespace vxcloud {

using namespace sessions;
using namespace google_session;

void VXCloudGoogleDriveSession::renameWithCloudFile(std::shared_ptr<VXCloudFile> file, std::string newFileName,
                                                    std::shared_ptr<VXCloudFile> inParentFolder, bool,
                                                    CreatePDFBlock createPDFBlock) {
    runInBackground([this, file, newName = std::move(newFileName), parent = std::move(inParentFolder),
                     createPDFBlock = std::move(createPDFBlock)] {
        if (!file) return report::renameFailed(self(), file, makeError(ErrorCode::fileUpload));
        const Found found = findFile(*file, parent, true);

        if (found.file && !found.error) {
            if (!found.file->identifier) return report::renameFailed(self(), file, makeError(ErrorCode::fileUpload));
            drive::FileMetadata metadata;
            metadata.name = newName;
            auto renamed = client_->updateMetadata(*found.file->identifier, metadata, {}, {}, kUpdateFields);
            if (!renamed.ok()) {
                return report::renameFailed(self(), file, VXCloudError::initWithError(renamed.error().error,
                                                                                      VXCloudService::googleDrive));
            }
            auto record = VXCloudFile::initWithFile(renamed.value());
            if (!record) return report::renameFailed(self(), file, makeError(ErrorCode::fileUpload));
            if (!record->id) record->id = found.file->identifier;
            adoptServiceFields(*file, *record);
            return report::renamed(self(), file);
        }

        // Gone, or changed elsewhere (whatever the overwrite flag says): store it again.
        const bool rebuild = !found.error || found.error->errorCode == ErrorCode::fileConflict;
        if (!rebuild) return report::renameFailed(self(), file, found.error);
        auto data = documentFromBlock(createPDFBlock, kCategory);
        if (!data) return report::renameFailed(self(), file, makeError(ErrorCode::fileUpload));
        file->fileData = std::move(*data);
        _upload(file, parent, newName);
    });
}

}  // namespace vxcloud
