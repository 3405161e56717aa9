#pragma once
// Reading optional members of a provider's JSON answer: a missing or null member leaves
// the output empty; a member of another type makes the read fail, so a malformed answer
// is reported instead of half-read.
#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

namespace vxcloud::providers {

inline bool readString(const nlohmann::json& object, const char* key, std::optional<std::string>& out) {
    const auto it = object.find(key);
    if (it == object.end() || it->is_null()) return true;
    if (!it->is_string()) return false;
    out = it->get<std::string>();
    return true;
}

// An int64 as a JSON number or as a decimal string (some services send large ones so).
inline bool readInt64(const nlohmann::json& object, const char* key, std::optional<std::int64_t>& out) {
    const auto it = object.find(key);
    if (it == object.end() || it->is_null()) return true;
    if (it->is_number_integer()) {
        out = it->get<std::int64_t>();
        return true;
    }
    if (!it->is_string()) return false;
    const std::string text = it->get<std::string>();
    if (text.empty() || text.size() > 18 || text.find_first_not_of("0123456789") != std::string::npos) return false;
    out = std::stoll(text);
    return true;
}

// A member that must be an object when present; null when absent.
inline const nlohmann::json* objectMember(const nlohmann::json& object, const char* key, bool& ok) {
    const auto it = object.find(key);
    if (it == object.end() || it->is_null()) return nullptr;
    if (!it->is_object()) {
        ok = false;
        return nullptr;
    }
    return &*it;
}

}  // namespace vxcloud::providers
