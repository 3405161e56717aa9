#pragma once
// The Box session's insides: the Box client, the move limit, the progress state and the
// private steps behind the public VXCloudBoxSession, which initWithCloudAccount makes as
// this class.
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <semaphore>
#include <string>
#include <vector>

#include "../providers/box/BoxClient.h"
#include "ConcurrentMoves.h"
#include "StoredCopyDecision.h"
#include "vxcloud/sessions/VXCloudBoxSession.h"

namespace vxcloud::box_session {

inline constexpr const char* kCategory = "box";
inline constexpr const char* kMoveQueueLabel = "com.VXCloud.BoxMoveQueue";
inline constexpr std::ptrdiff_t kConcurrentMoves = 4;

class BoxSession final : public VXCloudBoxSession {
public:
    BoxSession(std::shared_ptr<VXCloudAccount> account, std::shared_ptr<box::BoxClient> client);

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

    // The folder identifier of a parent record: its id, or the top folder's when it has none.
    static std::string folderId(const std::shared_ptr<VXCloudFile>& parent);

private:
    std::shared_ptr<BoxSession> self();
    // `ifItThrows` answers for the operation when its block throws before answering.
    void runInBackground(std::function<void()> ifItThrows, std::function<void()> block);

    // The steps, run on global-queue threads; they block on the network.
    // Looks in the folder for the document: by SHA-1, then by its stored name.
    sessions::StoredCopyLookup findFile(const VXCloudFile& cloudFile, const std::string& inFolderId,
                                        bool checkFileVersion);
    std::optional<std::vector<sessions::MovePair>> findFiles(const VXCloudFileList& cloudFiles,
                                                             const std::string& inFolderId);
    // Stores the document as a new file under its stored name, reporting nothing.
    // `mayWriteOver`: a same-named file the lookup did not see gets the content as a new
    // version (the settings document).
    providers::CallResult<box::Item> storeNew(const VXCloudFile& cloudFile, const std::string& parentId,
                                              bool mayWriteOver);
    // The same, reported with the upload callbacks.
    void _upload(const std::shared_ptr<VXCloudFile>& cloudFile, const std::string& parentId, bool mayWriteOver);
    // Stores the document's content as a new version of the file.
    void updateFile(const std::string& fileId, const std::shared_ptr<VXCloudFile>& cloudFile);
    void _createFolder(const std::shared_ptr<VXCloudFile>& cloudFile, const std::string& parentId);
    // Gives the file the new name and reports with the rename callbacks.
    void _rename(const std::shared_ptr<VXCloudFile>& cloudFile, const std::string& fileId, const std::string& newName);
    // Writes what Box returned into the caller's record and reports it uploaded.
    void finishUpload(const std::shared_ptr<VXCloudFile>& cloudFile, const box::Item& stored);
    box::UploadProgress progressReporter();

    std::shared_ptr<box::BoxClient> client_;
    std::counting_semaphore<> moveSemaphore_{kConcurrentMoves};
    mutable std::mutex progressMutex_;
    std::optional<std::int64_t> previousUploadAmount_;
};

// The error to report for a Box failure.
std::shared_ptr<VXCloudError> mappedError(const ProviderError& error);

}  // namespace vxcloud::box_session
