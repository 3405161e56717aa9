// The Dropbox session: construction, authorisation, folder listing, the settings document
// and the delegate calls. Upload, rename and move live in their own files.
//
// Threads: the client blocks on the network, so every operation runs on a global queue and
// reports from that thread. The move launch's answer is handled on the background thread
// that made the call, not on the main queue: a host need not drive the main queue, and
// nothing in the move outcome needs it.
#include <nlohmann/json.hpp>
#include <set>

#include "sessions/DropboxSession.h"
#include "sessions/SettingsDocument.h"
#include "vxcloud/auth/VXCloudTokenStore.h"
#include "vxcloud/engine/VXCloudUtils.h"
#include "vxcloud/model/VXCloudAccount.h"
#include "vxcloud/model/VXCloudFile.h"
#include "vxcloud/model/VXCloudUserDefaults.h"
#include "vxcloud/platform/Dispatch.h"
#include "vxcloud/platform/Log.h"

namespace vxcloud {

using namespace dropbox_session;

namespace {

// Platform error codes of removeAuthorization.
constexpr long kNoStoredToken = 2;
constexpr long kTokenNotRemoved = 3;

constexpr const char* kCategory = "dropbox";

template <typename Call>
void guarded(const char* what, Call&& call) {
    sessions::guarded(kCategory, what, std::forward<Call>(call));
}

}  // namespace

std::shared_ptr<VXCloudDropboxSession> VXCloudDropboxSession::initWithCloudAccount(
    std::shared_ptr<VXCloudAccount> account, std::chrono::milliseconds movePollInterval) {
    if (!account || account->cloudService != VXCloudService::dropbox) return nullptr;
    auto client = dropbox::DropboxClient::forUser(account->userId);
    if (!client) return nullptr;
    return std::make_shared<DropboxSession>(std::move(account), std::move(client), movePollInterval);
}

VXCloudDropboxSession::VXCloudDropboxSession(std::shared_ptr<VXCloudAccount> account)
    : VXCloudSession(std::move(account), DelegateOwnership::weak) {}

VXCloudDropboxSession::~VXCloudDropboxSession() = default;

std::string VXCloudDropboxSession::folderPrefix(const std::shared_ptr<VXCloudFile>& parent) {
    if (!parent || !parent->path || *parent->path == "/") return "/";
    return *parent->path + "/";
}

DropboxSession::DropboxSession(std::shared_ptr<VXCloudAccount> account, std::shared_ptr<dropbox::DropboxClient> client,
                               std::chrono::milliseconds movePollInterval)
    : VXCloudDropboxSession(std::move(account)), client_(std::move(client)), movePollInterval_(movePollInterval) {}

std::shared_ptr<DropboxSession> DropboxSession::self() {
    return std::static_pointer_cast<DropboxSession>(shared_from_this());
}

void DropboxSession::runInBackground(std::function<void()> ifItThrows, std::function<void()> block, bool backgroundPriority) {
    sessions::runKeepingAlive(self(), std::move(block), std::move(ifItThrows), kCategory,
                              backgroundPriority ? QoS::background : QoS::defaultQoS);
}

std::optional<std::int64_t> DropboxSession::previousUploadAmount() const {
    std::lock_guard lock(progressMutex_);
    return previousUploadAmount_;
}

std::shared_ptr<VXCloudFile> DropboxSession::rootFolder() const {
    auto root = std::make_shared<VXCloudFile>(displayName(VXCloudService::dropbox), true, true);
    root->path = "";
    return root;
}

void DropboxSession::isAuthorizedWithCompletion(std::function<void(bool)> completion) {
    auto ifItThrows = [completion] { if (completion) completion(false); };
    runInBackground(std::move(ifItThrows), [this, completion] {
        const bool authorized = client_->getCurrentAccount().ok();
        if (completion) guarded("isAuthorized completion", [&] { completion(authorized); });
    });
}

void DropboxSession::removeAuthorizationWithCompletion(
    std::function<void(std::shared_ptr<VXCloudAccount>, std::optional<PlatformError>)> completion) {
    auto ifItThrows = [account = cloudAccount(), completion] {
        if (completion) completion(account, PlatformError{kVXCloudErrorDomain, kTokenNotRemoved, {}});
    };
    runInBackground(std::move(ifItThrows), [this, completion] {
        const std::shared_ptr<VXCloudAccount>& account = cloudAccount();
        std::optional<PlatformError> error;
        if (!VXCloudTokenStore::contains(VXCloudService::dropbox, account->userId)) {
            error = PlatformError{kVXCloudErrorDomain, kNoStoredToken, {}};
        } else if (!VXCloudTokenStore::remove(VXCloudService::dropbox, account->userId)) {
            error = PlatformError{kVXCloudErrorDomain, kTokenNotRemoved, {}};
        } else {
            VXCloudUserDefaults::removeCloudAccount(account);
        }
        if (completion) guarded("removeAuthorization completion", [&] { completion(account, error); });
    });
}

void DropboxSession::loadFoldersInFolder(std::shared_ptr<VXCloudFile> folder) {
    // A folder without a path cannot be addressed; the picker never offers one.
    if (!folder || !folder->path) return;
    auto ifItThrows = sessions::report::listingFails(self());
    runInBackground(std::move(ifItThrows), [this, folder] {
        auto listed = client_->listFolder(*folder->path);
        if (!listed.ok()) return reportFoldersFailed(ErrorCode::fileUpload);
        VXCloudFileList folders;
        for (const auto& entry : listed.value().entries) {
            auto record = VXCloudFile::initWithMetadata(entry);
            if (record && record->isFolder) folders.push_back(std::move(record));
        }
        if (!listed.value().hasMore) return reportFolders(folders, folder);
        loadFoldersContinue(listed.value().cursor, std::move(folders), folder);
    });
}

void DropboxSession::loadFoldersContinue(const std::string& cursor, VXCloudFileList foldersSoFar,
                                         const std::shared_ptr<VXCloudFile>& parentFolder) {
    std::string next = cursor;
    // A cursor handed out twice would keep this loop going for ever.
    std::set<std::string> seen{cursor};
    for (;;) {
        auto page = client_->listFolderContinue(next);
        if (!page.ok()) return reportFoldersFailed(ErrorCode::fileUpload);
        for (const auto& entry : page.value().entries) {
            auto record = VXCloudFile::initWithMetadata(entry);
            if (record && record->isFolder) foldersSoFar.push_back(std::move(record));
        }
        if (!page.value().hasMore) return reportFolders(foldersSoFar, parentFolder);
        next = page.value().cursor;
        if (!seen.insert(next).second) {
            log::warning(kCategory, "list_folder/continue handed out a cursor again");
            return reportFoldersFailed(ErrorCode::fileUpload);
        }
    }
}

void DropboxSession::downloadSettingsFileWithCompletionHandler(
    std::function<void(std::shared_ptr<VXCloudFile>, std::shared_ptr<VXCloudError>)> completion) {
    auto ifItThrows = [completion] { if (completion) completion(nullptr, makeError(ErrorCode::fileUpload)); };
    runInBackground(std::move(ifItThrows), [this, completion] {
        auto finish = [&](std::shared_ptr<VXCloudFile> file, std::shared_ptr<VXCloudError> error) {
            if (completion) guarded("settings completion", [&] { completion(std::move(file), std::move(error)); });
        };
        auto downloaded = client_->download(std::string("/") + kSettingsFileName);
        if (!downloaded.ok()) return finish(nullptr, makeError(ErrorCode::fileUpload));
        auto record = VXCloudFile::initWithMetadata(downloaded.value().metadata);
        if (!record) return finish(nullptr, makeError(ErrorCode::missingFolder));
        record->fileData = downloaded.value().data;

        const auto folderPath =
            sessions::settingsString(downloaded.value().data.view(), VXCloudFile::kUploadFolderPathKey);
        if (!folderPath) return finish(nullptr, makeError(ErrorCode::missingFolder));
        const std::string& path = *folderPath;
        // The top folder always exists, and Dropbox has no metadata for it to ask about.
        if (path.empty() || path == "/") return finish(record, nullptr);
        const bool exists = client_->getMetadata(path).ok();
        finish(record, exists ? nullptr : makeError(ErrorCode::missingFolder));
    });
}

void DropboxSession::reportProgress(std::int64_t completed, std::int64_t total) {
    std::int64_t current = 0;
    {
        std::lock_guard lock(progressMutex_);
        current = sessions::progressIncrement(previousUploadAmount_, completed);
    }
    sessions::report::progress(self(), current, total);
}

void DropboxSession::reportUploaded(const std::shared_ptr<VXCloudFile>& file) {
    sessions::report::uploaded(self(), file);
}

void DropboxSession::reportUploadFailed(const std::shared_ptr<VXCloudFile>& file, ErrorCode code) {
    reportUploadFailed(file, makeError(code));
}

void DropboxSession::reportUploadFailed(const std::shared_ptr<VXCloudFile>& file,
                                        const std::shared_ptr<VXCloudError>& error) {
    sessions::report::uploadFailed(self(), file, error);
}

void DropboxSession::reportRenamed(const std::shared_ptr<VXCloudFile>& file) {
    sessions::report::renamed(self(), file);
}

void DropboxSession::reportRenameFailed(const std::shared_ptr<VXCloudFile>& file,
                                        const std::shared_ptr<VXCloudError>& error) {
    sessions::report::renameFailed(self(), file, error);
}

void DropboxSession::reportMoved(const VXCloudFileList& moved, const VXCloudFileList& notMoved) {
    sessions::report::moved(self(), moved, notMoved);
}

void DropboxSession::reportFolders(const VXCloudFileList& folders,
                                   const std::shared_ptr<VXCloudFile>& parent) {
    sessions::report::folders(self(), folders, parent);
}

void DropboxSession::reportFoldersFailed(ErrorCode code) {
    sessions::report::foldersFailed(self(), makeError(code));
}

}  // namespace vxcloud
