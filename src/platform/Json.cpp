#include "vxcloud/platform/Json.h"

#include <nlohmann/json.hpp>

namespace vxcloud {

JsonBox::JsonBox() noexcept = default;
JsonBox::JsonBox(const Json& value) : value_(std::make_unique<Json>(value)) {}
JsonBox::JsonBox(Json&& value) : value_(std::make_unique<Json>(std::move(value))) {}
JsonBox::JsonBox(const JsonBox& other)
    : value_(other.value_ ? std::make_unique<Json>(*other.value_) : nullptr) {}
JsonBox::JsonBox(JsonBox&& other) noexcept = default;
JsonBox::~JsonBox() = default;

JsonBox& JsonBox::operator=(const JsonBox& other) {
    if (this != &other) value_ = other.value_ ? std::make_unique<Json>(*other.value_) : nullptr;
    return *this;
}
JsonBox& JsonBox::operator=(JsonBox&& other) noexcept = default;
JsonBox& JsonBox::operator=(const Json& value) {
    value_ = std::make_unique<Json>(value);
    return *this;
}
JsonBox& JsonBox::operator=(Json&& value) {
    value_ = std::make_unique<Json>(std::move(value));
    return *this;
}

const Json& JsonBox::value() const { return *value_; }
Json& JsonBox::value() { return *value_; }
Json JsonBox::value_or_null() const { return value_ ? *value_ : Json(); }
void JsonBox::reset() noexcept { value_.reset(); }

bool operator==(const JsonBox& a, const JsonBox& b) {
    if (!a.value_ || !b.value_) return !a.value_ && !b.value_;
    return *a.value_ == *b.value_;
}

}  // namespace vxcloud
