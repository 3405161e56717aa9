#pragma once
// The session for Dropbox accounts: everything is addressed by path; a stored document is
// found again by content hash, then by name; moves go through one batch job that is polled.
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "vxcloud/model/VXCloudError.h"
#include "vxcloud/sessions/VXCloudSession.h"

namespace vxcloud {

namespace dropbox {

class DropboxClient;

// One item of a Dropbox listing or route result (file, folder, or deleted entry).
struct Metadata {
    enum class Tag { file, folder, deleted };
    Tag tag = Tag::file;
    std::string name;
    std::optional<std::string> id;           // "id:..." (not for deleted entries)
    std::optional<std::string> pathLower;
    std::optional<std::string> pathDisplay;
    std::optional<std::string> rev;          // files only
    std::optional<std::string> contentHash;  // files only
    std::optional<std::int64_t> size;        // files only
};

enum class WriteMode { add, overwrite };

}  // namespace dropbox

class VXCloudDropboxSession final : public VXCloudSession {
public:
    static constexpr std::chrono::milliseconds kMovePollInterval{3000};
    static constexpr const char* kSettingsFileName = ".quillosettings";

    // Nothing when no token is stored for the account's user id. `movePollInterval` is the
    // wait between two looks at a move job (tests shorten it).
    static std::shared_ptr<VXCloudDropboxSession> initWithCloudAccount(
        std::shared_ptr<VXCloudAccount> account,
        std::chrono::milliseconds movePollInterval = kMovePollInterval);

    std::shared_ptr<VXCloudFile> rootFolder() const override;

    // Completions and delegate callbacks arrive on global-queue threads.
    void isAuthorizedWithCompletion(std::function<void(bool)> completion) override;
    void removeAuthorizationWithCompletion(
        std::function<void(std::shared_ptr<VXCloudAccount>, std::optional<PlatformError>)>
            completion) override;
    void loadFoldersInFolder(std::shared_ptr<VXCloudFile> folder) override;
    void uploadWithCloudFile(std::shared_ptr<VXCloudFile> file,
                             std::shared_ptr<VXCloudFile> inParentFolder,
                             bool overwriteExistingFile) override;
    void renameWithCloudFile(std::shared_ptr<VXCloudFile> file, std::string newFileName,
                             std::shared_ptr<VXCloudFile> inParentFolder, bool overwriteExistingFile,
                             CreatePDFBlock createPDFBlock) override;
    void moveWithCloudFiles(VXCloudFileList files, std::shared_ptr<VXCloudFile> fromFolder,
                            std::shared_ptr<VXCloudFile> toFolder) override;
    void downloadSettingsFileWithCompletionHandler(
        std::function<void(std::shared_ptr<VXCloudFile>, std::shared_ptr<VXCloudError>)>
            completion) override;

    // The completed byte count at the previous progress report; never reset.
    std::optional<std::int64_t> previousUploadAmount() const;
    std::chrono::milliseconds movePollInterval() const { return movePollInterval_; }

    // "/" for no parent, a parent without path, or the paths "" and "/"; else path + "/".
    static std::string folderPrefix(const std::shared_ptr<VXCloudFile>& parent);

    struct Private;
    VXCloudDropboxSession(const Private&, std::shared_ptr<VXCloudAccount> account,
                          std::shared_ptr<dropbox::DropboxClient> client,
                          std::chrono::milliseconds movePollInterval);
    ~VXCloudDropboxSession() override;

private:
    struct Found {
        std::optional<dropbox::Metadata> metadata;
        std::shared_ptr<VXCloudError> error;
    };
    using SuccessHandler =
        std::function<void(const std::shared_ptr<VXCloudFile>&, const dropbox::Metadata&)>;
    using FailureHandler = std::function<void(const std::shared_ptr<VXCloudError>&)>;

    std::shared_ptr<VXCloudDropboxSession> self();
    // Runs the block on a global queue with this session kept alive; nothing escapes it.
    void runInBackground(std::function<void()> block, bool backgroundPriority = false);

    // The steps of the operations; all run on a global-queue thread and block on the network.
    void loadFoldersContinue(const std::string& cursor, VXCloudFileList foldersSoFar,
                             const std::shared_ptr<VXCloudFile>& parentFolder);
    void uploadFolder(const std::shared_ptr<VXCloudFile>& folder,
                      const std::shared_ptr<VXCloudFile>& parent);
    void reupload(const std::shared_ptr<VXCloudFile>& file, const std::shared_ptr<VXCloudFile>& parent,
                  bool overwrite);
    Found findFile(const VXCloudFile& cloudFile, const std::shared_ptr<VXCloudFile>& inFolder,
                   bool checkFileVersion);
    // Sends the file's bytes; without a success handler the outcome goes to the delegate as
    // an upload outcome, with one the success goes to the handler and a failure to
    // `onFailure` (or to the delegate as an upload failure when that is empty).
    void _upload(const std::shared_ptr<VXCloudFile>& cloudFile,
                 const std::shared_ptr<VXCloudFile>& inParentFolder, dropbox::WriteMode writeMode,
                 SuccessHandler successHandler = {}, FailureHandler onFailure = {});
    void _rename(const std::shared_ptr<VXCloudFile>& cloudFile, const std::string& currentPath,
                 const std::string& newPath);
    void rebuildAndRename(const std::shared_ptr<VXCloudFile>& file,
                          const std::shared_ptr<VXCloudFile>& parent, dropbox::WriteMode mode,
                          const CreatePDFBlock& createPDFBlock, const std::string& currentPath,
                          const std::string& newPath);
    bool deleteFile(const std::string& filePath);
    void pollMoveStatus(const std::string& jobId, const VXCloudFileList& forCloudFiles);
    void reportProgress(std::int64_t completed, std::int64_t total);

    // Delegate calls; a throwing delegate is logged, never propagated.
    void reportUploaded(const std::shared_ptr<VXCloudFile>& file);
    void reportUploadFailed(const std::shared_ptr<VXCloudFile>& file, ErrorCode code);
    void reportUploadFailed(const std::shared_ptr<VXCloudFile>& file,
                            const std::shared_ptr<VXCloudError>& error);
    void reportRenamed(const std::shared_ptr<VXCloudFile>& file);
    void reportRenameFailed(const std::shared_ptr<VXCloudFile>& file,
                            const std::shared_ptr<VXCloudError>& error);
    void reportMoved(const VXCloudFileList& moved, const VXCloudFileList& notMoved);
    void reportFolders(const VXCloudFileList& folders, const std::shared_ptr<VXCloudFile>& parent);
    void reportFoldersFailed(ErrorCode code);

    std::shared_ptr<dropbox::DropboxClient> client_;
    std::chrono::milliseconds movePollInterval_;
    mutable std::mutex progressMutex_;
    std::optional<std::int64_t> previousUploadAmount_;
};

}  // namespace vxcloud
