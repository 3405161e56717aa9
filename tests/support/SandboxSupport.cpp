#include "support/SandboxSupport.h"

#include <string_view>

#include "vxcloud/platform/Http.h"

namespace vxcloud::testing {

std::string queryParam(const std::string& url, const std::string& name) {
    const auto question = url.find('?');
    if (question == std::string::npos) return {};
    std::string_view query(url);
    query.remove_prefix(question + 1);
    while (!query.empty()) {
        const auto amp = query.find('&');
        const std::string_view pair = query.substr(0, amp);
        const auto eq = pair.find('=');
        if (HttpClient::urlDecode(pair.substr(0, eq)) == name) {
            return eq == std::string_view::npos ? std::string() : HttpClient::urlDecode(pair.substr(eq + 1));
        }
        if (amp == std::string_view::npos) break;
        query.remove_prefix(amp + 1);
    }
    return {};
}

}  // namespace vxcloud::testing
