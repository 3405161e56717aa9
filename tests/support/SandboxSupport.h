#pragma once
// Reading the parameters of the redirects a sandbox (or an app's listener) answers with.
#include <string>

namespace vxcloud::testing {

// The decoded query parameter `name` of a URL ("" when absent).
std::string queryParam(const std::string& url, const std::string& name);

}  // namespace vxcloud::testing
