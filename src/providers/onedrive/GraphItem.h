#pragma once
// The Microsoft Graph driveItem as the OneDrive client reads it: the fields the session
// needs, nothing else. Private to the library.
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace vxcloud::onedrive {

struct Item {
    std::string id;
    std::string name;
    std::optional<std::int64_t> size;
    bool isFile = false;    // has a `file` facet
    bool isFolder = false;  // has a `folder` facet
    bool isRoot = false;    // has a `root` facet
    std::optional<std::string> mimeType;
    // file.hashes: SHA-1 in hex (personal drives only, and no longer guaranteed there);
    // QuickXorHash in base64, the one digest every drive reports.
    std::optional<std::string> sha1Hash;
    std::optional<std::string> quickXorHash;
    std::optional<std::string> parentId;
    std::optional<std::string> parentPath;  // "/drive/root:/Docs"
    std::optional<std::string> driveType;   // from parentReference
    std::optional<std::string> lastModifiedDateTime;
};

enum class ConflictBehavior { fail, replace, rename };

struct ChildrenPage {
    std::vector<Item> items;
    std::optional<std::string> nextLink;  // absolute, followed verbatim
};

// GET /me/drive: the drive and whose it is.
struct Drive {
    std::string id;
    std::string driveType;
    std::string ownerId;
    std::string ownerName;
};

}  // namespace vxcloud::onedrive
