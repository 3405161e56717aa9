// Move: the source notebook's notes are paired with the records by the MD5 recorded at
// upload, then each note's notebook is changed in its own update, at most four at a time.
// A destination without an id fails every file before anything is asked.
#include "sessions/EvernoteSession.h"
#include "sessions/SessionSupport.h"
#include "vxcloud/model/VXCloudFile.h"

namespace vxcloud {

using namespace sessions;
using namespace evernote_session;

void EvernoteSession::moveWithCloudFiles(VXCloudFileList files, std::shared_ptr<VXCloudFile> fromFolder,
                                         std::shared_ptr<VXCloudFile> toFolder) {
    if (!toFolder || !toFolder->id || toFolder->id->empty()) return report::moved(self(), {}, files);
    auto ifItThrows = report::moveFails(self(), files);
    runInBackground(std::move(ifItThrows), [this, files = std::move(files), from = std::move(fromFolder), toId = *toFolder->id] {
        const auto source = from && from->id && !from->id->empty() ? from->id : std::nullopt;
        auto listed = client_->findNotes({}, source, kMaxNotes);
        if (!listed.ok()) return report::moved(self(), {}, files);
        VXCloudFileList notes;
        for (const auto& note : listed.value()) notes.push_back(VXCloudFile::initWithEvernoteItem(itemOf(note)));
        const auto pairs = pairByRecordedVersion(files, notes, [](const std::string& version, const VXCloudFile& note) {
            return note.version && equalsIgnoringCase(*note.version, version);
        });
        moveConcurrently(self(), pairs, moveSemaphore_, kMoveQueueLabel, kCategory, [this, toId](const MovePair& pair) {
            evernote::NoteDraft draft;
            draft.guid = pair.stored->id;
            draft.title = pair.stored->name;  // an update names the note's title, unchanged here
            draft.notebookGuid = toId;
            return client_->updateNote(draft).ok();
        });
    });
}

}  // namespace vxcloud
