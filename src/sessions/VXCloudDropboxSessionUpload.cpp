// Uploads: new documents, folders, and documents stored before, which are found again by
// content hash (nothing is sent when it matches) or by name (a conflict unless
// overwriting is allowed).
#include "sessions/VXCloudDropboxSessionSupport.h"
#include "vxcloud/model/VXCloudFile.h"
#include "vxcloud/platform/Log.h"
#include "vxcloud/sessions/VXCloudDropboxSession.h"

namespace vxcloud {

using namespace dropbox_session;
using dropbox::WriteMode;

void VXCloudDropboxSession::uploadWithCloudFile(std::shared_ptr<VXCloudFile> file,
                                                std::shared_ptr<VXCloudFile> inParentFolder,
                                                bool overwriteExistingFile) {
    runInBackground([this, file, parent = std::move(inParentFolder), overwriteExistingFile] {
        if (!file) return reportUploadFailed(file, ErrorCode::fileUpload);
        // The name that becomes the path's last element: refused rather than stored elsewhere.
        const std::string pathName = file->isFolder ? file->name : file->getNameFromUploadStatus();
        if (!isStorableName(pathName)) {
            log::warning("dropbox", "a name that is empty or holds \"/\" cannot be stored on Dropbox");
            return reportUploadFailed(file, ErrorCode::fileUpload);
        }
        if (file->isFolder) return uploadFolder(file, parent);
        if (file->localVersion || hasUploadStatus(*file)) return reupload(file, parent, overwriteExistingFile);
        // The settings document is rewritten whenever the upload folder changes.
        const bool overwrite = overwriteExistingFile || file->name == kSettingsFileName;
        _upload(file, parent, overwrite ? WriteMode::overwrite : WriteMode::add);
    });
}

void VXCloudDropboxSession::uploadFolder(const std::shared_ptr<VXCloudFile>& folder,
                                         const std::shared_ptr<VXCloudFile>& parent) {
    auto created = client_->createFolderV2(folderPrefix(parent) + folder->name, false);
    if (!created.ok()) {
        return reportUploadFailed(folder, errorCodeFromCallError(created.error(), RouteErrors::createFolder));
    }
    auto record = VXCloudFile::initWithMetadata(created.value());
    if (!record) return reportUploadFailed(folder, ErrorCode::fileUpload);
    reportUploaded(record);
}

void VXCloudDropboxSession::reupload(const std::shared_ptr<VXCloudFile>& file,
                                     const std::shared_ptr<VXCloudFile>& parent, bool overwrite) {
    const Found found = findFile(*file, parent, true);
    if (found.error) {
        if (found.error->errorCode == ErrorCode::fileConflict && overwrite) {
            return _upload(file, parent, WriteMode::overwrite);
        }
        return reportUploadFailed(file, found.error);
    }
    if (!found.metadata) return _upload(file, parent, WriteMode::add);
    if (!file->localVersion) return _upload(file, parent, WriteMode::overwrite);

    // The same content is stored already: nothing is sent, and the progress shows it done.
    if (file->fileData) {
        const auto length = static_cast<std::int64_t>(file->fileData->size());
        sessions::report::progress(self(), length, length);
    }
    auto record = VXCloudFile::initWithMetadata(*found.metadata);
    if (!record) return reportUploadFailed(file, ErrorCode::fileUpload);
    adoptServiceFields(*file, *record);
    reportUploaded(file);
}

VXCloudDropboxSession::Found VXCloudDropboxSession::findFile(const VXCloudFile& cloudFile,
                                                              const std::shared_ptr<VXCloudFile>& inFolder,
                                                              bool checkFileVersion) {
    std::optional<std::string> wanted = cloudFile.localVersion;
    if (!wanted) wanted = cloudFile.getVersionFromUploadStatus();

    // Only the first page is looked at.
    auto listed = client_->listFolder(listingPath(folderPrefix(inFolder)));
    if (!listed.ok()) return Found{std::nullopt, makeError(ErrorCode::fileUpload)};

    std::optional<dropbox::Metadata> sameName;
    for (const auto& entry : listed.value().entries) {
        if (entry.tag != dropbox::Metadata::Tag::file) continue;
        if (entry.contentHash && wanted && equalsIgnoringCase(*entry.contentHash, *wanted)) {
            return Found{entry, nullptr};
        }
        if (entry.name == cloudFile.name) sameName = entry;
    }
    if (!sameName) return Found{};
    if (!checkFileVersion) return Found{sameName, nullptr};
    // A file of that name holds other content: it was changed elsewhere.
    return Found{sameName, makeError(ErrorCode::fileConflict)};
}

void VXCloudDropboxSession::_upload(const std::shared_ptr<VXCloudFile>& cloudFile,
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
    if (successHandler) return successHandler(cloudFile, uploaded.value());
    reportUploaded(cloudFile);
}

}  // namespace vxcloud
