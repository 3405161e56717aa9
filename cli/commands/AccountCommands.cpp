// accounts, link, unlink, settings: the accounts list and the account settings screen.
#include <nlohmann/json.hpp>

#include "AccountLinker.h"
#include "AccountNumbers.h"
#include "Accounts.h"
#include "CliError.h"
#include "Commands.h"
#include "Output.h"
#include "Prompts.h"
#include "vxcloud/engine/VXCloudUtils.h"
#include "vxcloud/model/VXCloudConstants.h"
#include "vxcloud/model/VXCloudWebDAVAccount.h"

namespace vxcloud::cli {

namespace {

std::string errorWord(const VXCloudAccount& account) { return account.error ? account.error->getErrorCode() : ""; }

Json accountJson(const VXCloudAccount& account, std::size_t number) {
    Json entry = {{"number", number},
                  {"key", account.key()},
                  {"label", accountLabel(account)},
                  {"service", account.accountType()},
                  {"serviceName", displayName(account.cloudService)},
                  {"displayName", account.displayName},
                  {"email", account.email},
                  {"shouldAutoUpload", account.shouldAutoUpload},
                  {"onlyWifiUpload", account.onlyWifiUpload},
                  {"uploadFolder", account.uploadFolderInfo.value_or_null()},
                  {"uploadFolderPath", uploadFolderPath(account) ? Json(*uploadFolderPath(account)) : Json()},
                  {"error", account.error ? Json(errorWord(account)) : Json()}};
    if (auto refusal = autoUploadRefusal(account)) entry["autoUploadUnavailable"] = *refusal;
    if (const auto* webdav = dynamic_cast<const VXCloudWebDAVAccount*>(&account)) {
        entry["url"] = webdav->url;
        entry["port"] = webdav->port;
        entry["label"] = webdav->label ? Json(*webdav->label) : Json();
    }
    return entry;
}

// Notes under the table: what a person should know about an account.
std::vector<std::string> accountNotes(const VXCloudAccount& account) {
    std::vector<std::string> notes;
    if (auto refusal = autoUploadRefusal(account)) notes.push_back(*refusal);
    if (account.error && account.error->errorCode == ErrorCode::authentication)
        notes.push_back(VXCloudString::AUTHORIZE_ACCOUNT() + ": " + VXCloudString::AUTHENTICATION_ERROR() +
                        " (vxcloud link " + account.accountType() + ")");
    if (account.shouldAutoUpload && !uploadFolderPath(account))
        notes.push_back(VXCloudString::SET_DEFAULT_UPLOAD_FOLDER() + " (vxcloud folder '" + accountLabel(account) + "')");
    return notes;
}

int listAccounts(const CommonOptions& common, bool check) {
    HostContext context(hostOptions(common, /*offline=*/!check));
    // The authorisation manager's start-up check asks each service whether the stored
    // sign-ins still work and marks the accounts whose do not.
    if (check) setUpAuthorization(context);
    const auto accounts = numberedAccounts();
    if (common.json) {
        Json list = Json::array();
        for (const auto& [number, account] : accounts) list.push_back(accountJson(*account, number));
        printJson(Json{{"accounts", list}});
        return kExitOk;
    }
    if (accounts.empty()) {
        say("No account is linked. Link one with: vxcloud link SERVICE   (" + serviceWords() + ")");
        say("Or try everything on a local sandbox first: vxcloud demo");
        return kExitOk;
    }
    say(VXCloudString::ACCOUNTS());
    Table table({"#", "Service", "Name", "Account", VXCloudString::AUTO_UPLOAD(), "Wi-Fi only", "Upload folder", "Last error"});
    std::vector<std::string> notes;
    for (const auto& [number, account] : accounts) {
        const auto& a = *account;
        const bool canAutoUpload = !autoUploadRefusal(a);
        table.add({std::to_string(number), displayName(a.cloudService), a.displayName, a.email,
                   canAutoUpload ? onOff(a.shouldAutoUpload) : "n/a", onOff(a.onlyWifiUpload),
                   uploadFolderPath(a).value_or("(none)"), a.error ? errorWord(a) : "-"});
        for (const auto& note : accountNotes(a)) notes.push_back(std::to_string(number) + ": " + note);
    }
    std::cout << table.render("  ");
    for (const auto& note : notes) say("  " + note);
    return kExitOk;
}

struct LinkArgs {
    std::string service, as;
    bool replace = false;
    bool noBrowser = false;
    bool paste = false;
};

int link(const CommonOptions& common, const LinkArgs& args) {
    const VXCloudService service = requireService(args.service);
    HostContext context(hostOptions(common, false));
    Prompter prompter = Prompter::forTerminal(common.noInput);
    const LinkResult result =
        linkAccount(context, prompter, LinkRequest{service, args.as, args.replace, args.noBrowser, args.paste, common.quiet});
    const auto& account = *result.account;
    const std::size_t number = result.number;
    if (common.json) {
        Json out = accountJson(account, number);
        out["relinked"] = result.relinked;
        printJson(out);
        return kExitOk;
    }
    say((result.relinked ? "Linked again: " : "Linked: ") + accountLabel(account) + " (" +
        printable(account.displayName) + "), number " + std::to_string(number) + " in vxcloud accounts");
    if (common.quiet) return kExitOk;
    if (account.cloudService == VXCloudService::oneNote) {
        // OneNote takes documents only on request, in a section.
        say("Send a document to a section with:  vxcloud upload FILE --to '" + accountLabel(account) +
            "' --section NOTEBOOK/SECTION");
        say("or choose a default section:        vxcloud folder '" + accountLabel(account) + "'");
        return kExitOk;
    }
    if (result.folderFromSettings) {
        say("Upload folder: " + uploadFolderPath(account).value_or("/") + " (named by the account's settings file)");
    } else {
        say("Next, choose its upload folder:  vxcloud folder '" + accountLabel(account) + "'");
    }
    if (!account.shouldAutoUpload && !autoUploadRefusal(account))
        say("and turn on automatic upload:    vxcloud settings '" + accountLabel(account) + "' --auto-upload on");
    return kExitOk;
}

std::string copiesPhrase(std::size_t count) {
    return std::to_string(count) + " document cop" + (count == 1 ? "y" : "ies");
}

int unlink(const CommonOptions& common, const std::string& reference, bool yes) {
    const bool webdav = [&] {
        HostContext offline(hostOptions(common, true));
        return webDAVAccount(*resolveAccount(reference));
    }();
    // WebDAV accounts are only stored here; the others' sessions also delete their tokens.
    HostContext context(hostOptions(common, webdav));
    const auto account = resolveAccount(reference);
    const std::string label = accountLabel(*account);
    // The host forgets what it knew about the account's copies of its documents when the
    // component announces the unlink.
    const auto forgotten =
        context.records().documentsOnAccount(account->accountType(), account->email, std::nullopt).size();
    // What goes cannot be had back by linking again: the person says yes first.
    if (!yes) {
        Prompter prompter = Prompter::forTerminal(common.noInput || common.json);
        if (!prompter.interactive())
            throw CliError("unlink asks before it removes " + label + "; give --yes to unlink without asking", kExitUsage);
        const std::string question = "Unlink " + label + " (" + printable(account->displayName) + ")? " +
                                     (webdav ? "It is removed from this host" : "Its sign-in on this machine is deleted") +
                                     " and the records of its " + copiesPhrase(forgotten) + " are forgotten; " +
                                     "the documents stay at " + displayName(account->cloudService) + ".";
        if (!prompter.confirm(question, false)) throw CliError("nothing was unlinked", kExitFailed);
    }
    const bool signedOut = unlinkAccount(account);
    if (!signedOut && !webdav && !common.json) say("The account's sign-in was already gone; it is removed from this host.");
    if (common.json) {
        printJson(Json{{"unlinked", label}, {"key", account->key()}, {"documentsForgotten", forgotten}});
    } else {
        say(VXCloudString::UNLINK_ACCOUNT() + ": " + label + " is unlinked" +
            (forgotten > 0 ? "; the records of its " + copiesPhrase(forgotten) + " are removed" : "") + ".");
    }
    return kExitOk;
}

std::optional<bool> parseSwitch(const std::string& text, const char* option) {
    if (text.empty()) return std::nullopt;
    if (text == "on" || text == "yes" || text == "true" || text == "1") return true;
    if (text == "off" || text == "no" || text == "false" || text == "0") return false;
    throw CliError(std::string(option) + " takes on or off, not \"" + text + "\"", kExitUsage);
}

void showSettings(const VXCloudAccount& account) {
    say(VXCloudString::ACCOUNT_SETTINGS() + " — " + accountLabel(account));
    if (account.error && account.error->errorCode == ErrorCode::authentication)
        say("  " + VXCloudString::AUTHORIZE_ACCOUNT() + ": " + VXCloudString::AUTHENTICATION_ERROR());
    say("  " + VXCloudString::ACCOUNT_NAME() + ": " + printable(account.displayName));
    say("  Service: " + displayName(account.cloudService) + " (" + account.email + ")");
    if (const auto* webdav = dynamic_cast<const VXCloudWebDAVAccount*>(&account))
        say("  Server: " + webdav->url + " port " + webdav->port + (webdav->label ? " (" + *webdav->label + ")" : ""));
    say("  " + VXCloudString::UPLOAD_SETTINGS());
    if (auto refusal = autoUploadRefusal(account)) {
        say("    " + VXCloudString::AUTO_UPLOAD() + ": n/a — " + *refusal);
    } else {
        say("    " + VXCloudString::AUTO_UPLOAD() + ": " + onOff(account.shouldAutoUpload));
    }
    say("    " + VXCloudString::ONLY_WIFI_UPLOAD() + ": " + onOff(account.onlyWifiUpload));
    say("    Upload folder: " + printable(uploadFolderPath(account).value_or(VXCloudString::SET_DEFAULT_UPLOAD_FOLDER())));
    say("  Last error: " + (account.error ? errorWord(account) : std::string("none")));
}

int settings(const CommonOptions& common, const std::string& reference, const std::optional<std::string>& name,
             const std::string& autoUploadText, const std::string& wifiText) {
    HostContext context(hostOptions(common, /*offline=*/true));
    auto account = resolveAccount(reference);
    const auto autoUpload = parseSwitch(autoUploadText, "--auto-upload");
    const auto wifiOnly = parseSwitch(wifiText, "--wifi-only");
    if (name && name->find_first_not_of(" \t") == std::string::npos)
        throw CliError("an account name cannot be empty", kExitUsage);
    if (autoUpload && *autoUpload) {
        if (auto refusal = autoUploadRefusal(*account)) throw CliError(*refusal, kExitFailed);
    }

    bool changed = (name && *name != account->displayName) || (wifiOnly && *wifiOnly != account->onlyWifiUpload);
    if (changed) {
        // Only the fields given change in the store: another run may be changing the rest.
        account = updateAccount(account->key(), [&](VXCloudAccount& stored) {
            if (name) stored.displayName = *name;
            if (wifiOnly) stored.onlyWifiUpload = *wifiOnly;
        });
    }
    if (autoUpload && changeAutoUpload(*account, *autoUpload)) changed = true;
    if (common.json) {
        Json out = accountJson(*account, 0);
        out.erase("number");
        out["changed"] = changed;
        printJson(out);
        return kExitOk;
    }
    showSettings(*account);
    if (account->shouldAutoUpload && !uploadFolderPath(*account))
        say(VXCloudString::SET_DEFAULT_UPLOAD_FOLDER() + " vxcloud folder '" + accountLabel(*account) + "'");
    return kExitOk;
}

}  // namespace

void addAccountCommands(CommandLine& line) {
    CommonOptions& common = line.common;
    Action& action = line.action;
    const std::string accountHelp = "The account: its number in `vxcloud accounts`, SERVICE:EMAIL, e-mail or name";

    auto* accounts = line.app.add_subcommand("accounts", "List the linked accounts with their service, name, "
                                                         "auto-upload, Wi-Fi-only, upload folder and last error");
    accounts->alias("list");
    auto check = std::make_shared<bool>(false);
    accounts->add_flag("--check", *check,
                       "First ask each service whether the account's sign-in still works (accounts whose does not "
                       "show the error \"authentication\")");
    addSandbox(accounts, common);
    addVerbosity(accounts, common);
    addJson(accounts, common);
    accounts->callback([&, check] { action = [&, check] { return listAccounts(common, *check); }; });

    auto linkArgs = std::make_shared<LinkArgs>();
    auto* linkCommand = line.app.add_subcommand(
        "link", "Link an account of a service (" + signInServiceWords() + ") by signing in.\n"
                "The sign-in opens in your browser (or its address is printed) and returns to vxcloud on\n"
                "127.0.0.1. The app's credentials at the service must be set first; the command says which\n"
                "are missing and where they go. Against a sandbox (--sandbox URL) vxcloud answers the\n"
                "sandbox's sign-in page itself, unless --no-browser or --paste is given.\n"
                "WebDAV accounts are added with: vxcloud webdav add");
    linkCommand->add_option("service", linkArgs->service, "The service: its type word (" + signInServiceWords() + ")")
        ->required()
        ->type_name("SERVICE");
    linkCommand->add_option("--as", linkArgs->as,
                            "Against a sandbox, when vxcloud answers its sign-in page: sign in as this of its accounts (e-mail "
                            "or user id; default the first)")
        ->type_name("EMAIL");
    linkCommand->add_flag("--no-browser", linkArgs->noBrowser,
                          "Print the sign-in address instead of opening the browser");
    linkCommand->add_flag("--paste", linkArgs->paste,
                          "Read the address the browser ended on from stdin (for a browser on another machine)");
    linkCommand->add_flag("--replace", linkArgs->replace,
                          "For " + singleAccountServiceNames() +
                              ", which allow one account: replace the linked one without asking");
    addSandbox(linkCommand, common);
    addVerbosity(linkCommand, common);
    addJson(linkCommand, common);
    addNoInput(linkCommand, common);
    addQuiet(linkCommand, common);
    linkCommand->callback([&, linkArgs] {
        action = [&, linkArgs] { return link(common, *linkArgs); };
    });

    struct UnlinkArgs {
        std::string account;
        bool yes = false;
    };
    auto unlinkArgs = std::make_shared<UnlinkArgs>();
    auto* unlinkCommand = line.app.add_subcommand(
        "unlink", "Unlink an account: delete its sign-in (the tokens kept on this machine), remove it, and forget\n"
                  "its documents' records. The documents stay at the service. Asks first, on a terminal.");
    unlinkCommand->add_option("account", unlinkArgs->account, accountHelp)->required();
    unlinkCommand->add_flag("-y,--yes", unlinkArgs->yes, "Unlink without asking (for scripts; without a terminal it is needed)");
    addSandbox(unlinkCommand, common);
    addVerbosity(unlinkCommand, common);
    addJson(unlinkCommand, common);
    addNoInput(unlinkCommand, common);
    unlinkCommand->callback([&, unlinkArgs] {
        action = [&, unlinkArgs] { return unlink(common, unlinkArgs->account, unlinkArgs->yes); };
    });

    struct SettingsArgs {
        std::string account, autoUpload, wifi;
        std::optional<std::string> name;
    };
    auto settingsArgs = std::make_shared<SettingsArgs>();
    auto* settingsCommand = line.app.add_subcommand(
        "settings", "Show or change an account's settings: name, automatic upload, Wi-Fi only");
    settingsCommand->add_option("account", settingsArgs->account, accountHelp)->required();
    settingsCommand->add_option("--name", settingsArgs->name, "A new display name for the account");
    settingsCommand
        ->add_option("--auto-upload", settingsArgs->autoUpload,
                     "on: upload documents to this account automatically (vxcloud upload); off: do not")
        ->type_name("on|off");
    settingsCommand
        ->add_option("--wifi-only", settingsArgs->wifi,
                     "on: upload automatically only on Wi-Fi (a wired network counts as Wi-Fi)")
        ->type_name("on|off");
    addJson(settingsCommand, common);
    settingsCommand->callback([&, settingsArgs] {
        action = [&, settingsArgs] {
            return settings(common, settingsArgs->account, settingsArgs->name, settingsArgs->autoUpload,
                            settingsArgs->wifi);
        };
    });
}

}  // namespace vxcloud::cli
