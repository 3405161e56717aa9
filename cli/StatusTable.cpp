#include "StatusTable.h"

#include <algorithm>

#include "Accounts.h"
#include "Output.h"
#include "vxcloud/engine/UploadStatus.h"

namespace vxcloud::cli {

namespace {

std::string field(const Json& record, const char* key) {
    const auto it = record.find(key);
    if (it == record.end()) return "-";
    if (it->is_string()) return it->get<std::string>().empty() ? "-" : it->get<std::string>();
    return it->dump();
}

}  // namespace

std::string statusTable(RecordStore& records, const DocumentRow& document, const AccountList& accounts) {
    using namespace uploadstatus;
    const auto rows = records.records(document.id);
    Table table({"Account", "Status", "Stored as", "Version", "Folder", "Error", "Updated"});
    for (const auto& row : rows) {
        std::string label = row.accountType + ":" + row.accountId + " (not linked)";
        for (const auto& account : accounts)
            if (account->accountType() == row.accountType && account->email == row.accountId) label = accountLabel(*account);
        if (!row.record.is_object()) {
            table.add({label, "unreadable record", "-", "-", "-", "-", localTime(row.updatedAt)});
            continue;
        }
        table.add({label, field(row.record, kStatus), field(row.record, kDocumentId),
                   shortVersion(field(row.record, kVersion)), row.folderPath.value_or("-"), field(row.record, kError),
                   localTime(row.updatedAt)});
    }
    for (const auto& account : accounts) {
        const bool has = std::any_of(rows.begin(), rows.end(), [&](const RecordRow& row) {
            return row.accountType == account->accountType() && row.accountId == account->email;
        });
        // Documents reach such accounts only when sent by hand, which leaves no record.
        const bool onRequestOnly = autoUploadRefusal(*account).has_value();
        if (!has) table.add({accountLabel(*account), onRequestOnly ? "on request only" : "not uploaded", "-", "-", "-", "-", "-"});
    }
    return table.render("  ");
}

}  // namespace vxcloud::cli
