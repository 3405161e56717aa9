#pragma once
// Tests that run the component against an embedded sandbox: pointing a service's endpoints
// at it, and reading the parameters of the redirects it answers with.
#include <string>

#include "vxcloud/model/VXCloudService.h"
#include "vxcloud_sandbox/Sandbox.h"

namespace vxcloud::testing {

// Sets the service's endpoints to the sandbox's `provider` ("dropbox"): its api, content,
// authorize and token roles, and every other role it names as an extra endpoint.
void pointAtSandbox(const sandbox::Sandbox& sandbox, const std::string& provider, VXCloudService service);

// The decoded query parameter `name` of a URL ("" when absent).
std::string queryParam(const std::string& url, const std::string& name);

}  // namespace vxcloud::testing
