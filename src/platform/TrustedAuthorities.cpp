// Which certificate authorities a request trusts: its own CA file, the one registered for
// its origin, or (empty) the system's.
#include <algorithm>
#include <cctype>
#include <mutex>
#include <shared_mutex>

#include "vxcloud/platform/Http.h"

namespace vxcloud {
namespace {

struct Registry {
    std::shared_mutex mutex;
    std::map<std::string, std::string> caFileByOrigin;
};

Registry& registry() {
    // Never destroyed: transfers on other threads may still ask at exit.
    static auto* const instance = new Registry();
    return *instance;
}

}  // namespace

std::string HttpClient::originOf(std::string_view url) {
    const auto scheme = url.find("://");
    if (scheme == std::string_view::npos || scheme == 0) return {};
    const auto end = url.find_first_of("/?#", scheme + 3);
    std::string origin(url.substr(0, end));
    std::transform(origin.begin(), origin.end(), origin.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return origin;
}

void HttpClient::setAuthoritiesByOrigin(std::map<std::string, std::string> caFileByOrigin) {
    Registry& r = registry();
    std::unique_lock lock(r.mutex);
    r.caFileByOrigin = std::move(caFileByOrigin);
}

std::string HttpClient::authoritiesFor(const HttpRequest& request) {
    if (!request.caFile.empty()) return request.caFile;
    Registry& r = registry();
    std::shared_lock lock(r.mutex);
    if (r.caFileByOrigin.empty()) return {};
    const auto it = r.caFileByOrigin.find(originOf(request.url));
    return it == r.caFileByOrigin.end() ? std::string() : it->second;
}

}  // namespace vxcloud
