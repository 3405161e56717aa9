#pragma once
// The request every token grant goes out as: a form POST to the service's token endpoint
// asking for a JSON answer. It is never repeated once it may have reached the server: a
// code is good for one exchange, and a refresh may have rotated the refresh token.
#include <string>
#include <utility>
#include <vector>

#include "vxcloud/platform/Http.h"

namespace vxcloud::oauth {

HttpRequest tokenRequest(const std::string& tokenUrl, const std::vector<std::pair<std::string, std::string>>& form);

}  // namespace vxcloud::oauth
