#pragma once
// The two halves of VXCloudKeychain::getCloudAccounts, apart so that the shape rules
// can be checked on their own: what a search answers (a single dictionary when limited
// to one item, a list otherwise), and which answers make accounts (lists only).
#include <memory>
#include <optional>
#include <vector>

#include "vxcloud/model/VXCloudAccount.h"
#include "vxcloud/platform/Json.h"
#include "vxcloud/platform/SecureStore.h"

namespace vxcloud::keychain {

// The attributes of the matching items as a keychain search returns them: the item's
// dictionary itself for a limit of one, a list of dictionaries otherwise; nothing when
// no item matched.
std::optional<Json> search(const SecureStore& store, const SecureQuery& query);

// The accounts built from a search's answer, in its order. Only a list is read; each
// entry that is a dictionary goes through VXCloudAccount::initWithDictionary and the
// entries that make no account are skipped. Anything else (a single dictionary
// included) gives no accounts.
std::vector<std::shared_ptr<VXCloudAccount>> accountsFromSearchResult(
    const std::optional<Json>& result);

}  // namespace vxcloud::keychain
