#pragma once
// Records in the secure store which accounts of which service exist: one item per
// (service, email), class "internet-password", type = the service's raw value, account
// = the email. No secret is attached. A facility for the host; the component's own
// account list is VXCloudUserDefaults.
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "vxcloud/model/VXCloudAccount.h"

namespace vxcloud {

class VXCloudKeychain {
public:
    static constexpr const char* kItemClass = "internet-password";

    static VXCloudKeychain& sharedInstance();

    // Adds the account's item. True when it was added or already existed (an existing
    // item is left as it is); false for any other failure.
    bool set(const VXCloudAccount& cloudAccount);

    // The accounts made from the service's items. With an account name the search is
    // limited to one item, which comes back as a single dictionary rather than a list,
    // so the result is empty. The items carry no "userid" or "cloudservicerawvalue",
    // so no account can be built from them either: the result is empty in both cases.
    std::vector<std::shared_ptr<VXCloudAccount>> getCloudAccounts(
        VXCloudService cloudService, const std::optional<std::string>& accountName = std::nullopt);

private:
    VXCloudKeychain() = default;
};

}  // namespace vxcloud
