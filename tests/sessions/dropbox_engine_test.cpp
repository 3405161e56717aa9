// End to end: the host's upload call through the task manager and the upload queue to two
// Dropbox accounts on the sandbox, ending in the one status notification.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <set>

#include "sessions/DropboxFixture.h"
#include "sessions/HostUpload.h"
#include "vxcloud/model/VXCloudFileHasher.h"

namespace vxcloud::testing {
namespace {

class DropboxThroughTheEngine : public SandboxTest<DropboxFixture> {
protected:
    HostUpload host_;
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

    const std::string pdf = documentBytes(200 * 1024, 42);
    const Json pending = host_.start("scan.pdf", pdf, Json("document-1"), accounts);
    ASSERT_TRUE(pending.is_array());
    EXPECT_EQ(pending.size(), 2u);

    const Json info = host_.expectOneNotification();
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
