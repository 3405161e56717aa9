// Renames and moves through the task manager, answered by scripted sessions.
#include <gtest/gtest.h>

#include <algorithm>

#include "EngineTestSupport.h"

namespace vxcloud::enginetest {
namespace {

using RenameTest = EngineTest;
using MoveTest = EngineTest;

Json sortedByAccount(Json records) {
    std::sort(records.begin(), records.end(), [](const Json& a, const Json& b) {
        return a["accountId"].get<std::string>() < b["accountId"].get<std::string>();
    });
    return records;
}

const Json kEarlier = Json::parse(R"([
    {"accountId": "a@example.com", "accountType": "dropbox", "documentId": "Old A.pdf",
     "version": "a1", "status": "successful", "needsUpdate": false, "error": ""},
    {"accountId": "b@example.com", "accountType": "dropbox", "documentId": "Old B.pdf",
     "version": "b1", "hostNote": "kept", "status": "successful"}
])");

TEST_F(RenameTest, RenameOutcomesGiveTheSameFieldsAsUploadOutcomes) {
    const VXCloudAccountList accounts = {account("a@example.com"), account("b@example.com")};
    // Answers "a" with success (version v2) and "b" with a rename failure, either flow.
    const auto answer = [](const Call& call) {
        const bool isA = call.session->cloudAccount()->email == "a@example.com";
        if (call.kind == Call::Kind::upload) {
            if (isA) {
                answerUpload(call, "v2");
            } else {
                call.file->name = "Old B.pdf";  // the name it is stored under there
                failUpload(call, ErrorCode::renameFailed);
            }
        } else {
            if (isA) answerRename(call, "v2");
            else failRename(call, ErrorCode::renameFailed);
        }
    };

    upload(document(), accounts, kEarlier);
    ASSERT_TRUE(script->waitForCalls(2));
    answer(script->call(0));
    answer(script->call(1));
    ASSERT_TRUE(notifications->waitFor(1));

    int pdfCalls = 0;
    const Json pending = manager()->renameWithNewFilename(
        "Scan.pdf", kEarlier, false, Json{{"doc", 1}}, accounts,
        [&pdfCalls]() -> std::optional<std::string> {
            ++pdfCalls;
            return std::string("/tmp/new.pdf");
        });
    EXPECT_EQ(pending, Json::parse(R"([
        {"accountType": "dropbox", "accountId": "a@example.com", "needsRenameUpdate": true, "status": "pending"},
        {"accountType": "dropbox", "accountId": "b@example.com", "needsRenameUpdate": true, "status": "pending"}
    ])"));
    ASSERT_TRUE(script->waitForCalls(4));
    for (std::size_t i = 2; i < 4; ++i) {
        const Call call = script->call(i);
        ASSERT_EQ(call.kind, Call::Kind::rename);
        const bool isA = call.session->cloudAccount()->email == "a@example.com";
        // The stored document is named by the account's record, which travels with it.
        EXPECT_EQ(call.file->name, isA ? "Old A.pdf" : "Old B.pdf");
        EXPECT_EQ(*call.file->fileUploadStatus, kEarlier[isA ? 0 : 1]);
        EXPECT_EQ(call.newName, "Scan.pdf");
        EXPECT_EQ(call.folder->id, "folder-1");
        EXPECT_FALSE(call.overwrite);
        // The host's block is handed over untouched.
        ASSERT_TRUE(call.createPDFBlock);
        EXPECT_EQ(call.createPDFBlock(), "/tmp/new.pdf");
    }
    EXPECT_EQ(pdfCalls, 2);
    answer(script->call(2));
    answer(script->call(3));
    ASSERT_TRUE(notifications->waitFor(2));

    const Json uploaded = sortedByAccount(uploadStatusOf(0)["uploadStatusResponse"]);
    const Json renamed = sortedByAccount(uploadStatusOf(1)["uploadStatusResponse"]);
    EXPECT_EQ(renamed, uploaded);
    EXPECT_EQ(uploadStatusOf(1)["fileIdentifier"], Json({{"doc", 1}}));
    EXPECT_EQ(renamed[0], Json::parse(R"({"accountId": "a@example.com", "accountType": "dropbox",
        "documentId": "Scan.pdf", "version": "v2", "status": "successful", "needsUpdate": false,
        "error": "", "needsRenameUpdate": false})"));
    // Only records made before a session is asked ever carry needsRenameUpdate true.
    EXPECT_EQ(renamed[1], Json::parse(R"({"accountId": "b@example.com", "accountType": "dropbox",
        "documentId": "Old B.pdf", "version": "b1", "hostNote": "kept", "status": "error",
        "needsUpdate": true, "error": "rename_failed", "needsRenameUpdate": false})"));
}

TEST_F(RenameTest, ImmediateFailuresAndUnmatchedAccountsPostNothing) {
    const auto noFolder = account("a@example.com");
    noFolder->uploadFolderInfo = Json{{"uploadFolderName", "Scans"}, {"uploadFolderPath", "/Scans"}};
    const auto fine = account("b@example.com");
    const CreatePDFBlock none = [] { return std::nullopt; };

    const Json withoutRecords = manager()->renameWithNewFilename("New.pdf", {}, true, Json(1),
                                                                 VXCloudAccountList{noFolder, fine}, none);
    ASSERT_EQ(withoutRecords.size(), 2u);
    EXPECT_EQ(withoutRecords[0]["error"], "missing_folder");
    EXPECT_EQ(withoutRecords[1], Json::parse(R"({"accountId": "b@example.com", "accountType": "dropbox",
        "needsRenameUpdate": false, "error": "file_upload", "status": "error", "needsUpdate": true})"));

    // Records that name no document for the account: started, then silently left waiting.
    const Json otherAccounts = Json::parse(R"([
        {"accountId": "b@example.com", "accountType": "box", "documentId": "B.pdf"},
        {"accountId": "b@example.com", "accountType": "dropbox", "documentId": 12}
    ])");
    const std::size_t before = manager()->pendingTasks().size();
    const Json pending = manager()->renameWithNewFilename("New.pdf", otherAccounts, true, Json(2),
                                                          VXCloudAccountList{fine}, none);
    ASSERT_EQ(pending.size(), 1u);
    EXPECT_EQ(pending[0]["status"], "pending");
    EXPECT_TRUE(eventually([&] { return script->sessionsMade.load() == 1; }));
    DispatchQueue::main()->runUntil([] { return false; }, 200ms);
    EXPECT_EQ(script->count(), 0u);  // no session was asked to rename
    EXPECT_EQ(notifications->count(), 0u);
    EXPECT_EQ(manager()->pendingTasks().size(), before + 1);  // and the task stays listed
}

TEST_F(RenameTest, AccountWithoutSessionIsReportedAsAuthentication) {
    script->declineSessionFor("a@example.com");
    manager()->renameWithNewFilename("New.pdf", kEarlier, true, {},
                                     VXCloudAccountList{account("a@example.com")}, nullptr);
    ASSERT_TRUE(notifications->waitFor(1));
    const Json records = uploadStatusOf(0)["uploadStatusResponse"];
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0]["error"], "authentication");
    EXPECT_EQ(records[0]["needsRenameUpdate"], false);
    EXPECT_EQ(records[0]["documentId"], "Old A.pdf");  // merged over the host's record
}

std::shared_ptr<VXCloudFile> storedFile(const std::string& name, JsonBox identifier,
                                        JsonBox status = {}) {
    auto file = std::make_shared<VXCloudFile>(name, false, false);
    file->fileIdentifier = std::move(identifier);
    file->fileUploadStatus = std::move(status);
    return file;
}

TEST_F(MoveTest, MoveWhoseEveryFileFailedStillPostsOnce) {
    const auto acc = account("a@example.com");
    const auto withHistory = storedFile("One.pdf", Json(1), Json::parse(R"(
        {"accountId": "a@example.com", "accountType": "dropbox", "version": "v1", "error": "connection"})"));
    const auto plain = storedFile("Two.pdf", Json("two"));
    const auto anonymous = storedFile("Three.pdf", {});
    const auto from = std::make_shared<VXCloudFile>("From", true, false);
    const auto to = std::make_shared<VXCloudFile>("To", true, false);

    const Json entries = manager()->moveWithCloudFiles({withHistory, plain, anonymous}, from, to, acc);
    ASSERT_EQ(entries.size(), 3u);
    EXPECT_EQ(entries[0], Json::parse(R"({"fileIdentifier": 1, "uploadStatus": {
        "accountId": "a@example.com", "accountType": "dropbox", "documentId": "One.pdf",
        "needsUpdate": true, "status": "pending"}})"));
    EXPECT_TRUE(entries[2]["fileIdentifier"].is_null());

    ASSERT_TRUE(script->waitForCalls(1));
    const Call call = script->call(0);
    ASSERT_EQ(call.kind, Call::Kind::move);
    EXPECT_EQ(call.files.size(), 3u);
    EXPECT_EQ(call.folder, from);
    EXPECT_EQ(call.toFolder, to);
    const std::size_t before = manager()->pendingTasks().size();

    // Answered from another thread: the report is posted there, not on the main queue.
    std::thread([&] { answerMove(call, {}, call.files); }).join();
    ASSERT_EQ(notifications->count(), 1u);
    EXPECT_EQ(*notifications->all().at(0).userInfo, Json::parse(R"({"moveStatus": [
        {"fileIdentifier": 1, "uploadStatusResponse": [
          {"accountId": "a@example.com", "accountType": "dropbox", "version": "v1",
           "documentId": "One.pdf", "needsUpdate": true, "status": "error", "error": "file_upload"}]},
        {"fileIdentifier": "two", "uploadStatusResponse": [
          {"documentId": "Two.pdf", "needsUpdate": true, "status": "error", "error": "file_upload"}]}
    ]})"));
    EXPECT_TRUE(eventually([&] { return manager()->pendingTasks().size() == before - 1; }));
}

TEST_F(MoveTest, MovedFilesReportSuccessAndIneligibleAccountsStartNothing) {
    const auto acc = account("a@example.com");
    const auto one = storedFile("One.pdf", Json(1));
    const auto two = storedFile("Two.pdf", Json(2));
    const auto folder = std::make_shared<VXCloudFile>("F", true, false);
    manager()->moveWithCloudFiles({one, two}, folder, folder, acc);
    ASSERT_TRUE(script->waitForCalls(1));
    answerMove(script->call(0), {one}, {two});
    ASSERT_EQ(notifications->count(), 1u);
    const Json moveStatus = notifications->all().at(0).userInfo->at("moveStatus");
    ASSERT_EQ(moveStatus.size(), 2u);
    EXPECT_EQ(moveStatus[0]["uploadStatusResponse"][0], Json::parse(R"(
        {"documentId": "One.pdf", "needsUpdate": false, "status": "successful", "error": ""})"));
    EXPECT_EQ(moveStatus[1]["uploadStatusResponse"][0]["status"], "error");

    // Auto-upload off, or Wi-Fi only on cellular: nothing started, nothing returned.
    const auto off = account("off@example.com");
    off->shouldAutoUpload = false;
    EXPECT_EQ(manager()->moveWithCloudFiles({one}, folder, folder, off), Json::array());
    Reachability::setOverride(NetworkPath::cellular);
    const auto wifiOnly = account("wifi@example.com");
    wifiOnly->onlyWifiUpload = true;
    EXPECT_EQ(manager()->moveWithCloudFiles({one}, folder, folder, wifiOnly), Json::array());
    EXPECT_EQ(script->sessionsMade.load(), 1);

    // No session: the entries carry the failure at once.
    Reachability::setOverride(NetworkPath::wifi);
    script->declineSessionFor("b@example.com");
    const Json failed = manager()->moveWithCloudFiles({one}, folder, folder, account("b@example.com"));
    ASSERT_EQ(failed.size(), 1u);
    EXPECT_EQ(failed[0]["uploadStatus"]["error"], "authentication");
    EXPECT_EQ(failed[0]["uploadStatus"]["documentId"], "One.pdf");
    EXPECT_EQ(script->count(), 1u);
}

}  // namespace
}  // namespace vxcloud::enginetest
