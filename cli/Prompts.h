#pragma once
// Questions to the person at the terminal: a choice among labelled answers (Overwrite /
// Retry / Cancel), yes or no, a line of text. Without a terminal on stdin (or with
// --no-input) nothing is asked and the caller's default stands.
#include <optional>
#include <string>
#include <vector>

namespace vxcloud::cli {

class Prompter {
public:
    explicit Prompter(bool interactive);
    // Interactive when stdin is a terminal and input was not turned off.
    static Prompter forTerminal(bool noInput);

    bool interactive() const { return interactive_; }

    // Shows the question and the answers ("[o] Overwrite  [c] Cancel") and reads one; each
    // answer is chosen by its first letter, its number or its full text. Nothing on end of
    // input or when not interactive.
    std::optional<std::size_t> choose(const std::string& question, const std::vector<std::string>& answers);
    // Reads a line; the default when the line is empty. Nothing on end of input.
    std::optional<std::string> ask(const std::string& label, const std::string& defaultValue = {});
    bool confirm(const std::string& question, bool defaultAnswer);

private:
    std::optional<std::string> readLine();
    bool interactive_;
};

}  // namespace vxcloud::cli
