// Uploads: new documents, folders, and documents stored before, which are found again by
// content hash (nothing is sent when it matches) or by name (a conflict unless
// overwriting is allowed). Dropbox addresses by path, so replacing a stored copy is writing
// over its path, and a new document may be written over a same-named one when allowed.
#include <set>

#include "sessions/DropboxSession.h"
#include "vxcloud/model/VXCloudFile.h"
#include "vxcloud/platform/Log.h"

namespace vxcloud {

using namespace dropbox_session;
using dropbox::WriteMode;

void DropboxSession::uploadWithCloudFile(std::shared_ptr<VXCloudFile> file, std::shared_ptr<VXCloudFile> inParentFolder,
                                         bool overwriteExistingFile) {
    auto ifItThrows = sessions::report::uploadFails(self(), file);
    runInBackground(std::move(ifItThrows), [this, file, parent = std::move(inParentFolder), overwriteExistingFile] {
        // A name that cannot be encoded is refused before anything is sent.
        if (!file || !sessions::hasSendableNames(*file)) return reportUploadFailed(file, ErrorCode::fileUpload);
        // The name that becomes the path's last element: refused rather than stored elsewhere.
        const std::string pathName = file->isFolder ? file->name : file->getNameFromUploadStatus();
        if (!isStorableName(pathName)) {
            log::warning("dropbox", "a name that is empty or holds \"/\" cannot be stored on Dropbox");
            return reportUploadFailed(file, ErrorCode::fileUpload);
        }
        if (file->isFolder) return uploadFolder(file, parent);

        sessions::StoredCopyHooks hooks = sessions::reportingTo(self(), file);
        hooks.find = [&](bool checkFileVersion) { return findFile(*file, parent, checkFileVersion); };
        hooks.create = [&](bool mayWriteOver) {
            _upload(file, parent, mayWriteOver ? WriteMode::overwrite : WriteMode::add);
        };
        hooks.replace = [&](const std::shared_ptr<VXCloudFile>&) { _upload(file, parent, WriteMode::overwrite); };
        sessions::StoredCopyRules rules;
        rules.settingsName = kSettingsFileName;
        sessions::uploadDocument(*file, overwriteExistingFile, hooks, rules);
    });
}

void DropboxSession::uploadFolder(const std::shared_ptr<VXCloudFile>& folder, const std::shared_ptr<VXCloudFile>& parent) {
    auto created = client_->createFolderV2(folderPrefix(parent) + folder->name, false);
    if (!created.ok()) {
        return reportUploadFailed(folder, errorCodeFromCallError(created.error(), RouteErrors::createFolder));
    }
    auto record = VXCloudFile::initWithMetadata(created.value());
    if (!record) return reportUploadFailed(folder, ErrorCode::fileUpload);
    reportUploaded(record);
}

sessions::StoredCopyLookup DropboxSession::findFile(const VXCloudFile& cloudFile,
                                                    const std::shared_ptr<VXCloudFile>& inFolder,
                                                    bool checkFileVersion) {
    // Every page: in a large folder the stored copy may be on any of them.
    auto listed = client_->listFolder(listingPath(folderPrefix(inFolder)));
    VXCloudFileList files;
    std::set<std::string> cursors;
    // Bounded: a folder beyond it fails the look-up rather than miss a stored copy.
    constexpr std::size_t kMaxPages = 100;
    for (;;) {
        if (!listed.ok() || cursors.size() >= kMaxPages) return {nullptr, makeError(ErrorCode::fileUpload)};
        for (const auto& entry : listed.value().entries) {
            if (entry.tag == dropbox::Metadata::Tag::file) files.push_back(VXCloudFile::initWithMetadata(entry));
        }
        // A cursor handed out twice would keep this going for ever.
        if (!listed.value().hasMore || !cursors.insert(listed.value().cursor).second) break;
        listed = client_->listFolderContinue(listed.value().cursor);
    }
    // A later entry of the name counts over an earlier one.
    return sessions::pickStoredCopy(files, sessions::wantedDigest(cloudFile), cloudFile.name,
                                    sessions::SameNamePick::last, checkFileVersion);
}

void DropboxSession::_upload(const std::shared_ptr<VXCloudFile>& cloudFile,
                             const std::shared_ptr<VXCloudFile>& inParentFolder, WriteMode writeMode,
                             SuccessHandler successHandler, FailureHandler onFailure) {
    auto fail = [&](ErrorCode code) {
        if (onFailure) onFailure(makeError(code));
        else reportUploadFailed(cloudFile, code);
    };
    if (!cloudFile->fileData) return fail(ErrorCode::fileUpload);

    dropbox::CommitInfo commit;
    commit.path = folderPrefix(inParentFolder) + cloudFile->getNameFromUploadStatus();
    commit.mode = writeMode;
    auto uploaded = client_->upload(*cloudFile->fileData, commit, [this](std::int64_t completed, std::int64_t total) {
        reportProgress(completed, total);
    });
    if (!uploaded.ok()) return fail(errorCodeFromCallError(uploaded.error(), RouteErrors::upload));

    auto record = VXCloudFile::initWithMetadata(uploaded.value());
    if (!record) return fail(ErrorCode::fileUpload);
    adoptServiceFields(*cloudFile, *record);
    if (successHandler) return successHandler(cloudFile);
    reportUploaded(cloudFile);
}

}  // namespace vxcloud
