// What the build makes from vxcloud's own command definitions: bash and zsh completions and
// the manual page, checked against what `vxcloud --help` lists; and --version.
#include <gtest/gtest.h>

#include <filesystem>
#include <set>
#include <sstream>

#include "cli/CliHarness.h"

namespace vxcloud::testing::cli {
namespace {

std::set<std::string> wordsOf(const std::string& text) {
    std::set<std::string> words;
    std::istringstream in(text);
    for (std::string word; in >> word;) words.insert(word);
    return words;
}

// The commands a help text lists under "Subcommands:", with their other names.
std::set<std::string> subcommandsIn(const std::string& help) {
    std::set<std::string> names;
    std::istringstream in(help);
    bool listing = false;
    for (std::string line; std::getline(in, line);) {
        if (line.rfind("SUBCOMMANDS", 0) == 0 || line.rfind("Subcommands", 0) == 0) {
            listing = true;
        } else if (listing && line.size() > 2 && line[0] == ' ' && line[1] == ' ' && line[2] != ' ') {
            // "  accounts, list   List the ...": a command and its other names.
            std::istringstream words(line.substr(2, line.find("  ", 2) - 2));
            for (std::string name; std::getline(words >> std::ws, name, ',');) names.insert(name);
        } else if (listing && !line.empty() && line[0] != ' ') {
            listing = false;
        }
    }
    return names;
}

// What bash offers after `words` (the last one being completed), with the generated script.
std::set<std::string> bashOffers(const std::string& script, const std::vector<std::string>& words) {
    std::string line = "COMP_WORDS=(vxcloud";
    for (const auto& word : words) line += " '" + word + "'";
    line += "); COMP_CWORD=" + std::to_string(words.size()) + "; _vxcloud; printf '%s\\n' \"${COMPREPLY[@]}\"";
    const RunResult r = runTool("bash", {"--norc", "-c", "source '" + script + "'\n" + line});
    EXPECT_EQ(r.status, 0) << r.err;
    return wordsOf(r.out);
}

class CliShellFiles : public ::testing::Test {
protected:
    std::string generated(const std::string& name) { return binaryDir() + "/shell/" + name; }
    CliHome home_;
};

TEST_F(CliShellFiles, CompletionsOfferEveryCommandAndTheirWords) {
    const std::set<std::string> commands = subcommandsIn(home_.run({"--help"}).out);
    ASSERT_TRUE(commands.count("upload") && commands.count("webdav") && commands.count("completion"))
        << home_.run({"--help"}).out;
    const std::set<std::string> webdavCommands = subcommandsIn(home_.run({"webdav", "--help"}).out);
    ASSERT_FALSE(webdavCommands.empty());

    // The build's files are what vxcloud prints.
    const std::string bash = generated("vxcloud.bash"), zsh = generated("_vxcloud");
    EXPECT_EQ(readFile(bash), home_.run({"completion", "bash"}).out);
    EXPECT_EQ(readFile(zsh), home_.run({"completion", "zsh"}).out);
    EXPECT_EQ(home_.run({"completion", "fish"}).status, 2);

    // bash: every command, then a command's own words.
    EXPECT_EQ(bashOffers(bash, {""}), commands);
    EXPECT_EQ(bashOffers(bash, {"webdav", ""}), webdavCommands);
    EXPECT_EQ(bashOffers(bash, {"up"}), std::set<std::string>{"upload"});
    EXPECT_TRUE(bashOffers(bash, {"list", "--"}).count("--check")) << "accounts by its other name";
    const auto uploadOptions = bashOffers(bash, {"upload", "--"});
    for (const char* option : {"--dry-run", "--json", "--account", "--overwrite"})
        EXPECT_TRUE(uploadOptions.count(option)) << option;
    EXPECT_FALSE(uploadOptions.count("--yes")) << "unlink's option";
    const auto services = bashOffers(bash, {"link", ""});
    EXPECT_TRUE(services.count("dropbox") && services.count("google_drive") && services.count("box"));
    EXPECT_EQ(bashOffers(bash, {"settings", "1", "--auto-upload", ""}), (std::set<std::string>{"on", "off"}));
    // After an option that takes a value, the next word is an argument again: file names.
    writeFile(home_.file("scan.pdf"), pdfWith("complete me"));
    EXPECT_EQ(bashOffers(bash, {"upload", "-a", "1", home_.file("sc")}), std::set<std::string>{home_.file("scan.pdf")});

    // zsh: the script parses, defines a function per command and lists every command.
    if (runTool("zsh", {"--version"}).status == 0) {
        const RunResult parsed = runTool("zsh", {"-n", zsh});
        EXPECT_EQ(parsed.status, 0) << parsed.err;
    }
    const std::string zshText = readFile(zsh);
    EXPECT_EQ(zshText.rfind("#compdef vxcloud\n", 0), 0u);
    for (const auto& command : commands) EXPECT_TRUE(contains(zshText, "\n            '" + command + ":")) << command;
    EXPECT_TRUE(contains(zshText, "\n                accounts|list) _vxcloud_accounts ;;\n"));
    EXPECT_TRUE(contains(zshText, "\n_vxcloud_sandbox_connect() {"));
    for (const auto& command : webdavCommands) EXPECT_TRUE(contains(zshText, "\n_vxcloud_webdav_" + command + "() {"));
}

TEST_F(CliShellFiles, ManPageFormatsAndHasASectionPerCommand) {
    const std::string page = generated("vxcloud.1");
    const std::string roff = readFile(page);
    ASSERT_EQ(roff, home_.run({"help", "--man"}).out);
    EXPECT_TRUE(contains(roff, "\n.TH VXCLOUD 1 ")) << roff.substr(0, 300);
    for (const auto& command : subcommandsIn(home_.run({"--help"}).out)) {
        // "vxcloud upload", or "vxcloud accounts (or list)" for a command and its other name.
        const bool section = contains(roff, "\n.SS \"vxcloud " + command + "\"\n") ||
                             contains(roff, "\n.SS \"vxcloud " + command + " (or ") ||
                             contains(roff, " (or " + command + ")\"\n");
        EXPECT_TRUE(section) << command;
    }
    EXPECT_TRUE(contains(roff, "\n.SS \"vxcloud webdav add\"\n"));

    // groff reads it without a warning, and the text a person reads has the help texts.
    if (runTool("groff", {"--version"}).status != 0) GTEST_SKIP() << "groff is not installed";
    const RunResult warnings = runTool("groff", {"-man", "-Tutf8", "-ww", "-z", page});
    EXPECT_EQ(warnings.status, 0);
    EXPECT_EQ(warnings.err, "");
    const RunResult formatted = runTool("groff", {"-man", "-Tascii", "-P", "-cbou", page});
    ASSERT_EQ(formatted.status, 0) << formatted.err;
    // The words one space apart: groff fills and justifies the lines.
    std::string text;
    std::istringstream words(formatted.out);
    for (std::string word; words >> word;) text += (text.empty() ? "" : " ") + word;
    EXPECT_TRUE(contains(text, "NAME vxcloud - upload scanned documents")) << text.substr(0, 400);
    EXPECT_TRUE(contains(text, "--dry-run")) << "upload's options";
    EXPECT_TRUE(contains(text, "Exit status: 0 when everything succeeded")) << "the overview's notes";
}

TEST_F(CliShellFiles, VersionIsPrintedAlone) {
    const RunResult r = home_.run({"--version"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out.rfind("vxcloud ", 0), 0u) << r.out;
    EXPECT_TRUE(std::isdigit(static_cast<unsigned char>(r.out[8]))) << r.out;
    EXPECT_EQ(r.out.find('\n'), r.out.size() - 1) << r.out;
}

}  // namespace
}  // namespace vxcloud::testing::cli
