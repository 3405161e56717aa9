#include "providers/onedrive/GraphItem.h"
#include "vxcloud/model/VXCloudFile.h"

namespace vxcloud {

std::shared_ptr<VXCloudFile> VXCloudFile::initWithOneDriveItem(const onedrive::Item& item) {
    try {
        auto file = std::make_shared<VXCloudFile>(item.name, item.isFolder, false);
        file->id = item.id;
        // The version is the digest the drive reported: SHA-1 where it still gives one,
        // QuickXorHash everywhere else.
        if (item.isFile) file->version = item.sha1Hash ? item.sha1Hash : item.quickXorHash;
        return file;
    } catch (...) {
        return nullptr;
    }
}

}  // namespace vxcloud
