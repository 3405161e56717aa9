#pragma once
// The command-line wiring shared by every command: the options each command has, and how
// a parsed command becomes the action main() runs.
#include <CLI/CLI.hpp>
#include <functional>
#include <string>

#include "HostContext.h"

namespace vxcloud::cli {

struct CommonOptions {
    int verbosity = 0;
    std::string sandboxUrl;
    bool json = false;
    bool noInput = false;
    bool quiet = false;
};

// What the parsed command does; returns the exit status.
using Action = std::function<int()>;

struct CommandLine {
    CLI::App& app;
    CommonOptions& common;
    Action& action;
};

// -v and --sandbox on every command that may reach a service; --json where the command
// has something for scripts to read; --no-input where it may ask.
void addVerbosity(CLI::App* command, CommonOptions& common);
void addSandbox(CLI::App* command, CommonOptions& common);
void addJson(CLI::App* command, CommonOptions& common);
void addNoInput(CLI::App* command, CommonOptions& common);
// -q where the command shows progress: only errors and the final summary.
void addQuiet(CLI::App* command, CommonOptions& common);

HostOptions hostOptions(const CommonOptions& common, bool offline);

// One registration function per command group (commands/*.cpp).
void addAccountCommands(CommandLine& line);   // accounts, link, unlink, settings
void addWebDAVCommand(CommandLine& line);     // webdav
void addFolderCommand(CommandLine& line);     // folder
void addDocumentCommands(CommandLine& line);  // upload, rename, move, status
void addHashCommand(CommandLine& line);       // hash
void addSandboxCommand(CommandLine& line);    // sandbox-connect
void addDemoCommand(CommandLine& line);       // demo
void addHelpCommands(CommandLine& line);      // help, completion

}  // namespace vxcloud::cli
