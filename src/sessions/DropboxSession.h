#pragma once
// The Dropbox session's insides: the client, the progress total and the private steps behind
// the public VXCloudDropboxSession, which initWithCloudAccount makes as this class.
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "sessions/StoredCopyDecision.h"
#include "sessions/VXCloudDropboxSessionSupport.h"
#include "vxcloud/sessions/VXCloudDropboxSession.h"

namespace vxcloud::dropbox_session {

class DropboxSession final : public VXCloudDropboxSession {
public:
    DropboxSession(std::shared_ptr<VXCloudAccount> account, std::shared_ptr<dropbox::DropboxClient> client,
                   std::chrono::milliseconds movePollInterval);

    std::shared_ptr<VXCloudFile> rootFolder() const override;
    void isAuthorizedWithCompletion(std::function<void(bool)> completion) override;
    void removeAuthorizationWithCompletion(
        std::function<void(std::shared_ptr<VXCloudAccount>, std::optional<PlatformError>)> completion) override;
    void loadFoldersInFolder(std::shared_ptr<VXCloudFile> folder) override;
    void uploadWithCloudFile(std::shared_ptr<VXCloudFile> file, std::shared_ptr<VXCloudFile> inParentFolder,
                             bool overwriteExistingFile) override;
    void renameWithCloudFile(std::shared_ptr<VXCloudFile> file, std::string newFileName,
                             std::shared_ptr<VXCloudFile> inParentFolder, bool overwriteExistingFile,
                             CreatePDFBlock createPDFBlock) override;
    void moveWithCloudFiles(VXCloudFileList files, std::shared_ptr<VXCloudFile> fromFolder,
                            std::shared_ptr<VXCloudFile> toFolder) override;
    void downloadSettingsFileWithCompletionHandler(
        std::function<void(std::shared_ptr<VXCloudFile>, std::shared_ptr<VXCloudError>)> completion) override;

    std::optional<std::int64_t> previousUploadAmount() const override;
    std::chrono::milliseconds movePollInterval() const override { return movePollInterval_; }

private:
    using SuccessHandler = std::function<void(const std::shared_ptr<VXCloudFile>&)>;
    using FailureHandler = std::function<void(const std::shared_ptr<VXCloudError>&)>;

    std::shared_ptr<DropboxSession> self();
    // Runs the block on a global queue with this session kept alive; nothing escapes it.
    // `ifItThrows` answers for the operation when its block throws before answering.
    void runInBackground(std::function<void()> ifItThrows, std::function<void()> block, bool backgroundPriority = false);

    // The steps of the operations; all run on a global-queue thread and block on the network.
    void loadFoldersContinue(const std::string& cursor, VXCloudFileList foldersSoFar,
                             const std::shared_ptr<VXCloudFile>& parentFolder);
    void uploadFolder(const std::shared_ptr<VXCloudFile>& folder, const std::shared_ptr<VXCloudFile>& parent);
    sessions::StoredCopyLookup findFile(const VXCloudFile& cloudFile, const std::shared_ptr<VXCloudFile>& inFolder,
                                        bool checkFileVersion);
    // Sends the file's bytes; without a success handler the outcome goes to the delegate as
    // an upload outcome, with one the success goes to the handler and a failure to
    // `onFailure` (or to the delegate as an upload failure when that is empty).
    void _upload(const std::shared_ptr<VXCloudFile>& cloudFile, const std::shared_ptr<VXCloudFile>& inParentFolder,
                 dropbox::WriteMode writeMode, SuccessHandler successHandler = {}, FailureHandler onFailure = {});
    void _rename(const std::shared_ptr<VXCloudFile>& cloudFile, const std::string& currentPath,
                 const std::string& newPath);
    void rebuildAndRename(const std::shared_ptr<VXCloudFile>& file, const std::shared_ptr<VXCloudFile>& parent,
                          dropbox::WriteMode mode, const CreatePDFBlock& createPDFBlock,
                          const std::string& currentPath, const std::string& newPath);
    bool deleteFile(const std::string& filePath);
    void pollMoveStatus(const std::string& jobId, const VXCloudFileList& forCloudFiles);
    void reportProgress(std::int64_t completed, std::int64_t total);

    // Delegate calls; a throwing delegate is logged, never propagated.
    void reportUploaded(const std::shared_ptr<VXCloudFile>& file);
    void reportUploadFailed(const std::shared_ptr<VXCloudFile>& file, ErrorCode code);
    void reportUploadFailed(const std::shared_ptr<VXCloudFile>& file, const std::shared_ptr<VXCloudError>& error);
    void reportRenamed(const std::shared_ptr<VXCloudFile>& file);
    void reportRenameFailed(const std::shared_ptr<VXCloudFile>& file, const std::shared_ptr<VXCloudError>& error);
    void reportMoved(const VXCloudFileList& moved, const VXCloudFileList& notMoved);
    void reportFolders(const VXCloudFileList& folders, const std::shared_ptr<VXCloudFile>& parent);
    void reportFoldersFailed(ErrorCode code);

    std::shared_ptr<dropbox::DropboxClient> client_;
    std::chrono::milliseconds movePollInterval_;
    mutable std::mutex progressMutex_;
    std::optional<std::int64_t> previousUploadAmount_;
};

}  // namespace vxcloud::dropbox_session
