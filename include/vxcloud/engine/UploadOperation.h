#pragma once
// The shared upload queue: every automatic upload of every task passes through it, so no
// more than four transfers ever run at once. One UploadOperation is one transfer: one
// file, to one folder, through one session; it holds its slot until the session reports.
#include <memory>
#include <mutex>

#include "vxcloud/platform/OperationQueue.h"
#include "vxcloud/sessions/VXCloudSession.h"

namespace vxcloud {

class UploadOperations {
public:
    static constexpr int MAX_CONCURRENT_UPLOADS = 4;

    UploadOperations() = default;
    UploadOperations(const UploadOperations&) = delete;
    UploadOperations& operator=(const UploadOperations&) = delete;

    // "Upload Task Queue", created on first use with a limit of 4; the same queue after.
    const std::shared_ptr<OperationQueue>& uploadQueue();

private:
    std::once_flag once_;
    std::shared_ptr<OperationQueue> uploadQueue_;
};

class UploadOperation : public Operation, public VXCloudSessionDelegate {
public:
    // All five are required; a null session, delegate, file or folder is a programming
    // error and stops the process.
    UploadOperation(std::shared_ptr<VXCloudSession> session,
                    std::shared_ptr<VXCloudSessionDelegate> sessionDelegate,
                    std::shared_ptr<VXCloudFile> cloudFile, std::shared_ptr<VXCloudFile> parentFolder,
                    bool overwriteExistingFile);
    UploadOperation() = delete;
    ~UploadOperation() override;

    bool isAsynchronous() const override { return true; }
    // Marks itself executing, becomes the session's delegate and starts the upload. The
    // slot is held until the session's outcome arrives; there is no time-out.
    void start() override;

    // The upload outcomes are forwarded to the sessionDelegate first, then the operation
    // leaves "executing" and becomes "finished", which frees its slot.
    void cloudSessionDidUploadFile(const std::shared_ptr<VXCloudSession>& session,
                                   const std::shared_ptr<VXCloudFile>& file) override;
    void cloudSessionUploadFailedForFile(const std::shared_ptr<VXCloudSession>& session,
                                         const std::shared_ptr<VXCloudFile>& file,
                                         const std::shared_ptr<VXCloudError>& withError) override;
    // Not an upload's outcome: ignored.
    void cloudSessionDidLoadFolders(const std::shared_ptr<VXCloudSession>&, const VXCloudFileList&,
                                    const std::shared_ptr<VXCloudFile>&) override {}
    void cloudSessionLoadFoldersFailedWithError(const std::shared_ptr<VXCloudSession>&,
                                                const std::shared_ptr<VXCloudError>&) override {}
    void cloudSessionDidRenameFile(const std::shared_ptr<VXCloudSession>&,
                                   const std::shared_ptr<VXCloudFile>&) override {}
    void cloudSessionRenameFailedForFile(const std::shared_ptr<VXCloudSession>&,
                                         const std::shared_ptr<VXCloudFile>&,
                                         const std::shared_ptr<VXCloudError>&) override {}
    void cloudSessionDidMoveFiles(const std::shared_ptr<VXCloudSession>&, const VXCloudFileList&,
                                  const VXCloudFileList&) override {}

    bool overwriteExistingFile() const noexcept { return overwriteExistingFile_; }
    const std::shared_ptr<VXCloudSessionDelegate>& sessionDelegate() const noexcept {
        return sessionDelegate_;
    }
    const std::shared_ptr<VXCloudFile>& cloudFile() const noexcept { return cloudFile_; }
    const std::shared_ptr<VXCloudFile>& parentFolder() const noexcept { return parentFolder_; }
    // Empty once the outcome has arrived.
    std::shared_ptr<VXCloudSession> session() const;

private:
    // Forwards an outcome (before the flags change, so the receiver has recorded it by the
    // time the slot is freed), then finishes.
    void finishAfter(const std::function<void(VXCloudSessionDelegate&)>& forward);

    const std::shared_ptr<VXCloudSessionDelegate> sessionDelegate_;
    const std::shared_ptr<VXCloudFile> cloudFile_;
    const std::shared_ptr<VXCloudFile> parentFolder_;
    const bool overwriteExistingFile_;
    // The session is let go after its outcome, so that a session holding its delegate
    // strongly does not keep this operation (and the document's bytes) alive in a cycle.
    mutable std::mutex sessionMutex_;
    std::shared_ptr<VXCloudSession> session_;
};

}  // namespace vxcloud
