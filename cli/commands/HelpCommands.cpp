// help, completion: the command line's own definition, as help text, a manual page or shell
// completions.
#include <nlohmann/json.hpp>

#include "CliError.h"
#include "CommandTree.h"
#include "Commands.h"
#include "Completion.h"
#include "ManPage.h"
#include "Output.h"
#include "vxcloud/engine/VXCloudUtils.h"
#include "vxcloud/model/VXCloudService.h"

namespace vxcloud::cli {

namespace {

CompletionWords completionWords() {
    CompletionWords words;
    for (VXCloudService service : allCloudServices) words.byType["SERVICE"].emplace_back(accountType(service));
    words.fileTypes = {"FILE", "PEM"};
    return words;
}

int help(const CLI::App& app, const std::vector<std::string>& command, bool man) {
    if (man) {
        std::cout << manPage(commandTree(app), VXCLOUD_VERSION, app.get_footer()) << std::flush;
        return kExitOk;
    }
    const CLI::App* shown = &app;
    std::string words = app.get_name();
    for (const auto& name : command) {
        const auto found = shown->get_subcommands([&](const CLI::App* sub) { return sub->get_name() == name; });
        if (found.empty()) throw CliError("there is no command \"" + words + " " + name + "\"; see " + app.get_name() + " --help", kExitUsage);
        shown = found.front();
        words += " " + name;
    }
    std::cout << shown->help(shown == &app ? "" : words.substr(0, words.rfind(' '))) << std::flush;
    return kExitOk;
}

int completion(const CLI::App& app, const std::string& shell) {
    const CommandInfo tree = commandTree(app);
    if (shell == "bash") {
        std::cout << bashCompletion(tree, completionWords()) << std::flush;
    } else if (shell == "zsh") {
        std::cout << zshCompletion(tree, completionWords()) << std::flush;
    } else {
        throw CliError("completion is made for bash or zsh, not \"" + shell + "\"", kExitUsage);
    }
    return kExitOk;
}

}  // namespace

void addHelpCommands(CommandLine& line) {
    CLI::App& app = line.app;
    Action& action = line.action;

    struct HelpArgs {
        std::vector<std::string> command;
        bool man = false;
    };
    auto helpArgs = std::make_shared<HelpArgs>();
    auto* helpCommand = app.add_subcommand("help", "Show the help of vxcloud or of one of its commands; --man prints the\n"
                                                   "whole manual page (roff), as installed for `man vxcloud`");
    helpCommand->add_option("command", helpArgs->command, "The command, e.g. upload, or webdav add");
    helpCommand->add_flag("--man", helpArgs->man, "Print the manual page instead, in roff");
    helpCommand->callback([&, helpArgs] { action = [&, helpArgs] { return help(app, helpArgs->command, helpArgs->man); }; });

    auto shell = std::make_shared<std::string>();
    auto* completionCommand = app.add_subcommand(
        "completion", "Print the shell completion script for bash or zsh. `cmake --install` installs both; by hand:\n"
                      "  source <(vxcloud completion bash)        (in ~/.bashrc)\n"
                      "  vxcloud completion zsh > ~/.zfunc/_vxcloud   (a folder on $fpath)");
    completionCommand->add_option("shell", *shell, "The shell")->required()->type_name("bash|zsh");
    completionCommand->callback([&, shell] { action = [&, shell] { return completion(app, *shell); }; });
}

}  // namespace vxcloud::cli
