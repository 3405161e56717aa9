#pragma once
// One unit of cloud work for the task manager: send a document to the eligible accounts,
// rename it everywhere, move documents between two folders of one account, or upload
// files picked by hand. A task collects one status record per account outcome and hands
// them to the host in one notification once every account has answered.
#include <atomic>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "vxcloud/engine/VXCloudUtils.h"
#include "vxcloud/platform/ByteBuffer.h"
#include "vxcloud/platform/Dispatch.h"
#include "vxcloud/platform/Json.h"
#include "vxcloud/sessions/VXCloudSession.h"

namespace vxcloud {

class VXCloudTask;

using VXCloudAccountList = std::vector<std::shared_ptr<VXCloudAccount>>;

// Told by a task each time it has filed an outcome (and once a move has reported).
class VXCloudTaskDelegate {
public:
    virtual ~VXCloudTaskDelegate() = default;
    virtual void taskDidFinish(const std::shared_ptr<VXCloudTask>& task) = 0;
};

enum class ReachabilityStatus { notReachable = 0, reachableViaWWAN = 1, reachableViaWiFi = 2 };

// Status lists (what the calls return, and the host's earlier records) are JSON arrays of
// record objects; an absent list is an empty JsonBox. Identifiers are the host's own JSON
// values, echoed back untouched.
class VXCloudTask : public VXCloudSessionDelegate,
                    public Utilities,
                    public std::enable_shared_from_this<VXCloudTask> {
public:
    static std::shared_ptr<VXCloudTask> create();
    ~VXCloudTask() override;
    VXCloudTask(const VXCloudTask&) = delete;
    VXCloudTask& operator=(const VXCloudTask&) = delete;

    // Set before the task is started.
    void setCloudTaskDelegate(const std::weak_ptr<VXCloudTaskDelegate>& delegate) {
        cloudTaskDelegate_ = delegate;
    }
    std::shared_ptr<VXCloudTaskDelegate> cloudTaskDelegate() const {
        return cloudTaskDelegate_.lock();
    }

    // Starts one upload per eligible account and returns at once: a "pending" record for
    // each account whose upload was started, an error record for each that failed at once
    // ("missing_folder", "file_upload" without data). Accounts with automatic upload off,
    // and Wi-Fi-only accounts off Wi-Fi, are skipped without a record. No accounts given
    // means the stored accounts; an empty list means none.
    Json upload(const std::string& filename, const std::optional<ByteBuffer>& data,
                const JsonBox& uploadStatus, bool overwriteExistingFile,
                const JsonBox& fileIdentifier,
                const std::optional<VXCloudAccountList>& toCloudAccounts, bool compareLocalHash);

    // One file of a manual upload, on the caller's delegates; no record, no notification.
    void manualUpload(const std::shared_ptr<VXCloudFile>& file, bool overwriteExistingFile,
                      const std::shared_ptr<VXCloudAccount>& account,
                      const std::shared_ptr<VXCloudSessionDelegate>& cloudSessionDelegate,
                      const std::shared_ptr<VXCloudProgressDelegate>& progressDelegate);

    // Renames the stored document on every eligible account that has a record naming it.
    // Returns the pending and immediate error records, as upload does.
    Json rename(const std::string& newFilename, const JsonBox& uploadStatus,
                bool overwriteExistingFile, CreatePDFBlock createPDFBlock,
                const JsonBox& fileIdentifier,
                const std::optional<VXCloudAccountList>& toCloudAccounts);

    // Moves the files between two folders of the account. Returns one entry per file:
    // {"fileIdentifier": ..., "uploadStatus": record}; the outcome is posted once, under
    // "moveStatus".
    Json move(const VXCloudFileList& cloudFiles, const std::shared_ptr<VXCloudFile>& fromFolder,
              const std::shared_ptr<VXCloudFile>& to, const std::shared_ptr<VXCloudAccount>& account);

    // Turns a session's upload or rename outcome into the account's record and files it.
    void handleResponse(const std::shared_ptr<VXCloudSession>& cloudSession,
                        const std::shared_ptr<VXCloudFile>& file,
                        const std::shared_ptr<VXCloudError>& error);

    static ReachabilityStatus currentReachabilityStatus();

    // Session outcomes.
    void cloudSessionDidLoadFolders(const std::shared_ptr<VXCloudSession>&, const VXCloudFileList&,
                                    const std::shared_ptr<VXCloudFile>&) override {}
    void cloudSessionLoadFoldersFailedWithError(const std::shared_ptr<VXCloudSession>&,
                                                const std::shared_ptr<VXCloudError>&) override {}
    void cloudSessionDidUploadFile(const std::shared_ptr<VXCloudSession>& session,
                                   const std::shared_ptr<VXCloudFile>& file) override;
    void cloudSessionUploadFailedForFile(const std::shared_ptr<VXCloudSession>& session,
                                         const std::shared_ptr<VXCloudFile>& file,
                                         const std::shared_ptr<VXCloudError>& withError) override;
    void cloudSessionDidRenameFile(const std::shared_ptr<VXCloudSession>& session,
                                   const std::shared_ptr<VXCloudFile>& file) override;
    void cloudSessionRenameFailedForFile(const std::shared_ptr<VXCloudSession>& session,
                                         const std::shared_ptr<VXCloudFile>& file,
                                         const std::shared_ptr<VXCloudError>& withError) override;
    void cloudSessionDidMoveFiles(const std::shared_ptr<VXCloudSession>& session,
                                  const VXCloudFileList& files,
                                  const VXCloudFileList& errorMovingFiles) override;

    // Snapshots of the guarded state, for hosts' diagnostics and tests.
    Json fileUploadStatusInfo() const;
    long dispatchGroupCount() const noexcept { return dispatchGroupCount_.load(); }
    const std::string& threadSafeQueueLabel() const { return threadSafeQueue_->label(); }

private:
    VXCloudTask();

    // The accounts a request works on: the given ones, else the stored ones.
    static VXCloudAccountList accountsFor(const std::optional<VXCloudAccountList>& given);
    // Whether an account passes the automatic-upload and Wi-Fi-only filters. Reachability
    // is asked at most once per request, through `reachability`.
    static bool isEligible(const VXCloudAccount& account,
                           std::optional<ReachabilityStatus>& reachability);

    void setExistingFileUploadStatus(const JsonBox& uploadStatus);
    // The host's record for this account among `uploadStatus`, when it passed one; with
    // `withDocumentId`, only one that names the stored document. Looked up on the caller's
    // thread and handed to the account's step.
    static JsonBox earlierRecordFor(const JsonBox& uploadStatus, const VXCloudAccount& account,
                                    bool withDocumentId);
    // Counts one more account as outstanding.
    void enterAccount();
    // Arranges the completion step on the main queue for when every account has answered.
    void notifyWhenAllAnswered(const JsonBox& fileIdentifier);
    void completionStep(const JsonBox& fileIdentifier);

    void uploadToAccount(const std::shared_ptr<VXCloudAccount>& account, const std::string& filename,
                         const ByteBuffer& data, const std::shared_ptr<VXCloudFile>& parentFolder,
                         const JsonBox& earlierRecord, bool overwriteExistingFile,
                         bool compareLocalHash);
    void renameOnAccount(const std::shared_ptr<VXCloudAccount>& account, const std::string& newFilename,
                         const std::shared_ptr<VXCloudFile>& uploadFolder, const JsonBox& matched,
                         bool overwriteExistingFile, const CreatePDFBlock& createPDFBlock);

    // Files a record for the account (always inside a barrier block on threadSafeQueue).
    void updateFileUploadStatus(const Json& uploadFile, const VXCloudAccount& cloudAccount);
    // Files a record from another thread: a barrier block, waited for.
    void fileRecord(const Json& record, const VXCloudAccount& cloudAccount);

    std::weak_ptr<VXCloudTaskDelegate> cloudTaskDelegate_;
    DispatchGroup taskDispatchGroup_;
    const std::shared_ptr<ConcurrentQueue> threadSafeQueue_;
    // Raised on the caller's thread, lowered in barrier blocks; lowering checks and
    // decrements under the barrier, so the group is never left more often than entered.
    std::atomic<long> dispatchGroupCount_{0};
    // Guarded by threadSafeQueue_.
    JsonBox fileUploadStatusInfo_;
    JsonBox existingFileUploadStatus_;
    // Kept for hosts that read it; the upload flow returns its pending list instead.
    JsonBox pendingUploadStatusList_;
};

}  // namespace vxcloud
