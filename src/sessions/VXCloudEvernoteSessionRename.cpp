// Rename: only the found note's title changes (its attachment keeps its file name). A note
// that is gone, or was changed elsewhere, is stored again as a new note from the host's
// regenerated PDF, under the new name; that store answers through the upload callbacks.
#include "sessions/EvernoteSession.h"
#include "sessions/SessionSupport.h"
#include "vxcloud/model/VXCloudFile.h"

namespace vxcloud {

using namespace sessions;
using namespace evernote_session;

void EvernoteSession::renameWithCloudFile(std::shared_ptr<VXCloudFile> file, std::string newFileName,
                                          std::shared_ptr<VXCloudFile> inParentFolder, bool,
                                          CreatePDFBlock createPDFBlock) {
    auto ifItThrows = report::renameFails(self(), file);
    runInBackground(std::move(ifItThrows), [this, file, newName = std::move(newFileName), parent = std::move(inParentFolder),
                     createPDFBlock = std::move(createPDFBlock)] {
        if (!file || !hasSendableNames(*file) || !isSendableName(newName)) {
            return report::renameFailed(self(), file, makeError(ErrorCode::fileUpload));
        }
        const StoredCopyLookup found = findFile(*file, parent, true);
        if (found.copy && !found.error) {
            if (!found.copy->id) return report::renameFailed(self(), file, makeError(ErrorCode::fileUpload));
            evernote::NoteDraft draft;
            draft.guid = found.copy->id;
            draft.title = newName;
            auto renamed = client_->updateNote(draft);
            // The service's refusal is not classified here: the rename failed.
            if (!renamed.ok()) return report::renameFailed(self(), file, makeError(ErrorCode::fileUpload));
            auto record = VXCloudFile::initWithEvernoteItem(itemOf(renamed.value()));
            if (!record) return report::renameFailed(self(), file, makeError(ErrorCode::fileUpload));
            adoptServiceFields(*file, *record);
            return report::renamed(self(), file);
        }
        const bool storeAgain = !found.error || found.error->errorCode == ErrorCode::fileConflict;
        if (!storeAgain) return report::renameFailed(self(), file, found.error);
        if (!takeRebuiltDocument(*file, createPDFBlock, kCategory)) {
            return report::renameFailed(self(), file, makeError(ErrorCode::fileUpload));
        }
        labelContentType(*file);
        const auto notebook = parent && parent->id && !parent->id->empty() ? parent->id : std::nullopt;
        _upload(file, notebook, newName);
    });
}

}  // namespace vxcloud
