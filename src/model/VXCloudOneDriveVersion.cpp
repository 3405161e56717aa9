#include "vxcloud/model/VXCloudOneDriveVersion.h"

#include <algorithm>
#include <cctype>

namespace vxcloud {

namespace {

constexpr std::string_view kSha1Key = "sha1Hash:";
constexpr std::string_view kQuickXorKey = "quickXorHash:";

bool looksLikeSha1(std::string_view text) {
    return text.size() == 40 &&
           std::all_of(text.begin(), text.end(), [](unsigned char c) { return std::isxdigit(c) != 0; });
}

std::string lowered(std::string_view text) {
    std::string out(text);
    std::transform(out.begin(), out.end(), out.begin(), [](unsigned char c) { return std::tolower(c); });
    return out;
}

}  // namespace

std::string VXCloudOneDriveVersion::text() const {
    std::string out;
    if (!sha1Hash.empty()) out.append(kSha1Key).append(sha1Hash);
    if (!quickXorHash.empty()) {
        if (!out.empty()) out += ';';
        out.append(kQuickXorKey).append(quickXorHash);
    }
    return out;
}

VXCloudOneDriveVersion VXCloudOneDriveVersion::parse(std::string_view text) {
    VXCloudOneDriveVersion version;
    if (text.find(':') == std::string_view::npos) {
        if (looksLikeSha1(text)) {
            version.sha1Hash = lowered(text);
        } else {
            version.quickXorHash = std::string(text);
        }
        return version;
    }
    while (!text.empty()) {
        const std::size_t end = std::min(text.find(';'), text.size());
        const std::string_view part = text.substr(0, end);
        if (part.starts_with(kSha1Key)) version.sha1Hash = lowered(part.substr(kSha1Key.size()));
        if (part.starts_with(kQuickXorKey)) version.quickXorHash = std::string(part.substr(kQuickXorKey.size()));
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return version;
}

bool VXCloudOneDriveVersion::matches(std::string_view reported) const {
    if (reported.empty()) return false;
    if (!sha1Hash.empty() && lowered(reported) == sha1Hash) return true;
    return !quickXorHash.empty() && reported == quickXorHash;
}

}  // namespace vxcloud
