#pragma once
// A document's upload status per account, as the host keeps it: one row per record, and a
// row for each linked account that holds no copy.
#include <string>

#include "Accounts.h"
#include "RecordStore.h"

namespace vxcloud::cli {

std::string statusTable(RecordStore& records, const DocumentRow& document, const AccountList& accounts);

}  // namespace vxcloud::cli
