// Moves run side by side, at most four update requests at a time, as the sandbox counts
// them; every file is reported once, in one callback.
#include <gtest/gtest.h>

#include <set>

#include "sessions/GoogleDriveFixture.h"
#include "vxcloud/model/VXCloudFileHasher.h"

namespace vxcloud::testing {
namespace {

class GoogleDriveMoveConcurrency : public SandboxTest<GoogleDriveFixture> {};

TEST_F(GoogleDriveMoveConcurrency, SixFilesMoveWithNoMoreThanFourUpdatesInFlight) {
    auto from = fx_.makeFolder("Inbox");
    auto to = fx_.makeFolder("Archive");
    VXCloudFileList files;
    std::set<VXCloudFile*> expected;
    for (int i = 0; i < 6; ++i) {
        const std::string name = "scan-" + std::to_string(i) + ".pdf";
        const std::string bytes = documentBytes(1000 + i, 40 + i);
        ASSERT_FALSE(fx_.createFile(*from->id, name, bytes).empty());
        const std::string md5 = VXCloudFileHasher::md5Hash(ByteBuffer::copyOf(bytes));
        files.push_back(makeStoredDocument(*fx_.account(), name, md5, bytes, std::nullopt));
        expected.insert(files.back().get());
    }
    // Each update is held a while, so the ones allowed to run overlap.
    ASSERT_TRUE(fx_.fault("files/update", "delay=400", 6));
    fx_.sandbox().resetStats();

    auto session = fx_.makeDriveSession();
    auto delegate = std::make_shared<RecordingDelegate>();
    session->setCloudSessionDelegate(delegate);
    session->moveWithCloudFiles(files, from, to);
    session.reset();  // the session holds itself until it has reported
    const SessionEvent event = delegate->expectOneOutcome();
    ASSERT_EQ(event.kind, SessionEvent::Kind::didMove);
    EXPECT_TRUE(event.notMoved.empty());
    std::set<VXCloudFile*> moved;
    for (const auto& file : event.files) moved.insert(file.get());
    EXPECT_EQ(moved, expected);

    const auto stats = fx_.stats("files/update");
    EXPECT_EQ(stats.requests, 6);
    EXPECT_LE(stats.maxInFlight, 4);
    EXPECT_GE(stats.maxInFlight, 2) << "the moves ran side by side";
    for (int i = 0; i < 6; ++i) {
        EXPECT_TRUE(fx_.remoteContent(*to, "scan-" + std::to_string(i) + ".pdf").has_value()) << i;
    }
}

}  // namespace
}  // namespace vxcloud::testing
