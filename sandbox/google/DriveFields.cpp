#include "google/DriveFields.h"

#include <cctype>

namespace vxcloud::sandbox::google {

const FieldSchema& fileSchema() {
    static const FieldSchema properties{};  // free-form keys: selected whole
    static const FieldSchema schema{{
        {"kind", nullptr},          {"id", nullptr},           {"name", nullptr},
        {"mimeType", nullptr},      {"parents", nullptr},      {"trashed", nullptr},
        {"explicitlyTrashed", nullptr}, {"starred", nullptr},  {"description", nullptr},
        {"md5Checksum", nullptr},   {"sha1Checksum", nullptr}, {"sha256Checksum", nullptr},
        {"size", nullptr},          {"quotaBytesUsed", nullptr}, {"version", nullptr},
        {"headRevisionId", nullptr}, {"originalFilename", nullptr}, {"fileExtension", nullptr},
        {"createdTime", nullptr},   {"modifiedTime", nullptr}, {"viewedByMe", nullptr},
        {"ownedByMe", nullptr},     {"webContentLink", nullptr}, {"webViewLink", nullptr},
        {"properties", &properties}, {"appProperties", &properties},
    }};
    return schema;
}

const FieldSchema& fileListSchema() {
    static const FieldSchema schema{{
        {"kind", nullptr},
        {"incompleteSearch", nullptr},
        {"nextPageToken", nullptr},
        {"files", &fileSchema()},
    }};
    return schema;
}

const FieldSchema& aboutSchema() {
    static const FieldSchema user{{
        {"kind", nullptr},         {"displayName", nullptr}, {"emailAddress", nullptr},
        {"me", nullptr},           {"permissionId", nullptr}, {"photoLink", nullptr},
    }};
    static const FieldSchema quota{{
        {"limit", nullptr}, {"usage", nullptr}, {"usageInDrive", nullptr}, {"usageInDriveTrash", nullptr},
    }};
    static const FieldSchema schema{{
        {"kind", nullptr},
        {"user", &user},
        {"storageQuota", &quota},
        {"maxUploadSize", nullptr},
        {"appInstalled", nullptr},
    }};
    return schema;
}

// fields  := item (',' item)*
// item    := path [ '(' fields ')' ]
// path    := name ('/' name)*   |  '*'
class FieldParser {
public:
    FieldParser(std::string_view text, std::string& error) : text_(text), error_(error) {}

    bool parseInto(FieldMask& mask, const FieldSchema* schema, bool nested) {
        for (;;) {
            if (!parseItem(mask, schema)) return false;
            skipSpace();
            if (pos_ < text_.size() && text_[pos_] == ',') {
                ++pos_;
                continue;
            }
            if (nested) {
                if (pos_ < text_.size() && text_[pos_] == ')') return true;
                return fail("expected \",\" or \")\"");
            }
            if (pos_ != text_.size()) return fail("unexpected \"" + std::string(text_.substr(pos_, 1)) + "\"");
            return true;
        }
    }

private:
    void skipSpace() {
        while (pos_ < text_.size() && std::isspace(static_cast<unsigned char>(text_[pos_]))) ++pos_;
    }
    bool fail(const std::string& message) {
        error_ = message;
        return false;
    }
    std::string name() {
        skipSpace();
        const std::size_t start = pos_;
        while (pos_ < text_.size() && (std::isalnum(static_cast<unsigned char>(text_[pos_])) || text_[pos_] == '_')) {
            ++pos_;
        }
        return std::string(text_.substr(start, pos_ - start));
    }

    bool parseItem(FieldMask& mask, const FieldSchema* schema) {
        skipSpace();
        if (pos_ < text_.size() && text_[pos_] == '*') {
            ++pos_;
            mask.all_ = true;
            return true;
        }
        FieldMask* target = &mask;
        const FieldSchema* current = schema;
        bool first = true;
        for (;;) {
            if (!first) {
                if (!current) return fail("a plain field has no sub-fields");
            }
            const std::string field = name();
            if (field.empty()) return fail("expected a field name");
            // Free-form maps (properties) accept any key below them.
            if (current && !current->fields.empty()) {
                const auto it = current->fields.find(field);
                if (it == current->fields.end()) return fail("Invalid field selection " + field);
                current = it->second;
            } else if (current) {
                current = nullptr;
            }
            target = &target->children_[field];
            first = false;
            skipSpace();
            if (pos_ < text_.size() && text_[pos_] == '/') {
                ++pos_;
                continue;
            }
            break;
        }
        if (pos_ < text_.size() && text_[pos_] == '(') {
            ++pos_;
            if (!current) return fail("a plain field has no sub-fields");
            if (!parseInto(*target, current, true)) return false;
            ++pos_;  // ')'
        } else if (target->children_.empty()) {
            target->all_ = true;
        }
        return true;
    }

    std::string_view text_;
    std::string& error_;
    std::size_t pos_ = 0;
};

FieldMask FieldMask::all() {
    FieldMask mask;
    mask.all_ = true;
    return mask;
}

std::optional<FieldMask> FieldMask::parse(std::string_view text, const FieldSchema& schema, std::string& error) {
    FieldMask mask;
    if (!FieldParser(text, error).parseInto(mask, &schema, false)) return std::nullopt;
    return mask;
}

bool FieldMask::wants(const std::string& name) const { return all_ || children_.count(name) > 0; }

FieldMask FieldMask::inside(const std::string& name) const {
    if (all_) return all();
    const auto it = children_.find(name);
    return it == children_.end() ? FieldMask{} : it->second;
}

nlohmann::json FieldMask::apply(const nlohmann::json& value) const {
    if (all_) return value;
    if (value.is_array()) {
        nlohmann::json out = nlohmann::json::array();
        for (const auto& element : value) out.push_back(apply(element));
        return out;
    }
    if (!value.is_object()) return value;
    nlohmann::json out = nlohmann::json::object();
    for (const auto& [name, mask] : children_) {
        const auto it = value.find(name);
        if (it != value.end()) out[name] = mask.apply(*it);
    }
    return out;
}

}  // namespace vxcloud::sandbox::google
