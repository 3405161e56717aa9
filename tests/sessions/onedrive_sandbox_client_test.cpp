// Our Graph client, unchanged, against the sandbox's Graph emulator through the role URLs
// the sandbox publishes: folders, uploads simple and in a session (one fragment's answer
// lost after it was stored), pages through nextLink, rename and move, a download through the
// redirect, delete. The client's QuickXorHash and the emulator's, written apart, must agree.
#include <gtest/gtest.h>

#include "../../src/providers/onedrive/GraphClient.h"
#include "support/SandboxFixture.h"
#include "vxcloud/auth/VXCloudTokenStore.h"
#include "vxcloud/model/VXCloudFileHasher.h"

namespace vxcloud {
namespace {

class OneDriveSandboxClient : public testing::SandboxTest<> {
protected:
    void SetUp() override {
        SandboxTest::SetUp();
        if (HasFatalFailure()) return;
        ASSERT_TRUE(fx_.pointAt(VXCloudService::oneDrive));
        VXCloudOAuthToken token;
        token.accessToken = fx_.sandbox().account("onedrive").accessToken;
        token.expiresAt = 4102444800;
        ASSERT_TRUE(VXCloudTokenStore::save(VXCloudService::oneDrive, "sandbox-graph", token));
        onedrive::ClientOptions options;
        options.endpoints = VXCloudServiceConfig::endpoints(VXCloudService::oneDrive);
        options.limits.maxSingleRequestBytes = 1024;
        options.limits.chunkBytes = onedrive::kFragmentUnit;
        options.retry.baseDelay = std::chrono::milliseconds(1);
        client_ = std::make_unique<onedrive::GraphClient>(
            std::make_shared<oauth::TokenProvider>(VXCloudService::oneDrive, "sandbox-graph"), options);
    }

    std::unique_ptr<onedrive::GraphClient> client_;
};

TEST_F(OneDriveSandboxClient, EveryCallOfTheClientWorksAgainstTheEmulator) {
    auto drive = client_->getDrive();
    ASSERT_TRUE(drive.ok()) << drive.error().message;
    EXPECT_EQ(drive.value().driveType, "personal");
    EXPECT_EQ(drive.value().ownerName, fx_.sandbox().account("onedrive").displayName);

    auto folder = client_->createFolder("root", "Scans");
    ASSERT_TRUE(folder.ok()) << folder.error().message;
    EXPECT_TRUE(folder.value().isFolder);
    auto again = client_->createFolder("root", "Scans");
    ASSERT_FALSE(again.ok());
    EXPECT_EQ(again.error().httpStatus, 409);
    const std::string scans = folder.value().id;

    const auto small = ByteBuffer::copyOf(std::string_view("%PDF-small"));
    ASSERT_TRUE(client_->upload(scans, "small.pdf", small, onedrive::ConflictBehavior::fail).ok());
    EXPECT_EQ(client_->upload(scans, "small.pdf", small, onedrive::ConflictBehavior::fail).error().httpStatus, 409);
    auto renamed = client_->upload(scans, "small.pdf", small, onedrive::ConflictBehavior::rename);
    ASSERT_TRUE(renamed.ok()) << renamed.error().message;
    EXPECT_EQ(renamed.value().name, "small 1.pdf");

    // The second fragment is stored but its answer is lost: the client asks the session.
    std::string bytes(3 * onedrive::kFragmentUnit + 12345, '\0');
    for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<char>(i * 7 + i / 1000);
    ASSERT_TRUE(fx_.queueFault("onedrive/upload/fragment", "skip=1;drop-response-after=0"));
    auto big = client_->upload(scans, "big scan.pdf", ByteBuffer::copyOf(bytes), onedrive::ConflictBehavior::fail);
    ASSERT_TRUE(big.ok()) << big.error().message;
    EXPECT_EQ(big.value().size, static_cast<std::int64_t>(bytes.size()));
    EXPECT_EQ(big.value().quickXorHash, VXCloudFileHasher::quickXorHash(ByteBuffer::copyOf(bytes)));
    EXPECT_TRUE(fx_.sandbox().fileContent("onedrive", "/Scans/big scan.pdf") == bytes);
    EXPECT_EQ(fx_.routeStats("onedrive/upload/fragment").faultsHit, 1);
    EXPECT_GE(fx_.routeStats("onedrive/upload/status").requests, 1);
    EXPECT_EQ(fx_.routeStats("onedrive/*").statuses.count(401), 0u) << "no token where none belongs";

    ASSERT_TRUE(fx_.sandbox().configure("onedrive", {{"children_page_size", 1}}));
    auto page = client_->listChildren(scans);
    std::vector<std::string> names;
    for (int pages = 0; page.ok() && pages < 10; ++pages) {
        for (const auto& item : page.value().items) names.push_back(item.name);
        if (!page.value().nextLink) break;
        page = client_->nextPage(*page.value().nextLink);
    }
    ASSERT_TRUE(page.ok()) << page.error().message;
    EXPECT_EQ(names, (std::vector<std::string>{"small.pdf", "small 1.pdf", "big scan.pdf"}));
    EXPECT_EQ(client_->listChildrenAtPath("Scans").value().items.size(), 1u);

    auto found = client_->getItemAtPath("Scans/big scan.pdf");
    ASSERT_TRUE(found.ok()) << found.error().message;
    EXPECT_EQ(found.value().parentPath, "/drive/root:/Scans");
    // The root by its real id: Graph documents the "root" alias for addresses, not for references.
    const std::string rootId = client_->getItem("root").value().id;
    auto moved = client_->update(found.value().id, std::string("kept.pdf"), rootId);
    ASSERT_TRUE(moved.ok()) << moved.error().message;
    EXPECT_EQ(moved.value().parentPath, "/drive/root:");
    auto content = client_->downloadAtPath("kept.pdf");
    ASSERT_TRUE(content.ok()) << content.error().message;
    EXPECT_TRUE(content.value().toString() == bytes);

    ASSERT_TRUE(client_->deleteItem(moved.value().id).ok());
    EXPECT_EQ(client_->getItem(moved.value().id).error().httpStatus, 404);
    EXPECT_EQ(fx_.routeStats("onedrive/*").statuses.count(401), 0u);
}

}  // namespace
}  // namespace vxcloud
