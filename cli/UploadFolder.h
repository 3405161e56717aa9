#pragma once
// Setting an account's upload folder, as the account settings screen does: the component
// stores and announces the change; this host listens for the announcement and, when
// asked to, moves the documents from the old folder to the new.
#include <memory>
#include <string>

#include "vxcloud/model/VXCloudAccount.h"
#include <nlohmann/json.hpp>

#include "vxcloud/platform/Json.h"
#include "vxcloud/platform/NotificationCenter.h"
#include "vxcloud/sessions/VXCloudSession.h"

namespace vxcloud::cli {

class HostContext;
class Prompter;
class ProgressBoard;

struct FolderChange {
    bool settingsWritten = false;
    bool settingsKept = true;  // false: the service keeps no settings document (OneNote)
    std::string settingsProblem;  // why the settings document could not be written
};

// Makes `uploadFolderInfo` the account's upload folder through the component (saved,
// settings document written with `session`, "VXCloudSelectedUploadFolderNotification"
// posted), and lets the main queue deliver the notification before returning. Throws
// CliError when the account cannot be saved.
FolderChange chooseUploadFolder(const std::shared_ptr<VXCloudAccount>& account,
                                const std::shared_ptr<VXCloudSession>& session, const Json& uploadFolderInfo,
                                bool moveFiles);

// While alive, answers folder changes that ask for it by moving the account's documents
// from the old folder to the new one.
class FolderChangeMover {
public:
    FolderChangeMover(HostContext& context, Prompter& prompter, std::shared_ptr<ProgressBoard> board);
    ~FolderChangeMover();
    FolderChangeMover(const FolderChangeMover&) = delete;
    FolderChangeMover& operator=(const FolderChangeMover&) = delete;

    // The report of the last move this mover carried out (null when none).
    const Json& lastReport() const { return lastReport_; }

private:
    void onFolderSelected(const Notification& notification);

    HostContext& context_;
    Prompter& prompter_;
    std::shared_ptr<ProgressBoard> board_;
    NotificationCenter::ObserverToken token_;
    Json lastReport_;
};

}  // namespace vxcloud::cli
