#pragma once
// The host's one door to cloud work on its documents: upload to the linked accounts,
// upload chosen files by hand, rename everywhere, move between folders. Every entry point
// returns at once; outcomes arrive as "VXCloudUploadStatusNotification" on the default
// notification centre (posted from the main queue, which the host drives) or, for manual
// uploads, on the delegates the host passes in.
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "vxcloud/engine/UploadOperation.h"
#include "vxcloud/engine/UploadStatus.h"
#include "vxcloud/engine/VXCloudTask.h"
#include "vxcloud/platform/Dispatch.h"
#include "vxcloud/platform/Json.h"

namespace vxcloud {

class VXCloudTaskManager : public VXCloudTaskDelegate,
                           public std::enable_shared_from_this<VXCloudTaskManager> {
public:
    // Created on first use; lives for the whole process.
    static const std::shared_ptr<VXCloudTaskManager>& sharedInstance();

    VXCloudTaskManager(const VXCloudTaskManager&) = delete;
    VXCloudTaskManager& operator=(const VXCloudTaskManager&) = delete;
    ~VXCloudTaskManager() override;

    // Uploads the document at `pdfPath` under its file name. See uploadWithFilename.
    Json uploadWithPdfPath(const std::string& pdfPath, const JsonBox& uploadStatus,
                           bool overwriteExistingFile, const JsonBox& fileIdentifier,
                           const std::optional<VXCloudAccountList>& toCloudAccounts,
                           bool compareLocalHash);
    // Maps the document once (every account's request shares the bytes) and starts one
    // task. An unreadable document still makes a task, which then answers "file_upload"
    // for each eligible account. Returns the task's pending and immediate error records
    // (a JSON array). `uploadStatus` is the document's earlier records (a JSON array).
    Json uploadWithFilename(const std::string& filename, const std::string& pdfPath,
                            const JsonBox& uploadStatus, bool overwriteExistingFile,
                            const JsonBox& fileIdentifier,
                            const std::optional<VXCloudAccountList>& toCloudAccounts,
                            bool compareLocalHash);
    // Uploads each file that has data and an upload folder, outside the shared queue, with
    // the outcomes and progress going to the given delegates. Returns the total byte count
    // of the files handed on (0 for none, or without an account).
    std::int64_t manualUploadWithFiles(const VXCloudFileList& files, bool overwriteExistingFile,
                                       const std::shared_ptr<VXCloudAccount>& account,
                                       const std::shared_ptr<VXCloudSessionDelegate>& cloudSessionDelegate,
                                       const std::shared_ptr<VXCloudProgressDelegate>& progressDelegate);
    Json renameWithNewFilename(const std::string& newFilename, const JsonBox& uploadStatus,
                               bool overwriteExistingFile, const JsonBox& fileIdentifier,
                               const std::optional<VXCloudAccountList>& toCloudAccounts,
                               CreatePDFBlock createPDFBlock);
    Json moveWithCloudFiles(const VXCloudFileList& cloudFiles,
                            const std::shared_ptr<VXCloudFile>& fromFolder,
                            const std::shared_ptr<VXCloudFile>& toFolder,
                            const std::shared_ptr<VXCloudAccount>& account);

    // Drops the task from pendingTasks (by identity), asynchronously on serialQueue.
    void taskDidFinish(const std::shared_ptr<VXCloudTask>& task) override;

    UploadOperations& uploadOperations() noexcept { return uploadOperations_; }
    const std::shared_ptr<SerialQueue>& serialQueue() const noexcept { return serialQueue_; }
    // A snapshot of pendingTasks, taken on serialQueue (after the changes scheduled so far).
    std::vector<std::shared_ptr<VXCloudTask>> pendingTasks() const;

private:
    VXCloudTaskManager();
    // A new task with this manager as its delegate, entered in pendingTasks.
    std::shared_ptr<VXCloudTask> makePendingTask();

    UploadOperations uploadOperations_;
    const std::shared_ptr<SerialQueue> serialQueue_;
    // Touched only by blocks on serialQueue_.
    std::vector<std::shared_ptr<VXCloudTask>> pendingTasks_;
};

}  // namespace vxcloud
