#pragma once
// The session for Google Drive accounts. Drive addresses files by id and lets one name occur
// many times in a folder, so stored documents are found with search queries (parent, name,
// trash state) and compared by MD5 checksum; content is replaced by updating the found file,
// and files move by changing their parents, at most four at a time.
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <semaphore>
#include <string>
#include <vector>

#include "vxcloud/model/VXCloudError.h"
#include "vxcloud/sessions/VXCloudSession.h"

namespace vxcloud {

namespace drive {

class GoogleDriveClient;

// The fields of a Drive file resource that the component reads. Each is set only when the
// answer held it (a field selection leaves the others out).
struct File {
    std::optional<std::string> identifier;  // "id"
    std::optional<std::string> name;
    std::optional<std::string> mimeType;
    std::optional<std::string> md5Checksum;
    std::optional<std::vector<std::string>> parents;
    std::optional<bool> trashed;
    std::optional<std::int64_t> size;
};

inline constexpr const char* kFolderMimeType = "application/vnd.google-apps.folder";

}  // namespace drive

class VXCloudGoogleDriveSession final : public VXCloudSession {
public:
    static constexpr const char* kSettingsFileName = ".quillosettings";
    static constexpr const char* kMoveQueueLabel = "com.VXCloud.GoogleMoveQueue";
    static constexpr std::ptrdiff_t kConcurrentMoves = 4;

    // Nothing when no authorisation is stored under the account's storage name.
    static std::shared_ptr<VXCloudGoogleDriveSession> initWithCloudAccount(std::shared_ptr<VXCloudAccount> account);

    // "VX_Google_Drive_" + the account's user id: where its authorisation is kept.
    static std::string storageName(const VXCloudAccount& account);
    // The id that stands for the top folder.
    const std::string root = "root";

    std::shared_ptr<VXCloudFile> rootFolder() const override;

    // Completions and delegate callbacks arrive on global-queue threads.
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

    // Bytes sent at the previous progress report; empty until the first one.
    std::optional<std::uint64_t> previousUploadAmount() const;

    // The folder id of a parent record: its id, or "root" when it has none. Lookups also
    // take an empty id for the top folder.
    static std::string folderId(const std::shared_ptr<VXCloudFile>& parent, bool forLookup);
    // The search texts the session sends; names are quoted with their quotes and
    // backslashes escaped, so no name can change a query's meaning.
    static std::string subfoldersQuery(const std::string& folderId);
    static std::string documentQuery(const std::string& folderId, const std::string& name);
    static std::string folderContentsQuery(const std::string& folderId);
    static std::string settingsQuery();
    static std::string quoted(const std::string& text);

    struct Private;
    VXCloudGoogleDriveSession(const Private&, std::shared_ptr<VXCloudAccount> account,
                              std::shared_ptr<drive::GoogleDriveClient> client);
    ~VXCloudGoogleDriveSession() override;

private:
    struct Found {
        std::optional<drive::File> file;
        std::shared_ptr<VXCloudError> error;
    };

    std::shared_ptr<VXCloudGoogleDriveSession> self();
    void runInBackground(std::function<void()> block);

    // The steps of the operations, run on global-queue threads; they block on the network.
    Found findFile(const VXCloudFile& cloudFile, const std::shared_ptr<VXCloudFile>& inFolder, bool checkFileVersion);
    struct Pair {
        std::shared_ptr<VXCloudFile> record;
        std::optional<drive::File> file;
    };
    std::optional<std::vector<Pair>> findFiles(const VXCloudFileList& cloudFiles,
                                               const std::shared_ptr<VXCloudFile>& inFolder);
    void answerKnownDocument(const std::shared_ptr<VXCloudFile>& file, const std::shared_ptr<VXCloudFile>& parent,
                             bool overwrite);
    // Stores the record as a new file under `storedName` (the record's stored name when
    // empty) and reports with the upload callbacks. Drive has no clash on creation, so no
    // overwrite flag is needed.
    void _upload(const std::shared_ptr<VXCloudFile>& cloudFile, const std::shared_ptr<VXCloudFile>& inParentFolder,
                 const std::optional<std::string>& storedName = std::nullopt);
    void updateFile(const drive::File& with, const std::shared_ptr<VXCloudFile>& cloudFile,
                    const std::shared_ptr<VXCloudFile>& parentFolder);
    void reportProgress(std::int64_t uploaded, std::int64_t expected);
    // Writes what Drive returned into the caller's record and reports it uploaded.
    void finishUpload(const std::shared_ptr<VXCloudFile>& cloudFile, const drive::File& stored,
                      const std::optional<std::string>& knownId);

    std::shared_ptr<drive::GoogleDriveClient> client_;
    std::counting_semaphore<> moveSemaphore_{kConcurrentMoves};
    mutable std::mutex progressMutex_;
    std::optional<std::uint64_t> previousUploadAmount_;
};

}  // namespace vxcloud
