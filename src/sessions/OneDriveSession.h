#pragma once
// The OneDrive session's insides: the Graph client, the move limit, the progress state and
// the private steps behind the public VXCloudOneDriveSession, which initWithCloudAccount
// makes as this class.
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <semaphore>
#include <string>
#include <vector>

#include "../providers/onedrive/GraphClient.h"
#include "ConcurrentMoves.h"
#include "StoredCopyDecision.h"
#include "vxcloud/model/VXCloudOneDriveVersion.h"
#include "vxcloud/sessions/VXCloudOneDriveSession.h"

namespace vxcloud::onedrive_session {

inline constexpr const char* kCategory = "onedrive";
inline constexpr const char* kMoveQueueLabel = "com.VXCloud.OneDriveMoveQueue";
inline constexpr std::ptrdiff_t kConcurrentMoves = 4;

class OneDriveSession final : public VXCloudOneDriveSession {
public:
    OneDriveSession(std::shared_ptr<VXCloudAccount> account, std::shared_ptr<onedrive::GraphClient> client);

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

    // Progress of the upload in flight as the fraction of its bytes the service holds:
    // reported as the bytes sent since the previous report, against the document's size.
    // Ignored when no upload is in flight or the fraction is not a number in [0, 1].
    void fractionCompleted(double fraction);
    // Starts the progress of an upload of `size` bytes; ends it.
    void beginProgress(std::int64_t size);
    void endProgress();

    // The id of a parent record: its id, or "root" when it has none or an empty one.
    static std::string parentId(const std::shared_ptr<VXCloudFile>& parent);
    // The folder's path below the top folder, without its leading "/" ("" for the top).
    static std::string lookupPath(const std::shared_ptr<VXCloudFile>& folder);

private:
    std::shared_ptr<OneDriveSession> self();
    // `ifItThrows` answers for the operation when its block throws before answering.
    void runInBackground(std::function<void()> ifItThrows, std::function<void()> block);

    // The steps of the operations, run on global-queue threads; they block on the network.
    // Looks in the folder's first page of children for the document: by digest, then by
    // its stored name.
    sessions::StoredCopyLookup findFile(const VXCloudFile& cloudFile, const std::shared_ptr<VXCloudFile>& inFolder,
                                        bool checkFileVersion);
    std::optional<std::vector<sessions::MovePair>> findFiles(const VXCloudFileList& cloudFiles,
                                                             const std::shared_ptr<VXCloudFile>& inFolder);
    // Stores the document's bytes as `name` in the parent folder; the stored item, or the
    // error to report (already mapped).
    providers::CallResult<onedrive::Item> store(const VXCloudFile& cloudFile, const std::string& parentId,
                                                const std::string& name, onedrive::ConflictBehavior behavior);
    // Stores and reports with the upload callbacks.
    void _uploadFile(const std::shared_ptr<VXCloudFile>& cloudFile, const std::string& parentId,
                     const std::string& name, onedrive::ConflictBehavior behavior);
    void _uploadFolder(const std::shared_ptr<VXCloudFile>& cloudFile, const std::string& parentId);
    // Gives the item the new name and reports with the rename callbacks.
    void _rename(const std::shared_ptr<VXCloudFile>& cloudFile, const std::string& itemId, const std::string& newName);

    std::shared_ptr<onedrive::GraphClient> client_;
    std::counting_semaphore<> moveSemaphore_{kConcurrentMoves};
    mutable std::mutex progressMutex_;
    std::optional<std::int64_t> fileSize_;
    std::optional<std::int64_t> previousUploadAmount_;
};

// Whether the item's content is the one `wanted` names, by any digest the drive reported
// for it (a version recorded while the drive gave SHA-1 still finds the file once it gives
// only QuickXorHash, when the local side knows both).
bool holdsContent(const onedrive::Item& item, const VXCloudOneDriveVersion& wanted);

// The error to report for a Graph failure.
std::shared_ptr<VXCloudError> mappedError(const ProviderError& error);

}  // namespace vxcloud::onedrive_session
