// Uploads: new documents and folders become new files; a document stored before is found
// again by MD5 checksum (nothing is sent when it matches) or by name (a conflict unless
// overwriting is allowed, in which case the found file gets the new content and keeps its id).
#include "providers/google/GoogleDriveClient.h"
#include "sessions/SessionSupport.h"
#include "sessions/VXCloudGoogleDriveSessionSupport.h"
#include "vxcloud/model/VXCloudFile.h"
#include "vxcloud/sessions/VXCloudGoogleDriveSession.h"

namespace vxcloud {

using namespace sessions;
using namespace google_session;

namespace {

std::string contentTypeOf(const VXCloudFile& file) { return file.mimeType.value_or("application/octet-stream"); }

}  // namespace

void VXCloudGoogleDriveSession::uploadWithCloudFile(std::shared_ptr<VXCloudFile> file,
                                                    std::shared_ptr<VXCloudFile> inParentFolder,
                                                    bool overwriteExistingFile) {
    runInBackground([this, file, parent = std::move(inParentFolder), overwriteExistingFile] {
        if (!file) return report::uploadFailed(self(), file, makeError(ErrorCode::fileUpload));
        if (file->isFolder || (!file->localVersion && !hasUploadStatus(*file))) return _upload(file, parent);
        answerKnownDocument(file, parent, overwriteExistingFile);
    });
}

void VXCloudGoogleDriveSession::answerKnownDocument(const std::shared_ptr<VXCloudFile>& file,
                                                    const std::shared_ptr<VXCloudFile>& parent, bool overwrite) {
    // The settings document is rewritten whenever the upload folder changes: never a conflict.
    const Found found = findFile(*file, parent, file->name != kSettingsFileName);
    if (found.error) {
        if (found.error->errorCode == ErrorCode::fileConflict && overwrite && found.file) {
            return updateFile(*found.file, file, parent);
        }
        return report::uploadFailed(self(), file, found.error);
    }
    if (!found.file) return _upload(file, parent);

    const bool sameContent = file->localVersion && found.file->md5Checksum &&
                             equalsIgnoringCase(*found.file->md5Checksum, *file->localVersion);
    // Found by name alone (the settings document): its content is replaced.
    if (!sameContent) return updateFile(*found.file, file, parent);

    // The same content is stored already: nothing is sent, and the progress shows it done.
    if (file->fileData) {
        const auto length = static_cast<std::int64_t>(file->fileData->size());
        report::progress(self(), length, length);
    }
    auto record = VXCloudFile::initWithFile(*found.file);
    if (!record) return report::uploadFailed(self(), file, makeError(ErrorCode::fileUpload));
    adoptServiceFields(*file, *record);
    report::uploaded(self(), file);
}

VXCloudGoogleDriveSession::Found VXCloudGoogleDriveSession::findFile(const VXCloudFile& cloudFile,
                                                                     const std::shared_ptr<VXCloudFile>& inFolder,
                                                                     bool checkFileVersion) {
    std::optional<std::string> wanted = cloudFile.localVersion;
    if (!wanted) wanted = cloudFile.getVersionFromUploadStatus();
    const std::string storedName = cloudFile.getNameFromUploadStatus();

    auto listed = client_->listFiles(documentQuery(folderId(inFolder, true), storedName), kLookupFields);
    if (!listed.ok()) return Found{std::nullopt, makeError(VXCloudError::errorCodeFromGoogleDriveError(listed.error().error))};

    std::optional<drive::File> sameName;
    for (const auto& file : listed.value()) {
        if (file.md5Checksum && wanted && equalsIgnoringCase(*file.md5Checksum, *wanted)) return Found{file, nullptr};
        // Of several same-named files the service's first counts.
        if (!sameName && file.name == storedName) sameName = file;
    }
    if (!sameName) return Found{};
    // A file of that name holds other content: it was changed elsewhere.
    return Found{sameName, checkFileVersion ? makeError(ErrorCode::fileConflict) : nullptr};
}

void VXCloudGoogleDriveSession::_upload(const std::shared_ptr<VXCloudFile>& cloudFile,
                                        const std::shared_ptr<VXCloudFile>& inParentFolder,
                                        const std::optional<std::string>& storedName) {
    drive::FileMetadata metadata;
    metadata.name = storedName.value_or(cloudFile->getNameFromUploadStatus());
    metadata.parents = std::vector<std::string>{folderId(inParentFolder, false)};
    auto failed = [&](const drive::CallError& error) {
        report::uploadFailed(self(), cloudFile, VXCloudError::initWithError(error.error, VXCloudService::googleDrive));
    };
    if (cloudFile->isFolder) {
        metadata.mimeType = drive::kFolderMimeType;
        auto created = client_->createMetadataOnly(metadata, kCreateFields);
        if (!created.ok()) return failed(created.error());
        return finishUpload(cloudFile, created.value(), std::nullopt);
    }
    if (!cloudFile->fileData) return report::uploadFailed(self(), cloudFile, makeError(ErrorCode::fileUpload));
    auto created = client_->createFile(metadata, *cloudFile->fileData, contentTypeOf(*cloudFile), kCreateFields,
                                       [this](std::int64_t uploaded, std::int64_t expected) {
                                           reportProgress(uploaded, expected);
                                       });
    if (!created.ok()) return failed(created.error());
    finishUpload(cloudFile, created.value(), std::nullopt);
}

void VXCloudGoogleDriveSession::updateFile(const drive::File& with, const std::shared_ptr<VXCloudFile>& cloudFile,
                                           const std::shared_ptr<VXCloudFile>&) {
    if (!cloudFile->fileData || !with.identifier) {
        return report::uploadFailed(self(), cloudFile, makeError(ErrorCode::fileUpload));
    }
    // Only the name travels with the content; the file keeps its id and gets a new revision.
    drive::FileMetadata metadata;
    metadata.name = cloudFile->getNameFromUploadStatus();
    auto updated = client_->updateContent(*with.identifier, metadata, *cloudFile->fileData, contentTypeOf(*cloudFile),
                                          kUpdateFields, [this](std::int64_t uploaded, std::int64_t expected) {
                                              reportProgress(uploaded, expected);
                                          });
    if (!updated.ok()) {
        return report::uploadFailed(self(), cloudFile,
                                    VXCloudError::initWithError(updated.error().error, VXCloudService::googleDrive));
    }
    finishUpload(cloudFile, updated.value(), with.identifier);
}

void VXCloudGoogleDriveSession::finishUpload(const std::shared_ptr<VXCloudFile>& cloudFile, const drive::File& stored,
                                             const std::optional<std::string>& knownId) {
    auto record = VXCloudFile::initWithFile(stored);
    if (!record) return report::uploadFailed(self(), cloudFile, makeError(ErrorCode::fileUpload));
    // An update's answer carries no id: the file kept the one it had.
    if (!record->id) record->id = knownId;
    adoptServiceFields(*cloudFile, *record);
    report::uploaded(self(), cloudFile);
}

}  // namespace vxcloud
