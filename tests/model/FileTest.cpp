#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <type_traits>

#include "vxcloud/model/VXCloudFile.h"

namespace vxcloud {
namespace {

using nlohmann::json;

TEST(CloudFile, DesignatedInitialiserLeavesOptionalsEmpty) {
    static_assert(!std::is_default_constructible_v<VXCloudFile>);
    VXCloudFile file("scan.pdf", false, false);
    EXPECT_EQ(file.name, "scan.pdf");
    EXPECT_FALSE(file.isFolder);
    EXPECT_FALSE(file.isRootFolder);
    EXPECT_FALSE(file.id || file.path || file.mimeType || file.needsUpdate || file.needsRenameUpdate ||
                 file.error || file.status || file.version || file.localVersion || file.parentIds ||
                 file.parentPath || file.fileData || file.fileUploadStatus || file.uploadFolder ||
                 file.fileIdentifier || file.isOneNoteNotebook);
}

TEST(CloudFile, UploadFolderFromInfo) {
    const json info = {{"uploadFolderId", "id:42"},
                       {"uploadFolderName", "Scans \"2024\""},
                       {"uploadFolderPath", "/Work/Scans \"2024\""}};
    auto folder = VXCloudFile::initWithUploadFolderInfo(info);
    ASSERT_NE(folder, nullptr);
    EXPECT_EQ(folder->name, "Scans \"2024\"");
    EXPECT_EQ(folder->id, "id:42");
    EXPECT_EQ(folder->path, "/Work/Scans \"2024\"");
    EXPECT_TRUE(folder->isFolder);
    EXPECT_FALSE(folder->isRootFolder);
    EXPECT_FALSE(folder->version);
    EXPECT_NE(initUploadFolderFromDictionary(info), nullptr);

    // All three keys are required, as strings, with exactly these names.
    for (const char* key : {"uploadFolderId", "uploadFolderName", "uploadFolderPath"}) {
        json missing = info;
        missing.erase(key);
        EXPECT_EQ(VXCloudFile::initWithUploadFolderInfo(missing), nullptr) << key;
        json wrongType = info;
        wrongType[key] = 42;
        EXPECT_EQ(VXCloudFile::initWithUploadFolderInfo(wrongType), nullptr) << key;
    }
    json wrongCase = info;
    wrongCase.erase("uploadFolderPath");
    wrongCase["uploadfolderpath"] = "/x";
    EXPECT_EQ(VXCloudFile::initWithUploadFolderInfo(wrongCase), nullptr);
    EXPECT_EQ(VXCloudFile::initWithUploadFolderInfo(JsonBox()), nullptr);
    EXPECT_EQ(VXCloudFile::initWithUploadFolderInfo(json::array({info})), nullptr);
    EXPECT_EQ(VXCloudFile::initWithUploadFolderInfo(json("/Scans")), nullptr);
}

TEST(CloudFile, NameAndVersionFromUploadStatus) {
    VXCloudFile file("local.pdf", false, false);
    EXPECT_EQ(file.getNameFromUploadStatus(), "local.pdf");
    EXPECT_EQ(file.getVersionFromUploadStatus(), std::nullopt);

    file.fileUploadStatus = json{{"documentId", "abc"}, {"version", "v7"}};
    EXPECT_EQ(file.getNameFromUploadStatus(), "abc");
    EXPECT_EQ(file.getVersionFromUploadStatus(), "v7");

    file.fileUploadStatus = json{{"documentId", 5}, {"version", nullptr}};
    EXPECT_EQ(file.getNameFromUploadStatus(), "local.pdf");
    EXPECT_EQ(file.getVersionFromUploadStatus(), std::nullopt);

    file.fileUploadStatus = json::array({"documentId", "abc"});
    EXPECT_EQ(file.getNameFromUploadStatus(), "local.pdf");
}

}  // namespace
}  // namespace vxcloud
