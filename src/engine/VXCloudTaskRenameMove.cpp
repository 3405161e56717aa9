// The task's rename and move flows. A rename reports like an upload (one record per
// account, one notification at the end); a move reports once, per file, under
// "moveStatus", on the thread that delivers the session's answer.
#include <utility>

#include "engine/TaskSupport.h"
#include "engine/UploadStatusRecords.h"
#include "vxcloud/engine/UploadStatus.h"
#include "vxcloud/engine/VXCloudSessionFactory.h"
#include "vxcloud/engine/VXCloudTask.h"
#include "vxcloud/model/VXCloudAccount.h"
#include "vxcloud/model/VXCloudConstants.h"
#include "vxcloud/model/VXCloudError.h"
#include "vxcloud/model/VXCloudFile.h"
#include "vxcloud/platform/NotificationCenter.h"

namespace vxcloud {

using namespace uploadstatus;

namespace {

bool holdsRecords(const JsonBox& list) { return list && list->is_array() && !list->empty(); }

bool hasIdentifier(const VXCloudFile& file) {
    return file.fileIdentifier && !file.fileIdentifier->is_null();
}

// {"fileIdentifier": ..., "uploadStatusResponse": [the file's move record]}.
Json moveEntry(const VXCloudFile& file, bool moved) {
    return Json{
        {kFileIdentifier, *file.fileIdentifier},
        {kUploadStatusResponse, Json::array({records::moveOutcome(file, moved)})},
    };
}

}  // namespace

// ---------------------------------------------------------------------- rename

Json VXCloudTask::rename(const std::string& newFilename, const JsonBox& uploadStatus,
                         bool overwriteExistingFile, CreatePDFBlock createPDFBlock,
                         const JsonBox& fileIdentifier,
                         const std::optional<VXCloudAccountList>& toCloudAccounts) {
    Json result = Json::array();
    task::guarded("starting a rename", [&] {
        setExistingFileUploadStatus(uploadStatus);
        std::optional<ReachabilityStatus> reachability;
        long started = 0;
        for (const auto& account : accountsFor(toCloudAccounts)) {
            if (!account || !isEligible(*account, reachability)) continue;
            auto uploadFolder = initUploadFolderFromDictionary(account->uploadFolderInfo);
            if (!uploadFolder) {
                result.push_back(getErrorStatus(*account, VXCloudError(ErrorCode::missingFolder)));
                continue;
            }
            // Without the document's records there is no stored name to rename.
            if (!holdsRecords(uploadStatus)) {
                result.push_back(getErrorStatus(*account, VXCloudError(ErrorCode::fileUpload)));
                continue;
            }
            result.push_back(records::pendingRename(*account));
            enterAccount();
            ++started;
            DispatchQueue::global()->async([self = shared_from_this(), account, newFilename,
                                            uploadFolder = std::move(uploadFolder),
                                            overwriteExistingFile, createPDFBlock,
                                            matched = earlierRecordFor(uploadStatus, *account, true)] {
                self->renameOnAccount(account, newFilename, uploadFolder, matched,
                                      overwriteExistingFile, createPDFBlock);
            });
        }
        if (started > 0) notifyWhenAllAnswered(fileIdentifier);
    });
    return result;
}

void VXCloudTask::renameOnAccount(const std::shared_ptr<VXCloudAccount>& account,
                                  const std::string& newFilename,
                                  const std::shared_ptr<VXCloudFile>& uploadFolder,
                                  const JsonBox& matched, bool overwriteExistingFile,
                                  const CreatePDFBlock& createPDFBlock) {
    std::shared_ptr<VXCloudSession> session;
    std::shared_ptr<VXCloudFile> file;
    const bool ok = task::guarded("starting a rename on an account", [&] {
        session = initCloudSession(account);
        if (!session) {
            fileRecord(records::noSession(*account), *account);
            return;
        }
        if (!matched) {
            // No record names the stored document: the account is left unanswered, and the
            // task never posts. Hosts always pass the records of an uploaded document.
            log::info(task::kCategory, "rename: no record names the document on an account");
            return;
        }
        file = std::make_shared<VXCloudFile>((*matched)[kDocumentId].get<std::string>(), false, false);
        file->fileUploadStatus = matched;
        session->setCloudSessionDelegate(shared_from_this());
        session->renameWithCloudFile(file, newFilename, uploadFolder, overwriteExistingFile,
                                     createPDFBlock);
    });
    // The session threw before it could answer: answer for it.
    if (!ok && session && file)
        handleResponse(session, file, std::make_shared<VXCloudError>(ErrorCode::fileUpload));
}

void VXCloudTask::cloudSessionDidRenameFile(const std::shared_ptr<VXCloudSession>& session,
                                            const std::shared_ptr<VXCloudFile>& file) {
    handleResponse(session, file, nullptr);
}

void VXCloudTask::cloudSessionRenameFailedForFile(const std::shared_ptr<VXCloudSession>& session,
                                                  const std::shared_ptr<VXCloudFile>& file,
                                                  const std::shared_ptr<VXCloudError>& withError) {
    handleResponse(session, file, withError);
}

// ------------------------------------------------------------------------ move

Json VXCloudTask::move(const VXCloudFileList& cloudFiles, const std::shared_ptr<VXCloudFile>& fromFolder,
                       const std::shared_ptr<VXCloudFile>& to,
                       const std::shared_ptr<VXCloudAccount>& account) {
    Json result = Json::array();
    task::guarded("starting a move", [&] {
        std::optional<ReachabilityStatus> reachability;
        if (!account || !isEligible(*account, reachability)) return;

        Json pending = records::pendingUpload(*account);
        for (const auto& file : cloudFiles) {
            if (!file) continue;
            pending[kDocumentId] = file->name;
            result.push_back(Json{{kFileIdentifier, file->fileIdentifier.value_or_null()},
                                  {kUploadStatus, pending}});
        }

        auto session = initCloudSession(account);
        if (!session) {
            // Nothing is started: the files' entries carry the failure instead.
            Json failure = getErrorStatus(*account, VXCloudError(ErrorCode::authentication));
            for (auto& entry : result) {
                Json record = failure;
                record[kDocumentId] = entry[kUploadStatus][kDocumentId];
                entry[kUploadStatus] = std::move(record);
            }
            if (auto delegate = cloudTaskDelegate()) delegate->taskDidFinish(shared_from_this());
            return;
        }
        DispatchQueue::global()->async([self = shared_from_this(), session = std::move(session),
                                        cloudFiles, fromFolder, to] {
            const bool started = task::guarded("starting a move on the session", [&] {
                session->setCloudSessionDelegate(self);
                session->moveWithCloudFiles(cloudFiles, fromFolder, to);
            });
            // The session threw and will not answer: report every file as not moved.
            if (!started) self->cloudSessionDidMoveFiles(session, {}, cloudFiles);
        });
    });
    return result;
}

void VXCloudTask::cloudSessionDidMoveFiles(const std::shared_ptr<VXCloudSession>&,
                                           const VXCloudFileList& files,
                                           const VXCloudFileList& errorMovingFiles) {
    task::guarded("reporting a move", [&] {
        Json moveStatus = Json::array();
        for (const auto& file : files)
            if (file && hasIdentifier(*file)) moveStatus.push_back(moveEntry(*file, true));
        for (const auto& file : errorMovingFiles)
            if (file && hasIdentifier(*file)) moveStatus.push_back(moveEntry(*file, false));
        NotificationCenter::defaultCenter().post(VXCloudUploadStatusNotification, shared_from_this(),
                                                 Json{{kMoveStatus, std::move(moveStatus)}});
    });
    if (auto delegate = cloudTaskDelegate()) delegate->taskDidFinish(shared_from_this());
}

}  // namespace vxcloud
