#include "vxcloud/model/VXCloudService.h"

#include "vxcloud/model/VXCloudServiceRegistry.h"

namespace vxcloud {

std::string_view accountType(VXCloudService service) noexcept { return serviceDescriptor(service).typeWord; }
std::string_view keyPrefix(VXCloudService service) noexcept { return serviceDescriptor(service).keyPrefix; }
std::string_view accountIconName(VXCloudService service) noexcept { return serviceDescriptor(service).iconName; }

std::optional<VXCloudService> cloudServiceFromType(std::string_view type) noexcept {
    for (VXCloudService service : allCloudServices) {
        if (accountType(service) == type) return service;
    }
    return std::nullopt;
}

}  // namespace vxcloud
