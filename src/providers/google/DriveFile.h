#pragma once
// The Drive file resource as the client hands it to the sessions and the file record.
// Private to the library: public headers only forward-declare File (for
// VXCloudFile::initWithFile).
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace vxcloud::drive {

// The fields of a Drive file resource that the component reads. Each is set only when the
// answer held it (a field selection leaves the others out).
struct File {
    std::optional<std::string> identifier;  // "id"
    std::optional<std::string> name;
    std::optional<std::string> mimeType;
    std::optional<std::string> md5Checksum;
    std::optional<std::vector<std::string>> parents;
    std::optional<bool> trashed;
    std::optional<std::int64_t> size;
    std::optional<std::string> modifiedTime;  // RFC 3339, UTC
};

inline constexpr const char* kFolderMimeType = "application/vnd.google-apps.folder";

}  // namespace vxcloud::drive
