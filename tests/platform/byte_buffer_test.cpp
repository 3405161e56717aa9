#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <optional>
#include <string>

#include "StoreTestSupport.h"
#include "vxcloud/platform/ByteBuffer.h"

namespace vxcloud {
namespace {

using testutil::TempFolder;

TEST(ByteBuffer, MapsAFileReadOnlyAndSharesItWithSlices) {
    TempFolder tmp;
    const std::string path = tmp / "scan.pdf";
    const std::string content = std::string("%PDF-1.7\n") + std::string(10000, '\0') + "end";
    testutil::writeWholeFile(path, content);

    std::optional<ByteBuffer> slice;
    {
        auto mapped = ByteBuffer::mapFile(path);
        ASSERT_TRUE(mapped);
        EXPECT_TRUE(mapped->isMapped());
        EXPECT_EQ(mapped->size(), content.size());
        EXPECT_EQ(mapped->view(), content);  // embedded zero bytes included

        // Copies and slices share the mapping instead of copying the bytes.
        const ByteBuffer copy = *mapped;
        EXPECT_EQ(copy.data(), mapped->data());
        slice = mapped->slice(content.size() - 3, 100);  // clipped at the end
        EXPECT_EQ(slice->data(), mapped->data() + content.size() - 3);
        EXPECT_TRUE(slice->isMapped());
    }
    // The slice keeps the mapping alive after every other holder is gone.
    EXPECT_EQ(slice->view(), "end");
    EXPECT_TRUE(slice->slice(3, 1).empty());  // past the end: empty, not a wild pointer
}

TEST(ByteBuffer, FilesThatCannotBeMappedGiveAReasonAndEmptyFilesAnEmptyBuffer) {
    TempFolder tmp;
    std::string error;
    EXPECT_FALSE(ByteBuffer::mapFile(tmp / "missing.pdf", &error));
    EXPECT_EQ(error, std::strerror(ENOENT));

    error.clear();
    EXPECT_FALSE(ByteBuffer::mapFile(tmp.path(), &error));  // a folder
    EXPECT_EQ(error, std::strerror(EISDIR));

    EXPECT_FALSE(ByteBuffer::mapFile(tmp / "missing.pdf"));  // no error text asked for

    testutil::writeWholeFile(tmp / "empty.pdf", "");
    auto empty = ByteBuffer::mapFile(tmp / "empty.pdf");
    ASSERT_TRUE(empty);
    EXPECT_TRUE(empty->empty());
    EXPECT_EQ(*empty, ByteBuffer());
}

TEST(ByteBuffer, MemoryBuffersOwnTheirBytes) {
    std::string source = "original";
    const ByteBuffer copied = ByteBuffer::copyOf(std::string_view(source));
    source[0] = 'X';
    EXPECT_EQ(copied.view(), "original");  // copyOf does not alias its source
    EXPECT_FALSE(copied.isMapped());

    std::vector<std::uint8_t> bytes = {1, 2, 3};
    const std::uint8_t* where = bytes.data();
    const ByteBuffer adopted = ByteBuffer::adopt(std::move(bytes));
    EXPECT_EQ(adopted.data(), where);  // adopt takes the storage over without copying
    EXPECT_EQ(adopted.size(), 3u);
    EXPECT_TRUE(ByteBuffer().empty());
    EXPECT_FALSE(ByteBuffer().isMapped());
}

}  // namespace
}  // namespace vxcloud
