// Uploads. A folder is created in its parent. A new document is stored as a new file. A
// document stored before is looked for in its folder by SHA-1 (nothing is sent when it is
// there) and by name: a same-named file with other content is a conflict, and overwriting
// stores the content as a new version of that file, which keeps its id.
#include "sessions/BoxSession.h"
#include "sessions/SessionSupport.h"
#include "vxcloud/model/VXCloudFile.h"

namespace vxcloud {

using namespace sessions;
using namespace box_session;


void BoxSession::uploadWithCloudFile(std::shared_ptr<VXCloudFile> file, std::shared_ptr<VXCloudFile> inParentFolder,
                                     bool overwriteExistingFile) {
    auto ifItThrows = report::uploadFails(self(), file);
    runInBackground(std::move(ifItThrows), [this, file, parent = std::move(inParentFolder), overwriteExistingFile] {
        // A name that cannot be encoded is refused before anything is sent.
        if (!file || !hasSendableNames(*file)) return report::uploadFailed(self(), file, makeError(ErrorCode::fileUpload));
        const std::string parentId = folderId(parent);
        if (file->isFolder) return _createFolder(file, parentId);

        StoredCopyHooks hooks = reportingTo(self(), file);
        hooks.find = [&](bool checkFileVersion) { return findFile(*file, parentId, checkFileVersion); };
        hooks.create = [&](bool mayWriteOver) { _upload(file, parentId, mayWriteOver); };
        hooks.replace = [&](const std::shared_ptr<VXCloudFile>& copy) {
            if (!copy->id) return report::uploadFailed(self(), file, makeError(ErrorCode::fileUpload));
            updateFile(*copy->id, file);
        };
        StoredCopyRules rules;
        rules.settingsName = kSettingsFileName;
        uploadDocument(*file, overwriteExistingFile, hooks, rules);
    });
}

StoredCopyLookup BoxSession::findFile(const VXCloudFile& cloudFile, const std::string& inFolderId,
                                      bool checkFileVersion) {
    auto listed = client_->listFolder(inFolderId);
    if (!listed.ok()) return {nullptr, mappedError(listed.error())};
    VXCloudFileList files;
    for (const auto& item : listed.value()) {
        if (item.isFile()) files.push_back(VXCloudFile::initWithBoxItem(item));
    }
    // A folder holds a name once, so which of several same-named files counts never arises.
    return pickStoredCopy(files, wantedDigest(cloudFile), cloudFile.getNameFromUploadStatus(), SameNamePick::first,
                          checkFileVersion);
}

providers::CallResult<box::Item> BoxSession::storeNew(const VXCloudFile& cloudFile, const std::string& parentId,
                                                     bool mayWriteOver) {
    auto stored = client_->uploadNew(parentId, cloudFile.getNameFromUploadStatus(), *cloudFile.fileData,
                                     progressReporter());
    if (!stored.ok() && mayWriteOver) {
        // The one settings document may be there though the lookup missed it (made a moment
        // ago by another device): it gets the content as a new version.
        if (auto existing = box::conflictingFileId(stored.error())) {
            stored = client_->uploadVersion(*existing, *cloudFile.fileData, progressReporter());
        }
    }
    return stored;
}

void BoxSession::_upload(const std::shared_ptr<VXCloudFile>& cloudFile, const std::string& parentId, bool mayWriteOver) {
    if (!cloudFile->fileData) return report::uploadFailed(self(), cloudFile, makeError(ErrorCode::fileUpload));
    auto stored = storeNew(*cloudFile, parentId, mayWriteOver);
    if (!stored.ok()) return report::uploadFailed(self(), cloudFile, mappedError(stored.error()));
    finishUpload(cloudFile, stored.value());
}

void BoxSession::updateFile(const std::string& fileId, const std::shared_ptr<VXCloudFile>& cloudFile) {
    if (!cloudFile->fileData) return report::uploadFailed(self(), cloudFile, makeError(ErrorCode::fileUpload));
    auto stored = client_->uploadVersion(fileId, *cloudFile->fileData, progressReporter());
    if (!stored.ok()) return report::uploadFailed(self(), cloudFile, mappedError(stored.error()));
    finishUpload(cloudFile, stored.value());
}

void BoxSession::_createFolder(const std::shared_ptr<VXCloudFile>& cloudFile, const std::string& parentId) {
    auto created = client_->createFolder(parentId, cloudFile->name);
    if (!created.ok()) return report::uploadFailed(self(), cloudFile, mappedError(created.error()));
    finishUpload(cloudFile, created.value());
}

void BoxSession::finishUpload(const std::shared_ptr<VXCloudFile>& cloudFile, const box::Item& stored) {
    auto record = VXCloudFile::initWithBoxItem(stored);
    if (!record) return report::uploadFailed(self(), cloudFile, makeError(ErrorCode::fileUpload));
    adoptServiceFields(*cloudFile, *record);
    report::uploaded(self(), cloudFile);
}

}  // namespace vxcloud
