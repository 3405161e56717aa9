// The Evernote session: construction, authorisation, the notebooks as folders, the note
// layout and the settings note. Upload, rename and move live in their own files.
//
// Threads: the Evernote client blocks on the network, so the operations run on a global
// queue and report from there; the authorisation questions answer on the calling thread.
#include <ctime>

#include "sessions/EvernoteSession.h"
#include "sessions/SettingsDocument.h"
#include "sessions/SessionSupport.h"
#include "vxcloud/auth/VXCloudTokenStore.h"
#include "vxcloud/engine/VXCloudUtils.h"
#include "vxcloud/model/VXCloudAccount.h"
#include "vxcloud/model/VXCloudFileHasher.h"

namespace vxcloud {

using namespace sessions;
using namespace evernote_session;

namespace {

// Attribute values in ENML are XML.
std::string xmlEscaped(const std::string& text) {
    std::string out;
    for (const char c : text) {
        switch (c) {
            case '&': out += "&amp;"; break;
            case '<': out += "&lt;"; break;
            case '>': out += "&gt;"; break;
            case '"': out += "&quot;"; break;
            default: out += c;
        }
    }
    return out;
}

}  // namespace

std::shared_ptr<VXCloudError> evernote_session::mappedError(const ProviderError& error) {
    return VXCloudError::initWithError(error, VXCloudService::evernote);
}

evernote::Item evernote_session::itemOf(const evernote::Note& note) {
    evernote::Item item;
    item.kind = evernote::Item::Kind::note;
    item.note = note;
    return item;
}

evernote::Item evernote_session::itemOf(const evernote::Notebook& notebook) {
    evernote::Item item;
    item.kind = evernote::Item::Kind::notebook;
    item.notebook = notebook;
    return item;
}

std::string VXCloudEvernoteSession::storageName(const VXCloudAccount& account) {
    return std::string(keyPrefix(VXCloudService::evernote)) + account.userId;
}

std::shared_ptr<VXCloudEvernoteSession> VXCloudEvernoteSession::initWithCloudAccount(
    std::shared_ptr<VXCloudAccount> account) {
    if (!account || account->cloudService != VXCloudService::evernote) return nullptr;
    auto client = evernote::EvernoteClient::forStorageName(storageName(*account));
    if (!client) return nullptr;
    return std::make_shared<EvernoteSession>(std::move(account), std::move(client));
}

VXCloudEvernoteSession::VXCloudEvernoteSession(std::shared_ptr<VXCloudAccount> account)
    : VXCloudSession(std::move(account), DelegateOwnership::weak) {}

VXCloudEvernoteSession::~VXCloudEvernoteSession() = default;

EvernoteSession::EvernoteSession(std::shared_ptr<VXCloudAccount> account, std::shared_ptr<evernote::EvernoteClient> client)
    : VXCloudEvernoteSession(std::move(account)), client_(std::move(client)) {}

std::shared_ptr<EvernoteSession> EvernoteSession::self() {
    return std::static_pointer_cast<EvernoteSession>(shared_from_this());
}

void EvernoteSession::runInBackground(std::function<void()> ifItThrows, std::function<void()> block) {
    runKeepingAlive(self(), std::move(block), std::move(ifItThrows), kCategory);
}

std::shared_ptr<VXCloudFile> EvernoteSession::rootFolder() const {
    return std::make_shared<VXCloudFile>(displayName(VXCloudService::evernote), true, true);
}

void EvernoteSession::isAuthorizedWithCompletion(std::function<void(bool)> completion) {
    // Evernote's tokens are not refreshed: authorised while one is stored and not past its end.
    const auto token = VXCloudTokenStore::load(VXCloudService::evernote, storageName(*cloudAccount()));
    const bool authorized = token && !token->expiresWithin(static_cast<std::int64_t>(std::time(nullptr)), 0);
    if (completion) guarded(kCategory, "the isAuthorized completion", [&] { completion(authorized); });
}

void EvernoteSession::removeAuthorizationWithCompletion(
    std::function<void(std::shared_ptr<VXCloudAccount>, std::optional<PlatformError>)> completion) {
    VXCloudTokenStore::remove(VXCloudService::evernote, storageName(*cloudAccount()));
    if (completion) guarded(kCategory, "the removeAuthorization completion", [&] { completion(cloudAccount(), std::nullopt); });
}

void EvernoteSession::loadFoldersInFolder(std::shared_ptr<VXCloudFile> folder) {
    auto ifItThrows = report::listingFails(self());
    runInBackground(std::move(ifItThrows), [this, folder] {
        // Notebooks are one flat level: the folder only names the parent in the report.
        auto listed = client_->listNotebooks();
        if (!listed.ok()) return report::foldersFailed(self(), mappedError(listed.error()));
        VXCloudFileList notebooks;
        for (const auto& notebook : listed.value()) {
            if (auto record = VXCloudFile::initWithEvernoteItem(itemOf(notebook))) notebooks.push_back(std::move(record));
        }
        report::folders(self(), notebooks, folder);
    });
}

evernote::NoteDraft EvernoteSession::noteFor(const VXCloudFile& file, const std::string& title,
                                             const std::optional<std::string>& notebookGuid) {
    evernote::NoteDraft draft;
    draft.title = title;
    draft.fileName = title;
    draft.notebookGuid = notebookGuid;
    draft.mime = file.mimeType.value_or("application/octet-stream");
    draft.attachment = file.fileData;
    const std::string hash = file.fileData ? VXCloudFileHasher::md5Hash(*file.fileData) : std::string();
    draft.content = std::string("<?xml version=\"1.0\" encoding=\"UTF-8\"?>") + "<!DOCTYPE en-note SYSTEM \"" + kEnmlDtd +
                    "\"><en-note><en-media type=\"" + xmlEscaped(draft.mime) + "\" hash=\"" + hash + "\"/></en-note>";
    return draft;
}

void EvernoteSession::downloadSettingsFileWithCompletionHandler(
    std::function<void(std::shared_ptr<VXCloudFile>, std::shared_ptr<VXCloudError>)> completion) {
    auto ifItThrows = [completion] { if (completion) completion(nullptr, makeError(ErrorCode::fileUpload)); };
    runInBackground(std::move(ifItThrows), [this, completion] {
        auto finish = [&](std::shared_ptr<VXCloudFile> file, std::shared_ptr<VXCloudError> error) {
            if (completion) {
                guarded(kCategory, "the settings completion", [&] { completion(std::move(file), std::move(error)); });
            }
        };
        auto notebook = client_->getDefaultNotebook();
        if (!notebook.ok()) return finish(nullptr, mappedError(notebook.error()));
        const auto folder = VXCloudFile::initWithEvernoteItem(itemOf(notebook.value()));
        const VXCloudFile wanted(kSettingsFileName, false, false);
        const StoredCopyLookup found = findFile(wanted, folder, false);
        if (found.error) return finish(nullptr, found.error);
        if (!found.copy || !found.copy->id) return finish(nullptr, nullptr);
        auto note = client_->getNote(*found.copy->id, true);
        if (!note.ok()) return finish(nullptr, mappedError(note.error()));
        auto record = VXCloudFile::initWithEvernoteItem(itemOf(note.value()));
        if (!record) return finish(nullptr, makeError(ErrorCode::fileUpload));
        const auto& resources = note.value().resources;
        if (!resources.empty() && resources.front().data) record->fileData = resources.front().data;

        const std::string_view text = record->fileData ? record->fileData->view() : std::string_view();
        const auto folderId = sessions::settingsString(text, VXCloudFile::kUploadFolderIdKey);
        if (!folderId) return finish(record, makeError(ErrorCode::missingFolder));
        // The caller reads the notebook from the record's data; here only its presence counts.
        const bool present = client_->getNotebook(*folderId).ok();
        finish(record, present ? nullptr : makeError(ErrorCode::missingFolder));
    });
}

}  // namespace vxcloud
