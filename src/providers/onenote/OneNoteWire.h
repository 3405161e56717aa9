#pragma once
// Readers of the OneNote service's answers, lenient as the session wants them: the two bases
// name things differently ("name" on the older host, "displayName" on Graph) and add members
// freely, so only what a record needs is read. Only the OneNote session includes this.
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>

#include "vxcloud/model/VXCloudFile.h"
#include "vxcloud/sessions/VXCloudSession.h"

namespace vxcloud::onenote {

// A notebook (or, with `notebook` false, a section) of a listing or a create answer: a folder
// record; null when it has no name or id.
std::shared_ptr<VXCloudFile> parseFolder(const nlohmann::json& entry, bool notebook);

// The folders of a listing's first page ({"value": [...]}); entries that cannot be read are
// left out, and a body that cannot be read lists nothing.
VXCloudFileList parseFolderList(std::string_view body, bool notebooks);

// A create answer's folder record, read from the body; null when it cannot be read.
std::shared_ptr<VXCloudFile> parseCreatedFolder(std::string_view body, bool notebook);

// A created page's title and id; nothing when either is missing.
struct CreatedPage {
    std::string title;
    std::string id;
};
std::optional<CreatedPage> parseCreatedPage(std::string_view body);

}  // namespace vxcloud::onenote
