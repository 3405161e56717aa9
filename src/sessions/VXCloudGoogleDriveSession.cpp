// The Google Drive session: construction, authorisation, folder listing, the settings
// document and the search texts. Upload, rename and move live in their own files.
//
// Threads: the client blocks on the network, so every operation runs on a global queue and
// reports from that thread; moves run side by side on global queues as well.
#include <nlohmann/json.hpp>

#include "sessions/GoogleDriveSession.h"
#include "sessions/SessionSupport.h"
#include "sessions/SettingsDocument.h"
#include "vxcloud/auth/VXCloudTokenStore.h"
#include "vxcloud/engine/VXCloudUtils.h"
#include "vxcloud/model/VXCloudAccount.h"
#include "vxcloud/model/VXCloudUserDefaults.h"

namespace vxcloud {

using namespace sessions;
using namespace google_session;

namespace {

// Platform error code of removeAuthorization.
constexpr long kAuthorizationNotRemoved = 3;

std::string quoted(const std::string& text) {
    // Backslashes first, then quotes, so an escaped quote's backslash is not doubled.
    std::string out = "'";
    for (const char c : text) {
        if (c == '\\' || c == '\'') out += '\\';
        out += c;
    }
    return out + "'";
}

// An RFC 3339 UTC time as Drive writes it, in an order that sorts like the time itself
// whatever the number of fraction digits: "YYYY-MM-DDTHH:MM:SS" and nine fraction digits.
std::string sortableTime(const std::optional<std::string>& time) {
    if (!time || time->size() < 19) return {};
    std::string fraction;
    if (time->size() > 20 && (*time)[19] == '.') {
        fraction = time->substr(20, time->find_first_not_of("0123456789", 20) - 20);
    }
    fraction.resize(9, '0');
    return time->substr(0, 19) + fraction;
}

// Several settings documents may exist (Drive allows one name many times, and earlier
// versions of this component made a new one per folder choice): the newest counts, the
// first in the answer among equals. Nothing when none has an id.
const drive::File* newestStored(const std::vector<drive::File>& files) {
    const drive::File* newest = nullptr;
    for (const auto& file : files) {
        if (!file.identifier) continue;
        if (!newest || sortableTime(file.modifiedTime) > sortableTime(newest->modifiedTime)) newest = &file;
    }
    return newest;
}

}  // namespace

std::string VXCloudGoogleDriveSession::storageName(const VXCloudAccount& account) {
    return std::string(keyPrefix(VXCloudService::googleDrive)) + account.userId;
}

std::shared_ptr<VXCloudGoogleDriveSession> VXCloudGoogleDriveSession::initWithCloudAccount(
    std::shared_ptr<VXCloudAccount> account) {
    if (!account || account->cloudService != VXCloudService::googleDrive) return nullptr;
    auto client = drive::GoogleDriveClient::forStorageName(storageName(*account));
    if (!client) return nullptr;
    return std::make_shared<GoogleDriveSession>(std::move(account), std::move(client));
}

VXCloudGoogleDriveSession::VXCloudGoogleDriveSession(std::shared_ptr<VXCloudAccount> account)
    : VXCloudSession(std::move(account), DelegateOwnership::weak) {}

VXCloudGoogleDriveSession::~VXCloudGoogleDriveSession() = default;

GoogleDriveSession::GoogleDriveSession(std::shared_ptr<VXCloudAccount> account,
                                       std::shared_ptr<drive::GoogleDriveClient> client)
    : VXCloudGoogleDriveSession(std::move(account)), client_(std::move(client)) {}

std::shared_ptr<GoogleDriveSession> GoogleDriveSession::self() {
    return std::static_pointer_cast<GoogleDriveSession>(shared_from_this());
}

void GoogleDriveSession::runInBackground(std::function<void()> ifItThrows, std::function<void()> block) {
    runKeepingAlive(self(), std::move(block), std::move(ifItThrows), kCategory);
}

std::optional<std::uint64_t> GoogleDriveSession::previousUploadAmount() const {
    std::lock_guard lock(progressMutex_);
    return previousUploadAmount_;
}

std::string GoogleDriveSession::folderId(const std::shared_ptr<VXCloudFile>& parent, bool forLookup) {
    if (!parent || !parent->id) return "root";
    if (forLookup && parent->id->empty()) return "root";
    return *parent->id;
}

std::string VXCloudGoogleDriveSession::subfoldersQuery(const std::string& folderId) {
    return quoted(folderId) + " IN parents and mimeType = '" + drive::kFolderMimeType + "' and trashed = false";
}

std::string VXCloudGoogleDriveSession::documentQuery(const std::string& folderId, const std::string& name) {
    return quoted(folderId) + " IN parents and name = " + quoted(name) + " and trashed = false";
}

std::string GoogleDriveSession::folderContentsQuery(const std::string& folderId) {
    return quoted(folderId) + " IN parents and trashed = false";
}

std::string VXCloudGoogleDriveSession::settingsQuery() { return documentQuery("root", kSettingsFileName); }

std::shared_ptr<VXCloudFile> GoogleDriveSession::rootFolder() const {
    auto root = std::make_shared<VXCloudFile>(displayName(VXCloudService::googleDrive), true, true);
    root->id = this->root;
    return root;
}

void GoogleDriveSession::isAuthorizedWithCompletion(std::function<void(bool)> completion) {
    auto ifItThrows = [completion] { if (completion) completion(false); };
    runInBackground(std::move(ifItThrows), [this, completion] {
        const auto about = client_->aboutGet("user");
        const bool authorized = about.ok() && about.value().is_object() && about.value().contains("user") &&
                                about.value()["user"].is_object();
        if (completion) guarded(kCategory, "the isAuthorized completion", [&] { completion(authorized); });
    });
}

void GoogleDriveSession::removeAuthorizationWithCompletion(
    std::function<void(std::shared_ptr<VXCloudAccount>, std::optional<PlatformError>)> completion) {
    auto ifItThrows = [account = cloudAccount(), completion] {
        if (completion) completion(account, PlatformError{kVXCloudErrorDomain, kAuthorizationNotRemoved, {}});
    };
    runInBackground(std::move(ifItThrows), [this, completion] {
        const std::shared_ptr<VXCloudAccount>& account = cloudAccount();
        std::optional<PlatformError> error;
        if (VXCloudTokenStore::remove(VXCloudService::googleDrive, storageName(*account))) {
            VXCloudUserDefaults::removeCloudAccount(account);
        } else {
            error = PlatformError{kVXCloudErrorDomain, kAuthorizationNotRemoved, {}};
        }
        if (completion) guarded(kCategory, "the removeAuthorization completion", [&] { completion(account, error); });
    });
}

void GoogleDriveSession::loadFoldersInFolder(std::shared_ptr<VXCloudFile> folder) {
    // A folder without an id cannot be searched; the picker never offers one.
    if (!folder || !folder->id) return;
    auto ifItThrows = report::listingFails(self());
    runInBackground(std::move(ifItThrows), [this, folder] {
        auto listed = client_->listFiles(subfoldersQuery(*folder->id));
        if (!listed.ok()) {
            return report::foldersFailed(self(), VXCloudError::initWithError(listed.error(),
                                                                               VXCloudService::googleDrive));
        }
        VXCloudFileList folders;
        for (const auto& item : listed.value()) {
            auto record = VXCloudFile::initWithFile(item);
            if (record && record->isFolder) folders.push_back(std::move(record));
        }
        report::folders(self(), folders, folder);
    });
}

void GoogleDriveSession::downloadSettingsFileWithCompletionHandler(
    std::function<void(std::shared_ptr<VXCloudFile>, std::shared_ptr<VXCloudError>)> completion) {
    auto ifItThrows = [completion] { if (completion) completion(nullptr, makeError(ErrorCode::fileUpload)); };
    runInBackground(std::move(ifItThrows), [this, completion] {
        auto finish = [&](std::shared_ptr<VXCloudFile> file, std::shared_ptr<VXCloudError> error) {
            if (completion) {
                guarded(kCategory, "the settings completion", [&] { completion(std::move(file), std::move(error)); });
            }
        };
        auto failedWith = [](const ProviderError& error) {
            return makeError(VXCloudError::errorCodeFromGoogleDriveError(error));
        };
        auto listed = client_->listFiles(settingsQuery(), kSettingsLookupFields);
        if (!listed.ok()) return finish(nullptr, failedWith(listed.error()));
        const drive::File* newest = newestStored(listed.value());
        if (!newest) return finish(nullptr, makeError(ErrorCode::missingFolder));
        const drive::File& found = *newest;
        auto bytes = client_->fetch("/drive/v3/files/" + HttpClient::urlEncode(*found.identifier) + "?alt=media");
        if (!bytes.ok()) return finish(nullptr, failedWith(bytes.error()));
        auto record = VXCloudFile::initWithFile(found);
        if (!record) return finish(nullptr, makeError(ErrorCode::missingFolder));
        record->fileData = bytes.value();

        const auto folderId = settingsString(bytes.value().view(), VXCloudFile::kUploadFolderIdKey);
        if (!folderId) return finish(record, makeError(ErrorCode::missingFolder));
        // The caller reads the folder from the record's data; here only its presence counts.
        const auto folder = client_->getFile(*folderId, "trashed");
        const bool present = folder.ok() && !folder.value().trashed.value_or(false);
        finish(record, present ? nullptr : makeError(ErrorCode::missingFolder));
    });
}

void GoogleDriveSession::reportProgress(std::int64_t uploaded, std::int64_t expected) {
    std::int64_t current = 0;
    {
        std::lock_guard lock(progressMutex_);
        current = progressIncrement(previousUploadAmount_, uploaded);
    }
    report::progress(self(), current, expected);
}

}  // namespace vxcloud
