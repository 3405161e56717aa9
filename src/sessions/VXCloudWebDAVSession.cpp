#include "vxcloud/sessions/VXCloudWebDAVSession.h"

#include <exception>

#include "vxcloud/engine/VXCloudUtils.h"
#include "vxcloud/model/VXCloudFile.h"
#include "vxcloud/model/VXCloudWebDAVAccount.h"
#include "vxcloud/platform/Log.h"

namespace vxcloud {

VXCloudWebDAVSession::VXCloudWebDAVSession(std::shared_ptr<VXCloudAccount> account)
    : VXCloudSession(std::move(account), DelegateOwnership::weak) {}

std::shared_ptr<VXCloudWebDAVSession> VXCloudWebDAVSession::initWithCloudAccount(
    const std::shared_ptr<VXCloudAccount>& account) {
    if (!std::dynamic_pointer_cast<VXCloudWebDAVAccount>(account)) return nullptr;
    return std::shared_ptr<VXCloudWebDAVSession>(new VXCloudWebDAVSession(account));
}

std::shared_ptr<VXCloudFile> VXCloudWebDAVSession::rootFolder() const {
    return std::make_shared<VXCloudFile>(displayName(cloudAccount()->cloudService), true, true);
}

void VXCloudWebDAVSession::isAuthorizedWithCompletion(std::function<void(bool)> completion) {
    if (!completion) return;
    try {
        completion(true);
    } catch (const std::exception& e) {
        log::error("webdav", std::string("authorisation completion threw: ") + e.what());
    } catch (...) {
        log::error("webdav", "authorisation completion threw");
    }
}

void VXCloudWebDAVSession::removeAuthorizationWithCompletion(
    std::function<void(std::shared_ptr<VXCloudAccount>, std::optional<PlatformError>)>) {}

void VXCloudWebDAVSession::loadFoldersInFolder(std::shared_ptr<VXCloudFile>) {}

void VXCloudWebDAVSession::uploadWithCloudFile(std::shared_ptr<VXCloudFile>,
                                               std::shared_ptr<VXCloudFile>, bool) {}

void VXCloudWebDAVSession::renameWithCloudFile(std::shared_ptr<VXCloudFile>, std::string,
                                               std::shared_ptr<VXCloudFile>, bool, CreatePDFBlock) {}

void VXCloudWebDAVSession::moveWithCloudFiles(VXCloudFileList, std::shared_ptr<VXCloudFile>,
                                              std::shared_ptr<VXCloudFile>) {}

void VXCloudWebDAVSession::downloadSettingsFileWithCompletionHandler(
    std::function<void(std::shared_ptr<VXCloudFile>, std::shared_ptr<VXCloudError>)>) {}

}  // namespace vxcloud
