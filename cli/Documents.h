#pragma once
// The host's documents on disk: which files it accepts as documents, and how a path
// becomes the key of its records.
#include <optional>
#include <string>

namespace vxcloud::cli {

// Why the file at `path` cannot be sent as a document ("cannot read scan.pdf: No such file
// or directory", "scan.pdf is not a PDF document ..."), or nothing when it can.
std::optional<std::string> documentProblem(const std::string& path);

// Why `name` cannot be a document's name at the services ("it contains \"/\""), or nothing.
// Quotes, apostrophes and other punctuation are fine.
std::optional<std::string> documentNameProblem(const std::string& name);

}  // namespace vxcloud::cli
