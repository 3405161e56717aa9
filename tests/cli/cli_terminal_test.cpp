// What a person sees on a terminal: the folder picker driven by typing, the conflict
// question answered there, and progress rows; -v shows requests without tokens.
#include <gtest/gtest.h>

#include <filesystem>

#include "cli/CliSandboxTest.h"

namespace vxcloud::testing::cli {
namespace {

class CliTerminal : public CliSandboxTest {
protected:
    void SetUp() override {
        CliSandboxTest::SetUp();
        if (HasFatalFailure()) return;
        email_ = seededEmail("dropbox", 0);
        link("dropbox", email_);
    }

    std::string email_;
};

TEST_F(CliTerminal, FolderPickerBrowsesCreatesGoesBackAndChoosesUploadHere) {
    int status = 0;
    sandbox_.admin("POST", "/dropbox/files", json{{"path", "/Receipts/2023"}, {"folder", true}, {"account", email_}},
                   &status);
    ASSERT_EQ(status, 200);

    PtySession pty(home_, {"folder", "1"});
    ASSERT_TRUE(pty.expect("Choose the upload folder for Dropbox:" + email_)) << pty.output();
    ASSERT_TRUE(pty.expect("1  Receipts")) << pty.output();
    ASSERT_TRUE(pty.expect("Open a folder by its number")) << pty.output();
    pty.sendLine("1");  // open Receipts
    ASSERT_TRUE(pty.expect("/Receipts")) << pty.output();
    ASSERT_TRUE(pty.expect("1  2023")) << pty.output();
    ASSERT_TRUE(pty.expect("Open a folder by its number")) << pty.output();
    pty.sendLine("b");  // back to the top
    ASSERT_TRUE(pty.expect("Open a folder by its number")) << pty.output();
    pty.sendLine("n");  // a new folder at the top
    ASSERT_TRUE(pty.expect("New Folder [Untitled]:")) << pty.output();
    pty.sendLine("bad/name");
    ASSERT_TRUE(pty.expect("Error Creating Folder")) << pty.output();
    ASSERT_TRUE(pty.expect("Open a folder by its number")) << pty.output();
    pty.sendLine("n");
    ASSERT_TRUE(pty.expect("New Folder [Untitled]:")) << pty.output();
    pty.sendLine("Inbox");
    ASSERT_TRUE(pty.expect("1  Inbox")) << pty.output();  // listed first, before Receipts
    ASSERT_TRUE(pty.expect("Open a folder by its number")) << pty.output();
    pty.sendLine("1");
    ASSERT_TRUE(pty.expect("/Inbox")) << pty.output();
    ASSERT_TRUE(pty.expect("Open a folder by its number")) << pty.output();
    pty.sendLine("u");  // Upload Here
    ASSERT_TRUE(pty.expect("Upload folder for Dropbox:" + email_ + ": /Inbox")) << pty.output();
    EXPECT_EQ(pty.wait(), 0) << pty.output();

    const json account = home_.runJson({"accounts", "--json"})["accounts"][0];
    EXPECT_EQ(account["uploadFolderPath"], "/Inbox");
    EXPECT_EQ(account["uploadFolder"]["uploadFolderName"], "Inbox");
    const auto settings = sandbox_.content("dropbox", "/.quillosettings", email_);
    ASSERT_TRUE(settings);
    EXPECT_EQ(json::parse(*settings)["uploadFolderPath"], "/Inbox");

    // Browsing again opens at the chosen folder, from where [b] goes up; cancelling changes
    // nothing.
    PtySession cancel(home_, {"folder", "1"});
    ASSERT_TRUE(cancel.expect("[b] goes up")) << cancel.output();
    ASSERT_TRUE(cancel.expect("Dropbox  /Inbox\r\n")) << cancel.output();
    EXPECT_FALSE(contains(cancel.output(), "Dropbox  /\r\n")) << "the top folder is not shown first";
    ASSERT_TRUE(cancel.expect("Open a folder by its number")) << cancel.output();
    cancel.sendLine("b");
    ASSERT_TRUE(cancel.expect("Dropbox  /\r\n")) << cancel.output();
    ASSERT_TRUE(cancel.expect("2  Receipts")) << cancel.output();
    ASSERT_TRUE(cancel.expect("Open a folder by its number")) << cancel.output();
    cancel.sendLine("c");
    ASSERT_TRUE(cancel.expect("Nothing changed.")) << cancel.output();
    EXPECT_EQ(cancel.wait(), 0);
    EXPECT_EQ(home_.runJson({"accounts", "--json"})["accounts"][0]["uploadFolderPath"], "/Inbox");

    // Without a terminal and without a path the command says what it needs.
    const RunResult piped = home_.run({"folder", "1"});
    EXPECT_EQ(piped.status, 2);
    EXPECT_TRUE(contains(piped.err, "give the folder's PATH")) << piped.err;
}

TEST_F(CliTerminal, ConflictIsAskedOnTheTerminalAndOverwriteAnswersIt) {
    ASSERT_EQ(home_.run({"folder", "1", "/Scans", "--create"}).status, 0);
    ASSERT_EQ(home_.run({"settings", "1", "--auto-upload", "on"}).status, 0);
    const std::string path = home_.file("scan.pdf");
    writeFile(path, pdfWith("terminal scan"));

    PtySession first(home_, {"upload", path});
    ASSERT_TRUE(first.expect("Uploading scan.pdf")) << first.output();
    ASSERT_TRUE(first.expect("uploaded as scan.pdf")) << first.output();
    EXPECT_EQ(first.wait(), 0) << first.output();
    // Rows are drawn in place on a terminal.
    EXPECT_TRUE(contains(first.output(), "\x1b[2K")) << first.output();

    int status = 0;
    sandbox_.admin("POST", "/dropbox/files/change",
                   json{{"path", "/Scans/scan.pdf"}, {"content", pdfWith("changed remotely")}, {"account", email_}},
                   &status);
    ASSERT_EQ(status, 200);

    PtySession second(home_, {"upload", path});
    ASSERT_TRUE(second.expect("This document was modified from a different device.")) << second.output();
    ASSERT_TRUE(second.expect("[o] Overwrite  [c] Cancel?")) << second.output();
    second.sendLine("o");
    ASSERT_TRUE(second.expect("uploaded as scan.pdf")) << second.output();
    EXPECT_EQ(second.wait(), 0) << second.output();
    EXPECT_EQ(sandbox_.content("dropbox", "/Scans/scan.pdf", email_), readFile(path));

    // Answering Cancel leaves the conflict recorded and the status says so.
    sandbox_.admin("POST", "/dropbox/files/change",
                   json{{"path", "/Scans/scan.pdf"}, {"content", pdfWith("changed again")}, {"account", email_}});
    PtySession third(home_, {"upload", path});
    ASSERT_TRUE(third.expect("[o] Overwrite  [c] Cancel?")) << third.output();
    third.sendLine("c");
    EXPECT_EQ(third.wait(), 1) << third.output();
    const auto record = recordOf(readRecords(home_.recordsPath()), std::filesystem::canonical(path).string(), "dropbox",
                                 email_);
    ASSERT_TRUE(record);
    EXPECT_EQ(record->record["error"], "file_conflict");
    EXPECT_EQ(sandbox_.content("dropbox", "/Scans/scan.pdf", email_), pdfWith("changed again"));
}

TEST_F(CliTerminal, VerboseShowsRequestsWithoutTokens) {
    const RunResult r = home_.run({"folder", "1", "/", "--list", "-v"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_TRUE(contains(r.err, "POST " + sandbox_.baseUrl() + "/dropbox/api/2/files/list_folder -> 200")) << r.err;
    const auto account = sandbox_.accounts("dropbox").front();
    EXPECT_FALSE(contains(r.err, account["access_token"].get<std::string>()));
    // Quiet by default.
    const RunResult quiet = home_.run({"folder", "1", "/", "--list"});
    EXPECT_EQ(quiet.err, "");
}

}  // namespace
}  // namespace vxcloud::testing::cli
