#pragma once
// Box's items as the Box client reads them: the fields the session needs, nothing else.
// Private to the library.
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace vxcloud::box {

// The top folder of every Box user.
inline constexpr const char* kRootFolderId = "0";

struct Item {
    std::string type;  // "file", "folder" or "web_link"
    std::string id;
    std::string name;
    std::optional<std::string> sha1;  // files: lower-case hex of the content
    std::optional<std::int64_t> size;
    std::optional<std::string> etag;
    std::optional<std::string> parentId;
    std::optional<std::string> fileVersionId;

    bool isFolder() const { return type == "folder"; }
    bool isFile() const { return type == "file"; }
};

// GET /users/me.
struct User {
    std::string id;
    std::string name;
    std::string login;  // the e-mail address the person signs in with
};

}  // namespace vxcloud::box
