// `vxcloud demo`, the first command a new user runs: every step succeeds on its embedded
// sandbox, it ends with the summary table, and it leaves the user's own state alone.
#include <gtest/gtest.h>

#include <filesystem>

#include "cli/CliHarness.h"

namespace vxcloud::testing::cli {
namespace {

TEST(CliDemo, RunsTheMainJobInAPrivateHomeAndEndsWithTheSummary) {
    CliHome home;
    const RunResult demo = home.run({"demo"}, {}, 300s);
    ASSERT_EQ(demo.status, 0) << demo.out << demo.err;
    EXPECT_EQ(demo.err, "");

    // The last lines are the summary table: every step, ending with the move.
    const auto summary = demo.out.find("Summary");
    ASSERT_NE(summary, std::string::npos) << demo.out;
    const std::string table = demo.out.substr(summary);
    for (const char* step : {"Upload ", "Upload again", "Conflict", "Overwrite", "Rename", "Move"})
        EXPECT_NE(table.find(step), std::string::npos) << step << "\n" << table;
    EXPECT_NE(table.find("unchanged"), std::string::npos);
    EXPECT_NE(table.find("file_conflict"), std::string::npos);
    std::string last = demo.out;
    while (!last.empty() && last.back() == '\n') last.pop_back();
    last = last.substr(last.find_last_of('\n') + 1);
    EXPECT_NE(last.find("Move"), std::string::npos) << last;
    EXPECT_NE(demo.out.find("The sandbox received 0 upload requests"), std::string::npos) << demo.out;
    // The demo answers the conflict itself; advice to run again with a flag would mislead.
    EXPECT_EQ(demo.out.find("Run again"), std::string::npos) << demo.out;

    // Nothing of the person's own: no accounts, no records; the private home is gone.
    EXPECT_FALSE(std::filesystem::exists(home.recordsPath()));
    EXPECT_FALSE(std::filesystem::exists(home.preferencesPath()));
    const std::string marker = "A private home keeps the demo's accounts and records: ";
    const auto at = demo.out.find(marker);
    ASSERT_NE(at, std::string::npos);
    const std::string rest = demo.out.substr(at + marker.size());
    const std::string privateHome = rest.substr(0, rest.find(' '));
    EXPECT_FALSE(std::filesystem::exists(privateHome)) << privateHome;
}

}  // namespace
}  // namespace vxcloud::testing::cli
