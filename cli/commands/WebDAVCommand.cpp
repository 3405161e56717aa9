// webdav: the WebDAV account form (username, URL, port, label).
#include <algorithm>
#include <cctype>
#include <nlohmann/json.hpp>

#include "AccountNumbers.h"
#include "Accounts.h"
#include "CliError.h"
#include "Commands.h"
#include "Output.h"
#include "Prompts.h"
#include "vxcloud/model/VXCloudWebDAVAccount.h"

namespace vxcloud::cli {

namespace {

struct WebDAVForm {
    std::string username, url, port, label;
};

// The port a URL implies when none is given.
std::string defaultPort(const std::string& url) { return url.rfind("https://", 0) == 0 ? "443" : "80"; }

std::optional<std::string> formProblem(const WebDAVForm& form) {
    if (form.username.empty()) return std::string("the form needs a username");
    if (form.url.rfind("https://", 0) != 0 && form.url.rfind("http://", 0) != 0)
        return "the URL must begin with https:// or http://, not \"" + form.url + "\"";
    const auto hostStart = form.url.find("://") + 3;
    if (hostStart >= form.url.size() || form.url[hostStart] == '/' || form.url[hostStart] == ':')
        return "the URL \"" + form.url + "\" names no server";
    if (form.url.find_first_of(" \t\r\n") != std::string::npos) return std::string("the URL cannot contain spaces");
    const bool digits = !form.port.empty() && form.port.size() <= 5 &&
                        std::all_of(form.port.begin(), form.port.end(), [](unsigned char c) { return std::isdigit(c); });
    if (!digits || std::stoi(form.port) < 1 || std::stoi(form.port) > 65535)
        return "the port must be a number from 1 to 65535, not \"" + form.port + "\"";
    return std::nullopt;
}

int addWebDAV(const CommonOptions& common, WebDAVForm form) {
    HostContext context(hostOptions(common, /*offline=*/true));
    Prompter prompter = Prompter::forTerminal(common.noInput);
    // On a terminal the missing fields are asked for, as the form would.
    if (prompter.interactive() && !common.json) {
        if (form.username.empty()) form.username = prompter.ask("Username").value_or("");
        if (form.url.empty()) form.url = prompter.ask("URL (https://...)").value_or("");
        if (form.port.empty()) form.port = prompter.ask("Port", defaultPort(form.url)).value_or("");
        if (form.label.empty()) form.label = prompter.ask("Label (optional)").value_or("");
    }
    if (form.port.empty()) form.port = defaultPort(form.url);
    if (auto problem = formProblem(form)) throw CliError(*problem, kExitUsage);

    VXCloudWebDAVAccount account(form.username, form.url, form.port);
    if (!form.label.empty()) {
        account.label = form.label;
        account.displayName = form.label;
    }
    saveAccount(account);
    const std::size_t number = accountNumber(account.key());
    if (common.json) {
        printJson(Json{{"key", account.key()},
                       {"number", number},
                       {"label", accountLabel(account)},
                       {"account", account.toDict()}});
        return kExitOk;
    }
    say("Added " + accountLabel(account) + " (" + form.url + ", port " + form.port + "), number " +
        std::to_string(number) + " in vxcloud accounts.");
    say(*autoUploadRefusal(account));
    return kExitOk;
}

}  // namespace

void addWebDAVCommand(CommandLine& line) {
    CommonOptions& common = line.common;
    Action& action = line.action;
    auto form = std::make_shared<WebDAVForm>();
    auto* webdav = line.app.add_subcommand("webdav", "Manage WebDAV accounts");
    webdav->require_subcommand(1);
    auto* add = webdav->add_subcommand(
        "add", "Add a WebDAV account (the WebDAV form). On a terminal, missing fields are asked for.\n"
               "WebDAV accounts are kept and listed, but cannot upload automatically in this version.");
    add->add_option("--username", form->username, "The user name at the server");
    add->add_option("--url", form->url, "The server's URL, https://... or http://...");
    add->add_option("--port", form->port, "The server's port (default 443 for https, 80 for http)");
    add->add_option("--label", form->label, "A name for the account (default the user name)");
    addJson(add, common);
    addNoInput(add, common);
    add->callback([&, form] { action = [&, form] { return addWebDAV(common, *form); }; });
}

}  // namespace vxcloud::cli
