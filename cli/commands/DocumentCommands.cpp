// upload, rename, move, status: the host's work on its documents.
#include <nlohmann/json.hpp>

#include "Accounts.h"
#include "CliError.h"
#include "Commands.h"
#include "DocumentJobs.h"
#include "DryRun.h"
#include "Documents.h"
#include "FolderPicker.h"
#include "JobSummary.h"
#include "ManualUpload.h"
#include "Output.h"
#include "Paths.h"
#include "Progress.h"
#include "StatusTable.h"
#include "Prompts.h"
#include "vxcloud/engine/UploadStatus.h"
#include "vxcloud/engine/VXCloudSessionFactory.h"
#include "vxcloud/engine/VXCloudUtils.h"
#include "vxcloud/sessions/VXCloudServiceConfig.h"

namespace vxcloud::cli {

namespace {

struct JobArgs {
    std::vector<std::string> files;
    std::string file;
    std::vector<std::string> accounts;
    std::string newName;
    std::string account;
    std::string to;
    std::optional<std::string> from;
    std::optional<std::string> folder;  // upload --to: the folder (a OneNote section) to send to
    bool create = false;
    bool overwrite = false;
    bool dryRun = false;
    int retries = 0;
    int timeout = 300;
};

JobOptions jobOptions(const CommonOptions& common, const JobArgs& args) {
    JobOptions options;
    options.quiet = common.quiet || common.json;
    options.dryRun = args.dryRun;
    options.accountRefs = args.accounts;
    options.overwrite = args.overwrite;
    options.retries = std::max(0, args.retries);
    options.timeout = std::chrono::seconds(std::max(1, args.timeout));
    // The same limit for every request the component sends: a stall, never a deadline.
    VXCloudNetworkTimeouts timeouts = VXCloudServiceConfig::networkTimeouts();
    timeouts.stall = options.timeout;
    VXCloudServiceConfig::setNetworkTimeouts(timeouts);
    return options;
}

std::shared_ptr<ProgressBoard> boardFor(const CommonOptions& common) {
    return cli::boardFor(common.json, common.quiet, common.verbosity);
}

int finish(HostContext& context, const CommonOptions& common, const JobReport& report) {
    const bool ok = report.ok() && context.keeper().problems().empty();
    if (common.json) {
        // The last of the JSON lines, after the progress events.
        Json out = {{"event", "result"}};
        out.update(report.toJson(context));
        out["ok"] = ok;
        printJsonLine(out);
    } else if (report.dryRun) {
        std::cout << dryRunText(report) << std::flush;
    } else {
        std::cout << jobSummary(report, ok, common.quiet) << std::flush;
    }
    return ok ? kExitOk : kExitFailed;
}

// Where `upload --to` sends: the folder given, else the account's chosen folder, else one
// picked on the terminal. OneNote takes pages only in a section.
PickedFolder folderToSendTo(const std::shared_ptr<VXCloudSession>& session, const VXCloudAccount& account,
                            const JobArgs& args, Prompter& prompter) {
    const bool oneNote = account.cloudService == VXCloudService::oneNote;
    const std::string label = accountLabel(account);
    std::optional<PickedFolder> folder;
    if (args.folder && args.dryRun) {
        // Nothing is created in a dry run: a section that is not there yet is only named.
        folder = findFolderPath(session, *args.folder);
        if (!folder && !args.create) folder = resolveFolderPath(session, *args.folder, false);  // says what is missing
        if (!folder) folder = PickedFolder{nullptr, *args.folder + " (it would be created)"};
    } else if (args.folder) {
        folder = resolveFolderPath(session, *args.folder, args.create);
    } else if (auto chosen = uploadFolderOf(account)) {
        folder = PickedFolder{chosen, uploadFolderPath(account).value_or("/" + chosen->name)};
    } else if (prompter.interactive()) {
        folder = pickFolderInteractively(session, prompter, label, oneNote ? "section" : "folder to send to");
        if (!folder) throw CliError("nothing was chosen, so nothing was sent", kExitFailed);
    } else {
        throw CliError(std::string("give the ") + (oneNote ? "section with --section NOTEBOOK/SECTION" : "folder with --folder PATH") +
                           ", or run on a terminal to choose it",
                       kExitUsage);
    }
    if (auto problem = sendTargetProblem(account, *folder)) throw CliError(*problem, kExitUsage);
    return *folder;
}

int uploadTo(const CommonOptions& common, const JobArgs& args) {
    HostContext context(hostOptions(common, false));
    Prompter prompter = Prompter::forTerminal(common.noInput || common.json);
    const auto account = resolveAccount(args.to);
    if (account->cloudService == VXCloudService::webDAV)
        throw CliError("WebDAV accounts cannot take documents in this version: it does not talk to WebDAV servers");
    const auto session = initCloudSession(account);
    if (!session) throw CliError("no session can be made for " + accountLabel(*account) + "; link it again");
    const PickedFolder folder = folderToSendTo(session, *account, args, prompter);
    const JobOptions options = jobOptions(common, args);
    if (args.dryRun) {
        Json documents = Json::array();
        for (const auto& file : args.files) documents.push_back(baseName(absolutePath(file)));
        const std::string where = folder.displayPath + " of " + accountLabel(*account);
        if (common.json) {
            printJsonLine(Json{{"event", "result"}, {"action", "send"}, {"dryRun", true}, {"account", accountLabel(*account)},
                               {"folder", folder.displayPath}, {"documents", documents}, {"ok", true}});
        } else {
            for (const auto& name : documents)
                say("Would send " + printable(name.get<std::string>()) + " to " + printable(where) +
                    (account->cloudService == VXCloudService::oneNote ? " as a new page." : "."));
            say("Nothing was sent, changed or recorded (--dry-run).");
        }
        return kExitOk;
    }
    if (!common.json && !common.quiet) {
        say(account->cloudService == VXCloudService::oneNote
                ? "Each document becomes a new page in " + folder.displayPath + " of " + accountLabel(*account) + "."
                : "Sending to " + folder.displayPath + " of " + accountLabel(*account) +
                      " (no records are kept of documents sent this way).");
    }
    const auto sends = sendByHand(args.files, account, folder, boardFor(common), options.timeout);
    bool ok = true;
    Json documents = Json::array();
    for (const auto& send : sends) {
        ok = ok && send.ok;
        documents.push_back(Json{{"path", send.path}, {"name", send.name}, {"ok", send.ok},
                                 {"bytesSent", send.bytesSent}, {"error", send.ok ? Json() : Json(send.note)}});
        if (!common.json && !send.ok) warn(send.name + ": " + send.note);
    }
    if (common.json) {
        printJsonLine(Json{{"event", "result"},
                           {"action", "send"},
                           {"account", accountLabel(*account)},
                           {"accountType", account->accountType()},
                           {"folder", folder.displayPath},
                           {"documents", documents},
                           {"ok", ok}});
    }
    return ok ? kExitOk : kExitFailed;
}

// Files that cannot be documents (missing, a directory, empty, not a PDF) or whose names
// cannot be document names are wrong input: each is named, and nothing starts.
void refuseWrongFiles(const std::vector<std::string>& files) {
    std::vector<std::string> problems;
    for (const auto& file : files) {
        if (auto problem = documentProblem(file)) {
            problems.push_back(*problem);
        } else if (auto nameProblem = documentNameProblem(baseName(absolutePath(file)))) {
            problems.push_back(file + " cannot be uploaded under its name: " + *nameProblem);
        }
    }
    if (problems.empty()) return;
    if (files.size() == 1) throw CliError(problems.front(), kExitUsage);
    for (const auto& problem : problems) warn(problem);
    throw CliError("nothing was uploaded: " + std::to_string(problems.size()) + " of the " +
                       std::to_string(files.size()) + " files cannot be sent as documents",
                   kExitUsage);
}

int upload(const CommonOptions& common, const JobArgs& args) {
    refuseWrongFiles(args.files);
    if (!args.to.empty()) return uploadTo(common, args);
    HostContext context(hostOptions(common, false));
    Prompter prompter = Prompter::forTerminal(common.noInput || common.json);
    DocumentJobs jobs(context, prompter, boardFor(common), jobOptions(common, args));
    return finish(context, common, jobs.upload(args.files));
}

int rename(const CommonOptions& common, const JobArgs& args) {
    if (auto problem = documentNameProblem(args.newName))
        throw CliError("\"" + args.newName + "\" cannot be a document name: " + *problem, kExitUsage);
    HostContext context(hostOptions(common, false));
    Prompter prompter = Prompter::forTerminal(common.noInput || common.json);
    DocumentJobs jobs(context, prompter, boardFor(common), jobOptions(common, args));
    return finish(context, common, jobs.rename(args.file, args.newName));
}

int move(const CommonOptions& common, const JobArgs& args) {
    HostContext context(hostOptions(common, false));
    Prompter prompter = Prompter::forTerminal(common.noInput || common.json);
    const auto account = resolveAccount(args.account);
    if (account->cloudService == VXCloudService::webDAV)
        throw CliError("documents on WebDAV accounts cannot be moved in this version");
    const auto session = initCloudSession(account);
    if (!session) throw CliError("no session can be made for " + accountLabel(*account) + "; link it again");
    std::shared_ptr<VXCloudFile> fromFolder;
    if (args.from) fromFolder = initUploadFolderFromDictionary(resolveFolderPath(session, *args.from, false).uploadFolderInfo());
    std::shared_ptr<VXCloudFile> toFolder;
    if (args.dryRun && args.create) {
        // Nothing is created in a dry run: a folder that is not there yet is only named.
        if (const auto found = findFolderPath(session, args.to)) {
            toFolder = initUploadFolderFromDictionary(found->uploadFolderInfo());
        } else {
            toFolder = std::make_shared<VXCloudFile>(baseName(args.to), true, false);
            toFolder->path = args.to;
            if (!common.json) say(printable(args.to) + " is not there yet; it would be created.");
        }
    } else {
        toFolder = initUploadFolderFromDictionary(resolveFolderPath(session, args.to, args.create).uploadFolderInfo());
    }
    DocumentJobs jobs(context, prompter, boardFor(common), jobOptions(common, args));
    return finish(context, common, jobs.move(args.files, account, fromFolder, toFolder));
}

int status(const CommonOptions& common, const std::vector<std::string>& files) {
    using namespace uploadstatus;
    HostContext context(hostOptions(common, /*offline=*/true));
    auto& records = context.records();
    std::vector<DocumentRow> documents;
    int result = kExitOk;
    if (files.empty()) {
        documents = records.documents();
    } else {
        for (const auto& file : files) {
            if (auto row = records.documentByPath(absolutePath(file))) {
                documents.push_back(*row);
            } else {
                warn(absolutePath(file) + " has no records: it was never uploaded");
                result = kExitFailed;
            }
        }
    }
    const AccountList accounts = linkedAccounts();
    Json out = Json::array();
    if (!common.json && documents.empty() && files.empty()) say("No document has been uploaded yet.");
    for (const auto& document : documents) {
        if (common.json) {
            const auto rows = records.records(document.id);
            Json list = Json::array();
            for (const auto& row : rows)
                list.push_back(Json{{"accountType", row.accountType},
                                    {"accountId", row.accountId},
                                    {"record", row.record},
                                    {"folderPath", row.folderPath ? Json(*row.folderPath) : Json()},
                                    {"updatedAt", row.updatedAt}});
            out.push_back(Json{{"path", document.path},
                               {"name", document.name},
                               {"fileIdentifier", document.fileIdentifier},
                               {"records", list}});
            continue;
        }
        say(printable(document.name) + "   (" + printable(document.path) + ")");
        std::cout << statusTable(records, document, accounts);
    }
    if (common.json) printJson(Json{{"documents", out}});
    return result;
}

void addJobOptions(CLI::App* command, JobArgs& args, bool withOverwrite) {
    command->add_flag("-n,--dry-run", args.dryRun,
                      "Say what would be sent where, per account, and do nothing: nothing is sent, changed or recorded");
    if (withOverwrite) {
        command->add_flag("--overwrite", args.overwrite,
                          "Answer \"Overwrite\" without asking: replace a copy that was changed elsewhere");
        command->add_option("--retries", args.retries,
                            "Answer \"Retry\" this many times without asking when a transfer fails (default 0)");
    }
    command->add_option("--timeout", args.timeout, "Seconds a transfer may stand still (nothing sent or received) before it fails; a transfer that keeps moving is never cut short (default 300)");
}

}  // namespace

void addDocumentCommands(CommandLine& line) {
    CommonOptions& common = line.common;
    Action& action = line.action;
    const std::string accountHelp = "An account (number, SERVICE:EMAIL, e-mail or name); may be repeated";

    auto uploadArgs = std::make_shared<JobArgs>();
    auto* uploadCommand = line.app.add_subcommand(
        "upload", "Upload PDF documents to every linked account with automatic upload on (or those given).\n"
                  "Unchanged documents are not sent again; a copy changed elsewhere is a conflict, and you are\n"
                  "asked whether to overwrite it. Shows a progress bar per account on a terminal.");
    uploadCommand->add_option("files", uploadArgs->files, "The PDF documents")->required()->type_name("FILE");
    auto* accountOption = uploadCommand->add_option("-a,--account", uploadArgs->accounts, accountHelp);
    auto* toOption = uploadCommand->add_option(
        "--to", uploadArgs->to,
        "Send to this one account by hand, whatever its automatic upload says: how OneNote takes documents,\n"
        "each one a new page. Nothing is compared or recorded")
        ->excludes(accountOption);
    uploadCommand->add_option("--section,--folder", uploadArgs->folder,
                              "With --to: the OneNote section (NOTEBOOK/SECTION) or folder to send to (default the\n"
                              "account's chosen folder, or one picked on a terminal)")
        ->needs(toOption);
    uploadCommand->add_flag("--create", uploadArgs->create, "With --section: create the notebook and section when missing");
    addJobOptions(uploadCommand, *uploadArgs, true);
    addSandbox(uploadCommand, common);
    addVerbosity(uploadCommand, common);
    addJson(uploadCommand, common);
    addQuiet(uploadCommand, common);
    addNoInput(uploadCommand, common);
    uploadCommand->callback([&, uploadArgs] { action = [&, uploadArgs] { return upload(common, *uploadArgs); }; });

    auto renameArgs = std::make_shared<JobArgs>();
    auto* renameCommand = line.app.add_subcommand(
        "rename", "Rename an uploaded document on every account that holds a copy of it");
    renameCommand->add_option("file", renameArgs->file, "The document (as it was uploaded)")->required()->type_name("FILE");
    renameCommand->add_option("name", renameArgs->newName, "The new name, e.g. \"Invoice 2024.pdf\"")->required();
    renameCommand->add_option("-a,--account", renameArgs->accounts, accountHelp);
    addJobOptions(renameCommand, *renameArgs, true);
    addSandbox(renameCommand, common);
    addVerbosity(renameCommand, common);
    addJson(renameCommand, common);
    addQuiet(renameCommand, common);
    addNoInput(renameCommand, common);
    renameCommand->callback([&, renameArgs] { action = [&, renameArgs] { return rename(common, *renameArgs); }; });

    auto moveArgs = std::make_shared<JobArgs>();
    auto* moveCommand = line.app.add_subcommand(
        "move", "Move uploaded documents between two folders of one account (the account needs automatic\n"
                "upload on). To change the upload folder and move its documents along: vxcloud folder --move-files");
    moveCommand->add_option("files", moveArgs->files, "The documents (as they were uploaded)")->required()->type_name("FILE");
    moveCommand->add_option("-a,--account", moveArgs->account, "The account")->required();
    moveCommand->add_option("--to", moveArgs->to, "The folder to move them to, e.g. /Archive")->required();
    moveCommand->add_option("--from", moveArgs->from, "The folder they are in (default the account's upload folder)");
    moveCommand->add_flag("--create", moveArgs->create, "Create the --to folder when it does not exist");
    addJobOptions(moveCommand, *moveArgs, false);
    addSandbox(moveCommand, common);
    addVerbosity(moveCommand, common);
    addJson(moveCommand, common);
    addQuiet(moveCommand, common);
    moveCommand->callback([&, moveArgs] { action = [&, moveArgs] { return move(common, *moveArgs); }; });

    auto statusFiles = std::make_shared<std::vector<std::string>>();
    auto* statusCommand = line.app.add_subcommand(
        "status", "Show a document's upload status per account, from the host's records (every document\n"
                  "when none is given)");
    statusCommand->add_option("files", *statusFiles, "The documents")->type_name("FILE");
    addJson(statusCommand, common);
    statusCommand->callback([&, statusFiles] { action = [&, statusFiles] { return status(common, *statusFiles); }; });
}

}  // namespace vxcloud::cli
