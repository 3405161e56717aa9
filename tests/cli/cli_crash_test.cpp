// vxcloud killed with SIGKILL at random points while it saves accounts, tokens and document
// records: the next run finds whole files, says nothing is damaged, and tells the truth.
#include <gtest/gtest.h>

#include <filesystem>
#include <random>

#include "cli/CliHarness.h"

namespace vxcloud::testing::cli {
namespace {

// What the next run sees: it starts cleanly, reads every file whole and lists the accounts.
void expectWholeFiles(const CliHome& home, const std::string& when) {
    SCOPED_TRACE(when);
    const RunResult listed = home.run({"accounts", "--json"});
    EXPECT_EQ(listed.status, 0) << listed.out << listed.err;
    EXPECT_EQ(listed.err, "") << "a damaged file would be reported here";
    EXPECT_FALSE(json::parse(listed.out, nullptr, false).is_discarded()) << listed.out;
    EXPECT_FALSE(json::parse(readFile(home.preferencesPath()), nullptr, false).is_discarded());
    const RunResult status = home.run({"status", "--json"});
    EXPECT_EQ(status.status, 0) << status.err;
    // Files set aside as damaged would sit beside the originals.
    for (const auto& entry : std::filesystem::recursive_directory_iterator(home.path())) {
        const std::string name = entry.path().filename().string();
        EXPECT_FALSE(contains(name, "corrupt") || contains(name, "damaged")) << entry.path();
    }
}

TEST(CliCrash, KilledWhileSavingLeavesWholeFilesAndTheTruth) {
    SandboxProcess sandbox;
    ASSERT_TRUE(sandbox.ok()) << sandbox.error();
    CliHome home;
    home.setEnv("VXCLOUD_SANDBOX", sandbox.baseUrl());
    ASSERT_EQ(home.run({"link", "dropbox", "--as", "ada@example.com"}).status, 0);
    ASSERT_EQ(home.run({"folder", "Dropbox:ada@example.com", "/Scans", "--create"}).status, 0);
    ASSERT_EQ(home.run({"settings", "Dropbox:ada@example.com", "--auto-upload", "on", "--wifi-only", "off"}).status, 0);
    expectWholeFiles(home, "before any kill");

    std::mt19937 random(20261124);
    for (int i = 0; i < 18; ++i) {
        const std::string pdf = home.file("Crash " + std::to_string(i) + ".pdf");
        writeFile(pdf, pdfWith("crash test " + std::to_string(i)));
        const std::vector<std::vector<std::string>> commands = {
            {"settings", "Dropbox:ada@example.com", "--name", "Name " + std::to_string(i)},
            {"link", "dropbox", "--as", "grace@example.com"},
            {"upload", pdf, "--no-input"},
        };
        const auto lifetime = std::chrono::milliseconds(std::uniform_int_distribution<int>(0, 120)(random));
        home.runKilledAfter(commands[static_cast<std::size_t>(i) % commands.size()], lifetime);
        expectWholeFiles(home, "after kill " + std::to_string(i));
    }

    // The truth after all that: what a run now saves is what the next one reads, and an
    // upload that was cut short is simply done again.
    ASSERT_EQ(home.run({"settings", "Dropbox:ada@example.com", "--name", "After The Crashes"}).status, 0);
    EXPECT_TRUE(contains(home.run({"accounts"}).out, "After The Crashes"));
    const std::string last = home.file("Crash 2.pdf");
    const RunResult again = home.run({"upload", last, "-a", "Dropbox:ada@example.com", "--no-input"});
    EXPECT_EQ(again.status, 0) << again.out << again.err;
    EXPECT_TRUE(sandbox.content("dropbox", "/Scans/Crash 2.pdf", "ada@example.com").has_value());
}

}  // namespace
}  // namespace vxcloud::testing::cli
