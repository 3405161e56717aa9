#include "providers/google/GoogleDriveClient.h"

namespace vxcloud::drive {

using nlohmann::json;

namespace {

// Reads an optional member into `out`; false when it is there with another type.
bool readString(const json& value, const char* key, std::optional<std::string>& out) {
    const auto it = value.find(key);
    if (it == value.end() || it->is_null()) return true;
    if (!it->is_string()) return false;
    out = it->get<std::string>();
    return true;
}

}  // namespace

std::optional<File> parseFile(const json& value) {
    if (!value.is_object()) return std::nullopt;
    File file;
    if (!readString(value, "id", file.identifier) || !readString(value, "name", file.name) ||
        !readString(value, "mimeType", file.mimeType) || !readString(value, "md5Checksum", file.md5Checksum) ||
        !readString(value, "modifiedTime", file.modifiedTime)) {
        return std::nullopt;
    }
    if (const auto it = value.find("parents"); it != value.end() && !it->is_null()) {
        if (!it->is_array()) return std::nullopt;
        std::vector<std::string> parents;
        for (const auto& parent : *it) {
            if (!parent.is_string()) return std::nullopt;
            parents.push_back(parent.get<std::string>());
        }
        file.parents = std::move(parents);
    }
    if (const auto it = value.find("trashed"); it != value.end() && !it->is_null()) {
        if (!it->is_boolean()) return std::nullopt;
        file.trashed = it->get<bool>();
    }
    // int64 values travel as strings.
    if (const auto it = value.find("size"); it != value.end() && !it->is_null()) {
        if (it->is_number_integer()) {
            file.size = it->get<std::int64_t>();
        } else if (it->is_string()) {
            const std::string text = it->get<std::string>();
            if (text.empty() || text.size() > 18 || text.find_first_not_of("0123456789") != std::string::npos) {
                return std::nullopt;
            }
            file.size = std::stoll(text);
        } else {
            return std::nullopt;
        }
    }
    return file;
}

json metadataJson(const FileMetadata& metadata) {
    json out = json::object();
    if (metadata.name) out["name"] = *metadata.name;
    if (metadata.mimeType) out["mimeType"] = *metadata.mimeType;
    if (metadata.parents) out["parents"] = *metadata.parents;
    return out;
}

ProviderError malformedAnswer(const std::string& what) {
    return ProviderError::transportFailure(TransportErrorKind::malformedResponse, "Google Drive: " + what);
}

}  // namespace vxcloud::drive
