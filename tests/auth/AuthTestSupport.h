#pragma once
// Sign-in tests run on the sandbox fixture: isolated stores, the services' endpoints
// pointed at the sandbox, a user agent that plays the person at the sandbox's authorize
// page, and a recorder of the auth notifications the manager posts on the main queue.
#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "support/SandboxFixture.h"
#include "support/SandboxSupport.h"
#include "support/Waiting.h"
#include "vxcloud/auth/VXCloudAuthManager.h"
#include "vxcloud/model/VXCloudAccount.h"
#include "vxcloud/model/VXCloudError.h"
#include "vxcloud/platform/Http.h"
#include "vxcloud/platform/NotificationCenter.h"
#include "vxcloud_sandbox/Sandbox.h"

namespace vxcloud::testing {

using namespace std::chrono_literals;
using nlohmann::json;

// The app credentials the manager is set up with.
inline constexpr const char* kDropboxAppKey = "sandbox-dropbox-app";
inline constexpr const char* kGoogleClientId = "sandbox-client.apps.googleusercontent.com";
inline constexpr const char* kGoogleClientSecret = "sandbox-desktop-secret";
inline constexpr const char* kOneDriveApplicationId = "sandbox-onedrive-app";
inline constexpr const char* kBoxClientId = "sandbox-box-app";
inline constexpr const char* kBoxClientSecret = "sandbox-box-secret";
inline constexpr const char* kEvernoteConsumerKey = "sandbox-evernote-app";
// The sandbox signs every consumer key's requests with this secret.
inline constexpr const char* kEvernoteConsumerSecret = "vxcloud-sandbox-secret";

// One auth notification as an observer on the main queue saw it.
struct PostedResult {
    json dict;                                // userInfo["authResultDict"]
    std::optional<VXCloudAuthResult> result;  // objects["authResult"]
    bool onMainQueue = false;
};

// The error code a failed sign-in reported (fileUpload when it names none).
ErrorCode codeOf(const PostedResult& posted);

// Whether a session made for the account, as the engine makes one, says it is authorised.
bool sessionIsAuthorized(const std::shared_ptr<VXCloudAccount>& account);

// Plays the person in a browser: "opens" the authorize URL by deciding at the sandbox's
// authorize page and following its redirect to the app's loopback listener.
class SandboxBrowser : public VXCloudUserAgent {
public:
    enum class Action { approve, deny, wait, refuse };

    explicit SandboxBrowser(Action action = Action::approve, std::string account = {})
        : action_(action), account_(std::move(account)) {}

    bool open(const std::string& url) override;

    std::vector<std::string> openedUrls() const;
    std::string lastUrl() const;
    // The final answer of the last decision (the listener's page after the redirect).
    HttpResponse lastAnswer() const;

    // Decides on an authorize URL; follows the redirect to the app when `follow`, else
    // returns the sandbox's answer (a 302 whose Location is the redirect).
    static HttpResponse decide(const std::string& authorizeUrl, bool approve, const std::string& account = {},
                               bool follow = true);
    static HttpResponse get(const std::string& url);

private:
    Action action_;
    std::string account_;
    mutable std::mutex mutex_;
    std::vector<std::string> opened_;
    HttpResponse lastAnswer_;
};

class AuthTest : public SandboxTest<> {
protected:
    void SetUp() override;
    void TearDown() override;

    static VXCloudAuthManager& manager() { return *VXCloudAuthManager::sharedInstance(); }

    // Waits (driving the main queue) until `count` results have been posted.
    bool waitForResults(std::size_t count, std::chrono::milliseconds timeout = 20s);
    // Waits for exactly one more result and a little longer for a stray second one.
    PostedResult expectOneResult(std::chrono::milliseconds timeout = 20s);
    std::vector<PostedResult> results() const;
    // Marks every result posted so far as seen.
    void consumeResults();
    // Runs the start-up check and waits for it to finish.
    bool runPostSetup(std::chrono::milliseconds timeout = 20s);

    // Points the services' endpoints at the sandbox.
    void configureEndpoints();
    // Sets the manager up with the services' records; Google redirects to `googleRedirect`,
    // OneDrive asks for `oneDriveScopes` (none: its defaults).
    void setUpManager(const std::string& googleRedirect = "http://127.0.0.1/",
                      const std::vector<std::string>& oneDriveScopes = {});
    // Links the sandbox's account of the service (id or e-mail; empty: the first) through
    // the whole flow and returns the stored account.
    std::shared_ptr<VXCloudAccount> link(VXCloudService service, const std::string& sandboxAccount = {});
    std::shared_ptr<VXCloudAccount> linkDropbox(const std::string& sandboxAccount = {}) {
        return link(VXCloudService::dropbox, sandboxAccount);
    }

    std::int64_t requests(const std::string& route) const;

    const IsolatedStores* stores_ = nullptr;
    sandbox::Sandbox* sandbox_ = nullptr;

private:
    mutable std::mutex mutex_;
    std::vector<PostedResult> results_;
    std::size_t consumed_ = 0;
    NotificationCenter::ObserverToken observer_;
};

}  // namespace vxcloud::testing
