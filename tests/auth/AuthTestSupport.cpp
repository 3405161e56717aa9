#include "auth/AuthTestSupport.h"

#include <any>
#include <atomic>
#include <future>

#include "vxcloud/engine/VXCloudSessionFactory.h"
#include "vxcloud/model/VXCloudConstants.h"
#include "vxcloud/platform/Dispatch.h"
#include "vxcloud/sessions/VXCloudServiceConfig.h"
#include "vxcloud/sessions/VXCloudSession.h"

namespace vxcloud::testing {

ErrorCode codeOf(const PostedResult& posted) {
    return posted.result && posted.result->cloudError() ? posted.result->cloudError()->errorCode
                                                         : ErrorCode::fileUpload;
}

bool sessionIsAuthorized(const std::shared_ptr<VXCloudAccount>& account) {
    auto session = initCloudSession(account);
    if (!session) return false;
    auto answer = std::make_shared<std::promise<bool>>();
    auto future = answer->get_future();
    session->isAuthorizedWithCompletion([answer](bool authorized) { answer->set_value(authorized); });
    return future.wait_for(20s) == std::future_status::ready && future.get();
}

// SandboxBrowser

HttpResponse SandboxBrowser::get(const std::string& url) {
    HttpRequest request;
    request.url = url;
    request.connectTimeout = 10s;
    request.idleTimeout = 20s;
    return HttpClient::shared()->perform(request);
}

HttpResponse SandboxBrowser::decide(const std::string& authorizeUrl, bool approve, const std::string& account,
                                    bool follow) {
    sandbox::SignInDecision decision;
    decision.approve = approve;
    decision.account = account;
    decision.follow = follow;
    return sandbox::answerSignInPage(authorizeUrl, decision);
}

bool SandboxBrowser::open(const std::string& url) {
    {
        std::lock_guard lock(mutex_);
        opened_.push_back(url);
    }
    switch (action_) {
        case Action::refuse: return false;
        case Action::wait: return true;
        case Action::approve:
        case Action::deny: break;
    }
    HttpResponse answer = decide(url, action_ == Action::approve, account_);
    std::lock_guard lock(mutex_);
    lastAnswer_ = std::move(answer);
    return true;
}

std::vector<std::string> SandboxBrowser::openedUrls() const {
    std::lock_guard lock(mutex_);
    return opened_;
}

std::string SandboxBrowser::lastUrl() const {
    std::lock_guard lock(mutex_);
    return opened_.empty() ? std::string() : opened_.back();
}

HttpResponse SandboxBrowser::lastAnswer() const {
    std::lock_guard lock(mutex_);
    return lastAnswer_;
}

// AuthTest

void AuthTest::SetUp() {
    SandboxTest::SetUp();
    if (HasFatalFailure()) return;
    stores_ = &fx_.stores();
    sandbox_ = &fx_.sandbox();
    configureEndpoints();

    observer_ = NotificationCenter::defaultCenter().addObserver(
        VXCloudAuthNotification, DispatchQueue::main(), [this](const Notification& notification) {
            PostedResult posted;
            posted.onMainQueue = DispatchQueue::main()->isCurrentThread();
            if (notification.userInfo && notification.userInfo->is_object()) {
                posted.dict = notification.userInfo->value(VXCloudAuthManager::kAuthResultDictKey, json());
            }
            auto it = notification.objects.find(VXCloudAuthManager::kAuthResultKey);
            if (it != notification.objects.end()) {
                if (const auto* result = std::any_cast<VXCloudAuthResult>(&it->second)) posted.result = *result;
            }
            std::lock_guard lock(mutex_);
            results_.push_back(std::move(posted));
        });

    manager().setAuthorizationTimeLimit(60s);
    setUpManager();
    ASSERT_TRUE(runPostSetup());
}

void AuthTest::TearDown() {
    for (VXCloudService service : allCloudServices) manager().cancelAuthorization(service);
    DispatchQueue::main()->drain();
    NotificationCenter::defaultCenter().removeObserver(observer_);
    VXCloudServiceConfig::resetAll();
    manager().setAuthorizationTimeLimit(VXCloudAuthManager::kDefaultAuthorizationTimeLimit);
    fx_.tearDown();
    sandbox_ = nullptr;
    stores_ = nullptr;
}

void AuthTest::configureEndpoints() {
    fx_.pointAt(VXCloudService::dropbox);
    fx_.pointAt(VXCloudService::googleDrive);
    fx_.pointAt(VXCloudService::oneDrive);
    fx_.pointAt(VXCloudService::box);
    fx_.pointAt(VXCloudService::evernote);
}

void AuthTest::setUpManager(const std::string& googleRedirect, const std::vector<std::string>& oneDriveScopes) {
    manager().setup(std::make_shared<VXCloudDropboxInfo>(kDropboxAppKey),
                    std::make_shared<VXCloudGoogleDriveInfo>(kGoogleClientId, googleRedirect,
                                                             std::vector<std::string>{}, kGoogleClientSecret),
                    std::make_shared<VXCloudOneDriveInfo>(kOneDriveApplicationId, oneDriveScopes),
                    std::make_shared<VXCloudBoxInfo>(kBoxClientId, kBoxClientSecret),
                    std::make_shared<VXCloudEvernoteInfo>(kEvernoteConsumerKey, kEvernoteConsumerSecret));
}

bool AuthTest::waitForResults(std::size_t count, std::chrono::milliseconds timeout) {
    return DispatchQueue::main()->runUntil(
        [&] {
            std::lock_guard lock(mutex_);
            return results_.size() >= count;
        },
        timeout);
}

PostedResult AuthTest::expectOneResult(std::chrono::milliseconds timeout) {
    std::size_t index = 0;
    {
        std::lock_guard lock(mutex_);
        index = consumed_;
    }
    if (!waitForResults(index + 1, timeout)) {
        ADD_FAILURE() << "no auth notification was posted";
        return {};
    }
    // A second notification for the same attempt would be a fault.
    waitForResults(index + 2, 300ms);
    std::lock_guard lock(mutex_);
    EXPECT_EQ(results_.size(), index + 1) << "more than one auth notification";
    consumed_ = results_.size();
    return results_[index];
}

std::vector<PostedResult> AuthTest::results() const {
    std::lock_guard lock(mutex_);
    return results_;
}

void AuthTest::consumeResults() {
    std::lock_guard lock(mutex_);
    consumed_ = results_.size();
}

bool AuthTest::runPostSetup(std::chrono::milliseconds timeout) {
    auto done = std::make_shared<std::atomic<bool>>(false);
    manager().postSetup([done] { done->store(true); });
    return waitUntil([&] { return done->load(); }, timeout);
}

std::shared_ptr<VXCloudAccount> AuthTest::link(VXCloudService service, const std::string& sandboxAccount) {
    auto browser = std::make_shared<SandboxBrowser>(SandboxBrowser::Action::approve, sandboxAccount);
    manager().authorize(browser, service);
    const PostedResult posted = expectOneResult();
    if (!posted.result || posted.result->kind() != VXCloudAuthResult::Kind::success) {
        ADD_FAILURE() << "linking failed: " << posted.dict.dump()
                      << (posted.result ? " " + posted.result->message() : std::string());
        return nullptr;
    }
    return posted.result->account();
}

std::int64_t AuthTest::requests(const std::string& route) const { return sandbox_->stats(route).requests; }

}  // namespace vxcloud::testing
