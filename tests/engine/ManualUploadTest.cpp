// Manual uploads: the host's files, account and delegates, outside the shared queue.
#include <gtest/gtest.h>

#include "EngineTestSupport.h"
#include "vxcloud/model/VXCloudFileHasher.h"

namespace vxcloud::enginetest {
namespace {

using ManualUploadTest = EngineTest;

std::shared_ptr<VXCloudFile> pickedFile(const std::string& name, std::optional<std::string> bytes,
                                        bool withFolder) {
    auto file = std::make_shared<VXCloudFile>(name, false, false);
    if (bytes) file->fileData = ByteBuffer::copyOf(*bytes);
    if (withFolder) file->uploadFolder = std::make_shared<VXCloudFile>("Picked", true, false);
    return file;
}

TEST_F(ManualUploadTest, OnlyFilesWithDataAndFolderAreSentToTheHostsDelegates) {
    const auto delegates = std::make_shared<CountingDelegate>();
    const auto acc = account("a@example.com", VXCloudService::box);
    const auto ready1 = pickedFile("one.pdf", "12345", true);
    const auto ready2 = pickedFile("two.pdf", "1234567", true);
    const VXCloudFileList files = {pickedFile("nodata.pdf", std::nullopt, true), ready1,
                                   pickedFile("nofolder.pdf", "xxxxxxxxx", false), ready2};

    EXPECT_EQ(manager()->manualUploadWithFiles({}, false, acc, delegates, delegates), 0);
    EXPECT_EQ(manager()->manualUploadWithFiles({files[0], files[2]}, false, acc, delegates, delegates), 0);
    EXPECT_EQ(manager()->manualUploadWithFiles(files, true, acc, delegates, delegates), 12);

    ASSERT_TRUE(script->waitForCalls(2));
    for (const auto& call : script->calls()) {
        EXPECT_TRUE(call.file == ready1 || call.file == ready2);
        EXPECT_EQ(call.folder, call.file->uploadFolder);
        EXPECT_TRUE(call.overwrite);
        // Always hashed, for the account's service.
        EXPECT_EQ(call.file->localVersion, VXCloudFileHasher::sha1Hash(*call.file->fileData));
        EXPECT_EQ(call.progress, delegates);
        EXPECT_EQ(call.session->cloudSessionDelegate(), delegates);
        answerUpload(call);
    }
    EXPECT_EQ(delegates->uploaded.load(), 2);
    // Outcomes went to the host, not through the shared queue, and made no records.
    EXPECT_EQ(uploadQueue()->operationCount(), 0u);
    DispatchQueue::main()->runUntil([] { return false; }, 100ms);
    EXPECT_EQ(notifications->count(), 0u);
}

}  // namespace
}  // namespace vxcloud::enginetest
