#include "providers/box/BoxItem.h"
#include "vxcloud/model/VXCloudFile.h"

namespace vxcloud {

std::shared_ptr<VXCloudFile> VXCloudFile::initWithBoxItem(const box::Item& item) {
    try {
        auto file = std::make_shared<VXCloudFile>(item.name, item.isFolder(), false);
        file->id = item.id;
        if (item.isFile()) file->version = item.sha1;
        if (item.parentId) file->parentIds = std::vector<std::string>{*item.parentId};
        return file;
    } catch (...) {
        return nullptr;
    }
}

}  // namespace vxcloud
