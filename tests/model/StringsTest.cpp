#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <set>

#include "vxcloud/engine/VXCloudUtils.h"
#include "vxcloud/model/VXCloudConstants.h"
#include "vxcloud/platform/ResourceBundle.h"

namespace vxcloud {
namespace {

// msgid -> translator comment, read from the catalog template.
std::map<std::string, std::string> readTemplate(const std::string& path) {
    std::map<std::string, std::string> entries;
    std::ifstream in(path);
    std::string line, comment;
    auto unquote = [](std::string_view text) {
        std::string out;
        for (std::size_t i = 1; i + 1 < text.size(); ++i) {
            if (text[i] == '\\' && i + 2 < text.size()) ++i;
            out += text[i];
        }
        return out;
    };
    while (std::getline(in, line)) {
        if (line.rfind("#. ", 0) == 0) comment = line.substr(3);
        if (line.rfind("msgid ", 0) == 0) {
            entries[unquote(std::string_view(line).substr(6))] = comment;
            comment.clear();
        }
    }
    return entries;
}

TEST(CloudStrings, EnglishTextsAndCatalogTemplate) {
    const auto entries = VXCloudString::entries();
    ASSERT_EQ(entries.size(), 43u);
    EXPECT_EQ(entries.front().name, "BACK");
    EXPECT_EQ(entries.back().name, "SECTIONS");

    // Without a catalog for the language every text is its English form.
    EXPECT_EQ(VXCloudString::BACK(), "Back");
    EXPECT_EQ(VXCloudString::NEW_COLLECTION_PLACEHOLDER(), "Untitled");
    EXPECT_EQ(VXCloudString::SELECT_DEFAULT_FOLDER(), "Upload Here");
    // The wording is the product's own, unevened: no full stop here, and two forms of
    // the product name.
    EXPECT_EQ(VXCloudString::GENERIC_ERROR(),
              "An error has occurred while connecting to the cloud service. Please check your "
              "internet connection and try again");
    EXPECT_NE(VXCloudString::AUTHENTICATION_ERROR().find(" Quillo needs permission"), std::string::npos);
    EXPECT_NE(VXCloudString::MAX_ACCOUNTS_FOR_SERVICE_ERROR().find("tied with Quillo."), std::string::npos);
    EXPECT_EQ(VXCloudString::DOCUMENT_ERROR_FOLDER().rfind("Quillo Pro was unable", 0), 0u);

    const ResourceBundle* bundle = ResourceBundle::vxcloud();
    ASSERT_NE(bundle, nullptr);
    const auto catalog = readTemplate(bundle->path() + "/Localizable.pot");
    std::set<std::string_view> seen;
    for (const auto& entry : entries) {
        SCOPED_TRACE(std::string(entry.name));
        EXPECT_TRUE(seen.insert(entry.english).second) << "duplicate text";
        EXPECT_EQ(VXCloudString::localized(entry.english), entry.english);
        auto it = catalog.find(std::string(entry.english));
        ASSERT_NE(it, catalog.end());
        EXPECT_EQ(it->second, entry.comment);
    }
    // The bundle is located once however many texts are looked up.
    EXPECT_EQ(ResourceBundle::locateCount(), 1);
}

TEST(CloudStrings, NotificationNames) {
    EXPECT_STREQ(VXCloudAuthNotification, "VXCloudAuthNotification");
    EXPECT_STREQ(VXCloudAccountUnlinkedNotification, "VXCloudAccountUnlinkedNotification");
    EXPECT_STREQ(VXCloudAutoUploadFlagChangedNotification, "VXCloudAutoUploadFlagChangedNotification");
    EXPECT_STREQ(VXCloudSelectedUploadFolderNotification, "VXCloudSelectedUploadFolderNotification");
    EXPECT_STREQ(VXCloudUploadStatusNotification, "VXCloudUploadStatusNotification");
}

TEST(CloudUtils, MimeTypeByFirstByte) {
    auto of = [](std::initializer_list<std::uint8_t> bytes) {
        return mimeType(ByteBuffer::copyOf(std::span<const std::uint8_t>(bytes.begin(), bytes.size())));
    };
    EXPECT_EQ(mimeType(ByteBuffer()), "application/octet-stream");
    EXPECT_EQ(mimeType(ByteBuffer::copyOf(std::string_view("%PDF-1.7"))), "application/pdf");
    EXPECT_EQ(mimeType(ByteBuffer::copyOf(std::string_view("%garbage"))), "application/pdf");
    EXPECT_EQ(mimeType(ByteBuffer::copyOf(std::string_view("Four score"))), "text/plain");
    EXPECT_EQ(of({71}), "image/gif");
    EXPECT_EQ(of({73, 73}), "image/tiff");
    EXPECT_EQ(of({77, 77}), "image/tiff");
    EXPECT_EQ(of({137, 80, 78, 71}), "image/png");
    EXPECT_EQ(of({208, 207}), "application/vnd");
    EXPECT_EQ(of({255, 216}), "image/jpeg");
    EXPECT_EQ(of({0}), "application/octet-stream");
    EXPECT_EQ(of({36}), "application/octet-stream");
}

TEST(CloudUtils, ServiceNamesAndImages) {
    namespace fs = std::filesystem;
    const char* names[] = {"Google Drive", "Dropbox", "OneDrive", "OneNote", "Box", "Evernote", "WebDAV"};
    const char* icons[] = {"google-drive", "dropbox", "onedrive", "onenote", "box", "evernote", "webdav"};
    for (std::size_t i = 0; i < allCloudServices.size(); ++i) {
        EXPECT_EQ(displayName(allCloudServices[i]), names[i]);
        auto path = image(allCloudServices[i]);
        ASSERT_TRUE(path) << names[i];
        EXPECT_TRUE(fs::is_regular_file(*path));
        EXPECT_EQ(fs::path(*path).stem(), icons[i]);
    }
    const std::pair<std::optional<std::string> (*)(), const char*> statusImages[] = {
        {&VXCloudUploadImage, "upload"},
        {&VXCloudPendingImage, "upload-pending"},
        {&VXCloudSuccessImage, "upload-success"},
        {&VXCloudAccountErrorImage, "account-error"},
        {&VXCloudConnectionErrorImage, "connection-error"},
    };
    for (const auto& [function, name] : statusImages) {
        auto path = function();
        ASSERT_TRUE(path) << name;
        EXPECT_TRUE(fs::is_regular_file(*path)) << *path;
        EXPECT_EQ(fs::path(*path).stem(), name);
    }
}

TEST(CloudUtils, StackIsLastInFirstOut) {
    VXCloudStack<std::string> stack;
    EXPECT_TRUE(stack.isEmpty());
    EXPECT_EQ(stack.pop(), std::nullopt);
    EXPECT_EQ(stack.top(), nullptr);
    stack.push("root");
    stack.push("Scans");
    stack.push("2024");
    EXPECT_EQ(stack.count(), 3u);
    EXPECT_EQ(*stack.top(), "2024");
    EXPECT_EQ(stack.array.back(), "2024");
    EXPECT_EQ(stack.pop(), "2024");
    EXPECT_EQ(stack.pop(), "Scans");
    EXPECT_EQ(stack.count(), 1u);
    EXPECT_EQ(stack.array, std::vector<std::string>{"root"});
}

}  // namespace
}  // namespace vxcloud
