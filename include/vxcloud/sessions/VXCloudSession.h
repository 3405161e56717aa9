#pragma once
// The contract between the upload engine (and the screens) and every service session:
// one session per linked account, one outcome callback per operation.
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "vxcloud/model/PlatformError.h"

namespace vxcloud {

class VXCloudAccount;
class VXCloudError;
class VXCloudFile;
class VXCloudSession;

using VXCloudFileList = std::vector<std::shared_ptr<VXCloudFile>>;
// Hands over the document's content for a rename that must store it again: the path
// of a freshly written PDF, or nothing.
using CreatePDFBlock = std::function<std::optional<std::string>()>;

// Receives the outcome of a long operation. Callbacks may arrive on any thread.
class VXCloudSessionDelegate {
public:
    virtual ~VXCloudSessionDelegate() = default;
    virtual void cloudSessionDidLoadFolders(const std::shared_ptr<VXCloudSession>& session,
                                            const VXCloudFileList& folders,
                                            const std::shared_ptr<VXCloudFile>& inParentFolder) = 0;
    virtual void cloudSessionLoadFoldersFailedWithError(
        const std::shared_ptr<VXCloudSession>& session,
        const std::shared_ptr<VXCloudError>& error) = 0;
    virtual void cloudSessionDidUploadFile(const std::shared_ptr<VXCloudSession>& session,
                                           const std::shared_ptr<VXCloudFile>& file) = 0;
    virtual void cloudSessionUploadFailedForFile(const std::shared_ptr<VXCloudSession>& session,
                                                 const std::shared_ptr<VXCloudFile>& file,
                                                 const std::shared_ptr<VXCloudError>& withError) = 0;
    virtual void cloudSessionDidRenameFile(const std::shared_ptr<VXCloudSession>& session,
                                           const std::shared_ptr<VXCloudFile>& file) = 0;
    virtual void cloudSessionRenameFailedForFile(const std::shared_ptr<VXCloudSession>& session,
                                                 const std::shared_ptr<VXCloudFile>& file,
                                                 const std::shared_ptr<VXCloudError>& withError) = 0;
    virtual void cloudSessionDidMoveFiles(const std::shared_ptr<VXCloudSession>& session,
                                          const VXCloudFileList& files,
                                          const VXCloudFileList& errorMovingFiles) = 0;
};

// Receives upload progress: bytes sent since the previous report, and the total.
class VXCloudProgressDelegate {
public:
    virtual ~VXCloudProgressDelegate() = default;
    virtual void cloudSessionCurrentUploadedBytes(const std::shared_ptr<VXCloudSession>& session,
                                                  std::int64_t currentUploadedBytes,
                                                  std::int64_t expectedTotalBytes) = 0;
};

class VXCloudSession : public std::enable_shared_from_this<VXCloudSession> {
public:
    // How a session holds its delegates; most hold them weakly, OneNote strongly.
    enum class DelegateOwnership { weak, strong };

    virtual ~VXCloudSession();
    VXCloudSession(const VXCloudSession&) = delete;
    VXCloudSession& operator=(const VXCloudSession&) = delete;

    const std::shared_ptr<VXCloudAccount>& cloudAccount() const { return cloudAccount_; }

    std::shared_ptr<VXCloudSessionDelegate> cloudSessionDelegate() const;
    void setCloudSessionDelegate(const std::shared_ptr<VXCloudSessionDelegate>& delegate);
    std::shared_ptr<VXCloudProgressDelegate> cloudSessionProgressDelegate() const;
    void setCloudSessionProgressDelegate(const std::shared_ptr<VXCloudProgressDelegate>& delegate);

    // The service's top level, the start of folder browsing.
    virtual std::shared_ptr<VXCloudFile> rootFolder() const = 0;

    virtual void isAuthorizedWithCompletion(std::function<void(bool)> completion) = 0;
    virtual void removeAuthorizationWithCompletion(
        std::function<void(std::shared_ptr<VXCloudAccount>, std::optional<PlatformError>)>
            completion) = 0;
    virtual void loadFoldersInFolder(std::shared_ptr<VXCloudFile> folder) = 0;
    virtual void uploadWithCloudFile(std::shared_ptr<VXCloudFile> file,
                                     std::shared_ptr<VXCloudFile> inParentFolder,
                                     bool overwriteExistingFile) = 0;
    virtual void renameWithCloudFile(std::shared_ptr<VXCloudFile> file, std::string newFileName,
                                     std::shared_ptr<VXCloudFile> inParentFolder,
                                     bool overwriteExistingFile,
                                     CreatePDFBlock createPDFBlock) = 0;
    virtual void moveWithCloudFiles(VXCloudFileList files, std::shared_ptr<VXCloudFile> fromFolder,
                                    std::shared_ptr<VXCloudFile> toFolder) = 0;
    virtual void downloadSettingsFileWithCompletionHandler(
        std::function<void(std::shared_ptr<VXCloudFile>, std::shared_ptr<VXCloudError>)>
            completion) = 0;

protected:
    explicit VXCloudSession(std::shared_ptr<VXCloudAccount> account,
                            DelegateOwnership ownership = DelegateOwnership::weak);

private:
    std::shared_ptr<VXCloudAccount> cloudAccount_;
    DelegateOwnership ownership_;
    mutable std::mutex delegateMutex_;
    std::weak_ptr<VXCloudSessionDelegate> weakDelegate_;
    std::shared_ptr<VXCloudSessionDelegate> strongDelegate_;
    std::weak_ptr<VXCloudProgressDelegate> weakProgress_;
    std::shared_ptr<VXCloudProgressDelegate> strongProgress_;
};

}  // namespace vxcloud
