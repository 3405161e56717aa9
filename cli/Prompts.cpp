#include "Prompts.h"

#include <algorithm>
#include <cctype>
#include <iostream>

#include "Output.h"

namespace vxcloud::cli {

namespace {

std::string lower(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::tolower(c); });
    return text;
}

std::string trim(const std::string& text) {
    const auto first = text.find_first_not_of(" \t\r\n");
    if (first == std::string::npos) return {};
    const auto last = text.find_last_not_of(" \t\r\n");
    return text.substr(first, last - first + 1);
}

}  // namespace

Prompter::Prompter(bool interactive) : interactive_(interactive) {}

Prompter Prompter::forTerminal(bool noInput) { return Prompter(!noInput && stdinIsTerminal()); }

std::optional<std::string> Prompter::readLine() {
    std::string line;
    if (!std::getline(std::cin, line)) return std::nullopt;
    return trim(line);
}

std::optional<std::size_t> Prompter::choose(const std::string& question, const std::vector<std::string>& answers) {
    if (!interactive_ || answers.empty()) return std::nullopt;
    std::string menu;
    for (const auto& answer : answers) {
        if (!menu.empty()) menu += "  ";
        menu += "[" + lower(answer.substr(0, 1)) + "] " + answer;
    }
    for (int attempt = 0; attempt < 5; ++attempt) {
        if (!question.empty()) std::cout << question << "\n";
        std::cout << menu << "? " << std::flush;
        const auto line = readLine();
        if (!line) {
            std::cout << '\n';
            return std::nullopt;
        }
        const std::string typed = lower(*line);
        for (std::size_t i = 0; i < answers.size(); ++i) {
            if (typed == lower(answers[i]) || typed == lower(answers[i].substr(0, 1)) || typed == std::to_string(i + 1))
                return i;
        }
        std::cout << "Please answer with one of the letters in brackets.\n";
    }
    return std::nullopt;
}

std::optional<std::string> Prompter::ask(const std::string& label, const std::string& defaultValue) {
    if (!interactive_) return std::nullopt;
    std::cout << label << (defaultValue.empty() ? "" : " [" + defaultValue + "]") << ": " << std::flush;
    const auto line = readLine();
    if (!line) {
        std::cout << '\n';
        return std::nullopt;
    }
    return line->empty() ? defaultValue : *line;
}

bool Prompter::confirm(const std::string& question, bool defaultAnswer) {
    if (!interactive_) return defaultAnswer;
    for (int attempt = 0; attempt < 5; ++attempt) {
        std::cout << question << (defaultAnswer ? " [Y/n] " : " [y/N] ") << std::flush;
        const auto line = readLine();
        if (!line) {
            std::cout << '\n';
            return defaultAnswer;
        }
        const std::string typed = lower(*line);
        if (typed.empty()) return defaultAnswer;
        if (typed == "y" || typed == "yes") return true;
        if (typed == "n" || typed == "no") return false;
    }
    return defaultAnswer;
}

}  // namespace vxcloud::cli
