// vxcloud run several times at once, as scripts and people do: runs wait for each other
// briefly and lose nothing, neither in the records database nor in the accounts.
#include <gtest/gtest.h>

#include <filesystem>

#include "cli/CliSandboxTest.h"

namespace vxcloud::testing::cli {
namespace {

class CliConcurrentRuns : public CliSandboxTest {
protected:
    void SetUp() override {
        CliSandboxTest::SetUp();
        if (HasFatalFailure()) return;
        ada_ = seededEmail("dropbox", 0);
        grace_ = seededEmail("dropbox", 1);
        ASSERT_FALSE(grace_.empty());
        link("dropbox", ada_);
    }

    json account(const std::string& email) {
        for (const auto& a : home_.runJson({"accounts", "--json"}).value("accounts", json::array()))
            if (a.value("email", "") == email) return a;
        return json();
    }

    std::string ada_, grace_;
};

TEST_F(CliConcurrentRuns, TenUploadsStartedTogetherAllSucceed) {
    ASSERT_EQ(home_.run({"folder", "1", "/Scans", "--create"}).status, 0);
    ASSERT_EQ(home_.run({"settings", "1", "--auto-upload", "on"}).status, 0);
    // The first runs also race to create the records database.
    ASSERT_FALSE(std::filesystem::exists(home_.recordsPath()));

    std::vector<std::vector<std::string>> uploads;
    for (int i = 0; i < 10; ++i) {
        const std::string path = home_.file("doc" + std::to_string(i) + ".pdf");
        writeFile(path, pdfWith("document " + std::to_string(i)));
        uploads.push_back({"upload", path});
    }
    const auto results = home_.runTogether(uploads);
    for (std::size_t i = 0; i < results.size(); ++i)
        EXPECT_EQ(results[i].status, 0) << uploads[i][1] << "\n" << results[i].out << results[i].err;

    const auto rows = readRecords(home_.recordsPath());
    ASSERT_EQ(rows.size(), 10u);
    for (int i = 0; i < 10; ++i) {
        const std::string name = "doc" + std::to_string(i) + ".pdf";
        const auto row = recordOf(rows, std::filesystem::canonical(home_.file(name)).string(), "dropbox", ada_);
        ASSERT_TRUE(row) << name;
        EXPECT_EQ(row->record["status"], "successful") << name;
        EXPECT_EQ(sandbox_.content("dropbox", "/Scans/" + name, ada_), pdfWith("document " + std::to_string(i)));
    }
}

// Renaming an account while it is signed in again, or while another account is linked (whose
// start-up check looks at every stored account): both changes stay, each time.
TEST_F(CliConcurrentRuns, LinkAndSettingsAtTheSameMomentKeepBoth) {
    for (int trial = 0; trial < 3; ++trial) {
        const std::string name = "Ada, trial " + std::to_string(trial);
        const auto both = home_.runTogether({{"link", "dropbox", "--as", ada_}, {"settings", ada_, "--name", name}});
        ASSERT_EQ(both[0].status, 0) << both[0].out << both[0].err;
        ASSERT_EQ(both[1].status, 0) << both[1].out << both[1].err;
        const json ada = account(ada_);
        EXPECT_EQ(ada["displayName"], name) << "trial " << trial;
        EXPECT_TRUE(ada["error"].is_null()) << ada.dump();
    }
    for (int trial = 0; trial < 3; ++trial) {
        const std::string name = "Ada while Grace links, trial " + std::to_string(trial);
        const auto both = home_.runTogether({{"link", "dropbox", "--as", grace_}, {"settings", ada_, "--name", name}});
        ASSERT_EQ(both[0].status, 0) << both[0].out << both[0].err;
        ASSERT_EQ(both[1].status, 0) << both[1].out << both[1].err;
        EXPECT_EQ(account(ada_)["displayName"], name) << "trial " << trial;
        EXPECT_FALSE(account(grace_).is_null());
    }
}

}  // namespace
}  // namespace vxcloud::testing::cli
