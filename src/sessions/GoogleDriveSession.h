#pragma once
// The Google Drive session's insides: the client, the move limit, the progress total and the
// private steps behind the public VXCloudGoogleDriveSession, which initWithCloudAccount makes
// as this class.
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <semaphore>
#include <string>
#include <vector>

#include "providers/google/GoogleDriveClient.h"
#include "sessions/ConcurrentMoves.h"
#include "sessions/StoredCopyDecision.h"
#include "sessions/VXCloudGoogleDriveSessionSupport.h"
#include "vxcloud/sessions/VXCloudGoogleDriveSession.h"

namespace vxcloud::google_session {

inline constexpr const char* kMoveQueueLabel = "com.VXCloud.GoogleMoveQueue";
inline constexpr std::ptrdiff_t kConcurrentMoves = 4;

class GoogleDriveSession final : public VXCloudGoogleDriveSession {
public:
    GoogleDriveSession(std::shared_ptr<VXCloudAccount> account, std::shared_ptr<drive::GoogleDriveClient> client);

    // The id that stands for the top folder.
    const std::string root = "root";

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

    std::optional<std::uint64_t> previousUploadAmount() const override;

    // The folder id of a parent record: its id, or "root" when it has none. Lookups also
    // take an empty id for the top folder.
    static std::string folderId(const std::shared_ptr<VXCloudFile>& parent, bool forLookup);
    // The search text for every live item of a folder.
    static std::string folderContentsQuery(const std::string& folderId);

private:
    std::shared_ptr<GoogleDriveSession> self();
    // `ifItThrows` answers for the operation when its block throws before answering.
    void runInBackground(std::function<void()> ifItThrows, std::function<void()> block);

    // The steps of the operations, run on global-queue threads; they block on the network.
    sessions::StoredCopyLookup findFile(const VXCloudFile& cloudFile, const std::shared_ptr<VXCloudFile>& inFolder,
                                        bool checkFileVersion);
    std::optional<std::vector<sessions::MovePair>> findFiles(const VXCloudFileList& cloudFiles,
                                               const std::shared_ptr<VXCloudFile>& inFolder);
    // Stores the record as a new file under `storedName` (the record's stored name when
    // empty) and reports with the upload callbacks. Drive has no clash on creation, so no
    // overwrite flag is needed.
    void _upload(const std::shared_ptr<VXCloudFile>& cloudFile, const std::shared_ptr<VXCloudFile>& inParentFolder,
                 const std::optional<std::string>& storedName = std::nullopt);
    // Gives the stored file `fileId` the record's content; it keeps its id.
    void updateFile(const std::string& fileId, const std::shared_ptr<VXCloudFile>& cloudFile);
    void reportProgress(std::int64_t uploaded, std::int64_t expected);
    // Writes what Drive returned into the caller's record and reports it uploaded.
    void finishUpload(const std::shared_ptr<VXCloudFile>& cloudFile, const drive::File& stored,
                      const std::optional<std::string>& knownId);

    std::shared_ptr<drive::GoogleDriveClient> client_;
    std::counting_semaphore<> moveSemaphore_{kConcurrentMoves};
    mutable std::mutex progressMutex_;
    std::optional<std::uint64_t> previousUploadAmount_;
};

}  // namespace vxcloud::google_session
