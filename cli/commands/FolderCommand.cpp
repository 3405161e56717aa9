// folder: choose an account's upload folder, by browsing on a terminal or by path.
#include <nlohmann/json.hpp>

#include "Accounts.h"
#include "CliError.h"
#include "Commands.h"
#include "FolderPicker.h"
#include "Output.h"
#include "Progress.h"
#include "Prompts.h"
#include "UploadFolder.h"
#include "vxcloud/engine/VXCloudSessionFactory.h"
#include "vxcloud/engine/VXCloudUtils.h"
#include "vxcloud/model/VXCloudConstants.h"

namespace vxcloud::cli {

namespace {

struct FolderArgs {
    std::string account;
    std::optional<std::string> path;
    bool create = false;
    bool moveFiles = false;
    bool list = false;
};

int folder(const CommonOptions& common, const FolderArgs& args) {
    HostContext context(hostOptions(common, false));
    Prompter prompter = Prompter::forTerminal(common.noInput || common.json);
    const auto account = resolveAccount(args.account);
    const std::string label = accountLabel(*account);
    if (account->cloudService == VXCloudService::webDAV)
        throw CliError("WebDAV accounts have no folders to choose in this version: it does not talk to WebDAV servers");
    const auto session = initCloudSession(account);
    if (!session) {
        throw CliError(VXCloudString::AUTHENTICATION_ERROR() + " (" + label + "; link it again with: vxcloud link " +
                       account->accountType() + ")");
    }

    std::optional<PickedFolder> picked;
    if (!args.path) {
        if (!prompter.interactive())
            throw CliError("give the folder's PATH, or run on a terminal to browse the folders of " + label, kExitUsage);
        picked = pickFolderInteractively(session, prompter, label, "upload folder", uploadFolderPath(*account));
        if (!picked) {
            say("Nothing changed.");
            return kExitOk;
        }
    } else {
        picked = resolveFolderPath(session, *args.path, args.create && !args.list);
    }

    if (args.list) {
        const VXCloudFileList children = listFolder(session, *picked);
        if (common.json) {
            Json list = Json::array();
            for (const auto& child : children)
                list.push_back(PickedFolder{child, picked->displayPath}.uploadFolderInfo());
            printJson(Json{{"path", picked->displayPath}, {"folders", list}});
        } else {
            say(printable(picked->displayPath));
            for (const auto& child : children) say("  " + printable(child->name));
        }
        return kExitOk;
    }

    if (auto problem = sendTargetProblem(*account, *picked)) throw CliError(*problem, kExitUsage);
    const Json info = picked->uploadFolderInfo();
    const auto oldPath = uploadFolderPath(*account);
    bool moveFiles = args.moveFiles;
    if (!moveFiles && oldPath && *oldPath != picked->displayPath && prompter.interactive()) {
        const auto stored = context.records().documentsOnAccount(account->accountType(), account->email, *oldPath);
        if (!stored.empty()) {
            moveFiles = prompter.confirm("Move the " + std::to_string(stored.size()) + " document" +
                                             (stored.size() == 1 ? "" : "s") + " stored in " + *oldPath + " to " +
                                             picked->displayPath + " as well?",
                                         false);
        }
    }

    // The host answers its own announcement by moving the documents when asked to.
    // The command's JSON is one document: no events before it.
    auto board = boardFor(false, common.quiet || common.json, common.verbosity);
    FolderChangeMover mover(context, prompter, board);
    const FolderChange change = chooseUploadFolder(account, session, info, moveFiles);

    if (common.json) {
        Json out = {{"account", label},
                    {"uploadFolder", info},
                    {"uploadFolderPath", picked->displayPath},
                    {"settingsWritten", change.settingsWritten}};
        if (!change.settingsProblem.empty()) out["settingsProblem"] = change.settingsProblem;
        if (!mover.lastReport().is_null()) out["moved"] = mover.lastReport();
        printJson(out);
    } else {
        say("Upload folder for " + label + ": " + printable(picked->displayPath));
        if (!change.settingsWritten && change.settingsKept)
            warn("the folder is chosen here, but the settings file could not be written to " +
                 displayName(account->cloudService) + ": " + change.settingsProblem);
        if (!account->shouldAutoUpload && !autoUploadRefusal(*account) && !common.quiet)
            say("Automatic upload is off; turn it on with: vxcloud settings '" + label + "' --auto-upload on");
    }
    return (change.settingsWritten || !change.settingsKept) && context.failures() == 0 ? kExitOk : kExitFailed;
}

}  // namespace

void addFolderCommand(CommandLine& line) {
    CommonOptions& common = line.common;
    Action& action = line.action;
    auto args = std::make_shared<FolderArgs>();
    auto* command = line.app.add_subcommand(
        "folder", "Choose an account's upload folder. Without PATH, browse its folders on a terminal: open one\n"
                  "by its number, [b] go back, [n] create a folder, [u] \"Upload Here\". With PATH, for scripts.\n"
                  "The choice is saved with the account and written to the service in the settings file\n"
                  ".quillosettings, so linking the account again finds it.");
    command->add_option("account", args->account,
                        "The account: its number in `vxcloud accounts`, SERVICE:EMAIL, e-mail or name")
        ->required();
    command->add_option("path", args->path, "The folder, e.g. /Scans/2024 (\"/\" is the top folder)");
    command->add_flag("--create", args->create, "Create the folders of PATH that do not exist");
    command->add_flag("--move-files", args->moveFiles,
                      "Also move the documents stored in the old upload folder to the new one");
    command->add_flag("--list", args->list, "Only list the folders inside PATH; choose nothing");
    addSandbox(command, common);
    addVerbosity(command, common);
    addJson(command, common);
    addNoInput(command, common);
    addQuiet(command, common);
    command->callback([&, args] { action = [&, args] { return folder(common, *args); }; });
}

}  // namespace vxcloud::cli
