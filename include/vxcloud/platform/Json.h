#pragma once
// JSON values are the component's dictionaries (accounts, status records, user-info).
// Public headers only forward-declare nlohmann::json so that including them stays cheap;
// code that reads or builds values includes <nlohmann/json.hpp> itself.
#include <memory>
#include <nlohmann/json_fwd.hpp>

namespace vxcloud {

using Json = nlohmann::json;

// An optional JSON value with value semantics, usable as a member of a class
// whose header must not pull in the full JSON library.
class JsonBox {
public:
    JsonBox() noexcept;
    JsonBox(const Json& value);  // NOLINT: implicit on purpose, reads like an optional
    JsonBox(Json&& value);       // NOLINT
    JsonBox(const JsonBox& other);
    JsonBox(JsonBox&& other) noexcept;
    JsonBox& operator=(const JsonBox& other);
    JsonBox& operator=(JsonBox&& other) noexcept;
    JsonBox& operator=(const Json& value);
    JsonBox& operator=(Json&& value);
    ~JsonBox();

    bool has_value() const noexcept { return value_ != nullptr; }
    explicit operator bool() const noexcept { return has_value(); }
    // Precondition: has_value().
    const Json& value() const;
    Json& value();
    const Json& operator*() const { return value(); }
    Json& operator*() { return value(); }
    const Json* operator->() const { return value_.get(); }
    Json* operator->() { return value_.get(); }
    const Json* get() const noexcept { return value_.get(); }
    // The value when present, otherwise JSON null.
    Json value_or_null() const;
    void reset() noexcept;

    friend bool operator==(const JsonBox& a, const JsonBox& b);

private:
    std::unique_ptr<Json> value_;
};

}  // namespace vxcloud
