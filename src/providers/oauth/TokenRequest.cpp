#include "providers/oauth/TokenRequest.h"

#include "vxcloud/sessions/VXCloudServiceConfig.h"

namespace vxcloud::oauth {

HttpRequest tokenRequest(const std::string& tokenUrl, const std::vector<std::pair<std::string, std::string>>& form) {
    HttpRequest request;
    request.method = "POST";
    request.url = tokenUrl;
    request.headers.set("Content-Type", "application/x-www-form-urlencoded");
    request.headers.set("Accept", "application/json");
    request.body = ByteBuffer::adopt(HttpClient::formEncode(form));
    request.idempotent = false;
    const VXCloudNetworkTimeouts timeouts = VXCloudServiceConfig::networkTimeouts();
    request.connectTimeout = timeouts.connect;
    request.idleTimeout = timeouts.stall;
    return request;
}

}  // namespace vxcloud::oauth
