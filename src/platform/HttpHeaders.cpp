#include <algorithm>
#include <cctype>

#include "vxcloud/platform/Http.h"

namespace vxcloud {
namespace {

bool sameName(std::string_view a, std::string_view b) {
    return a.size() == b.size() &&
           std::equal(a.begin(), a.end(), b.begin(), [](unsigned char x, unsigned char y) {
               return std::tolower(x) == std::tolower(y);
           });
}

}  // namespace

void HttpHeaders::add(std::string name, std::string value) {
    items_.emplace_back(std::move(name), std::move(value));
}

void HttpHeaders::set(std::string name, std::string value) {
    std::erase_if(items_, [&](const auto& item) { return sameName(item.first, name); });
    items_.emplace_back(std::move(name), std::move(value));
}

std::optional<std::string> HttpHeaders::get(std::string_view name) const {
    for (const auto& [key, value] : items_) {
        if (sameName(key, name)) return value;
    }
    return std::nullopt;
}

}  // namespace vxcloud
