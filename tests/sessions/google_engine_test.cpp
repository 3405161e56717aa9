// End to end: the host's upload call through the task manager and the upload queue to a
// Dropbox and a Google Drive account on one sandbox, ending in the one status notification.
#include <gtest/gtest.h>

#include <fstream>
#include <mutex>
#include <nlohmann/json.hpp>

#include "sessions/GoogleDriveFixture.h"
#include "sessions/SessionTestSupport.h"
#include "vxcloud/auth/VXCloudTokenStore.h"
#include "vxcloud/engine/VXCloudTaskManager.h"
#include "vxcloud/model/VXCloudConstants.h"
#include "vxcloud/model/VXCloudFileHasher.h"
#include "vxcloud/model/VXCloudUserDefaults.h"
#include "vxcloud/platform/Dispatch.h"
#include "vxcloud/platform/NotificationCenter.h"
#include "vxcloud/platform/Reachability.h"
#include "vxcloud/sessions/VXCloudServiceConfig.h"

namespace vxcloud::testing {
namespace {

class GoogleDriveThroughTheEngine : public ::testing::Test {
protected:
    void SetUp() override {
        std::string error;
        ASSERT_TRUE(fx_.setUp(error)) << error;
        Reachability::setOverride(NetworkPath::wifi);
        observer_ = NotificationCenter::defaultCenter().addObserver(
            VXCloudUploadStatusNotification, nullptr, [this](const Notification& notification) {
                std::lock_guard lock(mutex_);
                received_.push_back(notification.userInfo.value_or_null());
            });
    }
    void TearDown() override {
        NotificationCenter::defaultCenter().removeObserver(observer_);
        Reachability::setOverride(std::nullopt);
        VXCloudServiceConfig::reset(VXCloudService::dropbox);
    }
    std::size_t receivedCount() {
        std::lock_guard lock(mutex_);
        return received_.size();
    }

    // The sandbox's Dropbox account, linked beside the Drive one, with "/Scans" as its folder.
    std::shared_ptr<VXCloudAccount> linkDropbox() {
        sandbox::Sandbox& sandbox = fx_.sandbox();
        VXCloudServiceEndpoints endpoints;
        endpoints.apiBase = sandbox.endpoint("dropbox", "api");
        endpoints.contentBase = sandbox.endpoint("dropbox", "content");
        endpoints.tokenUrl = sandbox.endpoint("dropbox", "token");
        VXCloudServiceConfig::setEndpoints(VXCloudService::dropbox, endpoints);
        const auto person = sandbox.account("dropbox");
        VXCloudOAuthToken token;
        token.accessToken = person.accessToken;
        token.refreshToken = person.refreshToken;
        if (!VXCloudTokenStore::save(VXCloudService::dropbox, person.userId, token)) return nullptr;
        sandbox.putFolder("dropbox", "/Scans");
        auto account = std::make_shared<VXCloudAccount>(person.userId, person.email, VXCloudService::dropbox);
        account->shouldAutoUpload = true;
        account->onlyWifiUpload = false;
        account->uploadFolderInfo = Json{{VXCloudFile::kUploadFolderIdKey, "id:scans"},
                                         {VXCloudFile::kUploadFolderNameKey, "Scans"},
                                         {VXCloudFile::kUploadFolderPathKey, "/Scans"}};
        return VXCloudUserDefaults::saveCloudAccount(*account) ? account : nullptr;
    }

    GoogleDriveFixture fx_;
    NotificationCenter::ObserverToken observer_;
    std::mutex mutex_;
    std::vector<Json> received_;
};

TEST_F(GoogleDriveThroughTheEngine, OnePdfToDropboxAndDriveEndsInOneNotificationWithTwoSuccesses) {
    auto dropbox = linkDropbox();
    ASSERT_NE(dropbox, nullptr);
    VXCloudAccountList accounts = {dropbox, fx_.account()};

    TempFolder temp;
    const std::string pdf = documentBytes(300 * 1024, 77);
    const std::string pdfPath = temp.file("scan.pdf");
    std::ofstream(pdfPath, std::ios::binary) << pdf;

    const Json pending = VXCloudTaskManager::sharedInstance()->uploadWithFilename(
        "scan.pdf", pdfPath, JsonBox(), false, Json("document-7"), accounts, true);
    ASSERT_TRUE(pending.is_array());
    EXPECT_EQ(pending.size(), 2u);

    auto main = DispatchQueue::main();
    ASSERT_TRUE(main->runUntil([&] { return receivedCount() >= 1; }, 30s)) << "no status notification";
    main->runUntil([] { return false; }, 300ms);  // a second one would be right behind
    ASSERT_EQ(receivedCount(), 1u);

    const Json& status = received_.front()["uploadStatus"];
    EXPECT_EQ(status["fileIdentifier"], "document-7");
    const Json& records = status["uploadStatusResponse"];
    ASSERT_EQ(records.size(), 2u) << status.dump();
    const ByteBuffer bytes = ByteBuffer::copyOf(pdf);
    for (const Json& record : records) {
        EXPECT_EQ(record["status"], "successful") << record.dump();
        EXPECT_EQ(record["documentId"], "scan.pdf");
        if (record["accountType"] == "google_drive") {
            EXPECT_EQ(record["version"], VXCloudFileHasher::md5Hash(bytes));
            EXPECT_EQ(record["accountId"], fx_.account()->email);
        } else {
            EXPECT_EQ(record["accountType"], "dropbox");
            EXPECT_EQ(record["version"], VXCloudFileHasher::dropboxHash(bytes).value_or(""));
        }
    }
    auto scans = VXCloudFile::initWithUploadFolderInfo(fx_.account()->uploadFolderInfo);
    ASSERT_NE(scans, nullptr);
    EXPECT_TRUE(sameBytes(fx_.remoteContent(*scans, "scan.pdf"), pdf));
    EXPECT_TRUE(sameBytes(fx_.sandbox().fileContent("dropbox", "/Scans/scan.pdf"), pdf));
}

}  // namespace
}  // namespace vxcloud::testing
