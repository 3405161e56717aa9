#pragma once
// Text placed in HTML: the characters that would end an element's text or an attribute
// early, as entities.
#include <string>
#include <string_view>

namespace vxcloud {

std::string htmlEscape(std::string_view text);

}  // namespace vxcloud
