#pragma once
// The Dropbox items the client hands to the sessions and the file record. Private to the
// library: public headers only forward-declare Metadata (for VXCloudFile::initWithMetadata).
#include <cstdint>
#include <optional>
#include <string>

namespace vxcloud::dropbox {

// One item of a Dropbox listing or route result (file, folder, or deleted entry).
struct Metadata {
    enum class Tag { file, folder, deleted };
    Tag tag = Tag::file;
    std::string name;
    std::optional<std::string> id;           // "id:..." (not for deleted entries)
    std::optional<std::string> pathLower;
    std::optional<std::string> pathDisplay;
    std::optional<std::string> rev;          // files only
    std::optional<std::string> contentHash;  // files only
    std::optional<std::int64_t> size;        // files only
};

enum class WriteMode { add, overwrite };

}  // namespace vxcloud::dropbox
