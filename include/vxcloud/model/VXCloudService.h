#pragma once
// The seven cloud services. The raw values are stored with every account
// ("cloudservicerawvalue"), the type words in upload status records.
#include <array>
#include <optional>
#include <string_view>

namespace vxcloud {

enum class VXCloudService : int {
    googleDrive = 0,
    dropbox = 1,
    oneDrive = 2,
    oneNote = 3,
    box = 4,
    evernote = 5,
    webDAV = 6,
};

// Every service, in case order.
inline constexpr std::array<VXCloudService, 7> allCloudServices = {
    VXCloudService::googleDrive, VXCloudService::dropbox, VXCloudService::oneDrive,
    VXCloudService::oneNote,     VXCloudService::box,     VXCloudService::evernote,
    VXCloudService::webDAV,
};

constexpr int rawValue(VXCloudService service) noexcept { return static_cast<int>(service); }

// Nothing for values outside 0-6.
constexpr std::optional<VXCloudService> cloudServiceFromRawValue(long long raw) noexcept {
    if (raw < 0 || raw > 6) return std::nullopt;
    return static_cast<VXCloudService>(raw);
}

// The service's external name ("google_drive", "dropbox", "one_drive", "one_note", "box",
// "evernote", "web_dav").
std::string_view accountType(VXCloudService service) noexcept;
// The account-key prefix ("VX_Google_Drive_" ... "VX_WebDAV_").
std::string_view keyPrefix(VXCloudService service) noexcept;
// The name of the service's icon in the resource bundle ("google-drive", ...).
std::string_view accountIconName(VXCloudService service) noexcept;

// The reverse of accountType: exactly the seven type words, case-sensitive, no aliases
// (so "google-drive", the icon name, is not a type word).
std::optional<VXCloudService> cloudServiceFromType(std::string_view type) noexcept;

}  // namespace vxcloud
