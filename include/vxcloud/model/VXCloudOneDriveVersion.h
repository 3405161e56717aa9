#pragma once
// A OneDrive document's local version. Drives differ in the digests they report: personal
// drives used to give SHA-1 and no longer do, business drives never did, QuickXorHash is on
// every drive. So the local side keeps both, written as one string
// ("sha1Hash:<hex>;quickXorHash:<base64>") that fits VXCloudFile::localVersion and says
// which digest is which. The remote version stays whatever the service reported.
#include <string>
#include <string_view>

namespace vxcloud {

struct VXCloudOneDriveVersion {
    std::string sha1Hash;      // lower-case hex; empty when not known
    std::string quickXorHash;  // base64, as the service writes it; empty when not known

    std::string text() const;
    // Reads text(); a bare digest is taken for the one it looks like (40 hex digits are
    // SHA-1, anything else QuickXorHash), so versions written before both were kept still
    // count.
    static VXCloudOneDriveVersion parse(std::string_view text);

    // Whether a digest the service reported is of this content: SHA-1 compared without
    // regard to letter case, QuickXorHash exactly (base64 is case-sensitive).
    bool matches(std::string_view reported) const;
    bool empty() const { return sha1Hash.empty() && quickXorHash.empty(); }
};

}  // namespace vxcloud
