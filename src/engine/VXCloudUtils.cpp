#include "vxcloud/engine/VXCloudUtils.h"

#include <cstdint>

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

bool isSendableName(std::string_view name) {
    std::size_t i = 0;
    while (i < name.size()) {
        const auto byte = static_cast<unsigned char>(name[i]);
        if (byte == 0) return false;
        if (byte < 0x80) {
            ++i;
            continue;
        }
        std::size_t length = 0;
        std::uint32_t code = 0;
        if ((byte & 0xE0) == 0xC0) {
            length = 2;
            code = byte & 0x1F;
        } else if ((byte & 0xF0) == 0xE0) {
            length = 3;
            code = byte & 0x0F;
        } else if ((byte & 0xF8) == 0xF0) {
            length = 4;
            code = byte & 0x07;
        } else {
            return false;
        }
        if (i + length > name.size()) return false;
        for (std::size_t k = 1; k < length; ++k) {
            const auto next = static_cast<unsigned char>(name[i + k]);
            if ((next & 0xC0) != 0x80) return false;
            code = (code << 6) | (next & 0x3F);
        }
        static constexpr std::uint32_t kSmallest[] = {0, 0, 0x80, 0x800, 0x10000};
        if (code < kSmallest[length] || code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF)) return false;
        i += length;
    }
    return true;
}

}  // namespace vxcloud
