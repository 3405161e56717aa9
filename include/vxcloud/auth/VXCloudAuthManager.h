#pragma once
// Account linking: the services' credentials, each service's sign-in, the stored account
// it produces, and the start-up check of the stored accounts. Every linking attempt ends
// in exactly one VXCloudAuthResult, posted on the main queue as "VXCloudAuthNotification"
// with user-info {"authResultDict": {...}} and the typed result in
// Notification::objects["authResult"].
#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>

#include "vxcloud/auth/VXCloudAuthInfo.h"
#include "vxcloud/auth/VXCloudUserAgent.h"
#include "vxcloud/model/VXCloudService.h"
#include "vxcloud/platform/Json.h"

namespace vxcloud {

class VXCloudAccount;
class VXCloudError;

// The outcome of one linking attempt: the linked account, an error with its classified
// code and a readable message, or the person's cancellation (closing the sign-in,
// denying access).
class VXCloudAuthResult {
public:
    enum class Kind { success, error, cancel };

    static constexpr const char* kStatusKey = "status";
    static constexpr const char* kAccountKey = "account";

    static VXCloudAuthResult success(std::shared_ptr<VXCloudAccount> account);
    static VXCloudAuthResult error(std::shared_ptr<VXCloudError> error, std::string message);
    static VXCloudAuthResult cancel();

    Kind kind() const noexcept { return kind_; }
    // The account of a success, else null.
    const std::shared_ptr<VXCloudAccount>& account() const noexcept { return account_; }
    // The error of an error result, else null.
    const std::shared_ptr<VXCloudError>& cloudError() const noexcept { return error_; }
    // The message of an error result; never holds credentials.
    const std::string& message() const noexcept { return message_; }

    // {"status": "success", "account": account.toDict()}, {"status": "error"} (the code
    // travels only in the typed result) or {"status": "canceled"}.
    Json authResultToDict() const;

private:
    VXCloudAuthResult() = default;

    Kind kind_ = Kind::cancel;
    std::shared_ptr<VXCloudAccount> account_;
    std::shared_ptr<VXCloudError> error_;
    std::string message_;
};

class VXCloudAuthManager : public std::enable_shared_from_this<VXCloudAuthManager> {
public:
    static constexpr const char* kPostSetupQueueLabel = "com.VXCloud.PostSetupSerialQueue";
    static constexpr const char* kAuthResultKey = "authResult";
    static constexpr const char* kAuthResultDictKey = "authResultDict";
    // How long a sign-in waits for the person before it ends as an error.
    static constexpr std::chrono::seconds kDefaultAuthorizationTimeLimit{600};

    static const std::shared_ptr<VXCloudAuthManager>& sharedInstance();

    // Keeps the records (an absent record clears the service's), gives their app
    // credentials to the service clients, then runs postSetup().
    void setup(std::shared_ptr<VXCloudDropboxInfo> dropboxInfo,
               std::shared_ptr<VXCloudGoogleDriveInfo> googleDriveInfo,
               std::shared_ptr<VXCloudOneDriveInfo> oneDriveInfo = nullptr,
               std::shared_ptr<VXCloudBoxInfo> boxInfo = nullptr,
               std::shared_ptr<VXCloudEvernoteInfo> evernoteInfo = nullptr);

    // The start-up check on "com.VXCloud.PostSetupSerialQueue": every stored account
    // whose session cannot be made, or whose session says it is no longer authorised, is
    // saved with the `authentication` error. `completion` (optional) runs on that queue
    // once every session has answered.
    void postSetup(std::function<void()> completion = {});

    std::shared_ptr<VXCloudDropboxInfo> dropboxInfo() const;
    std::shared_ptr<VXCloudGoogleDriveInfo> googleDriveInfo() const;
    std::shared_ptr<VXCloudOneDriveInfo> oneDriveInfo() const;
    std::shared_ptr<VXCloudBoxInfo> boxInfo() const;
    std::shared_ptr<VXCloudEvernoteInfo> evernoteInfo() const;

    // Starts linking an account of the service, showing the sign-in through the user
    // agent: the sign-in the service's registry entry names. A sign-in already running for
    // the service ends as cancelled. Google without setup() is a programming error and
    // stops the program. Services whose sign-in this build does not offer end at once with
    // an error result.
    void authorize(std::shared_ptr<VXCloudUserAgent> fromViewController, VXCloudService cloudService);
    // Whether this build has a sign-in for the service (a host can say so before asking
    // for the service's app credentials). WebDAV accounts are never signed in to.
    static bool offersSignIn(VXCloudService cloudService);

    // authorize() for one service.
    void handleGoogleDriveAuth(std::shared_ptr<VXCloudUserAgent> fromExternalUserAgent);
    void handleDropboxAuth(std::shared_ptr<VXCloudUserAgent> fromViewController);
    void handleOneDriveOneNoteAuth(VXCloudService cloudService);
    void handleBoxAuth();
    void handleEvernoteAuth(std::shared_ptr<VXCloudUserAgent> fromViewController);

    // Completes a running sign-in with the address its redirect reached: pasted by the
    // person, or routed by the host from a custom-scheme redirect. False when no running
    // sign-in issued it (unknown or reused state): nothing happens then.
    bool handleRedirectURL(const std::string& url);
    bool handleDropboxRedirect(const std::string& url);

    // Ends the service's running sign-in as cancelled; false when none is waiting for the
    // person (a sign-in that is already exchanging its code runs to its end).
    bool cancelAuthorization(VXCloudService cloudService);
    bool isAuthorizing(VXCloudService cloudService) const;
    void setAuthorizationTimeLimit(std::chrono::milliseconds limit);

    // Whether an account of the service is stored. Stored WebDAV accounts count for every
    // service, as the account store returns them for any query.
    bool hasAccountLinked(VXCloudService cloudService) const;
    bool hasOneDriveAccountLinked() const;
    bool hasEvernoteAccountLinked() const;

    // Reads the account's settings document through its session and hands over its JSON
    // object, or an error (`authentication` when no session can be made for the account,
    // `missingFolder` when the document is not a JSON object). The completion runs on the
    // session's thread.
    void downloadSettingsFile(
        std::shared_ptr<VXCloudAccount> cloudAccount,
        std::function<void(JsonBox settings, std::shared_ptr<VXCloudError> error)> completionHandler);

    // Posts "VXCloudAuthNotification" for the result on the main queue.
    void postAuthNotification(const VXCloudAuthResult& authResult);

    // Sessions kept alive until they answer (start-up check, settings downloads).
    std::size_t pendingSessionCount() const;

    struct State;
    struct Private;
    explicit VXCloudAuthManager(const Private&);
    ~VXCloudAuthManager();
    VXCloudAuthManager(const VXCloudAuthManager&) = delete;
    VXCloudAuthManager& operator=(const VXCloudAuthManager&) = delete;

private:
    std::unique_ptr<State> state_;
};

}  // namespace vxcloud
