#pragma once
// The session for WebDAV accounts. It lets a WebDAV account be linked, listed and carried
// through the engine like any other, but transfers nothing: it answers only
// isAuthorizedWithCompletion (always yes). Every other operation returns without a
// callback, so an upload given to it keeps its upload slot for good.
#include <memory>

#include "vxcloud/sessions/VXCloudSession.h"

namespace vxcloud {

class VXCloudWebDAVSession : public VXCloudSession {
public:
    // No session unless the account is a VXCloudWebDAVAccount.
    static std::shared_ptr<VXCloudWebDAVSession> initWithCloudAccount(
        const std::shared_ptr<VXCloudAccount>& account);

    // A new folder record named after the service, with no path or identifier.
    std::shared_ptr<VXCloudFile> rootFolder() const override;

    // Calls the completion with true before returning.
    void isAuthorizedWithCompletion(std::function<void(bool)> completion) override;
    // Nothing is removed and the completion is never called.
    void removeAuthorizationWithCompletion(
        std::function<void(std::shared_ptr<VXCloudAccount>, std::optional<PlatformError>)>
            completion) override;
    // The rest do nothing and never call back.
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

private:
    explicit VXCloudWebDAVSession(std::shared_ptr<VXCloudAccount> account);
};

}  // namespace vxcloud
