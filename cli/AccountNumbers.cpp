#include "AccountNumbers.h"

#include <algorithm>
#include <map>
#include <nlohmann/json.hpp>
#include <string>

#include "Accounts.h"
#include "vxcloud/platform/Log.h"
#include "vxcloud/platform/PreferencesStore.h"

namespace vxcloud::cli {

namespace {

// {"next": N, "numbers": {account key: number}} in the preferences, beside the accounts.
// Numbers of unlinked accounts stay: the same account linked again gets its number back.
constexpr const char* kEntry = "vxcloudhost.accountnumbers";

using Numbers = std::map<std::string, std::size_t>;

Numbers numbersIn(const JsonBox& entry) {
    Numbers numbers;
    if (!entry || !entry->is_object()) return numbers;
    const auto list = entry->find("numbers");
    if (list == entry->end() || !list->is_object()) return numbers;
    for (const auto& [key, value] : list->items())
        if (value.is_number_unsigned() && value.get<std::size_t>() > 0) numbers[key] = value.get<std::size_t>();
    return numbers;
}

// Gives every account in `accounts` that has none the next number; the numbers as they are now.
Numbers numberNew(const AccountList& accounts, JsonBox& entry) {
    Numbers numbers = numbersIn(entry);
    std::size_t next = 1;
    for (const auto& [key, number] : numbers) next = std::max(next, number + 1);
    if (entry && entry->is_object() && entry->contains("next") && (*entry)["next"].is_number_unsigned())
        next = std::max(next, (*entry)["next"].get<std::size_t>());
    bool added = false;
    for (const auto& account : accounts) {
        if (numbers.count(account->key())) continue;
        numbers[account->key()] = next++;
        added = true;
    }
    if (!added) return numbers;
    Json list = Json::object();
    for (const auto& [key, number] : numbers) list[key] = number;
    entry = Json{{"next", next}, {"numbers", list}};
    return numbers;
}

}  // namespace

std::vector<NumberedAccount> numberedAccounts() {
    const AccountList accounts = linkedAccounts();
    const auto store = PreferencesStore::standard();
    Numbers numbers = numbersIn(store->get(kEntry));
    const bool allNumbered = std::all_of(accounts.begin(), accounts.end(),
                                         [&](const auto& account) { return numbers.count(account->key()) > 0; });
    if (!allNumbered) {
        // Given under the store's lock, so two runs never give one number to two accounts.
        const bool saved = store->update(kEntry, [&](JsonBox& entry) { numbers = numberNew(accounts, entry); });
        if (!saved) {
            // Shown for this run only; the next run that can write keeps them.
            log::warning("cli", "the account numbers could not be saved");
            JsonBox entry = store->get(kEntry);
            numbers = numberNew(accounts, entry);
        }
    }
    std::vector<NumberedAccount> out;
    for (const auto& account : accounts) out.push_back({numbers[account->key()], account});
    std::sort(out.begin(), out.end(), [](const auto& a, const auto& b) { return a.number < b.number; });
    return out;
}

std::size_t accountNumber(const std::string& key) {
    for (const auto& numbered : numberedAccounts())
        if (numbered.account->key() == key) return numbered.number;
    return 0;
}

}  // namespace vxcloud::cli
