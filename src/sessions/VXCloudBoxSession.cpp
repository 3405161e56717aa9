// The Box session: construction, authorisation, folder listing, progress and the settings
// document. Upload, rename and move live in their own files.
//
// Threads: the Box client blocks on the network, so every operation runs on a global queue
// and reports from that thread; moves run side by side on global queues as well.
#include <nlohmann/json.hpp>

#include "sessions/BoxSession.h"
#include "sessions/SessionSupport.h"
#include "sessions/SettingsDocument.h"
#include "vxcloud/auth/VXCloudTokenStore.h"
#include "vxcloud/engine/VXCloudUtils.h"
#include "vxcloud/model/VXCloudAccount.h"
#include "vxcloud/model/VXCloudUserDefaults.h"

namespace vxcloud {

using namespace sessions;
using namespace box_session;

std::shared_ptr<VXCloudError> box_session::mappedError(const ProviderError& error) {
    return VXCloudError::initWithError(error, VXCloudService::box);
}

std::string VXCloudBoxSession::storageName(const VXCloudAccount& account) {
    return std::string(keyPrefix(VXCloudService::box)) + account.userId;
}

std::shared_ptr<VXCloudBoxSession> VXCloudBoxSession::initWithCloudAccount(std::shared_ptr<VXCloudAccount> account) {
    if (!account || account->cloudService != VXCloudService::box) return nullptr;
    // The signed-in Box users are the ones whose authorisation is stored.
    auto client = box::BoxClient::forStorageName(storageName(*account));
    if (!client) return nullptr;
    return std::make_shared<BoxSession>(std::move(account), std::move(client));
}

VXCloudBoxSession::VXCloudBoxSession(std::shared_ptr<VXCloudAccount> account)
    : VXCloudSession(std::move(account), DelegateOwnership::weak) {}

VXCloudBoxSession::~VXCloudBoxSession() = default;

BoxSession::BoxSession(std::shared_ptr<VXCloudAccount> account, std::shared_ptr<box::BoxClient> client)
    : VXCloudBoxSession(std::move(account)), client_(std::move(client)) {}

std::shared_ptr<BoxSession> BoxSession::self() { return std::static_pointer_cast<BoxSession>(shared_from_this()); }

void BoxSession::runInBackground(std::function<void()> ifItThrows, std::function<void()> block) {
    runKeepingAlive(self(), std::move(block), std::move(ifItThrows), kCategory);
}

std::string BoxSession::folderId(const std::shared_ptr<VXCloudFile>& parent) {
    if (!parent || !parent->id || parent->id->empty()) return kRootId;
    return *parent->id;
}

std::shared_ptr<VXCloudFile> BoxSession::rootFolder() const {
    auto root = std::make_shared<VXCloudFile>(displayName(VXCloudService::box), true, true);
    root->id.emplace(kRootId);
    return root;
}

void BoxSession::isAuthorizedWithCompletion(std::function<void(bool)> completion) {
    auto ifItThrows = [completion] { if (completion) completion(false); };
    runInBackground(std::move(ifItThrows), [this, completion] {
        // A refresh of the grant: every failure, a network one included, answers false.
        const bool authorized = client_->refreshAuthorization().ok();
        if (completion) guarded(kCategory, "the isAuthorized completion", [&] { completion(authorized); });
    });
}

void BoxSession::removeAuthorizationWithCompletion(
    std::function<void(std::shared_ptr<VXCloudAccount>, std::optional<PlatformError>)> completion) {
    auto ifItThrows = [account = cloudAccount(), completion] { if (completion) completion(account, std::nullopt); };
    runInBackground(std::move(ifItThrows), [this, completion] {
        const std::shared_ptr<VXCloudAccount>& account = cloudAccount();
        // Signing out: the grant is revoked at Box where it can be, and forgotten here.
        client_->revokeAuthorization();
        VXCloudTokenStore::remove(VXCloudService::box, storageName(*account));
        VXCloudUserDefaults::removeCloudAccount(account);
        if (completion) guarded(kCategory, "the removeAuthorization completion", [&] { completion(account, std::nullopt); });
    });
}

void BoxSession::loadFoldersInFolder(std::shared_ptr<VXCloudFile> folder) {
    if (!folder || !folder->id) return report::foldersFailed(self(), makeError(ErrorCode::connection));
    auto ifItThrows = report::listingFails(self());
    runInBackground(std::move(ifItThrows), [this, folder] {
        auto listed = client_->listFolder(*folder->id);
        if (!listed.ok()) return report::foldersFailed(self(), mappedError(listed.error()));
        VXCloudFileList folders;
        for (const auto& item : listed.value()) {
            auto record = VXCloudFile::initWithBoxItem(item);
            if (record && record->isFolder) folders.push_back(std::move(record));
        }
        report::folders(self(), folders, folder);
    });
}

void BoxSession::downloadSettingsFileWithCompletionHandler(
    std::function<void(std::shared_ptr<VXCloudFile>, std::shared_ptr<VXCloudError>)> completion) {
    auto ifItThrows = [completion] { if (completion) completion(nullptr, makeError(ErrorCode::fileUpload)); };
    runInBackground(std::move(ifItThrows), [this, completion] {
        auto finish = [&](std::shared_ptr<VXCloudFile> file, std::shared_ptr<VXCloudError> error) {
            if (completion) {
                guarded(kCategory, "the settings completion", [&] { completion(std::move(file), std::move(error)); });
            }
        };
        const VXCloudFile wanted(kSettingsFileName, false, false);
        const StoredCopyLookup found = findFile(wanted, kRootId, false);
        if (found.error) return finish(nullptr, found.error);
        if (!found.copy || !found.copy->id) return finish(nullptr, nullptr);
        auto bytes = client_->download(*found.copy->id);
        if (!bytes.ok()) return finish(nullptr, mappedError(bytes.error()));
        auto record = found.copy;
        record->fileData = bytes.value();

        const auto folderId = settingsString(bytes.value().view(), VXCloudFile::kUploadFolderIdKey);
        if (!folderId) return finish(record, makeError(ErrorCode::missingFolder));
        // The caller reads the folder from the record's data; here only its presence counts.
        const bool present = client_->getFolder(*folderId).ok();
        finish(record, present ? nullptr : makeError(ErrorCode::missingFolder));
    });
}

std::optional<std::int64_t> BoxSession::previousUploadAmount() const {
    std::lock_guard lock(progressMutex_);
    return previousUploadAmount_;
}

box::UploadProgress BoxSession::progressReporter() {
    // Box's progress is bytes sent so far against the bytes expected: reported as the
    // increase since the previous report.
    return [weak = std::weak_ptr<BoxSession>(self())](std::int64_t uploaded, std::int64_t expected) {
        auto session = weak.lock();
        if (!session) return;
        std::int64_t current = 0;
        {
            std::lock_guard lock(session->progressMutex_);
            current = progressIncrement(session->previousUploadAmount_, uploaded);
        }
        report::progress(session, current, expected);
    };
}

}  // namespace vxcloud
