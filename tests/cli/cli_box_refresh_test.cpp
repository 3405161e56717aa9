// Box refresh tokens are single-use and every vxcloud run checks its accounts with a refresh.
// Runs started at the same moment on one machine must take turns: a second refresh with the
// token the first one spent would lose the account.
#include <gtest/gtest.h>

#include <future>

#include "cli/CliHarness.h"

namespace vxcloud::testing::cli {
namespace {

json boxAccount(const CliHome& home) {
    const json listed = home.runJson({"accounts", "--json"});
    for (const json& account : listed.value("accounts", json::array())) {
        if (account.value("service", "") == "box") return account;
    }
    return json();
}

TEST(CliBoxRefresh, RunsStartedTogetherRefreshOnceAndKeepTheAccount) {
    SandboxProcess sandbox;
    ASSERT_TRUE(sandbox.ok()) << sandbox.error();
    CliHome home;
    home.setEnv("VXCLOUD_SANDBOX", sandbox.baseUrl());
    const RunResult linked = home.run({"link", "box"});
    ASSERT_EQ(linked.status, 0) << linked.out << linked.err;
    const std::string key = boxAccount(home).value("key", "?");
    // Box ends the access token early: every run meets a 401 and wants a new pair.
    sandbox.admin("POST", "/box/tokens/expire", json::object());
    const long long before = sandbox.requests("box/oauth2/token");

    constexpr int kRuns = 4;
    std::vector<std::future<RunResult>> runs;
    for (int i = 0; i < kRuns; ++i) {
        const std::string pdf = home.file("scan-" + std::to_string(i) + ".pdf");
        writeFile(pdf, pdfWith("box refresh " + std::to_string(i)));
        runs.push_back(std::async(std::launch::async, [&home, pdf, key] {
            return home.run({"upload", pdf, "--to", key, "--folder", "/"});
        }));
    }
    for (auto& run : runs) {
        const RunResult result = run.get();
        EXPECT_EQ(result.status, 0) << result.out << result.err;
    }
    // The first run to take the token's lock refreshed; the others found its new pair.
    EXPECT_EQ(sandbox.requests("box/oauth2/token") - before, 1);
    for (int i = 0; i < kRuns; ++i) {
        EXPECT_EQ(sandbox.content("box", "/scan-" + std::to_string(i) + ".pdf"), pdfWith("box refresh " + std::to_string(i)));
    }
    const json account = boxAccount(home);
    ASSERT_TRUE(account.is_object());
    EXPECT_TRUE(account["error"].is_null()) << account.dump();
}

}  // namespace
}  // namespace vxcloud::testing::cli
