#pragma once
// The account's settings document as the sessions and the manager read it back: a JSON
// object naming the upload folder by "uploadFolderId" (Drive, OneDrive, Box) or by
// "uploadFolderPath" (Dropbox), written by VXCloudAccountActions.
#include <optional>
#include <string>
#include <string_view>

#include "vxcloud/platform/Json.h"

namespace vxcloud::sessions {

// The document as a JSON object; empty when the text is not one.
JsonBox readSettingsDocument(std::string_view text);

// A string member of the document; nothing when the text is not a JSON object or the member
// is missing or not a string.
std::optional<std::string> settingsString(std::string_view text, const char* key);

}  // namespace vxcloud::sessions
