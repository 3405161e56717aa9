// The one-account rule as a person meets it with OneDrive, against a vxcloud-sandbox
// process: a second account is linked only when the person agrees, and then replaces the
// first; a stored WebDAV account is no reason to ask.
#include <gtest/gtest.h>

#include "cli/CliHarness.h"

namespace vxcloud::testing::cli {
namespace {

// The keys of the linked OneDrive accounts.
std::vector<std::string> oneDriveKeys(const CliHome& home) {
    std::vector<std::string> keys;
    const json listed = home.runJson({"accounts", "--json"});
    for (const json& account : listed.value("accounts", json::array())) {
        if (account.value("service", "") == "one_drive") keys.push_back(account.value("key", "?"));
    }
    return keys;
}

std::vector<std::string> keyOf(const json& seeded) { return {"VX_OneDrive_" + seeded.value("user_id", "?")}; }

TEST(CliSingleAccount, ASecondOneDriveAccountAsksFirstAndThenReplacesTheFirst) {
    SandboxProcess sandbox;
    ASSERT_TRUE(sandbox.ok()) << sandbox.error();
    const auto seeded = sandbox.accounts("onedrive");
    ASSERT_GE(seeded.size(), 2u);
    CliHome home;
    home.setEnv("VXCLOUD_SANDBOX", sandbox.baseUrl());
    ASSERT_EQ(home.run({"webdav", "add", "--username", "ann", "--url", "https://dav.example.com/dav"}).status, 0);

    const RunResult first = home.run({"link", "onedrive", "--as", seeded[0]["email"]});
    ASSERT_EQ(first.status, 0) << first.out << first.err;
    EXPECT_FALSE(contains(first.out, "only allows one account")) << first.out;
    ASSERT_EQ(oneDriveKeys(home), keyOf(seeded[0]));

    // Nobody answers the question here: the default is no, and nothing changes.
    const RunResult refused = home.run({"link", "onedrive", "--as", seeded[1]["email"]});
    EXPECT_NE(refused.status, 0);
    EXPECT_TRUE(contains(refused.out, "only allows one account")) << refused.out;
    EXPECT_TRUE(contains(refused.err, "--replace")) << refused.err;
    EXPECT_EQ(oneDriveKeys(home), keyOf(seeded[0]));
    EXPECT_EQ(sandbox.requests("onedrive/oauth2/token"), 1) << "no sign-in was started";

    const RunResult replaced = home.run({"link", "onedrive", "--as", seeded[1]["email"], "--replace"});
    ASSERT_EQ(replaced.status, 0) << replaced.out << replaced.err;
    EXPECT_EQ(oneDriveKeys(home), keyOf(seeded[1]));
}

}  // namespace
}  // namespace vxcloud::testing::cli
