#include "vxcloud/model/VXCloudFile.h"
#include "providers/google/DriveFile.h"

namespace vxcloud {

std::shared_ptr<VXCloudFile> VXCloudFile::initWithFile(const drive::File& file) {
    if (file.trashed.value_or(false)) return nullptr;
    try {
        const bool folder = file.mimeType && *file.mimeType == drive::kFolderMimeType;
        auto record = std::make_shared<VXCloudFile>(file.name.value_or(""), folder, false);
        record->id = file.identifier;
        record->version = file.md5Checksum;
        record->mimeType = file.mimeType;
        record->parentIds = file.parents;
        return record;
    } catch (...) {
        return nullptr;
    }
}

}  // namespace vxcloud
