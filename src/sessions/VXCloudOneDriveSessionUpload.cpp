// Uploads. A folder is created in its parent. A new document is stored under its name:
// over a same-named file when overwriting (and always for the settings document), refused
// by the service otherwise. A document stored before is looked for in its folder by digest
// (nothing is sent when it is there) and by name: a same-named file with other content is a
// conflict, and overwriting stores the document with the "fail" behaviour, so the service
// itself still refuses to write over that file.
#include <map>

#include "sessions/OneDriveSession.h"
#include "sessions/SessionSupport.h"
#include "vxcloud/model/VXCloudFile.h"
#include "vxcloud/model/VXCloudOneDriveVersion.h"

namespace vxcloud {

using namespace sessions;
using namespace onedrive_session;
using onedrive::ConflictBehavior;

void OneDriveSession::uploadWithCloudFile(std::shared_ptr<VXCloudFile> file, std::shared_ptr<VXCloudFile> inParentFolder,
                                          bool overwriteExistingFile) {
    auto ifItThrows = report::uploadFails(self(), file);
    runInBackground(std::move(ifItThrows), [this, file, parent = std::move(inParentFolder), overwriteExistingFile] {
        // A name that cannot be encoded is refused before anything is sent.
        if (!file || !hasSendableNames(*file)) return report::uploadFailed(self(), file, makeError(ErrorCode::fileUpload));
        const std::string folderId = parentId(parent);
        if (file->isFolder) return _uploadFolder(file, folderId);

        StoredCopyHooks hooks = reportingTo(self(), file);
        hooks.find = [&](bool checkFileVersion) { return findFile(*file, parent, checkFileVersion); };
        hooks.create = [&](bool mayWriteOver) {
            _uploadFile(file, folderId, file->name, mayWriteOver ? ConflictBehavior::replace : ConflictBehavior::fail);
        };
        // The found copy is written over where it is, under its own name: it may have been
        // found by digest under a name the document no longer has.
        hooks.replace = [&](const std::shared_ptr<VXCloudFile>& copy) {
            _uploadFile(file, folderId, copy->name, ConflictBehavior::replace);
        };
        StoredCopyRules rules;
        rules.settingsName = kSettingsFileName;
        rules.overwriteChangedCopy = StoredCopyRules::OnChangedCopy::storeAnew;
        // The found copy's version is one digest; the local version holds both.
        rules.sameContent = [](const VXCloudFile& document, const VXCloudFile& copy) {
            return document.localVersion && copy.version &&
                   VXCloudOneDriveVersion::parse(*document.localVersion).matches(*copy.version);
        };
        uploadDocument(*file, overwriteExistingFile, hooks, rules);
    });
}

StoredCopyLookup OneDriveSession::findFile(const VXCloudFile& cloudFile, const std::shared_ptr<VXCloudFile>& inFolder,
                                           bool checkFileVersion) {
    auto listed = client_->listChildrenAtPath(lookupPath(inFolder));
    if (!listed.ok()) return {nullptr, mappedError(listed.error())};
    VXCloudFileList files;
    std::map<std::string, const onedrive::Item*> byId;
    for (const auto& item : listed.value().items) {
        // Folders, and files the drive gives no digest for, cannot be the document.
        if (!item.isFile || (!item.sha1Hash && !item.quickXorHash)) continue;
        files.push_back(VXCloudFile::initWithOneDriveItem(item));
        byId.emplace(item.id, &item);
    }
    const VXCloudOneDriveVersion wanted = VXCloudOneDriveVersion::parse(wantedDigest(cloudFile).value_or(""));
    auto holdsWanted = [&](const VXCloudFile& candidate) {
        const auto item = candidate.id ? byId.find(*candidate.id) : byId.end();
        return item != byId.end() && holdsContent(*item->second, wanted);
    };
    // Of several same-named files the last counts (a folder holds a name once; the walk
    // order is the service's).
    return pickStoredCopy(files, holdsWanted, cloudFile.getNameFromUploadStatus(), SameNamePick::last,
                          checkFileVersion);
}

bool onedrive_session::holdsContent(const onedrive::Item& item, const VXCloudOneDriveVersion& wanted) {
    return (item.sha1Hash && wanted.matches(*item.sha1Hash)) || (item.quickXorHash && wanted.matches(*item.quickXorHash));
}

providers::CallResult<onedrive::Item> OneDriveSession::store(const VXCloudFile& cloudFile, const std::string& folderId,
                                                             const std::string& name, ConflictBehavior behavior) {
    const ByteBuffer data = cloudFile.fileData.value_or(ByteBuffer());
    const auto size = static_cast<std::int64_t>(data.size());
    beginProgress(size);
    auto stored = client_->upload(folderId, name, data, behavior, [this](std::int64_t uploaded, std::int64_t expected) {
        if (expected > 0) fractionCompleted(uploaded >= expected ? 1.0 : static_cast<double>(uploaded) / expected);
    });
    endProgress();
    return stored;
}

void OneDriveSession::_uploadFile(const std::shared_ptr<VXCloudFile>& cloudFile, const std::string& folderId,
                                  const std::string& name, ConflictBehavior behavior) {
    auto stored = store(*cloudFile, folderId, name, behavior);
    if (!stored.ok()) return report::uploadFailed(self(), cloudFile, mappedError(stored.error()));
    auto record = VXCloudFile::initWithOneDriveItem(stored.value());
    if (!record) return report::uploadFailed(self(), cloudFile, makeError(ErrorCode::fileUpload));
    // Business drives may rewrite a file after upload, so its size and digest can differ
    // from what was sent: the version is whatever the drive now reports.
    adoptServiceFields(*cloudFile, *record);
    report::uploaded(self(), cloudFile);
}

void OneDriveSession::_uploadFolder(const std::shared_ptr<VXCloudFile>& cloudFile, const std::string& folderId) {
    auto created = client_->createFolder(folderId, cloudFile->name);
    if (!created.ok()) return report::uploadFailed(self(), cloudFile, mappedError(created.error()));
    auto record = VXCloudFile::initWithOneDriveItem(created.value());
    if (!record) return report::uploadFailed(self(), cloudFile, makeError(ErrorCode::fileUpload));
    adoptServiceFields(*cloudFile, *record);
    report::uploaded(self(), cloudFile);
}

}  // namespace vxcloud
