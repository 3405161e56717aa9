#pragma once
// The command line's definition as plain data: each command with its options, arguments and
// subcommands, read from the CLI11 application. The shell completions and the man page are
// generated from it, so they always match what vxcloud accepts.
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace vxcloud::cli {

struct OptionInfo {
    std::vector<std::string> names;  // "-v", "--verbose"
    std::string description;
    bool takesValue = false;
    std::string typeName;  // "FILE", "on|off", "URL", ...
};

struct ArgumentInfo {
    std::string name;  // "files"
    std::string description;
    std::string typeName;
    bool required = false;
    bool many = false;
};

struct CommandInfo {
    std::string name;         // "upload"; the program's name at the top
    std::vector<std::string> aliases;  // other names it answers to ("list" for accounts)
    std::string description;  // the command's help text
    std::vector<OptionInfo> options;
    std::vector<ArgumentInfo> arguments;
    std::vector<CommandInfo> commands;
};

CommandInfo commandTree(const CLI::App& app);

// The words a value of this type name can take ("on|off" -> on, off), else nothing.
std::vector<std::string> choicesOf(const std::string& typeName);

}  // namespace vxcloud::cli
