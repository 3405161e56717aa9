#include "vxcloud/engine/VXCloudUtils.h"

#include "vxcloud/model/VXCloudConstants.h"
#include "vxcloud/model/VXCloudServiceRegistry.h"
#include "vxcloud/platform/ResourceBundle.h"

namespace vxcloud {
namespace {

std::optional<std::string> bundleImage(const char* name) {
    const ResourceBundle* bundle = ResourceBundle::vxcloud();
    if (!bundle) return std::nullopt;
    return bundle->imagePath(name);
}

}  // namespace

std::string mimeType(const ByteBuffer& data) {
    const std::uint8_t first = data.empty() ? 0 : data.data()[0];
    switch (first) {
        case 37: return "application/pdf";
        case 70: return "text/plain";
        case 71: return "image/gif";
        case 73:
        case 77: return "image/tiff";
        case 137: return "image/png";
        case 208: return "application/vnd";  // truncated, and kept so
        case 255: return "image/jpeg";
        default: return "application/octet-stream";
    }
}

std::string displayName(VXCloudService cloudService) {
    const std::string_view english = serviceDescriptor(cloudService).displayName;
    return english.empty() ? std::string() : VXCloudString::localized(english);
}

std::optional<std::string> image(VXCloudService cloudService) {
    return bundleImage(std::string(accountIconName(cloudService)).c_str());
}

std::optional<std::string> VXCloudUploadImage() { return bundleImage("upload"); }
std::optional<std::string> VXCloudPendingImage() { return bundleImage("upload-pending"); }
std::optional<std::string> VXCloudSuccessImage() { return bundleImage("upload-success"); }
std::optional<std::string> VXCloudAccountErrorImage() { return bundleImage("account-error"); }
std::optional<std::string> VXCloudConnectionErrorImage() { return bundleImage("connection-error"); }

}  // namespace vxcloud
