// The authorisation manager: credentials, the start of each service's sign-in, the
// redirects that resume them, and the result notification. The start-up check and the
// settings download are in VXCloudAuthManagerStartup.cpp.
#include "vxcloud/auth/VXCloudAuthManager.h"

#include <nlohmann/json.hpp>

#include "auth/AuthManagerState.h"
#include "auth/SignIn.h"
#include "vxcloud/model/VXCloudConstants.h"
#include "vxcloud/model/VXCloudError.h"
#include "vxcloud/model/VXCloudServiceRegistry.h"
#include "vxcloud/model/VXCloudUserDefaults.h"
#include "vxcloud/platform/NotificationCenter.h"
#include "vxcloud/sessions/VXCloudServiceConfig.h"

namespace vxcloud {
namespace {

VXCloudAuthResult unavailable(const std::string& what) {
    return auth::signInError(ErrorCode::fileUpload, what);
}

// Why the service cannot be signed in to in this build.
std::string noSignInMessage(const VXCloudServiceDescriptor& entry) {
    if (entry.typeWord.empty()) return "Unknown service.";
    const std::string name(entry.displayName);
    if (entry.linking == VXCloudLinking::accountForm) return name + " accounts are added with the account form, not signed in.";
    return "Linking " + name + " accounts is not available in this build.";
}

}  // namespace

struct VXCloudAuthManager::Private {};

const std::shared_ptr<VXCloudAuthManager>& VXCloudAuthManager::sharedInstance() {
    // Never destroyed: sign-ins and start-up checks may still report at exit.
    static const auto* const instance = new std::shared_ptr<VXCloudAuthManager>(
        std::make_shared<VXCloudAuthManager>(Private{}));
    return *instance;
}

VXCloudAuthManager::VXCloudAuthManager(const Private&) : state_(std::make_unique<State>()) {}

VXCloudAuthManager::~VXCloudAuthManager() = default;

void VXCloudAuthManager::setup(std::shared_ptr<VXCloudDropboxInfo> dropboxInfo,
                               std::shared_ptr<VXCloudGoogleDriveInfo> googleDriveInfo,
                               std::shared_ptr<VXCloudOneDriveInfo> oneDriveInfo,
                               std::shared_ptr<VXCloudBoxInfo> boxInfo,
                               std::shared_ptr<VXCloudEvernoteInfo> evernoteInfo) {
    // The service clients sign their requests (refresh grants) with these.
    if (dropboxInfo) VXCloudServiceConfig::setCredentials(VXCloudService::dropbox, {dropboxInfo->appKey, std::nullopt});
    if (googleDriveInfo) {
        VXCloudServiceConfig::setCredentials(VXCloudService::googleDrive,
                                             {googleDriveInfo->clientId, googleDriveInfo->clientSecret});
    }
    if (oneDriveInfo) {
        const VXCloudAppCredentials credentials{oneDriveInfo->applicationId, std::nullopt};
        VXCloudServiceConfig::setCredentials(VXCloudService::oneDrive, credentials);
        VXCloudServiceConfig::setCredentials(VXCloudService::oneNote, credentials);
    }
    if (boxInfo) VXCloudServiceConfig::setCredentials(VXCloudService::box, {boxInfo->clientId, boxInfo->clientSecret});
    if (evernoteInfo) {
        VXCloudServiceConfig::setCredentials(VXCloudService::evernote,
                                             {evernoteInfo->consumerKey, evernoteInfo->consumerSecret});
    }
    {
        std::lock_guard lock(state_->mutex);
        state_->dropboxInfo = std::move(dropboxInfo);
        state_->googleDriveInfo = std::move(googleDriveInfo);
        state_->oneDriveInfo = std::move(oneDriveInfo);
        state_->boxInfo = std::move(boxInfo);
        state_->evernoteInfo = std::move(evernoteInfo);
    }
    postSetup();
}

std::shared_ptr<VXCloudDropboxInfo> VXCloudAuthManager::dropboxInfo() const {
    std::lock_guard lock(state_->mutex);
    return state_->dropboxInfo;
}

std::shared_ptr<VXCloudGoogleDriveInfo> VXCloudAuthManager::googleDriveInfo() const {
    std::lock_guard lock(state_->mutex);
    return state_->googleDriveInfo;
}

std::shared_ptr<VXCloudOneDriveInfo> VXCloudAuthManager::oneDriveInfo() const {
    std::lock_guard lock(state_->mutex);
    return state_->oneDriveInfo;
}

std::shared_ptr<VXCloudBoxInfo> VXCloudAuthManager::boxInfo() const {
    std::lock_guard lock(state_->mutex);
    return state_->boxInfo;
}

std::shared_ptr<VXCloudEvernoteInfo> VXCloudAuthManager::evernoteInfo() const {
    std::lock_guard lock(state_->mutex);
    return state_->evernoteInfo;
}

void VXCloudAuthManager::authorize(std::shared_ptr<VXCloudUserAgent> fromViewController,
                                   VXCloudService cloudService) {
    const VXCloudServiceDescriptor& entry = serviceDescriptor(cloudService);
    if (!entry.signIn || !entry.signIn->start) {
        postAuthNotification(unavailable(noSignInMessage(entry)));
        return;
    }
    auth::SignInStart start = entry.signIn->start(*this, fromViewController, state_->authorizationTimeLimit(),
                                                  State::flowCompletion(*this));
    if (start.flow) {
        state_->runFlow(start.flow, fromViewController);
    } else {
        postAuthNotification(start.result.value_or(unavailable(noSignInMessage(entry))));
    }
}

bool VXCloudAuthManager::offersSignIn(VXCloudService cloudService) { return vxcloud::offersSignIn(cloudService); }

// The per-service entry points all start the sign-in the service's registry entry names.
void VXCloudAuthManager::handleGoogleDriveAuth(std::shared_ptr<VXCloudUserAgent> fromExternalUserAgent) {
    authorize(std::move(fromExternalUserAgent), VXCloudService::googleDrive);
}

void VXCloudAuthManager::handleDropboxAuth(std::shared_ptr<VXCloudUserAgent> fromViewController) {
    authorize(std::move(fromViewController), VXCloudService::dropbox);
}

void VXCloudAuthManager::handleOneDriveOneNoteAuth(VXCloudService cloudService) {
    // The host gives no screen here: Microsoft's page opens in the person's browser.
    authorize(VXCloudUserAgent::systemBrowser(),
              cloudService == VXCloudService::oneNote ? VXCloudService::oneNote : VXCloudService::oneDrive);
}

void VXCloudAuthManager::handleBoxAuth() { authorize(nullptr, VXCloudService::box); }

void VXCloudAuthManager::handleEvernoteAuth(std::shared_ptr<VXCloudUserAgent> fromViewController) {
    authorize(std::move(fromViewController), VXCloudService::evernote);
}

void VXCloudAuthManager::setAuthorizationTimeLimit(std::chrono::milliseconds limit) {
    std::lock_guard lock(state_->mutex);
    state_->timeLimit = limit;
}

std::chrono::milliseconds VXCloudAuthManager::State::authorizationTimeLimit() const {
    std::lock_guard lock(mutex);
    return timeLimit;
}

auth::RedirectFlow::Completion VXCloudAuthManager::State::flowCompletion(VXCloudAuthManager& manager) {
    std::weak_ptr<VXCloudAuthManager> weak = manager.weak_from_this();
    return [weak](const std::shared_ptr<auth::RedirectFlow>& flow, const VXCloudAuthResult& result) {
        auto self = weak.lock();
        if (!self) return;
        State& state = *self->state_;
        {
            std::lock_guard lock(state.mutex);
            auto it = state.flows.find(flow->service());
            if (it != state.flows.end() && it->second == flow) state.flows.erase(it);
        }
        self->postAuthNotification(result);
    };
}

void VXCloudAuthManager::State::runFlow(const std::shared_ptr<auth::RedirectFlow>& flow,
                                        const std::shared_ptr<VXCloudUserAgent>& userAgent) {
    std::shared_ptr<auth::RedirectFlow> replaced;
    {
        std::lock_guard lock(mutex);
        replaced = std::exchange(flows[flow->service()], flow);
    }
    // One sign-in per service at a time: the person started over.
    if (replaced) replaced->cancel();
    // No lock held: the user agent may hand the redirect back before it returns.
    flow->start(userAgent);
}

std::vector<std::shared_ptr<auth::RedirectFlow>> VXCloudAuthManager::State::runningFlows() const {
    std::vector<std::shared_ptr<auth::RedirectFlow>> running;
    std::lock_guard lock(mutex);
    for (const auto& [service, flow] : flows) running.push_back(flow);
    return running;
}

bool VXCloudAuthManager::handleRedirectURL(const std::string& url) {
    // Only the flow whose state the redirect carries takes it.
    for (const auto& flow : state_->runningFlows()) {
        if (flow->handleRedirect(url)) return true;
    }
    return false;
}

bool VXCloudAuthManager::handleDropboxRedirect(const std::string& url) {
    for (const auto& flow : state_->runningFlows()) {
        if (flow->service() == VXCloudService::dropbox) return flow->handleRedirect(url);
    }
    return false;
}

bool VXCloudAuthManager::cancelAuthorization(VXCloudService cloudService) {
    for (const auto& flow : state_->runningFlows()) {
        if (flow->service() == cloudService) return flow->cancel();
    }
    return false;
}

bool VXCloudAuthManager::isAuthorizing(VXCloudService cloudService) const {
    std::lock_guard lock(state_->mutex);
    return state_->flows.count(cloudService) > 0;
}

bool VXCloudAuthManager::hasAccountLinked(VXCloudService cloudService) const {
    const auto accounts = VXCloudUserDefaults::loadAccounts({cloudService});
    return accounts && !accounts->empty();
}

bool VXCloudAuthManager::hasOneDriveAccountLinked() const { return hasAccountLinked(VXCloudService::oneDrive); }

bool VXCloudAuthManager::hasEvernoteAccountLinked() const { return hasAccountLinked(VXCloudService::evernote); }

void VXCloudAuthManager::postAuthNotification(const VXCloudAuthResult& authResult) {
    std::weak_ptr<VXCloudAuthManager> weak = weak_from_this();
    DispatchQueue::main()->async([weak, authResult] {
        Notification notification;
        notification.name = VXCloudAuthNotification;
        notification.sender = weak.lock();
        notification.userInfo = Json{{kAuthResultDictKey, authResult.authResultToDict()}};
        notification.objects[kAuthResultKey] = authResult;
        NotificationCenter::defaultCenter().post(std::move(notification));
    });
}

std::size_t VXCloudAuthManager::pendingSessionCount() const {
    std::lock_guard lock(state_->mutex);
    return state_->pendingSessions.size();
}

}  // namespace vxcloud
