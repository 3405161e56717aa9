#include "vxcloud/model/VXCloudFile.h"
#include "providers/dropbox/DropboxItem.h"

namespace vxcloud {

std::shared_ptr<VXCloudFile> VXCloudFile::initWithMetadata(const dropbox::Metadata& metadata) {
    using Tag = dropbox::Metadata::Tag;
    if (metadata.tag == Tag::deleted) return nullptr;
    try {
        auto file = std::make_shared<VXCloudFile>(metadata.name, metadata.tag == Tag::folder, false);
        file->id = metadata.id;
        file->path = metadata.pathDisplay;
        if (metadata.tag == Tag::file) file->version = metadata.contentHash;
        return file;
    } catch (...) {
        return nullptr;
    }
}

}  // namespace vxcloud
