#pragma once
// Shell completion scripts for bash and zsh, generated from the command tree: the commands,
// their options, the words a value can take, and file names where a file is expected.
#include <map>
#include <set>
#include <string>
#include <vector>

#include "CommandTree.h"

namespace vxcloud::cli {

struct CompletionWords {
    std::map<std::string, std::vector<std::string>> byType;  // type name -> the words ("SERVICE" -> dropbox, ...)
    std::set<std::string> fileTypes;                          // type names that name local files ("FILE")
};

std::string bashCompletion(const CommandInfo& tree, const CompletionWords& words);
std::string zshCompletion(const CommandInfo& tree, const CompletionWords& words);

}  // namespace vxcloud::cli
