// Uploads. A folder becomes a notebook. A new document becomes a new note in the parent's
// notebook. A document stored before is looked for by the MD5 of its attachment (nothing is
// sent when it is there), then by its title: a same-titled note with other content is a
// conflict, and overwriting rewrites that note in place. The one settings note is looked for
// in every notebook and rewritten, or made in the default notebook.
#include <algorithm>

#include "sessions/EvernoteSession.h"
#include "sessions/SessionSupport.h"
#include "vxcloud/model/VXCloudFile.h"

namespace vxcloud {

using namespace sessions;
using namespace evernote_session;

namespace {

std::optional<std::string> notebookOf(const std::shared_ptr<VXCloudFile>& folder) {
    if (!folder || !folder->id || folder->id->empty()) return std::nullopt;
    return folder->id;
}

// Evernote's search phrase for a title: quoted, so every word of it counts; a quote inside
// it cannot be written in the phrase and is left out (the title is compared exactly after).
std::string titleSearch(const std::string& title) {
    std::string phrase = title;
    std::replace(phrase.begin(), phrase.end(), '"', ' ');
    return std::string(VXCloudEvernoteSession::kTitleSearchPrefix) + "\"" + phrase + "\"";
}

}  // namespace

void EvernoteSession::uploadWithCloudFile(std::shared_ptr<VXCloudFile> file, std::shared_ptr<VXCloudFile> inParentFolder,
                                          bool overwriteExistingFile) {
    auto ifItThrows = report::uploadFails(self(), file);
    runInBackground(std::move(ifItThrows), [this, file, parent = std::move(inParentFolder), overwriteExistingFile] {
        if (!file || !hasSendableNames(*file)) return report::uploadFailed(self(), file, makeError(ErrorCode::fileUpload));
        if (file->isFolder) return createNotebook(file);

        StoredCopyHooks hooks = reportingTo(self(), file);
        hooks.find = [&](bool checkFileVersion) { return findFile(*file, parent, checkFileVersion); };
        hooks.create = [&](bool) {
            if (file->name != kSettingsFileName) return _upload(file, notebookOf(parent), file->getNameFromUploadStatus());
            // The settings note lives in the default notebook.
            auto notebook = client_->getDefaultNotebook();
            if (!notebook.ok()) return report::uploadFailed(self(), file, mappedError(notebook.error()));
            if (notebook.value().guid.empty()) return report::uploadFailed(self(), file, makeError(ErrorCode::fileUpload));
            _upload(file, notebook.value().guid, file->getNameFromUploadStatus());
        };
        hooks.replace = [&](const std::shared_ptr<VXCloudFile>& copy) {
            _update(file, *copy, file->name == kSettingsFileName);
        };
        StoredCopyRules rules;
        rules.settingsName = kSettingsFileName;
        // A found note gets the one (length, length) report before it is rewritten too.
        rules.progressBeforeReplacing = true;
        uploadDocument(*file, overwriteExistingFile, hooks, rules);
    });
}

StoredCopyLookup EvernoteSession::findFile(const VXCloudFile& cloudFile, const std::shared_ptr<VXCloudFile>& folder,
                                           bool checkFileVersion) {
    const std::string title = cloudFile.getNameFromUploadStatus();
    // The settings note may be in any notebook; a document only in its folder's.
    const auto notebook = title == kSettingsFileName ? std::nullopt : notebookOf(folder);
    auto found = client_->findNotes(titleSearch(title), notebook, kMaxNotes);
    if (!found.ok()) return {nullptr, mappedError(found.error())};
    VXCloudFileList notes;
    for (const auto& note : found.value()) notes.push_back(VXCloudFile::initWithEvernoteItem(itemOf(note)));
    return pickStoredCopy(notes, wantedDigest(cloudFile), title, SameNamePick::last, checkFileVersion);
}

void EvernoteSession::_upload(const std::shared_ptr<VXCloudFile>& cloudFile,
                              const std::optional<std::string>& notebookGuid, const std::string& title) {
    if (!cloudFile->fileData) return report::uploadFailed(self(), cloudFile, makeError(ErrorCode::fileUpload));
    auto created = client_->createNote(noteFor(*cloudFile, title, notebookGuid));
    if (!created.ok()) return finishUpload(cloudFile, providers::CallResult<evernote::Item>::failureOf(created));
    finishUpload(cloudFile, providers::CallResult<evernote::Item>::success(itemOf(created.value())));
}

void EvernoteSession::_update(const std::shared_ptr<VXCloudFile>& cloudFile, const VXCloudFile& note,
                              bool failuresAreFileUpload) {
    if (!cloudFile->fileData || !note.id) return report::uploadFailed(self(), cloudFile, makeError(ErrorCode::fileUpload));
    // The note keeps its notebook (an update without one leaves it) and its title.
    evernote::NoteDraft draft = noteFor(*cloudFile, cloudFile->getNameFromUploadStatus(), std::nullopt);
    draft.guid = note.id;
    auto updated = client_->updateNote(draft);
    if (!updated.ok()) {
        return finishUpload(cloudFile, providers::CallResult<evernote::Item>::failureOf(updated), failuresAreFileUpload);
    }
    finishUpload(cloudFile, providers::CallResult<evernote::Item>::success(itemOf(updated.value())), failuresAreFileUpload);
}

void EvernoteSession::createNotebook(const std::shared_ptr<VXCloudFile>& cloudFile) {
    auto created = client_->createNotebook(cloudFile->name);
    if (!created.ok()) return finishUpload(cloudFile, providers::CallResult<evernote::Item>::failureOf(created));
    finishUpload(cloudFile, providers::CallResult<evernote::Item>::success(itemOf(created.value())));
}

void EvernoteSession::finishUpload(const std::shared_ptr<VXCloudFile>& cloudFile,
                                   const providers::CallResult<evernote::Item>& stored, bool failuresAreFileUpload) {
    if (!stored.ok()) {
        return report::uploadFailed(self(), cloudFile,
                                    failuresAreFileUpload ? makeError(ErrorCode::fileUpload) : mappedError(stored.error()));
    }
    auto record = VXCloudFile::initWithEvernoteItem(stored.value());
    if (!record) return report::uploadFailed(self(), cloudFile, makeError(ErrorCode::fileUpload));
    adoptServiceFields(*cloudFile, *record);
    report::uploaded(self(), cloudFile);
}

}  // namespace vxcloud
