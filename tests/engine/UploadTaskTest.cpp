// Automatic uploads through the task manager, answered by scripted sessions.
#include <gtest/gtest.h>

#include "EngineTestSupport.h"
#include "vxcloud/model/VXCloudFileHasher.h"
#include "vxcloud/model/VXCloudUserDefaults.h"

namespace vxcloud::enginetest {
namespace {

using UploadTaskTest = EngineTest;

TEST_F(UploadTaskTest, TwoAccountsPostOneNotificationWithBothRecords) {
    const auto dropbox = account("a@example.com", VXCloudService::dropbox);
    const auto drive = account("b@example.com", VXCloudService::googleDrive);
    const std::string path = document();

    const Json pending = upload(path, {dropbox, drive}, {}, /*compareLocalHash=*/true);
    EXPECT_EQ(pending, Json::parse(R"([
        {"accountId": "a@example.com", "accountType": "dropbox", "needsUpdate": true, "status": "pending"},
        {"accountId": "b@example.com", "accountType": "google_drive", "needsUpdate": true, "status": "pending"}
    ])"));
    // The task is listed until its first outcome is recorded.
    EXPECT_TRUE(eventually([&] { return manager()->pendingTasks().size() == baselinePending + 1; }));

    ASSERT_TRUE(script->waitForCalls(2));
    const auto calls = script->calls();
    for (const auto& call : calls) {
        ASSERT_EQ(call.kind, Call::Kind::upload);
        EXPECT_EQ(call.file->name, "Scan.pdf");
        EXPECT_FALSE(call.file->isFolder);
        EXPECT_TRUE(call.overwrite);
        EXPECT_EQ(call.folder->id, "folder-1");
        EXPECT_EQ(call.folder->path, "/Scans");
        EXPECT_EQ(call.folder->name, "Scans");
        ASSERT_TRUE(call.file->fileData);
        EXPECT_EQ(call.file->fileData->view(), "%PDF-1.4 scanned page");
        EXPECT_TRUE(call.file->fileData->isMapped());
        const auto service = call.session->cloudAccount()->cloudService;
        EXPECT_EQ(call.file->localVersion, VXCloudFileHasher::hash(*call.file->fileData, service));
        EXPECT_FALSE(call.file->fileUploadStatus);  // the host passed no earlier records
    }
    // One mapping of the document, shared by both accounts' requests.
    EXPECT_EQ(calls[0].file->fileData->data(), calls[1].file->fileData->data());

    const auto& first = calls[0].session->cloudAccount()->email == "a@example.com" ? calls[0] : calls[1];
    const auto& second = &first == &calls[0] ? calls[1] : calls[0];
    answerUpload(first, "rev-7");
    EXPECT_TRUE(eventually([&] { return manager()->pendingTasks().size() == baselinePending; }));
    EXPECT_EQ(notifications->count(), 0u);  // still waiting for the second account

    failUpload(second, ErrorCode::fileConflict);
    ASSERT_TRUE(notifications->waitFor(1));
    const auto notification = notifications->all().at(0);
    EXPECT_EQ(notification.name, "VXCloudUploadStatusNotification");
    EXPECT_NE(notification.sender, nullptr);
    EXPECT_EQ(*notification.userInfo, Json::parse(R"({"uploadStatus": {
        "fileIdentifier": "doc-1",
        "uploadStatusResponse": [
          {"accountId": "a@example.com", "accountType": "dropbox", "needsRenameUpdate": false,
           "documentId": "Scan.pdf", "version": "rev-7", "needsUpdate": false,
           "status": "successful", "error": ""},
          {"accountId": "b@example.com", "accountType": "google_drive", "needsRenameUpdate": false,
           "documentId": "Scan.pdf", "needsUpdate": true, "status": "error",
           "error": "file_conflict"}
        ]}})"));
    // Nothing more is posted for this task.
    DispatchQueue::main()->runUntil([] { return false; }, 100ms);
    EXPECT_EQ(notifications->count(), 1u);
}

TEST_F(UploadTaskTest, SkippedAccountsLeaveNoRecordAndGetNoSession) {
    Reachability::setOverride(NetworkPath::cellular);
    const auto autoUploadOff = account("off@example.com");
    autoUploadOff->shouldAutoUpload = false;
    const auto wifiOnly = account("wifi@example.com");
    wifiOnly->onlyWifiUpload = true;
    const auto eligible = account("go@example.com");

    const Json pending = upload(document(), {autoUploadOff, wifiOnly, eligible});
    ASSERT_EQ(pending.size(), 1u);
    EXPECT_EQ(pending[0]["accountId"], "go@example.com");

    ASSERT_TRUE(script->waitForCalls(1));
    answerUpload(script->call(0));
    ASSERT_TRUE(notifications->waitFor(1));
    const Json records = uploadStatusOf(0)["uploadStatusResponse"];
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0]["accountId"], "go@example.com");
    EXPECT_EQ(script->sessionsMade.load(), 1);

    // Without a network even the Wi-Fi-only account stays out; on Wi-Fi it takes part.
    Reachability::setOverride(NetworkPath::notReachable);
    EXPECT_EQ(upload(document(), {wifiOnly}), Json::array());
    Reachability::setOverride(NetworkPath::wifi);
    EXPECT_EQ(upload(document(), {wifiOnly}).size(), 1u);
    ASSERT_TRUE(script->waitForCalls(2));
    answerUpload(script->call(1));
    EXPECT_TRUE(notifications->waitFor(2));
}

TEST_F(UploadTaskTest, ImmediateFailuresAreReturnedAndNothingIsPosted) {
    const auto noFolder = account("nofolder@example.com");
    noFolder->uploadFolderInfo = Json{{"uploadFolderId", "x"}, {"uploadFolderName", "Scans"}};
    const auto wrongType = account("wrongtype@example.com");
    wrongType->uploadFolderInfo = Json{{"uploadFolderId", 5}, {"uploadFolderName", "Scans"},
                                       {"uploadFolderPath", "/Scans"}};
    const auto fine = account("fine@example.com");

    const Json folderRecords = upload(document(), {noFolder, wrongType});
    EXPECT_EQ(folderRecords, Json::parse(R"([
        {"accountId": "nofolder@example.com", "accountType": "dropbox", "needsRenameUpdate": false,
         "error": "missing_folder", "status": "error", "needsUpdate": true},
        {"accountId": "wrongtype@example.com", "accountType": "dropbox", "needsRenameUpdate": false,
         "error": "missing_folder", "status": "error", "needsUpdate": true}
    ])"));

    // An unreadable document still makes a task, which answers for each eligible account.
    const Json dataRecords = upload(temp.file("missing.pdf"), {noFolder, fine});
    ASSERT_EQ(dataRecords.size(), 2u);
    EXPECT_EQ(dataRecords[0]["error"], "missing_folder");
    EXPECT_EQ(dataRecords[1]["error"], "file_upload");
    EXPECT_EQ(dataRecords[1]["status"], "error");
    EXPECT_EQ(dataRecords[1]["needsUpdate"], true);

    // Neither task started anything: both stay listed, and neither ever posts.
    EXPECT_TRUE(eventually([&] { return manager()->pendingTasks().size() == baselinePending + 2; }));
    DispatchQueue::main()->runUntil([] { return false; }, 200ms);
    EXPECT_EQ(notifications->count(), 0u);
    EXPECT_EQ(script->sessionsMade.load(), 0);
    EXPECT_EQ(script->count(), 0u);
}

TEST_F(UploadTaskTest, NewRecordMergesOverTheHostsEarlierRecord) {
    const auto a = account("a@example.com");
    const auto b = account("b@example.com", VXCloudService::box);
    const Json earlier = Json::parse(R"([
        {"accountId": "a@example.com", "accountType": "google_drive", "documentId": "other.pdf"},
        {"accountId": "a@example.com", "accountType": "dropbox", "documentId": "Old.pdf",
         "version": "v1", "hostNote": 7, "needsRenameUpdate": true, "status": "error",
         "error": "connection"},
        {"accountId": "b@example.com", "accountType": "box", "documentId": "B.pdf", "version": "b1"}
    ])");

    upload(document(), {a, b}, earlier);
    ASSERT_TRUE(script->waitForCalls(2));
    for (const auto& call : script->calls()) {
        // Each session sees the account's own earlier record.
        ASSERT_TRUE(call.file->fileUploadStatus);
        if (call.session->cloudAccount()->email == "a@example.com") {
            EXPECT_EQ(*call.file->fileUploadStatus, earlier[1]);
            answerUpload(call);  // no version this time
        } else {
            EXPECT_EQ(*call.file->fileUploadStatus, earlier[2]);
            call.file->name = "B renamed.pdf";
            failUpload(call, ErrorCode::storageQuotaReached);
        }
    }
    ASSERT_TRUE(notifications->waitFor(1));
    Json records = uploadStatusOf(0)["uploadStatusResponse"];
    ASSERT_EQ(records.size(), 2u);
    if (records[0]["accountId"] != "a@example.com") std::swap(records[0], records[1]);
    EXPECT_EQ(records[0], Json::parse(R"({"accountId": "a@example.com", "accountType": "dropbox",
        "documentId": "Scan.pdf", "version": "v1", "hostNote": 7, "needsRenameUpdate": false,
        "status": "successful", "error": "", "needsUpdate": false})"));
    // A failure keeps the name the session returned and the older version.
    EXPECT_EQ(records[1], Json::parse(R"({"accountId": "b@example.com", "accountType": "box",
        "documentId": "B renamed.pdf", "version": "b1", "needsRenameUpdate": false,
        "status": "error", "error": "storage_quota_reached", "needsUpdate": true})"));
}

TEST_F(UploadTaskTest, TwoOutcomesForOneAccountAreTwoEntriesEachOverTheHostsRecord) {
    const auto a = account("a@example.com");
    const Json earlier = Json::parse(R"([
        {"accountId": "a@example.com", "accountType": "dropbox", "documentId": "Old.pdf", "version": "v1"}
    ])");

    // The same account twice in one request: two uploads, two outcomes, two entries.
    EXPECT_EQ(upload(document(), {a, a}, earlier).size(), 2u);
    ASSERT_TRUE(script->waitForCalls(2));
    answerUpload(script->call(0), "v2");
    failUpload(script->call(1), ErrorCode::connection);
    ASSERT_TRUE(notifications->waitFor(1));
    const Json records = uploadStatusOf(0)["uploadStatusResponse"];
    // In the order recorded; the second is merged over the host's record, not the first
    // outcome, so it carries the host's version.
    EXPECT_EQ(records, Json::parse(R"([
        {"accountId": "a@example.com", "accountType": "dropbox", "needsRenameUpdate": false,
         "documentId": "Scan.pdf", "version": "v2", "needsUpdate": false, "status": "successful",
         "error": ""},
        {"accountId": "a@example.com", "accountType": "dropbox", "needsRenameUpdate": false,
         "documentId": "Scan.pdf", "version": "v1", "needsUpdate": true, "status": "error",
         "error": "connection"}
    ])"));
}

TEST_F(UploadTaskTest, AccountWithoutSessionIsReportedAsAuthentication) {
    const auto a = account("a@example.com");
    const auto b = account("b@example.com");
    script->declineSessionFor("b@example.com");

    EXPECT_EQ(upload(document(), {a, b}).size(), 2u);  // both were started
    ASSERT_TRUE(script->waitForCalls(1));
    answerUpload(script->call(0));
    ASSERT_TRUE(notifications->waitFor(1));
    Json records = uploadStatusOf(0)["uploadStatusResponse"];
    ASSERT_EQ(records.size(), 2u);
    if (records[0]["accountId"] != "b@example.com") std::swap(records[0], records[1]);
    EXPECT_EQ(records[0], Json::parse(R"({"accountId": "b@example.com", "accountType": "dropbox",
        "needsRenameUpdate": false, "error": "authentication", "status": "error",
        "needsUpdate": true})"));
    EXPECT_EQ(records[1]["status"], "successful");
}

TEST_F(UploadTaskTest, StoredAccountsAreUsedWhenNoneAreGiven) {
    auto stored = account("stored@example.com", VXCloudService::oneDrive);
    ASSERT_TRUE(VXCloudUserDefaults::saveCloudAccount(*stored));
    auto off = account("off@example.com", VXCloudService::box);
    off->shouldAutoUpload = false;
    ASSERT_TRUE(VXCloudUserDefaults::saveCloudAccount(*off));

    // An empty list given means no accounts at all.
    EXPECT_EQ(upload(document(), {}), Json::array());

    const Json pending = manager()->uploadWithPdfPath(document("Invoice 7.pdf"), {}, false, {},
                                                      std::nullopt, false);
    ASSERT_EQ(pending.size(), 1u);
    EXPECT_EQ(pending[0]["accountId"], "stored@example.com");
    EXPECT_EQ(pending[0]["accountType"], "one_drive");
    ASSERT_TRUE(script->waitForCalls(1));
    const Call call = script->call(0);
    EXPECT_EQ(call.file->name, "Invoice 7.pdf");  // the path's last component
    EXPECT_FALSE(call.overwrite);
    EXPECT_FALSE(call.file->localVersion);  // no hash asked for
    answerUpload(call);
    ASSERT_TRUE(notifications->waitFor(1));
    // Without an identifier the collection carries none.
    EXPECT_FALSE(uploadStatusOf(0).contains("fileIdentifier"));
}

TEST_F(UploadTaskTest, TwoRequestsForOneDocumentAreIndependentTasks) {
    const auto a = account("a@example.com");
    const std::string path = document();
    upload(path, {a});
    upload(path, {a});
    ASSERT_TRUE(script->waitForCalls(2));
    answerUpload(script->call(0));
    answerUpload(script->call(1));
    ASSERT_TRUE(notifications->waitFor(2));
    const auto all = notifications->all();
    EXPECT_NE(all[0].sender, all[1].sender);
    EXPECT_EQ(uploadStatusOf(0)["uploadStatusResponse"].size(), 1u);
    EXPECT_EQ(uploadStatusOf(1)["uploadStatusResponse"].size(), 1u);
}

}  // namespace
}  // namespace vxcloud::enginetest
