// The main job as a person runs it, against a vxcloud-sandbox process: link, choose a
// folder, upload, upload unchanged, conflict then overwrite, rename, move, unlink, with
// the records database read after each step.
#include <gtest/gtest.h>

#include <filesystem>

#include "cli/CliSandboxTest.h"
#include "vxcloud/platform/Http.h"

namespace vxcloud::testing::cli {
namespace {

std::string canonical(const std::string& path) { return std::filesystem::weakly_canonical(path).string(); }

class CliFlow : public CliSandboxTest {
protected:
    void SetUp() override {
        CliSandboxTest::SetUp();
        if (HasFatalFailure()) return;
        email_ = seededEmail("dropbox", 0);
        ASSERT_FALSE(email_.empty());
    }

    // Links the first Dropbox account, gives it /Scans and turns automatic upload on.
    void linkWithFolder() {
        link("dropbox", email_);
        const RunResult folder = home_.run({"folder", "1", "/Scans", "--create"});
        ASSERT_EQ(folder.status, 0) << folder.out << folder.err;
        const RunResult on = home_.run({"settings", "1", "--auto-upload", "on"});
        ASSERT_EQ(on.status, 0) << on.out << on.err;
    }

    std::string document(const std::string& name, const std::string& marker) {
        const std::string path = home_.file(name);
        writeFile(path, pdfWith(marker));
        return canonical(path);
    }

    std::optional<DbRecord> record(const std::string& path) {
        return recordOf(readRecords(home_.recordsPath()), path, "dropbox", email_);
    }

    std::string dropboxHash(const std::string& path) {
        const RunResult r = home_.run({"hash", "--service", "dropbox", path});
        return r.out.substr(0, r.out.find(' '));
    }

    std::string email_;
};

TEST_F(CliFlow, LinkFolderUploadConflictRenameMoveUnlink) {
    const RunResult linked = home_.run({"link", "dropbox", "--as", email_});
    ASSERT_EQ(linked.status, 0) << linked.out << linked.err;
    EXPECT_TRUE(contains(linked.out, "Linked: Dropbox:" + email_)) << linked.out;

    const std::string a = document("a.pdf", "first document");
    const std::string b = document("b.pdf", "second document");

    // Not yet allowed to upload automatically: said so, nothing recorded as sent.
    const RunResult early = home_.run({"upload", a});
    EXPECT_EQ(early.status, 1);
    EXPECT_TRUE(contains(early.out, "automatic upload is off")) << early.out;

    // The folder is made, saved with the account and written to the service's settings file.
    const RunResult folder = home_.run({"folder", "1", "/Scans", "--create"});
    ASSERT_EQ(folder.status, 0) << folder.out << folder.err;
    EXPECT_TRUE(contains(folder.out, "Upload folder for Dropbox:" + email_ + ": /Scans")) << folder.out;
    const auto settings = sandbox_.content("dropbox", "/.quillosettings", email_);
    ASSERT_TRUE(settings);
    EXPECT_EQ(json::parse(*settings)["uploadFolderPath"], "/Scans");
    ASSERT_EQ(home_.run({"settings", "1", "--auto-upload", "on"}).status, 0);

    // Upload two documents.
    const json uploaded = home_.runJson({"upload", a, b, "--json"});
    ASSERT_TRUE(uploaded.value("ok", false)) << uploaded.dump(2);
    auto ra = record(a);
    ASSERT_TRUE(ra);
    EXPECT_EQ(ra->record["status"], "successful");
    EXPECT_EQ(ra->record["documentId"], "a.pdf");
    EXPECT_EQ(ra->record["error"], "");
    EXPECT_EQ(ra->record["version"], dropboxHash(a)) << "the version is the service's content hash";
    EXPECT_EQ(ra->folder, "/Scans");
    EXPECT_EQ(sandbox_.content("dropbox", "/Scans/a.pdf", email_), readFile(a));
    const auto rbBefore = record(b);
    ASSERT_TRUE(rbBefore);

    // Unchanged content: found by its hash, nothing sent.
    const long long uploadsBefore = sandbox_.requests("dropbox/files/upload");
    const RunResult again = home_.run({"upload", a});
    EXPECT_EQ(again.status, 0) << again.out << again.err;
    EXPECT_TRUE(contains(again.out, "unchanged, nothing sent")) << again.out;
    EXPECT_EQ(sandbox_.requests("dropbox/files/upload"), uploadsBefore);

    // Changed on "another device": a conflict, in the component's own words, recorded.
    int changed = 0;
    sandbox_.admin("POST", "/dropbox/files/change",
                   json{{"path", "/Scans/a.pdf"}, {"content", pdfWith("edited elsewhere")}, {"account", email_}}, &changed);
    ASSERT_EQ(changed, 200);
    const RunResult conflict = home_.run({"upload", a});
    EXPECT_EQ(conflict.status, 1);
    EXPECT_TRUE(contains(conflict.out, "This document was modified from a different device. Do you want to upload "
                                       "your changes?"))
        << conflict.out;
    EXPECT_TRUE(contains(conflict.out, "--overwrite")) << conflict.out;
    ra = record(a);
    EXPECT_EQ(ra->record["status"], "error");
    EXPECT_EQ(ra->record["error"], "file_conflict");
    EXPECT_EQ(ra->record["needsUpdate"], true);
    EXPECT_EQ(sandbox_.content("dropbox", "/Scans/a.pdf", email_), pdfWith("edited elsewhere"));
    EXPECT_EQ(record(b)->record, rbBefore->record) << "another document's records are not touched";

    const RunResult overwritten = home_.run({"upload", a, "--overwrite"});
    ASSERT_EQ(overwritten.status, 0) << overwritten.out << overwritten.err;
    ra = record(a);
    EXPECT_EQ(ra->record["status"], "successful");
    EXPECT_EQ(ra->record["error"], "");
    EXPECT_EQ(ra->record["version"], dropboxHash(a));
    EXPECT_EQ(sandbox_.content("dropbox", "/Scans/a.pdf", email_), readFile(a));

    // The same content under another name is found by its hash and left where it is.
    const std::string copy = home_.file("copy of a.pdf");
    std::filesystem::copy_file(a, copy);
    const long long beforeCopy = sandbox_.requests("dropbox/files/upload");
    const json copied = home_.runJson({"upload", copy, "--json"});
    ASSERT_TRUE(copied.value("ok", false)) << copied.dump(2);
    const json copyOutcome = copied["documents"][0]["accounts"][0];
    EXPECT_EQ(copyOutcome["outcome"], "unchanged") << copyOutcome.dump(2);
    EXPECT_TRUE(contains(copyOutcome.value("note", ""), "already there as a.pdf")) << copyOutcome.dump(2);
    EXPECT_EQ(sandbox_.requests("dropbox/files/upload"), beforeCopy);

    // A new name with a slash is refused before anything is asked of the service.
    const RunResult slashed = home_.run({"rename", a, "2024/a.pdf"});
    EXPECT_EQ(slashed.status, 2);
    EXPECT_TRUE(contains(slashed.err, "\"2024/a.pdf\" cannot be a document name: it contains \"/\"")) << slashed.err;
    EXPECT_EQ(record(a)->record["documentId"], "a.pdf");

    // Rename everywhere, to a name with quotes and spaces.
    const std::string newName = "Invoice \"2024\" final.pdf";
    const RunResult renamed = home_.run({"rename", a, newName});
    ASSERT_EQ(renamed.status, 0) << renamed.out << renamed.err;
    ra = record(a);
    EXPECT_EQ(ra->name, newName);
    EXPECT_EQ(ra->record["documentId"], newName);
    EXPECT_EQ(ra->record["status"], "successful");
    EXPECT_EQ(sandbox_.content("dropbox", "/Scans/" + newName, email_), readFile(a));
    EXPECT_FALSE(sandbox_.content("dropbox", "/Scans/a.pdf", email_));
    // The renamed document is found again under its new name: nothing to send.
    const RunResult afterRename = home_.run({"upload", a});
    EXPECT_EQ(afterRename.status, 0) << afterRename.out;
    EXPECT_TRUE(contains(afterRename.out, "unchanged")) << afterRename.out;

    // Move the second document to a new folder.
    const RunResult moved = home_.run({"move", b, "--account", "1", "--to", "/Archive", "--create"});
    ASSERT_EQ(moved.status, 0) << moved.out << moved.err;
    const auto rb = record(b);
    EXPECT_EQ(rb->folder, "/Archive");
    EXPECT_EQ(rb->record["status"], "successful");
    EXPECT_EQ(sandbox_.content("dropbox", "/Archive/b.pdf", email_), readFile(b));
    EXPECT_FALSE(sandbox_.content("dropbox", "/Scans/b.pdf", email_));

    const json status = home_.runJson({"status", a, b, "--json"});
    ASSERT_EQ(status["documents"].size(), 2u);
    EXPECT_EQ(status["documents"][0]["records"][0]["record"]["documentId"], newName);

    // Unlink: signed out, removed, and the host forgets its records of the account.
    const RunResult unlinked = home_.run({"unlink", "Dropbox:" + email_, "--yes"});
    ASSERT_EQ(unlinked.status, 0) << unlinked.out << unlinked.err;
    EXPECT_TRUE(readRecords(home_.recordsPath()).empty());
    EXPECT_TRUE(home_.runJson({"accounts", "--json"})["accounts"].empty());
    const RunResult gone = home_.run({"upload", a});
    EXPECT_EQ(gone.status, 1);
}

TEST_F(CliFlow, APastedRedirectFinishesTheSignInStartedOnAnotherMachine) {
    // The printed address is opened "elsewhere": the sandbox's page is approved over HTTP and
    // the address its redirect names is pasted back; the loopback listener is never reached.
    PtySession pty(home_, {"link", "dropbox", "--paste"});
    const std::string intro = "Open this address in a web browser to sign in:";
    ASSERT_TRUE(pty.expect(intro)) << pty.output();
    ASSERT_TRUE(pty.expect("Paste the address your browser ended on:")) << pty.output();
    const std::string shown = pty.output().substr(pty.output().find(intro) + intro.size());
    const auto start = shown.find("http://");
    ASSERT_NE(start, std::string::npos) << shown;
    const std::string address = shown.substr(start, shown.find_first_of(" \r\n", start) - start);

    HttpRequest approve;
    approve.url = address + "&sandbox_decision=approve&sandbox_account=" + HttpClient::urlEncode(email_);
    const HttpResponse page = HttpClient::shared()->perform(approve);
    ASSERT_EQ(page.status / 100, 3) << page.status << " " << page.body;
    const auto redirect = page.headers.get("Location");
    ASSERT_TRUE(redirect);
    EXPECT_NE(redirect->find("code="), std::string::npos) << *redirect;

    // Something else first: refused with a hint, and the sign-in keeps waiting.
    pty.sendLine("http://127.0.0.1:1/?code=forged&state=forged");
    ASSERT_TRUE(pty.expect("does not finish this sign-in")) << pty.output();
    ASSERT_TRUE(pty.expect("Paste the address your browser ended on:")) << pty.output();
    pty.sendLine("  " + *redirect + "  ");
    ASSERT_TRUE(pty.expect("Linked: Dropbox:" + email_)) << pty.output();
    EXPECT_EQ(pty.wait(), 0) << pty.output();
    const json accounts = home_.runJson({"accounts", "--json"})["accounts"];
    ASSERT_EQ(accounts.size(), 1u);
    EXPECT_EQ(accounts[0]["email"], email_);
}

TEST_F(CliFlow, UnreadableDocumentsAreNamedAndLeaveOtherRecordsAlone) {
    linkWithFolder();
    const std::string kept = document("kept.pdf", "kept");
    ASSERT_EQ(home_.run({"upload", kept}).status, 0);
    const auto keptBefore = readRecords(home_.recordsPath());

    const std::string good = document("good.pdf", "good");
    writeFile(home_.file("notes.txt"), "just some notes");
    const std::string full = pdfWith("cut short");
    writeFile(home_.file("truncated.pdf"), full.substr(0, full.size() / 2));
    writeFile(home_.file("empty.pdf"), "");
    std::filesystem::create_directory(home_.file("folder.pdf"));
    // Files that cannot be documents are wrong input: each is named, and nothing is sent or
    // recorded, not even the good document given with them.
    const RunResult r = home_.run({"upload", home_.file("missing.pdf"), home_.file("notes.txt"),
                                   home_.file("truncated.pdf"), home_.file("empty.pdf"), home_.file("folder.pdf"), good});
    EXPECT_EQ(r.status, 2);
    EXPECT_TRUE(contains(r.err, "cannot read " + home_.file("missing.pdf") + ": No such file or directory")) << r.err;
    EXPECT_TRUE(contains(r.err, "notes.txt is not a PDF document")) << r.err;
    EXPECT_TRUE(contains(r.err, "truncated.pdf is a damaged PDF document")) << r.err;
    EXPECT_TRUE(contains(r.err, "empty.pdf is empty")) << r.err;
    EXPECT_TRUE(contains(r.err, "folder.pdf is a directory")) << r.err;
    EXPECT_TRUE(contains(r.err, "nothing was uploaded: 5 of the 6 files")) << r.err;
    EXPECT_EQ(readRecords(home_.recordsPath()).size(), 1u);
    for (const char* alone : {"missing.pdf", "empty.pdf", "folder.pdf"})
        EXPECT_EQ(home_.run({"upload", home_.file(alone)}).status, 2) << alone;

    ASSERT_EQ(home_.run({"upload", good}).status, 0);
    const auto after = readRecords(home_.recordsPath());
    ASSERT_EQ(after.size(), 2u);
    const auto keptAfter = recordOf(after, kept, "dropbox", email_);
    ASSERT_TRUE(keptAfter);
    EXPECT_EQ(keptAfter->record, keptBefore.front().record);
    EXPECT_EQ(recordOf(after, good, "dropbox", email_)->record["status"], "successful");

    // Removing the kept document from disk and uploading it: a clear message, records kept.
    std::filesystem::remove(kept);
    const RunResult vanished = home_.run({"upload", kept, "--json"});
    EXPECT_EQ(vanished.status, 2);
    EXPECT_TRUE(contains(vanished.err, "No such file or directory")) << vanished.err;
    EXPECT_EQ(recordOf(readRecords(home_.recordsPath()), kept, "dropbox", email_)->record, keptBefore.front().record);

    // A file name that is not UTF-8 cannot be a document name: refused at once, as a usage
    // error, before anything is sent or recorded.
    const std::string latin1 = document("caf\xe9.pdf", "latin-1 name");
    const auto recordsBefore = readRecords(home_.recordsPath()).size();
    const RunResult badName = home_.run({"upload", latin1, good});
    EXPECT_EQ(badName.status, 2);
    EXPECT_TRUE(contains(badName.err, "not valid UTF-8")) << badName.err;
    EXPECT_EQ(readRecords(home_.recordsPath()).size(), recordsBefore);
}

TEST_F(CliFlow, ChoosingANewFolderCanMoveTheDocumentsAlong) {
    linkWithFolder();
    const std::string a = document("report.pdf", "report");
    ASSERT_EQ(home_.run({"upload", a}).status, 0);

    const json changed = home_.runJson({"folder", "1", "/Filed/2024", "--create", "--move-files", "--json"});
    ASSERT_EQ(changed.value("uploadFolderPath", ""), "/Filed/2024") << changed.dump(2);
    EXPECT_TRUE(changed.value("settingsWritten", false));
    ASSERT_TRUE(changed.contains("moved")) << changed.dump(2);
    EXPECT_TRUE(changed["moved"].value("ok", false)) << changed.dump(2);
    EXPECT_EQ(record(a)->folder, "/Filed/2024");
    EXPECT_EQ(sandbox_.content("dropbox", "/Filed/2024/report.pdf", email_), readFile(a));
    EXPECT_EQ(json::parse(*sandbox_.content("dropbox", "/.quillosettings", email_))["uploadFolderPath"], "/Filed/2024");

    // Linking the account again keeps its settings, and the folder named by the settings file.
    const RunResult relinked = home_.run({"link", "dropbox", "--as", email_});
    ASSERT_EQ(relinked.status, 0) << relinked.out << relinked.err;
    const json account = home_.runJson({"accounts", "--json"})["accounts"][0];
    EXPECT_EQ(account["uploadFolderPath"], "/Filed/2024");
    EXPECT_TRUE(account["shouldAutoUpload"].get<bool>());

    // A path that does not exist is named, with what is there.
    const RunResult missing = home_.run({"folder", "1", "/Nowhere"});
    EXPECT_EQ(missing.status, 1);
    EXPECT_TRUE(contains(missing.err, "no folder \"Nowhere\" in /")) << missing.err;
    EXPECT_TRUE(contains(missing.err, "Filed")) << missing.err;
}

TEST_F(CliFlow, FailuresShowTheComponentsTextsAndRetriesFollowTheFlag) {
    linkWithFolder();
    const std::string a = document("a.pdf", "retry me");

    // One refused transfer: the retry question's text; without --retries the failure stays.
    int status = 0;
    sandbox_.admin("POST", "/faults", json{{"route", "dropbox/files/upload"}, {"fault", "status=400"}, {"times", 1}},
                   &status);
    ASSERT_EQ(status, 200);
    const RunResult failed = home_.run({"upload", a});
    EXPECT_EQ(failed.status, 1);
    EXPECT_TRUE(contains(failed.out, "An error has occurred while uploading your file. Retry the upload?")) << failed.out;
    EXPECT_EQ(record(a)->record["error"], "file_upload");

    // With --retries the question is answered "Retry" and the second attempt succeeds.
    sandbox_.admin("POST", "/faults", json{{"route", "dropbox/files/upload"}, {"fault", "status=400"}, {"times", 1}});
    const json retried = home_.runJson({"upload", a, "--retries", "1", "--json"}, &status);
    EXPECT_EQ(status, 0) << retried.dump(2);
    EXPECT_EQ(record(a)->record["status"], "successful");

    // A full account: the quota text, and the account carries the error until a success.
    const std::string b = document("b.pdf", "too big for the account");
    sandbox_.admin("POST", "/faults", json{{"route", "dropbox/files/upload"}, {"fault", "quota-full"}, {"times", 1}});
    const RunResult full = home_.run({"upload", b});
    EXPECT_EQ(full.status, 1);
    EXPECT_TRUE(contains(full.out, "You have reached the storage quota for your cloud account.")) << full.out;
    EXPECT_EQ(record(b)->record["error"], "storage_quota_reached");
    EXPECT_EQ(home_.runJson({"accounts", "--json"})["accounts"][0]["error"], "storage_quota_reached");
    ASSERT_EQ(home_.run({"upload", b}).status, 0);
    EXPECT_TRUE(home_.runJson({"accounts", "--json"})["accounts"][0]["error"].is_null());

    // A second account with automatic upload on but no folder: the missing-folder text for
    // it, while the first account still gets the document.
    const auto accounts = sandbox_.accounts("dropbox");
    ASSERT_GE(accounts.size(), 2u);
    const std::string other = accounts[1]["email"].get<std::string>();
    ASSERT_EQ(home_.run({"link", "dropbox", "--as", other}).status, 0);
    ASSERT_EQ(home_.run({"settings", other, "--auto-upload", "on"}).status, 0);
    const std::string c = document("c.pdf", "third");
    const RunResult partly = home_.run({"upload", c});
    EXPECT_EQ(partly.status, 1);
    EXPECT_TRUE(contains(partly.out, "unable to find the upload folder for one of your accounts")) << partly.out;
    EXPECT_TRUE(contains(partly.out, "vxcloud folder 'Dropbox:" + other + "'")) << partly.out;
    const auto rows = readRecords(home_.recordsPath());
    EXPECT_EQ(recordOf(rows, c, "dropbox", email_)->record["status"], "successful");
    EXPECT_EQ(recordOf(rows, c, "dropbox", other)->record["error"], "missing_folder");
}

}  // namespace
}  // namespace vxcloud::testing::cli
