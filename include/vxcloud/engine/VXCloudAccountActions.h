#pragma once
// What the account screens do to a linked account, for every host alike: choose its upload
// folder, switch its automatic upload, unlink it. Each saves (or removes) the account and
// posts the screens' notification on the default notification centre; a host listens there
// (to move documents, to forget an unlinked account's records) and shows the outcome.
#include <chrono>
#include <functional>
#include <memory>
#include <optional>

#include "vxcloud/model/PlatformError.h"
#include "vxcloud/platform/Json.h"

namespace vxcloud {

class VXCloudAccount;
class VXCloudError;
class VXCloudSession;

// How choosing an upload folder went.
struct VXCloudUploadFolderChange {
    enum class Settings {
        written,    // the settings document names the new folder at the service
        failed,     // the service refused it: `error` says why
        noAnswer,   // the service did not answer within the time limit
        noSession,  // no session could be made for the account
        notSaved,   // the account is not stored (any more) or could not be saved, so nothing else was done
        notKept,    // the service keeps no settings document (OneNote, WebDAV): none was sent
    };
    Settings settings = Settings::notSaved;
    std::shared_ptr<VXCloudError> error;

    // Whether the folder is chosen (the account was saved and the change announced).
    bool chosen() const { return settings != Settings::notSaved; }
    bool settingsWritten() const { return settings == Settings::written; }
};

// How an unlink went. Unless `unlinked`, the account is left as it was.
struct VXCloudUnlinkOutcome {
    enum class Result {
        unlinked,         // signed out at the service, removed and announced
        signInWasGone,    // no session could be made (nothing to sign out of); removed and announced
        signOutFailed,    // the session could not remove its authorisation: `error` says why
        noAnswer,         // the session did not answer within the time limit
        notRemoved,       // the account store could not be written
    };
    Result result = Result::notRemoved;
    std::optional<PlatformError> error;

    bool unlinked() const { return result == Result::unlinked || result == Result::signInWasGone; }
};

// How switching automatic upload went.
enum class VXCloudAutoUploadChange {
    changed,    // saved and announced
    unchanged,  // it already was so: nothing saved, nothing posted
    refused,    // the service's accounts never upload automatically (noAutoUploadReason)
    notSaved,   // the account is not stored (any more) or could not be saved; it is left as it was
};

class VXCloudAccountActions {
public:
    VXCloudAccountActions() = delete;

    // The per-account settings document, in the service's top folder.
    static constexpr const char* kSettingsFileName = ".quillosettings";
    // How long the session calls below wait for the service.
    static constexpr std::chrono::seconds kDefaultTimeLimit{120};

    // Makes `uploadFolderInfo` the account's upload folder: stores it in the account and in
    // the stored account (clearing a `missingFolder` error; nothing else of the stored
    // account changes), writes the settings document
    // ".quillosettings" (the folder's info as JSON) to the service's top folder through
    // the account's session with overwrite on, so that linking the account again finds the
    // folder, then posts "VXCloudSelectedUploadFolderNotification" with user-info
    // {"account": the stored account's toDict(), "fromFolder": the folder before (or null),
    // "toFolder": uploadFolderInfo, "moveFiles": moveFiles}. Moving the documents is the
    // host's part, when asked to. The folder is chosen even when the settings document
    // could not be written. `session` is made from the account when none is given. The
    // completion runs once, on the main queue, after the notification was posted.
    static void selectUploadFolder(std::shared_ptr<VXCloudAccount> account, const Json& uploadFolderInfo,
                                   bool moveFiles, std::function<void(VXCloudUploadFolderChange)> completion,
                                   std::shared_ptr<VXCloudSession> session = nullptr,
                                   std::chrono::milliseconds timeLimit = kDefaultTimeLimit);

    // Turns the account's automatic upload on or off: changes the switch of the stored
    // account (nothing else of it) and posts "VXCloudAutoUploadFlagChangedNotification" with
    // user-info {"account": the stored account's toDict(), "shouldAutoUpload": on} when the
    // value changes.
    // Turning it on is refused for services whose accounts never upload automatically.
    static VXCloudAutoUploadChange setAutoUpload(VXCloudAccount& account, bool on);

    // Unlinks the account: its session removes the authorisation (the stored tokens), then
    // the account is removed from the store and "VXCloudAccountUnlinkedNotification" is
    // posted with user-info {"account": account.toDict()}. An account whose session cannot
    // be made is removed all the same; one whose session fails or does not answer is kept.
    // The completion runs once, on the main queue, after the notification was posted.
    static void unlinkAccount(std::shared_ptr<VXCloudAccount> account,
                              std::function<void(VXCloudUnlinkOutcome)> completion,
                              std::chrono::milliseconds timeLimit = kDefaultTimeLimit);
};

}  // namespace vxcloud
