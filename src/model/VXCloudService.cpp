#include "vxcloud/model/VXCloudService.h"

namespace vxcloud {
namespace {

struct ServiceNames {
    std::string_view type;
    std::string_view prefix;
    std::string_view icon;
};

// Indexed by raw value.
constexpr std::array<ServiceNames, 7> kNames = {{
    {"google_drive", "VX_Google_Drive_", "google-drive"},
    {"dropbox", "VX_Dropbox_", "dropbox"},
    {"one_drive", "VX_OneDrive_", "onedrive"},
    {"one_note", "VX_OneNote_", "onenote"},
    {"box", "VX_Box_", "box"},
    {"evernote", "VX_Evernote_", "evernote"},
    {"web_dav", "VX_WebDAV_", "webdav"},
}};

// A value cast from an unchecked integer gets empty names rather than a wild read.
const ServiceNames& names(VXCloudService service) noexcept {
    static constexpr ServiceNames kNone{};
    const int raw = rawValue(service);
    return raw >= 0 && raw < static_cast<int>(kNames.size()) ? kNames[static_cast<std::size_t>(raw)]
                                                             : kNone;
}

}  // namespace

std::string_view accountType(VXCloudService service) noexcept { return names(service).type; }
std::string_view keyPrefix(VXCloudService service) noexcept { return names(service).prefix; }
std::string_view accountIconName(VXCloudService service) noexcept { return names(service).icon; }

std::optional<VXCloudService> cloudServiceFromType(std::string_view type) noexcept {
    for (VXCloudService service : allCloudServices) {
        if (names(service).type == type) return service;
    }
    return std::nullopt;
}

}  // namespace vxcloud
