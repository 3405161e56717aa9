// Uploads: new documents and folders become new files; a document stored before is found
// again by MD5 checksum (nothing is sent when it matches) or by name (a conflict unless
// overwriting is allowed, in which case the found file gets the new content and keeps its id).
// Drive lets one name occur many times, so creating never clashes; replacing is always an
// update of the found file in place.
#include "sessions/GoogleDriveSession.h"
#include "sessions/SessionSupport.h"
#include "vxcloud/model/VXCloudFile.h"

namespace vxcloud {

using namespace sessions;
using namespace google_session;

namespace {

std::string contentTypeOf(const VXCloudFile& file) { return file.mimeType.value_or("application/octet-stream"); }

}  // namespace

void GoogleDriveSession::uploadWithCloudFile(std::shared_ptr<VXCloudFile> file,
                                             std::shared_ptr<VXCloudFile> inParentFolder, bool overwriteExistingFile) {
    auto ifItThrows = report::uploadFails(self(), file);
    runInBackground(std::move(ifItThrows), [this, file, parent = std::move(inParentFolder), overwriteExistingFile] {
        // A name that cannot be encoded is refused before anything is sent.
        if (!file || !hasSendableNames(*file)) return report::uploadFailed(self(), file, makeError(ErrorCode::fileUpload));
        if (file->isFolder) return _upload(file, parent);

        StoredCopyHooks hooks = reportingTo(self(), file);
        hooks.find = [&](bool checkFileVersion) { return findFile(*file, parent, checkFileVersion); };
        hooks.create = [&](bool) { _upload(file, parent); };
        hooks.replace = [&](const std::shared_ptr<VXCloudFile>& copy) {
            if (!copy->id) return report::uploadFailed(self(), file, makeError(ErrorCode::fileUpload));
            updateFile(*copy->id, file);
        };
        StoredCopyRules rules;
        rules.settingsName = kSettingsFileName;
        uploadDocument(*file, overwriteExistingFile, hooks, rules);
    });
}

StoredCopyLookup GoogleDriveSession::findFile(const VXCloudFile& cloudFile, const std::shared_ptr<VXCloudFile>& inFolder,
                                              bool checkFileVersion) {
    const std::string storedName = cloudFile.getNameFromUploadStatus();
    auto listed = client_->listFiles(documentQuery(folderId(inFolder, true), storedName), kLookupFields);
    if (!listed.ok()) return {nullptr, makeError(VXCloudError::errorCodeFromGoogleDriveError(listed.error()))};
    VXCloudFileList files;
    for (const auto& file : listed.value()) files.push_back(VXCloudFile::initWithFile(file));
    // Of several same-named files the service's first counts.
    return pickStoredCopy(files, wantedDigest(cloudFile), storedName, SameNamePick::first, checkFileVersion);
}

void GoogleDriveSession::_upload(const std::shared_ptr<VXCloudFile>& cloudFile,
                                 const std::shared_ptr<VXCloudFile>& inParentFolder,
                                 const std::optional<std::string>& storedName) {
    drive::FileMetadata metadata;
    metadata.name = storedName.value_or(cloudFile->getNameFromUploadStatus());
    metadata.parents = std::vector<std::string>{folderId(inParentFolder, false)};
    auto failed = [&](const ProviderError& error) {
        report::uploadFailed(self(), cloudFile, VXCloudError::initWithError(error, VXCloudService::googleDrive));
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

void GoogleDriveSession::updateFile(const std::string& fileId, const std::shared_ptr<VXCloudFile>& cloudFile) {
    if (!cloudFile->fileData) return report::uploadFailed(self(), cloudFile, makeError(ErrorCode::fileUpload));
    // Only the name travels with the content; the file keeps its id and gets a new revision.
    drive::FileMetadata metadata;
    metadata.name = cloudFile->getNameFromUploadStatus();
    auto updated = client_->updateContent(fileId, metadata, *cloudFile->fileData, contentTypeOf(*cloudFile),
                                          kUpdateFields, [this](std::int64_t uploaded, std::int64_t expected) {
                                              reportProgress(uploaded, expected);
                                          });
    if (!updated.ok()) {
        return report::uploadFailed(self(), cloudFile,
                                    VXCloudError::initWithError(updated.error(), VXCloudService::googleDrive));
    }
    finishUpload(cloudFile, updated.value(), fileId);
}

void GoogleDriveSession::finishUpload(const std::shared_ptr<VXCloudFile>& cloudFile, const drive::File& stored,
                                      const std::optional<std::string>& knownId) {
    auto record = VXCloudFile::initWithFile(stored);
    if (!record) return report::uploadFailed(self(), cloudFile, makeError(ErrorCode::fileUpload));
    // An update's answer carries no id: the file kept the one it had.
    if (!record->id) record->id = knownId;
    adoptServiceFields(*cloudFile, *record);
    report::uploaded(self(), cloudFile);
}

}  // namespace vxcloud
