// End to end: the host's upload call through the task manager and the upload queue to a
// Dropbox, a Google Drive, a OneDrive, a Box and an Evernote account on one sandbox, ending
// in the one status notification.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "sessions/BoxFixture.h"
#include "sessions/DropboxFixture.h"
#include "sessions/EvernoteFixture.h"
#include "sessions/GoogleDriveFixture.h"
#include "sessions/HostUpload.h"
#include "sessions/OneDriveFixture.h"
#include "vxcloud/model/VXCloudFileHasher.h"

namespace vxcloud::testing {
namespace {

class GoogleDriveThroughTheEngine : public SandboxTest<GoogleDriveFixture> {
protected:
    void SetUp() override {
        SandboxTest::SetUp();
        if (HasFatalFailure()) return;
        // The sandbox's Dropbox account, linked beside the Drive one, with "/Scans" as its folder.
        std::string error;
        ASSERT_TRUE(dropbox_.setUpBeside(fx_, error)) << error;
        dropbox_.sandbox().putFolder("dropbox", "/Scans");
        ASSERT_TRUE(oneDrive_.setUpBeside(fx_, error)) << error;
        ASSERT_TRUE(box_.setUpBeside(fx_, error)) << error;
        ASSERT_TRUE(evernote_.setUpBeside(fx_, error)) << error;
    }

    DropboxFixture dropbox_;
    OneDriveFixture oneDrive_;
    BoxFixture box_;
    EvernoteFixture evernote_;
    HostUpload host_;
};

TEST_F(GoogleDriveThroughTheEngine, OnePdfToEveryServiceThatAnswersEndsInOneNotificationWithASuccessEach) {
    VXCloudAccountList accounts = {dropbox_.account(), fx_.account(), oneDrive_.account(), box_.account(),
                                   evernote_.account()};

    const std::string pdf = documentBytes(300 * 1024, 77);
    const Json pending = host_.start("scan.pdf", pdf, Json("document-7"), accounts);
    ASSERT_TRUE(pending.is_array());
    EXPECT_EQ(pending.size(), 5u);

    const Json info = host_.expectOneNotification();
    ASSERT_TRUE(info.contains("uploadStatus")) << info.dump();
    const Json& status = info["uploadStatus"];
    EXPECT_EQ(status["fileIdentifier"], "document-7");
    const Json& records = status["uploadStatusResponse"];
    ASSERT_EQ(records.size(), 5u) << status.dump();
    const ByteBuffer bytes = ByteBuffer::copyOf(pdf);
    for (const Json& record : records) {
        EXPECT_EQ(record["status"], "successful") << record.dump();
        EXPECT_EQ(record["documentId"], "scan.pdf");
        if (record["accountType"] == "google_drive") {
            EXPECT_EQ(record["version"], VXCloudFileHasher::md5Hash(bytes));
            EXPECT_EQ(record["accountId"], fx_.account()->email);
        } else if (record["accountType"] == "one_drive") {
            // The digest the drive reported, not the local two-digest version.
            EXPECT_EQ(record["version"], VXCloudFileHasher::quickXorHash(bytes));
        } else if (record["accountType"] == "box") {
            EXPECT_EQ(record["version"], VXCloudFileHasher::sha1Hash(bytes));
        } else if (record["accountType"] == "evernote") {
            EXPECT_EQ(record["version"], VXCloudFileHasher::md5Hash(bytes));
        } else {
            EXPECT_EQ(record["accountType"], "dropbox");
            EXPECT_EQ(record["version"], VXCloudFileHasher::dropboxHash(bytes).value_or(""));
        }
    }
    auto scans = VXCloudFile::initWithUploadFolderInfo(fx_.account()->uploadFolderInfo);
    ASSERT_NE(scans, nullptr);
    EXPECT_TRUE(sameBytes(fx_.remoteContent(*scans, "scan.pdf"), pdf));
    EXPECT_TRUE(sameBytes(dropbox_.sandbox().fileContent("dropbox", "/Scans/scan.pdf"), pdf));
    EXPECT_TRUE(sameBytes(oneDrive_.sandbox().fileContent("onedrive", "/Scans/scan.pdf"), pdf));
    EXPECT_TRUE(sameBytes(box_.sandbox().fileContent("box", "/Scans/scan.pdf", box_.sandboxAccount().userId), pdf));
    EXPECT_TRUE(sameBytes(evernote_.sandbox().fileContent("evernote", "/Scans/scan.pdf", evernote_.sandboxAccount().userId),
                          pdf));
}

TEST_F(GoogleDriveThroughTheEngine, AScanIsStoredAsAPdfWhereTheServiceKeepsContentTypes) {
    VXCloudAccountList accounts = {dropbox_.account(), fx_.account()};
    const std::string pdf = "%PDF-1.7\n" + documentBytes(20 * 1024, 78);
    ASSERT_TRUE(host_.start("typed scan.pdf", pdf, Json("document-8"), accounts).is_array());
    const Json records = host_.expectOneNotification()["uploadStatus"]["uploadStatusResponse"];
    ASSERT_EQ(records.size(), 2u) << records.dump();
    for (const Json& record : records) EXPECT_EQ(record["status"], "successful") << record.dump();

    // Drive keeps the type the upload was sent with.
    auto scans = VXCloudFile::initWithUploadFolderInfo(fx_.account()->uploadFolderInfo);
    ASSERT_NE(scans, nullptr);
    const Json stored = fx_.liveFiles(*scans->id, "typed scan.pdf");
    ASSERT_EQ(stored.size(), 1u);
    EXPECT_EQ(fx_.fileById(stored[0]["id"].get<std::string>())["mimeType"], "application/pdf");
    // Dropbox's upload wire always says application/octet-stream and keeps no type, so what
    // can be seen there is the document under its .pdf name with its bytes.
    EXPECT_TRUE(sameBytes(dropbox_.sandbox().fileContent("dropbox", "/Scans/typed scan.pdf"), pdf));
}

}  // namespace
}  // namespace vxcloud::testing
