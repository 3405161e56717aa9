#include "CommandTree.h"

#include <CLI/CLI.hpp>

namespace vxcloud::cli {

namespace {

// CLI11's type names for values it checks itself; the help texts show them, they name no choices.
bool plainTypeName(const std::string& typeName) {
    return typeName.empty() || typeName == "TEXT" || typeName == "INT" || typeName == "UINT" || typeName == "FLOAT";
}

}  // namespace

CommandInfo commandTree(const CLI::App& app) {
    CommandInfo command;
    command.name = app.get_name();
    command.aliases = app.get_aliases();
    command.description = app.get_description();
    for (const CLI::Option* option : app.get_options()) {
        const std::string typeName = plainTypeName(option->get_type_name()) ? "" : option->get_type_name();
        if (option->get_positional() && !option->nonpositional()) {
            command.arguments.push_back(ArgumentInfo{option->get_name(), option->get_description(), typeName,
                                                     option->get_required(),
                                                     option->get_items_expected_max() > 1});
            continue;
        }
        OptionInfo info;
        for (const auto& name : option->get_snames()) info.names.push_back("-" + name);
        for (const auto& name : option->get_lnames()) info.names.push_back("--" + name);
        info.description = option->get_description();
        info.takesValue = option->get_expected_max() > 0;
        info.typeName = typeName;
        command.options.push_back(std::move(info));
    }
    for (const CLI::App* sub : app.get_subcommands([](const CLI::App*) { return true; }))
        command.commands.push_back(commandTree(*sub));
    return command;
}

std::vector<std::string> choicesOf(const std::string& typeName) {
    std::vector<std::string> words;
    if (typeName.find('|') == std::string::npos) return words;
    std::string word;
    for (const char c : typeName + "|") {
        if (c == '|') {
            if (!word.empty()) words.push_back(word);
            word.clear();
        } else {
            word += c;
        }
    }
    return words;
}

}  // namespace vxcloud::cli
