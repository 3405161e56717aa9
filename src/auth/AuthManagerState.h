#pragma once
// The authorisation manager's state, shared by its source files.
#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

#include "auth/OAuth2Flow.h"
#include "vxcloud/auth/VXCloudAuthManager.h"
#include "vxcloud/platform/Dispatch.h"
#include "vxcloud/sessions/VXCloudSession.h"

namespace vxcloud {

struct VXCloudAuthManager::State {
    mutable std::mutex mutex;
    std::shared_ptr<VXCloudDropboxInfo> dropboxInfo;
    std::shared_ptr<VXCloudGoogleDriveInfo> googleDriveInfo;
    std::shared_ptr<VXCloudOneDriveInfo> oneDriveInfo;
    std::shared_ptr<VXCloudBoxInfo> boxInfo;
    std::shared_ptr<VXCloudEvernoteInfo> evernoteInfo;
    // The running sign-in of each service, kept so that its redirect can resume it.
    std::map<VXCloudService, std::shared_ptr<auth::RedirectFlow>> flows;
    // Sessions kept alive until they answer.
    std::vector<std::shared_ptr<VXCloudSession>> pendingSessions;
    std::chrono::milliseconds timeLimit{kDefaultAuthorizationTimeLimit};
    const std::shared_ptr<SerialQueue> postSetupQueue = SerialQueue::create(kPostSetupQueueLabel);

    std::chrono::milliseconds authorizationTimeLimit() const;
    // Ends the manager's bookkeeping of a finished flow and posts its result.
    static auth::RedirectFlow::Completion flowCompletion(VXCloudAuthManager& manager);
    // Makes `flow` the service's running sign-in (cancelling the one before) and starts it.
    void runFlow(const std::shared_ptr<auth::RedirectFlow>& flow, const std::shared_ptr<VXCloudUserAgent>& userAgent);
    std::vector<std::shared_ptr<auth::RedirectFlow>> runningFlows() const;

    void keep(const std::shared_ptr<VXCloudSession>& session) {
        std::lock_guard lock(mutex);
        pendingSessions.push_back(session);
    }
    // Lets go of the session; the caller's reference (if any) keeps it until it returns.
    void release(const VXCloudSession* session) {
        std::shared_ptr<VXCloudSession> last;
        std::lock_guard lock(mutex);
        for (auto it = pendingSessions.begin(); it != pendingSessions.end(); ++it) {
            if (it->get() == session) {
                last = std::move(*it);
                pendingSessions.erase(it);
                break;
            }
        }
        // `last` dies after the lock is released (declared first, destroyed last).
    }
};

}  // namespace vxcloud
