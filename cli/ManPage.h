#pragma once
// vxcloud(1), generated from the command tree's help texts as roff, so the manual says what
// `--help` says.
#include <string>

#include "CommandTree.h"

namespace vxcloud::cli {

// `footer`: the overview's closing text (where state lives, the exit status), shown under NOTES.
std::string manPage(const CommandInfo& tree, const std::string& version, const std::string& footer);

}  // namespace vxcloud::cli
