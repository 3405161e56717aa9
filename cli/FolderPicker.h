#pragma once
// Choosing a folder of an account: browsing it on a terminal (open a folder, go back,
// create one, "Upload Here"), or walking a path for scripts. Either way the result is the
// folder's upload-folder info, the form an account keeps its upload folder in.
#include <memory>
#include <optional>
#include <string>

#include "vxcloud/model/VXCloudFile.h"
#include "vxcloud/platform/Json.h"
#include "vxcloud/sessions/VXCloudSession.h"

namespace vxcloud::cli {

class Prompter;

struct PickedFolder {
    std::shared_ptr<VXCloudFile> folder;
    std::string displayPath;  // "/Scans/2024"; "/" for the top folder

    // {"uploadFolderId", "uploadFolderName", "uploadFolderPath"}.
    Json uploadFolderInfo() const;
};

// One level of the trail of opened folders.
struct FolderInfo {
    std::shared_ptr<VXCloudFile> folder;
    std::string displayPath;
    VXCloudFileList children;
};

// Interactive browsing; nothing when the person cancels. Throws CliError when the service
// cannot list the top folder. `purpose` names what is chosen ("upload folder", "section");
// browsing opens at `startAt` (the current choice) when it is given and still there.
std::optional<PickedFolder> pickFolderInteractively(const std::shared_ptr<VXCloudSession>& session,
                                                    Prompter& prompter, const std::string& accountLabel,
                                                    const std::string& purpose = "upload folder",
                                                    const std::optional<std::string>& startAt = std::nullopt);

// Walks "/A/B" down from the top folder, matching each name exactly (or, when that finds
// none, ignoring case when only one folder matches); creates what is missing when asked.
// Throws CliError naming the step that failed.
PickedFolder resolveFolderPath(const std::shared_ptr<VXCloudSession>& session, const std::string& path, bool create);
// The same without creating anything: nothing when a folder of the path does not exist.
std::optional<PickedFolder> findFolderPath(const std::shared_ptr<VXCloudSession>& session, const std::string& path);

// The subfolders of a folder given by path, for `vxcloud folder ACCOUNT PATH --list`.
VXCloudFileList listFolder(const std::shared_ptr<VXCloudSession>& session, const PickedFolder& folder);

// Why documents cannot be sent to the folder on the account's service (the top level or a
// notebook of OneNote, which keeps pages only in sections), or nothing when they can.
std::optional<std::string> sendTargetProblem(const VXCloudAccount& account, const PickedFolder& folder);

// A folder name people may give: not empty, no slash, not "." or "..".
std::optional<std::string> folderNameProblem(const std::string& name);

}  // namespace vxcloud::cli
