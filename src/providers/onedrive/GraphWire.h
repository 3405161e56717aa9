#pragma once
// Readers of Graph's JSON answers. Only the OneDrive client's sources include this.
#include <nlohmann/json.hpp>
#include <optional>

#include "GraphItem.h"

namespace vxcloud::onedrive {

// A driveItem; nothing when it has no id or a field has the wrong type.
std::optional<Item> parseItem(const nlohmann::json& value);
// A children page; nothing when `value` is not a list of items.
std::optional<ChildrenPage> parsePage(const nlohmann::json& value);
std::optional<Drive> parseDrive(const nlohmann::json& value);
const char* conflictBehaviorName(ConflictBehavior behavior);

}  // namespace vxcloud::onedrive
