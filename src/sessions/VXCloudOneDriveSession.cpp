// The OneDrive session: construction, authorisation, folder listing, progress and the
// settings document. Upload, rename and move live in their own files.
//
// Threads: the Graph client blocks on the network, so every operation runs on a global
// queue and reports from that thread; moves run side by side on global queues as well.
#include <cmath>
#include <nlohmann/json.hpp>

#include "sessions/OneDriveSession.h"
#include "sessions/SessionSupport.h"
#include "sessions/SettingsDocument.h"
#include "vxcloud/auth/VXCloudTokenStore.h"
#include "vxcloud/engine/VXCloudUtils.h"
#include "vxcloud/model/VXCloudAccount.h"
#include "vxcloud/model/VXCloudUserDefaults.h"

namespace vxcloud {

using namespace sessions;
using namespace onedrive_session;

namespace {

// Platform error code of removeAuthorization.
constexpr long kAuthorizationNotRemoved = 3;

}  // namespace

std::shared_ptr<VXCloudError> onedrive_session::mappedError(const ProviderError& error) {
    return VXCloudError::initWithError(error, VXCloudService::oneDrive);
}

std::string VXCloudOneDriveSession::storageName(const VXCloudAccount& account) {
    return std::string(keyPrefix(VXCloudService::oneDrive)) + account.userId;
}

std::shared_ptr<VXCloudOneDriveSession> VXCloudOneDriveSession::initWithCloudAccount(
    std::shared_ptr<VXCloudAccount> account) {
    if (!account || account->cloudService != VXCloudService::oneDrive) return nullptr;
    auto client = onedrive::GraphClient::forStorageName(storageName(*account));
    if (!client) return nullptr;
    return std::make_shared<OneDriveSession>(std::move(account), std::move(client));
}

VXCloudOneDriveSession::VXCloudOneDriveSession(std::shared_ptr<VXCloudAccount> account)
    : VXCloudSession(std::move(account), DelegateOwnership::weak) {}

VXCloudOneDriveSession::~VXCloudOneDriveSession() = default;

OneDriveSession::OneDriveSession(std::shared_ptr<VXCloudAccount> account, std::shared_ptr<onedrive::GraphClient> client)
    : VXCloudOneDriveSession(std::move(account)), client_(std::move(client)) {}

std::shared_ptr<OneDriveSession> OneDriveSession::self() {
    return std::static_pointer_cast<OneDriveSession>(shared_from_this());
}

void OneDriveSession::runInBackground(std::function<void()> ifItThrows, std::function<void()> block) {
    runKeepingAlive(self(), std::move(block), std::move(ifItThrows), kCategory);
}

std::string OneDriveSession::parentId(const std::shared_ptr<VXCloudFile>& parent) {
    if (!parent || !parent->id || parent->id->empty()) return kRootId;
    return *parent->id;
}

std::string OneDriveSession::lookupPath(const std::shared_ptr<VXCloudFile>& folder) {
    if (!folder || !folder->path) return {};
    const std::string& path = *folder->path;
    return path.starts_with('/') ? path.substr(1) : path;
}

std::shared_ptr<VXCloudFile> OneDriveSession::rootFolder() const {
    auto root = std::make_shared<VXCloudFile>(displayName(VXCloudService::oneDrive), true, true);
    root->id = kRootId;
    return root;
}

void OneDriveSession::isAuthorizedWithCompletion(std::function<void(bool)> completion) {
    auto ifItThrows = [completion] { if (completion) completion(false); };
    runInBackground(std::move(ifItThrows), [this, completion] {
        const bool authorized = client_->getDrive().ok();
        if (completion) guarded(kCategory, "the isAuthorized completion", [&] { completion(authorized); });
    });
}

void OneDriveSession::removeAuthorizationWithCompletion(
    std::function<void(std::shared_ptr<VXCloudAccount>, std::optional<PlatformError>)> completion) {
    auto ifItThrows = [account = cloudAccount(), completion] {
        if (completion) completion(account, PlatformError{kVXCloudErrorDomain, kAuthorizationNotRemoved, {}});
    };
    runInBackground(std::move(ifItThrows), [this, completion] {
        const std::shared_ptr<VXCloudAccount>& account = cloudAccount();
        std::optional<PlatformError> error;
        if (VXCloudTokenStore::remove(VXCloudService::oneDrive, storageName(*account))) {
            VXCloudUserDefaults::removeCloudAccount(account);
        } else {
            error = PlatformError{kVXCloudErrorDomain, kAuthorizationNotRemoved, {}};
        }
        if (completion) guarded(kCategory, "the removeAuthorization completion", [&] { completion(account, error); });
    });
}

void OneDriveSession::loadFoldersInFolder(std::shared_ptr<VXCloudFile> folder) {
    if (!folder || !folder->id) return report::foldersFailed(self(), makeError(ErrorCode::connection));
    auto ifItThrows = report::listingFails(self());
    runInBackground(std::move(ifItThrows), [this, folder] {
        // Every page is read: a folder with many sub-folders is listed whole.
        auto page = client_->listChildren(*folder->id);
        VXCloudFileList folders;
        while (true) {
            if (!page.ok()) return report::foldersFailed(self(), mappedError(page.error()));
            for (const auto& item : page.value().items) {
                auto record = VXCloudFile::initWithOneDriveItem(item);
                if (record && record->isFolder) folders.push_back(std::move(record));
            }
            if (!page.value().nextLink) break;
            page = client_->nextPage(*page.value().nextLink);
        }
        report::folders(self(), folders, folder);
    });
}

void OneDriveSession::downloadSettingsFileWithCompletionHandler(
    std::function<void(std::shared_ptr<VXCloudFile>, std::shared_ptr<VXCloudError>)> completion) {
    auto ifItThrows = [completion] { if (completion) completion(nullptr, makeError(ErrorCode::fileUpload)); };
    runInBackground(std::move(ifItThrows), [this, completion] {
        auto finish = [&](std::shared_ptr<VXCloudFile> file, std::shared_ptr<VXCloudError> error) {
            if (completion) {
                guarded(kCategory, "the settings completion", [&] { completion(std::move(file), std::move(error)); });
            }
        };
        auto item = client_->getItemAtPath(kSettingsFileName);
        if (!item.ok()) return finish(nullptr, mappedError(item.error()));
        auto bytes = client_->downloadAtPath(kSettingsFileName);
        if (!bytes.ok()) return finish(nullptr, mappedError(bytes.error()));
        auto record = VXCloudFile::initWithOneDriveItem(item.value());
        if (!record) return finish(nullptr, makeError(ErrorCode::missingFolder));
        record->fileData = bytes.value();

        const auto folderId = settingsString(bytes.value().view(), VXCloudFile::kUploadFolderIdKey);
        if (!folderId) return finish(record, makeError(ErrorCode::missingFolder));
        // The caller reads the folder from the record's data; here only its presence counts.
        const bool present = client_->getItem(*folderId).ok();
        finish(record, present ? nullptr : makeError(ErrorCode::missingFolder));
    });
}

std::optional<std::int64_t> OneDriveSession::previousUploadAmount() const {
    std::lock_guard lock(progressMutex_);
    return previousUploadAmount_;
}

void OneDriveSession::beginProgress(std::int64_t size) {
    std::lock_guard lock(progressMutex_);
    fileSize_ = size;
}

void OneDriveSession::endProgress() {
    // The running total stays: the next upload's first report is measured from it.
    std::lock_guard lock(progressMutex_);
    fileSize_.reset();
}

void OneDriveSession::fractionCompleted(double fraction) {
    if (!std::isfinite(fraction) || fraction < 0.0 || fraction > 1.0) return;
    std::int64_t current = 0;
    std::int64_t total = 0;
    {
        std::lock_guard lock(progressMutex_);
        if (!fileSize_) return;
        total = *fileSize_;
        const auto uploaded = static_cast<std::int64_t>(fraction * static_cast<double>(total));
        current = progressIncrement(previousUploadAmount_, uploaded);
    }
    report::progress(self(), current, total);
}

}  // namespace vxcloud
