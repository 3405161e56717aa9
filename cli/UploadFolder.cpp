#include "UploadFolder.h"

#include <nlohmann/json.hpp>

#include "Accounts.h"
#include "DocumentJobs.h"
#include "HostContext.h"
#include "Output.h"
#include "Progress.h"
#include "SessionCalls.h"
#include "vxcloud/engine/VXCloudUtils.h"
#include "vxcloud/model/VXCloudConstants.h"
#include "vxcloud/model/VXCloudFile.h"
#include "vxcloud/platform/Dispatch.h"
#include "vxcloud/sessions/VXCloudDropboxSession.h"

namespace vxcloud::cli {

namespace {

constexpr const char* kSettingsFileName = VXCloudDropboxSession::kSettingsFileName;

}  // namespace

Json settingsDocument(const Json& uploadFolderInfo) {
    // The upload-folder keys are what the sessions read back; the rest says who wrote it.
    Json document = uploadFolderInfo.is_object() ? uploadFolderInfo : Json::object();
    document["writtenBy"] = "vxcloud";
    document["writtenAt"] = nowSeconds();
    return document;
}

FolderChange chooseUploadFolder(const std::shared_ptr<VXCloudAccount>& account,
                                const std::shared_ptr<VXCloudSession>& session, const Json& uploadFolderInfo,
                                bool moveFiles) {
    FolderChange change;
    const JsonBox fromFolder = account->uploadFolderInfo;
    account->uploadFolderInfo = uploadFolderInfo;
    if (account->error && account->error->errorCode == ErrorCode::missingFolder) account->error.reset();
    saveAccount(*account);

    if (session) {
        auto settings = std::make_shared<VXCloudFile>(kSettingsFileName, false, false);
        settings->fileData = ByteBuffer::copyOf(settingsDocument(uploadFolderInfo).dump(2));
        settings->mimeType = "application/json";
        const SessionOutcome written = uploadFile(session, settings, session->rootFolder(), /*overwrite=*/true);
        change.settingsWritten = written.ok();
        if (!written.ok()) {
            change.settingsProblem = written.answered && written.error ? errorText(written.error->errorCode)
                                                                       : "the service did not answer in time";
        }
    } else {
        change.settingsProblem = "no session could be made for the account";
    }

    Json userInfo = {{"account", account->toDict()},
                     {"fromFolder", fromFolder.value_or_null()},
                     {"toFolder", uploadFolderInfo},
                     {"moveFiles", moveFiles}};
    NotificationCenter::defaultCenter().post(VXCloudSelectedUploadFolderNotification, nullptr, userInfo);
    DispatchQueue::main()->drain();
    return change;
}

FolderChangeMover::FolderChangeMover(HostContext& context, Prompter& prompter, std::shared_ptr<ProgressBoard> board)
    : context_(context), prompter_(prompter), board_(std::move(board)) {
    token_ = NotificationCenter::defaultCenter().addObserver(
        VXCloudSelectedUploadFolderNotification, DispatchQueue::main(),
        [this](const Notification& notification) { onFolderSelected(notification); });
}

FolderChangeMover::~FolderChangeMover() { NotificationCenter::defaultCenter().removeObserver(token_); }

void FolderChangeMover::onFolderSelected(const Notification& notification) {
    if (!notification.userInfo || !notification.userInfo->is_object()) return;
    const Json& info = *notification.userInfo;
    if (!info.value("moveFiles", false)) return;
    try {
        const auto described = VXCloudAccount::initWithDictionary(info.value("account", Json()));
        const auto account = described ? reloadAccount(described->key()) : nullptr;
        if (!account) return;
        const JsonBox from = info.value("fromFolder", Json());
        const JsonBox to = info.value("toFolder", Json());
        const auto fromFolder = initUploadFolderFromDictionary(from);
        const auto toFolder = initUploadFolderFromDictionary(to);
        if (!fromFolder || !toFolder) {
            if (!context_.json()) say("There was no earlier upload folder, so no documents are moved.");
            return;
        }
        const auto fromPath = folderPathOfInfo(from).value_or("/");
        if (fromPath == folderPathOfInfo(to).value_or("/")) return;
        std::vector<std::string> paths;
        for (const auto& document :
             context_.records().documentsOnAccount(account->accountType(), account->email, fromPath))
            paths.push_back(document.path);
        if (paths.empty()) {
            if (!context_.json()) say("No documents of this host are stored in " + fromPath + ", so none are moved.");
            return;
        }
        DocumentJobs jobs(context_, prompter_, board_, JobOptions{});
        const JobReport report = jobs.move(paths, account, fromFolder, toFolder);
        if (!report.ok()) context_.noteFailure();
        lastReport_ = report.toJson(context_);
    } catch (const std::exception& e) {
        warn(std::string("the documents could not be moved: ") + e.what());
        context_.noteFailure();
    }
}

}  // namespace vxcloud::cli
