// End to end: the host's upload call through the task manager and the upload queue to two
// Dropbox accounts on the sandbox, ending in the one status notification.
#include <gtest/gtest.h>

#include <fstream>
#include <mutex>
#include <set>
#include <nlohmann/json.hpp>

#include "sessions/DropboxFixture.h"
#include "sessions/SessionTestSupport.h"
#include "vxcloud/engine/VXCloudTaskManager.h"
#include "vxcloud/model/VXCloudConstants.h"
#include "vxcloud/model/VXCloudFileHasher.h"
#include "vxcloud/platform/Dispatch.h"
#include "vxcloud/platform/NotificationCenter.h"
#include "vxcloud/platform/Reachability.h"

namespace vxcloud::testing {
namespace {

class DropboxThroughTheEngine : public ::testing::Test {
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
    }
    std::size_t receivedCount() {
        std::lock_guard lock(mutex_);
        return received_.size();
    }

    DropboxFixture fx_;
    NotificationCenter::ObserverToken observer_;
    std::mutex mutex_;
    std::vector<Json> received_;
};

TEST_F(DropboxThroughTheEngine, OneDocumentToTwoAccountsEndsInOneNotification) {
    const auto people = fx_.sandbox().accounts("dropbox");
    ASSERT_GE(people.size(), 2u);
    std::string error;
    auto second = fx_.linkAccount(people[1], error);
    ASSERT_NE(second, nullptr) << error;
    VXCloudAccountList accounts = {fx_.account(), second};

    // The upload folder was chosen in the folder picker, so it exists at both accounts.
    for (const auto& person : people) fx_.sandbox().putFolder("dropbox", "/Scans", person.userId);

    TempFolder temp;
    const std::string pdf = documentBytes(200 * 1024, 42);
    const std::string pdfPath = temp.file("scan.pdf");
    std::ofstream(pdfPath, std::ios::binary) << pdf;

    const Json pending = VXCloudTaskManager::sharedInstance()->uploadWithFilename(
        "scan.pdf", pdfPath, JsonBox(), false, Json("document-1"), accounts, true);
    ASSERT_TRUE(pending.is_array());
    EXPECT_EQ(pending.size(), 2u);

    auto main = DispatchQueue::main();
    ASSERT_TRUE(main->runUntil([&] { return receivedCount() >= 1; }, 30s)) << "no status notification";
    main->runUntil([] { return false; }, 300ms);  // a second one would be right behind
    ASSERT_EQ(receivedCount(), 1u);

    const Json& info = received_.front();
    ASSERT_TRUE(info.contains("uploadStatus")) << info.dump();
    const Json& status = info["uploadStatus"];
    EXPECT_EQ(status["fileIdentifier"], "document-1");
    const Json& records = status["uploadStatusResponse"];
    ASSERT_EQ(records.size(), 2u) << status.dump();
    const std::string hash = VXCloudFileHasher::dropboxHash(ByteBuffer::copyOf(pdf)).value_or("");
    std::set<std::string> accountIds;
    for (const Json& record : records) {
        EXPECT_EQ(record["status"], "successful") << record.dump();
        EXPECT_EQ(record["documentId"], "scan.pdf");
        EXPECT_EQ(record["version"], hash);
        EXPECT_EQ(record["accountType"], "dropbox");
        accountIds.insert(record["accountId"].get<std::string>());
    }
    EXPECT_EQ(accountIds, (std::set<std::string>{people[0].email, people[1].email}));
    for (const auto& person : people) {
        EXPECT_TRUE(sameBytes(fx_.sandbox().fileContent("dropbox", "/Scans/scan.pdf", person.userId), pdf)) << person.email;
    }
}

}  // namespace
}  // namespace vxcloud::testing
