#pragma once
// The linked accounts, kept in the preferences store's entry "vxcloudaccounts": a
// dictionary from each account's key() to its dictionary form. Every call reads the
// entry afresh; every change is one atomic read-modify-write of the entry, so
// concurrent saves from threads or processes never lose one another.
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "vxcloud/model/VXCloudAccount.h"
#include "vxcloud/model/VXCloudService.h"

namespace vxcloud {

class VXCloudUserDefaults {
public:
    VXCloudUserDefaults() = delete;

    static constexpr const char* kAccountsKey = "vxcloudaccounts";

    using AccountList = std::vector<std::shared_ptr<VXCloudAccount>>;

    // Inserts or replaces the entry under account.key(), with the account's own class's
    // dictionary form. A non-dictionary value in the entry is replaced. False when the
    // preferences file cannot be written.
    static bool saveCloudAccount(const VXCloudAccount& account);
    // Changes the account stored under `key` in place: `change` is handed the account as
    // stored at this moment (of its own class) and edits it; the result is written back in
    // the same atomic read-modify-write, so what other threads or processes changed in
    // between (a new name, a folder, an error) survives unless `change` sets it itself.
    // `change` runs under the store's lock and must be quick; it may not change the key
    // (userId, service). The account as stored afterwards; null when nothing is stored
    // under `key` (nothing is written), the key was changed, or the preferences file cannot
    // be written.
    static std::shared_ptr<VXCloudAccount> updateCloudAccount(const std::string& key,
                                                              const std::function<void(VXCloudAccount&)>& change);
    // Removes the entry under account->key(); a null account or a missing entry changes
    // nothing. False when the preferences file cannot be written.
    static bool removeCloudAccount(const std::shared_ptr<const VXCloudAccount>& account);

    // The stored accounts of the given services, sorted by service and then by email
    // (byte order). WebDAV accounts are always included, whatever services are asked
    // for. Entries that do not make an account are skipped and left in the store.
    // Nothing when the entry is absent or not a dictionary.
    static std::optional<AccountList> loadAccounts(const std::vector<VXCloudService>& cloudServices);
    // All stored accounts; only those with shouldAutoUpload when autoUploadEnabled.
    static AccountList loadAllAccounts(bool autoUploadEnabled);
    static bool hasAccountsWithAutoUpload();
};

}  // namespace vxcloud
