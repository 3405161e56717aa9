#pragma once
// The numbers people name accounts by (`vxcloud accounts`' "#" column, `vxcloud settings 2`):
// an account gets one when the host first sees it, keeps it while it is linked, and no other
// account ever gets it, so a number in a script or in someone's memory keeps naming the same
// account while others are linked and unlinked.
#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "vxcloud/model/VXCloudAccount.h"

namespace vxcloud::cli {

struct NumberedAccount {
    std::size_t number = 0;
    std::shared_ptr<VXCloudAccount> account;
};

// Every linked account with its number, by number. Accounts without one (new ones, and those
// stored before numbers were kept) get the next numbers, in the store's order, and keep them.
std::vector<NumberedAccount> numberedAccounts();
// The number of the linked account with this key (given now when it has none); 0 when no
// such account is linked. Called as an account is linked, so it is numbered in that order.
std::size_t accountNumber(const std::string& key);

}  // namespace vxcloud::cli
