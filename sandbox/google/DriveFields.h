#pragma once
// The `fields` partial-response selector: "id,name", "files(id, name, md5Checksum)",
// "user/emailAddress", "*". A selection is checked against the resource's field names
// (an unknown one is the service's 400) and then applied to the full answer.
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>

namespace vxcloud::sandbox::google {

// The field names of a resource; a name maps to the schema of its value, or to null for a
// plain value.
struct FieldSchema {
    std::map<std::string, const FieldSchema*> fields;
};

const FieldSchema& fileSchema();
const FieldSchema& fileListSchema();
const FieldSchema& aboutSchema();

class FieldMask {
public:
    // Everything.
    static FieldMask all();
    // Nothing, with `error` naming the offending part, when the text does not parse or
    // names a field the schema does not have.
    static std::optional<FieldMask> parse(std::string_view text, const FieldSchema& schema, std::string& error);

    bool selectsAll() const { return all_; }
    // Whether the top-level field `name` is wanted (wholly or partly).
    bool wants(const std::string& name) const;
    // The selection inside `name` (everything when `name` was selected whole).
    FieldMask inside(const std::string& name) const;
    // The answer reduced to the selection; arrays are reduced element by element.
    nlohmann::json apply(const nlohmann::json& value) const;

private:
    bool all_ = false;
    std::map<std::string, FieldMask> children_;

    friend class FieldParser;
};

}  // namespace vxcloud::sandbox::google
