#include "UploadFolder.h"

#include <nlohmann/json.hpp>

#include "Accounts.h"
#include "CliError.h"
#include "DocumentJobs.h"
#include "HostContext.h"
#include "Output.h"
#include "Progress.h"
#include "SessionCalls.h"
#include "vxcloud/engine/VXCloudAccountActions.h"
#include "vxcloud/engine/VXCloudUtils.h"
#include "vxcloud/model/VXCloudConstants.h"
#include "vxcloud/model/VXCloudFile.h"
#include "vxcloud/platform/Dispatch.h"
#include "vxcloud/platform/PreferencesStore.h"

namespace vxcloud::cli {

FolderChange chooseUploadFolder(const std::shared_ptr<VXCloudAccount>& account,
                                const std::shared_ptr<VXCloudSession>& session, const Json& uploadFolderInfo,
                                bool moveFiles) {
    using Settings = VXCloudUploadFolderChange::Settings;
    const auto chosen = awaitCompletion<VXCloudUploadFolderChange>([&](std::function<void(VXCloudUploadFolderChange)> done) {
        VXCloudAccountActions::selectUploadFolder(account, uploadFolderInfo, moveFiles, done, session, kSessionTimeout);
    });
    if (!chosen) throw CliError("choosing the upload folder did not finish in time");
    if (!chosen->chosen()) throw CliError("cannot save the account to " + PreferencesStore::standard()->path());
    FolderChange change;
    change.settingsWritten = chosen->settingsWritten();
    switch (chosen->settings) {
        case Settings::written:
        case Settings::notSaved: break;
        case Settings::failed:
            change.settingsProblem = errorText(chosen->error ? chosen->error->errorCode : ErrorCode::fileUpload);
            break;
        case Settings::noAnswer: change.settingsProblem = "the service did not answer in time"; break;
        case Settings::noSession: change.settingsProblem = "no session could be made for the account"; break;
        case Settings::notKept:
            change.settingsKept = false;
            change.settingsProblem = displayName(account->cloudService) + " keeps no settings file";
            break;
    }
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
