// The OneNote session: notebooks and sections listed and created, and each document sent
// as a new page that carries it. The session picks its own codes: `connection` when a
// listing cannot be asked for, `fileUpload` for every other failure; the service's own
// errors are not passed on.
//
// Threads: the client blocks on the network, so every operation runs on a global queue and
// reports from that thread.
#include <nlohmann/json.hpp>

#include "platform/HtmlText.h"
#include "providers/onenote/OneNoteClient.h"
#include "providers/onenote/OneNoteWire.h"
#include "sessions/SessionSupport.h"
#include "vxcloud/auth/VXCloudTokenStore.h"
#include "vxcloud/engine/VXCloudUtils.h"
#include "vxcloud/model/VXCloudAccount.h"
#include "vxcloud/model/VXCloudUserDefaults.h"
#include "vxcloud/sessions/VXCloudOneNoteSession.h"

namespace vxcloud {

using namespace sessions;
using nlohmann::json;

namespace {

constexpr const char* kCategory = "onenote";
// Platform error code of removeAuthorization.
constexpr long kAuthorizationNotRemoved = 3;

class OneNoteSession final : public VXCloudOneNoteSession {
public:
    OneNoteSession(std::shared_ptr<VXCloudAccount> account, std::shared_ptr<onenote::OneNoteClient> client)
        : VXCloudOneNoteSession(std::move(account)), client_(std::move(client)) {}

    std::shared_ptr<VXCloudFile> rootFolder() const override {
        return std::make_shared<VXCloudFile>(displayName(VXCloudService::oneNote), true, true);
    }

    // The notebooks answer for the account: the base may be the older notes host, which
    // knows no drive.
    void isAuthorizedWithCompletion(std::function<void(bool)> completion) override {
        auto ifItThrows = [completion] { if (completion) completion(false); };
        run(std::move(ifItThrows), [this, completion] {
            const bool authorized = client_->get("notebooks").ok();
            if (completion) guarded(kCategory, "the isAuthorized completion", [&] { completion(authorized); });
        });
    }

    void removeAuthorizationWithCompletion(
        std::function<void(std::shared_ptr<VXCloudAccount>, std::optional<PlatformError>)> completion) override {
        auto ifItThrows = [account = cloudAccount(), completion] {
            if (completion) completion(account, PlatformError{kVXCloudErrorDomain, kAuthorizationNotRemoved, {}});
        };
        run(std::move(ifItThrows), [this, completion] {
            const std::shared_ptr<VXCloudAccount>& account = cloudAccount();
            std::optional<PlatformError> error;
            if (VXCloudTokenStore::remove(VXCloudService::oneNote, storageName(*account))) {
                VXCloudUserDefaults::removeCloudAccount(account);
            } else {
                error = PlatformError{kVXCloudErrorDomain, kAuthorizationNotRemoved, {}};
            }
            if (completion) guarded(kCategory, "the removeAuthorization completion", [&] { completion(account, error); });
        });
    }

    void loadFoldersInFolder(std::shared_ptr<VXCloudFile> folder) override {
        const bool notebooks = !folder || !folder->id;
        const std::string path =
            notebooks ? "notebooks" : "notebooks/" + onenote::OneNoteClient::encodeSegment(*folder->id) + "/sections";
        run(report::listingFails(self()), [this, folder, notebooks, path] {
            auto listed = client_->get(path);
            if (!listed.ok()) {
                const bool answered = listed.error().httpStatus > 0;
                return report::foldersFailed(self(), makeError(answered ? ErrorCode::fileUpload : ErrorCode::connection));
            }
            // Only the first page; a body that cannot be read lists nothing.
            report::folders(self(), onenote::parseFolderList(listed.value(), notebooks), folder);
        });
    }

    void uploadWithCloudFile(std::shared_ptr<VXCloudFile> file, std::shared_ptr<VXCloudFile> inParentFolder,
                             bool) override {
        // The settings document has no place in OneNote: nothing is sent, nothing answered.
        if (file && !file->isFolder && file->name == kSettingsFileName) return;
        run(report::uploadFails(self(), file), [this, file, parent = std::move(inParentFolder)] {
            if (!file || !hasSendableNames(*file)) return report::uploadFailed(self(), file, makeError(ErrorCode::fileUpload));
            if (file->isFolder) return createFolder(file, parent);
            createPage(file, parent);
        });
    }

    // OneNote keeps pages where they were made, under the title they were given.
    void renameWithCloudFile(std::shared_ptr<VXCloudFile>, std::string, std::shared_ptr<VXCloudFile>, bool,
                             CreatePDFBlock) override {}
    void moveWithCloudFiles(VXCloudFileList, std::shared_ptr<VXCloudFile>, std::shared_ptr<VXCloudFile>) override {}

    void downloadSettingsFileWithCompletionHandler(
        std::function<void(std::shared_ptr<VXCloudFile>, std::shared_ptr<VXCloudError>)> completion) override {
        if (completion) guarded(kCategory, "the settings completion", [&] { completion(nullptr, nullptr); });
    }

private:
    std::shared_ptr<OneNoteSession> self() { return std::static_pointer_cast<OneNoteSession>(shared_from_this()); }

    void run(std::function<void()> ifItThrows, std::function<void()> block) {
        runKeepingAlive(self(), std::move(block), std::move(ifItThrows), kCategory);
    }

    // A notebook at the top level, a section in a notebook.
    void createFolder(const std::shared_ptr<VXCloudFile>& folder, const std::shared_ptr<VXCloudFile>& parent) {
        const bool notebook = !parent || !parent->id;
        const std::string path =
            notebook ? "notebooks" : "notebooks/" + onenote::OneNoteClient::encodeSegment(*parent->id) + "/sections";
        const json request = {{client_->legacyBase() ? "name" : "displayName", folder->name}};
        auto created = client_->postJson(path, request.dump(4));
        if (!created.ok()) return report::uploadFailed(self(), folder, makeError(ErrorCode::fileUpload));
        auto record = onenote::parseCreatedFolder(created.value(), notebook);
        if (!record) return report::uploadFailed(self(), folder, makeError(ErrorCode::fileUpload));
        report::uploaded(self(), record);
    }

    void createPage(const std::shared_ptr<VXCloudFile>& document, const std::shared_ptr<VXCloudFile>& section) {
        if (!section || !section->id || !document->fileData) {
            return report::uploadFailed(self(), document, makeError(ErrorCode::fileUpload));
        }
        const std::string type = mimeType(*document->fileData);
        MultipartBody body("form-data");
        HttpHeaders presentation;
        presentation.set("Content-Disposition", "form-data; name=\"Presentation\"");
        presentation.set("Content-Type", "text/html");
        body.addPart(presentation, ByteBuffer::adopt(pageHtml(document->name, type, std::time(nullptr))));
        HttpHeaders attachment;
        attachment.set("Content-Disposition", "form-data; name=\"" + attachmentPartName(document->name) + "\"");
        attachment.set("Content-Type", type);
        body.addPart(attachment, *document->fileData);

        auto created = client_->postMultipart("sections/" + onenote::OneNoteClient::encodeSegment(*section->id) + "/pages",
                                              body);
        if (!created.ok()) return report::uploadFailed(self(), document, makeError(ErrorCode::fileUpload));
        const auto page = onenote::parseCreatedPage(created.value());
        if (!page) return report::uploadFailed(self(), document, makeError(ErrorCode::fileUpload));
        auto record = std::make_shared<VXCloudFile>(page->title, false, false);
        record->id = page->id;
        record->fileIdentifier = document->fileIdentifier;
        report::uploaded(self(), record);
    }

    std::shared_ptr<onenote::OneNoteClient> client_;
};

}  // namespace

std::string VXCloudOneNoteSession::storageName(const VXCloudAccount& account) {
    return std::string(keyPrefix(VXCloudService::oneNote)) + account.userId;
}

std::shared_ptr<VXCloudOneNoteSession> VXCloudOneNoteSession::initWithCloudAccount(
    std::shared_ptr<VXCloudAccount> account) {
    if (!account || account->cloudService != VXCloudService::oneNote) return nullptr;
    auto client = onenote::OneNoteClient::forStorageName(storageName(*account));
    if (!client) return nullptr;
    return std::make_shared<OneNoteSession>(std::move(account), std::move(client));
}

std::string VXCloudOneNoteSession::attachmentPartName(const std::string& name) {
    std::string out = name;
    for (char& c : out) {
        const auto byte = static_cast<unsigned char>(c);
        if (c == '"' || c == '\\' || byte < 0x20 || byte == 0x7f) c = '_';
    }
    return out;
}

std::string VXCloudOneNoteSession::pageHtml(const std::string& name, const std::string& mimeType, std::time_t created) {
    std::tm local{};
    localtime_r(&created, &local);
    char time[40];
    // "yyyy-MM-dd'T'HH:mm:ssZ": the zone as an RFC 822 offset, "+0100".
    std::strftime(time, sizeof(time), "%Y-%m-%dT%H:%M:%S%z", &local);
    const std::string shown = htmlEscape(name);
    return "<html><head><title>" + shown + "</title><meta name=\"created\" content=\"" + time +
           "\" /></head><body><object data-attachment=\"" + shown + "\" data=\"name:" +
           htmlEscape(attachmentPartName(name)) + "\" type=\"" + mimeType + "\" /></body></html>";
}

VXCloudOneNoteSession::VXCloudOneNoteSession(std::shared_ptr<VXCloudAccount> account)
    : VXCloudSession(std::move(account), DelegateOwnership::strong) {}

VXCloudOneNoteSession::~VXCloudOneNoteSession() = default;

}  // namespace vxcloud
