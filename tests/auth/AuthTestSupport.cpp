#include "auth/AuthTestSupport.h"

#include <any>
#include <atomic>
#include <thread>

#include "vxcloud/model/VXCloudConstants.h"
#include "vxcloud/platform/Dispatch.h"
#include "vxcloud/platform/PreferencesStore.h"
#include "vxcloud/platform/SecureStore.h"
#include "vxcloud/sessions/VXCloudServiceConfig.h"

namespace vxcloud::testing {
namespace {

// A stopping sandbox waits for idle keep-alive connections to time out; the tests need
// not wait with it. Everything retired is gone before the process exits.
class Retirer {
public:
    ~Retirer() {
        std::lock_guard lock(mutex_);
        for (auto& thread : threads_) thread.join();
    }
    void retire(std::shared_ptr<void> object) {
        std::lock_guard lock(mutex_);
        threads_.emplace_back([object = std::move(object)]() mutable { object.reset(); });
    }

private:
    std::mutex mutex_;
    std::vector<std::thread> threads_;
};

void retireInBackground(std::shared_ptr<void> object) {
    static Retirer retirer;
    retirer.retire(std::move(object));
}

}  // namespace

bool waitUntil(const std::function<bool()>& condition, std::chrono::milliseconds timeout) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::sleep_for(10ms);
    }
    return true;
}

std::string queryParam(const std::string& url, const std::string& name) {
    const auto question = url.find('?');
    if (question == std::string::npos) return {};
    std::string_view query(url);
    query.remove_prefix(question + 1);
    while (!query.empty()) {
        const auto amp = query.find('&');
        const std::string_view pair = query.substr(0, amp);
        const auto eq = pair.find('=');
        if (HttpClient::urlDecode(pair.substr(0, eq)) == name) {
            return eq == std::string_view::npos ? std::string() : HttpClient::urlDecode(pair.substr(eq + 1));
        }
        if (amp == std::string_view::npos) break;
        query.remove_prefix(amp + 1);
    }
    return {};
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
    std::string url = authorizeUrl + "&sandbox_decision=" + (approve ? "approve" : "deny");
    if (!account.empty()) url += "&sandbox_account=" + HttpClient::urlEncode(account);
    HttpRequest request;
    request.url = url;
    request.followRedirects = follow;
    request.connectTimeout = 10s;
    request.idleTimeout = 20s;
    return HttpClient::shared()->perform(request);
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
    ASSERT_FALSE(temp_.path().empty());
    SecureStore::setShared(SecureStore::openFile(temp_.file("secure-store.json")));
    PreferencesStore::setStandardPath(temp_.file("preferences.json"));

    sandbox_ = std::make_shared<sandbox::Sandbox>();
    std::string error;
    ASSERT_TRUE(sandbox_->start(0, "127.0.0.1", &error)) << error;
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
    if (sandbox_) retireInBackground(std::move(sandbox_));
    // Leave a store behind that never reaches the person's keyring.
    SecureStore::setShared(SecureStore::openFile(temp_.file("secure-store.json")));
}

void AuthTest::configureEndpoints() {
    VXCloudServiceEndpoints dropbox;
    dropbox.apiBase = sandbox_->endpoint("dropbox", "api");
    dropbox.contentBase = sandbox_->endpoint("dropbox", "content");
    dropbox.authorizeUrl = sandbox_->endpoint("dropbox", "authorize");
    dropbox.tokenUrl = sandbox_->endpoint("dropbox", "token");
    VXCloudServiceConfig::setEndpoints(VXCloudService::dropbox, dropbox);

    VXCloudServiceEndpoints google;
    google.apiBase = sandbox_->endpoint("google", "api");
    google.contentBase = sandbox_->endpoint("google", "upload");
    google.authorizeUrl = sandbox_->endpoint("google", "authorize");
    google.tokenUrl = sandbox_->endpoint("google", "token");
    google.extra["revoke"] = sandbox_->endpoint("google", "revoke");
    google.extra["userinfo"] = sandbox_->endpoint("google", "userinfo");
    VXCloudServiceConfig::setEndpoints(VXCloudService::googleDrive, google);
}

void AuthTest::setUpManager(const std::string& googleRedirect) {
    manager().setup(std::make_shared<VXCloudDropboxInfo>(kDropboxAppKey),
                    std::make_shared<VXCloudGoogleDriveInfo>(kGoogleClientId, googleRedirect,
                                                             std::vector<std::string>{}, kGoogleClientSecret));
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
