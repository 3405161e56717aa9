// The task's shared machinery (account filter, record filing, completion step) and its
// upload flows. Rename and move are in VXCloudTaskRenameMove.cpp.
#include "vxcloud/engine/VXCloudTask.h"

#include <exception>
#include <utility>

#include "engine/TaskSupport.h"
#include "engine/UploadStatusRecords.h"
#include "vxcloud/engine/UploadStatus.h"
#include "vxcloud/engine/VXCloudSessionFactory.h"
#include "vxcloud/engine/VXCloudTaskManager.h"
#include "vxcloud/model/VXCloudAccount.h"
#include "vxcloud/model/VXCloudError.h"
#include "vxcloud/model/VXCloudFile.h"
#include "vxcloud/model/VXCloudFileHasher.h"
#include "vxcloud/model/VXCloudServiceRegistry.h"
#include "vxcloud/model/VXCloudUserDefaults.h"
#include "vxcloud/platform/Log.h"
#include "vxcloud/platform/Reachability.h"

namespace vxcloud {

using namespace uploadstatus;

std::shared_ptr<VXCloudTask> VXCloudTask::create() {
    return std::shared_ptr<VXCloudTask>(new VXCloudTask());
}

VXCloudTask::VXCloudTask()
    : threadSafeQueue_(ConcurrentQueue::create("com.VXCloud.ThreadSafeQueue")),
      fileUploadStatusInfo_(Json::object()) {}

VXCloudTask::~VXCloudTask() = default;

// ------------------------------------------------------------------ shared machinery

ReachabilityStatus VXCloudTask::currentReachabilityStatus() {
    try {
        switch (Reachability::current()) {
            case NetworkPath::wifi: return ReachabilityStatus::reachableViaWiFi;
            case NetworkPath::cellular: return ReachabilityStatus::reachableViaWWAN;
            case NetworkPath::notReachable: return ReachabilityStatus::notReachable;
        }
    } catch (const std::exception& e) {
        log::warning(task::kCategory, std::string("reachability unknown: ") + e.what());
    }
    return ReachabilityStatus::notReachable;
}

VXCloudAccountList VXCloudTask::accountsFor(const std::optional<VXCloudAccountList>& given) {
    if (given) return *given;
    return VXCloudUserDefaults::loadAllAccounts(false);
}

bool VXCloudTask::isEligible(const VXCloudAccount& account,
                             std::optional<ReachabilityStatus>& reachability) {
    if (!account.shouldAutoUpload) return false;
    // A session that never answers some calls (OneNote's rename and move) must not be waited
    // on, whatever a stored preference says: such services are reached by manual upload only.
    if (noAutoUploadReason(account.cloudService)) return false;
    if (account.onlyWifiUpload) {
        // Asked once per request; a change of network during the transfer is not watched.
        if (!reachability) reachability = currentReachabilityStatus();
        if (*reachability != ReachabilityStatus::reachableViaWiFi) return false;
    }
    return true;
}

void VXCloudTask::setExistingFileUploadStatus(const JsonBox& uploadStatus) {
    threadSafeQueue_->syncBarrier([&] { existingFileUploadStatus_ = uploadStatus; });
}

JsonBox VXCloudTask::earlierRecordFor(const JsonBox& uploadStatus, const VXCloudAccount& account,
                                      bool withDocumentId) {
    if (const Json* record = records::find(uploadStatus, account, withDocumentId)) return *record;
    return {};
}

void VXCloudTask::enterAccount() {
    taskDispatchGroup_.enter();
    dispatchGroupCount_.fetch_add(1);
}

void VXCloudTask::notifyWhenAllAnswered(const JsonBox& fileIdentifier) {
    // The block keeps the task alive until its last account has answered.
    taskDispatchGroup_.notify(DispatchQueue::main(), [self = shared_from_this(), fileIdentifier] {
        self->completionStep(fileIdentifier);
    });
}

void VXCloudTask::completionStep(const JsonBox& fileIdentifier) {
    std::optional<Json> collection;
    threadSafeQueue_->syncBarrier([&] {
        if (!fileUploadStatusInfo_ || !fileUploadStatusInfo_->is_object())
            fileUploadStatusInfo_ = Json::object();
        Json& info = *fileUploadStatusInfo_;
        if (fileIdentifier) info[kFileIdentifier] = *fileIdentifier;
        const auto list = info.find(kUploadStatusResponse);
        if (list == info.end() || !list->is_array() || list->empty()) return;
        collection = std::move(info);
        fileUploadStatusInfo_ = Json::object();
    });
    if (collection) postUploadStatusNotification(shared_from_this(), *collection);
}

void VXCloudTask::updateFileUploadStatus(const Json& uploadFile, const VXCloudAccount& cloudAccount) {
    // Keys the new record does not mention (an older "version", the host's own keys)
    // survive from the host's earlier record for the account.
    Json record = uploadFile;
    if (const Json* older = records::find(existingFileUploadStatus_, cloudAccount))
        record = records::merge(*older, uploadFile);
    // A wait the service asked for, and whether bytes went out, belong to the outcome that
    // says so, never to an earlier one.
    for (const char* key : {kRetryAfter, kContentSent}) {
        if (!uploadFile.contains(key)) record.erase(key);
    }

    if (!fileUploadStatusInfo_ || !fileUploadStatusInfo_->is_object())
        fileUploadStatusInfo_ = Json::object();
    Json& list = (*fileUploadStatusInfo_)[kUploadStatusResponse];
    if (!list.is_array()) list = Json::array();
    list.push_back(std::move(record));

    if (dispatchGroupCount_.load() > 0) {
        dispatchGroupCount_.fetch_sub(1);
        taskDispatchGroup_.leave();
    }
    // Leaves the manager's list at the first outcome; the operations and the completion
    // step keep the task alive until the last.
    if (auto delegate = cloudTaskDelegate()) delegate->taskDidFinish(shared_from_this());
}

void VXCloudTask::fileRecord(const Json& record, const VXCloudAccount& cloudAccount) {
    threadSafeQueue_->syncBarrier([&] {
        try {
            updateFileUploadStatus(record, cloudAccount);
        } catch (const std::exception& e) {
            log::error(task::kCategory, std::string("filing a status record failed: ") + e.what());
        }
    });
}

Json VXCloudTask::fileUploadStatusInfo() const {
    Json copy;
    threadSafeQueue_->sync([&] { copy = fileUploadStatusInfo_.value_or_null(); });
    return copy;
}

void VXCloudTask::handleResponse(const std::shared_ptr<VXCloudSession>& cloudSession,
                                 const std::shared_ptr<VXCloudFile>& file,
                                 const std::shared_ptr<VXCloudError>& error) {
    const auto account = cloudSession ? cloudSession->cloudAccount() : nullptr;
    if (!account) {
        log::error(task::kCategory, "an outcome arrived from a session without an account; ignored");
        return;
    }
    task::guarded("recording an outcome", [&] {
        fileRecord(records::outcome(*account, file.get(), error.get()), *account);
    });
}

void VXCloudTask::cloudSessionDidUploadFile(const std::shared_ptr<VXCloudSession>& session,
                                            const std::shared_ptr<VXCloudFile>& file) {
    handleResponse(session, file, nullptr);
}

void VXCloudTask::cloudSessionUploadFailedForFile(const std::shared_ptr<VXCloudSession>& session,
                                                  const std::shared_ptr<VXCloudFile>& file,
                                                  const std::shared_ptr<VXCloudError>& withError) {
    handleResponse(session, file, withError);
}

// ---------------------------------------------------------------------- upload

Json VXCloudTask::upload(const std::string& filename, const std::optional<ByteBuffer>& data,
                         const JsonBox& uploadStatus, bool overwriteExistingFile,
                         const JsonBox& fileIdentifier,
                         const std::optional<VXCloudAccountList>& toCloudAccounts,
                         bool compareLocalHash) {
    Json result = Json::array();
    task::guarded("starting an upload", [&] {
        setExistingFileUploadStatus(uploadStatus);
        std::optional<ReachabilityStatus> reachability;
        long started = 0;
        for (const auto& account : accountsFor(toCloudAccounts)) {
            if (!account || !isEligible(*account, reachability)) continue;
            auto parentFolder = initUploadFolderFromDictionary(account->uploadFolderInfo);
            if (!parentFolder) {
                result.push_back(getErrorStatus(*account, VXCloudError(ErrorCode::missingFolder)));
                continue;
            }
            if (!data) {
                result.push_back(getErrorStatus(*account, VXCloudError(ErrorCode::fileUpload)));
                continue;
            }
            result.push_back(records::pendingUpload(*account));
            enterAccount();
            ++started;
            DispatchQueue::global(QoS::background)
                ->async([self = shared_from_this(), account, filename, data = *data,
                         parentFolder = std::move(parentFolder), overwriteExistingFile,
                         compareLocalHash, earlier = earlierRecordFor(uploadStatus, *account, false)] {
                    self->uploadToAccount(account, filename, data, parentFolder, earlier,
                                          overwriteExistingFile, compareLocalHash);
                });
        }
        // Decided by what this call started, not by the live count: answers that arrive
        // before the loop ends must not cost the notification.
        if (started > 0) notifyWhenAllAnswered(fileIdentifier);
    });
    return result;
}

void VXCloudTask::uploadToAccount(const std::shared_ptr<VXCloudAccount>& account,
                                  const std::string& filename, const ByteBuffer& data,
                                  const std::shared_ptr<VXCloudFile>& parentFolder,
                                  const JsonBox& earlierRecord, bool overwriteExistingFile,
                                  bool compareLocalHash) {
    const bool queued = task::guarded("preparing an upload", [&] {
        auto session = initCloudSession(account);
        if (!session) {
            fileRecord(records::noSession(*account), *account);
            return;
        }
        auto file = std::make_shared<VXCloudFile>(filename, false, false);
        file->fileData = data;  // shares the document's bytes
        if (compareLocalHash) {
            if (auto hash = VXCloudFileHasher::hash(data, task::serviceOf(*session, *account)))
                file->localVersion = std::move(*hash);
        }
        // What was stored before (name, version), for the session to compare with.
        file->fileUploadStatus = earlierRecord;
        auto operation = std::make_shared<UploadOperation>(std::move(session), shared_from_this(),
                                                           std::move(file), parentFolder,
                                                           overwriteExistingFile);
        VXCloudTaskManager::sharedInstance()->uploadOperations().uploadQueue()->addOperation(
            std::move(operation));
    });
    // Something failed before the upload was queued: answer for the account, or the task
    // would wait for it forever.
    if (!queued) fileRecord(getErrorStatus(*account, VXCloudError(ErrorCode::fileUpload)), *account);
}

void VXCloudTask::manualUpload(const std::shared_ptr<VXCloudFile>& file, bool overwriteExistingFile,
                               const std::shared_ptr<VXCloudAccount>& account,
                               const std::shared_ptr<VXCloudSessionDelegate>& cloudSessionDelegate,
                               const std::shared_ptr<VXCloudProgressDelegate>& progressDelegate) {
    task::guarded("starting a manual upload", [&] {
        if (!file) return;
        auto session = initCloudSession(account);
        if (!session) {
            // A manual upload counts nothing in the task, so there is no share to give back;
            // the file is dropped and the caller hears nothing.
            log::warning(task::kCategory, "no session for a manual upload; the file is dropped");
            return;
        }
        if (file->fileData) {
            if (auto hash = VXCloudFileHasher::hash(*file->fileData, task::serviceOf(*session, *account)))
                file->localVersion = std::move(*hash);
        }
        session->setCloudSessionDelegate(cloudSessionDelegate);
        session->setCloudSessionProgressDelegate(progressDelegate);
        session->uploadWithCloudFile(file, file->uploadFolder, overwriteExistingFile);
    });
}

}  // namespace vxcloud
