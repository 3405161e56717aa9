// Unlinking as a person meets it, against a vxcloud-sandbox process: asked first on a
// terminal, here a tmux pane (naming the account and how many records go), never asked with
// --yes, refused without either; and the numbers accounts are named by stay theirs while
// others come and go.
#include <gtest/gtest.h>

#include <filesystem>

#include "cli/CliSandboxTest.h"

namespace vxcloud::testing::cli {
namespace {

class CliUnlink : public CliSandboxTest {
protected:
    void SetUp() override {
        CliSandboxTest::SetUp();
        if (HasFatalFailure()) return;
        ada_ = seededEmail("dropbox", 0);
        grace_ = seededEmail("dropbox", 1);
        ASSERT_FALSE(grace_.empty());
    }

    void link(const std::string& email) { CliSandboxTest::link("dropbox", email); }

    // E-mail by number, as `vxcloud accounts --json` lists them.
    std::map<int, std::string> numbers() {
        std::map<int, std::string> out;
        for (const auto& a : home_.runJson({"accounts", "--json"}).value("accounts", json::array()))
            out[a["number"].get<int>()] = a["email"].get<std::string>();
        return out;
    }

    std::string ada_, grace_;
};

TEST_F(CliUnlink, AsksOnATerminalAndNotWithYes) {
    link(ada_);
    ASSERT_EQ(home_.run({"folder", "1", "/Scans", "--create"}).status, 0);
    ASSERT_EQ(home_.run({"settings", "1", "--auto-upload", "on"}).status, 0);
    for (const char* name : {"a.pdf", "b.pdf"}) {
        writeFile(home_.file(name), pdfWith(name));
        ASSERT_EQ(home_.run({"upload", home_.file(name)}).status, 0);
    }

    // Asked on a terminal, with the account and what goes; "no" leaves everything as it was.
    if (!TmuxPane::available()) GTEST_SKIP() << "tmux is not installed";
    {
        TmuxPane declined(home_, {"unlink", "1"});
        ASSERT_TRUE(declined.ok()) << declined.error();
        ASSERT_TRUE(declined.expect("[y/N]")) << declined.capture();
        const std::string question = declined.capture();
        EXPECT_TRUE(contains(question, "Unlink Dropbox:" + ada_)) << question;
        EXPECT_TRUE(contains(question, "the records of its 2 document copies are forgotten")) << question;
        declined.sendLine("n");
        EXPECT_EQ(declined.wait(), 1) << declined.capture();
        EXPECT_TRUE(contains(declined.capture(), "nothing was unlinked")) << declined.capture();
    }
    EXPECT_EQ(numbers().size(), 1u);
    EXPECT_EQ(readRecords(home_.recordsPath()).size(), 2u);

    // Without a terminal it is refused unless the script says --yes.
    const RunResult piped = home_.run({"unlink", "1"});
    EXPECT_EQ(piped.status, 2);
    EXPECT_TRUE(contains(piped.err, "--yes")) << piped.err;
    EXPECT_EQ(numbers().size(), 1u);

    // "yes" on the terminal unlinks.
    {
        TmuxPane agreed(home_, {"unlink", "1"});
        ASSERT_TRUE(agreed.expect("[y/N]")) << agreed.capture();
        agreed.sendLine("y");
        EXPECT_EQ(agreed.wait(), 0) << agreed.capture();
        EXPECT_TRUE(contains(agreed.capture(), "is unlinked; the records of its 2 document copies are removed"))
            << agreed.capture();
    }
    EXPECT_TRUE(numbers().empty());
    EXPECT_TRUE(readRecords(home_.recordsPath()).empty());

    // --yes on a terminal: nothing is asked.
    link(grace_);
    TmuxPane scripted(home_, {"unlink", grace_, "--yes"});
    EXPECT_EQ(scripted.wait(), 0) << scripted.capture();
    EXPECT_TRUE(contains(scripted.capture(), "is unlinked")) << scripted.capture();
    EXPECT_FALSE(contains(scripted.capture(), "[y/N]")) << scripted.capture();
}

TEST_F(CliUnlink, AccountNumbersStayWithTheirAccounts) {
    // Grace first: in the store's order Ada would come first and take number 1.
    link(grace_);
    link(ada_);
    EXPECT_EQ(numbers(), (std::map<int, std::string>{{1, grace_}, {2, ada_}}));
    EXPECT_TRUE(contains(home_.run({"settings", "1"}).out, grace_));

    // Unlinking 1 leaves Ada at 2; Grace linked again is hers again, no one else's.
    ASSERT_EQ(home_.run({"unlink", "1", "--yes"}).status, 0);
    EXPECT_EQ(numbers(), (std::map<int, std::string>{{2, ada_}}));
    const RunResult gone = home_.run({"settings", "1"});
    EXPECT_EQ(gone.status, 2);
    EXPECT_TRUE(contains(gone.err, "no account number 1")) << gone.err;
    EXPECT_TRUE(contains(home_.run({"accounts"}).out, "2  Dropbox")) << home_.run({"accounts"}).out;
    link(grace_);
    EXPECT_EQ(numbers(), (std::map<int, std::string>{{1, grace_}, {2, ada_}}));

    // Accounts stored by a vxcloud that kept no numbers get them in the store's order, the
    // numbers that vxcloud showed.
    json preferences = json::parse(readFile(home_.preferencesPath()));
    ASSERT_TRUE(preferences.erase("vxcloudhost.accountnumbers"));
    writeFile(home_.preferencesPath(), preferences.dump());
    EXPECT_EQ(numbers(), (std::map<int, std::string>{{1, ada_}, {2, grace_}}));
}

}  // namespace
}  // namespace vxcloud::testing::cli
