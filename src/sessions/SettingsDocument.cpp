#include "sessions/SettingsDocument.h"

#include <nlohmann/json.hpp>

namespace vxcloud::sessions {

JsonBox readSettingsDocument(std::string_view text) {
    Json settings = Json::parse(text.begin(), text.end(), nullptr, false);
    if (!settings.is_object()) return {};
    return settings;
}

std::optional<std::string> settingsString(std::string_view text, const char* key) {
    const JsonBox settings = readSettingsDocument(text);
    if (!settings) return std::nullopt;
    const auto value = settings->find(key);
    if (value == settings->end() || !value->is_string()) return std::nullopt;
    return value->get<std::string>();
}

}  // namespace vxcloud::sessions
