#pragma once
// An error of the component's own domain, for failures that are not a provider's
// (unlinking without a stored token, a sign-in flow that could not run).
#include <string>

namespace vxcloud {

inline constexpr const char* kVXCloudErrorDomain = "com.vxcloud.VXCloud";

struct PlatformError {
    std::string domain = kVXCloudErrorDomain;
    long code = 0;
    std::string localizedDescription;
};

}  // namespace vxcloud
