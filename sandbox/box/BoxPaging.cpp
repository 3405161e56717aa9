// Paging parameters of Box's lists: limit and offset, and the markers of marker paging.
#include <algorithm>

#include "box/BoxModule.h"
#include "framework/Text.h"

namespace vxcloud::sandbox::box {
namespace {

std::optional<std::int64_t> number(const std::string& text) {
    if (text.empty() || text.size() > 15 || text.find_first_not_of("0123456789") != std::string::npos) {
        return std::nullopt;
    }
    return std::stoll(text);
}

}  // namespace

std::int64_t limitOf(const Request& request, const Settings& settings) {
    const std::int64_t most = settings.pageLimitMax;
    const auto given = request.queryParam("limit");
    if (!given) return std::min<std::int64_t>(settings.pageLimitDefault, most);
    const auto limit = number(*given);
    if (!limit || *limit < 1) failParameter("limit", false, "invalid_limit");
    return std::min(*limit, most);
}

std::int64_t offsetOf(const Request& request) {
    const auto given = request.queryParam("offset");
    if (!given) return 0;
    const auto offset = number(*given);
    if (!offset) failParameter("offset", false, "invalid_offset");
    return *offset;
}

std::string makeMarker(const std::string& folderId, std::size_t position) {
    return base64UrlEncode("m1:" + folderId + ":" + std::to_string(position));
}

std::size_t markerPosition(const std::string& marker, const std::string& folderId) {
    bool ok = false;
    const std::string decoded = base64Decode(marker, &ok);
    const std::string prefix = "m1:" + folderId + ":";
    const auto position = ok && decoded.rfind(prefix, 0) == 0 ? number(decoded.substr(prefix.size())) : std::nullopt;
    if (!position) failParameter("marker", false);
    return static_cast<std::size_t>(*position);
}

}  // namespace vxcloud::sandbox::box
