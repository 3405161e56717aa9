// vxcloud: the command-line host application. It links accounts, keeps their settings and
// upload folders, uploads documents to every eligible account, renames and moves them, and
// keeps each document's upload status records.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <iostream>

#include "CliError.h"
#include "Commands.h"
#include "Output.h"

namespace {

int run(int argc, char** argv) {
    using namespace vxcloud::cli;

    CLI::App app{"vxcloud: upload scanned documents to your cloud accounts, and keep track of them.\n"
                 "Start with `vxcloud demo`, which shows everything on a local sandbox.",
                 "vxcloud"};
    app.require_subcommand(1);
    app.set_version_flag("--version", std::string("vxcloud ") + VXCLOUD_VERSION, "Print vxcloud's version and exit");
    app.footer("Run `vxcloud COMMAND --help` for a command's options.\n"
               "State lives in $XDG_CONFIG_HOME/vxcloud (preferences, credentials.json, sandbox.json) and\n"
               "$XDG_DATA_HOME/vxcloud (records.sqlite3; secure-store.json when no keyring answers).\n"
               "Exit status: 0 when everything succeeded, 1 when something did not, 2 for wrong input.");

    CommonOptions common;
    Action action;
    CommandLine line{app, common, action};
    addAccountCommands(line);
    addWebDAVCommand(line);
    addFolderCommand(line);
    addDocumentCommands(line);
    addHashCommand(line);
    addSandboxCommand(line);
    addDemoCommand(line);
    addHelpCommands(line);

    // A bare `vxcloud` shows what there is to do rather than a parse error.
    if (argc <= 1) {
        std::cout << app.help();
        return kExitUsage;
    }
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        const int status = app.exit(e);
        return status == 0 ? kExitOk : kExitUsage;
    }
    try {
        return action ? action() : kExitUsage;
    } catch (const CliError& e) {
        warn(e.what());
        return e.exitStatus();
    } catch (const std::exception& e) {
        warn(std::string("unexpected failure: ") + e.what());
        return kExitFailed;
    }
}

}  // namespace

int main(int argc, char** argv) {
    const int status = run(argc, argv);
    // The component's threads may still be finishing work nobody waits for (a move job's
    // last poll); the process ends here without tearing down what they might still touch.
    // Everything of the host's own (records, preferences, tokens) is written by now.
    std::cout.flush();
    std::fflush(nullptr);
    std::_Exit(status);
}
