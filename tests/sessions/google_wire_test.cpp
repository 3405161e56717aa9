// Drive's file resource as the client reads it, and the file record made from it: the
// rules the sandbox's queries hide (trashed items never come back from the session's
// searches, so their rule is shown here).
#include <gtest/gtest.h>

#include "../../src/providers/google/GoogleDriveClient.h"
#include "vxcloud/model/VXCloudFile.h"

namespace vxcloud::testing {
namespace {

using nlohmann::json;

TEST(DriveRecord, ResourceShapesBecomeRecordsAndTrashedItemsNone) {
    // int64 values travel as strings; parents is a list of ids.
    auto file = drive::parseFile(json::parse(R"({"kind": "drive#file", "id": "1XyZ", "name": "scan.pdf",
        "mimeType": "application/pdf", "md5Checksum": "5eb63bbbe01eeed093cb22bb8f5acdc3", "size": "11",
        "parents": ["1AbC"], "trashed": false, "someNewField": {"x": 1}})"));
    ASSERT_TRUE(file);
    EXPECT_EQ(file->size, 11);
    auto record = VXCloudFile::initWithFile(*file);
    ASSERT_NE(record, nullptr);
    EXPECT_EQ(record->name, "scan.pdf");
    EXPECT_FALSE(record->isFolder);
    EXPECT_FALSE(record->isRootFolder);
    EXPECT_EQ(record->id, "1XyZ");
    EXPECT_EQ(record->version, "5eb63bbbe01eeed093cb22bb8f5acdc3");
    EXPECT_EQ(record->mimeType, "application/pdf");
    EXPECT_EQ(record->parentIds, (std::vector<std::string>{"1AbC"}));

    auto folder = drive::parseFile(
        json::parse(R"({"id": "1F", "name": "Scans", "mimeType": "application/vnd.google-apps.folder"})"));
    ASSERT_TRUE(folder);
    record = VXCloudFile::initWithFile(*folder);
    ASSERT_NE(record, nullptr);
    EXPECT_TRUE(record->isFolder);
    EXPECT_FALSE(record->version.has_value());

    // Only the folder type makes a folder; a Google document is not one.
    auto doc = drive::parseFile(json::parse(R"({"id": "1D", "name": "Notes",
        "mimeType": "application/vnd.google-apps.document"})"));
    ASSERT_TRUE(doc);
    EXPECT_FALSE(VXCloudFile::initWithFile(*doc)->isFolder);

    auto trashed = drive::parseFile(json::parse(R"({"id": "1T", "name": "old.pdf", "trashed": true})"));
    ASSERT_TRUE(trashed);
    EXPECT_EQ(VXCloudFile::initWithFile(*trashed), nullptr);

    // A field with the wrong type is an answer that cannot be read, not a guess.
    for (const char* broken : {R"({"id": 7})", R"({"id": "1", "size": "-3"})", R"({"id": "1", "size": true})",
                               R"({"id": "1", "parents": "1AbC"})", R"({"id": "1", "parents": [1]})",
                               R"({"id": "1", "trashed": "no"})", R"(["not", "an", "object"])"}) {
        EXPECT_FALSE(drive::parseFile(json::parse(broken))) << broken;
    }
}

TEST(DriveRecord, MetadataCarriesOnlyWhatIsSet) {
    EXPECT_EQ(drive::metadataJson({}).dump(), "{}") << "a move's body is an empty object";
    drive::FileMetadata created;
    created.name = "Résumé.pdf";
    created.parents = std::vector<std::string>{"root"};
    EXPECT_EQ(drive::metadataJson(created), json::parse(R"({"name": "Résumé.pdf", "parents": ["root"]})"));
}

}  // namespace
}  // namespace vxcloud::testing
