#include "vxcloud/engine/VXCloudAccountActions.h"

#include <atomic>
#include <chrono>
#include <mutex>
#include <nlohmann/json.hpp>
#include <utility>

#include "vxcloud/engine/VXCloudSessionFactory.h"
#include "vxcloud/model/VXCloudAccount.h"
#include "vxcloud/model/VXCloudConstants.h"
#include "vxcloud/model/VXCloudError.h"
#include "vxcloud/model/VXCloudFile.h"
#include "vxcloud/model/VXCloudServiceRegistry.h"
#include "vxcloud/model/VXCloudUserDefaults.h"
#include "vxcloud/platform/ByteBuffer.h"
#include "vxcloud/platform/Dispatch.h"
#include "vxcloud/platform/NotificationCenter.h"
#include "vxcloud/sessions/VXCloudSession.h"

namespace vxcloud {
namespace {

// One answer from a session that may answer late or never: the first of the answer and
// the time limit wins, and whatever comes after it is dropped. Keeps the session (and,
// through `keep`, the delegate it holds weakly) alive until then.
template <typename Answer>
class Waiter : public std::enable_shared_from_this<Waiter<Answer>> {
public:
    using Done = std::function<void(std::optional<Answer>)>;  // nothing: no answer in time

    explicit Waiter(Done done) : done_(std::move(done)) {}

    void start(std::shared_ptr<VXCloudSession> session, std::shared_ptr<void> keep,
               std::chrono::milliseconds timeLimit) {
        {
            std::lock_guard lock(mutex_);
            self_ = this->shared_from_this();  // until finished
            session_ = std::move(session);
            keep_ = std::move(keep);
        }
        DispatchQueue::global()->asyncAfter(timeLimit, [weak = this->weak_from_this()] {
            if (auto self = weak.lock()) self->finish(std::nullopt);
        });
    }
    void finish(std::optional<Answer> answer) {
        Done done;
        std::shared_ptr<VXCloudSession> session;
        std::shared_ptr<void> keep;
        std::shared_ptr<Waiter> self;  // released last
        {
            std::lock_guard lock(mutex_);
            if (finished_) return;
            finished_ = true;
            self = std::move(self_);
            done = std::move(done_);
            session = std::move(session_);
            keep = std::move(keep_);
        }
        done(std::move(answer));
    }

private:
    std::mutex mutex_;
    bool finished_ = false;
    Done done_;
    std::shared_ptr<Waiter> self_;
    std::shared_ptr<VXCloudSession> session_;
    std::shared_ptr<void> keep_;
};

// Catches the outcome of the settings upload.
class UploadCatcher : public VXCloudSessionDelegate {
public:
    using Outcome = std::shared_ptr<VXCloudError>;  // null: uploaded
    explicit UploadCatcher(std::weak_ptr<Waiter<Outcome>> waiter) : waiter_(std::move(waiter)) {}

    void cloudSessionDidUploadFile(const std::shared_ptr<VXCloudSession>&, const std::shared_ptr<VXCloudFile>&) override {
        answer(nullptr);
    }
    void cloudSessionUploadFailedForFile(const std::shared_ptr<VXCloudSession>&, const std::shared_ptr<VXCloudFile>&,
                                         const std::shared_ptr<VXCloudError>& error) override {
        answer(error ? error : std::make_shared<VXCloudError>(ErrorCode::fileUpload));
    }
    // Not asked for.
    void cloudSessionDidLoadFolders(const std::shared_ptr<VXCloudSession>&, const VXCloudFileList&,
                                    const std::shared_ptr<VXCloudFile>&) override {}
    void cloudSessionLoadFoldersFailedWithError(const std::shared_ptr<VXCloudSession>&,
                                                const std::shared_ptr<VXCloudError>&) override {}
    void cloudSessionDidRenameFile(const std::shared_ptr<VXCloudSession>&, const std::shared_ptr<VXCloudFile>&) override {}
    void cloudSessionRenameFailedForFile(const std::shared_ptr<VXCloudSession>&, const std::shared_ptr<VXCloudFile>&,
                                         const std::shared_ptr<VXCloudError>&) override {}
    void cloudSessionDidMoveFiles(const std::shared_ptr<VXCloudSession>&, const VXCloudFileList&,
                                  const VXCloudFileList&) override {}

private:
    void answer(Outcome outcome) {
        if (auto waiter = waiter_.lock()) waiter->finish(std::move(outcome));
    }
    std::weak_ptr<Waiter<Outcome>> waiter_;
};

std::int64_t nowSeconds() {
    return std::chrono::duration_cast<std::chrono::seconds>(std::chrono::system_clock::now().time_since_epoch())
        .count();
}

// The settings document: the upload-folder keys the sessions read back, and who wrote it.
std::shared_ptr<VXCloudFile> settingsDocument(const Json& uploadFolderInfo) {
    Json content = uploadFolderInfo.is_object() ? uploadFolderInfo : Json::object();
    content["writtenBy"] = "vxcloud";
    content["writtenAt"] = nowSeconds();
    auto document = std::make_shared<VXCloudFile>(VXCloudAccountActions::kSettingsFileName, false, false);
    document->fileData = ByteBuffer::copyOf(content.dump(2));
    document->mimeType = "application/json";
    return document;
}

template <typename Outcome>
void completeOnMain(std::function<void(Outcome)> completion, Outcome outcome) {
    if (!completion) return;
    DispatchQueue::main()->async([completion = std::move(completion), outcome = std::move(outcome)] {
        completion(outcome);
    });
}

}  // namespace

void VXCloudAccountActions::selectUploadFolder(std::shared_ptr<VXCloudAccount> account, const Json& uploadFolderInfo,
                                               bool moveFiles, std::function<void(VXCloudUploadFolderChange)> completion,
                                               std::shared_ptr<VXCloudSession> session,
                                               std::chrono::milliseconds timeLimit) {
    using Settings = VXCloudUploadFolderChange::Settings;
    if (!account) return completeOnMain(std::move(completion), VXCloudUploadFolderChange{});
    const JsonBox fromFolder = account->uploadFolderInfo;
    // Only the folder (and the error it cures) changes in the store: what else changed there
    // since the account was read stays.
    const auto chooseIn = [&uploadFolderInfo](VXCloudAccount& stored) {
        stored.uploadFolderInfo = uploadFolderInfo;
        if (stored.error && stored.error->errorCode == ErrorCode::missingFolder) stored.error.reset();
    };
    const auto saved = VXCloudUserDefaults::updateCloudAccount(account->key(), chooseIn);
    // Not stored (unlinked meanwhile) or not writable: nothing changed.
    if (!saved) return completeOnMain(std::move(completion), VXCloudUploadFolderChange{});
    chooseIn(*account);

    // Announced once the settings document is written (or could not be).
    const Json userInfo = {{"account", saved->toDict()},
                           {"fromFolder", fromFolder.value_or_null()},
                           {"toFolder", uploadFolderInfo},
                           {"moveFiles", moveFiles}};
    auto announce = [userInfo, completion = std::move(completion)](VXCloudUploadFolderChange change) mutable {
        NotificationCenter::defaultCenter().post(VXCloudSelectedUploadFolderNotification, nullptr, userInfo);
        completeOnMain(std::move(completion), std::move(change));
    };

    // Those sessions would never answer the upload of the settings document.
    if (!serviceDescriptor(account->cloudService).keepsSettingsDocument) {
        return announce(VXCloudUploadFolderChange{Settings::notKept, nullptr});
    }
    if (!session) session = initCloudSession(account);
    if (!session) return announce(VXCloudUploadFolderChange{Settings::noSession, nullptr});

    using Outcome = UploadCatcher::Outcome;
    auto waiter = std::make_shared<Waiter<Outcome>>([announce = std::move(announce)](std::optional<Outcome> outcome) mutable {
        if (!outcome) return announce(VXCloudUploadFolderChange{Settings::noAnswer, nullptr});
        announce(VXCloudUploadFolderChange{*outcome ? Settings::failed : Settings::written, *outcome});
    });
    auto catcher = std::make_shared<UploadCatcher>(waiter);
    session->setCloudSessionDelegate(catcher);
    waiter->start(session, catcher, timeLimit);
    session->uploadWithCloudFile(settingsDocument(uploadFolderInfo), session->rootFolder(), /*overwrite=*/true);
}

VXCloudAutoUploadChange VXCloudAccountActions::setAutoUpload(VXCloudAccount& account, bool on) {
    if (on && noAutoUploadReason(account.cloudService)) return VXCloudAutoUploadChange::refused;
    if (account.shouldAutoUpload == on) return VXCloudAutoUploadChange::unchanged;
    // Only the switch changes in the store: what else changed there since the account was read stays.
    const auto saved = VXCloudUserDefaults::updateCloudAccount(account.key(),
                                                               [on](VXCloudAccount& stored) { stored.shouldAutoUpload = on; });
    if (!saved) return VXCloudAutoUploadChange::notSaved;
    account.shouldAutoUpload = on;
    NotificationCenter::defaultCenter().post(VXCloudAutoUploadFlagChangedNotification, nullptr,
                                             Json{{"account", saved->toDict()}, {"shouldAutoUpload", on}});
    return VXCloudAutoUploadChange::changed;
}

void VXCloudAccountActions::unlinkAccount(std::shared_ptr<VXCloudAccount> account,
                                          std::function<void(VXCloudUnlinkOutcome)> completion,
                                          std::chrono::milliseconds timeLimit) {
    using Result = VXCloudUnlinkOutcome::Result;
    if (!account) return completeOnMain(std::move(completion), VXCloudUnlinkOutcome{});
    auto finish = [account, completion = std::move(completion)](Result result, std::optional<PlatformError> error) {
        if (result == Result::unlinked || result == Result::signInWasGone) {
            if (!VXCloudUserDefaults::removeCloudAccount(account)) {
                result = Result::notRemoved;
            } else {
                NotificationCenter::defaultCenter().post(VXCloudAccountUnlinkedNotification, nullptr,
                                                         Json{{"account", account->toDict()}});
            }
        }
        completeOnMain(completion, VXCloudUnlinkOutcome{result, std::move(error)});
    };

    // WebDAV accounts have no session here: they are only stored.
    const auto session = account->sessionForAccount();
    if (!session) return finish(Result::signInWasGone, std::nullopt);

    using Answer = std::optional<PlatformError>;  // the sign-out's error, if any
    auto waiter = std::make_shared<Waiter<Answer>>([finish](std::optional<Answer> answer) {
        if (!answer) return finish(Result::noAnswer, std::nullopt);
        // A failed sign-out leaves the account as it was: the person can try again.
        finish(*answer ? Result::signOutFailed : Result::unlinked, *answer);
    });
    waiter->start(session, nullptr, timeLimit);
    session->removeAuthorizationWithCompletion(
        [weak = std::weak_ptr<Waiter<Answer>>(waiter)](std::shared_ptr<VXCloudAccount>, std::optional<PlatformError> error) {
            if (auto w = weak.lock()) w->finish(std::move(error));
        });
}

}  // namespace vxcloud
